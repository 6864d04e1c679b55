#include "volumes/selected_volumes.h"

#include <algorithm>

#include "base/file_info.h"
#include "base/log.h"
#include "selection/settings.h"
#include "volumes/volume_query.h"
#include "volumes/volume_registry.h"

namespace {

constexpr std::int32_t kMaxLists = 1'000;

/// The attached volume with that vguid; of two such (a copied drive) the one at the settings' mount point, else the
/// first.
const TqVolumeInfo* FindAttached(const TqVolumeInfoList& attached, const TqSelectedVolume& selected) {
  const TqString mountPoint = TqFile::WithTrailingSlash(selected.mountPoint);
  const TqVolumeInfo* first = nullptr;
  for (const TqVolumeInfo* volume : attached) {
    if (selected.vguid != volume->vguid) continue;
    if (volume->mountPointPath == mountPoint) return volume;
    if (first == nullptr) first = volume;
  }
  return first;
}

/// Every volume that the settings select stays in the list, unplugged or not: the scan deletes the lists of volumes
/// missing here.
bool JoinSelectedWithAttached(const TqVolumeInfoList& attached, TqVolumeInfoList& list) {
  list.Clear();
  const TqInfoSettings& settings = TqInfoManager::Settings();
  if (!settings.wereRead) return false;
  for (const TqSelectedVolume& selected : settings.selectedVolumes) {
    TqVolumeInfo* record = list.AddNew();
    if (record == nullptr) return false;
    record->Reset();
    if (const TqVolumeInfo* volume = FindAttached(attached, selected)) {
      volume->CopyTo(*record);
    } else {
      record->SetVguid(selected.vguid);
      record->mountPointPath = TqFile::WithTrailingSlash(selected.mountPoint);
      record->isSystemVolume = TqFile::IsSystemVolume(record->mountPointPath);
    }
    record->volumeIsSelectedForBackup = true;
  }
  return true;
}

bool IsSelected(std::string_view vguid) {
  return std::ranges::any_of(TqInfoManager::Settings().selectedVolumes,
                             [&](const TqSelectedVolume& selected) { return selected.vguid == vguid; });
}

/// The record that was attached last among those that `matches` accepts; null when there is none.
template <typename Predicate>
const TqVolumeInfo* MostRecentlySeen(const TqVolumeInfoList& list, Predicate matches) {
  const TqVolumeInfo* best = nullptr;
  for (const TqVolumeInfo* volume : list) {
    if (!matches(*volume)) continue;
    if (best == nullptr ||
        volume->lastTimeVolumeWasSeenAttachedGmtMillis > best->lastTimeVolumeWasSeenAttachedGmtMillis) {
      best = volume;
    }
  }
  return best;
}

/// What the registry remembers of a volume that is not attached.
void CompleteFromRegistry(const TqVolumeInfo& known, TqVolumeInfo& volume) {
  volume.SetType(known.volumeType);
  volume.SetAssociatedHguid(known.associatedHguid);
  volume.lastTimeVolumeWasSeenAttachedGmtMillis = known.lastTimeVolumeWasSeenAttachedGmtMillis;
  volume.numBytesFreeOnVolume = known.numBytesFreeOnVolume;
  volume.numBytesUsedOnVolume = known.numBytesUsedOnVolume;
  volume.numBytesTotalOnVolume = known.numBytesTotalOnVolume;
}

void CompleteUnconnected(TqVolumeInfoList& list) {
  const auto isConnected = [](const TqVolumeInfo* volume) { return volume->volumeIsCurrentlyConnected; };
  if (std::all_of(list.begin(), list.end(), isConnected)) return;
  TqString shortId;
  TqVolumeInfoList registry;
  TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile(shortId, registry);
  for (TqVolumeInfo* volume : list) {
    if (isConnected(volume)) continue;
    const std::string_view vguid = volume->vguid;
    const TqVolumeInfo* known =
        MostRecentlySeen(registry, [&](const TqVolumeInfo& entry) { return vguid == entry.vguid; });
    if (known != nullptr) CompleteFromRegistry(*known, *volume);
  }
}

}  // namespace

namespace TqInfoManager {

bool GetVolumesSelectedForBackup(TqVolumeInfoList& list) {
  TqVolumeInfoList attached;
  TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(&attached);
  return JoinSelectedWithAttached(attached, list);
}

}  // namespace TqInfoManager

namespace TqUiUtil {

bool GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(TqStringVector& paths) {
  constexpr std::string_view kPrefix = "ERROR: TqUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames";
  paths.Clear();
  TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile();
  TqVolumeInfoList selected;
  if (!TqInfoManager::GetVolumesSelectedForBackup(selected)) {
    Log(kPrefix, " - no settings, so no volumes selected for backup");
    return false;
  }
  for (const TqVolumeInfo* volume : selected) {
    const TqString path = TqFile::PerVolumeListPath(volume->vguid, volume->mountPointPath);
    if (!TqFile::Exists(path)) {
      Log(kPrefix, " - failed could not find file for selected drive: ", volume->mountPointPath,
          ", vGuid=", volume->vguid, ", fileName=", path);
      paths.Clear();
      return false;
    }
    paths.Add(path);
  }
  if (paths.Count() > kMaxLists) {
    Log(kPrefix, " too many volumes selected for backup so truncating list: ", paths.Count());
    paths.Remove(kMaxLists, paths.Count() - kMaxLists);
  }
  return true;
}

void TqVolumesXml_GetListOfHardDrivesToDisplayInGui(TqVolumeInfoList& list) {
  TqVolumeInfoList attached;
  if (!QueryAllAttachedVolumesForVolumeInfo(&attached)) {
    Log("ERROR: TqUiUtil::TqVolumesXml_GetListOfHardDrivesToDisplayInGui - "
        "TqUiUtil::QueryAllAttachedVolumesForVolumeInfo failed");
  }
  JoinSelectedWithAttached(attached, list);
  for (const TqVolumeInfo* volume : attached) {
    if (!IsSelected(volume->vguid)) list.AppendCopy(*volume);
  }
  CompleteUnconnected(list);
  list.SortForDisplay();
}

bool GetVolumeInfoFromFilename(std::string_view path, TqVolumeInfo& volume) {
  volume.Reset();
  if (!path.starts_with('/')) return false;
  const TqString mountPoint = TqFile::GetVolumePathOfDir(path);
  const auto isThere = [&](const TqVolumeInfo& record) { return record.mountPointPath == mountPoint; };
  TqVolumeInfoList list;
  QueryAllAttachedVolumesForVolumeInfo(&list);
  const TqVolumeInfo* found = MostRecentlySeen(list, isThere);
  if (found == nullptr) {
    TqString shortId;
    TqVolumesXml_ReadTqVolumesXmlFile(shortId, list);
    found = MostRecentlySeen(list, isThere);
  }
  if (found == nullptr) return false;
  found->CopyTo(volume);
  volume.volumeIsSelectedForBackup = IsSelected(volume.vguid);
  return true;
}

}  // namespace TqUiUtil
