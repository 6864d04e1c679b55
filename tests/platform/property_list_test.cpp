#include "platform/property_list.h"

#include <gtest/gtest.h>

#include "platform/property_files.h"

using platform::ParsePropertyList;
using platform::PropertyValue;

static bool Parses(const std::string& text) {
  PropertyValue value;
  return ParsePropertyList(text, value);
}

static std::string Repeated(int times, const char* text) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

/// "<text>" for a text, the items of an array in brackets, the names and items of a dictionary in braces, else "?".
static std::string Shown(const PropertyValue& value) {
  std::string shown;
  for (const PropertyValue& item : value.items) shown += Shown(item);
  if (value.type == PropertyValue::Type::kText) return "<" + value.text + ">";
  if (value.type == PropertyValue::Type::kDictionary) return "{" + shown + "}";
  return value.items.empty() ? "?" : "[" + shown + "]";
}

TEST(PropertyListTest, ReadsTheValuesAndUnescapesTheirTexts) {
  PropertyValue list;
  ASSERT_TRUE(ParsePropertyList(
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- a > comment -->\n"
      "<!DOCTYPE plist PUBLIC \"-//x>//\" \"http://example.com/a.dtd\" [ <!ELEMENT plist ANY> ]>\n<plist "
      "version=\"1.0\">\n<dict>\n<key>a&amp;b</key> <string> &lt;&#65;&#x20AC;&#x1F600;<![CDATA[&<]]><!-- no -->&gt; "
      "</string>\n<key>n</key><integer>12</integer><!-- c --><key>t</key><true/>"
      "<key>list</key><array><string/><dict/><data>\nAAEC\n</data></array>"
      "<key>n</key><string>second</string></dict>\n</plist>\n<!-- end -->\n",
      list));
  ASSERT_TRUE(list.type == PropertyValue::Type::kDictionary && list.Find("a&b") != nullptr);
  EXPECT_EQ(Shown(*list.Find("a&b")), "< <A\xE2\x82\xAC\xF0\x9F\x98\x80&<> >");
  EXPECT_EQ(Shown(*list.Find("n")), "?") << "the first of two with the name";
  EXPECT_EQ(Shown(*list.Find("list")), "[<>{}?]");
  EXPECT_EQ(list.Find("missing"), nullptr);
}

TEST(PropertyListTest, RefusesWhatIsNoListWithoutHarm) {
  for (const char* list : {"", "bplist00\x01\x02", "<plist/>", "<!-- open", "<?xml", "<!DOCTYPE [>", "<other/>",
                           "<plist><dict/></plist><dict/>", "<plist><dict/><dict/></plist>", "<string>a</dict>",
                           "<!DOCTYPE plist [<!ENTITY a \"a\"><!ENTITY b \"&a;\">]><plist><string>&b;</string></plist>",
                           "<dict></key></dict>"}) {
    EXPECT_FALSE(Parses(list)) << list;
  }
  for (const char* fields : {"<key>a</key>", "<string>a</string>", "<key>a</key></string>"}) {
    EXPECT_FALSE(Parses(std::string("<dict>") + fields + "</dict>")) << fields;
  }
  for (const char* text :
       {"a<b/>", "&unknown;", "&amp", "&#0;", "&#xD800;", "&#x110000;", "&#99999999999;", "<![CDATA[a"}) {
    EXPECT_FALSE(Parses(std::string("<string>") + text + "</string>")) << text;
  }
  // Every beginning of a good list is a bad one.
  const std::string good = "<plist><dict><key>a</key><array><string>&lt;</string><true/></array></dict></plist>";
  ASSERT_TRUE(Parses(good));
  for (std::size_t length = 0; length < good.size(); ++length) EXPECT_FALSE(Parses(good.substr(0, length))) << length;
}

TEST(PropertyListTest, LimitsDepthAndNumberOfValues) {
  for (const int levels : {64, 65, 1'000'000}) {
    EXPECT_EQ(Parses(Repeated(levels, "<array>") + Repeated(levels, "</array>")), levels == 64) << levels;
  }
  EXPECT_FALSE(Parses("<array>" + Repeated(100'000, "<true/>") + "</array>"));
}

TEST(PropertyListTest, TakesOnlyAVersionThatIsText) {
  const std::pair<std::string, const char*> cases[] = {
      {"<key>ProductVersion</key><string> 10.15.7 </string>", " 10.15.7 "},
      {"<key>ProductVersion</key><integer>11</integer>", ""},
      {"<key>x</key><dict><key>ProductVersion</key><string>1</string></dict>", ""}};
  for (const auto& [fields, version] : cases) {
    PropertyValue list;
    EXPECT_TRUE(ParsePropertyList("<plist><dict>" + fields + "</dict></plist>", list)) << fields;
    EXPECT_EQ(platform::ProductVersionIn(list), version) << fields;
  }
}

TEST(PropertyListTest, CollectsTheDestinationsOfEveryDictionary) {
  PropertyValue list;
  ASSERT_TRUE(ParsePropertyList(
      "<dict><key>DestinationUUIDs</key><string>outside</string><key>Destinations</key><array><string>no</string>"
      "<dict><key>DestinationUUIDs</key><array><string>one</string><integer>2</integer></array></dict><dict/>"
      "<dict><key>DestinationUUIDs</key><string>three</string></dict></array></dict>",
      list));
  std::vector<platform::DestinationValue> values;
  platform::CollectDestinationValues(list, values);
  std::string shown;
  for (const platform::DestinationValue& value : values) shown += value.isText ? value.text + " " : "? ";
  EXPECT_EQ(shown, "one ? three ");
}
