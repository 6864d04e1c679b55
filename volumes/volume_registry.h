#pragma once

// tqvolumes.xml: every volume that ever received a vguid on this host, and the last short volume id handed out.

#include <cstdint>
#include <string_view>

#include "base/string.h"
#include "volumes/volume_info.h"

namespace TqUiUtil {

TqString TqVolumesXmlPath();  ///< <data>/tqvolumes.xml

inline constexpr std::int32_t kShortIdLength = 3;
inline constexpr std::string_view kNoShortId = "000";  ///< also the system volume's
/// A vguid's short id: the three characters behind its "v".
inline std::string_view ShortIdOf(std::string_view vguid) {
  return vguid.empty() ? vguid : vguid.substr(1, kShortIdLength);
}

/// Nine tries. False (logged) when the file is missing, unreadable or cut off; the list is empty then. A missing short
/// id is "000".
bool TqVolumesXml_ReadTqVolumesXmlFile(TqString& shortId, TqVolumeInfoList& list);
/// The short id written is the largest, by text, of `shortId` and those in the list's vguids. `staging` adds the mark
/// of a file written before the first settings exist.
bool TqVolumesXml_WriteTqVolumesXmlFile(std::string_view shortId, const TqVolumeInfoList& list, bool staging = false);

/// A new vguid: short id behind the registry's highest, time and hardware address interleaved.
TqString CreateNewTqVolumeGuid();
/// Adds one volume to the registry; a registry that exists but cannot be read is set aside first.
bool TqVolumesXml_AddNewTqVolumeGuid(std::string_view mountPoint, std::string_view vguid);
/// Makes a vguid, writes it to the volume, then adds it to the registry. Creates the data folder.
bool TqVolumesXml_AssignNewTqVolumeGuidToVolume(std::string_view mountPoint);

/// Refreshes the registry from the attached volumes and the selection; one that cannot be read is rebuilt.
void TqVolumesXml_QueryAttachDrives_UpdateTqVolXml();

/// Asks a privileged process, by a request file, to assign a vguid.
void TqVolumesXml_SpawnAsyncTqFilelistAsRootToAssignVolumeGuid(std::string_view mountPoint);

/// True when two attached volumes carry the same vguid: the first such pair's mount points.
bool DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids(TqString& mountA, TqString& mountB);

/// Forgets the process's hardware-address part and last time stamp (tests).
void ForgetGuidState();

}  // namespace TqUiUtil
