#pragma once

// A volume's identity: the vguid in ".tqvol/tqvol_id.xml" at its root, together with the host GUID that assigned it.
// The system volume's identity lives in <data>/tqvol_system_volume/. A ".tqvol" that is a symbolic link counts as
// missing for every reader.

#include <string_view>

#include "base/string.h"
#include "volumes/volume_info.h"

namespace TqFile {

/// <mount>/.tqvol/ or, for "/", <data>/tqvol_system_volume/
TqString IdentityFolder(std::string_view mountPoint);
inline constexpr std::string_view kIdentityFileName = "tqvol_id.xml";

/// Whether an identity file is in `folder` (ends in "/"). One behind a linked folder is not: a volume never borrows an
/// identity through a link.
bool IdentityFileExists(std::string_view folder);
/// An identity file's (or its README's) text; only regular files of at most 64 KiB are opened. `contents` is empty on
/// failure.
bool ReadIdentityFile(std::string_view file, TqString& contents);

/// Creates the identity folder and writes tqvol_id.xml and README.txt. On failure `error` (may be null) receives a
/// short code and an existing identity file is in place again.
bool WriteVolumeGuidIntoDotTqVolDirOnVolume(const char* mountPoint, const char* vguid, const char* associatedHguid,
                                            TqString* error);

/// The system volume's identity file rebuilt from tqinfo.xml; false (logged) when it cannot be.
bool GetSimulatedRootVolumeContents_tqvol_id_xml(TqString& contents);

/// Makes sure that <data>/tqvol_system_volume/tqvol_id.xml exists; logs each step, nothing when it does. Creates the
/// data folder.
void CloneTqVolFolderOfSystemVolumeIntoDataDir_IfNeeded();

/// Whether `volume`, as it was queried, has a vguid that this host assigned.
bool HasIdentityOfThisHost(const TqVolumeInfo& volume);

/// Fills vguid and associatedHguid of `volume` (its mountPointPath is set) from its identity file, repairing the system
/// volume's host GUID when it is another than this host's. A missing file leaves the record as it is, a bad one fills
/// what is valid in it and its faults are logged.
void ReadVolumeIdentity(TqVolumeInfo& volume);

}  // namespace TqFile
