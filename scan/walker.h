#pragma once

// Turns one top directory into lines of a file list. Every file that the walk reaches is listed, wanted or not; the
// rules' answer feeds the category totals and marks lines of the large-file list.

#include <cstdint>
#include <memory>
#include <vector>

#include "base/file_info.h"
#include "base/string.h"
#include "scan/file_stats.h"
#include "scan/list_output.h"
#include "scan/run_state.h"
#include "scan/top_dirs.h"
#include "selection/rule_engine.h"

/// Listings that a walk uses again and again, one per level at a time: their records keep their memory, so that an
/// ordinary directory costs no allocation.
class TqListingPool {
 public:
  /// A listing for as long as the lease lives; its content is that of a former use.
  class Lease {
   public:
    explicit Lease(TqListingPool& pool);
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    ~Lease();
    TqFileInfoList& List() { return *list_; }

   private:
    TqListingPool& pool_;
    std::unique_ptr<TqFileInfoList> list_;
  };

 private:
  static constexpr std::int32_t kKeptCapacity = 4'005;  ///< listings of more entries are freed after use
  std::vector<std::unique_ptr<TqFileInfoList>> idle_;
};

/// Everything a walk needs besides the directory; borrowed, one per scan run, `listFilePath` and `volumePath` set per
/// top directory.
struct TqWalk {
  TqRunState& run;
  TqTopDirsList& topDirs;
  TqListOutput& output;
  const TqCategoryTables& tables;
  TqCategoryTotals& totals;
  TqString largeFileListPath = {};  ///< bigfilelist.dat.future
  TqExcludeFilenameRule* rules = nullptr;
  std::int32_t ruleCount = 0;
  TqString listFilePath = {};  ///< the volume's `.future` list
  TqString volumePath = {};    ///< mount point the top directory lies on, as given to NoteMount
  TqListingPool listings = {};
};

inline constexpr std::int32_t kMaxRecursDepth = 1000;

/// The whole tree under `startDir` (absolute, without trailing "/" but "/" itself), depth first in pre-order. May end
/// the process through the stop request or the loss of the scan lock.
void RecursivelyAddFilenamesToList(TqWalk& walk, const TqString& startDir, std::int32_t curRecursDepth);

/// Only the entries directly inside `startDir`; no descent, no throttle (the caller counts the directory).
void AddFilenamesFromThisDirToList(TqWalk& walk, const TqString& startDir);
