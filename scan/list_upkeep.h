#pragma once

// What happens to the other files of the lists folder: leftovers of earlier runs, lists of volumes that are no longer
// selected, stubs for volumes unseen for long and for lists that are missing. A stub tells the uploader that the volume
// has no files any more, so each of them is written only when the settings and the registry could be read for certain.

#include <string_view>

#include "base/string.h"
#include "base/vector.h"
#include "scan/list_swap.h"
#include "volumes/volume_info.h"

/// Deletes the leftover `.future` lists (per volume, complete, large-file) that a new plan must not append to.
void DeleteFutureLists();
/// Renames completefilelist.dat, the single list of old versions, to `.future` and deletes both names.
void DeleteOldCompleteList();
/// Deletes everything but directories in the lists folder whose name ends with ".future" or ".future_aside". `names`
/// gets the names of all regular files seen.
void DeleteAllFutureFiles(TqStringVector& names);

/// Reads the settings again and gives the volumes they select, attached or not. Empty (logged) when the settings cannot
/// be read, are cut off, or hold no valid volume: nothing is deleted or aged out then.
void ReadSelectionAgain(TqVolumeInfoList& selected);
/// Deletes those lists among `names` whose volume is not among `selected`; does nothing when none is.
void DeleteListsOfDeselectedVolumes(const TqStringVector& names, const TqVolumeInfoList& selected);

/// How long the account keeps the files of an unplugged drive.
struct TqRetentionPolicy {
  TqString text;  ///< the retention setting as it is logged
  bool twoDayTest = false;
  bool oneYear = false;
};
TqRetentionPolicy ReadRetentionPolicy();

/// Replaces the lists of selected volumes that were not seen for long (but below 500 days) by stubs.
void WriteStubsForUnseenVolumes(const TqVolumeInfoList& selected, const TqRetentionPolicy& policy,
                                const TqListSwapper& swapper);
/// Writes a stub for each selected volume without any list; waits 5,000 ms per such volume for one to appear.
void WriteStubsForMissingLists(const TqVolumeInfoList& selected);
