#include "scan/list_upkeep.h"

#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "scan/client_services.h"
#include "selection/settings.h"
#include "volumes/selected_volumes.h"
#include "volumes/volume_query.h"
#include "volumes/volume_registry.h"

namespace {

constexpr std::string_view kFutureListEndings[] = {
    "completefilelist.dat.future", "completefilelist.dat.future_aside",
    "_filelist.dat.future",        "_filelist.dat.future_aside",
    "bigfilelist.dat.future",
};
constexpr std::string_view kListEnding = "_filelist.dat";
constexpr std::string_view kStartLineMarker = "# GmtMillisThisListWasStarted: ";
constexpr std::int32_t kWarnAboveDays = 20;
constexpr std::int32_t kNoStubFromDays = 500;
constexpr std::int64_t kMissingListPauseMillis = 5000;

/// The names in the lists' folder: of its files, and of links and whatever else is no directory.
struct ListsFolderNames {
  TqStringVector files;
  TqStringVector others;
};

/// False when names may be missing, because the folder could not be listed to its end.
bool ReadListsFolder(ListsFolderNames& names) {
  const TqString folder = TqInstall::ListsFolder();
  TqFileInfoList entries;
  int error = 0;
  TqFile::GetListOfFileInfosInDir(&folder, &entries, &error);
  for (std::int32_t i = 0; i < entries.Count(); ++i) {
    const TqFileInfo& entry = *entries.Get(i);
    if (entry.isDir) continue;
    (entry.isSpecial ? names.others : names.files).Add(entry.path.Slice(entry.path.FindLastChar('/') + 1));
  }
  return error == 0;
}

template <typename Matches>
void DeleteMatching(const TqStringVector& names, const Matches& matches) {
  for (const TqString* name : names) {
    if (matches(*name)) TqFile::DeleteFile(Joined(TqInstall::ListsFolder(), *name));
  }
}

/// Of every kind but directories: a link that somebody put under such a name would be in the new list's way, too.
template <typename Matches>
void DeleteLeftovers(const ListsFolderNames& names, const Matches& matches) {
  DeleteMatching(names.files, matches);
  DeleteMatching(names.others, matches);
}

bool IsPerVolumeListName(const TqString& name) {
  return name.Length() == kListNameLength && name.CharAt(0) == 'v' && name.EndsWith(kListEnding);
}

const TqVolumeInfo* FindVolume(const TqVolumeInfoList& list, std::string_view vguid) {
  for (const TqVolumeInfo* volume : list) {
    if (EqualsIgnoreCase(volume->vguid, vguid)) return volume;
  }
  return nullptr;
}

/// Log texts of the two kinds of stub when they cannot be written.
struct StubFailures {
  std::string_view write;
  std::string_view swap;
};

void WriteStub(const TqString& listPath, const TqString& text, const StubFailures& failures) {
  const TqString temporary = Joined(listPath, ".tmp");
  if (!TqFile::WriteFileToDiskWithRetry(temporary, text)) {
    Log(failures.write, temporary);
  } else if (!MoveIntoPlace(temporary, listPath, kListMoveTries)) {
    Log(failures.swap);
    TqFile::DeleteFile(temporary);
  }
}

// --- volumes unseen for long ---

/// From which day on a policy ages a volume's list out, with its words.
struct AgingRule {
  std::int32_t fromDays;
  std::string_view warning;
  std::string_view stubLine;
};
constexpr AgingRule kThirtyDays = {
    31, "it has been more than 30 days since we saw mountP=", "# Stub becaused drive has not been seen in 30 days"};
constexpr AgingRule kNinetyDays = {
    91, "customer is paying for one year or more rollback, and it has been more than 90 days since we saw mountP=",
    "# Stub becaused drive has not been seen in 90 days one year rollback customer"};
constexpr AgingRule kTwoDays = {3, "SPECIAL_TEST_PATH - it has been more than 2 days since we saw mountP=",
                                "# Stub becaused drive has not been seen in 2 days SPECIAL_TEST_PATH"};

/// Null: no stub.
const AgingRule* AgingRuleFor(const TqRetentionPolicy& policy, std::int32_t days) {
  if (days >= kNoStubFromDays) return nullptr;
  const AgingRule& ordinary = policy.oneYear ? kNinetyDays : kThirtyDays;
  if (days >= ordinary.fromDays) return &ordinary;
  return policy.twoDayTest && days >= kTwoDays.fromDays ? &kTwoDays : nullptr;
}

TqString AgingStubText(const AgingRule& rule, const TqRetentionPolicy& policy) {
  const std::string_view line = policy.twoDayTest ? kTwoDays.stubLine : rule.stubLine;
  return Joined(kStartLineMarker, Hex16(TqSystem::NowGmtMillis()), ", GmtDateTime: ", TqSystem::NowAsLocalText(), "\n",
                line, "\n");
}

/// The registry may hold a volume several times: each vguid once, in the record last seen.
std::vector<const TqVolumeInfo*> NewestRecords(const TqVolumeInfoList& registry) {
  std::vector<const TqVolumeInfo*> newest;
  for (const TqVolumeInfo* record : registry) {
    const TqVolumeInfo** known = nullptr;
    for (const TqVolumeInfo*& other : newest) {
      if (EqualsIgnoreCase(other->vguid, record->vguid)) known = &other;
    }
    if (known == nullptr) {
      newest.push_back(record);
    } else if (record->lastTimeVolumeWasSeenAttachedGmtMillis > (*known)->lastTimeVolumeWasSeenAttachedGmtMillis) {
      *known = record;
    }
  }
  return newest;
}

/// Asks the volume itself: the list of attached volumes may have ended early.
bool IsAttachedAfterAll(const TqVolumeInfo& record) {
  TqString path = record.mountPointPath;
  TqVolumeInfo volume;
  return TqFile::GetInfoAboutAttachedVolume(&path, &volume) && EqualsIgnoreCase(volume.vguid, record.vguid);
}

void AgeOut(const TqVolumeInfo& volume, const TqRetentionPolicy& policy) {
  const std::int32_t days =
      TqSystem::DaysBetween(TqSystem::NowGmtMillis(), volume.lastTimeVolumeWasSeenAttachedGmtMillis);
  const TqString seen =
      Joined(days, " days since drive has been seen, mountP=", volume.mountPointPath, " with vGuid=", volume.vguid);
  if (days > kWarnAboveDays) Log("WARNING: it has been ", seen);
  const AgingRule* rule = AgingRuleFor(policy, days);
  if (rule == nullptr || IsAttachedAfterAll(volume)) return;
  Log("WARNING: ", rule->warning, volume.mountPointPath, " so we have decided to generate the stub.");
  Log("WARNING: AGING_FILES_OUT because it has been ", seen, ", and lastRollbackHistoryEvent=", policy.text);
  WriteStub(TqFile::PerVolumeListPath(volume.vguid, volume.mountPointPath), AgingStubText(*rule, policy),
            {"ERROR: AGING_FILES_OUT failed write out to: ", "ERROR: AGING_FILES_OUT failed swap"});
}

// --- missing lists ---

/// Whether a list of that volume is there, under whatever tag: a volume may have been renamed. A folder that cannot be
/// listed whole counts as holding one, so that a stub never replaces a list by mistake.
bool HasList(std::string_view vguid) {
  ListsFolderNames names;
  if (!ReadListsFolder(names)) return true;
  for (const TqString* name : names.files) {
    if (IsPerVolumeListName(*name) && name->CharAt(kVguidLength) == '_' && name->StartsWithIgnoreCase(vguid)) {
      return true;
    }
  }
  return false;
}

void StandInForMissingList(const TqVolumeInfo& volume) {
  Log("ERROR: a drive that was selected for backup no per-vol-guidfilelist.dat file existed, creating stub for: ",
      volume.mountPointPath, " with vGuid=", volume.vguid);
  TqSystem::SleepMillis(kMissingListPauseMillis);
  if (HasList(volume.vguid)) {
    Log("ERROR: it came back?");
    return;
  }
  const TqString text =
      Joined(kStartLineMarker, Hex16(TqSystem::NowGmtMillis()), "\n", "# Stub becaused file should have existed!\n");
  WriteStub(TqFile::PerVolumeListPath(volume.vguid, volume.mountPointPath), text,
            {"ERROR: Could not create stub failed write out to: ", "ERROR: Could not create stub failed swap"});
}

}  // namespace

void DeleteFutureLists() {
  ListsFolderNames names;
  ReadListsFolder(names);
  DeleteLeftovers(names, [](const TqString& name) {
    for (const std::string_view ending : kFutureListEndings) {
      if (name.EndsWith(ending)) return true;
    }
    return false;
  });
}

void DeleteOldCompleteList() {
  const TqString list = Joined(TqInstall::ListsFolder(), "completefilelist.dat");
  const TqString future = Joined(list, ".future");
  TqFile::AtomicMoveFile(list, future);
  TqFile::DeleteFile(list);
  TqFile::DeleteFile(future);
}

void DeleteAllFutureFiles(TqStringVector& names) {
  ListsFolderNames all;
  ReadListsFolder(all);
  DeleteLeftovers(all, [](const TqString& name) { return name.EndsWith(".future") || name.EndsWith(".future_aside"); });
  names = std::move(all.files);
}

void ReadSelectionAgain(TqVolumeInfoList& selected) {
  selected.Clear();
  // A settings file caught while it is being written may name only some of its volumes.
  const bool areWhole =
      TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile() && TqInfoManager::SettingsText().Contains("</tqinfo>");
  if (!areWhole || !TqInfoManager::GetVolumesSelectedForBackup(selected)) selected.Clear();
  if (selected.Count() == 0) Log("ERROR: found no vol selected for backup in per-vol-guid cleanup");
}

void DeleteListsOfDeselectedVolumes(const TqStringVector& names, const TqVolumeInfoList& selected) {
  if (selected.Count() == 0) return;
  DeleteMatching(names, [&](const TqString& name) {
    if (!IsPerVolumeListName(name) || FindVolume(selected, name.Slice(0, kVguidLength)) != nullptr) return false;
    Log("Found per-vol-guid filelist not selected for backup, deleting: ", TqInstall::ListsFolder(), name);
    return true;
  });
}

TqRetentionPolicy ReadRetentionPolicy() {
  TqRetentionPolicy policy;
  if (!TqUiUtil::TqRollback_GetMostCurrentFinalizedHistoryUxeString(policy.text)) {
    Log("ERROR: TqUiUtil::TqRollback_GetMostCurrentFinalizedHistoryUxeString failed.");
    policy.text = "error_uxe_tqfilelist";
  }
  policy.twoDayTest = policy.text.Contains("_rb002");
  if (policy.twoDayTest) Log("SPECIAL_TEST_PATH - _rb002 - customers need to plug external drives in every day.");
  for (const std::string_view yearly : {"_rb365d", "_rb365z"}) {
    if (!policy.text.Contains(yearly)) continue;
    policy.oneYear = true;
    Log("tqfilelist (", ProcessIdText(), ") customer has ", yearly, " so different external drive unplug policy.");
  }
  return policy;
}

void WriteStubsForUnseenVolumes(const TqVolumeInfoList& selected, const TqRetentionPolicy& policy,
                                const TqListSwapper& swapper) {
  if (selected.Count() == 0) return;
  TqString shortId;
  TqVolumeInfoList registry;
  if (!TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile(shortId, registry)) {
    Log("ERROR: TqUiUtil::TqVolumesXml_ReadTqVolumesXml failed 30 day ageout");
    return;
  }
  for (const TqVolumeInfo* record : NewestRecords(registry)) {
    const TqVolumeInfo* choice = FindVolume(selected, record->vguid);
    const bool isUnseen =
        choice != nullptr && !choice->volumeIsCurrentlyConnected && !swapper.WasSwappedIn(record->vguid);
    if (isUnseen) AgeOut(*record, policy);
  }
}

void WriteStubsForMissingLists(const TqVolumeInfoList& selected) {
  for (const TqVolumeInfo* volume : selected) {
    if (!HasList(volume->vguid)) StandInForMissingList(*volume);
  }
}
