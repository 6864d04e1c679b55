#pragma once

// Turns one top directory into lines of a file list. Every file that the walk reaches is listed, wanted or not; the
// rules' answer feeds the category totals and marks lines of the large-file list.

#include <cstdint>

#include "base/string.h"
#include "scan/file_stats.h"
#include "scan/list_output.h"
#include "scan/run_state.h"
#include "scan/top_dirs.h"
#include "selection/rule_engine.h"

/// Everything a walk needs besides the directory; borrowed, one per scan run, `listFilePath` and `volumePath` set per
/// top directory.
struct TqWalk {
  TqRunState& run;
  TqTopDirsList& topDirs;
  TqListOutput& output;
  const TqCategoryTables& tables;
  TqCategoryTotals& totals;
  TqString largeFileListPath;  ///< bigfilelist.dat.future
  TqExcludeFilenameRule* rules = nullptr;
  std::int32_t ruleCount = 0;
  TqString listFilePath;  ///< the volume's `.future` list
  TqString volumePath;    ///< mount point the top directory lies on
};

inline constexpr std::int32_t kMaxRecursDepth = 1000;

/// The whole tree under `startDir` (absolute, without trailing "/" but "/" itself), depth first in pre-order. May end
/// the process through the stop request or the loss of the scan lock.
void RecursivelyAddFilenamesToList(TqWalk& walk, const TqString& startDir, std::int32_t curRecursDepth);

/// Only the entries directly inside `startDir`; no descent, no throttle.
void AddFilenamesFromThisDirToList(TqWalk& walk, const TqString& startDir);
