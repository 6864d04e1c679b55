#include "base/string.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

TEST(StringTest, AppendingByteByByteGrowsInTheStatedSteps) {
  TqString text;
  std::vector<std::int32_t> capacities = {text.Capacity()};
  while (text.Length() < 120'000) {
    text.AppendChar('x');
    if (text.Capacity() != capacities.back()) capacities.push_back(text.Capacity());
  }
  ASSERT_EQ(capacities.size(), 62u);
  for (std::size_t i = 1; i <= 50; ++i) EXPECT_EQ(capacities[i], 15 + 20 * static_cast<std::int32_t>(i));
  EXPECT_EQ(capacities[51], 2'016);
  EXPECT_EQ(capacities[52], 3'017);
  EXPECT_EQ(capacities[59], 10'024);
  EXPECT_EQ(capacities[60], 110'025);
  EXPECT_EQ(capacities[61], 210'026);
  EXPECT_EQ(std::ranges::count(text.View(), 'x'), 120'000);
}

TEST(StringTest, GrowthOfLargeTexts) {
  using Case = std::tuple<std::int64_t, std::int32_t, std::int64_t>;  // need, capacity before, capacity after
  for (const auto& [need, capacity, grown] :
       {Case{-1, 15, -1}, Case{14, 0, 15}, Case{10'000'000, 999, 10'000'015}, Case{400'000, 399'999, 500'001},
        Case{400'000, 400'000, 10'400'001}, Case{20'000'000, 20'000'000, 40'000'001},
        Case{60'000'000, 60'000'000, 160'000'001}, Case{2'147'483'622, 60'000'000, 2'147'483'628},
        Case{2'147'483'623, 60'000'000, -1}}) {
    EXPECT_EQ(TqString::GrowthForAppend(need, capacity), grown) << need << " from " << capacity;
  }
}

TEST(StringTest, ReserveAddsElevenAndRefusedNeedsKeepTheContent) {
  TqString text("kept");
  EXPECT_TRUE(text.Reserve(100) && text.Reserve(50));
  EXPECT_EQ(text.Capacity(), 111);
  EXPECT_FALSE(text.Reserve(TqString::kMaxNeed + 1));
  const volatile std::size_t tooMuch = 3'000'000'000;  // volatile: the compiler would see the bytes that are not there
  EXPECT_FALSE(text.Append(std::string_view("never read", tooMuch)));
  EXPECT_EQ(text, "kept");
  text.Clear();
  EXPECT_EQ(text.Capacity(), 111);
}

TEST(StringTest, PiecesOfTheTextItselfAreSafeArguments) {
  TqString text("0123456789abcd");  // full: each change below reallocates
  EXPECT_TRUE(text.Append(text));
  EXPECT_EQ(text, "0123456789abcd0123456789abcd");
  EXPECT_TRUE(text.Insert(2, text.Slice(10, 4)));
  EXPECT_EQ(text, "01abcd23456789abcd0123456789abcd");
  EXPECT_TRUE(text.ReplaceAll(text.Slice(0, 2), text.Slice(2, 4)));
  EXPECT_EQ(text, "abcdabcd23456789abcdabcd23456789abcd");
  EXPECT_TRUE(text.Assign(text.Slice(8, 4)));
  EXPECT_EQ(text, "2345");
}

TEST(StringTest, CopiesMovesAndNulls) {
  TqString original("some text that is longer than fifteen bytes");
  const TqString copy = original;
  TqString moved = std::move(original);
  EXPECT_EQ(moved, copy);
  EXPECT_STREQ(original.c_str(), "");  // NOLINT: a moved-from text is usable
  EXPECT_TRUE(original.ReplaceAll("a", "b") && original.AppendChar('!'));
  EXPECT_EQ(original, "!");
  EXPECT_EQ(TqString(static_cast<const char*>(nullptr)), "");
}

TEST(StringTest, NumbersAndJoining) {
  TqString text;
  text.AppendInt32(INT32_MIN);
  text.AppendInt64(INT64_MAX);
  text.AppendHex(0xABC, 6);
  text.AppendHex(0x123456789, 2);
  EXPECT_EQ(text, "-21474836489223372036854775807000abc123456789");
  EXPECT_EQ(Hex16(1'700'000'000'000), "0000018bcfe56800");
  EXPECT_EQ(Hex16(-1), "ffffffffffffffff");
  EXPECT_EQ(Joined("a", 'b', TqString("c"), std::string_view("d"), 7, -8LL, UINT64_MAX, true, false),
            "abcd7-818446744073709551615truefalse");
}

TEST(StringTest, ParsesWholeDecimalNumbersOnly) {
  std::int64_t number = 5;
  for (const char* bad : {"", "+", "-", "+-1", " 1", "1 ", "1x", "0x10", "9223372036854775808"}) {
    EXPECT_FALSE(ParseInt64(bad, number)) << bad;
  }
  EXPECT_EQ(number, 5);
  EXPECT_TRUE(ParseInt64("+42", number) && number == 42);
  EXPECT_TRUE(ParseInt64("-9223372036854775808", number) && number == INT64_MIN);
}

TEST(StringTest, ChangesInTheMiddleAreCutToWhatExists) {
  TqString text("abcdef");
  EXPECT_FALSE(text.Insert(7, "x") || text.Insert(-1, "x"));
  EXPECT_TRUE(text.Insert(6, "!"));
  text.Erase(2, 2);
  text.Erase(-1, 2);
  text.Erase(5, 1);
  EXPECT_EQ(text, "abef!");
  text.Erase(3, INT32_MAX);
  text.Truncate(9);
  text.SetCharAt(3, 'z');
  EXPECT_EQ(text, "abe");
  EXPECT_EQ(text.Slice(1), "be");
  EXPECT_EQ(text.Slice(3), "");
}

TEST(StringTest, ReplaceAllNeverRescans) {
  TqString text("aaaaa");
  EXPECT_TRUE(text.ReplaceAll("aa", "a"));
  EXPECT_TRUE(text.ReplaceAll("", "x"));
  EXPECT_EQ(text, "aaa");
  TqString path("/a\\b\\c");
  EXPECT_TRUE(path.ReplaceAll("\\", "_-backslash-_"));
  EXPECT_EQ(path, "/a_-backslash-_b_-backslash-_c");
  EXPECT_TRUE(path.ReplaceAll("_-backslash-_", ""));
  EXPECT_EQ(path, "/abc");
}

TEST(StringTest, Finding) {
  const TqString text("/Users/users/\xC3\x84");
  EXPECT_EQ(text.Find("users"), 7);
  EXPECT_EQ(text.FindIgnoreCase("USERS"), 1);
  EXPECT_EQ(text.FindIgnoreCase("USERS", 2), 7);
  EXPECT_EQ(text.FindIgnoreCase("\xC3\xA4"), -1);  // letters outside ASCII have no case
  EXPECT_EQ(text.FindIgnoreCase("", 1), -1);
  EXPECT_EQ(text.Find("/", 15), -1);
  EXPECT_EQ(text.Find("/", -1), -1);
  EXPECT_EQ(text.FindLast("sers"), 8);
  EXPECT_TRUE(text.StartsWith("") && text.EndsWith("") && text.StartsWithIgnoreCase("") && text.EndsWithIgnoreCase(""));
  EXPECT_TRUE(text.StartsWithIgnoreCase("/uSERS/") && !text.StartsWith("/users/"));
  EXPECT_TRUE(text.EndsWithIgnoreCase("USERS/\xC3\x84") && !text.EndsWithIgnoreCase("users/\xC3\xA4"));
  EXPECT_FALSE(TqString("a").EndsWithIgnoreCase("ba") || TqString("a").EqualsIgnoreCase("ab"));
  EXPECT_EQ(Trimmed(" \t\n\v\f\r a b \x1f\x0e \r\n"), "a b \x1f\x0e");
}

TEST(StringTest, OrdersBySignedBytes) {
  std::vector<std::string> names = {"b", "", "a", "\x80", "a\xFF", "A", "ab", "\xFF"};
  std::ranges::sort(names, [](const auto& a, const auto& b) { return CompareBytes(a, b) < 0; });
  EXPECT_EQ(names, (std::vector<std::string>{"", "\x80", "\xFF", "A", "a", "a\xFF", "ab", "b"}));
  EXPECT_EQ(LowerCased("AZ[@`\xC3\x84"), "az[@`\xC3\x84");
  EXPECT_EQ(CompareBytesIgnoreCase("ABC", "abc"), 0);
  EXPECT_LT(CompareBytesIgnoreCase("\xC3\x84", "a"), 0);
  EXPECT_LT(CompareBytesIgnoreCase("_", "A"), 0);  // folded downwards: '_' lies between the two alphabets
  EXPECT_EQ(CompareCStrings(nullptr, ""), 0);
  EXPECT_LT(CompareCStrings(nullptr, "\x80"), 0);
  EXPECT_GT(CompareCStringsIgnoreCase("a", nullptr), 0);
}

TEST(StringTest, TwoSeparatorsInARow) {
  for (const char* path : {"", "//", "//server/share", "\\\\server", "/a/b/", "/a\\b"}) {
    EXPECT_FALSE(TqString(path).ContainsTwoConsecutiveSeparators()) << path;
  }
  for (const char* path : {"///", "/a//b", "/a/\\b", "/a\\\\", "a//"}) {
    EXPECT_TRUE(TqString(path).ContainsTwoConsecutiveSeparators()) << path;
  }
}

}  // namespace
