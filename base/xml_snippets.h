#pragma once

// Reading and writing XML as text: no parser, no tree, no validation. The matching rules are exact on purpose, because
// the files are also edited by hand and by the client's other programs. Every operation clears its output first; null
// or empty input gives false. An output is never the text that the input looks into. Nothing is logged; callers log
// with their own words.

#include <string_view>

#include "base/string.h"
#include "base/vector.h"

namespace TqFile {

/// Every element with that tag: first those with attributes in document order, then those without. An element at the
/// very start of the text is not found (kept on purpose). Nested elements of the same tag are not recognised. True when
/// at least one was found. Linear in the text.
bool GetAllXmlSnippetsWithTagNameInXml(std::string_view text, std::string_view tag, TqStringVector& snippets);

/// The unescaped value of the first occurrence of ` name="`, else of the same behind a line feed, else behind a tab.
/// False when there is none or its closing quote is missing; an empty value is found.
bool GetUniqueStrAttrFromXmlSnippet(std::string_view snippet, std::string_view name, TqString& value);

/// The unescaped text between the first "<tag...>" and the next "<".
bool GetXmlElementText(std::string_view text, std::string_view tag, TqString& elementText);

/// The first snippet of that tag whose attribute equals the value exactly.
bool GetXmlSnippetWithAttrValue(std::string_view text, std::string_view tag, std::string_view attribute,
                                std::string_view value, TqString& snippet);

/// Escapes the five XML specials and nothing else. An empty text gives false with an empty output.
bool XmlEscape(std::string_view text, TqString& out);
/// Replaces &amp; &lt; &gt; &apos; &quot; &#x5C; &#x2F; &#39; once; case-sensitive. A bare ampersand stays.
bool XmlUnescape(std::string_view text, TqString& out);

/// XmlEscape as an expression, for building texts.
TqString XmlEscaped(std::string_view text);

/// Deletes every "<!--" ... "-->" span; the closer is searched from 3 characters past the opener. An opener without
/// closer stops the stripping and answers false, with the rest from that opener in `unclosedRest`.
bool StripXmlComments(TqString& text, TqString& unclosedRest);

}  // namespace TqFile
