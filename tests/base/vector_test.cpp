#include "base/vector.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

std::vector<int> released;

int* Number(int value) {
  return new int(value);
}

void ReleaseNumber(void* item) {
  released.push_back(*static_cast<int*>(item));
  delete static_cast<int*>(item);
}

std::vector<int> Numbers(const TqVector& vector) {
  std::vector<int> numbers;
  for (std::int32_t i = 0; i < vector.Count(); ++i) numbers.push_back(*static_cast<int*>(vector.Get(i)));
  return numbers;
}

std::vector<std::string> Texts(const TqStringVector& vector) {
  std::vector<std::string> texts;
  for (const TqString* text : vector) texts.emplace_back(text->View());
  return texts;
}

TEST(VectorTest, OwnsOrdersAndReleasesItsElements) {
  released.clear();
  {
    TqVector vector(ReleaseNumber);
    EXPECT_EQ(vector.Capacity(), 0);
    for (const int value : {5, 3, 9}) vector.Add(Number(value));
    vector.Insert(Number(1), 3);
    vector.Insert(Number(7), 0);
    EXPECT_EQ(Numbers(vector), (std::vector<int>{7, 5, 3, 9, 1}));
    EXPECT_EQ(vector.Get(5), nullptr);
    EXPECT_EQ(vector.Get(-1), nullptr);

    vector.Sort([](const void* a, const void* b) {
      return **static_cast<const int* const*>(a) - **static_cast<const int* const*>(b);
    });
    EXPECT_EQ(Numbers(vector), (std::vector<int>{1, 3, 5, 7, 9}));

    int* const detached = static_cast<int*>(vector.Detach(1));
    EXPECT_EQ(*detached, 3);
    delete detached;
    EXPECT_EQ(vector.Detach(4), nullptr);
    EXPECT_TRUE(released.empty());

    vector.Remove(4, 1);
    vector.Remove(-1, 2);
    vector.Remove(2, 100);
    EXPECT_EQ(released, (std::vector<int>{7, 9}));
    EXPECT_EQ(Numbers(vector), (std::vector<int>{1, 5}));
  }
  EXPECT_EQ(released, (std::vector<int>{7, 9, 1, 5}));
}

TEST(VectorTest, GrowsByHalf) {
  TqVector vector;
  int item = 0;
  std::vector<std::int32_t> capacities;
  for (int i = 0; i < 30; ++i) {
    vector.Add(&item);
    if (capacities.empty() || capacities.back() != vector.Capacity()) capacities.push_back(vector.Capacity());
  }
  EXPECT_EQ(capacities, (std::vector<std::int32_t>{10, 16, 25, 39}));
}

TEST(StringVectorTest, GrowsInSteps) {
  TqStringVector vector;
  EXPECT_EQ(vector.Capacity(), 0);
  for (const auto& [need, capacity] : {std::pair{1, 50}, {50, 50}, {51, 150}, {149, 150}, {150, 250}, {151, 250}}) {
    EXPECT_EQ(TqStringVector::GrowthFor(need), capacity) << need;
  }
  for (int i = 0; i < 151; ++i) ASSERT_TRUE(vector.Add("x"));
  EXPECT_EQ(vector.Capacity(), 250);
  EXPECT_EQ(vector.Count(), 151);
}

TEST(StringVectorTest, KeepsCopiesInOrder) {
  TqStringVector vector;
  vector.Add("b");
  vector.AddOwned(new TqString("c"));
  EXPECT_FALSE(vector.AddOwned(nullptr));
  EXPECT_TRUE(vector.Insert("a", 0));
  EXPECT_FALSE(vector.Insert("z", 4));
  EXPECT_TRUE(vector.Add(vector.At(0)));
  EXPECT_EQ(Texts(vector), (std::vector<std::string>{"a", "b", "c", "a"}));
  EXPECT_EQ(vector.Find("a"), 0);
  EXPECT_EQ(vector.Find("A"), -1);
  EXPECT_EQ(vector.FindIgnoreCase("C"), 2);
  EXPECT_EQ(vector.At(4), "");

  const TqStringVector copy = vector;
  TqStringVector moved = std::move(vector);
  EXPECT_EQ(Texts(moved), Texts(copy));
  delete moved.Detach(0);
  moved.Remove(1, 5);
  EXPECT_EQ(Texts(moved), (std::vector<std::string>{"b"}));
  moved = copy;
  moved.Sort([](const void* a, const void* b) {
    return CompareBytes(**static_cast<const TqString* const*>(b), **static_cast<const TqString* const*>(a));
  });
  EXPECT_EQ(Texts(moved), (std::vector<std::string>{"c", "b", "a", "a"}));
}

TEST(StringVectorTest, SplitDropsEmptyPieces) {
  TqStringVector vector;
  EXPECT_TRUE(vector.Split(",a, b ,, ,c", ',', false));
  EXPECT_EQ(Texts(vector), (std::vector<std::string>{"a", " b ", " ", "c"}));
  EXPECT_TRUE(vector.Split("a, b ,, ,c,", ',', true));
  EXPECT_EQ(Texts(vector), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_TRUE(vector.Split(vector.At(1), ',', true));
  EXPECT_EQ(Texts(vector), (std::vector<std::string>{"b"}));
  EXPECT_TRUE(vector.Split("", ',', true));
  EXPECT_EQ(vector.Count(), 0);
}

}  // namespace
