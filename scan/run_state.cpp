#include "scan/run_state.h"

#include <cstdlib>
#include <string_view>
#include <utility>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/system_info.h"
#include "platform/platform.h"

namespace {

constexpr std::int64_t kRefreshEveryMillis = 300'000;
constexpr std::int64_t kWarnAboveMillis = 3'000'000;
/// A lock that had to be taken anew may be broken after one hour already, not after three: whoever took it from us
/// believed that we were dead.
constexpr std::int64_t kRegrabStalenessSeconds = 3600;
constexpr std::int64_t kRegrabWaitSeconds = 3;
constexpr std::int64_t kBytesPerMegabyte = 1'048'576;

/// Who refreshes: the run between top directories, or the walker inside one.
struct RefreshWording {
  std::string_view origin;
  std::string_view tail;
};

void EndBecauseLockIsLost(const RefreshWording& wording) {
  Log("ERROR: tqfilelist ", wording.origin, "processId= ", TqSystem::ProcessId(),
      " lost hour lock and could not grab it again, exiting!!", wording.tail);
  platform::TheMachine().Exit(1);
}

/// The old handle is dropped without touching the file, which belongs to somebody else by now.
void TakeLockAnew(TqRunState& run, const RefreshWording& wording) {
  run.lock.reset();
  run.lock = TqLock::GrabFileBasedLock(run.lockPath, kRegrabStalenessSeconds, kRegrabWaitSeconds);
  if (run.lock == nullptr) EndBecauseLockIsLost(wording);
  Log(" lost hour lock but grabbed it back again, so continuing on...", wording.tail);
}

void RefreshOrTakeAnew(TqRunState& run, const RefreshWording& wording) {
  const std::int64_t elapsed = TqSystem::NowGmtMillis() - run.lastLockRefreshMillis;
  if (elapsed > kWarnAboveMillis) {
    Log("WARNING: tqfilelist ", wording.origin, "processId= ", TqSystem::ProcessId(),
        " more than 50 minutes since last refresh, elapsedMillis=", elapsed, wording.tail);
  }
  if (!TqLock::RefreshFileBasedLock(run.lock.get())) TakeLockAnew(run, wording);
  run.lastLockRefreshMillis = TqSystem::NowGmtMillis();
}

void RefreshWhenDue(TqRunState& run, const RefreshWording& wording) {
  if (TqSystem::NowGmtMillis() - run.lastLockRefreshMillis > kRefreshEveryMillis) RefreshOrTakeAnew(run, wording);
}

}  // namespace

std::int64_t TqRunState::StackMegabytes() const {
  if (stackBase == nullptr) return 0;
  const auto* here = static_cast<const char*>(__builtin_frame_address(0));
  return std::abs(here - stackBase) / kBytesPerMegabyte;
}

void TqRunState::UpdateMemoryFigures() {
  virtualMegabytes = TqSystem::Megabytes(TqSystem::VirtualMemoryBytes());
  residentMegabytes = TqSystem::Megabytes(TqSystem::ResidentMemoryBytes());
  hardwareMegabytes = TqSystem::Megabytes(TqSystem::HardwareMemoryBytes());
}

TqString ProcessIdText() {
  return Joined("processId=", TqSystem::ProcessId());
}

void PrepareScanPaths(TqRunState& run) {
  TqInstall::CreateDataFolder();
  const TqString lists = TqInstall::ListsFolder();
  TqInstall::CreateSubFolder(lists);
  run.stopFilePath = Joined(lists, "tqfilelist_stop_run.txt");
  run.lockPath = Joined(lists, "tqfilelist_hour_lock.lck");
}

void CheckForStopRequest(TqRunState& run) {
  if (!TqFile::Exists(run.stopFilePath)) return;
  Log("tqfilelist ", ProcessIdText(), " - STOP RUNNING file is in place, deleting file and exiting!");
  TqFile::DeleteFile(run.stopFilePath);
  TqFile::DeleteFile(run.lockPath);
  platform::TheMachine().Exit(0);
}

void ExitScanRun(TqRunState& run, int status) {
  if (run.lock != nullptr) TqLock::ReleaseFileBasedLock(std::move(run.lock));
  platform::TheMachine().Exit(status);
  std::abort();  // never reached: compilers do not see through the virtual call that it does not return
}

void RefreshScanLockBetweenTopDirs(TqRunState& run) {
  RefreshWhenDue(run, {"", ""});
}

void RefreshGlobalThreeHourLock_ExitIfFail(TqRunState& run, const TqString& startDir) {
  const TqString tail = Joined(", startDirIn=", startDir);
  RefreshWhenDue(run, {"RefreshGlobalThreeHourLock_ExitIfFail - ", tail});
}

void RefreshScanLockNow(TqRunState& run) {
  RefreshOrTakeAnew(run, {"", ""});
}
