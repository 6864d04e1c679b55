#pragma once

// What the program asks of the file system: facts and single operations, no policy, no logging.
// Every call answers with an errno value, 0 for success; outputs are unspecified on failure unless stated.
// Paths are bytes as the kernel has them, absolute, NUL-terminated; the caller keeps them alive for the call.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

enum class EntryKind : std::uint8_t {
  kRegular,
  kDirectory,
  kSymbolicLink,
  kBlockDevice,
  kCharacterDevice,
  kSocket,
  kFifo,
};

/// The answer to one attribute query about one entry; a final symbolic link is described, never followed.
struct EntryAttributes {
  EntryKind kind = EntryKind::kRegular;
  std::int64_t dataSize = 0;        ///< logical bytes of the data fork
  std::int64_t rsrcSize = 0;        ///< logical bytes of the resource fork; 0 where the system has none
  std::int64_t modTimeSec = 0;      ///< seconds since 1970 GMT
  std::int64_t createTimeSec = 0;   ///< seconds since 1970 GMT; 0 with createTimeNsec 0 means "not reported"
  std::int64_t createTimeNsec = 0;  ///< nanoseconds beside createTimeSec
  std::uint16_t finderFlags = 0;    ///< Finder flags word in host order; 0 where the system has none
  std::uint32_t linkCount = 1;
};

/// What plain `lstat` knows; the fallback when the attribute query fails.
struct StatFacts {
  EntryKind kind = EntryKind::kRegular;
  std::int64_t size = 0;        ///< bytes
  std::int64_t modTimeSec = 0;  ///< seconds since 1970 GMT
  std::uint32_t linkCount = 1;
};

/// Receives the entries of one directory, "." and ".." left out, in the order the system returns them.
class EntryVisitor {
 public:
  virtual ~EntryVisitor() = default;
  /// `name` is valid during the call and NUL-terminated. `queryErrno` is the attribute query's errno; `attributes`
  /// counts only when it is 0. Returning false ends the listing early (which is no error).
  virtual bool OnEntry(std::string_view name, int queryErrno, const EntryAttributes& attributes) = 0;
};

struct ListResult {
  int openErrno = 0;  ///< the directory could not be opened: no entry was visited
  int readErrno = 0;  ///< reading stopped midway: the entries before it were visited
};

enum class OpenMode : std::uint8_t {
  kRead,             ///< read-only; non-blocking, so that a FIFO never hangs the caller
  kWrite,            ///< write-only, created when missing, else as it is; a final symbolic link is refused (ELOOP)
  kAppend,           ///< as kWrite, and always at the end
  kCreateExclusive,  ///< read-write; fails with EEXIST when anything has the name
};

/// Facts of an open descriptor, or of the file that a path reaches through links.
struct FileFacts {
  EntryKind kind = EntryKind::kRegular;
  std::int64_t size = 0;        ///< bytes
  std::int64_t modTimeSec = 0;  ///< seconds since 1970 GMT
  std::uint32_t linkCount = 1;
};

/// Identity of the file system that a path lies on right now. Device numbers are reused at once by the next mount, so
/// the mount's own id belongs to it.
struct MountIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t mountId = 0;
  bool operator==(const MountIdentity&) const = default;
};

/// Owner and permission bits of what a path reaches through links.
struct AccessFacts {
  unsigned userId = 0;
  unsigned groupId = 0;
  unsigned mode = 0;  ///< permission bits (07777)
};

class Files {
 public:
  virtual ~Files() = default;

  /// Lists `path` (a final link is followed), asking one attribute query per entry relative to the open directory,
  /// which is closed on return. A directory that is removed meanwhile just ends. A visitor may list in turn, but each
  /// level of that costs a buffer of its own: walkers collect first and descend afterwards.
  virtual ListResult ListDirectory(const char* path, EntryVisitor& visitor) = 0;

  /// Whether `error`, from listing or querying, tells that the system's privacy protection refuses this program what
  /// the file system itself would give. False on systems without such a protection.
  virtual bool IsPrivacyDenial(int error) = 0;

  /// The same query for one path. ENOENT when nothing has that name.
  virtual int QueryEntry(const char* path, EntryAttributes& attributes) = 0;
  /// Plain `lstat`.
  virtual int Lstat(const char* path, StatFacts& facts) = 0;
  /// The Finder flags word alone (second half of the fallback). Systems without Finder info answer 0 flags.
  virtual int QueryFinderFlags(const char* path, std::uint16_t& finderFlags) = 0;
  /// The operating system's backup-exclusion mark. Systems without one answer false.
  virtual int QueryBackupExclusion(const char* path, bool& excluded) = 0;
  /// `stat`: links are followed.
  virtual int StatThroughLinks(const char* path, FileFacts& facts) = 0;
  /// Owner, group and permission bits (links followed).
  virtual int QueryAccess(const char* path, AccessFacts& facts) = 0;
  /// Device, inode and mount of `path` (links followed).
  virtual int QueryMountIdentity(const char* path, MountIdentity& identity) = 0;

  /// Opens with close-on-exec. A file that is created gets `mode` less the process's umask. The caller closes
  /// `descriptor`.
  virtual int Open(const char* path, OpenMode openMode, unsigned mode, int& descriptor) = 0;
  /// The descriptor is gone in every case; an error tells that earlier writes may not have reached the file.
  virtual int Close(int descriptor) = 0;
  /// One `read`, repeated on EINTR. `got` 0 with result 0 is the end of the file.
  virtual int Read(int descriptor, void* buffer, std::size_t bytes, std::size_t& got) = 0;
  /// Writes until all bytes are out or an error stops it; `written` counts what reached the file either way.
  virtual int Write(int descriptor, const void* buffer, std::size_t bytes, std::size_t& written) = 0;
  /// Absolute position in bytes from the start.
  virtual int Seek(int descriptor, std::int64_t offset) = 0;
  virtual int Empty(int descriptor) = 0;  ///< takes all bytes out of the file
  virtual int StatDescriptor(int descriptor, FileFacts& facts) = 0;
  virtual int ChangeDescriptorMode(int descriptor, unsigned mode) = 0;
  /// Non-blocking exclusive advisory lock on the whole file; EWOULDBLOCK when another holder has it.
  virtual int TryLockExclusive(int descriptor) = 0;

  /// All bytes of the resource fork; ENOTSUP on systems without one.
  virtual int ReadResourceFork(const char* path, std::string& bytes) = 0;
  /// Whether the system's code-signing services find a valid signature; always false on systems without such services.
  virtual bool HasValidCodeSignature(const char* path) = 0;

  virtual int Rename(const char* from, const char* to) = 0;
  virtual int Unlink(const char* path) = 0;
  /// One level; gets exactly `mode`, whatever the umask. EEXIST when the name is taken.
  virtual int MakeDirectory(const char* path, unsigned mode) = 0;
  /// As MakeDirectory, and marks the folder hidden where the system knows such a mark (failing to mark it is no error).
  virtual int MakeHiddenDirectory(const char* path, unsigned mode) = 0;
  /// Gives exactly `mode`. A final link is never followed, and no trailing "/" is allowed (it would make it followed).
  virtual int ChangeMode(const char* path, unsigned mode) = 0;
  /// Creates "<directory>/<prefix>XXXXXX<suffix>" with mode 0600 under a name nobody has and closes it again.
  virtual int MakeTemporaryFile(std::string_view directory, std::string_view prefix, std::string_view suffix,
                                std::string& path) = 0;
};

}  // namespace platform
