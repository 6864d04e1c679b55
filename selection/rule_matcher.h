#pragma once

// Finds the first rule in index order that excludes a path without asking every rule. It is built from an index after
// loading; the index alone says what the rules are and in which order they count.
//
// A rule is filed in its prefix's group under one key: something that a path must show before the rule can match,
// namely a text that it holds, else its extension, else nothing at all. For a path the matcher collects the groups
// whose prefix it begins with and the keys that it shows, and evaluates the rules filed under both, each with all its
// criteria.

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "base/hash_table.h"
#include "base/remembered_extension.h"
#include "selection/prefix_tree.h"
#include "selection/rule_index.h"
#include "selection/text_finder.h"

namespace TqInfoManager {

/// A path as the rules judge it: lower-case, without an external volume's name.
struct TqJudgedPath {
  std::string_view text;      ///< a NUL byte stands behind it and none within
  bool onlyCatchAll = false;  ///< no group with a prefix applies
};

class TqRuleMatcher {
 public:
  /// Whether it was built from this index as it is now.
  bool IsBuiltFrom(const TqExcludeFilenameRule* rules, std::int32_t count) const {
    return rules == rules_ && count == count_ && changes_ == RuleIndexChanges();
  }
  void Build(TqExcludeFilenameRule* rules, std::int32_t count);

  /// Looks at a directory ahead of its files: what follows from its path for all of them. Allocates nothing.
  void EnterDirectory(const TqJudgedPath& directory);
  /// The first rule in index order that excludes the path, null when none does. The path begins with the directory
  /// entered last. Allocates nothing.
  TqExcludeFilenameRule* FirstMatch(const TqJudgedPath& path);

 private:
  static constexpr std::uint32_t kAlways = 0;  ///< the key that every path shows
  static constexpr std::uint32_t kNowhere = UINT32_MAX;

  struct FiledRule {
    TqExcludeFilenameRule* rule = nullptr;
    std::uint32_t place = kNowhere;  ///< in index order
    std::uint32_t group = 0;
    std::uint32_t key = kAlways;
  };
  struct Drawer {  ///< the rules of a group under one key
    std::uint32_t key;
    std::uint32_t firstRule;
    std::uint32_t endRule;
  };
  struct Group {  ///< drawers are ordered by key: those for "always", extensions and texts
    std::uint32_t firstDrawer = 0;
    std::uint32_t firstExtensionDrawer = 0;
    std::uint32_t firstTextDrawer = 0;
    std::uint32_t endDrawer = 0;
    std::uint32_t firstTextPlace = kNowhere;  ///< of its rules that are filed under a text
  };
  /// What EnterDirectory found out.
  struct Directory {
    static constexpr std::size_t kMostSightings = 64;
    std::size_t length = 0;
    std::uint32_t* endMatched = nullptr;  ///< behind its groups in `matched_`
    TqPrefixTree::Place place;
    std::size_t sightingCount = 0;  ///< above kMostSightings: too many to note, files are searched whole
    TqTextFinder::Sighting sightings[kMostSightings];
  };

  void CollectRules(TqExcludeFilenameRule* rules, std::int32_t count);
  void ChooseKeys();
  void FileRules();
  void CollectPrefixes();
  std::uint32_t ExtensionKey(std::string_view path);
  void TryText(const TqTextFinder::Sighting& sighting, const std::uint32_t* endMatched, const TqJudgedPath& path,
               const FiledRule*& best) const;
  void TryTexts(const std::uint32_t* endMatched, const TqJudgedPath& path, const FiledRule*& best) const;
  void TryKey(std::uint32_t firstDrawer, std::uint32_t endDrawer, std::uint32_t key, const TqJudgedPath& path,
              const FiledRule*& best) const;
  void TryDrawer(const Drawer& drawer, const TqJudgedPath& path, const FiledRule*& best) const;

  const TqExcludeFilenameRule* rules_ = nullptr;
  std::int32_t count_ = 0;
  std::uint64_t changes_ = 0;

  std::vector<FiledRule> filed_;  ///< by group, key and place
  std::vector<Drawer> drawers_;
  std::vector<Group> groups_;      ///< as in the index
  std::size_t catchAllCount_ = 0;  ///< groups without a prefix; they are the first in `matched_`
  TqPrefixTree prefixes_;
  std::unique_ptr<TqHashTable> extensions_;  ///< to their keys, which begin with 1
  std::uint32_t firstTextKey_ = 1;           ///< a text's key is this plus its number
  TqTextFinder texts_;

  std::vector<std::uint32_t> matched_;  ///< groups that apply: the catch-all ones, the directory's, the file's
  Directory directory_;
  TqRememberedExtension<std::uint32_t> lastExtensionKey_{kAlways};
};

}  // namespace TqInfoManager
