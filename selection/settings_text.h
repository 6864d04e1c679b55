#pragma once

// What tqinfo.xml is made of: the lines of its lists, and the file that a new client starts with.

#include <string_view>
#include <vector>

#include "base/string.h"
#include "selection/settings.h"

namespace TqInfoManager {

/// One directory filter's line.
TqString FilterLine(const TqDirFilter& filter);
/// One selected volume's line.
TqString VolumeLine(const TqSelectedVolume& volume);
/// The mount points with commas between them.
TqString MountPointsText(const std::vector<TqSelectedVolume>& volumes);
/// A folder as filters have it: lower-cased, with a "/" at its end.
TqString FoldedMountPoint(std::string_view mountPoint);

/// The default file for `volumes` (mount points end in "/"). `onlineHostname` is the computer's name; `scratch` the
/// boot volume.
TqString DefaultTqInfoText(const std::vector<TqSelectedVolume>& volumes, const TqSelectedVolume& scratch,
                           std::string_view onlineHostname);
/// The 17 filters a newly selected volume starts with; `mountPoint` is lower-cased and gets its trailing "/".
std::vector<TqDirFilter> DefaultDirFilters(std::string_view mountPoint);

}  // namespace TqInfoManager
