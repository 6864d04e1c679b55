#include "scan/volume_reports.h"

#include "base/clock.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/text_codec.h"
#include "volumes/defcon.h"
#include "volumes/drive_ping.h"
#include "volumes/drive_summary.h"
#include "volumes/selected_volumes.h"
#include "volumes/volume_identity.h"
#include "volumes/volume_query.h"
#include "volumes/volume_registry.h"

namespace {

constexpr std::int32_t kShortestListPath = 40;
constexpr std::string_view kSixteenBlanks = "                ";
constexpr std::string_view kRule = "=======================================================";
static_assert(kSixteenBlanks.size() == 16 && kRule.size() == 55);
constexpr std::string_view kUnknownVguid = "tqunknown___________________";
constexpr std::string_view kUnknownHguid = "tqunknown_______________";
static_assert(kUnknownVguid.size() == kVguidLength && kUnknownHguid.size() == kHguidLength);

bool HasVguid(const TqVolumeInfo& volume) {
  return volume.vguid[0] != '\0';
}

/// "VolumeGUID" and "AssocHguid"; "none" twice for a volume without identity.
void PrintIdentity(const TqCommandCall& call, const TqVolumeInfo& volume) {
  call.Print("    VolumeGUID: ", HasVguid(volume) ? volume.vguid : "none");
  call.Print("    AssocHguid: ", HasVguid(volume) ? volume.associatedHguid : "none");
}

void PrintTypeAndSizes(const TqCommandCall& call, const TqVolumeInfo& volume) {
  call.Print("    numBytesTot_OnVolume: ", volume.numBytesTotalOnVolume);
  call.Print("    numBytesFreeOnVolume: ", volume.numBytesFreeOnVolume);
  call.Print("    numBytesUsedOnVolume: ", volume.numBytesUsedOnVolume);
  call.Print("    isWritable: ", volume.isWritable);
}

void PrintCaseRules(const TqCommandCall& call, const TqVolumeInfo& volume) {
  call.Print("    isCaseSensitive: ", volume.isCaseSensitive);
  call.Print("    isCasePreserving: ", volume.isCasePreserving);
}

void PrintUuid(const TqCommandCall& call, const TqVolumeInfo& volume) {
  const TqString uuid = volume.UuidText();
  if (!uuid.IsEmpty()) call.Print("    UUID: ", uuid);
}

/// One attached volume's block. `totalTail` stands between the total and the line end.
void PrintAttachedVolume(const TqCommandCall& call, const TqVolumeInfo& volume, std::string_view totalTail) {
  call.Print("Mount Point Path: ", volume.mountPointPath);
  call.Print("Num Bytes Free:   ", volume.numBytesFreeOnVolume);
  call.Print("Num Bytes Used:   ", volume.numBytesUsedOnVolume);
  call.Print("Num Bytes Total:  ", volume.numBytesTotalOnVolume, totalTail);
  call.Print("UUID:             ", volume.UuidText());
  call.Print("Local Mount:      ", volume.isLocalMount);
  call.Print("Writable:         ", volume.isWritable);
  call.Print("Case Sensitive:   ", volume.isCaseSensitive);
  call.Print("Case Preserving:  ", volume.isCasePreserving);
  call.Print("Tq VolumeType:    ", volume.volumeType);
  call.Print("Tq Volume GUID:   ", volume.vguid);
  call.Print("Tq Assoc HGUID:   ", volume.associatedHguid);
  call.Print("");
}

// --- assignment ---

TqVolumeInfo* FindMountPoint(const TqVolumeInfoList& list, const TqString& mountPoint) {
  for (TqVolumeInfo* volume : list) {
    if (volume->mountPointPath == mountPoint) return volume;
  }
  return nullptr;
}

/// Every answer is one line, logged and printed.
int Answer(const TqCommandCall& call, std::string_view answer, std::string_view tail) {
  call.LogAndPrint(answer, tail);
  return 0;
}

/// GetInfoAboutAttachedVolume on a copy: the query normalises its argument.
bool ReadVolume(const TqString& mountPoint, TqVolumeInfo& volume) {
  TqString path = mountPoint;
  return TqFile::GetInfoAboutAttachedVolume(&path, &volume);
}

/// `typed` is the operand as the user gave it, `decoded` what it stands for.
int AssignVolumeGuid(TqCommandCall& call, std::string_view typed, std::string_view decoded) {
  TqString mountPoint(decoded);
  if (!mountPoint.EndsWith("/") && !mountPoint.EndsWith("\\")) mountPoint.AppendChar('/');
  TqVolumeInfoList attached;
  if (!TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(&attached)) {
    return Answer(call, "FALSE: QueryAllAttachedVolumesForVolumeInfo failed", "");
  }
  // An empty operand must never become "/".
  if (decoded.empty() || FindMountPoint(attached, mountPoint) == nullptr) {
    return Answer(call, "FALSE: could not find volume in currently attached volList: ",
                  decoded.empty() ? typed : mountPoint.View());
  }
  TqVolumeInfo volume;
  if (!ReadVolume(mountPoint, volume)) return Answer(call, "FALSE: Could not find attached volume: ", mountPoint);
  if (TqFile::HasIdentityOfThisHost(volume)) {
    return Answer(call, "TRUE: Already had existing vGuid: ", volume.vguid);
  }
  if (!TqUiUtil::TqVolumesXml_AssignNewTqVolumeGuidToVolume(mountPoint)) {
    return Answer(call, "FALSE: assign problem, probably could not write to: ", mountPoint);
  }
  if (!ReadVolume(mountPoint, volume)) {
    return Answer(call, "FALSE: After assigning, could not read volume: ", mountPoint);
  }
  return Answer(call, "TRUE: Successfully assigned vGuid: ", volume.vguid);
}

// --- selected and available volumes ---

std::string_view SelectedTag(const TqVolumeInfo& volume) {
  if (!volume.volumeIsCurrentlyConnected) return " (Unplugged)    ";
  return volume.isSystemVolume ? "" : kSixteenBlanks;
}

std::string_view AvailableTag(const TqVolumeInfo& volume) {
  if (volume.IsType("tm")) return "  (TimeMachine) ";
  if (volume.IsType("em")) return "  (Empty)       ";
  return volume.IsType("gm") ? kSixteenBlanks : "  (Unknown)     ";
}

TqString VguidTail(const TqVolumeInfo& volume) {
  return HasVguid(volume) ? Joined(" vguid=", volume.vguid) : TqString();
}

// --- the volume list file ---

TqString VolumeListText(const TqVolumeInfoList& attached) {
  TqString text;
  for (const TqVolumeInfo* volume : attached) {
    AppendAll(text, HasVguid(*volume) ? std::string_view(volume->vguid) : kUnknownVguid, ",", volume->volumeType, ",",
              volume->associatedHguid[0] != '\0' ? std::string_view(volume->associatedHguid) : kUnknownHguid, ",",
              volume->mountPointPath, "\n");
  }
  return text;
}

/// Long enough, and really below the flags folder: ".." must not lead out of it again.
bool IsAllowedListPath(const TqString& path, const TqString& flags) {
  return path.Length() >= kShortestListPath && path.StartsWith(flags) && !path.Contains("/../");
}

int FailListFile(const TqCommandCall& call, std::string_view logged, std::string_view printed) {
  Log(logged);
  call.Print(printed);
  return 1;
}

}  // namespace

int VolumeInfoCommand(TqCommandCall& call) {
  TqString path = call.Operand(1);
  TqVolumeInfo volume;
  if (!TqFile::GetInfoAboutAttachedVolume(&path, &volume)) {
    call.Print("Volume does not exist or is not attached right now.");
    return 0;
  }
  call.Print("VolumeInfo for: ", path);
  PrintIdentity(call, volume);
  call.Print("    VolumeType: ", volume.volumeType);
  PrintTypeAndSizes(call, volume);
  call.Print("    isSystemVolume: ", volume.isSystemVolume);
  PrintCaseRules(call, volume);
  call.Print("    isCurrentlyConnected: ", volume.volumeIsCurrentlyConnected);
  call.Print("    tqVol_defconLevel: ", volume.defconLevel);
  call.Print("    tqVol_lastSeenInDays: ", volume.lastSeenInDays);
  call.Print("    tqVol_lastFileListedInDays: ", volume.lastFileListedInDays);
  call.Print("    tqVol_lastFilePushedInDays: ", volume.lastFilePushedInDays);
  call.Print("    isLocalMount: ", volume.isLocalMount);
  PrintUuid(call, volume);
  return 0;
}

int VolumeInfoFromFilenameCommand(TqCommandCall& call) {
  const TqString& path = call.Operand(1);
  TqVolumeInfo volume;
  if (!TqUiUtil::GetVolumeInfoFromFilename(path, volume)) {
    call.Print("The filename is on a volume we have never heard of and is not attached.");
    return 0;
  }
  call.Print("VolumeInfo for file: ", path);
  call.Print("Volume Mount Point: ", volume.mountPointPath);
  PrintIdentity(call, volume);
  call.Print("    VolumeType: ", volume.volumeType);
  call.Print("    VolSelectedForBackup: ", volume.volumeIsSelectedForBackup ? "Yes" : "No");
  PrintTypeAndSizes(call, volume);
  PrintCaseRules(call, volume);
  PrintUuid(call, volume);
  return 0;
}

int CloneTqVolCommand(TqCommandCall& call) {
  call.LogAndPrint("tqfilelist - entering -clone_tqvol_to_datadir");
  TqFile::CloneTqVolFolderOfSystemVolumeIntoDataDir_IfNeeded();
  call.LogAndPrint("tqfilelist - leaving -clone_tqvol_to_datadir");
  return 0;
}

int AssignVolumeGuidCommand(TqCommandCall& call) {
  if (call.OperandCount() < 1) return Answer(call, "FALSE: Must have additional arg for: ", call.Word());
  return AssignVolumeGuid(call, call.Operand(1), call.Operand(1));
}

int AssignVolumeGuidHexCommand(TqCommandCall& call) {
  if (call.OperandCount() < 1) return Answer(call, "FALSE: Must have additional arg for: ", call.Word());
  TqString decoded;
  HexDecode(call.Operand(1), decoded);
  return AssignVolumeGuid(call, call.Operand(1), decoded);
}

int UpdateTqVolumesXmlCommand(TqCommandCall& call) {
  TqUiUtil::TqVolumesXml_QueryAttachDrives_UpdateTqVolXml();
  call.Print("Done updating file: ", TqUiUtil::TqVolumesXmlPath());
  return 0;
}

int UpdateTqDefconXmlCommand(TqCommandCall& call) {
  TqUiUtil::TqVolDefcon_UpdateTqVolumesDefconXmlFile();
  const TqString path = TqUiUtil::TqDefconXmlPath();
  call.Print("Done updating file: ", path);
  std::int32_t criticalDefcon = -1;
  TqVolumeInfoList list;
  if (TqUiUtil::TqVolDefcon_HitDisk_ReadTqDefconXmlFile(&criticalDefcon, &list)) {
    call.Print("SUCCESS reading updated file, criticalDefcon=", criticalDefcon);
  } else {
    call.Print("ERROR reading updated file: ", path);
  }
  TqVolumeInfo volume;
  if (TqUiUtil::TqVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached(volume)) {
    call.Print("A Defcon elevated drive is attached, defcon=", volume.defconLevel,
               ", mountPoint=", volume.mountPointPath, ", volId=", volume.vguid);
  } else {
    // "or or" is part of the text.
    call.Print("Defcon is NOT actionable - either not elevated, or or drive is not attached.");
  }
  return 0;
}

int PingDrivesCommand(TqCommandCall&) {
  TqUiUtil::PingDrivesThatAreSelectedForBackup();
  return 0;
}

int QueryAttachedVolumesCommand(TqCommandCall& call) {
  call.Print("");
  TqString mountA;
  TqString mountB;
  if (TqUiUtil::DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids(mountA, mountB)) {
    call.Print("WARNING: Two drives have duplicate tqvolumeids: ", mountA, " and ", mountB);
    call.Print("");
  }
  TqVolumeInfoList attached;
  if (!TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(&attached)) {
    call.LogAndPrint("ERROR: TqUiUtil::QueryAllAttachedVolumesForVolumeInfo failed");
    return 0;
  }
  call.LogAndPrint("The following hard drives are attached:");
  for (std::int32_t i = 0; i < attached.Count(); ++i) {
    call.Print(kRule);
    call.Print("Drive: ", i);
    PrintAttachedVolume(call, *attached.Get(i), "");
  }
  call.Print("\nALL DONE");
  return 0;
}

int ListVolumesDetailCommand(TqCommandCall& call) {
  TqVolumeInfoList attached;
  TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(&attached);
  for (const TqVolumeInfo* volume : attached) {
    call.Print(kRule);
    PrintAttachedVolume(call, *volume, "d");  // the stray "d" behind the total is part of the format
  }
  return 0;
}

int ListVolumesCommand(TqCommandCall& call) {
  TqString summary;
  TqString abbreviation;
  TqUiUtil::GetHardDriveSummary(summary, abbreviation);
  call.Print("\nSummaryLine: ", summary);
  call.Print("abstr: ", abbreviation);
  TqVolumeInfoList volumes;
  TqUiUtil::TqVolumesXml_GetListOfHardDrivesToDisplayInGui(volumes);
  call.Print("\nThe following hard drive volumes are selected for backup:");
  for (const TqVolumeInfo* volume : volumes) {
    if (!volume->volumeIsSelectedForBackup) continue;
    call.Print("  ", volume->mountPointPath, volume->isSystemVolume ? " (SystemVolume) " : "", SelectedTag(*volume),
               VguidTail(*volume));
  }
  call.Print("\nThe following hard drive volumes are also available:");
  for (const TqVolumeInfo* volume : volumes) {
    if (volume->volumeIsSelectedForBackup) continue;
    call.Print("  ", volume->mountPointPath, AvailableTag(*volume), VguidTail(*volume));
  }
  call.Print("ALL DONE");
  return 0;
}

int ListVolumesToFileCommand(TqCommandCall& call) {
  const TqString flags = TqInstall::FlagsFolder();
  const TqString output =
      call.OperandCount() >= 1 ? call.Operand(1) : Joined(flags, TqSystem::NowGmtMillis(), "_list_volumes.txt");
  if (!IsAllowedListPath(output, flags)) {
    const TqString text = Joined("ERROR: The output file argument was too short or did not begin with ", flags);
    return FailListFile(call, text, Joined(text, "/\n"));
  }
  TqVolumeInfoList attached;
  if (!TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(&attached) || attached.Count() == 0) {
    return FailListFile(call, "ERROR: listvolumetofile - No volumes found.\n", "ERROR: No volumes found.");
  }
  TqInstall::CreateSubFolder(flags);
  const TqString temporary = Joined(output, ".tqtmp");
  if (!TqFile::WriteFileToDiskWithRetry(temporary, VolumeListText(attached))) {
    const TqString text = Joined("ERROR: Could not write the file ", temporary);
    return FailListFile(call, text, text);
  }
  if (!TqFile::AtomicMoveFileWithRetry(temporary, output)) {
    TqFile::DeleteFile(temporary);
    const TqString text = Joined("ERROR: Could not atomically swap file ", temporary, "to", output);
    return FailListFile(call, text, text);
  }
  call.Print("SUCCESS");
  return 0;
}

int ListTimeMachineUuidsCommand(TqCommandCall& call) {
  TqStringVector uuids;
  TqFile::GetBackupVolumeUuids(uuids);
  bool any = false;
  for (const TqString* uuid : uuids) {
    if (uuid->IsEmpty()) continue;
    call.Print(*uuid);
    any = true;
  }
  if (!any) call.Print("No backup volumes found. This command is not implemented for Windows.");
  return any ? 0 : 1;
}
