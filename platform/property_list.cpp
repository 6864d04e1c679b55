#include "platform/property_list.h"

#include <charconv>
#include <cstdint>

namespace platform {
namespace {

constexpr int kDeepestNesting = 64;
constexpr int kMostValues = 100'000;

struct NamedCharacter {
  std::string_view name;
  char character;
};
constexpr NamedCharacter kNamedCharacters[] = {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};

constexpr std::string_view kScalars[] = {"integer", "real", "date", "data", "true", "false"};

bool IsBlank(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

bool IsScalar(std::string_view name) {
  for (const std::string_view scalar : kScalars) {
    if (name == scalar) return true;
  }
  return false;
}

/// False for what is no character of XML: NUL and most other controls, surrogates, values beyond Unicode.
bool IsCharacter(std::uint32_t code) {
  if (code < 0x20) return code == '\t' || code == '\n' || code == '\r';
  return code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
}

void AppendUtf8(std::uint32_t code, std::string& text) {
  const auto put = [&text](std::uint32_t byte) { text.push_back(static_cast<char>(byte)); };
  if (code < 0x80) {
    put(code);
    return;
  }
  if (code < 0x800) {
    put(0xC0 | code >> 6);
  } else {
    if (code < 0x10000) {
      put(0xE0 | code >> 12);
    } else {
      put(0xF0 | code >> 18);
      put(0x80 | (code >> 12 & 0x3F));
    }
    put(0x80 | (code >> 6 & 0x3F));
  }
  put(0x80 | (code & 0x3F));
}

/// Appends what "&name;" stands for. No list defines entities of its own, so any name but XML's five is malformed.
bool AppendEntity(std::string_view name, std::string& text) {
  for (const NamedCharacter& named : kNamedCharacters) {
    if (name == named.name) {
      text.push_back(named.character);
      return true;
    }
  }
  if (name.empty() || name[0] != '#') return false;
  name.remove_prefix(1);
  const bool isHex = !name.empty() && name[0] == 'x';
  if (isHex) name.remove_prefix(1);
  std::uint32_t code = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), code, isHex ? 16 : 10);
  if (error != std::errc{} || end != name.data() + name.size() || !IsCharacter(code)) return false;
  AppendUtf8(code, text);
  return true;
}

/// One pass over the text; every step takes what it read off `rest_`, so the parser cannot stand still.
class Parser {
 public:
  explicit Parser(std::string_view text) : rest_(text) {}

  bool ParseDocument(PropertyValue& value) {
    Take("\xEF\xBB\xBF");
    Tag tag;
    if (!SkipProlog() || !TakeTag(tag)) return false;
    // The outer element may be missing: the value is then the document.
    if (tag.name != "plist") return ParseValue(tag, value, 1) && SkipMisc() && rest_.empty();
    if (tag.kind != Tag::Kind::kStart) return false;
    Tag first;
    Tag last;
    return TakeNextTag(first) && ParseValue(first, value, 1) && TakeNextTag(last) && IsEndOf(last, "plist") &&
           SkipMisc() && rest_.empty();
  }

 private:
  struct Tag {
    enum class Kind { kStart, kEnd, kEmpty };
    Kind kind = Kind::kStart;
    std::string_view name;
  };

  static bool IsEndOf(const Tag& tag, std::string_view name) { return tag.kind == Tag::Kind::kEnd && tag.name == name; }

  bool Take(std::string_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }

  /// Takes everything up to and including `end`; `taken` gets what stood before it.
  bool TakeThrough(std::string_view end, std::string_view& taken) {
    const std::size_t at = rest_.find(end);
    if (at == std::string_view::npos) return false;
    taken = rest_.substr(0, at);
    rest_.remove_prefix(at + end.size());
    return true;
  }

  bool SkipThrough(std::string_view end) {
    std::string_view skipped;
    return TakeThrough(end, skipped);
  }

  /// Blanks, comments and processing instructions; false for an unclosed one.
  bool SkipMisc() {
    for (;;) {
      while (!rest_.empty() && IsBlank(rest_[0])) rest_.remove_prefix(1);
      if (Take("<!--")) {
        if (!SkipThrough("-->")) return false;
      } else if (Take("<?")) {
        if (!SkipThrough("?>")) return false;
      } else {
        return true;
      }
    }
  }

  bool SkipProlog() {
    if (!SkipMisc()) return false;
    if (!Take("<!DOCTYPE")) return true;
    return SkipDocumentType() && SkipMisc();
  }

  /// The rest of a document type: quoted texts and an internal subset may hold ">".
  bool SkipDocumentType() {
    bool isInside = false;
    while (!rest_.empty()) {
      const char character = rest_[0];
      rest_.remove_prefix(1);
      if (character == '"' || character == '\'') {
        if (!SkipThrough(std::string_view(&character, 1))) return false;
      } else if (character == '[') {
        isInside = true;
      } else if (character == ']') {
        isInside = false;
      } else if (character == '>' && !isInside) {
        return true;
      }
    }
    return false;
  }

  /// A tag must be what comes next. Attributes are passed over.
  bool TakeTag(Tag& tag) {
    if (!Take("<")) return false;
    tag.kind = Take("/") ? Tag::Kind::kEnd : Tag::Kind::kStart;
    std::string_view inner;
    if (!TakeThrough(">", inner)) return false;
    if (tag.kind == Tag::Kind::kStart && inner.ends_with('/')) {
      tag.kind = Tag::Kind::kEmpty;
      inner.remove_suffix(1);
    }
    std::size_t length = 0;
    while (length < inner.size() && !IsBlank(inner[length])) ++length;
    tag.name = inner.substr(0, length);
    return !tag.name.empty() && tag.name.find('<') == std::string_view::npos;
  }

  bool TakeNextTag(Tag& tag) { return SkipMisc() && TakeTag(tag); }

  /// The value that `tag` opens, through its end tag.
  bool ParseValue(const Tag& tag, PropertyValue& value, int depth) {
    if (depth > kDeepestNesting || ++values_ > kMostValues || tag.kind == Tag::Kind::kEnd) return false;
    const bool isEmpty = tag.kind == Tag::Kind::kEmpty;
    if (tag.name == "string") {
      value.type = PropertyValue::Type::kText;
      return isEmpty || ParseText(tag.name, value.text);
    }
    if (tag.name == "array") {
      value.type = PropertyValue::Type::kArray;
      return isEmpty || ParseItems(value, depth);
    }
    if (tag.name == "dict") {
      value.type = PropertyValue::Type::kDictionary;
      return isEmpty || ParseFields(value, depth);
    }
    std::string ignored;
    return IsScalar(tag.name) && (isEmpty || ParseText(tag.name, ignored));
  }

  bool ParseItems(PropertyValue& value, int depth) {
    for (;;) {
      Tag tag;
      if (!TakeNextTag(tag)) return false;
      if (IsEndOf(tag, "array")) return true;
      if (!ParseValue(tag, value.items.emplace_back(), depth + 1)) return false;
    }
  }

  bool ParseFields(PropertyValue& value, int depth) {
    for (;;) {
      Tag tag;
      if (!TakeNextTag(tag)) return false;
      if (IsEndOf(tag, "dict")) return true;
      if (tag.name != "key" || tag.kind == Tag::Kind::kEnd) return false;
      auto& [key, field] = value.fields.emplace_back();
      if (tag.kind == Tag::Kind::kStart && !ParseText("key", key)) return false;
      if (!TakeNextTag(tag) || !ParseValue(tag, field, depth + 1)) return false;
    }
  }

  /// Text through the end tag `name`. Comments in it are left out, CDATA sections taken as they are.
  bool ParseText(std::string_view name, std::string& text) {
    for (;;) {
      const std::size_t at = rest_.find_first_of("<&");
      if (at == std::string_view::npos) return false;
      text.append(rest_.substr(0, at));
      rest_.remove_prefix(at);
      std::string_view taken;
      if (Take("&")) {
        if (!TakeThrough(";", taken) || !AppendEntity(taken, text)) return false;
      } else if (Take("<![CDATA[")) {
        if (!TakeThrough("]]>", taken)) return false;
        text.append(taken);
      } else if (Take("<!--")) {
        if (!SkipThrough("-->")) return false;
      } else {
        Tag end;
        return TakeTag(end) && IsEndOf(end, name);
      }
    }
  }

  std::string_view rest_;
  int values_ = 0;
};

}  // namespace

const PropertyValue* PropertyValue::Find(std::string_view key) const {
  for (const auto& [name, value] : fields) {
    if (name == key) return &value;
  }
  return nullptr;
}

bool ParsePropertyList(std::string_view text, PropertyValue& value) {
  value = PropertyValue{};
  return Parser(text).ParseDocument(value);
}

}  // namespace platform
