#include "base/file_info.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "base/hash_table.h"
#include "base/log.h"
#include "base/system_info.h"
#include "platform/platform.h"

using platform::EntryAttributes;
using platform::EntryKind;

namespace {

constexpr std::uint16_t kFinderAliasFlag = 0x8000;
constexpr std::uint16_t kFinderBundleFlag = 0x2000;

/// Compared with the end of a folder's path and without a period, on purpose: every folder whose name ends in these
/// letters is a package to the client's other programs, too ("Turkey" ends in "key").
constexpr std::array<std::string_view, 27> kPackageSuffixes = {
    "pkg",    "app",        "plugin",     "framework", "prefPane",   "wdgt",     "kext",       "webplugin", "action",
    "bundle", "component",  "debug",      "key",       "mdimporter", "mpkg",     "palette",    "profile",   "service",
    "saver",  "slideSaver", "spreporter", "ibplugin",  "pbplugin",   "xcplugin", "xctxtmacro", "xdplugin",  "nib",
};

bool HasPackageSuffix(std::string_view path) {
  // The last letter first: it sorts out nearly every folder.
  const char last = path.empty() ? '\0' : LowerChar(path.back());
  return std::any_of(kPackageSuffixes.begin(), kPackageSuffixes.end(), [&](std::string_view suffix) {
    return suffix.back() == last && EndsWithIgnoreCase(path, suffix);
  });
}

/// A time that has too many seconds for that becomes the earliest or the latest.
std::int64_t MillisOf(std::int64_t seconds) {
  constexpr std::int64_t kMost = INT64_MAX / 1000;
  return std::clamp(seconds, -kMost, kMost) * 1000;
}

/// Everything but the path, which must be set already; the link count becomes 1.
void FillRecord(TqFileInfo& info, const EntryAttributes& attributes) {
  const bool hasCreateTime = attributes.createTimeSec != 0 || attributes.createTimeNsec != 0;
  info.modTimeMs = MillisOf(attributes.modTimeSec);
  info.createTimeMs = hasCreateTime ? MillisOf(attributes.createTimeSec) : info.modTimeMs;
  const bool isDir = attributes.kind == EntryKind::kDirectory;
  const bool isRegular = attributes.kind == EntryKind::kRegular;
  info.isDir = isDir;
  info.isSpecial = !isDir && !isRegular;
  info.dataSize = isDir ? 0 : attributes.dataSize;
  info.rsrcSize = isRegular ? attributes.rsrcSize : 0;
  info.isPackage = isDir && ((attributes.finderFlags & kFinderBundleFlag) != 0 || HasPackageSuffix(info.path));
  info.isAlias = isRegular && (attributes.finderFlags & kFinderAliasFlag) != 0;
  info.backupExcluded = false;
  info.linkCount = 1;
}

/// The path without one trailing separator. "/" stays, and so does a drive's root: a path below four characters that
/// ends in a colon and a backslash.
std::string_view WithoutTrailingSeparator(std::string_view path) {
  if (!path.ends_with('/') && !path.ends_with('\\')) return path;
  if (path == "/" || (path.size() < 4 && path.ends_with(":\\"))) return path;
  return path.substr(0, path.size() - 1);
}

/// "<path> got errno <e> on <os>"; the blank in front of "errno=" is part of the text.
TqString FailedPathText(std::string_view path, int error) {
  const TqString number = error == EACCES   ? TqString("EACESS")
                          : error == ENOENT ? TqString("ENOENT")
                                            : Joined(" errno=", error);
  return Joined(path, " got errno ", number, " on ", TqSystem::OsDetailText());
}

bool& ToldOfPrivacyDenial() {
  static bool told = false;
  return told;
}

/// The fallback's view of an entry: plain sizes, the modification time for both times, Finder flags asked for
/// separately. Logs a failure behind the caller's own words.
bool QueryThroughStat(const char* path, std::string_view statWords, std::string_view finderWords,
                      EntryAttributes& attributes) {
  platform::StatFacts facts;
  if (const int error = platform::TheFiles().Lstat(path, facts); error != 0) {
    Log(statWords, FailedPathText(path, error));
    TqFile::NotePrivacyDenial(error, path);
    return false;
  }
  attributes = EntryAttributes();
  attributes.kind = facts.kind;
  attributes.dataSize = facts.size;
  attributes.modTimeSec = facts.modTimeSec;
  attributes.linkCount = facts.linkCount;
  if (const int error = platform::TheFiles().QueryFinderFlags(path, attributes.finderFlags); error != 0) {
    Log(finderWords, FailedPathText(path, error));
    TqFile::NotePrivacyDenial(error, path);
    return false;
  }
  return true;
}

/// Turns the platform's entries into records. Once a record's path has had its memory, an entry costs no allocation.
class ListFiller : public platform::EntryVisitor {
 public:
  ListFiller(std::string_view dir, TqFileInfoList& list)
      : prefix_(TqString::WithRoom(static_cast<std::int64_t>(dir.size()) + 1)), list_(list) {
    prefix_.Assign(dir);
    if (!dir.ends_with('/')) prefix_.AppendChar('/');
    list_.SetNameAt(prefix_.View().size());
  }

  bool OnEntry(std::string_view name, int queryErrno, const EntryAttributes& attributes) override {
    if (queryErrno == 0) return Add(name, attributes);
    if (queryErrno == ENOENT) return true;  // deleted since the directory was read
    EntryAttributes fallback;
    if (QueryFallback(name, fallback)) return Add(name, fallback);
    queryErrno_ = queryErrno;
    return true;
  }
  bool OutOfMemory() const { return outOfMemory_; }
  /// Of an entry that is left out for another reason than having vanished; 0: there is none.
  int QueryErrno() const { return queryErrno_; }

 private:
  bool QueryFallback(std::string_view name, EntryAttributes& attributes) const {
    const int pid = TqSystem::ProcessId();
    const TqString path = Joined(prefix_, name);
    return QueryThroughStat(
        path.c_str(), Joined("ERROR: GetListOfFileInfosInDir (processId=", pid, ") - fell back to stat file "),
        Joined("ERROR: GetListOfFilesInDir (processId=", pid, ") - failed to get  get finder info for file "),
        attributes);
  }

  bool Add(std::string_view name, const EntryAttributes& attributes) {
    TqFileInfo* info = list_.Add();
    outOfMemory_ = info == nullptr || !info->path.AssignBoth(prefix_, name);
    if (!outOfMemory_) FillRecord(*info, attributes);
    return !outOfMemory_;
  }

  TqString prefix_;
  TqFileInfoList& list_;
  bool outOfMemory_ = false;
  int queryErrno_ = 0;
};

void LogListingFailure(std::string_view call, std::string_view dirName, int error) {
  Log("WARNING: ", call, " failed for dirName=\"", dirName, "\", errno ", error, " (", std::strerror(error), ")");
  TqFile::NotePrivacyDenial(error, dirName);
}

struct QueryErrorWords {
  int error;
  std::string_view words;
};

constexpr QueryErrorWords kQueryErrorWords[] = {
    {EINVAL, "requested an invalid attribute "},
    {EROFS, "the volume is read-only but must be modified in order to return this attribute for file "},
    {ENAMETOOLONG,
     "component of a path name for getattrlist() exceededNAME_MAX characters, or an entire path name exceeded PATH_MAX "
     "characters "},
    {ELOOP, "too many symbolic links were encountered in translating the pathname for getattrlist() for file "},
    {ENOTSUP, "volume does not support the query "},
    {EIO, "an I/O error occurred while reading from or writing to the file system for file "},
    {EBADF, "file descriptor argument for fgetattrlist() is not a valid file descriptor "},
    {EACCES, "search permission is denied for a component of the path prefix for getattrlist() for file "},
    {EFAULT, "path, attrList or attrBuf points to an invalid address for file "},
    {ENOTDIR, "component of the path prefix for getattrlist() is not a directory "},
};

TqString QueryErrorText(int error) {
  for (const QueryErrorWords& row : kQueryErrorWords) {
    if (row.error == error) return row.words;
  }
  return Joined("errno=", error, " for file ");
}

/// The attribute query, else the fallback with the operating system's backup-exclusion mark.
bool QueryOrFallBack(const char* path, EntryAttributes& attributes, bool& backupExcluded) {
  const int error = platform::TheFiles().QueryEntry(path, attributes);
  if (error == 0) return true;
  if (error == ENOENT) return false;
  Log("ERROR: getattrlist returned the following error ", QueryErrorText(error), path);
  if (!QueryThroughStat(path, "ERROR: GetInfoAboutFileOrDir, fell back to stat file ",
                        "ERROR: GetInfoAboutFileOrDir, failed to get finder info for file ", attributes)) {
    return false;
  }
  // Only here is the mark consulted, on purpose: a record of a successful first query always says "not excluded".
  if (platform::TheFiles().QueryBackupExclusion(path, backupExcluded) != 0) backupExcluded = false;
  return true;
}

/// Path text for single queries. A trailing "/" would make the system follow a link.
TqString QueryPath(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

struct MountTable {
  TqHashTable paths{100};
  std::size_t longest = 0;  ///< length of the longest path in it: spares most of a scan the look-ups
};

std::unique_ptr<MountTable>& TheMountTable() {
  static std::unique_ptr<MountTable> table;
  return table;
}

std::unique_ptr<MountTable> BuildMountTable() {
  auto table = std::make_unique<MountTable>();
  Log("Updating the list of currently network mounted file systems");
  std::vector<platform::MountTableRow> rows;
  if (const int error = platform::TheVolumes().ReadSkippedMounts(rows); error != 0) {
    Log("ERROR: TqFile::RemoveMountedFoldersFromList - could not read the mounted file systems, errno=", error);
  }
  for (const platform::MountTableRow& row : rows) {
    Log("Found mounted path: '", row.mountPoint, "' from: '", row.source, "' of type: '", row.type, "'.");
    table->paths.Insert(row.mountPoint.c_str(), 1);
    table->longest = std::max(table->longest, row.mountPoint.size());
  }
  return table;
}

}  // namespace

void TqFileInfo::Reset() {
  dataSize = 0;
  rsrcSize = 0;
  modTimeMs = 0;
  createTimeMs = 0;
  isDir = false;
  isSpecial = false;
  isPackage = false;
  isAlias = false;
  backupExcluded = false;
  linkCount = 1;
  path.Clear();
}

TqFileInfoList::~TqFileInfoList() {
  while (newest_ != nullptr) delete std::exchange(newest_, newest_->older);
  std::free(slots_);
}

std::int64_t TqFileInfoList::GrowthFor(std::int64_t need, std::int32_t capacity) {
  if (need < 6) return 5;
  const std::int64_t step = capacity < 4'000 ? 50 : capacity < 110'000 ? 100'000 : 5'000'000;
  return ((need - 5) / step + 1) * step + 5;
}

bool TqFileInfoList::Grow(std::int64_t need) {
  if (capacity_ > need) return true;
  const std::int64_t wanted = GrowthFor(need, capacity_);
  if (wanted == capacity_) return true;
  // The new slots are not touched: the kernel gives their pages only as records are built.
  void* grown = wanted > INT32_MAX ? nullptr : std::realloc(slots_, static_cast<std::size_t>(wanted) * sizeof(*slots_));
  if (grown == nullptr) {
    count_ = 0;
    return false;
  }
  slots_ = static_cast<TqFileInfo**>(grown);
  capacity_ = static_cast<std::int32_t>(wanted);
  return true;
}

bool TqFileInfoList::BuildNext() {
  if (!Grow(std::int64_t{count_} + 1)) return false;
  const std::int32_t place = built_ % Block::kRecords;
  if (place == 0) {
    auto* const block = new (std::nothrow) Block{newest_, {}};
    if (block == nullptr) {
      count_ = 0;
      return false;
    }
    newest_ = block;
  }
  slots_[built_++] = &newest_->records[place];
  return true;
}

void TqFileInfoList::RemoveAt(std::int32_t index) {
  if (index < 0 || index >= count_) return;
  slots_[index]->Reset();
  std::rotate(slots_ + index, slots_ + index + 1, slots_ + count_);
  --count_;
}

namespace TqFile {

bool GetListOfFileInfosInDir(const TqString* dir, TqFileInfoList* list, int* error) {
  int ignored = 0;
  int& failure = error != nullptr ? *error : ignored;
  failure = 0;
  if (dir == nullptr || list == nullptr) return false;
  list->Clear();
  const std::string_view dirName = WithoutTrailingSeparator(*dir);
  std::optional<TqString> cutPath;  // a copy, needed only where a separator was cut off
  const char* path = dirName.size() == dir->View().size() ? dir->c_str() : cutPath.emplace(dirName).c_str();
  ListFiller filler(dirName, *list);
  const platform::ListResult result = platform::TheFiles().ListDirectory(path, filler);
  failure = result.openErrno != 0 ? result.openErrno : result.readErrno != 0 ? result.readErrno : filler.QueryErrno();
  if (filler.OutOfMemory()) {
    failure = ENOMEM;
    list->Clear();
    Log("ERROR: GetListOfFileInfosInDir - out of memory for dirName=\"", dirName, "\"");
    return false;
  }
  if (result.openErrno != 0) {
    LogListingFailure("GetListOfFilesInfosInDir - opendir", dirName, failure);
    return false;
  }
  if (result.readErrno != 0) LogListingFailure("GetListOfFileInfosInDir - readdir", dirName, failure);
  // Nothing read, and no end seen: that is no empty directory.
  return result.readErrno == 0 || list->Count() > 0;
}

bool IsOfFolderAlone(int error) {
  constexpr int kSuch[] = {0, EACCES, EPERM, ENOENT, ENOTDIR, ELOOP, ENAMETOOLONG, EDEADLK};
  return std::ranges::find(kSuch, error) != std::end(kSuch);
}

bool IsOutOfMeans(int error) {
  return error == ENOMEM || error == ENFILE || error == EMFILE;
}

bool GetInfoAboutFileOrDir(const TqString* path, TqFileInfo* info) {
  if (info == nullptr) return false;
  if (path != nullptr) return GetInfoAboutFileOrDir(path->View(), *info);
  info->Reset();
  return false;
}

bool GetInfoAboutFileOrDir(std::string_view path, TqFileInfo& info) {
  const TqString wanted(WithoutTrailingSeparator(path));  // a copy first: the caller may pass the record's own path
  info.Reset();
  EntryAttributes attributes;
  bool backupExcluded = false;
  if (wanted.IsEmpty() || !QueryOrFallBack(wanted.c_str(), attributes, backupExcluded)) return false;
  info.path = wanted;
  FillRecord(info, attributes);
  info.backupExcluded = backupExcluded;
  if (!info.isDir) info.linkCount = attributes.linkCount;
  return true;
}

TqString WithLastBackslashKept(std::string_view path) {
  return path.ends_with('\\') ? Joined(path, '/') : TqString(path);
}

bool Exists(std::string_view path) {
  platform::StatFacts facts;
  return !path.empty() && platform::TheFiles().Lstat(QueryPath(path).c_str(), facts) == 0;
}

bool IsDirectory(std::string_view path) {
  platform::StatFacts facts;
  return !path.empty() && platform::TheFiles().Lstat(QueryPath(path).c_str(), facts) == 0 &&
         facts.kind == EntryKind::kDirectory;
}

std::int64_t FileSize(std::string_view path) {
  TqFileInfo info;
  return GetInfoAboutFileOrDir(path, info) ? info.TotalSize() : 0;
}

void RemoveMountedFoldersFromList(TqFileInfoList& list) {
  std::unique_ptr<MountTable>& table = TheMountTable();
  if (!table) table = BuildMountTable();
  if (list.NameAt() >= table->longest) return;
  std::int32_t index = 0;
  while (index < list.Count()) {
    const TqString& path = list.Get(index)->path;
    if (path.View().size() <= table->longest && table->paths.Contains(path.c_str())) {
      Log("WARNING: skipping mounted folder: ", path);
      list.RemoveAt(index);
    } else {
      ++index;
    }
  }
}

void ForgetMountedFolders() {
  TheMountTable().reset();
}

void NotePrivacyDenial(int error, std::string_view path) {
  if (ToldOfPrivacyDenial() || !platform::TheFiles().IsPrivacyDenial(error)) return;
  ToldOfPrivacyDenial() = true;
  Log("WARNING: the system's privacy protection does not let this program look at \"", path,
      "\": it lacks Full Disk Access, so what is protected like this is missing from the lists");
}

void ForgetPrivacyDenials() {
  ToldOfPrivacyDenial() = false;
}

}  // namespace TqFile
