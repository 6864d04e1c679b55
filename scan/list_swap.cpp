#include "scan/list_swap.h"

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/system_info.h"
#include "volumes/volume_query.h"

namespace {

constexpr std::int64_t kMovePauseMillis = 500;
constexpr std::int64_t kUnmountMillis = 5'000;
constexpr int kSilentMoveFailures = 10;
/// An elevated volume whose list is younger than this many days waits for the end of the run like all others.
constexpr std::int32_t kEarlySwapAboveDays = 6;

/// A message of the verbose mode about an early swap that is not made; always false.
template <typename... Pieces>
bool Skipping(const TqRunState& run, const Pieces&... pieces) {
  if (run.bufferingOff) Log("tqfilelist ", ProcessIdText(), ", skippingOptimization because ", pieces...);
  return false;
}

}  // namespace

bool MoveIntoPlace(std::string_view from, std::string_view to, int tries, std::string_view failureText) {
  for (int attempt = 1; attempt <= tries; ++attempt) {
    if (TqFile::AtomicMoveFile(from, to)) return true;
    if (attempt > kSilentMoveFailures && !failureText.empty()) Log(failureText);
    if (attempt < tries) TqSystem::SleepMillis(kMovePauseMillis);
  }
  return false;
}

/// What is put in front of a swap's messages.
struct TqListSwapper::Wording {
  std::string_view prefix;
  std::string_view errorPrefix;
};
const TqListSwapper::Wording TqListSwapper::kFinalWording = {"", ""};
const TqListSwapper::Wording TqListSwapper::kDefconWording = {"DEFCON_", "DEFCON "};

void TqListSwapper::SwapInAllLists() {
  for (std::int32_t i = 0; i < list_.dirs.Count(); ++i) {
    if (!list_.IsActive(i) || IsHandled(list_.vguids.At(i))) continue;
    if (SwapIn(i, kFinalWording)) MarkHandled(list_.vguids.At(i));
  }
}

bool TqListSwapper::SwapIn(std::int32_t index, const Wording& wording) {
  const TqString& vguid = list_.vguids.At(index);
  const TqString name = TqFile::PerVolumeListPath(vguid, list_.PathOf(index));
  const TqString future = Joined(name, ".future");
  if (!TqFile::Exists(future)) return false;

  const std::int64_t numBytes = TqFile::FileSize(future);
  const TqString nameAndSize = Joined(name, ", numBytes=", numBytes, " (", TqSystem::Megabytes(numBytes), " MB)");
  if (!output_.IsWhole(future)) {
    TqFile::DeleteFile(future);
    Log(wording.prefix, "NOT SWAPPING IN in AtomicMove per-Vol filelist: ", name,
        ", because it could not be written completely!");
  } else if (!IsStillTheSameVolume(index)) {
    TqFile::DeleteFile(future);
    Log(wording.prefix, "NOT SWAPPING IN in AtomicMove per-Vol filelist: ", nameAndSize,
        " because it is no longer mounted!");
  } else if (MoveIntoPlace(future, name, kListMoveTries,
                           Joined(wording.errorPrefix, "ERROR: failures AtomicMove per-Vol filelist: ", name))) {
    swappedIn_.Add(vguid);
    Log(wording.prefix, "Swapped in AtomicMove per-Vol filelist: ", nameAndSize);
  }
  return true;
}

/// A drive that was pulled out, or exchanged for another one, must not have its good list replaced by half a walk.
bool TqListSwapper::IsStillTheSameVolume(std::int32_t index) {
  TqString volumePath = TqFile::GetVolumePathOfDir(list_.PathOf(index));
  WaitForUnmount(volumePath);
  output_.RecheckMount(volumePath);
  if (output_.IsInterrupted(volumePath)) return false;
  TqVolumeInfo volume;
  return TqFile::GetInfoAboutAttachedVolume(&volumePath, &volume) && volume.volumeIsCurrentlyConnected &&
         EqualsIgnoreCase(volume.vguid, list_.vguids.At(index));
}

/// A drive that was pulled while its last directories were walked is still mounted for a moment. One with a bad spot
/// stays mounted and gets its list. One wait serves all volumes that failed until then.
void TqListSwapper::WaitForUnmount(std::string_view volumePath) {
  if (!output_.MayBeGoing(volumePath)) return;
  Log("tqfilelist ", ProcessIdText(), ", listings failed, so waiting whether this volume goes away: ", volumePath);
  TqSystem::SleepMillis(kUnmountMillis);
  output_.NoteUnmountWait();
}

void TqListSwapper::SwapInDefconListEarly(TqRunState& run, std::int32_t index, const TqVolumeInfo* defconVolume) {
  if (index > list_.count - 2) {
    Skipping(run, "we are so close to end anyway");
    return;
  }
  if (defconVolume == nullptr || defconVolume->lastFileListedInDays <= kEarlySwapAboveDays ||
      !IsWalkOfDefconVolumeComplete(run, index, *defconVolume)) {
    return;
  }
  RefreshScanLockNow(run);
  const TqString& vguid = list_.vguids.At(index);
  Log("OPTIMIZATION_for_DEFCON ", ProcessIdText(), " - tqfilelist swapping in .future filelist of ",
      "tqVol_lastFileListedInDays=", defconVolume->lastFileListedInDays, ", fromMount = ", list_.dirs.At(index),
      ", with vGuid=", vguid);
  if (!SwapIn(index, kDefconWording)) {
    Log("ERROR: OPTIMIZATION_for_DEFCON future file did not exist, fileName=",
        TqFile::PerVolumeListPath(vguid, list_.PathOf(index)));
  }
  MarkHandled(vguid);
}

bool TqListSwapper::IsWalkOfDefconVolumeComplete(const TqRunState& run, std::int32_t index,
                                                 const TqVolumeInfo& defconVolume) const {
  if (!list_.IsActive(index)) return Skipping(run, "cur_dirToIndexStr->Length() is zero");
  if (!list_.IsActive(index + 1)) return Skipping(run, "next_dirToIndexStr->Length() is zero");
  const std::string_view path = list_.PathOf(index);
  if (!path.starts_with('/')) {
    if (run.bufferingOff) Log("ERROR: tqfilelist could not pull out mount point from: ", list_.dirs.At(index));
    return false;
  }
  const TqString mountPoint = TqFile::GetVolumePathOfDir(path);
  if (mountPoint != defconVolume.mountPointPath) {
    return Skipping(run, "this is NOT the most interesting DEFCON mounted drive, mostInteresting=",
                    defconVolume.mountPointPath, ", cur_TopLevelMountPoint=", mountPoint);
  }
  const TqString& vguid = list_.vguids.At(index);
  if (!EqualsIgnoreCase(vguid, defconVolume.vguid)) {
    return Skipping(run, "while a close_call, the vguids did not match, mostInterestingVguid=", defconVolume.vguid,
                    ", cur_vGuidToIndexStr=", vguid);
  }
  const bool nextIsElsewhere = TqFile::GetVolumePathOfDir(list_.PathOf(index + 1)) != mountPoint;
  return nextIsElsewhere && !LaterEntryHasVguid(index, vguid);
}

/// A list swapped in early with directories of its volume still to come would be cut short.
bool TqListSwapper::LaterEntryHasVguid(std::int32_t index, std::string_view vguid) const {
  for (std::int32_t i = index + 1; i < list_.dirs.Count(); ++i) {
    if (list_.IsActive(i) && EqualsIgnoreCase(list_.vguids.At(i), vguid)) return true;
  }
  return false;
}

void SwapInBigFileList(const TqListOutput& output) {
  const TqString target = Joined(TqInstall::ListsFolder(), "bigfilelist.dat");
  const TqString future = Joined(target, ".future");
  if (!TqFile::Exists(future)) {
    Log("WARNING: future bigfile does not exist so no swap: ", future);
    return;
  }
  if (!output.IsWhole(future)) {
    TqFile::DeleteFile(future);
    Log("NOT SWAPPING IN future bigfile: ", future, ", because it could not be written completely!");
    return;
  }
  MoveIntoPlace(future, target, kListMoveTries,
                Joined("ERROR: failures AtomicMove C2 future bigfiles from: ", future, ", to: ", target));
}
