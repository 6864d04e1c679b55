#include "scan/walker.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <utility>

#include "base/clock.h"
#include "base/log.h"
#include "scan/skipped_dirs.h"

// --- listings used again ---

TqListingPool::Lease::Lease(TqListingPool& pool) : pool_(pool) {
  if (pool_.idle_.empty()) {
    list_ = std::make_unique<TqFileInfoList>();
    return;
  }
  list_ = std::move(pool_.idle_.back());
  pool_.idle_.pop_back();
}

TqListingPool::Lease::~Lease() {
  // What a huge directory took goes back to the system: a walk may be a thousand levels deep.
  if (list_->Capacity() <= kKeptCapacity) pool_.idle_.push_back(std::move(list_));
}

namespace {

constexpr std::int32_t kListedBetweenPauses = 100;
constexpr std::int32_t kListedBetweenUrgentChecks = 500;
constexpr std::int64_t kPauseMillis = 3'000;

// --- one look over a path ---

/// What in a path needs more than copying it.
struct PathMarks {
  bool lineBreak = false;    ///< CR or LF
  bool backslash = false;    ///< "\"
  bool slashPeriod = false;  ///< "/" directly followed by "."
};

/// Whether there may be a control character or a backslash from `from` on, or shortly before; nearly no path has one.
bool NeedsCloserLook(std::string_view path, std::size_t from) {
  // In blocks of fixed size, because compilers turn such a block into a few instructions.
  std::array<unsigned char, 16> seen{};
  if (path.size() < seen.size()) return true;
  for (std::size_t at = from; at < path.size(); at += seen.size()) {
    const char* block = path.data() + std::min(at, path.size() - seen.size());
    for (std::size_t i = 0; i < seen.size(); ++i) {
      const auto byte = static_cast<unsigned char>(block[i]);
      seen[i] |= static_cast<unsigned char>(byte < ' ' || byte == '\\');
    }
  }
  return seen != decltype(seen){};
}

bool HoldsByte(std::string_view text, char byte) {
  return text.find(byte) != std::string_view::npos;
}

void LookCloser(std::string_view text, PathMarks& marks) {
  marks.lineBreak |= HoldsByte(text, '\r') || HoldsByte(text, '\n');
  marks.backslash |= HoldsByte(text, '\\');
}

/// Adds the marks of single bytes from `from` on.
void AddByteMarks(std::string_view path, std::size_t from, PathMarks& marks) {
  if (NeedsCloserLook(path, from)) LookCloser(path.substr(from), marks);
}

bool HoldsSlashPeriod(std::string_view text) {
  // Periods are looked for, because they are rarer in paths than slashes.
  std::size_t at = text.find('.');
  while (at != std::string_view::npos && !text.substr(0, at).ends_with('/')) at = text.find('.', at + 1);
  return at != std::string_view::npos;
}

/// `dir` is a path that ends in "/" or the first part of one.
PathMarks MarksOfDir(std::string_view dir) {
  PathMarks marks;
  marks.slashPeriod = HoldsSlashPeriod(dir);
  AddByteMarks(dir, 0, marks);
  return marks;
}

/// The marks of a path by those of its directory, which ends at `nameAt`.
PathMarks MarksOfPath(const PathMarks& dir, std::string_view path, std::size_t nameAt) {
  PathMarks marks = dir;
  marks.slashPeriod |= path.substr(nameAt).starts_with('.');
  AddByteMarks(path, nameAt, marks);
  return marks;
}

void SpellOutLineBreaks(TqString& text) {
  text.ReplaceAll("\r", "__\\r__");
  text.ReplaceAll("\n", "__\\n__");
}

/// Whether `path` holds `text` from its second character on, in any letter case: how drive-letter paths are told. None
/// occur on this system; the rules are kept so that lists follow the same ones everywhere.
bool HoldsBehindDriveLetter(std::string_view path, std::string_view text) {
  return path.size() > 1 && StartsWithIgnoreCase(path.substr(1), text);
}

// --- listing a directory ---

/// Junction folders whose listing fails on every drive-letter system.
constexpr std::string_view kJunctionFolders[] = {":\\ProgramData\\Application Data\\", ":\\ProgramData\\Desktop\\",
                                                 ":\\ProgramData\\Favorites\\", ":\\ProgramData\\Start Menu\\",
                                                 ":\\ProgramData\\Templates\\"};

bool IsJunctionFolder(const TqString& dir) {
  return std::ranges::any_of(kJunctionFolders,
                             [&](std::string_view text) { return HoldsBehindDriveLetter(dir, text); });
}

/// Lists `dir`. After a listing that failed or is not whole the volume is looked at again: when it is no longer the
/// same, its unfinished list must never replace the good one. Nor must one that lacks what the machine had no means
/// for.
bool ListDir(TqWalk& walk, const TqString& dir, TqFileInfoList& listing) {
  int error = 0;
  const bool listed = TqFile::GetListOfFileInfosInDir(&dir, &listing, &error);
  if (error != 0) walk.output.NoteFailedListing(walk.volumePath, error);
  if (TqFile::IsOutOfMeans(error)) walk.output.NoteBroken(walk.listFilePath);
  return listed;
}

/// How listing a directory under its walked path went.
struct WalkedListing {
  bool listed = false;
  std::optional<TqString> restoredDir;  ///< the path with backslashes restored, when it was tried after the walked one
};

/// Lists a directory under the path it is walked by or else, when that holds stand-ins, with the backslashes restored.
WalkedListing ListWalked(TqWalk& walk, const TqString& dir, TqFileInfoList& listing) {
  if (ListDir(walk, dir, listing)) return {true, {}};
  if (!dir.Contains(kBackslashStandIn)) return {false, {}};
  TqString restored = dir;
  restored.ReplaceAll(kBackslashStandIn, "\\");
  const bool listed = ListDir(walk, TqFile::WithLastBackslashKept(restored), listing);
  return {listed, std::move(restored)};
}

bool ListForTreeWalk(TqWalk& walk, const TqString& dir, TqFileInfoList& listing) {
  const WalkedListing outcome = ListWalked(walk, dir, listing);
  if (outcome.restoredDir) {
    Log("ERROR: RecursivelyAddFilenamesToList ", ProcessIdText(),
        outcome.listed ? " - BB_GtLstOfFleIS suc f:" : " - AA_GtLstOfFleIS fld f=", *outcome.restoredDir);
  }
  if (outcome.listed) return true;
  if (IsJunctionFolder(dir)) return false;

  Log("ERROR: RecursivelyAddFilenamesToList ", ProcessIdText(),
      ", GetListOfFileInfosInDir failed, so VerifyingMountPoints_A for dir: ", dir);
  const bool unchanged = VerifyMountPointsAndCorrectTopDirs(walk.topDirs, &dir);
  Log("RecursivelyAddFilenamesToList ", ProcessIdText(), ", VerifyMountPointsAndCorrectTopDirs ",
      unchanged ? "no change. dir: " : "changed! dir: ", dir);
  return false;
}

bool ListForOneLevel(TqWalk& walk, const TqString& dir, TqFileInfoList& listing) {
  const WalkedListing outcome = ListWalked(walk, dir, listing);
  if (outcome.listed) return true;
  if (outcome.restoredDir) {
    Log("ERROR: AddFilenamesFromThisDirToList -GtListOfFileIS fld f:");
    Log(*outcome.restoredDir);
  }
  Log("ERROR: AddFilenamesFromThisDirToList GetListOfFileI fld, ", ProcessIdText(),
      ", so VerifyingMountPoints_B for dir: ", dir);
  const bool unchanged = VerifyMountPointsAndCorrectTopDirs(walk.topDirs, &dir);
  Log("VerifyMountPointsAndCorrectTopDirs ", unchanged ? "no change" : "changed!");
  return false;
}

// --- pace ---

/// Counts a listed directory. After 101 of them (urgent: 501) it is time for the checks that may end the process and,
/// unless urgent, a pause before them.
void Throttle(TqRunState& run, const TqString& startDir) {
  const std::int32_t listedBefore = run.dirCounter++;
  if (listedBefore < (run.fresh ? kListedBetweenUrgentChecks : kListedBetweenPauses)) return;
  if (!run.fresh) TqSystem::SleepMillis(kPauseMillis);
  run.dirCounter = 0;
  CheckForStopRequest(run);
  RefreshGlobalThreeHourLock_ExitIfFail(run, startDir);
}

void LogEntering(TqRunState& run, const TqString& startDir, std::int32_t curRecursDepth) {
  run.UpdateMemoryFigures();
  Log("Entering RecursivelyAddFilenamesToList ", ProcessIdText(), ", maxRecursDepthSeen=", run.maxRecursDepthSeen,
      ", curRecursDepth=", curRecursDepth, ", startDir=", startDir,
      ", numMBytesCurrentVirtualMemSize=", run.virtualMegabytes,
      ", numMBytesCurrentResidentMemSize=", run.residentMegabytes,
      ", numMBytesCurrentHardwareRamMemSize=", run.hardwareMegabytes, ", numMBytesStackUsedUp=", run.StackMegabytes());
}

// --- the block of a directory ---

TqString ShownInHeader(const TqString& dir) {
  TqString shown = dir;
  SpellOutLineBreaks(shown);
  shown.ReplaceAll("\\", kBackslashStandIn);
  return shown;
}

bool AppendHeader(TqString& buffer, const TqString& shownDir, std::int32_t numFiles) {
  return buffer.Append("#\n# Dir: ") && buffer.Append(shownDir) && buffer.Append("\n# Files: ") &&
         buffer.AppendInt32(numFiles) && buffer.AppendChar('\n');
}

void AppendBlockHeader(TqWalk& walk, const TqString& dir, const TqFileInfoList& listing) {
  std::int32_t numFiles = 0;
  for (std::int32_t i = 0; i < listing.Count(); ++i) numFiles += listing.Get(i)->isDir ? 0 : 1;

  // A directory's name must not be able to forge a line, nor may the list hold a backslash.
  PathMarks marks;
  AddByteMarks(dir, 0, marks);
  const bool appended = marks.lineBreak || marks.backslash
                            ? AppendHeader(walk.output.Buffer(), ShownInHeader(dir), numFiles)
                            : AppendHeader(walk.output.Buffer(), dir, numFiles);
  if (!appended) walk.output.NoteBroken(walk.listFilePath);
  walk.output.FlushIfUnbuffered(walk.listFilePath);
}

void LogLineBreakInName(const TqString& path) {
  TqString shown = path;
  SpellOutLineBreaks(shown);
  Log("WARNING: skipping filename with embedded <CR> or <LF>: ", shown);
}

/// Whether the file is one of two kinds of stray file that the system leaves behind (logged).
bool IsPeriodAnomaly(const TqString& path) {
  if (path.ContainsIgnoreCase("/Users/Shared/.")) {
    Log("WARNING: skipping single or double-period Mac anomalie file: ", path, "|end_anomalie");
    return true;
  }
  if (path.Contains("././.")) {
    Log("WARNING: skipping ././. anomalie file: ", path, "|end_anomalie");
    return true;
  }
  return false;
}

/// The two hexadecimal digits of each byte.
constexpr auto kHexPairs = [] {
  std::array<std::array<char, 2>, 256> pairs{};
  constexpr std::string_view kDigits = "0123456789abcdef";
  for (std::size_t byte = 0; byte < pairs.size(); ++byte) pairs[byte] = {kDigits[byte / 16], kDigits[byte % 16]};
  return pairs;
}();

/// Writes 16 lower-case hexadecimal digits; the result is the place behind them.
char* PutHex16(char* at, std::uint64_t number) {
  for (int shift = 56; shift >= 0; shift -= 8) at = std::ranges::copy(kHexPairs[number >> shift & 0xFF], at).out;
  return at;
}

void AppendFileLine(TqWalk& walk, const TqFileInfo& file) {
  // Room is made once for the whole line. In front of the path stand the kind, 16 digits, a size and three tabs.
  constexpr std::int32_t kLongestSize = 20;
  constexpr std::int32_t kMostBesidePath = 1 + 16 + kLongestSize + 3 + 1;
  TqString& buffer = walk.output.Buffer();
  char* at = buffer.RoomBehind(kMostBesidePath + file.path.Length());
  if (at == nullptr) {
    walk.output.NoteBroken(walk.listFilePath);
    return;
  }
  *at++ = file.isSpecial ? 's' : 'f';
  *at++ = '\t';
  at = PutHex16(at, static_cast<std::uint64_t>(file.modTimeMs));
  *at++ = '\t';
  at = std::to_chars(at, at + kLongestSize, file.TotalSize()).ptr;
  *at++ = '\t';
  at += file.path.View().copy(at, std::string_view::npos);
  *at++ = '\n';
  buffer.EndAt(at);
  walk.output.FlushIfUnbuffered(walk.listFilePath);
}

void AppendLargeFileLine(TqWalk& walk, const TqFileInfo& file, bool wanted) {
  if (file.path.CharAt(4) == 'y' && HoldsBehindDriveLetter(file.path, ":\\System Volume Information\\")) return;
  walk.output.AppendDirectly(walk.largeFileListPath,
                             Joined(wanted ? "t\t" : "f\t", file.TotalSize(), '\t', file.path, '\n'));
}

/// Where the two forms of the walk differ in the file pass.
struct FilePassRules {
  bool skipsPeriodAnomalies;
  bool heedsBackupExcludes;
};

/// Lines and totals of everything in `listing` that is no directory. Nothing is allocated per file.
void AddFiles(TqWalk& walk, TqFileInfoList& listing, FilePassRules rules) {
  if (listing.Count() == 0) return;
  // All paths of a listing have the same directory part, so it is looked over once.
  const std::size_t nameAt = listing.NameAt();
  const PathMarks dirMarks = MarksOfDir(listing.Get(0)->path.View().substr(0, nameAt));

  for (std::int32_t i = 0; i < listing.Count(); ++i) {
    TqFileInfo& file = *listing.Get(i);
    if (file.isDir) continue;

    // a. A line break in a path would forge lines: such a file is left out.
    const PathMarks marks = MarksOfPath(dirMarks, file.path, nameAt);
    if (marks.lineBreak) {
      LogLineBreakInName(file.path);
      continue;
    }

    // b. The list never holds a backslash; from here on the path is the one that stands in the list.
    std::size_t listedNameAt = nameAt;
    if (marks.backslash) {
      file.path.ReplaceAll("\\", kBackslashStandIn);
      listedNameAt = file.path.View().rfind('/') + 1;
    }

    // c. Stray files.
    if (rules.skipsPeriodAnomalies && marks.slashPeriod && IsPeriodAnomaly(file.path)) continue;

    // d. The line, wanted or not.
    AppendFileLine(walk, file);

    // e. The rules' answer.
    bool wanted = TqInfoManager::UserWantsThisFileBackedUpEx(file.path, listedNameAt, file.TotalSize(),
                                                             walk.run.maxFileSizeBytes, walk.rules, walk.ruleCount);
    if (rules.heedsBackupExcludes && file.backupExcluded) wanted = false;

    // f. The large-file list.
    if (file.TotalSize() >= TqListOutput::kLargeFileBytes) AppendLargeFileLine(walk, file, wanted);

    // g. The totals.
    if (wanted) AddFileToCategoryTotals(walk.tables, walk.totals, file.path, file.dataSize, file.rsrcSize);
  }
}

}  // namespace

// --- the two forms of the walk ---

void RecursivelyAddFilenamesToList(TqWalk& walk, const TqString& startDir, std::int32_t curRecursDepth) {
  TqRunState& run = walk.run;
  // 1. The depth limit, which also bounds the stack.
  if (curRecursDepth > kMaxRecursDepth) {
    Log("ERROR: RecursivelyAddFilenamesToList recursion limit hit for: ");
    Log(startDir);
    return;
  }

  // 2. The deepest level so far.
  run.maxRecursDepthSeen = std::max(run.maxRecursDepthSeen, curRecursDepth);

  // 3. Verbose mode tells of every directory.
  if (run.bufferingOff) LogEntering(run, startDir, curRecursDepth);

  // 4. The listing; a directory without one gets no block.
  TqListingPool::Lease lease(walk.listings);
  TqFileInfoList& listing = lease.List();
  if (!ListForTreeWalk(walk, startDir, listing)) return;

  // 5. The pace.
  Throttle(run, startDir);

  // 6. Mounted folders are not entered.
  TqFile::RemoveMountedFoldersFromList(listing);

  // 7. The block's header.
  AppendBlockHeader(walk, startDir, listing);

  // 8. The block's files.
  AddFiles(walk, listing, {.skipsPeriodAnomalies = true, .heedsBackupExcludes = run.useBackupExcludes});

  // 9. A large buffer goes to disk.
  walk.output.FlushIfLarge(walk.listFilePath);

  // 10. The directories; the rules are never asked about them.
  for (std::int32_t i = 0; i < listing.Count(); ++i) {
    TqFileInfo& dir = *listing.Get(i);
    if (!dir.isDir || dir.isSpecial || IsSkippedDir(dir.path)) continue;
    if (run.useBackupExcludes && dir.backupExcluded) continue;
    dir.path.ReplaceAll("\\", kBackslashStandIn);
    RecursivelyAddFilenamesToList(walk, dir.path, curRecursDepth + 1);
  }

  // 11. The listing goes back to the pool with the end of the lease.
}

void AddFilenamesFromThisDirToList(TqWalk& walk, const TqString& startDir) {
  // The steps 4 and 6 to 9 of the walk of a tree.
  TqListingPool::Lease lease(walk.listings);
  TqFileInfoList& listing = lease.List();
  if (!ListForOneLevel(walk, startDir, listing)) return;
  TqFile::RemoveMountedFoldersFromList(listing);
  AppendBlockHeader(walk, startDir, listing);
  // On purpose: this form neither skips stray files nor heeds the backup-exclusion mark.
  AddFiles(walk, listing, {.skipsPeriodAnomalies = false, .heedsBackupExcludes = false});
  walk.output.FlushIfLarge(walk.listFilePath);
}
