#pragma once

// The settings' selected volumes joined with the attached ones.

#include "base/string.h"
#include "base/vector.h"
#include "volumes/volume_info.h"

namespace TqInfoManager {

/// One record per volume that the settings select, in file order, attached or not, selected true. Attached ones are
/// copies of the attached record (same vguid; of two such the one at the settings' mount point, else the first); the
/// others hold vguid, mount point and isSystemVolume, and are not connected. `list` is emptied first. False only when
/// no settings were ever read.
bool GetVolumesSelectedForBackup(TqVolumeInfoList& list);

}  // namespace TqInfoManager

namespace TqUiUtil {

/// The per-volume list files of the selected volumes, at most 1,000. False with an empty output when one does not
/// exist.
bool GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(TqStringVector& paths);

/// The selected volumes, then the other attached ones; unconnected entries completed from the registry; sorted for
/// display.
void TqVolumesXml_GetListOfHardDrivesToDisplayInGui(TqVolumeInfoList& list);

/// The volume at the mount point of `path` among the attached ones, else in the registry (most recently seen wins);
/// false when neither knows it or `path` does not begin with "/".
bool GetVolumeInfoFromFilename(std::string_view path, TqVolumeInfo& volume);

}  // namespace TqUiUtil
