#pragma once

// The scan plan: volume roots and the first two directory levels below them, each with a listing mode, its volume's
// GUID and the seconds its last walk took. It is the unit of progress, kept in topdirs.xml(.future).

#include <cstdint>
#include <string_view>

#include "base/string.h"
#include "base/vector.h"
#include "volumes/volume_info.h"

class TqTopDirsList {
 public:
  static constexpr std::int32_t kMaxSeconds = 100'000;  ///< entries beyond are walked, their seconds are never stored

  std::int32_t count = 0;
  std::int32_t next_to_index = 0;
  std::int32_t num_times_mount_points_verified = 0;
  std::int64_t millis_to_produce = 0;
  std::int64_t gmt_millis = 0;
  TqStringVector dirs;                   ///< mode character, then the absolute path, ending in "/"
  TqStringVector vguids;                 ///< parallel; empty: the entry has no volume
  std::int32_t* secondsTable = nullptr;  ///< kMaxSeconds counts, borrowed from the scan run; may be null (all 0)
  bool verbose = false;

  /// Has a path and a GUID: only such entries are walked and written.
  bool IsActive(std::int32_t index) const;
  /// The listing mode, '0' (mount point), '1' (first level) or '2' (walked recursively); NUL when the entry is empty.
  char ModeOf(std::int32_t index) const;
  /// The path without the mode character, ending in "/"; empty when the entry is.
  std::string_view PathOf(std::int32_t index) const;
  std::int32_t SecondsOf(std::int32_t index) const;
  void SetSeconds(std::int32_t index, std::int32_t seconds);
  void Clear();
};

/// What stands for a backslash in file lists and walked paths.
inline constexpr std::string_view kBackslashStandIn = "_-backslash-_";

/// The form in which an entry's path is walked and compared with a trigger directory: one trailing "/" dropped (never
/// from "/"), every backslash replaced by "_-backslash-_".
TqString WalkPathOfTopDir(std::string_view path);

/// The GUID of the first attached volume of `volumes` that a path lies on; empty (logged in the name of `caller`) when
/// there is none.
TqString VguidOfPath(const TqVolumeInfoList& volumes, std::string_view path, std::string_view caller);

/// Whether the macOS skip rules leave a first-level directory (path ends in "/") out of the plan; asks the settings and
/// rules where the tables say so.
bool IsSkippedFirstLevelDir(const TqString& path);

/// Builds the list from the selected, attached volumes; the defcon volume's directories (null: none attached) come
/// first. Ends the process with status 0 through `exitRun` when no volume is left.
void ScanDiskAndCreateTopDirsListInRam(TqTopDirsList& list, bool defconVolumeAttached, const TqVolumeInfo* defconVolume,
                                       void (*exitRun)(void* context), void* context);
/// True once the temporary file was written, even if every rename failed (logged).
bool WriteTopDirsXmlFile(std::string_view path, const TqTopDirsList& list);
/// Only to resume. False (logged) when missing, unreadable or without a `dir` element.
bool ReadTopDirsXmlFile(std::string_view path, TqTopDirsList& list);
/// Deactivates every entry of a volume that is no longer in order and deletes its `.future` list. `triggerDir` (may be
/// null) is the walked form of the directory that could not be listed: only a top directory triggers the check. True
/// when nothing changed.
bool VerifyMountPointsAndCorrectTopDirs(TqTopDirsList& list, const TqString* triggerDir);

/// Forgets the time of the last full verification (tests).
void ForgetVerificationTime();
