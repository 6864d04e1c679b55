#include "base/vector.h"

#include <gtest/gtest.h>

#include <string>

static std::string Content(const TqStringVector& vector) {
  TqString texts;
  for (const TqString* text : vector) AppendAll(texts, '[', *text, ']');
  return texts.c_str();
}

TEST(VectorTest, OwnsOrdersAndReleasesItsElements) {
  char items[] = "7539";
  static std::string released;
  {
    TqVector vector([](void* item) { released += *static_cast<const char*>(item); });
    for (const int place : {0, 0, 2, 9}) vector.Insert(items + place, place);  // the last place is not there
    EXPECT_TRUE(vector.Count() == 3 && vector.Get(3) == nullptr && vector.Detach(0) == items);
    vector.Remove(1, 100);
    EXPECT_EQ(released, "3");
  }
  EXPECT_EQ(released, "37");
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

TEST(VectorTest, KeepsCopiesOfTextsInOrder) {
  TqStringVector vector;
  EXPECT_TRUE(vector.Add("b") && vector.AddOwned(new TqString("c")) && vector.Insert("a", 0));
  EXPECT_FALSE(vector.AddOwned(nullptr) || vector.Insert("z", 4));
  EXPECT_TRUE(vector.Add(vector.At(0)));
  EXPECT_EQ(Content(vector), "[a][b][c][a]");
  EXPECT_TRUE(vector.Find("a") == 0 && vector.Find("A") == -1 && vector.FindIgnoreCase("C") == 2 && vector.At(4) == "");
  const TqStringVector copy = vector;
  TqStringVector moved = std::move(vector);
  delete moved.Detach(0);
  moved.Remove(1, 5);
  EXPECT_EQ(Content(moved), "[b]");
  moved = copy;
  moved.Sort([](const void* a, const void* b) {
    return CompareBytes(**static_cast<const TqString* const*>(b), **static_cast<const TqString* const*>(a));
  });
  EXPECT_EQ(Content(moved), "[c][b][a][a]");
}

TEST(VectorTest, SplitDropsEmptyPieces) {
  TqStringVector vector;
  EXPECT_TRUE(vector.Split(",a, b ,, ,c", ',', false) && Content(vector) == "[a][ b ][ ][c]") << Content(vector);
  EXPECT_TRUE(vector.Split("a, b ,, ,c,", ',', true) && Content(vector) == "[a][b][c]") << Content(vector);
  EXPECT_TRUE(vector.Split(vector.At(1), ',', true) && Content(vector) == "[b]") << Content(vector);
  EXPECT_TRUE(vector.Split("", ',', true) && Content(vector).empty());
}
