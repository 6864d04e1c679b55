#pragma once

#include <cstdint>
#include <string_view>

#include "base/string.h"

/// A growable array of pointers. Elements that the vector removes or frees are passed to `release` (may be null: they
/// are only borrowed). Out-of-range indices answer null or do nothing.
class TqVector {
 public:
  using Release = void (*)(void* item);
  using Compare = int (*)(const void* a, const void* b);  ///< as for qsort: the arguments point at item slots

  explicit TqVector(Release release = nullptr) : release_(release) {}
  TqVector(const TqVector&) = delete;
  TqVector& operator=(const TqVector&) = delete;
  virtual ~TqVector();

  std::int32_t Count() const { return count_; }
  std::int32_t Capacity() const { return capacity_; }
  void* Get(std::int32_t index) const { return index >= 0 && index < count_ ? items_[index] : nullptr; }
  /// Appends. Out of memory: logs and ends the process with status 1 (on purpose; see the .cpp).
  void Add(void* item);
  /// Shifts right; `index` may equal the count.
  void Insert(void* item, std::int32_t index);
  /// Releases `count` elements from `index` (cut to what exists) and shifts left.
  void Remove(std::int32_t index, std::int32_t count);
  /// Takes the element out without releasing it; the caller owns it. Null when out of range.
  void* Detach(std::int32_t index);
  void Clear() { Remove(0, count_); }
  /// qsort over the item array.
  void Sort(Compare compare);

 private:
  void Ensure(std::int64_t need);

  std::int32_t count_ = 0;
  std::int32_t capacity_ = 0;
  void** items_ = nullptr;
  Release release_;
};

/// A growable array of texts that it owns. An addition that cannot get its memory empties the vector and answers false.
class TqStringVector {
 public:
  TqStringVector() = default;
  TqStringVector(const TqStringVector& other);
  TqStringVector(TqStringVector&& other) noexcept;
  TqStringVector& operator=(const TqStringVector& other);
  TqStringVector& operator=(TqStringVector&& other) noexcept;
  virtual ~TqStringVector();

  std::int32_t Count() const { return count_; }
  std::int32_t Capacity() const { return capacity_; }
  /// Null when out of range. The vector keeps ownership.
  TqString* Get(std::int32_t index) const { return index >= 0 && index < count_ ? items_[index] : nullptr; }
  /// The text at `index`; out of range gives an empty one.
  const TqString& At(std::int32_t index) const;
  bool Add(std::string_view text);
  /// Takes ownership of `text` in every case.
  bool AddOwned(TqString* text);
  bool Insert(std::string_view text, std::int32_t index);
  void Remove(std::int32_t index, std::int32_t count);
  /// The caller owns the result; null when out of range.
  TqString* Detach(std::int32_t index);
  void Clear() { Remove(0, count_); }
  void Sort(TqVector::Compare compare);
  /// Index of the first equal text, or -1.
  std::int32_t Find(std::string_view text) const;
  std::int32_t FindIgnoreCase(std::string_view text) const;
  /// Replaces the content by the pieces of `text` between separators; empty pieces (after trimming when asked) are
  /// dropped. No separator gives one element, an empty text none.
  bool Split(std::string_view text, char separator, bool trimPieces);

  TqString* const* begin() const { return items_; }
  TqString* const* end() const { return items_ + count_; }

  /// The capacity taken for `need` elements: 50, then steps of 100.
  static std::int64_t GrowthFor(std::int64_t need);

 private:
  bool Ensure(std::int64_t need);

  std::int32_t count_ = 0;
  std::int32_t capacity_ = 0;
  TqString** items_ = nullptr;
};
