#pragma once

#include <cstdint>
#include <string_view>

#include "base/string.h"

/// 16-bit text; the same shape and growth as TqString, with 16-bit units and a NUL unit at the end.
class TqUtf16String {
 public:
  TqUtf16String() = default;
  TqUtf16String(const TqUtf16String& other);
  TqUtf16String& operator=(const TqUtf16String& other);
  virtual ~TqUtf16String();

  std::int32_t Length() const { return length_; }                               ///< units
  const char16_t* Units() const { return buffer_ != nullptr ? buffer_ : u""; }  ///< never null
  char16_t UnitAt(std::int32_t index) const { return index >= 0 && index < length_ ? buffer_[index] : u'\0'; }
  void Clear();
  /// False, with the content as it was or empty, when the memory cannot be had.
  bool Append(const char16_t* units, std::int32_t count);

  /// Replaces the content by the strict UTF-16 form of `utf8`. An invalid sequence: every source byte (at most
  /// 2,000,000) becomes one unit, the result is kept, `error` (may be null) gets the text and the answer is false.
  bool ConvertUtf8TqStringToUtf16(const TqString* utf8, TqString* error);
  /// The reverse; a lone surrogate fails and leaves `utf8` empty.
  bool ConvertUtf16TqStringToUtf8(TqString* utf8, TqString* error) const;

 private:
  bool Ensure(std::int64_t need);
  bool AppendCodePoint(std::uint32_t codePoint);

  std::int32_t length_ = 0;
  std::int32_t capacity_ = 0;
  char16_t* buffer_ = nullptr;
};

/// 0-15, both letter cases; -1 for any other character.
constexpr int HexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char lower = LowerChar(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}
/// Two lower-case digits a byte.
TqString HexEncode(std::string_view bytes);
/// Both letter cases. False with an empty output on an empty text, an odd length, a non-hex digit or a NUL byte in the
/// result.
bool HexDecode(std::string_view hex, TqString& bytes);

/// Standard alphabet with "=" padding.
TqString Base64Encode(std::string_view bytes);
/// False with an empty output when `text` is no well-formed Base64.
bool Base64Decode(std::string_view text, TqString& bytes);

/// Takes one well-formed code point off the front of `bytes`; false leaves `bytes` as it was.
bool TakeUtf8CodePoint(std::string_view& bytes, std::uint32_t& codePoint);
/// Whether the bytes are well-formed UTF-8 (no surrogates, no overlong forms, at most U+10FFFF).
bool IsValidUtf8(std::string_view bytes);
/// Appends the UTF-8 form of one code point; a surrogate or a value above U+10FFFF appends nothing. False without
/// memory.
bool AppendUtf8(TqString& out, std::uint32_t codePoint);
/// The code point of a surrogate pair; 0 when the two are none.
std::uint32_t JoinedSurrogates(std::uint32_t high, std::uint32_t low);
