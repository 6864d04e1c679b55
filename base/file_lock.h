#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "base/string.h"

/// Mutual exclusion between processes, possibly on different machines that share a volume, by the existence of a lock
/// file. A lock is identified by its file's modification time; one whose file was not touched for longer than its
/// staleness may be broken by anyone. All times are milliseconds since 1970 GMT.
class TqLockHandle {
 public:
  virtual ~TqLockHandle() = default;

  TqString path;
  std::int64_t stalenessMillis = 0;
  std::int64_t recordedModTime = 0;  ///< 0: unknown
  std::int64_t lastRefresh = 0;      ///< the machine's clock at the last successful grab or refresh
};

namespace TqLock {

/// Null when another holder has it. A wait of 3 seconds is 16 attempts over 3,195 ms; below one second there is one
/// attempt.
std::unique_ptr<TqLockHandle> GrabFileBasedLock(std::string_view path, std::int64_t stalenessSeconds,
                                                std::int64_t waitSeconds);
/// Replaces the lock file by a fresh one through a rename, at most once per 15 seconds. False (logged): the lock is
/// lost.
bool RefreshFileBasedLock(TqLockHandle* handle);
/// Deletes the lock file if it is still ours and destroys the handle in every case.
void ReleaseFileBasedLock(std::unique_ptr<TqLockHandle> handle);
/// The current time as the file system that holds `path` sees it.
std::int64_t FileSystemClock(std::string_view path);

}  // namespace TqLock
