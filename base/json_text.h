#pragma once

#include <string_view>

#include "base/string.h"
#include "base/vector.h"

// Flat JSON as text, in the manner of xml_snippets.h: outputs are cleared first, null or empty input gives false, an
// output is never the text that the input looks into, nothing is logged.
namespace TqFile {

/// Backslash, slash, double quote and the control characters 8, 9, 10, 12, 13; all other bytes are copied. False when
/// empty.
bool JsonEscape(std::string_view text, TqString& out);
/// Undoes \" and \uXXXX (surrogate pairs joined; malformed or lone ones copied unchanged).
bool JsonUnescape(std::string_view text, TqString& out);
/// The value behind `"key": `: between quotes up to the next quote not preceded by a backslash, or without an opening
/// quote up to ",", "}", "]" or white space. Not unescaped. False when the closing quote is missing or nothing stands
/// there.
bool GetJsonStrValue(std::string_view json, std::string_view key, TqString& value);
/// The items behind `"key": [`: split at commas outside quotes, blanks and quotes trimmed; nothing between two commas
/// is no item, an empty pair of quotes is one. An empty array is found. False when the closing bracket is missing.
bool GetJsonStrArray(std::string_view json, std::string_view key, TqStringVector& items);

}  // namespace TqFile
