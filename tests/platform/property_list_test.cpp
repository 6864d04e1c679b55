#include "platform/property_list.h"

#include <gtest/gtest.h>

#include "platform/property_files.h"

namespace {

using platform::ParsePropertyList;
using platform::PropertyValue;

constexpr const char* kHead =
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- a > comment -->\n"
    "<!DOCTYPE plist PUBLIC \"-//x>//\" \"http://example.com/a.dtd\" [ <!ELEMENT plist ANY> ]>\n<plist "
    "version=\"1.0\">\n";

bool Parses(const std::string& text) {
  PropertyValue value;
  return ParsePropertyList(text, value);
}

std::string Nested(int levels) {
  std::string text;
  for (int i = 0; i < levels; ++i) text += "<array>";
  for (int i = 0; i < levels; ++i) text += "</array>";
  return text;
}

TEST(PropertyListTest, ReadsTheValuesAndUnescapesTheirTexts) {
  PropertyValue list;
  ASSERT_TRUE(ParsePropertyList(
      std::string(kHead) +
          "<dict>\n<key>a&amp;b</key> <string> &lt;&#65;&#x20AC;&#x1F600;<![CDATA[&<]]><!-- no -->&gt; "
          "</string>\n<key>n</key><integer>12</integer><!-- c --><key>t</key><true/>"
          "<key>list</key><array><string/><dict/><data>\nAAEC\n</data></array>"
          "<key>n</key><string>second</string></dict>\n</plist>\n<!-- end -->\n",
      list));
  ASSERT_EQ(list.type, PropertyValue::Type::kDictionary);
  ASSERT_NE(list.Find("a&b"), nullptr);
  EXPECT_EQ(list.Find("a&b")->text, " <A\xE2\x82\xAC\xF0\x9F\x98\x80&<> ");
  EXPECT_EQ(list.Find("n")->type, PropertyValue::Type::kOther);  // the first of two with the name
  EXPECT_EQ(list.Find("missing"), nullptr);
  const PropertyValue& array = *list.Find("list");
  ASSERT_EQ(array.items.size(), 3U);
  EXPECT_EQ(array.items[0].type, PropertyValue::Type::kText);
  EXPECT_EQ(array.items[1].type, PropertyValue::Type::kDictionary);
  EXPECT_EQ(array.items[2].type, PropertyValue::Type::kOther);
}

TEST(PropertyListTest, RefusesWhatIsNoListWithoutHarm) {
  const char* malformed[] = {
      "",
      "bplist00\x01\x02",
      "<plist/>",
      "<!-- open",
      "<?xml",
      "<!DOCTYPE [>",
      "<plist><dict/></plist><dict/>",
      "<plist><dict/><dict/></plist>",
      "<dict><key>a</key></dict>",
      "<dict><string>a</string></dict>",
      "<dict></key></dict>",
      "<dict><key>a</key></string></dict>",
      "<string>a</dict>",
      "<string>a<b/></string>",
      "<string>&unknown;</string>",
      "<string>&amp</string>",
      "<string>&#0;</string>",
      "<string>&#xD800;</string>",
      "<string>&#x110000;</string>",
      "<string>&#99999999999;</string>",
      "<string><![CDATA[a</string>",
      "<other/>",
      "<!DOCTYPE plist [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;\">]><plist><string>&b;</string></plist>"};
  for (const char* text : malformed) EXPECT_FALSE(Parses(text)) << text;
  // Every beginning of a good list is a bad one.
  const std::string good = "<plist><dict><key>a</key><array><string>&lt;</string><true/></array></dict></plist>";
  ASSERT_TRUE(Parses(good));
  for (std::size_t length = 0; length < good.size(); ++length) EXPECT_FALSE(Parses(good.substr(0, length))) << length;
}

TEST(PropertyListTest, LimitsDepthAndNumberOfValues) {
  EXPECT_TRUE(Parses(Nested(64)));
  EXPECT_FALSE(Parses(Nested(65)));
  EXPECT_FALSE(Parses(Nested(1'000'000)));
  std::string many = "<array>";
  for (int i = 0; i < 100'000; ++i) many += "<true/>";
  EXPECT_FALSE(Parses(many + "</array>"));
}

TEST(PropertyListTest, TakesOnlyAVersionThatIsText) {
  const auto versionIn = [](const std::string& fields) {
    PropertyValue list;
    EXPECT_TRUE(ParsePropertyList("<plist><dict>" + fields + "</dict></plist>", list)) << fields;
    return platform::ProductVersionIn(list);
  };
  EXPECT_EQ(versionIn("<key>ProductVersion</key><string> 10.15.7 </string>"), " 10.15.7 ");
  EXPECT_EQ(versionIn("<key>ProductVersion</key><integer>11</integer>"), "");
  EXPECT_EQ(versionIn("<key>x</key><dict><key>ProductVersion</key><string>1</string></dict>"), "");
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
  ASSERT_EQ(values.size(), 3U);
  EXPECT_TRUE(values[0].isText && values[0].text == "one");
  EXPECT_FALSE(values[1].isText);
  EXPECT_TRUE(values[2].isText && values[2].text == "three");
}

}  // namespace
