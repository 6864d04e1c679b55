#include "base/text_codec.h"

#include <gtest/gtest.h>

#include <string>

#include "base/json_text.h"

TEST(TextCodecTest, HexAndBase64) {
  EXPECT_EQ(HexEncode("/Vol\xC3\xA4 "), "2f566f6cc3a420");
  TqString bytes;
  EXPECT_TRUE(HexDecode("2F566f6cC3a420", bytes) && bytes == "/Vol\xC3\xA4 ");
  for (const char* bad : {"", "2", "2f5", "2g", "g2", "2f00", "2f 2f"}) {
    EXPECT_TRUE(!HexDecode(bad, bytes) && bytes == "") << bad;
  }
  EXPECT_EQ(Base64Encode("fooba\xFB\xFF"), "Zm9vYmH7/w==");
  EXPECT_TRUE(Base64Decode("Zm9vYmH7/w==", bytes) && bytes == "fooba\xFB\xFF");
  for (const char* bad : {"Zg=", "Zg==Zg==", "Zm-v"}) EXPECT_FALSE(Base64Decode(bad, bytes)) << bad;
}

TEST(TextCodecTest, Utf8IsCheckedStrictly) {
  for (const std::string_view good : {"", "a", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                                      "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(IsValidUtf8(good)) << HexEncode(good).c_str();
  }
  for (const std::string_view bad :
       {"\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3(", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
        "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF", "ok\xC3"}) {
    EXPECT_FALSE(IsValidUtf8(bad)) << HexEncode(bad).c_str();
  }
}

TEST(TextCodecTest, Utf16) {
  const TqString source("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z"), latin("\xC3\xA4 \xE4");
  TqUtf16String wide;
  TqString back, error;
  EXPECT_TRUE(wide.ConvertUtf8TqStringToUtf16(&source, &error) && wide.ConvertUtf16TqStringToUtf8(&back, &error));
  EXPECT_TRUE(std::u16string_view(wide.Units()) == u"a\u00E4\u20AC\U0001F600z" && back == source);
  EXPECT_FALSE(wide.ConvertUtf8TqStringToUtf16(&latin, &error));  // bad UTF-8 is widened byte by byte
  EXPECT_TRUE(std::u16string_view(wide.Units()) == u"\u00C3\u00A4 \u00E4" && !error.IsEmpty());
}

TEST(TextCodecTest, Json) {
  TqString out;
  TqStringVector items;
  EXPECT_TRUE(TqFile::JsonEscape("\\/\"\n\x01", out) && out == "\\\\\\/\\\"\\n\x01");
  EXPECT_TRUE(TqFile::JsonUnescape(R"(\"a\" \u00e4 \ud83d\ude00 \n \u12g4 \ud83dx)", out));
  EXPECT_EQ(out, "\"a\" \xC3\xA4 \xF0\x9F\x98\x80 \\n \\u12g4 \\ud83dx");
  const char* const json = R"({"akey": "no", "key": "a \"b\" c", "l": [ "x, y" , "]" ,, 7,""], "open": ["x)";
  EXPECT_TRUE(TqFile::GetJsonStrValue(json, "key", out) && out == R"(a \"b\" c)");
  EXPECT_TRUE(TqFile::GetJsonStrArray(json, "l", items) && items.Count() == 4 && items.At(1) == "]");
  EXPECT_FALSE(TqFile::GetJsonStrValue(json, "missing", out) || TqFile::GetJsonStrArray(json, "open", items));
}
