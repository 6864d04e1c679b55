#pragma once

// Decides per file whether the user wants it backed up. The first matching rule in index order excludes the file and
// takes the one hit. One thread, no lock; UserWantsThisFileBackedUpEx is not reentrant.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/string.h"
#include "base/vector.h"
#include "selection/rule_index.h"

namespace TqInfoManager {

/// Empties the index (of an earlier load), makes sure that the rule files exist and loads the mandatory, editable and
/// settings rules, in this order. False (logged) when any of them failed; the index then holds what did load.
bool LoadAllExcludeFilenameRulesProperly(TqExcludeFilenameRule* rules, std::int32_t* count);

/// Adds the rules of one data set to the index. False (logged) for a text without any rule, unless `allowEmpty`, for
/// one of 9,998 or more, and for null arguments; the index stays as it was then.
bool ParseExcludeFileNameRules(const TqString* xml, TqExcludeFilenameRule* rules, std::int32_t* count,
                               std::string_view dataSetName, bool allowEmpty = false);

/// True: back the file up. `fileSize` is data plus resource fork, both sizes in bytes. Allocates nothing beyond its
/// process-wide scratch text, but for the first decision by an index, which prepares it for quick ones.
bool UserWantsThisFileBackedUpEx(const TqString& fullPath, std::int64_t fileSize, std::int64_t sizeLimit,
                                 TqExcludeFilenameRule* rules, std::int32_t count);
/// The same for a caller who knows where the path's last component begins.
bool UserWantsThisFileBackedUpEx(const TqString& fullPath, std::size_t nameAt, std::int64_t fileSize,
                                 std::int64_t sizeLimit, TqExcludeFilenameRule* rules, std::int32_t count);

/// Whether settings (as last read), mandatory or editable rules (on disk) exclude the whole directory.
bool DirIsExcludedFromBackupInTqInfo(const TqString& directory);

/// One XML line per rule with its hit count, ascending by count, then by bytes. `lines` is emptied first.
bool CollectStringArrayOfExcludeRulesWithHitCounts(const TqExcludeFilenameRule* rules, std::int32_t count,
                                                   TqStringVector* lines);

}  // namespace TqInfoManager
