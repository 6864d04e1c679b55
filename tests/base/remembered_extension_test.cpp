#include "base/remembered_extension.h"

#include <gtest/gtest.h>

#include <tuple>

TEST(RememberedExtensionTest, AsksOnlyWhenTheExtensionIsAnotherOne) {
  TqRememberedExtension<int> lengths(-1);
  // Each path after the one before it; its extension's length, and how often that has been looked up.
  const std::tuple<const char*, int, int> cases[] = {
      {"/none/", -1, 0}, {"/a/x.g", 1, 1},      {"/b/y.g", 1, 1},    {"/b/.g", 1, 1},    {"/a/y.jpg", 3, 2},
      {"/a/y.g", 1, 3},  {"/a/g", -1, 3},       {"/a.g/y", -1, 3},   {"/a/y.", -1, 3},   {"/a/z.g", 1, 3},
      {"/a/z.G", 1, 4},  {"/a/x.tar.gz", 2, 5}, {"/a/tar.gz", 2, 5}, {"/a.gz\\b", -1, 5}};
  int asked = 0;
  const auto lengthOf = [&](std::string_view extension) {
    ++asked;
    return static_cast<int>(extension.size());
  };
  for (const auto& [path, length, askedSoFar] : cases) {
    EXPECT_EQ(lengths.Of(path, lengthOf), length) << path;
    EXPECT_EQ(asked, askedSoFar) << path;
  }
  lengths.Forget();
  EXPECT_TRUE(lengths.Of("/a/tar.gz", lengthOf) == 2 && asked == 6);
}
