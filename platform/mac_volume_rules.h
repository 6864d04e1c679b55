#pragma once

// What the texts and facts that macOS gives about volumes mean: device names, media objects, mount-table rows. Pure
// rules, so that they can be tested on every system.

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/volumes.h"

namespace platform {

/// How the medium behind a volume's device name is looked up.
struct DeviceLookUp {
  enum class Way {
    kNone,             ///< no name of a local device: network shares, file systems without one
    kDeviceName,       ///< "/dev/disk2s1": by `name` in the device tree
    kDiskArbitration,  ///< "msdos://disk2s1/NAME" of a user-space file system: by `name` from Disk Arbitration
  };
  Way way = Way::kNone;
  std::string name;
  std::string fallbackName;  ///< kDiskArbitration: the disk's own name, for the device tree when the first way fails
};

/// Names of 1,025 characters and more are no device's. For Disk Arbitration a "/" always follows the disk: without one
/// its parser hands an uninitialised buffer on (DADisk.c).
DeviceLookUp LookUpOf(std::string_view deviceName);

/// What the device tree tells about one object; a property that it lacks counts as false.
struct RegistryFacts {
  bool isMedia = false;
  bool isCdMedia = false;
  bool isDvdMedia = false;
  std::optional<bool> whole;
  std::optional<bool> writable;
};

MediaObject MediaObjectOf(const RegistryFacts& facts);

/// The text in a field of fixed size: up to its first NUL, or all of it.
std::string FieldText(std::span<const char> field);

/// The rows of the mount table that no walk enters: shares of Windows servers, whose type the system gives as "smbfs".
std::vector<MountTableRow> SelectSmbMounts(const std::vector<MountTableRow>& rows);

/// `path` without the "/"s at its end; "/" stays.
std::string_view WithoutTrailingSlashes(std::string_view path);

/// Whether `path` (without a "/" at its end) is by its text the mount point that the system spells `mountedOn`. ASCII
/// case is ignored: a case-insensitive volume answers to any.
bool IsSameMountPoint(std::string_view path, std::string_view mountedOn);

/// Whether the file system may know `path` by another text, too, that differs in more than ASCII case: names beyond
/// ASCII are composed or decomposed, and have case, in ways of their own.
bool HasOtherSpellings(std::string_view path);

/// Puts the boot volume in front; the others keep the system's order.
void PutRootFirst(std::vector<MountedVolume>& volumes);

}  // namespace platform
