#include "base/json_text.h"

#include <algorithm>
#include <cstdint>

#include "base/text_codec.h"

namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kEndOfBareValue = ",}] \t\r\n";
constexpr std::size_t kUnicodeEscapeLength = 6;  // \uXXXX

struct Escape {
  char plain;
  char letter;  ///< behind the backslash
};
constexpr Escape kEscapes[] = {{'\\', '\\'}, {'/', '/'}, {'"', '"'}, {8, 'b'},
                               {9, 't'},     {10, 'n'},  {12, 'f'},  {13, 'r'}};

// The code unit of a \uXXXX at the start of `text`.
bool UnicodeEscapeAtStart(std::string_view text, std::uint32_t& unit) {
  if (text.size() < kUnicodeEscapeLength || !text.starts_with("\\u")) return false;
  unit = 0;
  for (const char c : text.substr(2, 4)) {
    const int digit = HexDigitValue(c);
    if (digit < 0) return false;
    unit = unit << 4 | static_cast<std::uint32_t>(digit);
  }
  return true;
}

// Appends what the escape at the start of `text` stands for and answers its length; 0 when there is none to undo.
std::size_t UndoEscape(std::string_view text, TqString& out) {
  if (text.starts_with("\\\"")) {
    out.AppendChar('"');
    return 2;
  }
  std::uint32_t unit = 0;
  if (!UnicodeEscapeAtStart(text, unit)) return 0;
  std::size_t length = kUnicodeEscapeLength;
  std::uint32_t second = 0;
  if (UnicodeEscapeAtStart(text.substr(length), second) && JoinedSurrogates(unit, second) != 0) {
    unit = JoinedSurrogates(unit, second);
    length += kUnicodeEscapeLength;
  }
  const std::int32_t before = out.Length();
  AppendUtf8(out, unit);
  return out.Length() > before ? length : 0;
}

// What stands behind `"key": ` and `opener`; false when that is nowhere.
bool FindBehindKey(std::string_view json, std::string_view key, std::string_view opener, std::string_view& rest) {
  if (key.empty()) return false;
  const TqString label = Joined('"', key, "\": ", opener);
  const std::size_t found = json.find(label.View());
  if (found == kNone) return false;
  rest = json.substr(found + static_cast<std::size_t>(label.Length()));
  return true;
}

// Index of the first of `characters` outside quotes. A quote behind a backslash neither opens nor closes.
std::size_t FindOutsideQuotes(std::string_view text, std::string_view characters) {
  bool isQuoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"' && (i == 0 || text[i - 1] != '\\')) isQuoted = !isQuoted;
    if (!isQuoted && characters.find(text[i]) != kNone) return i;
  }
  return kNone;
}

std::size_t FindClosingQuote(std::string_view text) {
  std::size_t quote = text.find('"');
  while (quote != kNone && quote > 0 && text[quote - 1] == '\\') quote = text.find('"', quote + 1);
  return quote;
}

std::string_view Unquoted(std::string_view item) {
  if (item.starts_with('"')) item.remove_prefix(1);
  if (item.ends_with('"')) item.remove_suffix(1);
  return item;
}

}  // namespace

namespace TqFile {

bool JsonEscape(std::string_view text, TqString& out) {
  out.Clear();
  for (const char c : text) {
    const auto* const escape = std::ranges::find(kEscapes, c, &Escape::plain);
    const bool isEscaped = escape != std::end(kEscapes);
    if (isEscaped && !out.AppendChar('\\')) return false;
    if (!out.AppendChar(isEscaped ? escape->letter : c)) return false;
  }
  return !text.empty();
}

bool JsonUnescape(std::string_view text, TqString& out) {
  out.Clear();
  if (text.empty()) return false;
  while (!text.empty()) {
    std::size_t length = UndoEscape(text, out);
    if (length == 0) {
      if (!out.AppendChar(text.front())) return false;
      length = 1;
    }
    text.remove_prefix(length);
  }
  return true;
}

bool GetJsonStrValue(std::string_view json, std::string_view key, TqString& value) {
  value.Clear();
  std::string_view rest;
  if (!FindBehindKey(json, key, "", rest)) return false;
  if (rest.starts_with('"')) {
    rest.remove_prefix(1);
    const std::size_t end = FindClosingQuote(rest);
    return end != kNone && value.Assign(rest.substr(0, end));
  }
  value = rest.substr(0, rest.find_first_of(kEndOfBareValue));
  return !value.IsEmpty();
}

bool GetJsonStrArray(std::string_view json, std::string_view key, TqStringVector& items) {
  items.Clear();
  std::string_view rest;
  if (!FindBehindKey(json, key, "[", rest)) return false;
  const std::size_t end = FindOutsideQuotes(rest, "]");
  if (end == kNone) return false;
  rest = rest.substr(0, end);
  while (!rest.empty()) {
    const std::size_t length = std::min(FindOutsideQuotes(rest, ","), rest.size());
    const std::string_view item = Trimmed(rest.substr(0, length));
    if (!item.empty() && !items.Add(Unquoted(item))) return false;
    rest.remove_prefix(std::min(length + 1, rest.size()));
  }
  return true;
}

}  // namespace TqFile
