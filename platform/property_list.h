#pragma once

// Reader for XML property lists (text in, plain values out). Only what the program needs of them: dictionaries, arrays
// and texts; values of other types are kept as kOther. Binary lists are not read.

#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct PropertyField;

struct PropertyValue {
  enum class Type { kText, kArray, kDictionary, kOther };
  Type type = Type::kOther;
  std::string text;                   ///< kText: unescaped, not trimmed
  std::vector<PropertyValue> items;   ///< kArray
  std::vector<PropertyField> fields;  ///< kDictionary, in document order

  /// The first value under `key`, or null.
  const PropertyValue* Find(std::string_view key) const;
};

struct PropertyField {
  std::string key;
  PropertyValue value;
};

/// Parses one property list in UTF-8, with or without its outer "plist" element. False when the text is not a
/// well-formed XML property list; nesting beyond 64 levels, more than 100,000 values and entities other than XML's
/// own count as malformed. `value` is unspecified on failure.
bool ParsePropertyList(std::string_view text, PropertyValue& value);

}  // namespace platform
