#include "base/json_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(JsonTextTest, Escapes) {
  TqString out;
  EXPECT_TRUE(TqFile::JsonEscape("\\/\"\b\t\n\f\r\v\x01\xC3\xA4", out));
  EXPECT_EQ(out, "\\\\\\/\\\"\\b\\t\\n\\f\\r\v\x01\xC3\xA4");
  EXPECT_FALSE(TqFile::JsonEscape("", out));
  EXPECT_EQ(out, "");
}

TEST(JsonTextTest, UnescapesQuotesAndCodeUnits) {
  TqString out;
  EXPECT_TRUE(TqFile::JsonUnescape(R"(\"a\" \u00e4\u20AC \ud83d\ude00)", out));
  EXPECT_EQ(out, "\"a\" \xC3\xA4\xE2\x82\xAC \xF0\x9F\x98\x80");
  const char* const untouched = R"(\n \/ \u12 \u12g4 \ud83d \ud83dx \ude00\ud83d \)";
  EXPECT_TRUE(TqFile::JsonUnescape(untouched, out));
  EXPECT_EQ(out, untouched);
}

TEST(JsonTextTest, Values) {
  const char* const json = R"({"akey": "no", "key": "a \"b\" c", "n": 42, "t": true}, "e": "", "open": "x)";
  const auto value = [json](std::string_view key) {
    TqString found("old");
    return TqFile::GetJsonStrValue(json, key, found) ? std::string(found) : "<none>";
  };
  EXPECT_EQ(value("key"), R"(a \"b\" c)");
  EXPECT_EQ(value("n"), "42");
  EXPECT_EQ(value("t"), "true");
  EXPECT_EQ(value("e"), "");
  for (const char* key : {"open", "missing", "", "42"}) EXPECT_EQ(value(key), "<none>") << key;
}

TEST(JsonTextTest, Arrays) {
  const char* const json = R"({"a": [ "x, y" , "]" ,, 7,""], "empty": [ ], "open": ["x"})";
  TqStringVector items;
  EXPECT_TRUE(TqFile::GetJsonStrArray(json, "a", items));
  std::vector<std::string> texts;
  for (const TqString* item : items) texts.emplace_back(item->View());
  EXPECT_EQ(texts, (std::vector<std::string>{"x, y", "]", "7", ""}));
  EXPECT_TRUE(TqFile::GetJsonStrArray(json, "empty", items));
  EXPECT_EQ(items.Count(), 0);
  EXPECT_FALSE(TqFile::GetJsonStrArray(json, "open", items));
  EXPECT_FALSE(TqFile::GetJsonStrArray(json, "missing", items));
}

}  // namespace
