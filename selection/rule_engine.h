#pragma once

// Decides per file whether the user wants it backed up. The rules live in a three-level index: one array entry per
// distinct prefix ("unique startsWith" group), from it a chain of one node per distinct extension, from each of those a
// chain of the further rules with that prefix and extension. The first matching rule in index order takes the one hit,
// so the order of insertion with its quirks is part of the behaviour. One thread, no lock; UserWantsThisFileBackedUpEx
// is not reentrant.

#include <cstdint>
#include <string_view>

#include "base/string.h"
#include "base/vector.h"

/// One rule; texts are C-allocated lower-case copies, null stands for "*". Nodes are never freed during a run.
struct TqExcludeFilenameRule {
  char* skipFirstCharThenStartsWith = nullptr;  ///< null in the catch-all group
  std::int64_t hitCount = 0;                    ///< files this rule excluded since load
  char* contains_1 = nullptr;
  char* contains_2 = nullptr;
  TqStringVector* doesNotContain = nullptr;
  char* endsWith = nullptr;
  char* hasFileExtension = nullptr;
  TqExcludeFilenameRule* nextSameExtension = nullptr;   ///< next rule of the same prefix and extension
  TqExcludeFilenameRule* nextExtensionGroup = nullptr;  ///< first rule of the prefix's next extension
};

namespace TqInfoManager {

inline constexpr std::int32_t kMaxRuleGroups = 10'000;

/// The process-wide index and its number of used entries.
extern TqExcludeFilenameRule tqExcludeFilenameRules[kMaxRuleGroups];
extern std::int32_t num_tqExcludeFilenameRules;

/// Loads the mandatory, editable and settings rules, in this order. False (logged) when any of them failed; the index
/// then holds what did load.
bool LoadAllExcludeFilenameRulesProperly(TqExcludeFilenameRule* rules, std::int32_t* count);

/// Adds the rules of one data set to the index. `allowEmpty` lets a text without any rule count as loaded.
bool ParseExcludeFileNameRules(const TqString* xml, TqExcludeFilenameRule* rules, std::int32_t* count,
                               std::string_view dataSetName, bool allowEmpty = false);

/// True: back the file up. `fileSize` is data plus resource fork, both sizes in bytes. Allocates nothing beyond its
/// process-wide scratch texts.
bool UserWantsThisFileBackedUpEx(const TqString& fullPath, std::int64_t fileSize, std::int64_t sizeLimit,
                                 TqExcludeFilenameRule* rules, std::int32_t count);

/// Whether settings, mandatory or editable rules exclude the whole directory.
bool DirIsExcludedFromBackupInTqInfo(const TqString& directory);

/// One XML line per rule with its hit count, ascending by count, then by bytes. `lines` is emptied first.
bool CollectStringArrayOfExcludeRulesWithHitCounts(const TqExcludeFilenameRule* rules, std::int32_t count,
                                                   TqStringVector* lines);

/// Frees every rule of an index and empties it (tests, and reloads).
void FreeRules(TqExcludeFilenameRule* rules, std::int32_t* count);

}  // namespace TqInfoManager
