#include "base/text_codec.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace {

constexpr std::size_t kMaxWidenedBytes = 2'000'000;
constexpr std::string_view kToUtf16 = "ERROR TqUtf16String::ConvertUtf8TqStringToUtf16, ";
constexpr std::string_view kToUtf8 = "ERROR TqUtf16String::ConvertUtf16TqStringToUtf8, ";
constexpr std::string_view kHexDigits = "0123456789abcdef";
constexpr std::string_view kBase64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool Fail(TqString* error, std::string_view function, std::string_view reason) {
  if (error != nullptr) *error = Joined(function, reason);
  return false;
}

constexpr bool IsSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDFFF;
}
constexpr bool IsHighSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(std::uint32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

// One row per length of a UTF-8 sequence.
struct Utf8Form {
  unsigned char leadMask;
  unsigned char leadBits;
  std::uint32_t lowest;  ///< anything below is an overlong form
};
constexpr Utf8Form kUtf8Forms[] = {{0x80, 0x00, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;

constexpr std::array<signed char, 256> MakeBase64Values() {
  std::array<signed char, 256> values = {};
  values.fill(-1);
  for (std::size_t i = 0; i < kBase64Alphabet.size(); ++i) {
    values[static_cast<unsigned char>(kBase64Alphabet[i])] = static_cast<signed char>(i);
  }
  return values;
}
constexpr std::array<signed char, 256> kBase64Values = MakeBase64Values();

}  // namespace

// --- TqUtf16String ---

TqUtf16String::TqUtf16String(const TqUtf16String& other) {
  Append(other.buffer_, other.length_);
}

TqUtf16String& TqUtf16String::operator=(const TqUtf16String& other) {
  if (this == &other) return *this;
  Clear();
  Append(other.buffer_, other.length_);
  return *this;
}

TqUtf16String::~TqUtf16String() {
  std::free(buffer_);
}

void TqUtf16String::Clear() {
  length_ = 0;
  if (buffer_ != nullptr) buffer_[0] = u'\0';
}

bool TqUtf16String::Ensure(std::int64_t need) {
  const std::int64_t capacity = TqString::GrowthForAppend(need, capacity_);
  if (capacity < 0) return false;
  if (capacity == capacity_) return true;
  void* const grown = std::realloc(buffer_, static_cast<std::size_t>(capacity) * sizeof(char16_t));
  if (grown == nullptr) {
    Clear();
    return false;
  }
  buffer_ = static_cast<char16_t*>(grown);
  capacity_ = static_cast<std::int32_t>(capacity);
  return true;
}

bool TqUtf16String::Append(const char16_t* units, std::int32_t count) {
  if (count <= 0) return true;
  if (!Ensure(std::int64_t{length_} + count)) return false;
  std::copy_n(units, count, buffer_ + length_);
  length_ += count;
  buffer_[length_] = u'\0';
  return true;
}

bool TqUtf16String::AppendCodePoint(std::uint32_t codePoint) {
  if (codePoint < 0x10000) {
    const auto unit = static_cast<char16_t>(codePoint);
    return Append(&unit, 1);
  }
  const std::uint32_t bits = codePoint - 0x10000;
  const char16_t pair[] = {static_cast<char16_t>(0xD800 + (bits >> 10)),
                           static_cast<char16_t>(0xDC00 + (bits & 0x3FF))};
  return Append(pair, 2);
}

bool TqUtf16String::ConvertUtf8TqStringToUtf16(const TqString* utf8, TqString* error) {
  Clear();
  if (utf8 == nullptr) return Fail(error, kToUtf16, "NULL src arg");
  std::uint32_t codePoint = 0;
  std::string_view rest = *utf8;
  while (TakeUtf8CodePoint(rest, codePoint)) {
    if (!AppendCodePoint(codePoint)) return Fail(error, kToUtf16, "could not malloc 4 MB tmp");
  }
  if (rest.empty()) return true;

  // Widened and kept, so that a name in another encoding still gives something to show and to compare.
  Clear();
  for (const char c : utf8->View().substr(0, kMaxWidenedBytes)) {
    if (!AppendCodePoint(static_cast<unsigned char>(c))) return Fail(error, kToUtf16, "could not malloc 4 MB tmp");
  }
  return Fail(error, kToUtf16, "ConvertUTF8toUTF16 failed on invalid sequence");
}

bool TqUtf16String::ConvertUtf16TqStringToUtf8(TqString* utf8, TqString* error) const {
  if (utf8 == nullptr) return Fail(error, kToUtf8, "NULL src arg");
  utf8->Clear();
  for (std::int32_t i = 0; i < length_; ++i) {
    std::uint32_t codePoint = buffer_[i];
    if (const std::uint32_t joined = JoinedSurrogates(codePoint, UnitAt(i + 1)); joined != 0) {
      codePoint = joined;
      ++i;
    }
    if (IsSurrogate(codePoint)) {
      utf8->Clear();
      return Fail(error, kToUtf8, "ConvertUTF16toUTF8 failed");
    }
    if (!AppendUtf8(*utf8, codePoint)) return Fail(error, kToUtf8, "could not malloc 4 MB tmp");
  }
  return true;
}

// --- UTF-8 ---

std::uint32_t JoinedSurrogates(std::uint32_t high, std::uint32_t low) {
  if (!IsHighSurrogate(high) || !IsLowSurrogate(low)) return 0;
  return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

bool TakeUtf8CodePoint(std::string_view& bytes, std::uint32_t& codePoint) {
  if (bytes.empty()) return false;
  const auto lead = static_cast<unsigned char>(bytes.front());
  const auto* const form =
      std::ranges::find_if(kUtf8Forms, [lead](const Utf8Form& row) { return (lead & row.leadMask) == row.leadBits; });
  if (form == std::end(kUtf8Forms)) return false;
  const std::size_t length = static_cast<std::size_t>(form - kUtf8Forms) + 1;
  if (bytes.size() < length) return false;
  std::uint32_t value = lead & static_cast<unsigned char>(~form->leadMask);
  for (const char c : bytes.substr(1, length - 1)) {
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) return false;
    value = value << 6 | (static_cast<unsigned char>(c) & 0x3F);
  }
  if (value < form->lowest || value > kLastCodePoint || IsSurrogate(value)) return false;
  codePoint = value;
  bytes.remove_prefix(length);
  return true;
}

bool IsValidUtf8(std::string_view bytes) {
  std::uint32_t codePoint = 0;
  while (TakeUtf8CodePoint(bytes, codePoint)) continue;
  return bytes.empty();
}

bool AppendUtf8(TqString& out, std::uint32_t codePoint) {
  if (codePoint > kLastCodePoint || IsSurrogate(codePoint)) return true;
  std::size_t length = std::size(kUtf8Forms);
  while (codePoint < kUtf8Forms[length - 1].lowest) --length;
  char bytes[std::size(kUtf8Forms)];
  for (std::size_t i = length; i-- > 1; codePoint >>= 6) bytes[i] = static_cast<char>(0x80 | (codePoint & 0x3F));
  bytes[0] = static_cast<char>(kUtf8Forms[length - 1].leadBits | codePoint);
  return out.Append({bytes, length});
}

// --- hex ---

TqString HexEncode(std::string_view bytes) {
  TqString hex;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex.AppendChar(kHexDigits[byte >> 4]);
    hex.AppendChar(kHexDigits[byte & 0x0F]);
  }
  return hex;
}

bool HexDecode(std::string_view hex, TqString& bytes) {
  TqString decoded;
  bool isGood = !hex.empty() && hex.size() % 2 == 0;
  for (std::size_t i = 0; isGood && i < hex.size(); i += 2) {
    const int high = HexDigitValue(hex[i]);
    const int low = HexDigitValue(hex[i + 1]);
    isGood = high >= 0 && low >= 0 && high + low > 0 && decoded.AppendChar(static_cast<char>(high << 4 | low));
  }
  if (!isGood) decoded.Clear();
  bytes = std::move(decoded);
  return isGood;
}

// --- Base64 ---

TqString Base64Encode(std::string_view bytes) {
  TqString text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::string_view group = bytes.substr(i, 3);
    std::uint32_t bits = 0;
    for (std::size_t k = 0; k < 3; ++k)
      bits = bits << 8 | (k < group.size() ? static_cast<unsigned char>(group[k]) : 0u);
    for (std::size_t k = 0; k < 4; ++k) {
      text.AppendChar(k <= group.size() ? kBase64Alphabet[bits >> (18 - 6 * k) & 0x3F] : '=');
    }
  }
  return text;
}

bool Base64Decode(std::string_view text, TqString& bytes) {
  std::size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
  TqString decoded;
  bool isGood = text.size() % 4 == 0;
  std::uint32_t bits = 0;
  for (std::size_t i = 0; isGood && i < text.size(); ++i) {
    const int value = i < text.size() - padding ? kBase64Values[static_cast<unsigned char>(text[i])] : 0;
    isGood = value >= 0;
    bits = bits << 6 | static_cast<std::uint32_t>(value & 0x3F);
    if (i % 4 != 3) continue;
    const char group[] = {static_cast<char>(bits >> 16), static_cast<char>(bits >> 8), static_cast<char>(bits)};
    decoded.Append({group, i + 1 == text.size() ? 3 - padding : 3});
    bits = 0;
  }
  if (!isGood) decoded.Clear();
  bytes = std::move(decoded);
  return isGood;
}
