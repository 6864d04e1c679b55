#include "base/xml_snippets.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

Texts Snippets(std::string_view text, std::string_view tag) {
  TqStringVector snippets;
  snippets.Add("old");
  const bool isFound = TqFile::GetAllXmlSnippetsWithTagNameInXml(text, tag, snippets);
  Texts found;
  for (const TqString* snippet : snippets) found.emplace_back(snippet->View());
  EXPECT_EQ(isFound, !found.empty());
  return found;
}

std::string Attribute(std::string_view snippet, std::string_view name) {
  TqString value("old");
  return TqFile::GetUniqueStrAttrFromXmlSnippet(snippet, name, value) ? std::string(value) : "<none>";
}

std::string ElementText(std::string_view text, std::string_view tag) {
  TqString value("old");
  return TqFile::GetXmlElementText(text, tag, value) ? std::string(value) : "<none>";
}

TEST(XmlSnippetsTest, FindsElementsAsTheyStand) {
  EXPECT_EQ(Snippets("<a x=\"1\"/><a x=\"2\">t</a>", "a"), (Texts{"<a x=\"2\">t</a>"}));  // none at index 0
  EXPECT_EQ(Snippets("\n<a x=\"1\"/><a x=\"2\">t</a>", "a"), (Texts{"<a x=\"1\"/>", "<a x=\"2\">t</a>"}));
  EXPECT_EQ(Snippets("\n<a>1</a><a y=\"2\"/><a>3</a>", "a"), (Texts{"<a y=\"2\"/>", "<a>1</a>", "<a>3</a>"}));
  EXPECT_EQ(Snippets("\n<a x=\"1\"><a x=\"2\">t</a></a>", "a"), (Texts{"<a x=\"1\"><a x=\"2\">t</a>"}));
  EXPECT_EQ(Snippets("\n<!-- <a x=\"1\"/> --><ab x=\"2\"/><A x=\"3\"/>", "a"), (Texts{"<a x=\"1\"/>"}));
  EXPECT_EQ(Snippets("\n<a x=\"1\"><b y=\"2\"/></a>", "a"), (Texts{"<a x=\"1\"><b y=\"2\"/></a>"}));
}

TEST(XmlSnippetsTest, ElementsWithoutEndTag) {
  EXPECT_EQ(Snippets("\n<a x=\"1\"><b/>", "a"), (Texts{"<a x=\"1\"><b/>"}));
  EXPECT_EQ(Snippets("\n<a>1</a><a>text<b/> <a>", "a"), (Texts{"<a>1</a>", "<a>text<b/>"}));
  EXPECT_EQ(Snippets("\n</a><a x=\"1\" <a y=\"2\"", "a"), Texts());
  EXPECT_EQ(Snippets("\n<a/>", ""), Texts());
}

// Each text makes a search that runs to the end of the text for every hit quadratic: minutes in place of milliseconds.
TEST(XmlSnippetsTest, StaysLinearOnHostileTexts) {
  std::string selfClosing = "\n";
  std::string unclosed = "\n";
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
  EXPECT_EQ(Attribute("<a xdir=\"no\" dir=\"yes\" dir=\"later\"/>", "dir"), "yes");
  EXPECT_EQ(Attribute("<a\ndir=\"lf\"\n b=\"1\"/>", "dir"), "lf");
  EXPECT_EQ(Attribute("<a\tdir=\"tab\"/>", "dir"), "tab");
  EXPECT_EQ(Attribute("<a\tdir=\"tab\"\ndir=\"lf\" dir=\"blank\"/>", "dir"), "blank");
  EXPECT_EQ(Attribute("<a dir=\"\"/>", "dir"), "");
  EXPECT_EQ(Attribute("<a dir=\"a&amp;&quot;b\"/>", "dir"), "a&\"b");
  for (const char* snippet :
       {"<a dir='x'/>", "<a dir = \"x\"/>", "<a DIR=\"x\"/>", "<a dir=\"x/>", "<a xdir=\"x\"/>", ""}) {
    EXPECT_EQ(Attribute(snippet, "dir"), "<none>") << snippet;
  }
}

TEST(XmlSnippetsTest, ElementText) {
  EXPECT_EQ(ElementText("<c><d x=\"1\"> a &lt;b </d></c>", "d"), " a <b ");
  EXPECT_EQ(ElementText("<datadirs>x</datadirs>", "datadir"), "x");  // the character behind the tag is not looked at
  EXPECT_EQ(ElementText("<d></d>", "d"), "");
  EXPECT_EQ(ElementText("<d>open", "d"), "<none>");
  EXPECT_EQ(ElementText("<e>x</e>", "d"), "<none>");
}

TEST(XmlSnippetsTest, PicksASnippetByAttributeValue) {
  const char* const text = "\n<v id=\"A\" n=\"0\"/><v id=\"a\" n=\"1\"/><v id=\"a\" n=\"2\"/>";
  TqString snippet;
  EXPECT_TRUE(TqFile::GetXmlSnippetWithAttrValue(text, "v", "id", "a", snippet));
  EXPECT_EQ(snippet, "<v id=\"a\" n=\"1\"/>");
  EXPECT_FALSE(TqFile::GetXmlSnippetWithAttrValue(text, "v", "id", "b", snippet));
  EXPECT_EQ(snippet, "");
}

TEST(XmlSnippetsTest, EscapesTheFiveSpecialsOnly) {
  TqString out;
  EXPECT_TRUE(TqFile::XmlEscape("\"&'<>\t\v\xC3\xA4/\\", out));
  EXPECT_EQ(out, "&quot;&amp;&apos;&lt;&gt;\t\v\xC3\xA4/\\");
  EXPECT_FALSE(TqFile::XmlEscape("", out));
  EXPECT_EQ(out, "");
}

TEST(XmlSnippetsTest, UnescapesOneLevel) {
  TqString out;
  EXPECT_TRUE(TqFile::XmlUnescape("&amp;lt; &lt;&gt;&apos;&quot;&#x5C;&#x2F;&#39;", out));
  EXPECT_EQ(out, "&lt; <>'\"\\/'");
  EXPECT_TRUE(TqFile::XmlUnescape("a & b &&amp;; &AMP; &#x5c; &lt", out));
  EXPECT_EQ(out, "a & b &&; &AMP; &#x5c; &lt");
  EXPECT_FALSE(TqFile::XmlUnescape("", out));
  EXPECT_EQ(out, "");
}

TEST(XmlSnippetsTest, StripsComments) {
  TqString rest("old");
  TqString text("a<!-- x -->b<!----><!--->c<!-- <!-- --> -->");
  EXPECT_TRUE(TqFile::StripXmlComments(text, rest));
  EXPECT_EQ(text, "abc -->");
  EXPECT_EQ(rest, "");

  text = "<!<!-- x -->-- joined -->d";  // the deletion makes another opener
  EXPECT_TRUE(TqFile::StripXmlComments(text, rest));
  EXPECT_EQ(text, "d");

  text = "a<!-- x -->b<!-- open <c/>";
  EXPECT_FALSE(TqFile::StripXmlComments(text, rest));
  EXPECT_EQ(text, "ab<!-- open <c/>");
  EXPECT_EQ(rest, "<!-- open <c/>");
}

}  // namespace
