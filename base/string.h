#pragma once

#include <concepts>
#include <cstdint>
#include <cstring>
#include <string_view>

/// 8-bit text: a NUL-terminated byte array from the C allocator with its length and capacity. Content is bytes (UTF-8
/// on this system) and is never decoded. Growth is deliberately coarse (GrowthForAppend): a text of megabytes grows in
/// steps of 10 to 100 million bytes, so the file-list buffer is reallocated only a few times in a whole scan.
///
/// A change that cannot get its memory answers false. A need above kMaxNeed leaves the content as it was; a failed
/// reallocation empties the text. Indices are int32 and -1 stands for "not found". Letter case means A-Z only.
/// No method takes a null std::string_view apart from an empty one; C strings passed in may be null where stated.
class TqString {
 public:
  static constexpr std::int32_t kInitialCapacity = 15;
  static constexpr std::int64_t kMaxNeed = 2'147'483'622;

  TqString();
  TqString(const char* text);       // NOLINT: a C string is a text; null counts as empty
  TqString(std::string_view text);  // NOLINT
  TqString(const TqString& other);
  TqString(TqString&& other) noexcept;  ///< leaves `other` empty and usable
  TqString& operator=(const TqString& other);
  TqString& operator=(TqString&& other) noexcept;
  TqString& operator=(const char* text);
  TqString& operator=(std::string_view text);
  virtual ~TqString();

  /// An empty text with room for `need` content bytes, had with one allocation; without memory it has no room.
  static TqString WithRoom(std::int64_t need);

  std::int32_t Length() const { return length_; }
  bool IsEmpty() const { return length_ == 0; }
  std::int32_t Capacity() const { return capacity_; }
  /// Never null.
  const char* c_str() const { return buffer_ != nullptr ? buffer_ : ""; }
  std::string_view View() const { return {c_str(), static_cast<std::size_t>(length_)}; }
  operator std::string_view() const { return View(); }  // NOLINT: a text is a view wherever one is read

  /// The byte at `index`, or NUL when out of range.
  char CharAt(std::int32_t index) const { return index >= 0 && index < length_ ? buffer_[index] : '\0'; }
  /// Changes one byte; out of range does nothing.
  void SetCharAt(std::int32_t index, char c);

  /// Length 0; the capacity stays.
  void Clear();
  /// Makes room for `need` content bytes (the only change that grows by need + 11). False when that cannot be had.
  bool Reserve(std::int64_t need) { return (need >= 0 && capacity_ > need) || ReserveGrowing(need); }
  bool Assign(std::string_view text) {
    const auto need = static_cast<std::int64_t>(text.size());
    if (text.empty() || need >= capacity_) return AssignGrowing(text);
    std::memmove(buffer_, text.data(), text.size());
    SetLength(need);
    return true;
  }
  /// One text behind the other; neither may lie in this one.
  bool AssignBoth(std::string_view first, std::string_view second) {
    const auto need = static_cast<std::int64_t>(first.size() + second.size());
    if (need >= capacity_ && !EnsureForAppend(need)) return false;
    first.copy(buffer_, first.size());
    second.copy(buffer_ + first.size(), second.size());
    SetLength(need);
    return true;
  }
  bool Append(std::string_view text) {
    const std::int64_t need = length_ + static_cast<std::int64_t>(text.size());
    if (text.empty()) return true;
    if (need >= capacity_) return AppendGrowing(text);
    std::memcpy(buffer_ + length_, text.data(), text.size());
    SetLength(need);
    return true;
  }
  /// Where the next bytes go, with room for `need` of them: they are put there by hand and count after EndAt. Null when
  /// the room cannot be had.
  char* RoomBehind(std::int64_t need) {
    return length_ + need < capacity_ || EnsureForAppend(length_ + need) ? buffer_ + length_ : nullptr;
  }
  /// The text ends at `end`, a place behind its old end that RoomBehind gave room for.
  void EndAt(const char* end) { SetLength(end - buffer_); }
  bool AppendChar(char c) { return Append(std::string_view(&c, 1)); }
  /// "%d"
  bool AppendInt32(std::int32_t number);
  /// "%lld"
  bool AppendInt64(std::int64_t number);
  /// Lower-case hexadecimal, zero-padded to at least `width` digits.
  bool AppendHex(std::uint64_t number, std::int32_t width);
  /// Inserts at `position` (0 ... length); out of range does nothing and answers false.
  bool Insert(std::int32_t position, std::string_view text);
  /// Removes `count` bytes from `start`; the count is cut to what exists, a `start` out of range does nothing.
  void Erase(std::int32_t start, std::int32_t count);
  /// Cuts the text to `length` bytes; a longer length does nothing.
  void Truncate(std::int32_t length) {
    if (length >= 0 && length < length_) SetLength(length);
  }
  /// Replaces every occurrence, left to right, never rescanning the replacement. An empty `from` changes nothing.
  bool ReplaceAll(std::string_view from, std::string_view to);
  /// From `start` on; out of range does nothing.
  void LowerCase(std::int32_t start = 0);
  /// Removes bytes 9-13 and 32 at both ends.
  void Trim();

  /// -1 also when this text or the needle is empty or `start` is out of range.
  std::int32_t Find(std::string_view needle, std::int32_t start = 0) const;
  std::int32_t FindIgnoreCase(std::string_view needle, std::int32_t start = 0) const;
  std::int32_t FindChar(char c, std::int32_t start = 0) const;
  /// The last occurrence; -1 when there is none.
  std::int32_t FindLast(std::string_view needle) const;
  std::int32_t FindLastChar(char c) const;
  bool Contains(std::string_view needle) const { return Find(needle) >= 0; }
  bool ContainsIgnoreCase(std::string_view needle) const { return FindIgnoreCase(needle) >= 0; }
  /// An empty needle matches.
  bool StartsWith(std::string_view needle) const;
  bool StartsWithIgnoreCase(std::string_view needle) const;
  bool EndsWith(std::string_view needle) const;
  bool EndsWithIgnoreCase(std::string_view needle) const;
  bool Equals(std::string_view text) const { return View() == text; }
  bool EqualsIgnoreCase(std::string_view text) const;
  /// Whether two separators ("/" or "\") stand together with the second at index 2 or later (a pair at indices 0 and 1
  /// is a network path's beginning and allowed). Texts under three bytes never do.
  bool ContainsTwoConsecutiveSeparators() const;

  /// The bytes from `start` on, at most `count`; the count is cut to what exists, a `start` out of range gives an empty
  /// view.
  std::string_view Slice(std::int32_t start, std::int32_t count = INT32_MAX) const;

  friend bool operator==(const TqString& a, const TqString& b) { return a.View() == b.View(); }
  friend bool operator==(const TqString& a, const char* b) {
    return a.View() == std::string_view(b != nullptr ? b : "");
  }
  friend bool operator==(const TqString& a, std::string_view b) { return a.View() == b; }

  /// The capacity that growth by appending takes for `need` content bytes from `capacity`; -1 when the need is refused.
  static std::int64_t GrowthForAppend(std::int64_t need, std::int32_t capacity);

 private:
  struct Unallocated {};
  explicit TqString(Unallocated) {}
  bool AppendGrowing(std::string_view text);
  bool AssignGrowing(std::string_view text);
  bool ReserveGrowing(std::int64_t need);
  bool EnsureForAppend(std::int64_t need);
  bool Reallocate(std::int64_t newCapacity);
  void SetLength(std::int64_t length) {
    length_ = static_cast<std::int32_t>(length);
    buffer_[length_] = '\0';
  }
  /// Whether `text` lies in this text's own buffer.
  bool Holds(std::string_view text) const;

  std::int32_t length_ = 0;
  std::int32_t capacity_ = 0;
  char* buffer_ = nullptr;
};

/// Orders texts by signed bytes: a byte of 0x80 or more sorts before every ASCII character; a text sorts before its own
/// continuations. Negative, 0 or positive.
int CompareBytes(std::string_view a, std::string_view b);
/// The same with A-Z folded to a-z; other bytes never match another case.
int CompareBytesIgnoreCase(std::string_view a, std::string_view b);
/// The null rules of the C-string form: both null are equal; a null sorts before a non-empty text and equals an empty
/// one.
int CompareCStrings(const char* a, const char* b);
int CompareCStringsIgnoreCase(const char* a, const char* b);

/// One byte with A-Z folded to a-z; never the process locale.
constexpr char LowerChar(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
bool EqualsIgnoreCase(std::string_view a, std::string_view b);
bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix);
bool EndsWithIgnoreCase(std::string_view text, std::string_view suffix);
/// Index of the first occurrence, std::string_view::npos when there is none. An empty needle is found at 0.
std::size_t FindIgnoreCase(std::string_view text, std::string_view needle);
/// A lower-cased copy.
TqString LowerCased(std::string_view text);
/// `text` without bytes 9-13 and 32 at both ends.
std::string_view Trimmed(std::string_view text);

/// The text behind the last period of a path's last component; empty when there is none.
std::string_view ExtensionOf(std::string_view path);

/// A decimal number with optional sign and nothing else; false leaves `number` as it was. Does not skip blanks.
bool ParseInt64(std::string_view text, std::int64_t& number);

namespace tq_internal {
inline void AppendPiece(TqString& out, std::string_view piece) {
  out.Append(piece);
}
inline void AppendPiece(TqString& out, char piece) {
  out.AppendChar(piece);
}
inline void AppendPiece(TqString& out, std::int64_t piece) {
  out.AppendInt64(piece);
}
void AppendPiece(TqString& out, std::uint64_t piece);
template <std::integral T>
requires(!std::same_as<T, char> && !std::same_as<T, bool>) void AppendInteger(TqString& out, T piece) {
  if constexpr (std::is_signed_v<T>) {
    AppendPiece(out, static_cast<std::int64_t>(piece));
  } else {
    AppendPiece(out, static_cast<std::uint64_t>(piece));
  }
}
template <typename T>
void AppendAny(TqString& out, const T& piece) {
  if constexpr (std::same_as<T, bool>) {
    AppendPiece(out, std::string_view(piece ? "true" : "false"));
  } else if constexpr (std::same_as<T, char>) {
    AppendPiece(out, piece);
  } else if constexpr (std::integral<T>) {
    AppendInteger(out, piece);
  } else {
    AppendPiece(out, std::string_view(piece));
  }
}
}  // namespace tq_internal

/// Joins texts, characters, decimal integers and booleans ("true"/"false") into one text: the way messages, file
/// contents and paths are built.
template <typename... Pieces>
TqString Joined(const Pieces&... pieces) {
  TqString out;
  (tq_internal::AppendAny(out, pieces), ...);
  return out;
}

/// Appends the same kinds of pieces to `out`.
template <typename... Pieces>
void AppendAll(TqString& out, const Pieces&... pieces) {
  (tq_internal::AppendAny(out, pieces), ...);
}

/// A number as lower-case hexadecimal, zero-padded to 16 digits: times in file lists and `gmt_millis` attributes.
TqString Hex16(std::int64_t number);
