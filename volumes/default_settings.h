#pragma once

// The settings file's birth and its selection of volumes: what joins the settings' text with the attached volumes and
// their identities.

#include <string_view>

#include "base/string.h"
#include "base/vector.h"
#include "volumes/volume_info.h"

namespace TqInfoManager {

/// Writes the default settings file for the volumes attached now: every "gm" volume gets a vguid where it has none of
/// this host's and is selected. Creates the data folder. An existing file is refused, and no registry entry is dropped.
/// With `onlyMountPoints` (each with its trailing "/") the other volumes are neither selected nor written to. False
/// (logged) on failure.
bool CreateDefault_tqinfo_xml(std::string_view path, const TqStringVector& onlyMountPoints = {});

/// Rewrites the selection in the settings file; a null or empty list is refused (logged) and changes nothing.
bool SetVolumesSelectedForBackup(const TqVolumeInfoList* volumes);
/// The same for volumes named by mount point alone: each must be attached and have a vguid, else nothing changes.
bool SetVolumesSelectedForBackupEX(const TqStringVector& mountPoints);

}  // namespace TqInfoManager
