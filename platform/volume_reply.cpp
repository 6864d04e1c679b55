#include "platform/volume_reply.h"

#include <algorithm>
#include <string>

#include "platform/attribute_reply.h"
#include "platform/byte_reader.h"

namespace platform {
namespace {

// Offsets of the fields; they are aligned to 4 bytes only.
constexpr std::size_t kReturnedVolumeSet = 8;  // the second of the returned set's five groups
constexpr std::size_t kSize = 24;
constexpr std::size_t kFree = 32;
constexpr std::size_t kAvailable = 40;
constexpr std::size_t kMountFlags = 48;
constexpr std::size_t kDeviceReference = 52;
constexpr std::size_t kFormatCapabilities = 60;
constexpr std::size_t kFormatValid = 76;
constexpr std::size_t kUuid = 92;
static_assert(kUuid + 16 == kVolumeReplyFixedBytes);

struct Reference {
  std::int32_t offset;  ///< from the reference itself
  std::uint32_t length;
};

/// The text that the reference names, up to its first NUL.
bool ReadDeviceName(std::span<const std::byte> reply, std::string& name) {
  Reference reference{};
  if (!ByteReader(reply).Read(kDeviceReference, reference)) return false;
  const std::int64_t start = static_cast<std::int64_t>(kDeviceReference) + reference.offset;
  const std::int64_t end = start + reference.length;
  if (start < 0 || end > static_cast<std::int64_t>(reply.size())) return false;
  const auto text = reply.subspan(static_cast<std::size_t>(start), reference.length);
  const auto length = std::find(text.begin(), text.end(), std::byte{0}) - text.begin();
  name.assign(reinterpret_cast<const char*>(text.data()), static_cast<std::size_t>(length));
  return true;
}

void ReadCapabilities(const ByteReader& reply, VolumeAttributes& attributes) {
  std::uint32_t capabilities = 0;
  std::uint32_t valid = 0;
  reply.Read(kFormatCapabilities, capabilities);
  reply.Read(kFormatValid, valid);
  attributes.isCaseSensitive = (capabilities & valid & kFormatCaseSensitive) != 0;
  attributes.isCasePreserving = (capabilities & valid & kFormatCasePreserving) != 0;
}

}  // namespace

bool DecodeVolumeReply(std::span<const std::byte> buffer, VolumeAttributes& attributes) {
  const std::span<const std::byte> reported = ReportedReply(buffer);
  const ByteReader reply(reported);
  attributes = VolumeAttributes{};
  if (reply.Size() < kVolumeReplyFixedBytes) return false;
  std::uint32_t given = 0;
  reply.Read(kReturnedVolumeSet, given);
  if ((given & kVolumeSize) != 0) reply.Read(kSize, attributes.totalBytes);
  if ((given & kVolumeSpaceFree) != 0) reply.Read(kFree, attributes.freeBytes);
  if ((given & kVolumeSpaceAvailable) != 0) reply.Read(kAvailable, attributes.availableBytes);
  std::uint32_t mountFlags = 0;
  if ((given & kVolumeMountFlags) != 0) reply.Read(kMountFlags, mountFlags);
  attributes.isLocal = (mountFlags & kMountIsLocal) != 0;
  if ((given & kVolumeCapabilities) != 0) ReadCapabilities(reply, attributes);
  if ((given & kVolumeUuid) != 0) reply.Read(kUuid, attributes.uuid);
  const bool hasName = (given & kVolumeMountedDevice) != 0;
  return !hasName || ReadDeviceName(reported, attributes.deviceName);
}

}  // namespace platform
