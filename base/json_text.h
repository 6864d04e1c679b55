#pragma once

#include <string_view>

#include "base/string.h"
#include "base/vector.h"

namespace TqFile {

/// Backslash, slash, double quote and the control characters 8, 9, 10, 12, 13; all other bytes are copied. False when
/// empty.
bool JsonEscape(std::string_view text, TqString& out);
/// Undoes \" and \uXXXX (surrogate pairs joined; malformed or lone ones copied unchanged).
bool JsonUnescape(std::string_view text, TqString& out);
/// The value behind `"key": `: between quotes up to the next quote not preceded by a backslash, or without an opening
/// quote up to ",", "}", "]" or white space. Not unescaped.
bool GetJsonStrValue(std::string_view json, std::string_view key, TqString& value);
/// The items behind `"key": [`: split at commas outside quotes, blanks and quotes trimmed.
bool GetJsonStrArray(std::string_view json, std::string_view key, TqStringVector& items);

}  // namespace TqFile
