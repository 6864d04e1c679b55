#include "base/xml_files.h"

#include "base/file_io.h"
#include "base/xml_snippets.h"

namespace TqFile {

bool GetAllXmlSnippetsWithTagNameInXmlFile(std::string_view path, std::string_view tag, TqStringVector& snippets) {
  TqString text;
  snippets.Clear();
  return ReadFileIntoString(path, text) && GetAllXmlSnippetsWithTagNameInXml(text, tag, snippets);
}

bool GetUniqueStrAttrFromXmlFile(std::string_view path, std::string_view name, TqString& value) {
  TqString text;
  value.Clear();
  return ReadFileIntoString(path, text) && GetUniqueStrAttrFromXmlSnippet(text, name, value);
}

bool GetXmlElementTextFromFile(std::string_view path, std::string_view tag, TqString& elementText) {
  TqStringVector snippets;
  elementText.Clear();
  return GetAllXmlSnippetsWithTagNameInXmlFile(path, tag, snippets) &&
         GetXmlElementText(snippets.At(0), tag, elementText);
}

bool GetXmlSnippetWithAttrValueFromFile(std::string_view path, std::string_view tag, std::string_view attribute,
                                        std::string_view value, TqString& snippet) {
  TqString text;
  snippet.Clear();
  return ReadFileIntoString(path, text) && GetXmlSnippetWithAttrValue(text, tag, attribute, value, snippet);
}

}  // namespace TqFile
