#include "base/hash_table.h"

#include <gtest/gtest.h>

static std::string released;
static void Release(std::uint64_t value) {
  released += std::to_string(value) + " ";
}

static std::string Content(const TqHashTable& table) {
  TqString content;
  table.ForEach([](const char* key, std::uint64_t value,
                   void* context) { AppendAll(*static_cast<TqString*>(context), key, '=', value, ' '); },
                &content);
  return content.c_str();
}

static std::uint64_t ValueOf(const TqHashTable& table, const char* key) {
  std::uint64_t value = 999;
  table.Lookup(key, value);
  return value;
}

// The check value of CRC-32 over "123456789" is 0xCBF43926; without the final inversion it is the complement.
TEST(HashTableTest, HashesWithUninvertedCrc32) {
  EXPECT_EQ(TqHashTable::Hash("123456789"), ~0xCBF43926u);
  EXPECT_TRUE(TqHashTable::Hash("") == 0xFFFFFFFFu && TqHashTable::Hash("\xFF") == ~0xFF000000u);
}

TEST(HashTableTest, InsertReplacesReleasesAndCounts) {
  TqHashTable table(1, Release);
  EXPECT_TRUE(table.Insert("a", 1) && table.Insert("b", 2) && table.Insert("", 0));
  EXPECT_TRUE(table.Insert("a", 3) && table.Insert("", 4));  // the former value 0 is nothing to release
  EXPECT_FALSE(table.Insert(nullptr, 9) || table.Contains("B") || table.Contains(nullptr));
  EXPECT_EQ(Content(table), "=4 b=2 a=3 ");
  EXPECT_TRUE(table.EntryCount() == 3 && table.InsertionCount() == 3 && table.CollisionCount() == 2);
  EXPECT_TRUE(ValueOf(table, "b") == 2 && ValueOf(table, "B") == 999) << "untouched when it is not there";
  for (const char* key : {"b", "missing"}) table.Remove(key);
  EXPECT_EQ(released, "1 2 ");
  EXPECT_TRUE(table.EntryCount() == 2 && table.InsertionCount() == 3 && !table.Contains("b"));
  TqHashTable other(4);
  table.MoveAllInto(other);
  EXPECT_EQ(Content(other) + Content(table), "a=3 =4 ");
  EXPECT_TRUE(table.Insert("again", 5));
  table.Clear();
  EXPECT_EQ(released, "1 2 5 ");
  EXPECT_EQ(table.EntryCount() + table.InsertionCount() + table.CollisionCount(), 0);
}

TEST(HashTableTest, OutgrowsItsArena) {
  TqHashTable table(3);
  const std::string longKey(5'000, 'k');
  std::string borrowed = "key";
  EXPECT_TRUE(table.Insert(longKey.c_str(), 1) && table.InsertNoCopy(borrowed.c_str(), 1));
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(table.Insert(Joined("key", i).c_str(), static_cast<std::uint64_t>(i)));
  for (int i = 0; i < 300; ++i) ASSERT_EQ(ValueOf(table, Joined("key", i).c_str()), static_cast<std::uint64_t>(i));
  table.Remove(longKey.c_str());
  table.Remove("key0");
  borrowed[0] = 'K';  // the table still looks at the caller's text
  EXPECT_NE(Content(table).find("Key=1 "), std::string::npos);
  EXPECT_EQ(table.EntryCount(), 300);
}
