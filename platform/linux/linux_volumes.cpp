#include "platform/linux/linux_volumes.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

#include "platform/linux/kernel_text.h"
#include "platform/linux_texts.h"
#include "platform/linux_volume_rules.h"
#include "platform/property_files.h"

namespace platform {
namespace {

using Uuid = std::array<std::uint8_t, 16>;

constexpr const char* kUuidFolder = "/dev/disk/by-uuid";

// FS_IOC_GETFSUUID of Linux 6.9, struct fsuuid2: not in older headers, ENOTTY from older kernels.
struct FileSystemUuid {
  std::uint8_t length;
  std::uint8_t bytes[16];
};
constexpr unsigned long kGetFileSystemUuid = _IOR(0x15, 0, FileSystemUuid);

int ReadMountTable(std::vector<MountRow>& rows) {
  std::string text;
  const int error = ReadKernelText("/proc/self/mountinfo", text);
  if (error == 0) rows = ParseMountInfo(text);
  return error;
}

std::string WithoutTrailingSlash(const char* mountPoint) {
  std::string path(mountPoint);
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

bool IsDirectory(const std::string& path) {
  struct stat answer;
  return lstat(path.c_str(), &answer) == 0 && S_ISDIR(answer.st_mode);
}

/// The block device behind a volume; 0 when there is none. File systems of several devices have a number of their own,
/// which is none of a device: their source names one.
dev_t BlockDeviceOf(dev_t fileSystemDevice, const std::string& source) {
  if (major(fileSystemDevice) != 0) return fileSystemDevice;
  struct stat answer;
  if (!source.starts_with("/dev/") || stat(source.c_str(), &answer) != 0 || !S_ISBLK(answer.st_mode)) return 0;
  return answer.st_rdev;
}

/// 16 bytes from the file system itself.
bool UuidFromFileSystem(const std::string& mountPoint, Uuid& uuid) {
  const int directory = open(mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
  if (directory < 0) return false;
  FileSystemUuid answer{};
  const bool isGiven = ioctl(directory, kGetFileSystemUuid, &answer) == 0 && answer.length == uuid.size();
  close(directory);
  if (isGiven) std::memcpy(uuid.data(), answer.bytes, uuid.size());
  return isGiven;
}

/// The name under which the device manager lists the device, where that name is a full UUID.
bool UuidFromDeviceLinks(dev_t device, Uuid& uuid) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(kUuidFolder), closedir);
  if (!folder) return false;
  while (const dirent* entry = readdir(folder.get())) {
    Uuid named;
    struct stat answer;
    if (!ParseUuidText(entry->d_name, named) || fstatat(dirfd(folder.get()), entry->d_name, &answer, 0) != 0) continue;
    if (!S_ISBLK(answer.st_mode) || answer.st_rdev != device) continue;
    uuid = named;
    return true;
  }
  return false;
}

void FillUuid(const std::string& mountPoint, const std::string& source, dev_t fileSystemDevice, Uuid& uuid) {
  uuid.fill(0);
  if (UuidFromFileSystem(mountPoint, uuid)) return;
  const dev_t device = BlockDeviceOf(fileSystemDevice, source);
  if (device != 0) UuidFromDeviceLinks(device, uuid);
}

int FillSizes(const std::string& mountPoint, VolumeAttributes& attributes) {
  struct statvfs figures;
  if (statvfs(mountPoint.c_str(), &figures) != 0) return errno;
  attributes.totalBytes = figures.f_blocks * figures.f_frsize;
  attributes.freeBytes = figures.f_bfree * figures.f_frsize;
  attributes.availableBytes = figures.f_bavail * figures.f_frsize;
  return 0;
}

bool IsMountedReadOnly(const char* mountPoint) {
  struct statvfs figures;
  return statvfs(mountPoint, &figures) == 0 && (figures.f_flag & ST_RDONLY) != 0;
}

std::string DeviceFolder(dev_t device) {
  return "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

std::string DiskName(const std::string& deviceFolder) {
  char target[PATH_MAX];
  const ssize_t length = readlink(deviceFolder.c_str(), target, sizeof target);
  if (length <= 0) return {};
  const std::string path(target, static_cast<std::size_t>(length));
  return path.substr(path.rfind('/') + 1);
}

/// The device's own write protection. A partition's folder lies in that of its disk, whose answer wins: the switch on
/// the medium protects all of it.
std::optional<bool> IsDeviceReadOnly(const std::string& deviceFolder) {
  const bool isPartition = access((deviceFolder + "/partition").c_str(), F_OK) == 0;
  std::string text;
  if (ReadKernelText((deviceFolder + (isPartition ? "/../ro" : "/ro")).c_str(), text) != 0) return std::nullopt;
  const std::optional<std::uint64_t> flag = ParseKernelNumber(text);
  if (!flag) return std::nullopt;
  return *flag != 0;
}

}  // namespace

int LinuxVolumes::ListMountedVolumes(std::vector<MountedVolume>& volumes) {
  volumes.clear();
  std::vector<MountRow> rows;
  const int error = ReadMountTable(rows);
  if (error != 0) return error;
  for (std::string& mountPoint : SelectVolumeMountPoints(MountTable(std::move(rows)))) {
    if (!IsDirectory(mountPoint)) continue;  // a single file can be mounted, too
    MountedVolume volume;
    volume.path = std::move(mountPoint);
    volume.isLocal = true;
    volume.isBrowsable = true;
    volumes.push_back(std::move(volume));
  }
  return 0;
}

int LinuxVolumes::QueryVolume(const char* mountPoint, VolumeAttributes& attributes) {
  attributes = VolumeAttributes{};
  const std::string path = WithoutTrailingSlash(mountPoint);
  const bool isRoot = path == "/";
  struct stat facts;
  if (lstat(path.c_str(), &facts) != 0) return errno;
  std::vector<MountRow> rows;
  const int error = ReadMountTable(rows);
  if (error != 0 && !isRoot) return error;
  const MountTable table(std::move(rows));
  // "/" may have no row: the process's root can lie inside a file system.
  static const MountRow kUnlisted;
  const MountRow* listed = table.VisibleAt(path);
  if (!isRoot && (listed == nullptr || !S_ISDIR(facts.st_mode))) return EINVAL;
  const MountRow& row = listed == nullptr ? kUnlisted : *listed;
  attributes.isLocal = isRoot || !IsNetworkType(row.type);
  attributes.isCaseSensitive = IsCaseSensitiveType(row.type);
  attributes.isCasePreserving = IsCasePreservingType(row.type);
  attributes.deviceName = row.source;
  FillUuid(path, row.source, facts.st_dev, attributes.uuid);
  return FillSizes(path, attributes);
}

MediaWalk LinuxVolumes::WalkMedia(const char* mountPoint, const std::string& deviceName) {
  MediaWalk walk;
  walk.foundByDeviceName = deviceName.starts_with("/dev/");
  const std::string path = WithoutTrailingSlash(mountPoint);
  struct stat facts;
  if (lstat(path.c_str(), &facts) != 0) return walk;
  std::vector<MountRow> rows;
  ReadMountTable(rows);
  const MountTable table(std::move(rows));
  const MountRow* row = table.VisibleAt(path);
  if (row == nullptr && path != "/") return walk;
  const std::string type = row == nullptr ? std::string() : row->type;
  const dev_t device = BlockDeviceOf(facts.st_dev, deviceName);
  const std::string folder = DeviceFolder(device);
  const std::optional<bool> isReadOnly = device == 0 ? std::nullopt : IsDeviceReadOnly(folder);
  const std::string diskName = device == 0 ? std::string() : DiskName(folder);
  walk.objects.push_back(MediumOf(type, diskName, isReadOnly, IsMountedReadOnly(path.c_str())));
  return walk;
}

int LinuxVolumes::ReadSkippedMounts(std::vector<MountTableRow>& skipped) {
  std::vector<MountRow> rows;
  const int error = ReadMountTable(rows);
  if (error == 0) skipped = SelectSkippedMounts(MountTable(std::move(rows)));
  return error;
}

PropertyListStatus LinuxVolumes::ReadBackupDestinations(const char* path, std::vector<DestinationValue>& values) {
  values.clear();
  PropertyValue list;
  const PropertyListStatus status = ReadPropertyDictionary(path, list);
  if (status == PropertyListStatus::kOk) CollectDestinationValues(list, values);
  return status;
}

}  // namespace platform
