#include "scan/top_dirs.h"

#include <algorithm>

#include "base/clock.h"
#include "base/file_io.h"
#include "base/log.h"
#include "scan/run_state.h"
#include "volumes/volume_query.h"

namespace {

constexpr std::int32_t kFreeVerifications = 20;
constexpr std::int64_t kVerificationPauseMillis = 300'000;
/// Time of the last full verification beyond the free ones; 0: none yet.
std::int64_t lastVerificationMillis = 0;

/// `path` without its trailing "/"; "/" itself stays.
std::string_view WithoutSeparator(std::string_view path) {
  return path.size() > 1 && path.ends_with('/') ? path.substr(0, path.size() - 1) : path;
}

/// The first attached volume whose mount point is the volume path of `path`, or null. A mount point that is a mere
/// prefix does not count: "/" is a prefix of every path.
const TqVolumeInfo* VolumeOfPath(const TqVolumeInfoList& volumes, std::string_view path) {
  const TqString volumePath = TqFile::GetVolumePathOfDir(path);
  for (const TqVolumeInfo* volume : volumes) {
    if (volume->volumeIsCurrentlyConnected && volume->mountPointPath == volumePath) return volume;
  }
  return nullptr;
}

}  // namespace

// --- the list ---

bool TqTopDirsList::IsActive(std::int32_t index) const {
  return !PathOf(index).empty() && !vguids.At(index).IsEmpty();
}

char TqTopDirsList::ModeOf(std::int32_t index) const {
  return dirs.At(index).CharAt(0);
}

std::string_view TqTopDirsList::PathOf(std::int32_t index) const {
  return dirs.At(index).Slice(1);
}

std::int32_t TqTopDirsList::SecondsOf(std::int32_t index) const {
  return secondsTable != nullptr && index >= 0 && index < kMaxSeconds ? secondsTable[index] : 0;
}

void TqTopDirsList::SetSeconds(std::int32_t index, std::int32_t seconds) {
  if (secondsTable != nullptr && index >= 0 && index < kMaxSeconds) secondsTable[index] = seconds;
}

void TqTopDirsList::Clear() {
  count = 0;
  next_to_index = 0;
  num_times_mount_points_verified = 0;
  millis_to_produce = 0;
  gmt_millis = 0;
  dirs.Clear();
  vguids.Clear();
}

TqString WalkPathOfTopDir(std::string_view path) {
  TqString walked = WithoutSeparator(path);
  walked.ReplaceAll("\\", kBackslashStandIn);
  return walked;
}

TqString VguidOfPath(const TqVolumeInfoList& volumes, std::string_view path, std::string_view caller) {
  if (const TqVolumeInfo* volume = VolumeOfPath(volumes, path); volume != nullptr) return volume->vguid;
  Log("ERROR: ", caller, ", could not find associated volume for path: ", path);
  return {};
}

// --- volumes that went away ---

namespace {

/// Whether a walk of the entry path `path` begins at `dir`. Asked for every entry whenever a directory cannot be
/// listed, so the ordinary case costs no allocation.
bool IsWalkedAs(std::string_view path, const TqString& dir) {
  if (path.find('\\') != std::string_view::npos) return WalkPathOfTopDir(path) == dir;
  return WithoutSeparator(path) == dir.View();
}

/// Whether `dir` (in walked form) is the path of an active entry.
bool IsActiveTopDir(const TqTopDirsList& list, const TqString& dir) {
  for (std::int32_t i = 0; i < list.count; ++i) {
    if (!list.IsActive(i)) {
      if (!list.verbose) continue;
      Log("VerifyMountPointsAndCorrectTopDirs ", ProcessIdText(),
          " currentVolGuidLength is zero, or currentTopDirLength is zero, optTriggerDir=", dir, ", i=", i);
    } else if (IsWalkedAs(list.PathOf(i), dir)) {
      return true;
    }
  }
  return false;
}

/// Whether the last full verification is less than five minutes ago; notes the present time when it is not.
bool WasVerifiedRecently() {
  const std::int64_t now = TqSystem::NowGmtMillis();
  // On purpose: the first call only starts the clock, so it counts as recent.
  if (lastVerificationMillis == 0) lastVerificationMillis = now;
  if (now - lastVerificationMillis < kVerificationPauseMillis) return true;
  lastVerificationMillis = now;
  return false;
}

bool IsInOrder(const TqVolumeInfoList& attached, std::string_view vguid, std::string_view path) {
  const TqString volumePath = TqFile::GetVolumePathOfDir(path);
  return std::ranges::any_of(attached, [&](const TqVolumeInfo* volume) {
    return EqualsIgnoreCase(volume->vguid, vguid) && volume->mountPointPath == volumePath && volume->IsType("gm");
  });
}

/// Takes every entry of entry `index`'s volume out of the plan and deletes the volume's unfinished list.
void DropVolumeOfEntry(TqTopDirsList& list, std::int32_t index) {
  const TqString vguid = list.vguids.At(index);
  const TqString futureList = Joined(TqFile::PerVolumeListPath(vguid, list.PathOf(index)), ".future");
  for (std::int32_t i = 0; i < list.count; ++i) {
    if (!list.vguids.At(i).EqualsIgnoreCase(vguid)) continue;
    list.dirs.Get(i)->Clear();
    list.vguids.Get(i)->Clear();
  }
  TqFile::DeleteFile(futureList);
}

}  // namespace

bool VerifyMountPointsAndCorrectTopDirs(TqTopDirsList& list, const TqString* triggerDir) {
  const std::string_view triggerText = triggerDir != nullptr ? triggerDir->View() : "NULL";
  // 1. Verbose mode tells of the call.
  if (list.verbose) {
    Log("Entering VerifyMountPointsAndCorrectTopDirs ", ProcessIdText(), " optTriggerDir=", triggerText,
        ", numTopDirs=", list.count);
  }

  // 2. Every call counts.
  list.num_times_mount_points_verified += 1;

  // 3. Only a top directory is worth the look.
  if (triggerDir != nullptr && !IsActiveTopDir(list, *triggerDir)) {
    Log("VerifyMountPointsAndCorrectTopDirs ", ProcessIdText(),
        " did not find triggerDir in topDirs so short circuit: ", triggerText);
    return true;
  }

  // 4. After the first twenty calls at most one in five minutes.
  if (list.num_times_mount_points_verified > kFreeVerifications && WasVerifiedRecently()) {
    Log("WARNING: VerifyMountPointsAndCorrectTopDirs - called ", list.num_times_mount_points_verified,
        " times and within 5 min so returning TRUE without running: ", triggerText);
    list.num_times_mount_points_verified -= 1;
    return true;
  }

  // 5. The volumes that are there now.
  TqVolumeInfoList attached;
  if (!TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(&attached)) {
    Log("ERROR: VerifyMountPointsAndCorrectTopDirs - TqFile::QueryAllAttachedVolumesForVolumeInfo failed");
    return true;
  }

  // 6. Entries of volumes that are not in order leave the plan.
  bool nothingChanged = true;
  for (std::int32_t i = 0; i < list.count; ++i) {
    if (!list.IsActive(i) || IsInOrder(attached, list.vguids.At(i), list.PathOf(i))) continue;
    Log("VerifyMountPointsAndCorrectTopDirs - Missing volume of dir=", list.PathOf(i), ", vGuid=", list.vguids.At(i));
    DropVolumeOfEntry(list, i);
    nothingChanged = false;
  }

  // 7. Whether the plan is as it was.
  return nothingChanged;
}

void ForgetVerificationTime() {
  lastVerificationMillis = 0;
}
