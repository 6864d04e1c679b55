#include "platform/mac/mac_volumes.h"

#include <CoreFoundation/CoreFoundation.h>
#include <sys/attr.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>

#include "platform/attribute_reply.h"
#include "platform/mac/cf_holder.h"
#include "platform/mac/cf_values.h"
#include "platform/mac/media_lookup.h"
#include "platform/mac_volume_rules.h"
#include "platform/property_files.h"
#include "platform/volume_reply.h"

namespace platform {
namespace {

static_assert(ATTR_VOL_SIZE == kVolumeSize && ATTR_VOL_SPACEFREE == kVolumeSpaceFree);
static_assert(ATTR_VOL_SPACEAVAIL == kVolumeSpaceAvailable && ATTR_VOL_MOUNTFLAGS == kVolumeMountFlags);
static_assert(ATTR_VOL_MOUNTEDDEVICE == kVolumeMountedDevice && ATTR_VOL_CAPABILITIES == kVolumeCapabilities);
static_assert(ATTR_VOL_UUID == kVolumeUuid && MNT_LOCAL == kMountIsLocal);
static_assert(VOL_CAP_FMT_CASE_SENSITIVE == kFormatCaseSensitive && VOL_CAPABILITIES_FORMAT == 0);
static_assert(VOL_CAP_FMT_CASE_PRESERVING == kFormatCasePreserving);
static_assert(kMostVolumeReplyBytes >= kVolumeReplyFixedBytes + MAXPATHLEN);

constexpr std::size_t kMostErrorTextBytes = 1000;
constexpr std::size_t kMostPathBytes = 1024;
constexpr const char* kDestinationKeys[] = {"Destinations", "DestinationUUIDs"};

CfHolder<CFArrayRef> VolumeKeys() {
  const void* keys[] = {kCFURLVolumeIsLocalKey, kCFURLVolumeIsBrowsableKey};
  return CfHolder<CFArrayRef>(CFArrayCreate(kCFAllocatorDefault, keys, std::size(keys), &kCFTypeArrayCallBacks));
}

/// Empty when the path cannot be had.
std::string PathOf(CFURLRef url) {
  UInt8 path[kMostPathBytes] = {};
  if (!CFURLGetFileSystemRepresentation(url, true, path, sizeof path)) return {};
  return reinterpret_cast<const char*>(path);
}

bool FlagIn(CFDictionaryRef properties, CFStringRef key) {
  const auto flag = CfCast<CFBooleanRef>(CFDictionaryGetValue(properties, key), CFBooleanGetTypeID());
  return flag != nullptr && CFBooleanGetValue(flag) != 0;
}

/// `error` may be null: the call failed without saying why.
VolumePropertyError DescribeError(CFErrorRef error) {
  VolumePropertyError facts;
  if (error == nullptr) return facts;
  facts.domain = TextOf(CFErrorGetDomain(error), kMostErrorTextBytes);
  facts.code = CFErrorGetCode(error);
  const CfHolder<CFStringRef> description(CFErrorCopyDescription(error));
  facts.hasDescription = static_cast<bool>(description);
  facts.description = TextOf(description.Get(), kMostErrorTextBytes);
  const CfHolder<CFStringRef> reason(CFErrorCopyFailureReason(error));
  facts.hasReason = static_cast<bool>(reason);
  facts.reason = TextOf(reason.Get(), kMostErrorTextBytes);
  return facts;
}

MountedVolume DescribeVolume(CFURLRef url, CFArrayRef keys) {
  MountedVolume volume;
  volume.path = PathOf(url);
  CfHolder<CFErrorRef> error;
  const CfHolder<CFDictionaryRef> properties(CFURLCopyResourcePropertiesForKeys(url, keys, error.Receive()));
  if (!properties) {
    volume.error = DescribeError(error.Get());
    return volume;
  }
  // The system's own helper volumes, the one that "/Users" really lies on among them, are not browsable: a list of the
  // volumes that are both never holds the boot disk's files twice.
  volume.isLocal = FlagIn(properties.Get(), kCFURLVolumeIsLocalKey);
  volume.isBrowsable = FlagIn(properties.Get(), kCFURLVolumeIsBrowsableKey);
  return volume;
}

int ReadVolumeReply(const char* path, VolumeAttributes& attributes) {
  attrlist request{};
  request.bitmapcount = ATTR_BIT_MAP_COUNT;
  // Packing invalid attributes needs the returned set. Unlike the entry query this one has no form without it, which
  // only systems before 10.6 would need.
  request.commonattr = ATTR_CMN_RETURNED_ATTRS;
  request.volattr = ATTR_VOL_INFO | kVolumeSize | kVolumeSpaceFree | kVolumeSpaceAvailable | kVolumeMountFlags |
                    kVolumeMountedDevice | kVolumeCapabilities | kVolumeUuid;
  std::array<std::byte, kMostVolumeReplyBytes> reply{};
  const unsigned options = FSOPT_NOFOLLOW | FSOPT_REPORT_FULLSIZE | FSOPT_PACK_INVAL_ATTRS;
  if (getattrlist(path, &request, reply.data(), reply.size(), options) != 0) return errno;
  return DecodeVolumeReply(reply, attributes) ? 0 : EBADMSG;
}

/// Neither path is followed when it is a link.
bool IsSameFolder(const std::string& path, const std::string& other) {
  struct stat facts;
  struct stat otherFacts;
  return lstat(path.c_str(), &facts) == 0 && lstat(other.c_str(), &otherFacts) == 0 &&
         facts.st_dev == otherFacts.st_dev && facts.st_ino == otherFacts.st_ino;
}

/// EINVAL when something else than `path` is the mount point that it lies on.
int CheckIsMountPoint(const std::string& path) {
  struct statfs mount;
  if (statfs(path.c_str(), &mount) != 0) return errno;
  const std::string mountedOn = FieldText(mount.f_mntonname);
  if (IsSameMountPoint(path, mountedOn)) return 0;
  return HasOtherSpellings(path) && IsSameFolder(path, mountedOn) ? 0 : EINVAL;
}

MountTableRow RowOf(const struct statfs& mount) {
  return {FieldText(mount.f_mntonname), FieldText(mount.f_mntfromname), FieldText(mount.f_fstypename)};
}

}  // namespace

int MacVolumes::ListMountedVolumes(std::vector<MountedVolume>& volumes) {
  volumes.clear();
  const CfHolder<CFArrayRef> keys = VolumeKeys();
  if (!keys) return ENOMEM;
  const CfHolder<CFURLEnumeratorRef> enumerator(
      CFURLEnumeratorCreateForMountedVolumes(kCFAllocatorDefault, kCFURLEnumeratorDefaultBehavior, keys.Get()));
  if (!enumerator) return ENOMEM;
  CFURLEnumeratorResult step = kCFURLEnumeratorSuccess;
  while (step == kCFURLEnumeratorSuccess) {
    CFURLRef url = nullptr;      // borrowed from the enumerator
    CfHolder<CFErrorRef> error;  // owned
    step = CFURLEnumeratorGetNextURL(enumerator.Get(), &url, error.Receive());
    if (step == kCFURLEnumeratorSuccess && url != nullptr) volumes.push_back(DescribeVolume(url, keys.Get()));
  }
  const auto pathless = std::erase_if(volumes, [](const MountedVolume& volume) { return volume.path.empty(); });
  PutRootFirst(volumes);
  // No system is without its boot volume: none at all is a failure, too.
  return step != kCFURLEnumeratorEnd || pathless > 0 || volumes.empty() ? EIO : 0;
}

int MacVolumes::QueryVolume(const char* mountPoint, VolumeAttributes& attributes) {
  // Without the trailing "/", or a link in the volume's place would be followed.
  const std::string path(WithoutTrailingSlashes(mountPoint));
  const int error = ReadVolumeReply(path.c_str(), attributes);
  // The query answers for the volume that the path lies on: a folder left behind in "/Volumes", or a link to the boot
  // volume there, would get the boot volume's figures.
  return error != 0 || path == "/" ? error : CheckIsMountPoint(path);
}

MediaWalk MacVolumes::WalkMedia(const char*, const std::string& deviceName) {
  return WalkMediaOf(deviceName);
}

int MacVolumes::ReadSkippedMounts(std::vector<MountTableRow>& rows) {
  rows.clear();
  struct statfs* mounts = nullptr;  // the system library's own: not to be freed, overwritten by the next call
  const int count = getmntinfo(&mounts, MNT_NOWAIT);  // waiting would hang on a dead server
  if (count <= 0) return errno;
  std::vector<MountTableRow> all;
  for (int i = 0; i < count; ++i) all.push_back(RowOf(mounts[i]));
  rows = SelectSmbMounts(all);
  return 0;
}

PropertyListStatus MacVolumes::ReadBackupDestinations(const char* path, std::vector<DestinationValue>& values) {
  values.clear();
  PropertyValue list;
  const PropertyListStatus status = ReadPropertyDictionary(path, kDestinationKeys, list);
  if (status == PropertyListStatus::kOk) CollectDestinationValues(list, values);
  return status;
}

}  // namespace platform
