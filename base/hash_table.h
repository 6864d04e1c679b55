#pragma once

#include <cstdint>

#include "base/vector.h"

/// A chained hash table with C-string keys, compared whole and by case. The bucket count is fixed at construction;
/// nodes come from an arena while it lasts. Values are 64-bit integers or pointers; when the table drops one that is
/// not 0 it is passed to the value-release function. When the buckets cannot be allocated the table stays unusable:
/// every operation does nothing and look-ups fail.
class TqHashTable {
 public:
  using ReleaseValue = void (*)(std::uint64_t value);
  using Visit = void (*)(const char* key, std::uint64_t value, void* context);

  explicit TqHashTable(std::int32_t bucketCount, ReleaseValue release = nullptr);
  TqHashTable(const TqHashTable&) = delete;
  TqHashTable& operator=(const TqHashTable&) = delete;
  virtual ~TqHashTable();

  /// Copies the key. On an existing key the old value is released and replaced; the node keeps its place. New nodes go
  /// to the front of their chain. False on a null key or without memory.
  bool Insert(const char* key, std::uint64_t value);
  /// Keeps the caller's key pointer, which must outlive the entry. An existing key keeps its old key pointer.
  bool InsertNoCopy(const char* key, std::uint64_t value);
  /// `value` is untouched when the key is missing.
  bool Lookup(const char* key, std::uint64_t& value) const;
  bool Contains(const char* key) const;
  /// Removes every node with that key.
  void Remove(const char* key);
  /// Buckets in index order, each chain from its front. `visit` must not change the table.
  void ForEach(Visit visit, void* context) const;
  /// Appends all keys in ForEach order.
  void KeysInto(TqStringVector& keys) const;
  /// Inserts every pair into `other` (keys copied) and leaves this table empty without releasing the moved values;
  /// those that `other` has no memory for are released. Into itself: nothing.
  void MoveAllInto(TqHashTable& other);
  void Clear();

  std::int32_t EntryCount() const { return entryCount_; }
  std::int32_t InsertionCount() const { return insertionCount_; }
  std::int32_t CollisionCount() const { return collisionCount_; }
  std::int32_t BucketCount() const { return bucketCount_; }
  /// Borrowed.
  void SetLabel(const char* label) { label_ = label; }
  const char* Label() const { return label_; }

  /// CRC-32 (reflected 0xEDB88320, start 0xFFFFFFFF, no final inversion) over the key's bytes.
  static std::uint32_t Hash(const char* key);

 private:
  struct Node {
    const char* key;  ///< behind the node itself, or the caller's (InsertNoCopy)
    Node* next;
    std::uint64_t value;
    bool inArena;  ///< otherwise the node has its own allocation
  };

  bool InsertNode(const char* key, std::uint64_t value, bool copyKey);
  Node*& BucketOf(const char* key) const;
  Node* NewNode(const char* key, bool copyKey);
  void ReleaseOf(const Node& node) const;
  static Node* FindIn(Node* chain, const char* key);
  static void FreeNode(Node* node);

  std::int32_t bucketCount_ = 0;
  std::int32_t entryCount_ = 0;
  std::int32_t insertionCount_ = 0;
  std::int32_t collisionCount_ = 0;
  Node** buckets_ = nullptr;
  ReleaseValue release_ = nullptr;
  const char* label_ = nullptr;
  char* arena_ = nullptr;
  std::int64_t arenaSize_ = 0;
  std::int64_t arenaUsed_ = 0;
  bool allInArena_ = true;
};
