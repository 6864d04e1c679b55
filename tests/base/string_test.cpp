#include "base/string.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

TEST(StringTest, AppendingByteByByteGrowsInTheStatedSteps) {
  TqString text;
  std::vector<std::int32_t> capacities = {text.Capacity()}, expected;
  while (text.Length() < 120'000) {
    text.AppendChar('x');
    if (text.Capacity() != capacities.back()) capacities.push_back(text.Capacity());
  }
  for (std::int32_t capacity = 15; capacity <= 1'015; capacity += 20) expected.push_back(capacity);
  for (std::int32_t capacity = 2'016; capacity <= 10'024; capacity += 1'001) expected.push_back(capacity);
  expected.insert(expected.end(), {110'025, 210'026});
  EXPECT_EQ(capacities, expected);
  EXPECT_EQ(std::ranges::count(text.View(), 'x'), 120'000);
}

TEST(StringTest, GrowthOfLargeTextsAndReserves) {
  using Case = std::tuple<std::int64_t, std::int32_t, std::int64_t>;  // need, capacity before, capacity after
  for (const auto& [need, capacity, grown] :
       {Case{-1, 15, -1}, Case{14, 0, 15}, Case{10'000'000, 999, 10'000'015}, Case{400'000, 399'999, 500'001},
        Case{400'000, 400'000, 10'400'001}, Case{20'000'000, 20'000'000, 40'000'001},
        Case{60'000'000, 60'000'000, 160'000'001}, Case{2'147'483'622, 60'000'000, 2'147'483'628},
        Case{2'147'483'623, 60'000'000, -1}}) {
    EXPECT_EQ(TqString::GrowthForAppend(need, capacity), grown) << need << " from " << capacity;
  }
  TqString text("kept");
  EXPECT_TRUE(text.Reserve(100) && text.Reserve(50) && !text.Reserve(TqString::kMaxNeed + 1));
  const volatile std::size_t tooMuch = 3'000'000'000;  // volatile: the compiler would see the bytes that are not there
  EXPECT_FALSE(text.Append(std::string_view("never read", tooMuch)));
  EXPECT_TRUE(text == "kept" && text.Capacity() == 111);
  TqString roomy = TqString::WithRoom(100);
  EXPECT_TRUE(roomy.IsEmpty() && roomy.Capacity() == 111);
  EXPECT_TRUE(roomy.AssignBoth("a", {}) && roomy.AssignBoth({}, "b") && roomy == "b" && roomy.Capacity() == 111);
  EXPECT_TRUE(roomy.AssignBoth(std::string(60, 'x'), std::string(51, 'y')) && roomy.Length() == 111);
  EXPECT_TRUE(roomy.Capacity() > 111 && roomy.CharAt(59) == 'x' && roomy.CharAt(60) == 'y');
}

TEST(StringTest, PiecesOfTheTextItselfAreSafeArguments) {
  TqString text("0123456789abcd");  // full: each change below reallocates
  EXPECT_TRUE(text.Append(text) && text == "0123456789abcd0123456789abcd");
  EXPECT_TRUE(text.Insert(2, text.Slice(10, 4)) && text == "01abcd23456789abcd0123456789abcd");
  EXPECT_TRUE(text.ReplaceAll(text.Slice(0, 2), text.Slice(2, 4)) && text == "abcdabcd23456789abcdabcd23456789abcd");
  const TqString moved = std::move(text);
  EXPECT_TRUE(text.ReplaceAll("a", "b") && text.Assign(moved.Slice(8)) && text.Assign(text.Slice(0, 4)));  // NOLINT
  EXPECT_EQ(text, "2345");
}

TEST(StringTest, NumbersAndJoining) {
  TqString text;
  EXPECT_TRUE(text.AppendInt32(INT32_MIN) && text.AppendInt64(INT64_MAX));
  text.AppendHex(0xABC, 6);
  text.AppendHex(0x123456789, 2);
  EXPECT_EQ(text, "-21474836489223372036854775807000abc123456789");
  EXPECT_EQ(Joined(Hex16(1'700'000'000'000), Hex16(-1)), "0000018bcfe56800ffffffffffffffff");
  EXPECT_EQ(Joined("a", 'b', TqString("c"), std::string_view("d"), 7, -8LL, UINT64_MAX, true, false),
            "abcd7-818446744073709551615truefalse");
}

TEST(StringTest, ParsesWholeDecimalNumbersOnly) {
  std::int64_t number = 5;
  for (const char* bad : {"", "+", "-", "+-1", " 1", "1 ", "1x", "0x10", "9223372036854775808"}) {
    EXPECT_FALSE(ParseInt64(bad, number)) << bad;
  }
  EXPECT_TRUE(number == 5 && ParseInt64("+42", number) && number == 42);
  EXPECT_TRUE(ParseInt64("-9223372036854775808", number) && number == INT64_MIN);
}

TEST(StringTest, ChangesInTheMiddleAreCutToWhatExists) {
  TqString text("abcdef");
  EXPECT_FALSE(text.Insert(7, "x") || text.Insert(-1, "x"));
  EXPECT_TRUE(text.Insert(6, "!"));
  for (const auto& [from, count] : {std::pair{2, 2}, {-1, 2}, {5, 1}, {3, INT32_MAX}}) text.Erase(from, count);
  text.Truncate(9);
  text.SetCharAt(3, 'z');
  EXPECT_EQ(text, "abe");
  EXPECT_TRUE(text.Slice(1) == "be" && text.Slice(3) == "");
  text = "aaaaa\\b\\";  // what was put in is not looked at again
  EXPECT_TRUE(text.ReplaceAll("aa", "a") && text.ReplaceAll("", "x") && text.ReplaceAll("\\", "-\\-"));
  EXPECT_EQ(text, "aaa-\\-b-\\-");
}

TEST(StringTest, Finding) {
  const TqString text("/Users/users/\xC3\x84");
  EXPECT_TRUE(text.Find("users") == 7 && text.Find("/", 15) == -1 && text.Find("/", -1) == -1);
  EXPECT_TRUE(text.FindLast("sers") == 8 && text.FindIgnoreCase("USERS") == 1);
  EXPECT_TRUE(text.FindIgnoreCase("USERS", 2) == 7 && text.FindIgnoreCase("", 1) == -1);
  EXPECT_EQ(text.FindIgnoreCase("\xC3\xA4"), -1);  // letters outside ASCII have no case
  EXPECT_TRUE(text.StartsWithIgnoreCase("/uSERS/") && !text.StartsWith("/users/") && text.StartsWith(""));
  EXPECT_TRUE(text.EndsWithIgnoreCase("USERS/\xC3\x84") && !text.EndsWithIgnoreCase("users/\xC3\xA4"));
  EXPECT_FALSE(TqString("a").EndsWithIgnoreCase("ba") || TqString("a").EqualsIgnoreCase("ab"));
  EXPECT_EQ(Trimmed(" \t\n\v\f\r a b \x1f\x0e \r\n"), "a b \x1f\x0e");
  for (const char* path : {"", "//", "//server/share", "\\\\server", "/a/b/", "/a\\b"}) {
    EXPECT_FALSE(TqString(path).ContainsTwoConsecutiveSeparators()) << path;
  }
  for (const char* path : {"///", "/a//b", "/a/\\b", "/a\\\\", "a//"}) {
    EXPECT_TRUE(TqString(path).ContainsTwoConsecutiveSeparators()) << path;
  }
}

TEST(StringTest, LowerCaseFoldsLettersAloneFromAnyPlaceOfTextsOfAnyLength) {
  for (int length = 0; length <= 70; ++length) {  // across every capacity up to 75
    std::string given;
    for (int i = 0; i < length; ++i) given += static_cast<char>(i % 2 == 0 ? "@AMZ[`az\xC1"[i / 2 % 9] : 'B' + i / 3);
    for (int start = 0; start <= length; ++start) {
      std::string expected = given;
      for (auto at = expected.begin() + start; at != expected.end(); ++at) {
        if (*at >= 'A' && *at <= 'Z') *at = static_cast<char>(*at + 32);
      }
      TqString text;
      for (const char c : given) text.AppendChar(c);
      text.LowerCase(start);
      EXPECT_EQ(text.View(), expected) << "from " << start;
      EXPECT_EQ(text.c_str()[length], '\0');
    }
  }
}

TEST(StringTest, OrdersBySignedBytes) {
  std::vector<std::string> names = {"b", "", "a", "\x80", "a\xFF", "A", "ab", "\xFF"};
  std::ranges::sort(names, [](const auto& a, const auto& b) { return CompareBytes(a, b) < 0; });
  EXPECT_EQ(names, (std::vector<std::string>{"", "\x80", "\xFF", "A", "a", "a\xFF", "ab", "b"}));
  EXPECT_EQ(LowerCased("AZ[@`\xC3\x84"), "az[@`\xC3\x84");
  EXPECT_EQ(CompareBytesIgnoreCase("ABC", "abc"), 0);
  EXPECT_LT(CompareBytesIgnoreCase("\xC3\x84", "a"), 0);
  EXPECT_LT(CompareBytesIgnoreCase("_", "A"), 0);  // folded downwards: '_' lies between the two alphabets
  EXPECT_TRUE(CompareCStrings(nullptr, "") == 0 && CompareCStrings(nullptr, "\x80") < 0);
}
