#include "platform/mac_volume_rules.h"

#include <algorithm>

namespace platform {
namespace {

constexpr std::size_t kMostDeviceNameBytes = 1024;
constexpr std::string_view kDeviceFolder = "/dev/";
constexpr std::string_view kUserSpaceSchemes[] = {"exfat://", "msdos://"};

/// `disk` is what follows the scheme.
DeviceLookUp UserSpaceLookUp(std::string_view deviceName, std::string_view disk) {
  const std::size_t end = disk.find('/');
  DeviceLookUp lookUp{DeviceLookUp::Way::kDiskArbitration, std::string(deviceName), std::string(disk.substr(0, end))};
  if (end == std::string_view::npos) lookUp.name.push_back('/');
  return lookUp;
}

char Folded(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

DeviceLookUp LookUpOf(std::string_view deviceName) {
  if (deviceName.size() > kMostDeviceNameBytes) return {};
  if (deviceName.starts_with(kDeviceFolder)) {
    return {DeviceLookUp::Way::kDeviceName, std::string(deviceName.substr(kDeviceFolder.size())), {}};
  }
  for (const std::string_view scheme : kUserSpaceSchemes) {
    if (deviceName.starts_with(scheme)) return UserSpaceLookUp(deviceName, deviceName.substr(scheme.size()));
  }
  return {};
}

MediaObject MediaObjectOf(const RegistryFacts& facts) {
  if (!facts.isMedia) return {};
  return {true, facts.isCdMedia || facts.isDvdMedia, facts.whole.value_or(false), facts.writable.value_or(false)};
}

std::string FieldText(std::span<const char> field) {
  return {field.begin(), std::find(field.begin(), field.end(), '\0')};
}

std::vector<MountTableRow> SelectSmbMounts(const std::vector<MountTableRow>& rows) {
  std::vector<MountTableRow> selected;
  std::copy_if(rows.begin(), rows.end(), std::back_inserter(selected),
               [](const MountTableRow& row) { return row.type == "smbfs"; });
  return selected;
}

std::string_view WithoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

bool IsSameMountPoint(std::string_view path, std::string_view mountedOn) {
  return std::equal(path.begin(), path.end(), mountedOn.begin(), mountedOn.end(),
                    [](char a, char b) { return Folded(a) == Folded(b); });
}

bool HasOtherSpellings(std::string_view path) {
  return std::ranges::any_of(path, [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

void PutRootFirst(std::vector<MountedVolume>& volumes) {
  std::stable_partition(volumes.begin(), volumes.end(), [](const MountedVolume& volume) { return volume.path == "/"; });
}

}  // namespace platform
