#pragma once

// tqdefcon.xml rates each selected volume from 1 (most urgent) to 5 (normal) by how many days ago it was last seen,
// file-listed and pushed.

#include <cstdint>

#include "base/string.h"
#include "volumes/volume_info.h"

namespace TqUiUtil {

TqString TqDefconXmlPath();  ///< <data>/tqreports/tqdefcon.xml

/// 1 ... 5 from days since seen, listed, pushed (-1, unknown, counts as recent).
std::int32_t DefconLevelFor(std::int32_t seenDays, std::int32_t listedDays, std::int32_t pushedDays);

/// Computes and writes the file. Any selected volume that cannot be rated abandons the update (logged); the old file
/// stays.
bool TqVolDefcon_UpdateTqVolumesDefconXmlFile();
/// Reads it. False (logged) for a missing, short or damaged file, and on purpose for a summary outside 1 ... 5: with
/// nothing rated there is nothing to act on. `list` is emptied first.
bool TqVolDefcon_HitDisk_ReadTqDefconXmlFile(std::int32_t* mostCritical, TqVolumeInfoList* list);
/// The same through a process-wide copy that is read again after five minutes.
bool TqVolDefcon_CacheForFiveMinutes_ReadTqDefconXmlFile(std::int32_t* mostCritical, TqVolumeInfoList* list);
/// True with the record filled when an elevated volume is attached whose list is at least 8 days old (the oldest wins).
bool TqVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached(TqVolumeInfo& volume);

/// Drops the five-minute copy (tests).
void ForgetDefconCache();

}  // namespace TqUiUtil
