#pragma once

// One turn of the scan run's main loop: a top directory is walked into its volume's `.future` list, progress is saved,
// the lock refreshed, the run paced.

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "base/string.h"
#include "scan/file_stats.h"
#include "scan/list_output.h"
#include "scan/list_swap.h"
#include "scan/run_state.h"
#include "scan/top_dirs.h"
#include "scan/walker.h"
#include "volumes/volume_info.h"

/// Everything the steps of one scan run share.
struct TqScan {
  explicit TqScan(TqRunState& runState);

  TqRunState& run;
  TqString topDirsPath;    ///< topdirs.xml; the working copies of these three end in ".future"
  TqString fileStatsPath;  ///< filestats.xml
  TqString bigFileListPath;
  TqString topDirsFuturePath;
  TqString fileStatsFuturePath;

  std::unique_ptr<std::int32_t, decltype(&std::free)> secondsTable{nullptr, &std::free};
  TqTopDirsList plan;
  TqListOutput output;
  TqCategoryTables categories;
  TqCategoryTotals totals;
  TqListSwapper swapper{plan, output};
  TqWalk walk;

  bool defconVolumeAttached = false;
  TqVolumeInfo defconVolume;  ///< counts while one is attached
  /// The elevated volume, or null.
  const TqVolumeInfo* DefconVolume() const { return defconVolumeAttached ? &defconVolume : nullptr; }

  std::int64_t loopStartMillis = 0;
  std::int64_t lastSaveMillis = 0;      ///< of the plan and the statistics
  std::int64_t lastFinishedMillis = 0;  ///< when a top directory was last finished; 0: none was yet
  TqString previousVolumePath = "will_not_match";
};

/// Walks entry `index` of the plan, or skips it, and does what is due after it. May end the process (stop request, lost
/// lock).
void ScanTopDir(TqScan& scan, std::int32_t index);

/// Writes the plan and the statistics so far; `place` tells the callers apart in the log.
void SaveProgress(TqScan& scan, std::string_view place);
