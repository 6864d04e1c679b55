#pragma once

// The index that holds the exclusion rules: one array entry per distinct prefix ("unique startsWith" group), from it a
// chain of one node per distinct extension, from each of those a chain of the further rules with that prefix and
// extension. The order of the chains decides which of several matching rules gets a file's hit, so the insertion with
// its quirks is part of the behaviour.

#include <cstdint>
#include <string_view>

#include "base/string.h"
#include "base/vector.h"

/// One rule; texts are C-allocated lower-case copies, null stands for "*". Nodes are never freed during a run.
struct TqExcludeFilenameRule {
  char* skipFirstCharThenStartsWith = nullptr;  ///< null in the catch-all group's entry
  std::int64_t hitCount = 0;                    ///< files this rule excluded since load
  char* contains_1 = nullptr;
  char* contains_2 = nullptr;
  TqStringVector* doesNotContain = nullptr;
  char* endsWith = nullptr;
  char* hasFileExtension = nullptr;
  TqExcludeFilenameRule* nextSameExtension = nullptr;   ///< next rule of the same prefix and extension
  TqExcludeFilenameRule* nextExtensionGroup = nullptr;  ///< first rule of the prefix's next extension
};

/// One rule element while it is read: the lower-cased criteria, "*" for one that is not used, and where they stand.
struct TqParsedRule {
  std::int32_t number = 0;  ///< position in its data set, from 0
  std::string_view snippet;
  std::string_view dataSetName;
  TqString skipFirstCharThenStartsWith;
  TqString contains_1;
  TqString contains_2;
  TqString doesNotContain;  ///< texts joined by "|"
  TqString endsWith;
  TqString hasFileExtension;
};

namespace TqInfoManager {

inline constexpr std::int32_t kMaxRuleGroups = 10'000;

/// The process-wide index and its number of used entries.
extern TqExcludeFilenameRule tqExcludeFilenameRules[kMaxRuleGroups];
extern std::int32_t num_tqExcludeFilenameRules;

/// Puts one rule into the index. Duplicates, rules of a group beyond kMaxRuleGroups and rules for which there is no
/// memory are logged and dropped.
void InsertRuleWithSameSkipFirstCharThenStartsWith(const TqParsedRule& parsed, TqExcludeFilenameRule* rules,
                                                   std::int32_t& count);

/// While rules are added, the catch-all group carries the prefix "*" ...
void OpenCatchAllGroup(TqExcludeFilenameRule* rules, std::int32_t count);
/// ... and afterwards it is the last entry and its prefix is null.
void MoveCatchAllGroupToEnd(TqExcludeFilenameRule* rules, std::int32_t count);

/// Counts the changes of all indexes: what was derived from one holds as long as this number stays the same.
std::uint64_t RuleIndexChanges();

/// Frees every rule of an index and empties it (tests, and reloads).
void FreeRules(TqExcludeFilenameRule* rules, std::int32_t* count);

}  // namespace TqInfoManager
