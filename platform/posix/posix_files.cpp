#include "platform/posix/posix_files.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace platform {
namespace {

// One call moves no more than this: some systems refuse 2 GiB and more with EINVAL, others cut it short.
constexpr std::size_t kMostBytesPerCall = std::size_t{1} << 30;

/// Repeats `call` while a signal interrupts it.
template <typename Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

int ErrnoOf(int result) {
  return result == 0 ? 0 : errno;
}

template <typename Facts>
void FillFacts(const struct stat& from, Facts& facts) {
  facts.kind = EntryKindOfMode(from.st_mode);
  facts.size = from.st_size;
  facts.modTimeSec = from.st_mtime;
  facts.linkCount = static_cast<std::uint32_t>(from.st_nlink);
}

int FlagsOf(OpenMode openMode) {
  switch (openMode) {
    case OpenMode::kRead:
      return O_RDONLY;
    case OpenMode::kWrite:
      return O_WRONLY | O_CREAT | O_NOFOLLOW;
    case OpenMode::kAppend:
      return O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW;
    case OpenMode::kCreateExclusive:
      return O_RDWR | O_CREAT | O_EXCL;
  }
  return O_RDONLY;
}

}  // namespace

EntryKind EntryKindOfMode(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return EntryKind::kDirectory;
    case S_IFLNK:
      return EntryKind::kSymbolicLink;
    case S_IFBLK:
      return EntryKind::kBlockDevice;
    case S_IFCHR:
      return EntryKind::kCharacterDevice;
    case S_IFSOCK:
      return EntryKind::kSocket;
    case S_IFIFO:
      return EntryKind::kFifo;
    default:
      return EntryKind::kRegular;
  }
}

int ReadErrnoOf(const char* path, int error) {
  struct stat facts;
  const bool isGone = error == ENOENT && lstat(path, &facts) != 0 && errno == ENOENT;
  return isGone ? 0 : error;
}

int PosixFiles::Lstat(const char* path, StatFacts& facts) {
  struct stat answer;
  if (lstat(path, &answer) != 0) return errno;
  FillFacts(answer, facts);
  return 0;
}

int PosixFiles::StatThroughLinks(const char* path, FileFacts& facts) {
  struct stat answer;
  if (stat(path, &answer) != 0) return errno;
  FillFacts(answer, facts);
  return 0;
}

int PosixFiles::QueryAccess(const char* path, AccessFacts& facts) {
  struct stat answer;
  if (stat(path, &answer) != 0) return errno;
  facts.userId = answer.st_uid;
  facts.groupId = answer.st_gid;
  facts.mode = answer.st_mode & 07777;
  return 0;
}

int PosixFiles::Open(const char* path, OpenMode openMode, unsigned mode, int& descriptor) {
  // Non-blocking in every mode: whoever puts a FIFO in a file's place must not hang the program, reading or writing.
  const int flags = FlagsOf(openMode) | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  const int opened = Uninterrupted([&] { return open(path, flags, static_cast<mode_t>(mode)); });
  if (opened < 0) return errno;
  descriptor = opened;
  return 0;
}

int PosixFiles::Close(int descriptor) {
  // Never repeated: after EINTR the descriptor is gone, and its number may be another file's already.
  return close(descriptor) == 0 || errno == EINTR ? 0 : errno;
}

int PosixFiles::Read(int descriptor, void* buffer, std::size_t bytes, std::size_t& got) {
  const std::size_t piece = std::min(bytes, kMostBytesPerCall);
  const ssize_t result = Uninterrupted([&] { return read(descriptor, buffer, piece); });
  if (result < 0) return errno;
  got = static_cast<std::size_t>(result);
  return 0;
}

int PosixFiles::Write(int descriptor, const void* buffer, std::size_t bytes, std::size_t& written) {
  const char* from = static_cast<const char*>(buffer);
  written = 0;
  while (written < bytes) {
    const std::size_t piece = std::min(bytes - written, kMostBytesPerCall);
    const ssize_t result = Uninterrupted([&] { return write(descriptor, from + written, piece); });
    if (result < 0) return errno;
    if (result == 0) return EIO;  // no progress and no reason: never loop on it
    written += static_cast<std::size_t>(result);
  }
  return 0;
}

int PosixFiles::Seek(int descriptor, std::int64_t offset) {
  return lseek(descriptor, static_cast<off_t>(offset), SEEK_SET) < 0 ? errno : 0;
}

int PosixFiles::Empty(int descriptor) {
  return ErrnoOf(Uninterrupted([&] { return ftruncate(descriptor, 0); }));
}

int PosixFiles::StatDescriptor(int descriptor, FileFacts& facts) {
  struct stat answer;
  if (fstat(descriptor, &answer) != 0) return errno;
  FillFacts(answer, facts);
  return 0;
}

int PosixFiles::ChangeDescriptorMode(int descriptor, unsigned mode) {
  return ErrnoOf(fchmod(descriptor, static_cast<mode_t>(mode)));
}

int PosixFiles::TryLockExclusive(int descriptor) {
  return ErrnoOf(Uninterrupted([&] { return flock(descriptor, LOCK_EX | LOCK_NB); }));
}

int PosixFiles::Rename(const char* from, const char* to) {
  return ErrnoOf(rename(from, to));
}

int PosixFiles::Unlink(const char* path) {
  return ErrnoOf(unlink(path));
}

int PosixFiles::MakeDirectory(const char* path, unsigned mode) {
  // Not mkdir and then chmod: in a folder that everybody may write to, somebody could put a link in the new folder's
  // place between the two. The umask belongs to the process, which has one thread.
  const mode_t former = umask(0);
  const int error = ErrnoOf(mkdir(path, static_cast<mode_t>(mode)));
  umask(former);
  return error;
}

int PosixFiles::ChangeMode(const char* path, unsigned mode) {
  return ErrnoOf(fchmodat(AT_FDCWD, path, static_cast<mode_t>(mode), AT_SYMLINK_NOFOLLOW));
}

int PosixFiles::MakeTemporaryFile(std::string_view directory, std::string_view prefix, std::string_view suffix,
                                  std::string& path) {
  std::string name(directory);
  name.append("/").append(prefix).append("XXXXXX").append(suffix);
  const int descriptor = mkstemps(name.data(), static_cast<int>(suffix.size()));
  if (descriptor < 0) return errno;
  Close(descriptor);
  path = std::move(name);
  return 0;
}

}  // namespace platform
