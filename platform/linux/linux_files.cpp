#include "platform/linux/linux_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {
namespace {

constexpr std::size_t kListingBytes = 256 * 1024;
constexpr unsigned kEntryMask = STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_MTIME | STATX_BTIME | STATX_SIZE;
constexpr int kEntryFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;

// STATX_MNT_ID_UNIQUE, Linux 6.8: an id that is never given again, unlike the plain one. Not in older headers; older
// kernels ignore the bit.
constexpr unsigned kUniqueMountId = 0x4000;

int QueryRelative(int directory, const char* name, EntryAttributes& attributes) {
  struct statx answer;
  if (statx(directory, name, kEntryFlags, kEntryMask, &answer) != 0) return errno;
  attributes = EntryAttributes{};
  attributes.kind = EntryKindOfMode(answer.stx_mode);
  attributes.dataSize = static_cast<std::int64_t>(answer.stx_size);
  attributes.modTimeSec = answer.stx_mtime.tv_sec;
  attributes.linkCount = answer.stx_nlink;
  if ((answer.stx_mask & STATX_BTIME) != 0) {
    attributes.createTimeSec = answer.stx_btime.tv_sec;
    attributes.createTimeNsec = answer.stx_btime.tv_nsec;
  }
  return 0;
}

bool IsDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

/// Hands the records of one filled buffer to the visitor; false when it wants no more.
bool VisitRecords(int directory, const char* buffer, std::size_t bytes, EntryVisitor& visitor) {
  EntryAttributes attributes;
  for (std::size_t at = 0; at < bytes;) {
    const auto* record = reinterpret_cast<const dirent64*>(buffer + at);
    at += record->d_reclen;
    const char* name = record->d_name;
    if (IsDotOrDotDot(name)) continue;
    const int error = QueryRelative(directory, name, attributes);
    if (!visitor.OnEntry(std::string_view(name), error, attributes)) return false;
  }
  return true;
}

/// An errno value, 0 at the end of the directory or when the visitor stopped.
int ReadRecords(int directory, const char* path, char* buffer, EntryVisitor& visitor) {
  for (;;) {
    const ssize_t bytes = getdents64(directory, buffer, kListingBytes);
    if (bytes == 0) return 0;
    if (bytes < 0 && errno == EINTR) continue;
    if (bytes < 0) return ReadErrnoOf(path, errno);
    if (!VisitRecords(directory, buffer, static_cast<std::size_t>(bytes), visitor)) return 0;
  }
}

}  // namespace

ListResult LinuxFiles::ListDirectory(const char* path, EntryVisitor& visitor) {
  ListResult result;
  int directory = -1;
  do {
    directory = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
  } while (directory < 0 && errno == EINTR);
  if (directory < 0) {
    result.openErrno = errno;
    return result;
  }
  std::unique_ptr<char[]> buffer = std::move(kept_);
  if (!buffer) buffer = std::make_unique_for_overwrite<char[]>(kListingBytes);
  result.readErrno = ReadRecords(directory, path, buffer.get(), visitor);
  kept_ = std::move(buffer);
  close(directory);
  return result;
}

int LinuxFiles::QueryEntry(const char* path, EntryAttributes& attributes) {
  return QueryRelative(AT_FDCWD, path, attributes);
}

int LinuxFiles::QueryFinderFlags(const char*, std::uint16_t& finderFlags) {
  finderFlags = 0;
  return 0;
}

int LinuxFiles::QueryBackupExclusion(const char*, bool& excluded) {
  excluded = false;
  return 0;
}

int LinuxFiles::ReadResourceFork(const char*, std::string& bytes) {
  bytes.clear();
  return ENOTSUP;
}

int LinuxFiles::QueryMountIdentity(const char* path, MountIdentity& identity) {
  struct statx answer;
  if (statx(AT_FDCWD, path, AT_NO_AUTOMOUNT, STATX_INO | STATX_MNT_ID | kUniqueMountId, &answer) != 0) return errno;
  identity.device = makedev(answer.stx_dev_major, answer.stx_dev_minor);
  identity.inode = answer.stx_ino;
  const bool hasMountId = (answer.stx_mask & (STATX_MNT_ID | kUniqueMountId)) != 0;
  identity.mountId = hasMountId ? answer.stx_mnt_id : 0;
  return 0;
}

}  // namespace platform
