#pragma once

// Which mounts of a Linux system count as volumes, and what their types say. Pure rules over the mount table, so that
// they can be tested on every system.

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/mount_info.h"
#include "platform/volumes.h"

namespace platform {

/// Whether the file system lies on another machine.
bool IsNetworkType(std::string_view type);
/// Whether it shows the kernel's own state instead of anybody's files. tmpfs does not.
bool IsPseudoType(std::string_view type);
bool IsCaseSensitiveType(std::string_view type);
bool IsCasePreservingType(std::string_view type);

/// Mount points of the volumes: "/" first, then in the table's order every visible mount on "/Volumes/<name>" (one
/// component, not hidden) that is neither pseudo nor network. Whether it is a directory remains to be asked.
std::vector<std::string> SelectVolumeMountPoints(const MountTable& table);

/// The visible mounts that no walk enters: network shares of Windows servers, whose type is given as "smbfs" whichever
/// driver serves them, and pseudo file systems under their own type.
std::vector<MountTableRow> SelectSkippedMounts(const MountTable& table);

/// The one medium behind a local volume. `diskName` is the kernel's name of its block device ("sda1"), empty when there
/// is none; `deviceReadOnly` the device's own answer, where it gave one.
MediaObject MediumOf(std::string_view type, std::string_view diskName, std::optional<bool> deviceReadOnly,
                     bool mountReadOnly);

/// Reads the 8-4-4-4-12 form in either case; false for any other text.
bool ParseUuidText(std::string_view text, std::array<std::uint8_t, 16>& uuid);

}  // namespace platform
