#include "base/xml_snippets.h"

#include <gtest/gtest.h>

#include <chrono>

using Texts = std::vector<std::string>;

static Texts Snippets(std::string_view text, std::string_view tag) {
  TqStringVector snippets;
  snippets.Add("old");
  const bool isFound = TqFile::GetAllXmlSnippetsWithTagNameInXml(text, tag, snippets);
  Texts found;
  for (const TqString* snippet : snippets) found.emplace_back(snippet->View());
  EXPECT_EQ(isFound, !found.empty());
  return found;
}

static std::string Attribute(std::string_view snippet) {
  TqString value("old");
  return TqFile::GetUniqueStrAttrFromXmlSnippet(snippet, "dir", value) ? std::string(value) : "<none>";
}

static std::string ElementText(std::string_view text, std::string_view tag) {
  TqString value("old");
  return TqFile::GetXmlElementText(text, tag, value) ? std::string(value) : "<none>";
}

TEST(XmlSnippetsTest, FindsElementsAsTheyStand) {
  const std::pair<const char*, Texts> cases[] = {
      {"<a x=\"1\"/><a x=\"2\">t</a>", {"<a x=\"2\">t</a>"}},  // none at index 0
      {"\n<a x=\"1\"/><a x=\"2\">t</a>", {"<a x=\"1\"/>", "<a x=\"2\">t</a>"}},
      {"\n<a>1</a><a y=\"2\"/><a>3</a>", {"<a y=\"2\"/>", "<a>1</a>", "<a>3</a>"}},
      {"\n<a x=\"1\"><a x=\"2\">t</a></a>", {"<a x=\"1\"><a x=\"2\">t</a>"}},
      {"\n<!-- <a x=\"1\"/> --><ab x=\"2\"/><A x=\"3\"/>", {"<a x=\"1\"/>"}},
      {"\n<a x=\"1\"><b y=\"2\"/></a>", {"<a x=\"1\"><b y=\"2\"/></a>"}},
      {"\n<a x=\"1\"><b/>", {"<a x=\"1\"><b/>"}},  // no end tag
      {"\n<a>1</a><a>text<b/> <a>", {"<a>1</a>", "<a>text<b/>"}},
      {"\n</a><a x=\"1\" <a y=\"2\"", {}}};
  for (const auto& [text, snippets] : cases) EXPECT_EQ(Snippets(text, "a"), snippets) << text;
  EXPECT_EQ(Snippets("\n<a/>", ""), Texts());
}

// Each text makes a search that runs to the end of the text for every hit quadratic: minutes in place of milliseconds.
TEST(XmlSnippetsTest, StaysLinearOnHostileTexts) {
  std::string selfClosing = "\n", unclosed = "\n";
  for (int i = 0; i < 50'000; ++i) {
    selfClosing += "<a x=\"1\" />\n";
    unclosed += "<a x=\"1\"<a>";
  }
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Snippets(selfClosing, "a").size(), 50'000u);
  EXPECT_EQ(Snippets(selfClosing + "<a></a>", "a").size(), 50'001u);
  EXPECT_EQ(Snippets(unclosed, "a").size(), 0u);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(XmlSnippetsTest, AttributesNeedTheirSeparatorAndDoubleQuotes) {
  const std::pair<const char*, const char*> cases[] = {{"<a xdir=\"no\" dir=\"yes\" dir=\"later\"/>", "yes"},
                                                       {"<a\ndir=\"lf\"\n b=\"1\"/>", "lf"},
                                                       {"<a\tdir=\"tab\"/>", "tab"},
                                                       {"<a\tdir=\"tab\"\ndir=\"lf\" dir=\"blank\"/>", "blank"},
                                                       {"<a dir=\"\"/>", ""},
                                                       {"<a dir=\"a&amp;&quot;b\"/>", "a&\"b"}};
  for (const auto& [snippet, value] : cases) EXPECT_EQ(Attribute(snippet), value) << snippet;
  for (const char* bad :
       {"<a dir='x'/>", "<a dir = \"x\"/>", "<a DIR=\"x\"/>", "<a dir=\"x/>", "<a xdir=\"x\"/>", ""}) {
    EXPECT_EQ(Attribute(bad), "<none>") << bad;
  }
}

TEST(XmlSnippetsTest, ElementText) {
  const std::pair<const char*, const char*> cases[] = {
      {"<c><d x=\"1\"> a &lt;b </d></c>", " a <b "},
      {"<dirs>x</dirs>", "x"},  // the character behind the tag is not looked at
      {"<d></d>", ""},
      {"<d>open", "<none>"},
      {"<e>x</e>", "<none>"}};
  for (const auto& [text, value] : cases) EXPECT_EQ(ElementText(text, "d"), value) << text;
  const char* const choice = "\n<v id=\"A\"/><v id=\"a\" n=\"1\"/><v id=\"a\" n=\"2\"/>";
  TqString snippet;
  EXPECT_TRUE(TqFile::GetXmlSnippetWithAttrValue(choice, "v", "id", "a", snippet) && snippet.Contains("\"1\""));
}

TEST(XmlSnippetsTest, EscapesTheFiveSpecialsOnlyAndUnescapesOneLevel) {
  TqString out;
  EXPECT_TRUE(TqFile::XmlEscape("\"&'<>\t\v\xC3\xA4/\\", out));
  EXPECT_EQ(out, "&quot;&amp;&apos;&lt;&gt;\t\v\xC3\xA4/\\");
  EXPECT_TRUE(TqFile::XmlUnescape("&amp;lt; &lt;&gt;&apos;&quot;&#x5C;&#x2F;&#39; a & b &&amp; &AMP; &#x5c; &lt", out));
  EXPECT_EQ(out, "&lt; <>'\"\\/' a & b && &AMP; &#x5c; &lt");
  EXPECT_FALSE(TqFile::XmlEscape("", out) || TqFile::XmlUnescape("", out) || !out.IsEmpty());
}

TEST(XmlSnippetsTest, StripsComments) {
  const struct {
    const char *text, *stripped, *rest;
  } cases[] = {{"a<!-- x -->b<!----><!--->c<!-- <!-- --> -->", "abc -->", ""},
               {"<!<!-- x -->-- joined -->d", "d", ""},  // the deletion makes another opener
               {"a<!-- x -->b<!-- open <c/>", "ab<!-- open <c/>", "<!-- open <c/>"}};
  for (const auto& c : cases) {
    TqString text(c.text), rest("old");
    const bool allClosed = TqFile::StripXmlComments(text, rest);
    EXPECT_TRUE(allClosed == rest.IsEmpty() && text == c.stripped && rest == c.rest) << c.text;
  }
}
