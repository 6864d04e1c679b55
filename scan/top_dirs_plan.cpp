#include <algorithm>
#include <vector>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/log.h"
#include "scan/run_state.h"
#include "scan/top_dirs.h"
#include "selection/rule_engine.h"
#include "volumes/selected_volumes.h"

// --- the skip rules of the first level ---

namespace {

/// Left out in every case; letter case matters.
constexpr std::string_view kSkippedEndings[] = {"/Volumes/",
                                                "/net/",
                                                "/automount/",
                                                "/Backups.backupdb/",
                                                "/.MobileBackups/",
                                                "/.PKInstallSandboxManager-SystemSoftware/",
                                                "/Windows/",
                                                "/Program Files/",
                                                "/Program Files (x86)/"};
constexpr std::string_view kSkippedPart = ".com.apple.NetBootX/";

/// Left out when the settings or rules exclude the directory; any letter case.
constexpr std::string_view kAskedParts[] = {"/Applications/",
                                            "/automount/",
                                            "/Developer/",
                                            "/Library/",
                                            "/private/",
                                            "/network/",
                                            "/system/",
                                            "/wd smartware.swstor/",
                                            "/wdsmartware.swstor/",
                                            "/wdbackup.swstor/",
                                            "/bin/",
                                            "/dev/",
                                            "/etc/",
                                            "/net/",
                                            "/opt/",
                                            "/sbin/",
                                            "/usr/",
                                            "/home/"};

/// Left out in every case; any letter case.
constexpr std::string_view kSkippedEndingsAnyCase[] = {"/private/",
                                                       "/network/",
                                                       "/system/",
                                                       "/bin/",
                                                       "/dev/",
                                                       "/etc/",
                                                       "/net/",
                                                       "/opt/",
                                                       "/sbin/",
                                                       "/usr/",
                                                       ".com.apple.NetBootX/",
                                                       "/.DocumentRevisions-V100/",
                                                       "/.Spotlight-V100/",
                                                       "/.fseventsd/",
                                                       "/afs/",
                                                       "/Backups.backupdb/",
                                                       "/.MobileBackups/"};

/// Left out at the second level; exactly so, in lower case.
constexpr std::string_view kSkippedSecondLevelBeginning = "/library/printers";

}  // namespace

bool IsSkippedFirstLevelDir(const TqString& path) {
  const auto pathEnds = [&](std::string_view ending) { return path.EndsWith(ending); };
  const auto pathHoldsAnyCase = [&](std::string_view part) { return path.ContainsIgnoreCase(part); };
  const auto pathEndsAnyCase = [&](std::string_view ending) { return path.EndsWithIgnoreCase(ending); };

  if (std::ranges::any_of(kSkippedEndings, pathEnds) || path.Contains(kSkippedPart)) return true;
  if (std::ranges::any_of(kAskedParts, pathHoldsAnyCase) && TqInfoManager::DirIsExcludedFromBackupInTqInfo(path)) {
    return true;
  }
  return std::ranges::any_of(kSkippedEndingsAnyCase, pathEndsAnyCase);
}

// --- planning ---

namespace {

constexpr char kMountPoint = '0';
constexpr char kFirstLevel = '1';
constexpr char kSecondLevel = '2';

struct PlannedDir {
  char mode;
  TqString path;  ///< ends in "/"
};
using Plan = std::vector<PlannedDir>;

bool IsDirToPlan(const TqFileInfo& entry) {
  return entry.isDir && !entry.isSpecial;
}

void DropUnattachedVolumes(TqVolumeInfoList& volumes) {
  for (std::int32_t i = 0; i < volumes.Count();) {
    if (volumes.Get(i)->volumeIsCurrentlyConnected) {
      ++i;
      continue;
    }
    Log("WARNING: ScanDiskAndCreateTopDirsListInRam, volume: ", volumes.Get(i)->mountPointPath,
        " is not currently attached OR SOMEBODY REMOVED THE \".tqvol\" dir at the top level of the drive, "
        "so removing it from scan");
    volumes.RemoveAt(i);
  }
}

void LogPlannedVolumes(std::int32_t volumeCount, const TqVolumeInfo* defconVolume) {
  TqString interesting = " null_MostInterestingVolumeTo_tqfileListIn";
  if (defconVolume != nullptr) {
    interesting = defconVolume->mountPointPath.IsEmpty()
                      ? TqString(" MostInterestingVolumeTo_tqfileListIn_mountPointPath_is_NULL")
                      : Joined(" MostInterestingVolumeTo_tqfileListIn_mountPointPath=", defconVolume->mountPointPath);
  }
  Log("ScanDiskAndCreateTopDirsListInRam ", ProcessIdText(), ", found ", volumeCount,
      " top level drives selected for backup, ", interesting);
}

constexpr std::int64_t kListingPauseMillis = 1'000;

/// Lists a directory for the plan. What is not told here is not walked at all, so an error that need not last gets a
/// second chance. `error` as with any listing.
bool ListToPlan(const TqString& path, TqFileInfoList& listing, int& error) {
  const bool listed = TqFile::GetListOfFileInfosInDir(&path, &listing, &error);
  if (TqFile::IsOfFolderAlone(error)) return listed;
  TqSystem::SleepMillis(kListingPauseMillis);
  return TqFile::GetListOfFileInfosInDir(&path, &listing, &error);
}

/// A first-level directory that is not skipped, and the directories in it.
void PlanFirstLevelDir(Plan& plan, const TqString& path) {
  if (IsSkippedFirstLevelDir(path)) return;
  plan.push_back({kFirstLevel, path});

  TqFileInfoList listing;
  int error = 0;
  if (!ListToPlan(path, listing, error)) {
    Log("ERROR: GetListOfFileInfosInDir failed for SECOND: ", path);
    return;
  }
  TqFile::RemoveMountedFoldersFromList(listing);
  for (std::int32_t i = 0; i < listing.Count(); ++i) {
    const TqFileInfo& entry = *listing.Get(i);
    if (!IsDirToPlan(entry) || entry.path.StartsWith(kSkippedSecondLevelBeginning)) continue;
    plan.push_back({kSecondLevel, Joined(entry.path, '/')});
  }
}

/// A mount point and two directory levels below it. One that cannot be listed to its end is left out whole, so that no
/// empty or cut list ever replaces the volume's last good one.
void PlanVolume(Plan& plan, std::int32_t volumeIndex, const TqString& mountPoint) {
  const TqString topDir = Joined("topDirIndex=", volumeIndex, ", ", ProcessIdText());
  // 4.1 The mount point itself.
  const bool hasSeparator = mountPoint.EndsWith("/") || mountPoint.EndsWith("\\");
  plan.push_back({kMountPoint, hasSeparator ? mountPoint : Joined(mountPoint, '/')});

  // 4.2 Its listing.
  Log(topDir, ", Before_looking_in: ", mountPoint, " for files.");
  TqFileInfoList listing;
  int error = 0;
  if (!ListToPlan(mountPoint, listing, error) || !TqFile::IsOfFolderAlone(error)) {
    Log("ERROR: ", ProcessIdText(), ", GetListOfFileInfosInDir failed for TOP: ", mountPoint);
    plan.pop_back();
    return;
  }

  // 4.3 How much is in it.
  const std::int32_t numAllFiles = listing.Count();
  Log("                  ", topDir, ", Middle_looking_in: ", mountPoint,
      " for files, found numAllFilesInTopLevelDir=", numAllFiles);

  // 4.4 The two levels below.
  TqFile::RemoveMountedFoldersFromList(listing);
  for (std::int32_t i = 0; i < listing.Count(); ++i) {
    const TqFileInfo& entry = *listing.Get(i);
    if (IsDirToPlan(entry)) PlanFirstLevelDir(plan, Joined(entry.path, '/'));
  }

  // 4.5 Done with this volume.
  Log("                  ", topDir, ", After_looking_in: ", mountPoint,
      " for files, finished looking in all numAllFilesInTopLevelDir=", numAllFiles,
      " and topTwoLevelDirs is now up to count=", plan.size());
}

}  // namespace

void ScanDiskAndCreateTopDirsListInRam(TqTopDirsList& list, bool defconVolumeAttached, const TqVolumeInfo* defconVolume,
                                       void (*exitRun)(void* context), void* context) {
  // 1. The time, an empty list, the selected volumes.
  const std::int64_t startMillis = TqSystem::NowGmtMillis();
  list.Clear();
  TqVolumeInfoList volumes;
  TqInfoManager::GetVolumesSelectedForBackup(volumes);

  // 2. Only attached ones.
  DropUnattachedVolumes(volumes);
  if (volumes.Count() == 0) {
    Log("ERROR: ScanDiskAndCreateTopDirsListInRam ", ProcessIdText(), ", no drives selected for backup, exiting...");
    return exitRun(context);
  }

  // 3. What is going to be planned.
  LogPlannedVolumes(volumes.Count(), defconVolume);

  // 4. Each volume with two directory levels.
  Plan plan;
  for (std::int32_t t = 0; t < volumes.Count(); ++t) PlanVolume(plan, t, volumes.Get(t)->mountPointPath);

  // 5. By path, whatever the mode.
  std::ranges::stable_sort(plan,
                           [](const PlannedDir& a, const PlannedDir& b) { return CompareBytes(a.path, b.path) < 0; });

  // 6. The defcon volume's directories first.
  if (defconVolumeAttached && defconVolume != nullptr) {
    std::ranges::stable_partition(plan, [&](const PlannedDir& dir) {
      return TqFile::GetVolumePathOfDir(dir.path) == defconVolume->mountPointPath;
    });
  }

  // 7. The figures (the counters are 0 since Clear).
  list.millis_to_produce = TqSystem::NowGmtMillis() - startMillis;
  list.gmt_millis = startMillis;
  list.count = static_cast<std::int32_t>(plan.size());

  // 8. The entries with their volumes' GUIDs.
  for (const PlannedDir& dir : plan) {
    list.dirs.Add(Joined(dir.mode, dir.path));
    list.vguids.Add(VguidOfPath(volumes, dir.path, "ScanDiskAndCreateTopDirsListInRam"));
  }
}
