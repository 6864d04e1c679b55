#include "base/hash_table.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

std::vector<std::uint64_t> released;
void Release(std::uint64_t value) {
  released.push_back(value);
}

std::string Content(const TqHashTable& table) {
  std::string content;
  table.ForEach([](const char* key, std::uint64_t value,
                   void* context) { *static_cast<std::string*>(context) += key + ("=" + std::to_string(value)) + " "; },
                &content);
  return content;
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
  EXPECT_TRUE(table.Insert("a", 1));
  EXPECT_TRUE(table.Insert("b", 2));
  EXPECT_TRUE(table.Insert("", 0));
  EXPECT_TRUE(table.Insert("a", 3));
  EXPECT_TRUE(table.Insert("", 4));  // the former value 0 is nothing to release
  EXPECT_FALSE(table.Insert(nullptr, 9));
  EXPECT_EQ(released, (std::vector<std::uint64_t>{1}));
  EXPECT_EQ(Content(table), "=4 b=2 a=3 ");
  EXPECT_EQ(table.EntryCount(), 3);
  EXPECT_EQ(table.InsertionCount(), 3);
  EXPECT_EQ(table.CollisionCount(), 2);

  std::uint64_t value = 77;
  EXPECT_TRUE(table.Lookup("b", value));
  EXPECT_EQ(value, 2u);
  EXPECT_FALSE(table.Lookup("B", value));
  EXPECT_FALSE(table.Lookup(nullptr, value));
  EXPECT_EQ(value, 2u);

  table.Remove("b");
  table.Remove("missing");
  EXPECT_EQ(released, (std::vector<std::uint64_t>{1, 2}));
  EXPECT_EQ(table.EntryCount(), 2);
  EXPECT_EQ(table.InsertionCount(), 3);
  EXPECT_FALSE(table.Contains("b"));

  table.Clear();
  EXPECT_EQ(released, (std::vector<std::uint64_t>{1, 2, 4, 3}));
  EXPECT_EQ(table.EntryCount() + table.InsertionCount() + table.CollisionCount(), 0);
  EXPECT_EQ(Content(table), "");
  EXPECT_TRUE(table.Insert("again", 0));
  EXPECT_EQ(table.EntryCount(), 1);
}

TEST_F(HashTableTest, BorrowedKeysStayTheCallers) {
  TqHashTable table(8);
  std::string first = "key";
  const std::string second = "key";
  EXPECT_TRUE(table.InsertNoCopy(first.c_str(), 1));
  EXPECT_TRUE(table.InsertNoCopy(second.c_str(), 2));
  first[0] = 'K';  // the table still looks at the first pointer
  EXPECT_EQ(Content(table), "Key=2 ");
}

TEST_F(HashTableTest, OutgrowsItsArena) {
  TqHashTable table(3, Release);
  const std::string longKey(5'000, 'k');
  EXPECT_TRUE(table.Insert(longKey.c_str(), 1));
  for (std::uint64_t i = 0; i < 1'000; ++i) ASSERT_TRUE(table.Insert(("key" + std::to_string(i)).c_str(), i + 2));
  for (std::uint64_t i = 0; i < 1'000; ++i) {
    std::uint64_t value = 0;
    ASSERT_TRUE(table.Lookup(("key" + std::to_string(i)).c_str(), value));
    ASSERT_EQ(value, i + 2);
  }
  table.Remove(longKey.c_str());
  table.Remove("key0");
  EXPECT_EQ(table.EntryCount(), 999);
  table.Clear();
  EXPECT_EQ(released.size(), 1'001u);
}

TEST_F(HashTableTest, MovesAllPairsWithoutReleasing) {
  TqHashTable from(0, Release);  // counts as one bucket
  TqHashTable to(4, Release);
  from.Insert("a", 1);
  const std::string borrowed = "b";
  from.InsertNoCopy(borrowed.c_str(), 2);
  to.Insert("a", 9);
  from.MoveAllInto(from);
  EXPECT_EQ(from.EntryCount(), 2);
  from.MoveAllInto(to);
  EXPECT_EQ(released, (std::vector<std::uint64_t>{9}));
  EXPECT_EQ(from.EntryCount(), 0);
  EXPECT_FALSE(from.Contains("a"));
  TqStringVector keys;
  to.KeysInto(keys);
  EXPECT_EQ(keys.Count(), 2);
  std::uint64_t value = 0;
  EXPECT_TRUE(to.Lookup("a", value) && value == 1 && to.Lookup("b", value) && value == 2);
}

}  // namespace
