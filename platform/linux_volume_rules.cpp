#include "platform/linux_volume_rules.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace platform {
namespace {

using std::string_view_literals::operator""sv;

constexpr std::string_view kVolumesFolder = "/Volumes/";

constexpr std::string_view kWindowsShareTypes[] = {"cifs"sv, "smb3"sv, "smbfs"sv};

constexpr std::string_view kNetworkTypes[] = {
    "nfs"sv,  "nfs4"sv, "cifs"sv,   "smb3"sv,      "smbfs"sv, "ncpfs"sv, "afs"sv,
    "coda"sv, "ceph"sv, "lustre"sv, "glusterfs"sv, "davfs"sv, "gpfs"sv,
};

// The part behind "fuse." of file systems in user space whose files lie elsewhere.
constexpr std::string_view kRemoteFuseTypes[] = {
    "sshfs"sv,    "s3fs"sv,    "rclone"sv,  "glusterfs"sv, "ceph"sv,      "ceph-fuse"sv,     "curlftpfs"sv,
    "davfs"sv,    "davfs2"sv,  "gcsfuse"sv, "goofys"sv,    "smbnetfs"sv,  "mountpoint-s3"sv, "gvfsd-fuse"sv,
    "blobfuse"sv, "juicefs"sv, "httpfs"sv,  "fuse_dfs"sv,  "httpdirfs"sv, "blobfuse2"sv,     "google-drive-ocamlfuse"sv,
};

constexpr std::string_view kPseudoTypes[] = {
    "proc"sv,    "sysfs"sv,       "devtmpfs"sv, "devpts"sv, "cgroup"sv,     "cgroup2"sv,  "securityfs"sv,
    "debugfs"sv, "tracefs"sv,     "configfs"sv, "bpf"sv,    "pstore"sv,     "mqueue"sv,   "hugetlbfs"sv,
    "fusectl"sv, "binfmt_misc"sv, "autofs"sv,   "nsfs"sv,   "rpc_pipefs"sv, "efivarfs"sv, "selinuxfs"sv,
};

constexpr std::string_view kCaseInsensitiveTypes[] = {
    "vfat"sv, "msdos"sv, "exfat"sv, "ntfs"sv, "ntfs3"sv, "fuseblk"sv, "hfs"sv, "hfsplus"sv,
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
