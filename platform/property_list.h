#pragma once

// Reader for XML property lists (text in, plain values out). Only what the program needs of them: dictionaries, arrays
// and texts; values of other types are kept as kOther. Binary lists are not read.

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

struct PropertyValue {
  enum class Type { kText, kArray, kDictionary, kOther };
  Type type = Type::kOther;
  std::string text;                                           ///< kText: unescaped, not trimmed
  std::vector<PropertyValue> items;                           ///< kArray
  std::vector<std::pair<std::string, PropertyValue>> fields;  ///< kDictionary, in document order

  /// The first value under `key`, or null.
  const PropertyValue* Find(std::string_view key) const;
};

/// Parses one property list in UTF-8, with or without its outer "plist" element. False when the text is not a
/// well-formed XML property list; nesting beyond 64 levels, more than a million values and entities other than XML's
/// own count as malformed. `value` is unspecified on failure.
bool ParsePropertyList(std::string_view text, PropertyValue& value);

}  // namespace platform
