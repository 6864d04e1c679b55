#pragma once

// The snippet operations on whole files. False when the file cannot be read.

#include <string_view>

#include "base/string.h"
#include "base/vector.h"

namespace TqFile {

bool GetAllXmlSnippetsWithTagNameInXmlFile(std::string_view path, std::string_view tag, TqStringVector& snippets);
bool GetUniqueStrAttrFromXmlFile(std::string_view path, std::string_view name, TqString& value);
/// The text of the first snippet with that tag.
bool GetXmlElementTextFromFile(std::string_view path, std::string_view tag, TqString& elementText);
bool GetXmlSnippetWithAttrValueFromFile(std::string_view path, std::string_view tag, std::string_view attribute,
                                        std::string_view value, TqString& snippet);

}  // namespace TqFile
