#include "base/xml_snippets.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kSelfCloser = "/>";

struct Entity {
  std::string_view text;
  char character;
};
constexpr Entity kEscapes[] = {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&apos;", '\''}, {"&quot;", '"'}};
constexpr Entity kUnescapedOnly[] = {{"&#x5C;", '\\'}, {"&#x2F;", '/'}, {"&#39;", '\''}};

const Entity* EscapeOf(char c) {
  const auto* const found = std::ranges::find(kEscapes, c, &Entity::character);
  return found != std::end(kEscapes) ? found : nullptr;
}

const Entity* EntityAtStart(std::string_view text) {
  const auto isAtStart = [text](const Entity& entity) { return text.starts_with(entity.text); };
  if (const auto* const found = std::ranges::find_if(kEscapes, isAtStart); found != std::end(kEscapes)) return found;
  const auto* const found = std::ranges::find_if(kUnescapedOnly, isAtStart);
  return found != std::end(kUnescapedOnly) ? found : nullptr;
}

// As rfind, which compares at every place of the text while find hurries from one possible beginning to the next.
std::size_t FindLast(std::string_view text, std::string_view needle) {
  std::size_t last = kNone;
  for (std::size_t at = text.find(needle); at != kNone; at = text.find(needle, at + 1)) last = at;
  return last;
}

// One pass over a text for the elements of one tag with one form of opener.
class SnippetPass {
 public:
  SnippetPass(std::string_view text, std::string_view tag, char openerEnd)
      : text_(text),
        opener_(Joined('<', tag, openerEnd)),
        endTag_(Joined("</", tag, '>')),
        hasAttributes_(openerEnd == ' '),
        lastEndTag_(FindLast(text, endTag_)),
        lastSelfCloser_(FindLast(text, kSelfCloser)) {}

  // False when memory ran out.
  bool CollectInto(TqStringVector& snippets) const {
    // From index 1: an element at the very start is not found, on purpose; files begin with their declaration.
    for (std::size_t hit = text_.find(opener_.View(), 1); hit != kNone;) {
      const std::size_t end = EndOfElement(hit + static_cast<std::size_t>(opener_.Length()));
      if (end != kNone && !snippets.Add(text_.substr(hit, end - hit))) return false;
      hit = text_.find(opener_.View(), end != kNone ? end : hit + 1);
    }
    return true;
  }

 private:
  // Index behind the element whose opener ends at `from`; kNone when nothing closes it. The last closers are known
  // beforehand, so no search runs to the end of the text in vain and the pass stays linear.
  std::size_t EndOfElement(std::size_t from) const {
    if (lastEndTag_ != kNone && lastEndTag_ >= from) {
      const std::size_t selfClosed = hasAttributes_ ? SelfCloserBeforeNextTag(from) : kNone;
      if (selfClosed != kNone) return selfClosed;
      return text_.find(endTag_.View(), from) + static_cast<std::size_t>(endTag_.Length());
    }
    if (lastSelfCloser_ == kNone || lastSelfCloser_ < from) return kNone;
    return text_.find(kSelfCloser, from) + kSelfCloser.size();
  }

  std::size_t SelfCloserBeforeNextTag(std::size_t from) const {
    const std::string_view head = text_.substr(from, text_.find('<', from) - from);
    const std::size_t closer = head.find(kSelfCloser);
    return closer == kNone ? kNone : from + closer + kSelfCloser.size();
  }

  std::string_view text_;
  TqString opener_;
  TqString endTag_;
  bool hasAttributes_;
  std::size_t lastEndTag_;
  std::size_t lastSelfCloser_;
};

// Index behind the opening quote of the attribute, with exactly `separator` before its name.
std::size_t FindAttributeValue(std::string_view snippet, char separator, std::string_view name) {
  const TqString opener = Joined(separator, name, "=\"");
  const std::size_t found = snippet.find(opener.View());
  return found == kNone ? kNone : found + static_cast<std::size_t>(opener.Length());
}

}  // namespace

namespace TqFile {

bool GetAllXmlSnippetsWithTagNameInXml(std::string_view text, std::string_view tag, TqStringVector& snippets) {
  snippets.Clear();
  if (text.empty() || tag.empty()) return false;
  for (const char openerEnd : {' ', '>'}) {
    if (!SnippetPass(text, tag, openerEnd).CollectInto(snippets)) return false;
  }
  return snippets.Count() > 0;
}

bool GetUniqueStrAttrFromXmlSnippet(std::string_view snippet, std::string_view name, TqString& value) {
  value.Clear();
  if (name.empty()) return false;
  std::size_t start = kNone;
  for (const char separator : {' ', '\n', '\t'}) {
    start = FindAttributeValue(snippet, separator, name);
    if (start != kNone) break;
  }
  if (start == kNone) return false;
  const std::size_t end = snippet.find('"', start);
  if (end == kNone) return false;
  XmlUnescape(snippet.substr(start, end - start), value);
  return true;
}

bool GetXmlElementText(std::string_view text, std::string_view tag, TqString& elementText) {
  elementText.Clear();
  if (tag.empty()) return false;
  const std::size_t opener = text.find(Joined('<', tag).View());
  if (opener == kNone) return false;
  const std::size_t start = text.find('>', opener + 1 + tag.size());
  if (start == kNone) return false;
  const std::size_t end = text.find('<', start);
  if (end == kNone) return false;
  XmlUnescape(text.substr(start + 1, end - start - 1), elementText);
  return true;
}

bool GetXmlSnippetWithAttrValue(std::string_view text, std::string_view tag, std::string_view attribute,
                                std::string_view value, TqString& snippet) {
  snippet.Clear();
  TqStringVector candidates;
  GetAllXmlSnippetsWithTagNameInXml(text, tag, candidates);
  TqString found;
  for (const TqString* candidate : candidates) {
    if (GetUniqueStrAttrFromXmlSnippet(*candidate, attribute, found) && found == value)
      return snippet.Assign(*candidate);
  }
  return false;
}

bool XmlEscape(std::string_view text, TqString& out) {
  out.Clear();
  for (const char c : text) {
    const Entity* const entity = EscapeOf(c);
    if (!(entity != nullptr ? out.Append(entity->text) : out.AppendChar(c))) return false;
  }
  return !text.empty();
}

bool XmlUnescape(std::string_view text, TqString& out) {
  out.Clear();
  if (text.empty()) return false;
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find('&'), text.size());
    if (!out.Append(text.substr(0, plain))) return false;
    text.remove_prefix(plain);
    if (text.empty()) break;
    // What was replaced is not looked at again, so "&amp;lt;" comes out as "&lt;".
    const Entity* const entity = EntityAtStart(text);
    if (!out.AppendChar(entity != nullptr ? entity->character : '&')) return false;
    text.remove_prefix(entity != nullptr ? entity->text.size() : 1);
  }
  return true;
}

TqString XmlEscaped(std::string_view text) {
  TqString escaped;
  XmlEscape(text, escaped);
  return escaped;
}

bool StripXmlComments(TqString& text, TqString& unclosedRest) {
  constexpr std::string_view kOpener = "<!--";
  constexpr std::string_view kCloser = "-->";
  unclosedRest.Clear();
  TqString kept;
  kept.Reserve(text.Length());
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t piece = std::min(rest.find(kOpener.back()), rest.size() - 1) + 1;
    kept.Append(rest.substr(0, piece));
    rest.remove_prefix(piece);
    // Looked for in what was kept, because a deletion may bring the two halves of another opener together.
    if (!kept.EndsWith(kOpener)) continue;
    // The opener's last "-" may already belong to the closer: "<!--->" is a whole comment.
    const std::size_t closer = rest.starts_with("->") ? 0 : rest.find(kCloser);
    if (closer == kNone) {
      unclosedRest = Joined(kOpener, rest);
      kept.Append(rest);
      break;
    }
    rest.remove_prefix(closer + (rest.starts_with("->") ? 2 : kCloser.size()));
    kept.Truncate(kept.Length() - static_cast<std::int32_t>(kOpener.size()));
  }
  text = std::move(kept);
  return unclosedRest.IsEmpty();
}

}  // namespace TqFile
