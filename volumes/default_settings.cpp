#include "volumes/default_settings.h"

#include <vector>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/system_info.h"
#include "platform/platform.h"
#include "selection/settings_edit.h"
#include "selection/settings_text.h"
#include "volumes/registry_lock.h"
#include "volumes/volume_identity.h"
#include "volumes/volume_query.h"
#include "volumes/volume_registry.h"

namespace TqInfoManager {

namespace {

constexpr std::string_view kCreator = "ERROR: TqInfoManager::CreateDefault_tqinfo_xml - ";
constexpr int kSwapTries = 20;
constexpr std::int64_t kSwapPauseMicros = 500;

bool ReadVolume(const TqString& mountPoint, TqVolumeInfo& volume) {
  TqString path = mountPoint;  // the query normalises its argument
  return TqFile::GetInfoAboutAttachedVolume(&path, &volume);
}

/// Makes sure that the volume carries a vguid of this host: one that it has is kept.
bool GiveVguid(TqVolumeInfo& volume) {
  if (TqFile::HasIdentityOfThisHost(volume)) return true;
  const TqString mountPoint = volume.mountPointPath;
  return TqUiUtil::TqVolumesXml_AssignNewTqVolumeGuidToVolume(mountPoint) && ReadVolume(mountPoint, volume) &&
         volume.vguid[0] != '\0';
}

/// The attached volumes that are selected: the ordinary ones that have or get a vguid.
void SelectVolumes(const TqVolumeInfoList& attached, const TqStringVector& onlyMountPoints,
                   TqVolumeInfoList& selected) {
  for (const TqVolumeInfo* volume : attached) {
    if (onlyMountPoints.Count() > 0 && onlyMountPoints.Find(volume->mountPointPath) < 0) continue;
    TqVolumeInfo candidate;
    volume->CopyTo(candidate);
    if (!volume->IsType("gm")) {
      Log("ERROR: Not backing up volume because not gm. Volume named ", volume->mountPointPath);
    } else if (!GiveVguid(candidate)) {
      Log("ERROR: Could not assign TqVolumeId to ", volume->mountPointPath);
    } else {
      selected.AppendCopy(candidate);
    }
  }
}

std::vector<TqSelectedVolume> NamesOf(const TqVolumeInfoList& volumes) {
  std::vector<TqSelectedVolume> names;
  for (const TqVolumeInfo* volume : volumes) names.push_back({volume->vguid, volume->mountPointPath});
  return names;
}

/// The boot volume, selected or not; without an identity it has the placeholder for one.
TqSelectedVolume ScratchVolume() {
  TqVolumeInfo volume;
  const bool hasVguid = ReadVolume("/", volume) && volume.vguid[0] != '\0';
  return {hasVguid ? TqString(volume.vguid) : TqInfoSettings().scratchVguid, "/"};
}

TqString ComputerName() {
  std::string name;
  return platform::TheMachine().HostName(name) ? TqString(name) : TqString("unknown");
}

bool SwapInWithShortPauses(const TqString& temporary, std::string_view path) {
  for (int attempt = 1; !TqFile::AtomicMoveFile(temporary, path); ++attempt) {
    if (attempt == kSwapTries) return false;
    TqSystem::SleepMicros(kSwapPauseMicros);
  }
  return true;
}

bool WriteSettings(std::string_view path, const TqString& text) {
  const TqString temporary = Joined(path, ".tmp");
  if (!TqFile::WriteFileToDiskWithRetry(temporary, text)) {
    Log("ERROR: CreateDefault_tqinfo_xml failed to write out: ", temporary);
    return false;
  }
  if (SwapInWithShortPauses(temporary, path)) return true;
  Log("ERROR: CreateDefault_tqinfo_xml failed to swap in file: ", temporary);
  TqFile::DeleteFile(temporary);
  return false;
}

/// Replaces the registry's entries of the selected volumes or appends them; every other entry stays.
bool RegisterVolumes(const TqVolumeInfoList& selected) {
  const TqUiUtil::RegistryLock lock;
  TqString shortId;
  TqVolumeInfoList registry;
  if (!TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile(shortId, registry)) {
    TqUiUtil::TqVolumesXml_QueryAttachDrives_UpdateTqVolXml();  // sets a damaged one aside and makes a new one
    if (!TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile(shortId, registry)) return false;
  }
  for (const TqVolumeInfo* volume : selected) {
    TqVolumeInfo* known = registry.FindVguid(volume->vguid);
    if (known != nullptr) {
      volume->CopyTo(*known);
    } else {
      registry.AppendCopy(*volume);
    }
  }
  return TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile(shortId, registry);
}

/// An empty registry where there is none.
void WriteStagingRegistry() {
  const TqUiUtil::RegistryLock lock;
  const TqString path = TqUiUtil::TqVolumesXmlPath();
  if (TqFile::Exists(path) || TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("000", TqVolumeInfoList(), true)) return;
  Log(kCreator, "could not write prelim stagin file: ", path);
}

}  // namespace

bool CreateDefault_tqinfo_xml(std::string_view path, const TqStringVector& onlyMountPoints) {
  Log("Entering TqInfoManager::CreateDefault_tqinfo_xml, fname: ", path);
  if (TqFile::Exists(path)) {
    Log("ERROR: CreateDefault_tqinfo_xml, file already exists: ", path);
    return false;
  }
  TqInstall::CreateDataFolder();
  TqVolumeInfoList attached;
  TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(&attached);
  WriteStagingRegistry();
  TqVolumeInfoList selected;
  SelectVolumes(attached, onlyMountPoints, selected);
  return WriteSettings(path, DefaultTqInfoText(NamesOf(selected), ScratchVolume(), ComputerName())) &&
         RegisterVolumes(selected);
}

bool SetVolumesSelectedForBackup(const TqVolumeInfoList* volumes) {
  return WriteSelectedVolumes(volumes != nullptr ? NamesOf(*volumes) : std::vector<TqSelectedVolume>());
}

bool SetVolumesSelectedForBackupEX(const TqStringVector& mountPoints) {
  TqVolumeInfoList volumes;
  for (const TqString* mountPoint : mountPoints) {
    TqVolumeInfo volume;
    if (!ReadVolume(TqFile::WithTrailingSlash(*mountPoint), volume) || volume.vguid[0] == '\0') {
      Log("ERROR: TqInfoManager::SetVolumesSelectedForBackupEX - not attached or without a volume GUID: ", *mountPoint);
      return false;
    }
    volumes.AppendCopy(volume);
  }
  return SetVolumesSelectedForBackup(&volumes);
}

}  // namespace TqInfoManager
