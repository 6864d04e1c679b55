#pragma once

// Changing tqinfo.xml: one setter per element. A setter replaces only what it owns inside the file's text and leaves
// every other byte; the whole text then goes to a temporary name and is swapped in. Setters answer false (logged) and
// leave the file unchanged when it cannot be read, their element is missing, or the write fails.

#include <cstdint>
#include <string_view>
#include <vector>

#include "base/string.h"
#include "selection/settings.h"

namespace TqInfoManager {

bool SetNumDaysWarnWhenNotBackedUp(std::int32_t days);
bool SetShowAnimatedHelpTips(bool show);
bool SetAllowNetworkTests(bool allow);
bool SetUseTimeMachineExcludes(bool use);
/// Inserts the element before `<hard_drives_to_backup>` when the file has none.
bool SetScratchVolume(std::string_view vguid, std::string_view mountPoint);
/// Replaces what the list element holds, or adds it before `</tqinfo>`; an empty list empties the element.
bool SetBlockedNetworkList(const std::vector<TqBlockedNetwork>& networks);
/// Also notes the moment (14-digit GMT) in `online_hostname_updated`.
bool SetOnlineNameForThisComputer(std::string_view name);
bool SetFileTypesToExcludeStr(std::string_view extensions);
/// Replaces `whichfiles` of the filter with the same dir (ignoring ASCII case), else adds a filter; refuses to go
/// beyond TQ_INFO_MAX_NUM_DIR_FILTERS.
bool SetOneTqDirFilter(std::string_view dir, std::string_view whichFiles);
/// Replaces all filters by these.
bool SaveTqDirFiltersToDisk(const std::vector<TqDirFilter>& filters);
bool SaveSmartWatchCheckboxesLineToDisk(std::string_view fileSets);
bool SetBackupSchedule(std::string_view type, std::string_view detail, std::string_view endHour);
/// Writes every attribute of the `do_backup` opening tag that has a setting from `settings`.
bool SaveDoBackupLineToDisk(const TqInfoSettings& settings);
/// Only the login is written; a password never reaches this file.
bool SaveUsernamePasswordIntoTqInfoXml(std::string_view login, std::string_view password);
/// Rewrites `hard_drives_to_backup` and `mountpoints_to_watch`, adds the default filters of a volume that has none and
/// removes none. An empty list is refused.
bool WriteSelectedVolumes(const std::vector<TqSelectedVolume>& volumes);

}  // namespace TqInfoManager
