#include "base/string.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <functional>
#include <utility>

namespace {

constexpr std::int64_t kMaxCapacity = 2'147'483'628;

struct GrowthStep {
  std::int32_t upToCapacity;
  std::int64_t spare;  ///< new capacity = need + spare
};

// Above kFineStepCapacity a text grows by more the larger it already is; see the class comment.
constexpr std::int32_t kFineStepCapacity = 999;
constexpr GrowthStep kGrowthSteps[] = {
    {9'999, 1'001}, {399'999, 100'001}, {19'999'999, 10'000'001}, {59'999'999, 20'000'001}, {INT32_MAX, 100'000'001},
};

std::int64_t SpareFor(std::int32_t capacity) {
  for (const GrowthStep& step : kGrowthSteps) {
    if (capacity <= step.upToCapacity) return step.spare;
  }
  return 0;
}

constexpr bool IsSeparator(char c) {
  return c == '/' || c == '\\';
}
constexpr bool IsTrimmed(char c) {
  return (c >= 9 && c <= 13) || c == ' ';
}

/// Lower-cases a block of fixed size: compilers turn that into a few instructions.
constexpr std::int32_t kBlockBytes = 16;
void LowerBlock(char* at) {
  std::array<unsigned char, kBlockBytes> bytes;
  std::memcpy(bytes.data(), at, bytes.size());
  for (unsigned char& byte : bytes) byte |= static_cast<unsigned char>(byte >= 'A' && byte <= 'Z' ? 'a' - 'A' : 0);
  std::memcpy(at, bytes.data(), bytes.size());
}

std::int32_t IndexOrNone(std::size_t index) {
  return index == std::string_view::npos ? -1 : static_cast<std::int32_t>(index);
}

// Signed on purpose and by cast, because plain char is unsigned on some processors: lists, plan and rules are ordered
// so.
int ByteOrder(char a, char b) {
  return static_cast<signed char>(a) - static_cast<signed char>(b);
}

int LengthOrder(std::string_view a, std::string_view b) {
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

}  // namespace

TqString::TqString() {
  Reallocate(kInitialCapacity);
}

TqString::TqString(const char* text) : TqString(std::string_view(text != nullptr ? text : "")) {}

TqString::TqString(std::string_view text) {
  // One allocation with the size that appending to a new text would have led to.
  const std::int64_t capacity = GrowthForAppend(static_cast<std::int64_t>(text.size()), kInitialCapacity);
  if (capacity > 0 && Reallocate(capacity)) Append(text);
}

TqString::TqString(const TqString& other) : TqString(other.View()) {}

TqString::TqString(TqString&& other) noexcept
    : length_(std::exchange(other.length_, 0)),
      capacity_(std::exchange(other.capacity_, 0)),
      buffer_(std::exchange(other.buffer_, nullptr)) {}

TqString& TqString::operator=(const TqString& other) {
  if (this != &other) Assign(other.View());
  return *this;
}

TqString& TqString::operator=(TqString&& other) noexcept {
  if (this == &other) return *this;
  std::free(buffer_);
  length_ = std::exchange(other.length_, 0);
  capacity_ = std::exchange(other.capacity_, 0);
  buffer_ = std::exchange(other.buffer_, nullptr);
  return *this;
}

TqString& TqString::operator=(const char* text) {
  Assign(text != nullptr ? text : "");
  return *this;
}

TqString& TqString::operator=(std::string_view text) {
  Assign(text);
  return *this;
}

TqString TqString::WithRoom(std::int64_t need) {
  TqString text{Unallocated()};
  text.Reserve(need);
  return text;
}

TqString::~TqString() {
  std::free(buffer_);
}

// --- memory ---

std::int64_t TqString::GrowthForAppend(std::int64_t need, std::int32_t capacity) {
  if (need < 0) return -1;
  if (capacity > need) return capacity;
  if (need > kMaxNeed) return -1;
  if (need < kInitialCapacity) return kInitialCapacity;
  if (capacity <= kFineStepCapacity) return std::min((need - 14) / 20 * 20 + 35, kMaxCapacity);
  return std::min(need + SpareFor(capacity), kMaxCapacity);
}

bool TqString::EnsureForAppend(std::int64_t need) {
  const std::int64_t capacity = GrowthForAppend(need, capacity_);
  if (capacity < 0) return false;
  return capacity == capacity_ || Reallocate(capacity);
}

bool TqString::ReserveGrowing(std::int64_t need) {
  if (need < 0) return false;
  if (need > kMaxNeed) return false;
  return Reallocate(need < kInitialCapacity ? kInitialCapacity : std::min(need + 11, kMaxCapacity));
}

bool TqString::Reallocate(std::int64_t newCapacity) {
  void* grown = std::realloc(buffer_, static_cast<std::size_t>(newCapacity));
  if (grown == nullptr) {
    Clear();
    return false;
  }
  buffer_ = static_cast<char*>(grown);
  capacity_ = static_cast<std::int32_t>(newCapacity);
  buffer_[length_] = '\0';
  return true;
}

bool TqString::Holds(std::string_view text) const {
  const std::less_equal<const char*> notAfter;
  return buffer_ != nullptr && !text.empty() && notAfter(buffer_, text.data()) &&
         notAfter(text.data(), buffer_ + length_);
}

// --- changes ---

void TqString::SetCharAt(std::int32_t index, char c) {
  if (index >= 0 && index < length_) buffer_[index] = c;
}

void TqString::Clear() {
  length_ = 0;
  if (buffer_ != nullptr) buffer_[0] = '\0';
}

bool TqString::AssignGrowing(std::string_view text) {
  if (text.empty()) {
    Clear();
    return true;
  }
  // A piece of this very text always fits, so it never moves before it is copied.
  if (!EnsureForAppend(static_cast<std::int64_t>(text.size()))) return false;
  std::memmove(buffer_, text.data(), text.size());
  SetLength(static_cast<std::int64_t>(text.size()));
  return true;
}

bool TqString::AppendGrowing(std::string_view text) {
  const bool isOwnText = Holds(text);
  const std::ptrdiff_t offset = isOwnText ? text.data() - buffer_ : 0;
  const std::int64_t need = length_ + static_cast<std::int64_t>(text.size());
  if (!EnsureForAppend(need)) return false;
  std::memcpy(buffer_ + length_, isOwnText ? buffer_ + offset : text.data(), text.size());
  SetLength(need);
  return true;
}

bool TqString::AppendInt32(std::int32_t number) {
  return AppendInt64(number);
}

bool TqString::AppendInt64(std::int64_t number) {
  char digits[24];
  const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, number);
  return Append({digits, result.ptr});
}

bool TqString::AppendHex(std::uint64_t number, std::int32_t width) {
  char digits[16];
  const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, number, 16);
  for (std::int64_t count = result.ptr - digits; count < width; ++count) {
    if (!AppendChar('0')) return false;
  }
  return Append({digits, result.ptr});
}

bool TqString::Insert(std::int32_t position, std::string_view text) {
  if (position < 0 || position > length_) return false;
  if (text.empty()) return true;
  if (Holds(text)) return Insert(position, TqString(text).View());
  const std::int64_t need = length_ + static_cast<std::int64_t>(text.size());
  if (!EnsureForAppend(need)) return false;
  std::memmove(buffer_ + position + text.size(), buffer_ + position, static_cast<std::size_t>(length_ - position));
  std::memcpy(buffer_ + position, text.data(), text.size());
  SetLength(need);
  return true;
}

void TqString::Erase(std::int32_t start, std::int32_t count) {
  if (start < 0 || start >= length_ || count <= 0) return;
  const std::int32_t removed = std::min(count, length_ - start);
  std::memmove(buffer_ + start, buffer_ + start + removed, static_cast<std::size_t>(length_ - start - removed));
  SetLength(length_ - removed);
}

bool TqString::ReplaceAll(std::string_view from, std::string_view to) {
  if (from.empty() || View().find(from) == std::string_view::npos) return true;
  if (Holds(from) || Holds(to)) return ReplaceAll(TqString(from).View(), TqString(to).View());
  const auto fromSize = static_cast<std::int64_t>(from.size());
  const auto toSize = static_cast<std::int64_t>(to.size());
  std::int64_t newLength = length_;
  for (std::size_t at = View().find(from); at != std::string_view::npos; at = View().find(from, at + from.size())) {
    newLength += toSize - fromSize;
  }
  if (!EnsureForAppend(newLength)) return false;

  // The old content moves to the end of the new length; writing from the front then never overtakes reading.
  const std::int64_t shift = std::max<std::int64_t>(newLength - length_, 0);
  std::memmove(buffer_ + shift, buffer_, static_cast<std::size_t>(length_));
  std::string_view rest(buffer_ + shift, static_cast<std::size_t>(length_));
  char* write = buffer_;
  for (std::size_t at = rest.find(from); at != std::string_view::npos; at = rest.find(from)) {
    std::memmove(write, rest.data(), at);
    write += at;
    rest.remove_prefix(at + from.size());
    if (!to.empty()) std::memcpy(write, to.data(), to.size());
    write += to.size();
  }
  std::memmove(write, rest.data(), rest.size());
  SetLength(newLength);
  return true;
}

void TqString::LowerCase(std::int32_t start) {
  if (start < 0 || start >= length_) return;
  char* at = buffer_ + start;
  char* const end = buffer_ + length_;
  // The last block may reach into what lies behind the text: its NUL stays one, and the rest means nothing.
  for (const char* room = buffer_ + capacity_; at < end && room - at >= kBlockBytes; at += kBlockBytes) LowerBlock(at);
  for (; at < end; ++at) *at = LowerChar(*at);
}

void TqString::Trim() {
  Assign(Trimmed(View()));
}

// --- looking ---

std::int32_t TqString::Find(std::string_view needle, std::int32_t start) const {
  if (needle.empty() || start < 0 || start >= length_) return -1;
  return IndexOrNone(View().find(needle, static_cast<std::size_t>(start)));
}

std::int32_t TqString::FindIgnoreCase(std::string_view needle, std::int32_t start) const {
  if (needle.empty() || start < 0 || start >= length_) return -1;
  const std::int32_t found = IndexOrNone(::FindIgnoreCase(Slice(start), needle));
  return found < 0 ? -1 : start + found;
}

std::int32_t TqString::FindChar(char c, std::int32_t start) const {
  return Find(std::string_view(&c, 1), start);
}

std::int32_t TqString::FindLast(std::string_view needle) const {
  return needle.empty() ? -1 : IndexOrNone(View().rfind(needle));
}

std::int32_t TqString::FindLastChar(char c) const {
  return IndexOrNone(View().rfind(c));
}

bool TqString::StartsWith(std::string_view needle) const {
  return View().starts_with(needle);
}
bool TqString::StartsWithIgnoreCase(std::string_view needle) const {
  return ::StartsWithIgnoreCase(View(), needle);
}
bool TqString::EndsWith(std::string_view needle) const {
  return View().ends_with(needle);
}
bool TqString::EndsWithIgnoreCase(std::string_view needle) const {
  return ::EndsWithIgnoreCase(View(), needle);
}
bool TqString::EqualsIgnoreCase(std::string_view text) const {
  return ::EqualsIgnoreCase(View(), text);
}

bool TqString::ContainsTwoConsecutiveSeparators() const {
  // To the end in any case and without branches: compilers turn that into steps of many bytes.
  unsigned char found = 0;
  for (std::int32_t i = 2; i < length_; ++i) {
    found |= static_cast<unsigned char>(int{IsSeparator(buffer_[i])} & int{IsSeparator(buffer_[i - 1])});
  }
  return found != 0;
}

std::string_view TqString::Slice(std::int32_t start, std::int32_t count) const {
  if (start < 0 || start >= length_ || count <= 0) return {};
  return View().substr(static_cast<std::size_t>(start), static_cast<std::size_t>(count));
}

// --- free functions ---

int CompareBytes(std::string_view a, std::string_view b) {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (a[i] != b[i]) return ByteOrder(a[i], b[i]);
  }
  return LengthOrder(a, b);
}

int CompareBytesIgnoreCase(std::string_view a, std::string_view b) {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    const int order = ByteOrder(LowerChar(a[i]), LowerChar(b[i]));
    if (order != 0) return order;
  }
  return LengthOrder(a, b);
}

int CompareCStrings(const char* a, const char* b) {
  return CompareBytes(a != nullptr ? a : "", b != nullptr ? b : "");
}

int CompareCStringsIgnoreCase(const char* a, const char* b) {
  return CompareBytesIgnoreCase(a != nullptr ? a : "", b != nullptr ? b : "");
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && StartsWithIgnoreCase(a, b);
}

bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (LowerChar(text[i]) != LowerChar(prefix[i])) return false;
  }
  return true;
}

bool EndsWithIgnoreCase(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && StartsWithIgnoreCase(text.substr(text.size() - suffix.size()), suffix);
}

std::size_t FindIgnoreCase(std::string_view text, std::string_view needle) {
  for (std::size_t i = 0; i + needle.size() <= text.size(); ++i) {
    if (StartsWithIgnoreCase(text.substr(i), needle)) return i;
  }
  return std::string_view::npos;
}

TqString LowerCased(std::string_view text) {
  TqString lower(text);
  lower.LowerCase();
  return lower;
}

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsTrimmed(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsTrimmed(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view ExtensionOf(std::string_view path) {
  for (std::size_t at = path.size(); at > 0; --at) {
    const char c = path[at - 1];
    if (c == '.') return path.substr(at);
    if (IsSeparator(c)) break;
  }
  return {};
}

bool ParseInt64(std::string_view text, std::int64_t& number) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return false;
  }
  std::int64_t parsed = 0;
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, parsed);
  if (result.ec != std::errc() || result.ptr != end) return false;
  number = parsed;
  return true;
}

TqString Hex16(std::int64_t number) {
  TqString hex;
  hex.AppendHex(static_cast<std::uint64_t>(number), 16);
  return hex;
}

void tq_internal::AppendPiece(TqString& out, std::uint64_t piece) {
  char digits[24];
  const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, piece);
  out.Append({digits, result.ptr});
}
