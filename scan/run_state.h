#pragma once

// What one scan run carries from step to step, and the two checks that may end it from deep inside a walk: the stop
// request and the refresh of the scan lock.

#include <cstdint>
#include <memory>

#include "base/file_lock.h"
#include "base/string.h"

struct TqRunState {
  // Set at start-up.
  bool bufferingOff = false;  ///< list lines go to disk at once; also the verbose mode
  bool urgent = false;
  bool firstInstall = false;
  std::int64_t processStartMillis = 0;
  const char* stackBase = nullptr;  ///< an address in main's frame

  // Set by the run.
  bool fresh = false;              ///< unthrottled mode and clean start; the flag handed to the walker
  bool useBackupExcludes = false;  ///< from the settings
  std::int64_t maxFileSizeBytes = 0;
  TqString stopFilePath;
  TqString lockPath;
  std::unique_ptr<TqLockHandle> lock;
  std::int64_t lastLockRefreshMillis = 0;

  // Counted by the walk.
  std::int32_t dirCounter = 0;  ///< directories listed since the last pause
  std::int32_t maxRecursDepthSeen = 0;
  std::int64_t virtualMegabytes = 0;  ///< memory figures of the last detail message
  std::int64_t residentMegabytes = 0;
  std::int64_t hardwareMegabytes = 0;

  /// Megabytes of stack between the start of the process and now.
  std::int64_t StackMegabytes() const;
  /// Reads the three memory figures anew.
  void UpdateMemoryFigures();
};

/// "processId=<pid>", as most messages of the run carry it.
TqString ProcessIdText();

/// Forms the stop-file and lock-file paths; creates the data folder and its tqfilelists when missing.
void PrepareScanPaths(TqRunState& run);

/// Ends the process when the stop file is there: deletes it and the lock file, status 0.
void CheckForStopRequest(TqRunState& run);

/// Releases the scan lock, if held, and ends the process.
[[noreturn]] void ExitScanRun(TqRunState& run, int status);

/// Refreshes the scan lock when more than five minutes passed since the last time; takes it anew when it was lost, and
/// ends the process with status 1 (leaving the lock file alone) when that fails. The messages are the run's own.
void RefreshScanLockBetweenTopDirs(TqRunState& run);
/// The same from inside the walk of `startDir`, with the walker's messages.
void RefreshGlobalThreeHourLock_ExitIfFail(TqRunState& run, const TqString& startDir);
/// Refreshes at once, whatever time has passed since (before lists are swapped in); failure as above.
void RefreshScanLockNow(TqRunState& run);
