#include "base/hash_table.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string released;
void Release(std::uint64_t value) {
  released += std::to_string(value) + " ";
}

std::string Content(const TqHashTable& table) {
  TqString content;
  table.ForEach([](const char* key, std::uint64_t value,
                   void* context) { AppendAll(*static_cast<TqString*>(context), key, '=', value, ' '); },
                &content);
  return content.c_str();
}

std::uint64_t ValueOf(const TqHashTable& table, const char* key) {
  std::uint64_t value = 999;
  table.Lookup(key, value);
  return value;
}

class HashTableTest : public ::testing::Test {
 protected:
  HashTableTest() { released.clear(); }
};

// The check value of CRC-32 over "123456789" is 0xCBF43926; without the final inversion it is the complement.
TEST_F(HashTableTest, HashesWithUninvertedCrc32) {
  EXPECT_EQ(TqHashTable::Hash("123456789"), ~0xCBF43926u);
  EXPECT_EQ(TqHashTable::Hash(""), 0xFFFFFFFFu);
  EXPECT_EQ(TqHashTable::Hash("\xFF"), ~0xFF000000u);
}

TEST_F(HashTableTest, InsertReplacesReleasesAndCounts) {
  TqHashTable table(1, Release);
  EXPECT_TRUE(table.Insert("a", 1) && table.Insert("b", 2) && table.Insert("", 0));
  EXPECT_TRUE(table.Insert("a", 3) && table.Insert("", 4));  // the former value 0 is nothing to release
  EXPECT_FALSE(table.Insert(nullptr, 9));
  EXPECT_EQ(released, "1 ");
  EXPECT_EQ(Content(table), "=4 b=2 a=3 ");
  EXPECT_EQ(table.EntryCount(), 3);
  EXPECT_EQ(table.InsertionCount(), 3);
  EXPECT_EQ(table.CollisionCount(), 2);
  EXPECT_EQ(ValueOf(table, "b"), 2u);
  EXPECT_EQ(ValueOf(table, "B"), 999u);  // untouched
  EXPECT_FALSE(table.Contains("B") || table.Contains(nullptr));

  table.Remove("b");
  table.Remove("missing");
  EXPECT_EQ(released, "1 2 ");
  EXPECT_EQ(table.EntryCount(), 2);
  EXPECT_EQ(table.InsertionCount(), 3);
  EXPECT_FALSE(table.Contains("b"));

  table.Clear();
  EXPECT_EQ(released, "1 2 4 3 ");
  EXPECT_EQ(table.EntryCount() + table.InsertionCount() + table.CollisionCount(), 0);
  EXPECT_EQ(Content(table), "");
  EXPECT_TRUE(table.Insert("again", 0) && table.Contains("again"));
}

TEST_F(HashTableTest, BorrowedKeysStayTheCallers) {
  TqHashTable table(8);
  std::string first = "key";
  EXPECT_TRUE(table.InsertNoCopy(first.c_str(), 1) && table.InsertNoCopy("key", 2));
  first[0] = 'K';  // the table still looks at the first pointer
  EXPECT_EQ(Content(table), "Key=2 ");
}

TEST_F(HashTableTest, OutgrowsItsArena) {
  TqHashTable table(3);
  const std::string longKey(5'000, 'k');
  EXPECT_TRUE(table.Insert(longKey.c_str(), 1));
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(table.Insert(Joined("key", i).c_str(), static_cast<std::uint64_t>(i)));
  for (int i = 0; i < 300; ++i) ASSERT_EQ(ValueOf(table, Joined("key", i).c_str()), static_cast<std::uint64_t>(i));
  table.Remove(longKey.c_str());
  table.Remove("key0");
  EXPECT_EQ(table.EntryCount(), 299);
}

TEST_F(HashTableTest, MovesAllPairsWithoutReleasing) {
  TqHashTable from(0, Release);  // counts as one bucket
  TqHashTable to(4, Release);
  EXPECT_TRUE(from.Insert("a", 1) && from.InsertNoCopy("b", 2) && to.Insert("a", 9));
  from.MoveAllInto(from);
  EXPECT_EQ(Content(from), "b=2 a=1 ");
  from.MoveAllInto(to);
  EXPECT_EQ(released, "9 ");
  EXPECT_EQ(Content(from), "");
  TqStringVector keys;
  to.KeysInto(keys);
  EXPECT_EQ(keys.Count(), 2);
  EXPECT_EQ(ValueOf(to, "a"), 1u);
  EXPECT_EQ(ValueOf(to, "b"), 2u);
}

}  // namespace
