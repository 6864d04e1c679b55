#include "base/hash_table.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr std::int32_t kMaxBuckets = 50'000'000;
constexpr std::int32_t kReducedBuckets = 100'000;
constexpr std::int64_t kArenaBytesPerBucket = 124;
constexpr std::int64_t kMinArenaBytes = 4'000;
constexpr std::int64_t kMaxArenaBytes = 100'000'000;
constexpr std::int64_t kArenaReserve = 5;  // bytes that stay free behind the last node
constexpr std::int64_t kNodeAlignment = 8;

constexpr std::array<std::uint32_t, 256> MakeCrcTable() {
  std::array<std::uint32_t, 256> table = {};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
    table[byte] = crc;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> kCrcTable = MakeCrcTable();

}  // namespace

TqHashTable::TqHashTable(std::int32_t bucketCount, ReleaseValue release) : release_(release) {
  for (const std::int32_t count : {std::clamp(bucketCount, 1, kMaxBuckets), kReducedBuckets}) {
    buckets_ = static_cast<Node**>(std::calloc(static_cast<std::size_t>(count), sizeof(void*)));
    bucketCount_ = buckets_ != nullptr ? count : 0;
    if (buckets_ != nullptr) break;
  }
  if (buckets_ == nullptr) return;
  arenaSize_ = std::clamp(bucketCount_ * kArenaBytesPerBucket, kMinArenaBytes, kMaxArenaBytes);
  arena_ = static_cast<char*>(std::malloc(static_cast<std::size_t>(arenaSize_)));
  if (arena_ == nullptr) arenaSize_ = 0;
}

TqHashTable::~TqHashTable() {
  Clear();
  std::free(buckets_);
  std::free(arena_);
}

std::uint32_t TqHashTable::Hash(const char* key) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (; *key != '\0'; ++key) crc = kCrcTable[(crc ^ static_cast<unsigned char>(*key)) & 0xFF] ^ (crc >> 8);
  return crc;
}

bool TqHashTable::Insert(const char* key, std::uint64_t value) {
  return InsertNode(key, value, true);
}

bool TqHashTable::InsertNoCopy(const char* key, std::uint64_t value) {
  return InsertNode(key, value, false);
}

bool TqHashTable::InsertNode(const char* key, std::uint64_t value, bool copyKey) {
  if (key == nullptr || buckets_ == nullptr) return false;
  Node*& front = BucketOf(key);
  if (Node* const present = FindIn(front, key); present != nullptr) {
    ReleaseOf(*present);
    present->value = value;
    return true;
  }
  Node* const node = NewNode(key, copyKey);
  if (node == nullptr) return false;
  node->value = value;
  node->next = front;
  if (front != nullptr) ++collisionCount_;
  front = node;
  ++entryCount_;
  ++insertionCount_;
  return true;
}

TqHashTable::Node*& TqHashTable::BucketOf(const char* key) const {
  return buckets_[Hash(key) % static_cast<std::uint32_t>(bucketCount_)];
}

TqHashTable::Node* TqHashTable::FindIn(Node* chain, const char* key) {
  while (chain != nullptr && std::strcmp(chain->key, key) != 0) chain = chain->next;
  return chain;
}

TqHashTable::Node* TqHashTable::NewNode(const char* key, bool copyKey) {
  const std::size_t keyBytes = copyKey ? std::strlen(key) + 1 : 0;
  const auto recordBytes = static_cast<std::int64_t>(sizeof(Node) + keyBytes);
  const std::int64_t bytes = (recordBytes + kNodeAlignment - 1) / kNodeAlignment * kNodeAlignment;
  const bool fitsArena = copyKey && arenaUsed_ + bytes + kArenaReserve <= arenaSize_;
  void* memory = nullptr;
  if (fitsArena) {
    memory = arena_ + arenaUsed_;
    arenaUsed_ += bytes;
  } else {
    memory = std::malloc(static_cast<std::size_t>(bytes));
    if (memory == nullptr) return nullptr;
    allInArena_ = false;
  }
  // The copied key stands right behind its record.
  char* const keyCopy = static_cast<char*>(memory) + sizeof(Node);
  if (copyKey) std::memcpy(keyCopy, key, keyBytes);
  return new (memory) Node{copyKey ? keyCopy : key, nullptr, 0, fitsArena};
}

void TqHashTable::ReleaseOf(const Node& node) const {
  if (release_ != nullptr && node.value != 0) release_(node.value);
}

void TqHashTable::FreeNode(Node* node) {
  if (!node->inArena) std::free(node);
}

bool TqHashTable::Lookup(const char* key, std::uint64_t& value) const {
  if (key == nullptr || buckets_ == nullptr) return false;
  const Node* const node = FindIn(BucketOf(key), key);
  if (node == nullptr) return false;
  value = node->value;
  return true;
}

bool TqHashTable::Contains(const char* key) const {
  std::uint64_t value = 0;
  return Lookup(key, value);
}

void TqHashTable::Remove(const char* key) {
  if (key == nullptr || buckets_ == nullptr) return;
  Node** link = &BucketOf(key);
  while (Node* const node = *link) {
    if (std::strcmp(node->key, key) != 0) {
      link = &node->next;
      continue;
    }
    *link = node->next;
    ReleaseOf(*node);
    FreeNode(node);
    --entryCount_;
  }
}

void TqHashTable::ForEach(Visit visit, void* context) const {
  for (std::int32_t bucket = 0; bucket < bucketCount_; ++bucket) {
    for (const Node* node = buckets_[bucket]; node != nullptr; node = node->next)
      visit(node->key, node->value, context);
  }
}

void TqHashTable::KeysInto(TqStringVector& keys) const {
  ForEach([](const char* key, std::uint64_t, void* context) { static_cast<TqStringVector*>(context)->Add(key); },
          &keys);
}

void TqHashTable::MoveAllInto(TqHashTable& other) {
  if (&other == this) return;
  for (std::int32_t bucket = 0; bucket < bucketCount_; ++bucket) {
    for (Node* node = buckets_[bucket]; node != nullptr; node = node->next) {
      // What `other` took belongs to it; what it had no memory for is released by Clear.
      if (other.Insert(node->key, node->value)) node->value = 0;
    }
  }
  Clear();
}

void TqHashTable::Clear() {
  const bool needsWalk = release_ != nullptr || !allInArena_;
  for (std::int32_t bucket = 0; needsWalk && bucket < bucketCount_; ++bucket) {
    for (Node* node = buckets_[bucket]; node != nullptr;) {
      Node* const next = node->next;
      ReleaseOf(*node);
      FreeNode(node);
      node = next;
    }
  }
  std::fill_n(buckets_, bucketCount_, nullptr);
  entryCount_ = insertionCount_ = collisionCount_ = 0;
  arenaUsed_ = 0;
  allInArena_ = true;
}
