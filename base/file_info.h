#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/string.h"

/// One file-system entry as the scan needs it. A new record has all numbers 0, all flags false, an empty path,
/// linkCount 1.
class TqFileInfo {
 public:
  /// Room that a record's path has at least, so that records are seldom too small when they are used again.
  static constexpr std::int64_t kUsualPathBytes = 116;

  virtual ~TqFileInfo() = default;

  std::int64_t dataSize = 0;      ///< logical bytes of the data fork; 0 for directories
  std::int64_t rsrcSize = 0;      ///< logical bytes of the resource fork; 0 for directories and special entries
  std::int64_t modTimeMs = 0;     ///< whole seconds since 1970 GMT x 1000
  std::int64_t createTimeMs = 0;  ///< same unit; the modification time when the file system reports none
  bool isDir = false;
  bool isSpecial = false;                               ///< symbolic link, block or character device, socket, FIFO
  TqString path = TqString::WithRoom(kUsualPathBytes);  ///< full path
  bool isPackage = false;       ///< directories: bundle flag, or a name that ends in a package suffix
  bool isAlias = false;         ///< regular files: the Finder alias flag
  bool backupExcluded = false;  ///< set only by GetInfoAboutFileOrDir on its fallback path (kept on purpose)
  std::uint32_t linkCount = 1;  ///< filled by GetInfoAboutFileOrDir; 1 in listings and for directories

  /// Back to a new record's values; the path keeps its memory.
  void Reset();
  std::int64_t TotalSize() const { return dataSize + rsrcSize; }
};

/// The entries of one directory. Slots are recycled: adding an entry hands out the record in slot [count] as it was
/// left. The capacity grows in stated steps, but records are built, a few at a time, when their slots are first used,
/// so unused slots cost nothing.
class TqFileInfoList {
 public:
  TqFileInfoList() = default;
  TqFileInfoList(const TqFileInfoList&) = delete;
  TqFileInfoList& operator=(const TqFileInfoList&) = delete;
  virtual ~TqFileInfoList();

  std::int32_t Count() const { return count_; }
  std::int32_t Capacity() const { return capacity_; }
  /// Null when out of range.
  TqFileInfo* Get(std::int32_t index) const { return index >= 0 && index < count_ ? slots_[index] : nullptr; }
  /// Count 0; the records stay for reuse.
  void Clear() { count_ = 0; }
  /// Where the names begin in the paths: the length of the listed directory with its "/", 0 before a first listing.
  std::size_t NameAt() const { return nameAt_; }
  void SetNameAt(std::size_t nameAt) { nameAt_ = nameAt; }
  /// Makes room for `need` entries. On failure the count becomes 0 and the answer is false.
  bool Grow(std::int64_t need);
  /// Takes the next record, not reset; null (count 0) when memory runs out.
  TqFileInfo* Add() { return count_ < built_ || BuildNext() ? slots_[count_++] : nullptr; }
  /// Takes the record at `index` out, shifts the following ones down; its slot is refilled with a fresh record when
  /// used again.
  void RemoveAt(std::int32_t index);

  /// The capacity for `need` entries from `capacity`: 5, then steps of 50, 100,000 and 5,000,000.
  static std::int64_t GrowthFor(std::int64_t need, std::int32_t capacity);

 private:
  /// Records that are built together: one allocation for all of them.
  struct Block {
    static constexpr std::int32_t kRecords = 10;
    Block* older;
    TqFileInfo records[kRecords];
  };
  /// Gives slot [count] its first record; false (count 0) without memory.
  bool BuildNext();

  std::int32_t count_ = 0;
  std::int32_t capacity_ = 0;
  std::int32_t built_ = 0;  ///< slots below it hold a record, those above are untouched memory
  TqFileInfo** slots_ = nullptr;
  Block* newest_ = nullptr;
  std::size_t nameAt_ = 0;
};

namespace TqFile {

/// Fills `list` with one record per entry of `dir` (none of the list's own paths), in the system's order, with one
/// attribute query per entry. False when an argument is null, the directory cannot be opened, its first read fails or
/// memory runs out; an empty directory is true. `error` (may be null) gets the errno of what failed, 0 for a whole
/// listing: with a true answer reading stopped midway, or an entry could not be queried and is left out.
bool GetListOfFileInfosInDir(const TqString* dir, TqFileInfoList* list, int* error = nullptr);

/// Whether a listing's error, 0 included, has to do with that folder alone; EDEADLK is a placeholder whose content is
/// elsewhere. Other errors tell of a drive that fails or is gone, or of a machine out of means, and need not last.
bool IsOfFolderAlone(int error);
/// Whether the process or the machine had too little memory or too few descriptors.
bool IsOutOfMeans(int error);

/// Fills one record; a final symbolic link is described, not followed. False for a null or empty path, a missing path,
/// or when no attribute source works; the record is reset then.
bool GetInfoAboutFileOrDir(const TqString* path, TqFileInfo* info);
bool GetInfoAboutFileOrDir(std::string_view path, TqFileInfo& info);

/// `path` as the listing and the query take it whole: they drop one separator at the end, and a backslash counts as
/// one, though it may be the last byte of a name.
TqString WithLastBackslashKept(std::string_view path);

/// Anything of that name, a dangling link included.
bool Exists(std::string_view path);
/// A real directory (links not followed).
bool IsDirectory(std::string_view path);
/// Bytes of both forks; 0 when missing.
std::int64_t FileSize(std::string_view path);

/// Takes the mounted folders that a walk must not enter out of `list`, logging each. The table of them is built on
/// first use and kept for the process.
void RemoveMountedFoldersFromList(TqFileInfoList& list);
/// Drops that table (tests).
void ForgetMountedFolders();

/// Tells in the log, once per process, that the system's privacy protection keeps this program from looking at files,
/// when that is what `error` from an attempt to look at `path` means.
void NotePrivacyDenial(int error, std::string_view path);
/// Lets it be told again (tests).
void ForgetPrivacyDenials();

}  // namespace TqFile
