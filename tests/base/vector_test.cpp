#include "base/vector.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

namespace {

std::string released;

void* Item(std::intptr_t number) {
  return reinterpret_cast<void*>(number);
}
std::intptr_t Number(const void* item) {
  return reinterpret_cast<std::intptr_t>(item);
}
void Release(void* item) {
  released += std::to_string(Number(item)) + " ";
}

std::string Content(const TqVector& vector) {
  std::string numbers;
  for (std::int32_t i = 0; i < vector.Count(); ++i) numbers += std::to_string(Number(vector.Get(i))) + " ";
  return numbers;
}

std::string Content(const TqStringVector& vector) {
  TqString texts;
  for (const TqString* text : vector) AppendAll(texts, '[', *text, ']');
  return texts.c_str();
}

TEST(VectorTest, OwnsOrdersAndReleasesItsElements) {
  released.clear();
  {
    TqVector vector(Release);
    for (const int number : {5, 3, 9}) vector.Add(Item(number));
    vector.Insert(Item(1), 3);
    vector.Insert(Item(7), 0);
    vector.Insert(Item(8), 6);
    EXPECT_EQ(Content(vector), "7 5 3 9 1 ");
    EXPECT_TRUE(vector.Get(5) == nullptr && vector.Get(-1) == nullptr);

    vector.Sort([](const void* a, const void* b) {
      return static_cast<int>(Number(*static_cast<void* const*>(a)) - Number(*static_cast<void* const*>(b)));
    });
    EXPECT_EQ(Number(vector.Detach(1)), 3);
    EXPECT_EQ(vector.Detach(4), nullptr);
    EXPECT_EQ(released, "");

    vector.Remove(4, 1);
    vector.Remove(-1, 2);
    vector.Remove(2, 100);
    EXPECT_EQ(released, "7 9 ");
  }
  EXPECT_EQ(released, "7 9 1 5 ");
}

TEST(VectorTest, CapacitiesGrowAsStated) {
  TqVector vector;
  std::string capacities;
  for (std::int32_t i = 0, last = 0; i < 30; ++i, last = vector.Capacity()) {
    vector.Add(nullptr);
    if (vector.Capacity() != last) capacities += std::to_string(vector.Capacity()) + " ";
  }
  EXPECT_EQ(capacities, "10 16 25 39 ");

  for (const auto& [need, capacity] : {std::pair{1, 50}, {50, 50}, {51, 150}, {149, 150}, {150, 250}}) {
    EXPECT_EQ(TqStringVector::GrowthFor(need), capacity) << need;
  }
  TqStringVector texts;
  for (int i = 0; i < 151; ++i) ASSERT_TRUE(texts.Add("x"));
  EXPECT_EQ(texts.Capacity(), 250);
}

TEST(StringVectorTest, KeepsCopiesInOrder) {
  TqStringVector vector;
  EXPECT_TRUE(vector.Add("b") && vector.AddOwned(new TqString("c")) && vector.Insert("a", 0));
  EXPECT_FALSE(vector.AddOwned(nullptr) || vector.Insert("z", 4));
  EXPECT_TRUE(vector.Add(vector.At(0)));
  EXPECT_EQ(Content(vector), "[a][b][c][a]");
  EXPECT_EQ(vector.Find("a"), 0);
  EXPECT_EQ(vector.Find("A"), -1);
  EXPECT_EQ(vector.FindIgnoreCase("C"), 2);
  EXPECT_EQ(vector.At(4), "");

  const TqStringVector copy = vector;
  TqStringVector moved = std::move(vector);
  EXPECT_EQ(Content(moved), Content(copy));
  delete moved.Detach(0);
  moved.Remove(1, 5);
  EXPECT_EQ(Content(moved), "[b]");
  moved = copy;
  moved.Sort([](const void* a, const void* b) {
    return CompareBytes(**static_cast<const TqString* const*>(b), **static_cast<const TqString* const*>(a));
  });
  EXPECT_EQ(Content(moved), "[c][b][a][a]");
}

TEST(StringVectorTest, SplitDropsEmptyPieces) {
  TqStringVector vector;
  EXPECT_TRUE(vector.Split(",a, b ,, ,c", ',', false));
  EXPECT_EQ(Content(vector), "[a][ b ][ ][c]");
  EXPECT_TRUE(vector.Split("a, b ,, ,c,", ',', true));
  EXPECT_EQ(Content(vector), "[a][b][c]");
  EXPECT_TRUE(vector.Split(vector.At(1), ',', true));
  EXPECT_EQ(Content(vector), "[b]");
  EXPECT_TRUE(vector.Split("", ',', true));
  EXPECT_EQ(vector.Count(), 0);
}

}  // namespace
