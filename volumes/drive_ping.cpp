#include "volumes/drive_ping.h"

#include <algorithm>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/string.h"
#include "base/system_info.h"
#include "base/xml_snippets.h"
#include "volumes/drive_summary.h"
#include "volumes/selected_volumes.h"
#include "volumes/volume_identity.h"
#include "volumes/volume_info.h"

namespace TqUiUtil {
namespace {

constexpr std::string_view kPing = "PingDrivesThatAreSelectedForBackup: (processId=";
constexpr std::size_t kDateLength = 8;
constexpr std::size_t kDatedNameLength =
    22;  ///< "ping_YYYYMMDD_NNNN.log"; also the least a file needs to be cleaned up
constexpr std::size_t kDateAt = 5;
constexpr std::size_t kCounterAt = 14;

bool IsSystemMount(std::string_view mountPoint) {
  return TqFile::IsSystemVolume(mountPoint) || EqualsIgnoreCase(mountPoint, "C:\\");
}

TqString PingedFolder(const TqVolumeInfo& volume) {
  return TqFile::IdentityFolder(IsSystemMount(volume.mountPointPath) ? "/" : volume.mountPointPath.View());
}

std::string_view NameOf(const TqFileInfo& entry) {
  return entry.path.Slice(entry.path.FindLastChar('/') + 1);
}

bool IsRegular(const TqFileInfo& entry) {
  return !entry.isDir && !entry.isSpecial;
}

/// Whether a file may be written under that name: nothing is there yet, or a regular file.
bool MayWrite(const TqString& path) {
  TqFileInfo info;
  return !TqFile::Exists(path) || (TqFile::GetInfoAboutFileOrDir(path, info) && IsRegular(info));
}

/// Deletes inside identity folders only; anything else means that a path was put together wrongly.
void DeleteInIdentityFolder(const TqString& path) {
  if (path.Contains(".tqvol")) {
    TqFile::DeleteFile(path);
  } else {
    Log("ERROR: bad_logic issue needs to be fixed in PingDrivesThatAreSelectedForBackup()");
  }
}

// --- The touch pass ---

struct Ping {
  TqString dateTime;
  TqString date;
  bool signConnect = true;  ///< every drive answered so far
};

/// Lists an identity folder. False, and the sign cleared, when it is missing, linked, unreadable or empty.
bool ListFolder(const TqString& folder, Ping& ping, TqFileInfoList& entries) {
  const bool listed = TqFile::IsDirectory(folder.Slice(0, folder.Length() - 1)) &&
                      TqFile::GetListOfFileInfosInDir(&folder, &entries) && entries.Count() > 0;
  if (!listed) ping.signConnect = false;
  return listed;
}

bool IsPingLog(const TqFileInfo& entry) {
  const std::string_view name = NameOf(entry);
  return IsRegular(entry) && name.size() == kDatedNameLength && name.starts_with("ping_") && name.ends_with(".log");
}

/// The log's name with the next counter; the date stays, so that the clean pass can tell yesterday's log.
TqString NextLogName(std::string_view name) {
  std::int64_t counter = 0;
  ParseInt64(name.substr(kCounterAt, 4), counter);
  counter = counter < 9'000 ? std::max<std::int64_t>(counter, 0) + 1 : 5'000;
  return Joined(name.substr(0, kCounterAt), Joined(10'000 + counter).Slice(1), ".log");
}

/// Appends `line` to every ping log and counts it up; starts today's log when there is none.
void WritePingLogs(const TqString& folder, const TqFileInfoList& entries, const TqString& line, const Ping& ping) {
  bool found = false;
  for (std::int32_t i = 0; i < entries.Count(); ++i) {
    const TqFileInfo& entry = *entries.Get(i);
    if (!IsPingLog(entry)) continue;
    found = true;
    TqFile::AppendStringToFile(entry.path, line);
    const TqString next = Joined(folder, NextLogName(NameOf(entry)));
    if (!TqFile::Exists(next)) TqFile::AtomicMoveFile(entry.path, next);
  }
  const TqString fresh = Joined(folder, "ping_", ping.date, "_0000.log");
  if (!found && MayWrite(fresh)) TqFile::AppendStringToFile(fresh, line);
}

void TouchVolume(const TqString& folder, Ping& ping) {
  // Writing under a missing or linked folder would wake some other drive, or leave files where no identity is.
  if (!TqFile::IsDirectory(folder.Slice(0, folder.Length() - 1))) {
    ping.signConnect = false;
    return;
  }
  const bool hasIdentity = TqFile::IdentityFileExists(folder);
  TqString digits;
  for (int i = 0; i < 10; ++i) digits.AppendInt32(TqSystem::RandomBelow(10));
  const TqString line = Joined(ping.dateTime, " - randomNum=", digits, "\n");
  const TqString wakeFile = Joined(folder, "wake_", ping.date, "_", digits, ".txt");
  const bool mayWake = MayWrite(wakeFile);
  if (mayWake) TqFile::WriteWholeFile(wakeFile, line);
  TqFileInfoList entries;
  if (!ListFolder(folder, ping, entries) || !hasIdentity) ping.signConnect = false;
  WritePingLogs(folder, entries, line, ping);
  if (mayWake) DeleteInIdentityFolder(wakeFile);
}

// --- The clean pass ---

bool IsOfAnotherDay(const TqFileInfo& entry, const TqString& today) {
  const std::string_view name = NameOf(entry);
  return IsRegular(entry) && name.size() >= kDatedNameLength && (name.ends_with(".log") || name.ends_with(".txt")) &&
         (name.starts_with("ping_") || name.starts_with("wake_")) && name.substr(kDateAt, kDateLength) != today.View();
}

void CleanVolume(const TqString& folder, Ping& ping) {
  TqFileInfoList entries;
  if (!ListFolder(folder, ping, entries)) return;
  for (std::int32_t i = 0; i < entries.Count(); ++i) {
    if (IsOfAnotherDay(*entries.Get(i), ping.date)) DeleteInIdentityFolder(entries.Get(i)->path);
  }
}

/// Runs `pass` over the identity folder of each selected volume but the system volume, which is never pinged.
template <typename Pass>
void ForEachPinged(const TqVolumeInfoList& selected, Pass pass) {
  for (const TqVolumeInfo* volume : selected) {
    if (!IsSystemMount(volume->mountPointPath)) pass(PingedFolder(*volume));
  }
}

// --- The identity report ---

template <typename... Pieces>
void LogReportError(const Pieces&... pieces) {
  Log("ERROR: ", kPing, TqSystem::ProcessId(), ") - error ", pieces...);
}

void CheckHostGuid(const TqString& file, const TqString& contents) {
  TqString hguid;
  const TqString myHguid = MyHostGuid();
  if (!TqFile::GetUniqueStrAttrFromXmlSnippet(contents, "associated_hguid", hguid)) {
    LogReportError("reading tqvol_id.xml fileName=", file,
                   ", could not find associated_hguid, contents included here=", contents);
  } else if (!EqualsIgnoreCase(hguid, myHguid)) {
    LogReportError("wrong hguid in tqvol_id.xml fileName=", file, ", myHguid=", myHguid,
                   ", wrongHguidFromTqVolIdFile=", hguid);
  }
}

/// The vguid on the volume's disk, or a word that tells why there is none.
TqString VguidFromDisk(const TqString& folder) {
  constexpr std::int32_t kTooShort = 49;
  const TqString file = Joined(folder, TqFile::kIdentityFileName);
  TqString contents;
  TqString vguid;
  if (!TqFile::IdentityFileExists(folder)) return "no_tqvol_id_xml_file_present";
  if (!TqFile::ReadIdentityFile(file, contents)) return "tqvol_id_xml_file_present_but_failed_to_read";
  if (contents.Length() <= kTooShort) {
    LogReportError("reading tqvol_id.xml fileName=", file, ", contents not long enough, included here=", contents);
    return "tqvol_id_xml_file_present_and_read_but_too_short";
  }
  CheckHostGuid(file, contents);
  if (!TqFile::GetUniqueStrAttrFromXmlSnippet(contents, "vguid", vguid)) {
    LogReportError("reading tqvol_id.xml fileName=", file, ", could not find vguid");
    return "tqvol_id_xml_file_did_not_contain_vguid";
  }
  if (vguid.Length() != kVguidLength) {
    LogReportError("reading tqvol_id.xml fileName=", file, ", found wrong length vguid=", vguid);
    return Joined("tqvol_id_xml_file_contained_vguid_but_wrong_length_not_28_chars=", vguid);
  }
  return vguid;
}

TqString VguidReport(const TqVolumeInfoList& selected) {
  TqString report;
  for (const TqVolumeInfo* volume : selected) {
    AppendAll(report, report.IsEmpty() ? "" : ", ", volume->mountPointPath,
              " withVolGuidFromDisk=", VguidFromDisk(PingedFolder(*volume)));
  }
  return report;
}

/// ",     driveReport=<report>___abstr=<abbreviation>" with the caller's own label.
TqString DriveReport(std::string_view label) {
  TqString summary;
  TqString abbreviation;
  GetHardDriveSummary(summary, abbreviation);
  return Joined(label, summary, "___abstr=", abbreviation);
}

}  // namespace

void PingDrivesThatAreSelectedForBackup() {
  constexpr std::int64_t kSpinUpMillis = 3'000;
  Ping ping;
  ping.dateTime = TqSystem::NowAsGmtText();
  ping.date = ping.dateTime.Slice(0, kDateLength);
  const int pid = TqSystem::ProcessId();
  Log(kPing, pid, ") -   before doing anything,  todayDateTimeStr=", ping.dateTime, DriveReport(",     driveReport="));
  TqVolumeInfoList selected;
  TqInfoManager::GetVolumesSelectedForBackup(selected);

  ForEachPinged(selected, [&](const TqString& folder) { TouchVolume(folder, ping); });
  TqSystem::SleepMillis(kSpinUpMillis);
  ForEachPinged(selected, [&](const TqString& folder) { CleanVolume(folder, ping); });

  Log(kPing, pid, ") - after, signConnect=", ping.signConnect ? "true,  " : "false, ",
      "todayDateTimeStr=", ping.dateTime, DriveReport(", new_driveReport="));
  Log(kPing, pid, ") - todayDateTimeStr=", ping.dateTime, " - vGuidReport: ", VguidReport(selected));
}

}  // namespace TqUiUtil
