#include "base/vector.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/log.h"
#include "platform/platform.h"

namespace {

const TqString& EmptyText() {
  static const TqString empty;
  return empty;
}

// Null when the copy cannot get its memory.
std::unique_ptr<TqString> NewText(std::string_view text) {
  std::unique_ptr<TqString> copy(new (std::nothrow) TqString(text));
  if (copy != nullptr && copy->View() != text) copy.reset();
  return copy;
}

// Shifts of a pointer array of `count` used slots.
template <typename Item>
void OpenGap(Item* items, std::int32_t count, std::int32_t index) {
  std::copy_backward(items + index, items + count, items + count + 1);
}

template <typename Item>
void CloseGap(Item* items, std::int32_t count, std::int32_t index, std::int32_t removed) {
  std::copy(items + index + removed, items + count, items + index);
}

// How many of `wanted` elements from `index` exist; 0 for an index or count out of range.
std::int32_t CountFrom(std::int32_t count, std::int32_t index, std::int32_t wanted) {
  if (index < 0 || index >= count || wanted <= 0) return 0;
  return std::min(wanted, count - index);
}

}  // namespace

// --- TqVector ---

TqVector::~TqVector() {
  Clear();
  std::free(items_);
}

void TqVector::Ensure(std::int64_t need) {
  if (need <= capacity_) return;
  const std::int64_t capacity = std::max<std::int64_t>(need * 3 / 2, 10);
  void* grown = nullptr;
  if (capacity <= INT32_MAX) grown = std::realloc(items_, static_cast<std::size_t>(capacity) * sizeof(void*));
  if (grown == nullptr) {
    // On purpose the end of the process: no caller checks an addition, and an element lost here (a rule, a volume)
    // would silently change what is backed up.
    Log("ERROR: ACK! Out of memory in TqVector");
    platform::TheMachine().Exit(1);
  }
  items_ = static_cast<void**>(grown);
  capacity_ = static_cast<std::int32_t>(capacity);
}

void TqVector::Add(void* item) {
  Insert(item, count_);
}

void TqVector::Insert(void* item, std::int32_t index) {
  if (index < 0 || index > count_) return;
  Ensure(std::int64_t{count_} + 1);
  OpenGap(items_, count_, index);
  items_[index] = item;
  ++count_;
}

void TqVector::Remove(std::int32_t index, std::int32_t count) {
  const std::int32_t removed = CountFrom(count_, index, count);
  if (removed == 0) return;
  if (release_ != nullptr) std::for_each(items_ + index, items_ + index + removed, release_);
  CloseGap(items_, count_, index, removed);
  count_ -= removed;
}

void* TqVector::Detach(std::int32_t index) {
  void* const item = Get(index);
  if (CountFrom(count_, index, 1) == 0) return nullptr;
  CloseGap(items_, count_, index, 1);
  --count_;
  return item;
}

void TqVector::Sort(Compare compare) {
  if (count_ >= 2) std::qsort(items_, static_cast<std::size_t>(count_), sizeof(void*), compare);
}

// --- TqStringVector ---

TqStringVector::TqStringVector(const TqStringVector& other) {
  *this = other;
}

TqStringVector::TqStringVector(TqStringVector&& other) noexcept
    : count_(std::exchange(other.count_, 0)),
      capacity_(std::exchange(other.capacity_, 0)),
      items_(std::exchange(other.items_, nullptr)) {}

TqStringVector& TqStringVector::operator=(const TqStringVector& other) {
  if (this == &other) return *this;
  Clear();
  for (const TqString* text : other) {
    if (!Add(*text)) break;
  }
  return *this;
}

TqStringVector& TqStringVector::operator=(TqStringVector&& other) noexcept {
  std::swap(count_, other.count_);
  std::swap(capacity_, other.capacity_);
  std::swap(items_, other.items_);
  if (this != &other) other.Clear();
  return *this;
}

TqStringVector::~TqStringVector() {
  Clear();
  std::free(items_);
}

std::int64_t TqStringVector::GrowthFor(std::int64_t need) {
  return need <= 50 ? 50 : (need - 50) / 100 * 100 + 150;
}

bool TqStringVector::Ensure(std::int64_t need) {
  if (need <= capacity_) return true;
  const std::int64_t capacity = GrowthFor(need);
  void* grown = nullptr;
  if (capacity <= INT32_MAX) grown = std::realloc(items_, static_cast<std::size_t>(capacity) * sizeof(void*));
  if (grown == nullptr) {
    Clear();
    return false;
  }
  items_ = static_cast<TqString**>(grown);
  capacity_ = static_cast<std::int32_t>(capacity);
  return true;
}

const TqString& TqStringVector::At(std::int32_t index) const {
  const TqString* const text = Get(index);
  return text != nullptr ? *text : EmptyText();
}

bool TqStringVector::Add(std::string_view text) {
  return Insert(text, count_);
}

bool TqStringVector::AddOwned(TqString* text) {
  std::unique_ptr<TqString> owned(text);
  if (owned == nullptr || !Ensure(std::int64_t{count_} + 1)) return false;
  items_[count_++] = owned.release();
  return true;
}

bool TqStringVector::Insert(std::string_view text, std::int32_t index) {
  if (index < 0 || index > count_) return false;
  std::unique_ptr<TqString> copy = NewText(text);
  if (copy == nullptr) {
    Clear();
    return false;
  }
  if (!Ensure(std::int64_t{count_} + 1)) return false;
  OpenGap(items_, count_, index);
  items_[index] = copy.release();
  ++count_;
  return true;
}

void TqStringVector::Remove(std::int32_t index, std::int32_t count) {
  const std::int32_t removed = CountFrom(count_, index, count);
  if (removed == 0) return;
  std::for_each(items_ + index, items_ + index + removed, std::default_delete<TqString>());
  CloseGap(items_, count_, index, removed);
  count_ -= removed;
}

TqString* TqStringVector::Detach(std::int32_t index) {
  TqString* const text = Get(index);
  if (text == nullptr) return nullptr;
  CloseGap(items_, count_, index, 1);
  --count_;
  return text;
}

void TqStringVector::Sort(TqVector::Compare compare) {
  if (count_ >= 2) std::qsort(items_, static_cast<std::size_t>(count_), sizeof(void*), compare);
}

std::int32_t TqStringVector::Find(std::string_view text) const {
  const auto found = std::find_if(begin(), end(), [text](const TqString* item) { return item->Equals(text); });
  return found == end() ? -1 : static_cast<std::int32_t>(found - begin());
}

std::int32_t TqStringVector::FindIgnoreCase(std::string_view text) const {
  const auto found =
      std::find_if(begin(), end(), [text](const TqString* item) { return item->EqualsIgnoreCase(text); });
  return found == end() ? -1 : static_cast<std::int32_t>(found - begin());
}

bool TqStringVector::Split(std::string_view text, char separator, bool trimPieces) {
  TqStringVector pieces;  // built apart, because `text` may be one of the present elements
  bool isComplete = true;
  while (!text.empty() && isComplete) {
    const std::size_t length = std::min(text.find(separator), text.size());
    const std::string_view piece = trimPieces ? Trimmed(text.substr(0, length)) : text.substr(0, length);
    if (!piece.empty()) isComplete = pieces.Add(piece);
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  *this = std::move(pieces);
  return isComplete;
}
