#include "scan/top_dir_step.h"

#include "base/clock.h"
#include "base/file_info.h"
#include "base/install_record.h"
#include "base/log.h"

namespace {

constexpr std::int64_t kSaveEveryMillis = 5000;
constexpr std::int32_t kPauseAboveDirs = 100;
constexpr std::int64_t kPauseMillis = 3000;
constexpr std::int64_t kMillisPerSecond = 1000;
constexpr std::int32_t kTopDepth = 1;

/// One top directory on its way through the steps.
struct TopDir {
  std::int32_t index = 0;
  char mode = '\0';
  TqString path;      ///< as planned, with its "/"
  TqString walkPath;  ///< as it is listed
  TqString volumePath;
  TqString futurePath;  ///< the volume's `.future` list
  bool isLogged = false;
};

/// A message of the verbose mode.
template <typename... Pieces>
void Detail(const TqScan& scan, const Pieces&... pieces) {
  if (scan.run.bufferingOff) Log("tqfilelist ", ProcessIdText(), pieces...);
}

bool MustBeSkipped(const TqScan& scan, std::int32_t index) {
  const TqTopDirsList& plan = scan.plan;
  if (index < 0) {
    Log("WARNING: tqfilelist ", ProcessIdText(), " index dirToStartAt is less than zero, skipping: ", index);
    return true;
  }
  if (plan.dirs.Get(index) == nullptr || plan.vguids.Get(index) == nullptr) {
    Log("ERROR: tqfilelist ", ProcessIdText(), " NULL dirToIndex at index: ", index);
    return true;
  }
  if (plan.IsActive(index)) return false;
  Detail(scan, " zero length dirToIndex at index: ", index);
  return true;
}

TqString VolumePathOf(const TqString& path) {
  if (path.StartsWith("/")) return TqFile::GetVolumePathOfDir(path);
  Log("ERROR: tqfilelist ", ProcessIdText(), " could not pull out volume path from dirToIndex=", path);
  return "certainly_will_not_match";
}

TopDir OpenTopDir(const TqScan& scan, std::int32_t index) {
  TopDir dir;
  dir.index = index;
  dir.mode = scan.plan.ModeOf(index);
  dir.path = scan.plan.PathOf(index);
  dir.walkPath = WalkPathOfTopDir(dir.path);
  dir.volumePath = VolumePathOf(dir.path);
  dir.futurePath = Joined(TqFile::PerVolumeListPath(scan.plan.vguids.At(index), dir.path), ".future");
  return dir;
}

/// Ever sparser progress lines, but one for the first directory of each volume.
bool IsPeriodic(std::int32_t index) {
  if (index < 10) return true;
  if (index < 100) return index % 10 == 0;
  return index % (index < 500 ? 50 : 100) == 0;
}

void LogPeriodically(TqScan& scan, TopDir& dir) {
  dir.isLogged = scan.previousVolumePath != dir.volumePath || IsPeriodic(dir.index);
  if (dir.isLogged) {
    Log("PeriodicLog, ", ProcessIdText(), ", i=", dir.index, ", firstCharFlag=", dir.mode,
        ", numMBytesStackUsedUp=", scan.run.StackMegabytes(), ", about_to_scanDir=", dir.path,
        ", futureFilename=", dir.futurePath, ", currentVolumePath=", dir.volumePath,
        ", previousVolumePath=", scan.previousVolumePath);
  }
  scan.previousVolumePath = dir.volumePath;
}

void WriteStartLineOfNewList(TqScan& scan, const TopDir& dir) {
  if (TqFile::Exists(dir.futurePath)) return;
  const std::int64_t now = TqSystem::NowGmtMillis();
  scan.output.AppendDirectly(dir.futurePath, Joined("# GmtMillisThisListWasStarted: ", Hex16(now),
                                                    ", GmtDateTime: ", TqSystem::GmtDateTimeText(now), "\n"));
}

void ListFilesOnly(TqScan& scan, const TopDir& dir) {
  ++scan.run.dirCounter;
  Detail(scan, " About to AddFilenamesFromThisDirToList, index=", dir.index, ", dir=", dir.path);
  AddFilenamesFromThisDirToList(scan.walk, dir.walkPath);
  Detail(scan, " After AddFilenamesFromThisDirToList, index=", dir.index, ", dir=", dir.path);
}

void LogWalkDetail(TqScan& scan, const TopDir& dir, std::string_view moment) {
  if (!scan.run.bufferingOff) return;
  scan.run.UpdateMemoryFigures();
  Detail(scan, moment, "RecursivelyAddFilenamesToList, index=", dir.index, ", dir=", dir.path,
         ", numMBytesCurrentVirtualMemSize=", scan.run.virtualMegabytes,
         ", numMBytesCurrentResidentMemSize=", scan.run.residentMegabytes,
         ", numMBytesCurrentHardwareRamMemSize=", scan.run.hardwareMegabytes);
}

void ListWholeTree(TqScan& scan, const TopDir& dir) {
  LogWalkDetail(scan, dir, " About to ");
  RecursivelyAddFilenamesToList(scan.walk, dir.walkPath, kTopDepth);
  LogWalkDetail(scan, dir, " After ");
}

/// The volume is looked at again behind every top directory: one that went and came back in between has lists cut short
/// without any listing that failed.
void WalkIntoList(TqScan& scan, const TopDir& dir) {
  scan.walk.listFilePath = dir.futurePath;
  scan.walk.volumePath = dir.volumePath;
  scan.output.NoteMount(dir.volumePath);
  if (dir.mode == '0' || dir.mode == '1') {
    ListFilesOnly(scan, dir);
  } else {
    ListWholeTree(scan, dir);
  }
  scan.output.RecheckMount(dir.volumePath);
}

void FlushRestOfList(TqScan& scan, const TopDir& dir) {
  if (!scan.output.Buffer().IsEmpty()) scan.output.FlushListBuffer(dir.futurePath);
}

void RecordSeconds(TqScan& scan, const TopDir& dir, std::int64_t dirStartMillis) {
  scan.lastFinishedMillis = TqSystem::NowGmtMillis();
  const std::int64_t rounded = (scan.lastFinishedMillis - dirStartMillis + kMillisPerSecond / 2) / kMillisPerSecond;
  const auto seconds = static_cast<std::int32_t>(rounded);
  scan.plan.SetSeconds(dir.index, seconds);
  if (!dir.isLogged) return;
  Log("PeriodicLog, ", ProcessIdText(), ", i=", dir.index, ", numMBytesStackUsedUp=", scan.run.StackMegabytes(),
      ", just_after_scanDir_of=", dir.path, ", numSecondsThisScanTook=", seconds);
}

void SaveProgressWhenDue(TqScan& scan) {
  const std::int64_t now = TqSystem::NowGmtMillis();
  if (now - scan.lastSaveMillis <= kSaveEveryMillis) return;
  SaveProgress(scan, "third");
  scan.lastSaveMillis = now;
}

void PauseWhenPaced(TqScan& scan) {
  if (scan.run.fresh || scan.run.dirCounter <= kPauseAboveDirs) return;
  TqSystem::SleepMillis(kPauseMillis);
  scan.run.dirCounter = 0;
  CheckForStopRequest(scan.run);
}

}  // namespace

TqScan::TqScan(TqRunState& runState)
    : run(runState),
      topDirsPath(Joined(TqInstall::ListsFolder(), "topdirs.xml")),
      fileStatsPath(Joined(TqInstall::ListsFolder(), "filestats.xml")),
      bigFileListPath(Joined(TqInstall::ListsFolder(), "bigfilelist.dat")),
      topDirsFuturePath(Joined(topDirsPath, ".future")),
      fileStatsFuturePath(Joined(fileStatsPath, ".future")),
      output(runState.bufferingOff),
      walk{.run = run,
           .topDirs = plan,
           .output = output,
           .tables = categories,
           .totals = totals,
           .largeFileListPath = Joined(bigFileListPath, ".future")} {
  plan.verbose = run.bufferingOff;
}

void ScanTopDir(TqScan& scan, std::int32_t index) {
  Detail(scan, " entering into top_of_loop index=", index);
  if (MustBeSkipped(scan, index)) {
    ++scan.plan.next_to_index;
    return;
  }
  TopDir dir = OpenTopDir(scan, index);
  LogPeriodically(scan, dir);
  WriteStartLineOfNewList(scan, dir);
  const std::int64_t dirStartMillis = TqSystem::NowGmtMillis();
  WalkIntoList(scan, dir);
  FlushRestOfList(scan, dir);
  RecordSeconds(scan, dir, dirStartMillis);
  ++scan.plan.next_to_index;
  SaveProgressWhenDue(scan);
  RefreshScanLockBetweenTopDirs(scan.run);
  CheckForStopRequest(scan.run);
  PauseWhenPaced(scan);
  scan.swapper.SwapInDefconListEarly(scan.run, index, scan.DefconVolume());
  Detail(scan, " finished with loop index=", index, ", about to loop to top and start next iteration.");
}

void SaveProgress(TqScan& scan, std::string_view place) {
  if (!WriteTopDirsXmlFile(scan.topDirsFuturePath, scan.plan)) {
    Log("ERROR: ", ProcessIdText(), ", problem writing out topdirs.xml.future ", place);
  }
  WriteFileStatsOut(scan.fileStatsFuturePath, false, scan.totals);
}
