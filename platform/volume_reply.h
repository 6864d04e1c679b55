#pragma once

// What macOS answers to a query for volume attributes, getattrlist(2): bytes in, plain values out. Own constants, tied
// to <sys/attr.h> and <sys/mount.h> by the code that makes the call.

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/volumes.h"

namespace platform {

/// Bytes in front of the device's name, which is the last field. The system's names have at most 1,024 bytes.
inline constexpr std::size_t kVolumeReplyFixedBytes = 108;
inline constexpr std::size_t kMostVolumeReplyBytes = 2048;

/// Bits of the volume attributes in the returned set, ATTR_VOL_...
inline constexpr std::uint32_t kVolumeSize = 0x4;
inline constexpr std::uint32_t kVolumeSpaceFree = 0x8;
inline constexpr std::uint32_t kVolumeSpaceAvailable = 0x10;
inline constexpr std::uint32_t kVolumeMountFlags = 0x4000;
inline constexpr std::uint32_t kVolumeMountedDevice = 0x8000;
inline constexpr std::uint32_t kVolumeCapabilities = 0x20000;
inline constexpr std::uint32_t kVolumeUuid = 0x40000;

/// Bits of the format capabilities, VOL_CAP_FMT_..., and of the mount flags, MNT_LOCAL.
inline constexpr std::uint32_t kFormatCaseSensitive = 0x100;
inline constexpr std::uint32_t kFormatCasePreserving = 0x200;
inline constexpr std::uint32_t kMountIsLocal = 0x1000;

/// The reply to the query for the returned set and the attributes above. What the returned set shows as missing counts
/// as 0, false or empty. False, with `attributes` unspecified, when the reply is too short or the name's reference
/// points outside of it.
bool DecodeVolumeReply(std::span<const std::byte> buffer, VolumeAttributes& attributes);

}  // namespace platform
