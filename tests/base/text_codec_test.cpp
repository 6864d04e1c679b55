#include "base/text_codec.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

std::u16string Units(const TqUtf16String& text) {
  return {text.Units(), static_cast<std::size_t>(text.Length())};
}

TEST(TextCodecTest, HexTakesBothCasesAndWritesLower) {
  EXPECT_EQ(HexEncode("/Vol\xC3\xA4 "), "2f566f6cc3a420");
  TqString bytes;
  EXPECT_TRUE(HexDecode("2F566f6cC3a420", bytes));
  EXPECT_EQ(bytes, "/Vol\xC3\xA4 ");
  for (const char* bad : {"", "2", "2f5", "2g", "g2", "2f00", "2f 2f"}) {
    bytes = "old";
    EXPECT_FALSE(HexDecode(bad, bytes)) << bad;
    EXPECT_EQ(bytes, "") << bad;
  }
}

// The vectors of RFC 4648, section 10.
TEST(TextCodecTest, Base64) {
  std::size_t length = 0;
  for (const char* coded : {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"}) {
    const std::string_view plain = std::string_view("foobar").substr(0, length++);
    EXPECT_EQ(Base64Encode(plain), coded);
    TqString decoded("old");
    EXPECT_TRUE(Base64Decode(coded, decoded));
    EXPECT_EQ(decoded, plain);
  }
  EXPECT_EQ(Base64Encode("\xFB\xFF"), "+/8=");
  for (const char* bad : {"Z", "Zg=", "Zg", "====", "Z===", "Zg==Zg==", "Zm 9v", "Zm-v", "Zm9v="}) {
    TqString decoded("old");
    EXPECT_FALSE(Base64Decode(bad, decoded)) << bad;
    EXPECT_EQ(decoded, "") << bad;
  }
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

TEST(TextCodecTest, Utf16RoundTrip) {
  const TqString source("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z");
  TqUtf16String wide;
  TqString error("none");
  EXPECT_TRUE(wide.ConvertUtf8TqStringToUtf16(&source, &error));
  EXPECT_EQ(Units(wide), u"a\u00E4\u20AC\U0001F600z");
  EXPECT_EQ(wide.Units()[wide.Length()], u'\0');
  TqString back("old");
  EXPECT_TRUE(wide.ConvertUtf16TqStringToUtf8(&back, &error));
  EXPECT_EQ(back, source);
  EXPECT_EQ(error, "none");
}

TEST(TextCodecTest, BadUtf8IsWidenedByteByByte) {
  TqUtf16String wide;
  TqString error;
  const TqString latin("\xC3\xA4 \xE4");
  EXPECT_FALSE(wide.ConvertUtf8TqStringToUtf16(&latin, &error));
  EXPECT_EQ(Units(wide), u"\u00C3\u00A4 \u00E4");
  EXPECT_EQ(error, "ERROR TqUtf16String::ConvertUtf8TqStringToUtf16, ConvertUTF8toUTF16 failed on invalid sequence");

  const TqString huge(std::string(2'000'001, '\xE4'));
  EXPECT_FALSE(wide.ConvertUtf8TqStringToUtf16(&huge, nullptr));
  EXPECT_EQ(wide.Length(), 2'000'000);

  EXPECT_FALSE(wide.ConvertUtf8TqStringToUtf16(nullptr, &error));
  EXPECT_EQ(error, "ERROR TqUtf16String::ConvertUtf8TqStringToUtf16, NULL src arg");
  EXPECT_EQ(wide.Length(), 0);
}

TEST(TextCodecTest, LoneSurrogatesDoNotBecomeUtf8) {
  for (const std::u16string& bad : {std::u16string{u'a', 0xD83D}, {0xDE00, u'a'}, {0xD83D, 0xD83D, 0xDE00}}) {
    TqUtf16String wide;
    wide.Append(bad.data(), static_cast<std::int32_t>(bad.size()));
    TqString out("old");
    TqString error;
    EXPECT_FALSE(wide.ConvertUtf16TqStringToUtf8(&out, &error));
    EXPECT_EQ(out, "");
    EXPECT_EQ(error, "ERROR TqUtf16String::ConvertUtf16TqStringToUtf8, ConvertUTF16toUTF8 failed");
  }
}

}  // namespace
