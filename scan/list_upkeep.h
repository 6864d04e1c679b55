#pragma once

// What happens to whole list files: swapping finished ones in, discarding leftovers, removing those of deselected
// volumes, aging out unseen volumes, standing in for missing ones.

#include <cstdint>
#include <string_view>

#include "base/string.h"
#include "base/vector.h"
#include "scan/list_output.h"
#include "scan/run_state.h"
#include "scan/top_dirs.h"
#include "volumes/volume_info.h"

/// The run's swaps with their own memory of GUIDs already handled (lower-cased).
class TqListSwapper {
 public:
  TqListSwapper(const TqTopDirsList& list, const TqListOutput& output) : list_(list), output_(output) {}
  /// Swaps in the list of every volume that was not handled yet.
  void SwapInAllLists();
  /// After entry `index`: swaps the elevated defcon volume's list in when its walk is complete.
  void SwapInDefconListEarly(TqRunState& run, std::int32_t index, const TqVolumeInfo* defconVolume);
  bool WasSwappedIn(std::string_view vguid) const;

 private:
  struct Wording;
  bool SwapIn(std::int32_t index, const Wording& wording);
  bool IsStillTheSameVolume(std::int32_t index) const;

  const TqTopDirsList& list_;
  const TqListOutput& output_;
  TqStringVector handled_;
  TqStringVector swappedIn_;
};

/// bigfilelist.dat.future onto bigfilelist.dat.
void SwapInBigFileList();
/// Deletes the regular files of tqfilelists whose names end with one of the `.future` forms of lists.
void DeleteFutureLists();
/// Deletes every regular file of tqfilelists whose name ends with ".future" or ".future_aside"; gives the names seen in
/// `names`.
void DeleteAllFutureFiles(TqStringVector& names);
/// Lists of volumes that the settings no longer select, stubs for volumes unseen for long, stubs for missing lists.
/// `names` are the folder's file names. Does nothing when the settings cannot be read again or select no volume.
void KeepUpLists(const TqStringVector& names, const TqListSwapper& swapper);
