#pragma once

// Finds which prefixes of a fixed set a path begins with, at a cost that hardly depends on how many there are.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// A tree of the prefixes. Each node adds the bytes that all prefixes below it share.
class TqPrefixTree {
 public:
  struct Prefix {
    std::string_view text;
    std::uint32_t number;  ///< what Collect answers
  };

  /// Takes a set of prefixes, distinct and not empty; their bytes must stay where they are.
  void Build(std::vector<Prefix> prefixes);
  /// How many of them one path can begin with at most.
  std::size_t MostMatches() const { return mostMatches_; }
  /// How far a path was followed: all of its bytes before `at` lead to `node`.
  struct Place {
    std::uint32_t node = 0;
    std::size_t at = 0;
    bool isEnd = false;  ///< the path left the tree: no longer one leads further
  };
  /// Writes the numbers of those that `path` begins with, shortest first, and answers how many. `numbers` has room for
  /// MostMatches(). Begins at `place` and moves it as far as the path leads; from there a longer path can be followed.
  std::size_t Collect(std::string_view path, Place& place, std::uint32_t* numbers) const;

 private:
  static constexpr std::uint32_t kNoPrefix = UINT32_MAX;
  struct Node {
    std::string_view label;
    std::uint32_t number = kNoPrefix;  ///< of the prefix that ends here
    std::uint32_t firstChild = 0;      ///< children stand together, ordered by their labels' first bytes
    std::uint32_t childCount = 0;
  };

  void AddChildren(std::uint32_t parent, const Prefix* first, const Prefix* last, std::size_t depth,
                   std::size_t matchesAbove);
  /// Null: none.
  const Node* ChildFor(const Node& node, char firstByte) const;

  std::vector<Node> nodes_;  ///< the first is the root
  std::size_t mostMatches_ = 0;
};
