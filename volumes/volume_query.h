#pragma once

#include "base/string.h"
#include "base/vector.h"
#include "platform/volumes.h"
#include "volumes/volume_info.h"

namespace TqFile {

/// Fills `volume` for the volume whose mount point is given; `path` is normalised in place (ends in "/"), so callers
/// pass a copy of one they still need. False (logged): null arguments, a path that does not begin with "/", a volume
/// that does not answer; mountPointPath is then empty. A path beginning with "/net" or "/home", or equal to "/volumes",
/// succeeds with type "un" and nothing else filled.
bool GetInfoAboutAttachedVolume(TqString* path, TqVolumeInfo* volume);

/// Volume type and writability from the media behind the volume's device: a medium that counts (not optical; whole,
/// when the walk began at the device's own name) makes an unknown volume "bc" when it holds Windows, else "gm".
void TakeTypeFromMedia(const platform::MediaWalk& walk, bool holdsWindows, TqVolumeInfo& volume);

/// The volume UUIDs of the backup tool's destinations, upper-case. A missing preferences file is true and empty; an
/// unreadable or unparsable one false and empty.
bool GetBackupVolumeUuids(TqStringVector& uuids);

}  // namespace TqFile

namespace TqUiUtil {

/// One record per attached local, browsable volume. `list` is emptied first; false only for null.
bool QueryAllAttachedVolumesForVolumeInfo(TqVolumeInfoList* list);

}  // namespace TqUiUtil
