#pragma once

// Moving finished lists into place. A `.future` list becomes the volume's list only when it is whole and the volume it
// was taken from is still the one attached; otherwise it is deleted and the earlier list stays.

#include <cstdint>
#include <string_view>

#include "base/string.h"
#include "base/vector.h"
#include "scan/list_output.h"
#include "scan/run_state.h"
#include "scan/top_dirs.h"
#include "volumes/volume_info.h"

inline constexpr int kListMoveTries = 12;

/// Renames in up to `tries` attempts, 500 ms apart. Each failed attempt from the eleventh on logs `failureText` (empty:
/// silent).
bool MoveIntoPlace(std::string_view from, std::string_view to, int tries, std::string_view failureText = {});

/// The run's swaps with their own memory of GUIDs already handled (lower-cased), so that each volume is swapped once
/// and the plan keeps its entries.
class TqListSwapper {
 public:
  TqListSwapper(const TqTopDirsList& list, TqListOutput& output) : list_(list), output_(output) {}
  /// Swaps in the list of every volume that was not handled yet.
  void SwapInAllLists();
  /// After entry `index`: swaps the elevated defcon volume's list in when its walk is complete, without waiting for the
  /// other volumes. `defconVolume` is null when none is attached.
  void SwapInDefconListEarly(TqRunState& run, std::int32_t index, const TqVolumeInfo* defconVolume);
  bool WasSwappedIn(std::string_view vguid) const { return swappedIn_.FindIgnoreCase(vguid) >= 0; }

 private:
  struct Wording;
  static const Wording kFinalWording;
  static const Wording kDefconWording;

  /// False when there is no `.future` list.
  bool SwapIn(std::int32_t index, const Wording& wording);
  bool IsStillTheSameVolume(std::int32_t index);
  void WaitForUnmount(std::string_view volumePath);
  bool IsWalkOfDefconVolumeComplete(const TqRunState& run, std::int32_t index, const TqVolumeInfo& defconVolume) const;
  bool LaterEntryHasVguid(std::int32_t index, std::string_view vguid) const;
  void MarkHandled(std::string_view vguid) { handled_.Add(LowerCased(vguid)); }
  bool IsHandled(std::string_view vguid) const { return handled_.Find(LowerCased(vguid)) >= 0; }

  const TqTopDirsList& list_;
  TqListOutput& output_;
  TqStringVector handled_;
  TqStringVector swappedIn_;
};

/// bigfilelist.dat.future onto bigfilelist.dat, unless an append to it failed.
void SwapInBigFileList(const TqListOutput& output);
