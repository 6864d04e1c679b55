#include "base/file_lock.h"

#include <algorithm>
#include <cstdlib>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/log.h"
#include "base/system_info.h"
#include "platform/descriptor.h"
#include "platform/platform.h"

namespace {

constexpr unsigned kLockMode = 0666;
constexpr std::int64_t kFirstSleepMillis = 5;
constexpr std::int64_t kLongestSleepMillis = 3'000;
constexpr std::int64_t kRefreshPauseMillis = 15'000;
constexpr std::int64_t kClockWarningMillis = 300'001;
constexpr std::int32_t kRandomBound = 65'536;
constexpr std::int64_t kFirstCounter = 10'000;
constexpr std::int64_t kLastProbeCounter = 2'000'000;

std::int64_t NextProbeNumber() {
  static std::int64_t counter = kFirstCounter;
  if (++counter > kLastProbeCounter) counter = kFirstCounter;
  return counter;
}

std::int64_t NextRefreshNumber() {
  static std::int64_t counter = kFirstCounter;
  return ++counter;
}

/// Creates an empty file that nobody may have had. `modTime` is its time on its own file system, 0 when that is
/// unknown.
bool CreateExclusively(std::string_view path, std::int64_t& modTime) {
  platform::Descriptor file;
  if (file.Open(TqString(path).c_str(), platform::OpenMode::kCreateExclusive, kLockMode) != 0) return false;
  platform::TheFiles().ChangeDescriptorMode(file.Get(), kLockMode);
  platform::FileFacts facts;
  modTime = platform::TheFiles().StatDescriptor(file.Get(), facts) == 0 ? facts.modTimeSec * 1000 : 0;
  return true;
}

bool CreateLock(TqLockHandle& handle) {
  if (!CreateExclusively(handle.path, handle.recordedModTime)) return false;
  handle.lastRefresh = TqSystem::NowGmtMillis();
  return true;
}

enum class LockTime { kKnown, kMissing, kUnreadable };

LockTime ReadLockTime(std::string_view path, std::int64_t& modTime) {
  TqFileInfo info;
  if (!TqFile::GetInfoAboutFileOrDir(path, info)) {
    return TqFile::Exists(path) ? LockTime::kUnreadable : LockTime::kMissing;
  }
  modTime = info.modTimeMs;
  return LockTime::kKnown;
}

/// Attempts with growing pauses; the last pause may overrun the wait.
bool CreateWithBackOff(TqLockHandle& handle, std::int64_t waitSeconds) {
  const std::int64_t waitMillis = waitSeconds * 1000;
  std::int64_t slept = 0;
  std::int64_t pause = kFirstSleepMillis;
  while (!CreateLock(handle)) {
    if (waitSeconds < 1 || slept > waitMillis) return false;
    if (slept > 0 && (waitMillis - slept) / 4 > 2 * pause) pause = std::min(2 * pause, kLongestSleepMillis);
    TqSystem::SleepMillis(pause);
    slept += pause;
  }
  return true;
}

/// Deletes a lock file that nobody touched for longer than its staleness and tries to create it anew. The time is read
/// twice: the file that was judged may have been replaced by a fresh one while the file system's clock was asked.
bool BreakStaleLock(TqLockHandle& handle) {
  std::int64_t judged = 0;
  LockTime state = ReadLockTime(handle.path, judged);
  if (state == LockTime::kKnown) {
    if (TqLock::FileSystemClock(handle.path) - judged <= handle.stalenessMillis) return false;
    std::int64_t again = 0;
    state = ReadLockTime(handle.path, again);
    if (state == LockTime::kKnown && (again != judged || !TqFile::DeleteFile(handle.path))) return false;
  }
  return state != LockTime::kUnreadable && CreateLock(handle);
}

/// Logs why a refresh failed and answers false.
template <typename... Pieces>
bool RefreshFailed(const Pieces&... reason) {
  Log("ERROR: processId=", TqSystem::ProcessId(), " failed to refresh lock because ", reason...);
  return false;
}

/// Whether the lock file is still the one recorded and not old enough for anybody to break it.
bool IsStillOurs(const TqLockHandle& handle) {
  std::int64_t actual = 0;
  if (ReadLockTime(handle.path, actual) != LockTime::kKnown) {
    return RefreshFailed("file does not exist: ", handle.path);
  }
  const std::int64_t difference = actual - handle.recordedModTime;
  if (handle.recordedModTime != 0 && difference != 0) {
    return RefreshFailed("file mod time changed: ", handle.path, "time was supposed to be ", handle.recordedModTime,
                         " but instead the fileLastModTime was ", actual, " which is a difference of ", difference,
                         " millis (", difference / 1000, " seconds)");
  }
  if (TqLock::FileSystemClock(handle.path) - actual > handle.stalenessMillis) {
    return RefreshFailed("file mod time too long ago: ", handle.path);
  }
  return true;
}

/// Notes the times after a fresh file took the lock's place; clocks that disagree are only worth a line.
void RecordRefresh(TqLockHandle& handle, std::string_view freshName, std::int64_t freshModTime) {
  const int pid = TqSystem::ProcessId();
  handle.recordedModTime = freshModTime;
  ReadLockTime(handle.path, handle.recordedModTime);
  handle.lastRefresh = TqSystem::NowGmtMillis();
  if (handle.recordedModTime != freshModTime) {
    Log("ERROR: processId=", pid, " refresh lock AtomicMove before and after mod times do not match: ", freshName);
  }
  const std::int64_t drift = std::abs(handle.lastRefresh - handle.recordedModTime);
  if (drift >= kClockWarningMillis) {
    Log("WARNING: processId=", pid, " file system believes time is more than 5 min off CPU, millis=", drift);
  }
}

}  // namespace

namespace TqLock {

std::unique_ptr<TqLockHandle> GrabFileBasedLock(std::string_view path, std::int64_t stalenessSeconds,
                                                std::int64_t waitSeconds) {
  auto handle = std::make_unique<TqLockHandle>();
  handle->path = path;
  handle->stalenessMillis = stalenessSeconds * 1000;
  handle->lastRefresh = TqSystem::NowGmtMillis();
  const bool created = waitSeconds >= 0 && CreateWithBackOff(*handle, waitSeconds);
  if (!created && !BreakStaleLock(*handle)) return nullptr;
  return handle;
}

bool RefreshFileBasedLock(TqLockHandle* handle) {
  if (handle == nullptr) return false;
  const std::int64_t now = TqSystem::NowGmtMillis();
  if (now >= handle->lastRefresh && now - handle->lastRefresh < kRefreshPauseMillis) return true;
  if (!IsStillOurs(*handle)) return false;
  const TqString fresh = Joined(handle->path, "_", TqSystem::RandomBelow(kRandomBound), "_", now, NextRefreshNumber());
  std::int64_t freshModTime = 0;
  if (!CreateExclusively(fresh, freshModTime)) return RefreshFailed("could not write out file: ", fresh);
  if (!TqFile::AtomicMoveFile(fresh, handle->path)) {
    TqFile::DeleteFile(fresh);
    return RefreshFailed("could not AtomicMove file: ", fresh);
  }
  RecordRefresh(*handle, fresh, freshModTime);
  return true;
}

void ReleaseFileBasedLock(std::unique_ptr<TqLockHandle> handle) {
  if (handle == nullptr) return;
  std::int64_t actual = 0;
  const bool isKnown = ReadLockTime(handle->path, actual) == LockTime::kKnown;
  if (handle->recordedModTime != 0 && (!isKnown || actual != handle->recordedModTime)) {
    Log("ERROR: TqLock::ReleaseFileBasedLock, not our lock: ", handle->path);
    return;
  }
  TqFile::DeleteFile(handle->path);
}

std::int64_t FileSystemClock(std::string_view path) {
  const std::int64_t now = TqSystem::NowGmtMillis();
  const TqString probe = Joined(path, now, TqSystem::HostName().Slice(0, 15), NextProbeNumber());
  std::int64_t modTime = 0;
  if (!CreateExclusively(probe, modTime)) return now;
  TqFile::DeleteFile(probe);
  return modTime != 0 ? modTime : now;
}

}  // namespace TqLock
