#include "platform/linux_volume_rules.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace platform {
namespace {

constexpr std::string_view kVolumesFolder = "/Volumes/";

constexpr std::string_view kWindowsShareTypes[] = {"cifs", "smb3", "smbfs"};

constexpr std::string_view kNetworkTypes[] = {
    "nfs", "nfs4", "cifs", "smb3", "smbfs", "ncpfs", "afs", "coda", "ceph", "lustre", "glusterfs", "davfs", "gpfs",
};

// The part behind "fuse." of file systems in user space whose files lie elsewhere.
constexpr std::string_view kRemoteFuseTypes[] = {
    "sshfs",    "s3fs",    "rclone",  "glusterfs", "ceph",      "ceph-fuse",     "curlftpfs",
    "davfs",    "davfs2",  "gcsfuse", "goofys",    "smbnetfs",  "mountpoint-s3", "gvfsd-fuse",
    "blobfuse", "juicefs", "httpfs",  "fuse_dfs",  "httpdirfs", "blobfuse2",     "google-drive-ocamlfuse",
};

constexpr std::string_view kPseudoTypes[] = {
    "proc",    "sysfs",       "devtmpfs", "devpts", "cgroup",     "cgroup2",  "securityfs",
    "debugfs", "tracefs",     "configfs", "bpf",    "pstore",     "mqueue",   "hugetlbfs",
    "fusectl", "binfmt_misc", "autofs",   "nsfs",   "rpc_pipefs", "efivarfs", "selinuxfs",
};

constexpr std::string_view kCaseInsensitiveTypes[] = {
    "vfat", "msdos", "exfat", "ntfs", "ntfs3", "fuseblk", "hfs", "hfsplus",
};

template <std::size_t count>
bool IsOneOf(std::string_view type, const std::string_view (&types)[count]) {
  return std::find(std::begin(types), std::end(types), type) != std::end(types);
}

bool IsVolumePlace(std::string_view mountPoint) {
  if (!mountPoint.starts_with(kVolumesFolder)) return false;
  const std::string_view name = mountPoint.substr(kVolumesFolder.size());
  return !name.empty() && name[0] != '.' && name.find('/') == std::string_view::npos;
}

bool IsVisible(const MountTable& table, const MountRow& row) {
  return table.VisibleAt(row.mountPoint) == &row;
}

int HexValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

}  // namespace

bool IsNetworkType(std::string_view type) {
  constexpr std::string_view kFuse = "fuse.";
  return IsOneOf(type, kNetworkTypes) ||
         (type.starts_with(kFuse) && IsOneOf(type.substr(kFuse.size()), kRemoteFuseTypes));
}

bool IsPseudoType(std::string_view type) {
  return IsOneOf(type, kPseudoTypes);
}

bool IsCaseSensitiveType(std::string_view type) {
  return !IsOneOf(type, kCaseInsensitiveTypes);
}

bool IsCasePreservingType(std::string_view type) {
  return type != "msdos";
}

std::vector<std::string> SelectVolumeMountPoints(const MountTable& table) {
  std::vector<std::string> mountPoints{"/"};
  for (const MountRow& row : table.Rows()) {
    if (!IsVolumePlace(row.mountPoint) || IsNetworkType(row.type) || IsPseudoType(row.type)) continue;
    if (IsVisible(table, row)) mountPoints.push_back(row.mountPoint);
  }
  return mountPoints;
}

std::vector<MountTableRow> SelectSkippedMounts(const MountTable& table) {
  std::vector<MountTableRow> skipped;
  for (const MountRow& row : table.Rows()) {
    const bool isWindowsShare = IsOneOf(row.type, kWindowsShareTypes);
    if ((!isWindowsShare && !IsPseudoType(row.type)) || !IsVisible(table, row)) continue;
    skipped.push_back({row.mountPoint, row.source, isWindowsShare ? "smbfs" : row.type});
  }
  return skipped;
}

MediaObject MediumOf(std::string_view type, std::string_view diskName, std::optional<bool> deviceReadOnly,
                     bool mountReadOnly) {
  MediaObject medium;
  medium.isMedia = true;
  medium.isWhole = true;
  medium.isOptical = type == "iso9660" || diskName.starts_with("sr");
  medium.isWritable = !deviceReadOnly.value_or(mountReadOnly);
  return medium;
}

bool ParseUuidText(std::string_view text, std::array<std::uint8_t, 16>& uuid) {
  if (text.size() != 36) return false;
  std::size_t at = 0;
  for (std::uint8_t& byte : uuid) {
    if ((at == 8 || at == 13 || at == 18 || at == 23) && text[at++] != '-') return false;
    const int high = HexValue(text[at]);
    const int low = HexValue(text[at + 1]);
    if (high < 0 || low < 0) return false;
    byte = static_cast<std::uint8_t>(high * 16 + low);
    at += 2;
  }
  return true;
}

}  // namespace platform
