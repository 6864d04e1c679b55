#include "scan/scan_run.h"

#include <cstring>
#include <source_location>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/system_info.h"
#include "platform/platform.h"
#include "scan/client_services.h"
#include "scan/list_swap.h"
#include "scan/list_upkeep.h"
#include "scan/top_dir_step.h"
#include "selection/rule_engine.h"
#include "selection/settings.h"
#include "volumes/defcon.h"
#include "volumes/drive_ping.h"
#include "volumes/drive_summary.h"
#include "volumes/selected_volumes.h"
#include "volumes/volume_registry.h"

// Of no unnamed namespace: the log line carries the function's name, and compilers spell such a namespace out in it.
static void ExitIfVersionReachedEndOfLife(TqRunState& run) {
  if (!TqClientVersionManager::IsEndOfLife()) return;
  const auto here = std::source_location::current();
  TqLog::LogWithLocation(TqLog::kSeverityPlain, here.file_name(), here.line(), here.function_name(),
                         "TQFILELIST - client version has reached End-Of-Life, exiting");
  ExitScanRun(run, 1);
}

namespace {

constexpr std::int64_t kLockStalenessSeconds = 10'800;
constexpr std::int64_t kLockWaitSeconds = 3;
/// An elevated volume whose list is at least this old makes the run urgent.
constexpr std::int32_t kUrgentFromDays = 15;
/// Twice what kMaxSeconds counts need; only the counts in use are zeroed, the rest is never touched.
constexpr std::size_t kSecondsTableBytes = 800'000;
constexpr std::size_t kSecondsTableZeroedBytes = 400'000;
static_assert(kSecondsTableZeroedBytes == TqTopDirsList::kMaxSeconds * sizeof(std::int32_t));
constexpr int kTopDirsMoveTries = 10;
constexpr std::int64_t kMillisPerSecond = 1000;

template <typename... Pieces>
void LogAsProcess(const Pieces&... pieces) {
  Log("tqfilelist ", ProcessIdText(), pieces...);
}

// --- before the lock ---

void ExitIfSelfDestructIsSet(TqRunState& run) {
  const TqString flag = Joined(TqInstall::UpdatesFolder(), "tqflag_selfdestructflag.txt");
  TqString content;
  if (!TqFile::Exists(flag) || !TqFile::ReadFileIntoString(flag, content)) return;
  if (!content.StartsWith("nuke_and_pave")) return;
  Log("TQFILELIST - Self Destruct Flag Set so not running");
  ExitScanRun(run, 1);
}

void AllocateSecondsTable(TqScan& scan) {
  scan.secondsTable.reset(static_cast<std::int32_t*>(std::malloc(kSecondsTableBytes)));
  if (scan.secondsTable == nullptr) {
    Log("ERROR: could not malloc 400k for secondsToScan! Exiting\n");
    ExitScanRun(scan.run, 0);
  }
  std::memset(scan.secondsTable.get(), 0, kSecondsTableZeroedBytes);
  scan.plan.secondsTable = scan.secondsTable.get();
}

void GrabScanLock(TqRunState& run) {
  run.lock = TqLock::GrabFileBasedLock(run.lockPath, kLockStalenessSeconds, kLockWaitSeconds);
  if (run.lock == nullptr) {
    LogAsProcess(" could not grab three hour lock, so some OTHER tqfilelist is already running, exiting quietly");
    ExitScanRun(run, 0);
  }
  Log("tqfilelist version=", TqVersionString(), " ", ProcessIdText(), " got three hour lock, starting scan....");
}

// --- volumes and urgency ---

void RefreshVolumeState() {
  TqUiUtil::PingDrivesThatAreSelectedForBackup();
  TqUiUtil::TqVolumesXml_QueryAttachDrives_UpdateTqVolXml();
  TqUiUtil::TqVolDefcon_UpdateTqVolumesDefconXmlFile();
  TqString summary;
  TqString abbreviation;
  TqUiUtil::GetHardDriveSummary(summary, abbreviation);
  Log("Connected and selected hard drive state (", ProcessIdText(), "): ", summary, "___abstr=", abbreviation);
}

TqString DefconLine(const TqVolumeInfo& volume, std::int32_t index) {
  const std::string_view padding = volume.lastFileListedInDays < 10 ? " " : "";
  return Joined("                   defcon_volume_index=", index, ", tqVol_defconLevel=", volume.defconLevel,
                ", tqVol_lastFileListedInDays=", volume.lastFileListedInDays, padding,
                ", tqVol_lastSeenInDays=", volume.lastSeenInDays,
                ", tqVol_lastFilePushedInDays=", volume.lastFilePushedInDays,
                ", mountPointPath=", volume.mountPointPath, "\n");
}

void LogDefconLevels() {
  std::int32_t level = 0;
  TqVolumeInfoList volumes;
  const bool isKnown = TqUiUtil::TqVolDefcon_CacheForFiveMinutes_ReadTqDefconXmlFile(&level, &volumes);
  if (!isKnown) volumes.Clear();
  TqString message = Joined("All_Volume_Defcon_Level=", isKnown ? Joined(level) : TqString("Call_failed"), ", listing ",
                            volumes.Count(), " volumes below:\n");
  for (std::int32_t i = 0; i < volumes.Count(); ++i) message.Append(DefconLine(*volumes.Get(i), i));
  Log(message);
}

bool IsWorthAnUrgentRun(const TqScan& scan) {
  return scan.defconVolumeAttached && scan.defconVolume.lastFileListedInDays >= kUrgentFromDays;
}

void FindDefconVolume(TqScan& scan) {
  TqVolumeInfo& volume = scan.defconVolume;
  scan.defconVolumeAttached = TqUiUtil::TqVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached(volume);
  if (!scan.defconVolumeAttached) {
    Log("Defcon_reports_no_drives_attached_of_heightened_defcon_interest");
    return;
  }
  Log("Defcon_very_interesting_drive_to_tqfilelist_attached ", ProcessIdText(), ", with defcon=", volume.defconLevel,
      ", mountPoint=", volume.mountPointPath, ", tqVol_lastFileListedInDays=", volume.lastFileListedInDays,
      ", tqVol_lastSeenInDays=", volume.lastSeenInDays, ", tqVol_lastFilePushedInDays=", volume.lastFilePushedInDays,
      IsWorthAnUrgentRun(scan) ? ", and we are going to URGENTLY_RUN_FAST this run!"
                               : ", but it is not worth running urgently this run.");
}

void DecideUrgency(TqScan& scan) {
  if (IsWorthAnUrgentRun(scan)) scan.run.urgent = true;
  scan.run.lastLockRefreshMillis = TqSystem::NowGmtMillis();
}

// --- settings and rules ---

void LoadSettingsAndRules(TqScan& scan) {
  if (!TqFile::Exists(TqInfoManager::TqInfoPath())) ExitScanRun(scan.run, 0);
  if (!TqInfoManager::LoadAllExcludeFilenameRulesProperly(TqInfoManager::tqExcludeFilenameRules,
                                                          &TqInfoManager::num_tqExcludeFilenameRules)) {
    Log("ERROR: first TqInfoManager::LoadAllExcludeFilenameRulesProperly returned false, exiting");
    ExitScanRun(scan.run, 0);
  }
  ParseTqInfoForFileSetHashes(scan.categories);
  scan.walk.rules = TqInfoManager::tqExcludeFilenameRules;
  scan.walk.ruleCount = TqInfoManager::num_tqExcludeFilenameRules;
  scan.run.maxFileSizeBytes = TqInfoManager::Settings().MaxFileSizeBytes();
  Log("Parsed tqexcluderules_mandatory.xml, tqexcluderules_editable.xml, and tqinfo.xml, found ", scan.walk.ruleCount,
      " excludefname_rule unique startsWith rules.\n");
}

void LogSizesOfLastRun(const TqScan& scan) {
  LogAsProcess(" filesizes filestats=", TqFile::FileSize(scan.fileStatsPath),
               ", topdirs=", TqFile::FileSize(scan.topDirsPath));
}

void DecideFreshness(TqScan& scan) {
  scan.run.fresh = scan.run.urgent || !TqFile::Exists(scan.topDirsPath);
}

// --- the plan ---

void DiscardLeftoverProgress(const TqScan& scan) {
  if (!TqFile::Exists(scan.topDirsFuturePath)) return;
  const TqString aside = Joined(scan.topDirsFuturePath, "_aside");
  TqFile::AtomicMoveFile(scan.topDirsFuturePath, aside);
  TqFile::DeleteFile(scan.topDirsFuturePath);
  TqFile::DeleteFile(aside);
}

/// A new plan walks everything, so nothing may be left that it would append to. The volumes are noted before and looked
/// at again behind the planning: one that went and came back meanwhile has directories missing in the plan.
void BuildPlan(TqScan& scan) {
  TqVolumeInfoList selected;
  TqInfoManager::GetVolumesSelectedForBackup(selected);
  for (const TqVolumeInfo* volume : selected) {
    if (volume->volumeIsCurrentlyConnected) scan.output.NoteMount(volume->mountPointPath);
  }
  const auto exitRun = [](void* run) { ExitScanRun(*static_cast<TqRunState*>(run), 0); };
  ScanDiskAndCreateTopDirsListInRam(scan.plan, scan.defconVolumeAttached, scan.DefconVolume(), exitRun, &scan.run);
  for (const TqVolumeInfo* volume : selected) scan.output.RecheckMount(volume->mountPointPath);
  DeleteFutureLists();
}

void StartWithNewPlan(TqScan& scan) {
  LogAsProcess(scan.run.fresh ? " URGENTLY" : "", scan.run.firstInstall ? " and AT_FIRST_INSTALL_TIME" : "",
               " topdirs.xml.future did not exist, starting fresh scan");
  BuildPlan(scan);
  LogAsProcess(scan.run.fresh ? ", URGENTLY" : "",
               ", after_ScanDiskAndCreateTopDirsListIn, topDirsXmlFuture=", scan.topDirsFuturePath);
  SaveProgress(scan, "first");
  CreateInstalledProgramsReport();
  CreateServicePermissionReport();
}

/// Whether each volume that the leftover plan is in the middle of still has the list written so far. Without it the
/// rest alone would replace the whole volume's list. A plan without a rest was never written by a run.
bool HalfWrittenListsAreThere(const TqTopDirsList& plan) {
  if (plan.next_to_index >= plan.count) return false;
  TqStringVector begun;
  for (std::int32_t i = 0; i < plan.next_to_index; ++i) {
    if (begun.FindIgnoreCase(plan.vguids.At(i)) < 0) begun.Add(plan.vguids.At(i));
  }
  for (std::int32_t i = plan.next_to_index; i < plan.count; ++i) {
    if (!plan.IsActive(i) || begun.FindIgnoreCase(plan.vguids.At(i)) < 0) continue;
    const TqString list = TqFile::PerVolumeListPath(plan.vguids.At(i), plan.PathOf(i));
    if (!TqFile::Exists(Joined(list, ".future"))) return false;
  }
  return true;
}

void ResumeLeftoverPlan(TqScan& scan) {
  LogAsProcess(" topdirs.xml already existed, reading it in");
  if (!ReadTopDirsXmlFile(scan.topDirsFuturePath, scan.plan) || !HalfWrittenListsAreThere(scan.plan)) {
    Log("ERROR: problem reading out topdirs.xml.future");
    BuildPlan(scan);
    WriteTopDirsXmlFile(scan.topDirsFuturePath, scan.plan);
  }
  // Also of a plan all of whose directories were walked: whatever is walked from the start must not be listed and
  // counted twice.
  if (scan.plan.next_to_index == 0) {
    DeleteFutureLists();
    TqFile::DeleteFile(scan.fileStatsFuturePath);
  }
  if (TqFile::Exists(scan.fileStatsFuturePath)) ReadFileStats(scan.fileStatsFuturePath, scan.totals);
}

/// The normal case is a new plan; a leftover one is resumed only when it could not be deleted.
void MakePlan(TqScan& scan) {
  if (TqFile::Exists(scan.topDirsFuturePath)) {
    ResumeLeftoverPlan(scan);
  } else {
    StartWithNewPlan(scan);
  }
}

void VerifyPlan(TqScan& scan) {
  VerifyMountPointsAndCorrectTopDirs(scan.plan, nullptr);
  scan.run.useBackupExcludes = TqInfoManager::Settings().useTimeMachineExcludes;
}

/// With the half-written lists gone a resumed plan has to be walked from its start, or its lists would lack all that
/// was walked before.
void CleanStartWhenFresh(TqScan& scan) {
  if (!scan.run.fresh) return;
  DeleteFutureLists();
  scan.plan.next_to_index = 0;
  scan.totals = TqCategoryTotals();
}

// --- the walk ---

void WalkPlan(TqScan& scan) {
  const std::int32_t start = scan.plan.next_to_index;
  const std::string_view fast = scan.run.fresh ? ", URGENTLY_RUNNING_FAST" : "";
  scan.output.ReserveBuffer();
  scan.loopStartMillis = TqSystem::NowGmtMillis();
  scan.lastSaveMillis = scan.loopStartMillis;
  LogAsProcess(", entering main disk analysis, startAtDir=", start, ", length=", scan.plan.count, fast);
  for (std::int32_t i = start; i < scan.plan.count; ++i) ScanTopDir(scan, i);
  LogAsProcess(", just_after_main_disk analysis, startAtDir=", start, ", length=", scan.plan.count, fast,
               scan.run.fresh ? ", about to rename the .future files into primary lists." : "");
}

// --- results into place ---

void SwapInTopDirs(TqScan& scan) {
  scan.plan.next_to_index = 0;
  if (!WriteTopDirsXmlFile(scan.topDirsFuturePath, scan.plan)) {
    Log("ERROR: problem writing out topdirs.xml.future second");
  }
  MoveIntoPlace(scan.topDirsFuturePath, scan.topDirsPath, kTopDirsMoveTries);
}

void WriteFinalStatistics(const TqScan& scan) {
  WriteFileStatsOut(scan.fileStatsPath, true, scan.totals);
  TqFile::DeleteFile(scan.fileStatsFuturePath);
}

void CleanUpFutureFiles(TqStringVector& names) {
  LogAsProcess(" about to clean up all the .future files");
  DeleteAllFutureFiles(names);
}

/// Whether the highest number of verifications on record is lower than `count`; an unreadable record counts as lower.
bool RecordedVerificationsAreFewer(std::string_view path, std::int32_t count) {
  TqString recorded;
  if (!TqFile::Exists(path) || !TqFile::ReadFileIntoString(path, recorded) || recorded.IsEmpty()) return true;
  std::int64_t number = 0;
  ParseInt64(Trimmed(recorded), number);
  return number < count;
}

void RecordMountVerifications(const TqScan& scan) {
  const TqString path = Joined(TqInstall::ReportsFolder(), "tqstat_max_verify_mounts.txt");
  const std::int32_t count = scan.plan.num_times_mount_points_verified;
  if (!RecordedVerificationsAreFewer(path, count)) return;
  TqInstall::CreateSubFolder(TqInstall::ReportsFolder());
  TqFile::WriteFileAndSwapIn(path, Joined(count));
}

void WriteFirstScanTime(const TqScan& scan) {
  if (!scan.run.firstInstall) return;
  const bool walkedAny = scan.lastFinishedMillis != 0;
  const std::int64_t seconds = walkedAny ? (scan.lastFinishedMillis - scan.loopStartMillis) / kMillisPerSecond : 0;
  TqFile::WriteFileAndSwapIn(Joined(TqInstall::ListsFolder(), "firstfilescantime.xml"),
                             Joined("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<firsttimestats>\n"
                                    "<stat install_fscan_numsecs=\"",
                                    seconds, "\" />\n</firsttimestats>\n"));
}

void DeleteUrgentFlagFile(const TqScan& scan) {
  if (!scan.run.fresh) return;
  const TqString flag = Joined(TqInstall::ListsFolder(), "urgent_is_still_running_flag.txt");
  LogAsProcess(" deleting the urgent_is_still_running_flag.txt flag file: ", flag);
  TqFile::DeleteFile(flag);
}

[[noreturn]] void EndScanRun(TqRunState& run) {
  TqLock::ReleaseFileBasedLock(std::move(run.lock));
  const std::int64_t seconds = (TqSystem::NowGmtMillis() - run.processStartMillis) / kMillisPerSecond;
  LogAsProcess(" exiting out of main, numSeconds=", seconds);
  ExitScanRun(run, 0);
}

}  // namespace

void RunScan(TqRunState& run) {
  // A scan looks at everything, so it must not fetch what a cloud service keeps, nor mount what lies on a server.
  platform::TheMachine().RestrictSideEffects();
  ExitIfSelfDestructIsSet(run);
  ExitIfVersionReachedEndOfLife(run);
  PrepareScanPaths(run);
  CheckForStopRequest(run);

  TqScan scan(run);
  AllocateSecondsTable(scan);
  GrabScanLock(run);

  RefreshVolumeState();
  LogDefconLevels();
  FindDefconVolume(scan);
  DecideUrgency(scan);
  LoadSettingsAndRules(scan);
  LogSizesOfLastRun(scan);
  DecideFreshness(scan);

  DiscardLeftoverProgress(scan);
  MakePlan(scan);
  VerifyPlan(scan);
  CleanStartWhenFresh(scan);
  WalkPlan(scan);

  RefreshScanLockNow(run);
  DeleteOldCompleteList();
  scan.swapper.SwapInAllLists();
  SwapInBigFileList(scan.output);
  SwapInTopDirs(scan);
  WriteFinalStatistics(scan);
  TqStringVector names;
  CleanUpFutureFiles(names);

  TqVolumeInfoList selected;
  ReadSelectionAgain(selected);
  DeleteListsOfDeselectedVolumes(names, selected);
  const TqRetentionPolicy retention = ReadRetentionPolicy();
  WriteStubsForUnseenVolumes(selected, retention, scan.swapper);
  WriteStubsForMissingLists(selected);

  RecordMountVerifications(scan);
  WriteFirstScanTime(scan);
  DeleteUrgentFlagFile(scan);
  EndScanRun(run);
}
