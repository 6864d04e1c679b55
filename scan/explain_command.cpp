#include "scan/explain_command.h"

#include <vector>

#include "base/access_check.h"
#include "base/clock.h"
#include "base/fast_file_reader.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/system_info.h"
#include "scan/client_services.h"
#include "scan/file_stats.h"
#include "selection/explain_report.h"
#include "selection/rule_engine.h"
#include "selection/settings.h"
#include "volumes/drive_summary.h"
#include "volumes/selected_volumes.h"

namespace {

using TqInfoManager::num_tqExcludeFilenameRules;
using TqInfoManager::tqExcludeFilenameRules;

constexpr std::int32_t kGrepLimit = 1005;
constexpr std::int32_t kMaxHits = 1000;  ///< over all lists; the next one ends the report
constexpr std::int32_t kScreenful = 25;
constexpr std::int64_t kLargeFileBytes = 31'457'280;

constexpr std::string_view kAppendFailed = "could_not_append_to_output_file";

/// The report under way. Blocks are appended one at a time; the first failed append ends it: nothing more is written.
class Report {
 public:
  Report(const TqString& path, TqString& diagnosis) : path_(path), diagnosis_(diagnosis) {}

  template <typename... Pieces>
  void Write(const Pieces&... pieces) {
    if (!failed_) failed_ = !TqFile::AppendStringToFile(path_, Joined(pieces...));
  }
  /// At most a screenful of lines.
  void WriteLines(const TqStringVector& lines) {
    for (std::int32_t i = 0; i < lines.Count() && i < kScreenful; ++i) Write("  ", lines.At(i), "\n");
    if (lines.Count() > kScreenful) Write("  ... more matches not shown ...\n");
  }
  /// Every ending; false when the report is not whole.
  bool End(std::string_view diagnosis) {
    diagnosis_ = diagnosis;
    Write("\n\nPRIMARY_DIAGNOSIS: ", diagnosis, "\n");
    if (failed_) diagnosis_ = kAppendFailed;
    return !failed_;
  }
  bool Failed() const { return failed_; }

 private:
  const TqString& path_;
  TqString& diagnosis_;
  bool failed_ = false;
};

/// What the lists hold of the name.
struct Findings {
  std::vector<TqListHit> found;  ///< class file_found
  std::int32_t intended = 0;
  std::vector<std::size_t> listOf;  ///< parallel to found: index of its list
  const TqListHit& FirstIntended(std::size_t& index) const {
    index = 0;
    while (!found[index].isIntended) ++index;
    return found[index];
  }
};

TqString VguidOfList(std::string_view listPath) {
  const std::size_t slash = listPath.rfind('/');
  return TqString(listPath.substr(slash == std::string_view::npos ? 0 : slash + 1).substr(0, kVguidLength));
}

// --- the blocks, in order ---

void WriteHeader(Report& report, const TqString& file) {
  const std::int64_t now = TqSystem::NowGmtMillis();
  report.Write("Kestrune Explanation for file: ", file, "\n",
               "  Report was generated at datetime: ", TqSystem::GmtDateTimeText(TqSystem::LocalMillis(now)),
               ", in GMT: ", TqSystem::GmtDateTimeText(now), "\n", "  Version tqfilelist: ", TqVersionString(), "\n\n");
}

TqString DrivesText() {
  TqVolumeInfoList volumes;
  TqUiUtil::TqVolumesXml_GetListOfHardDrivesToDisplayInGui(volumes);
  TqString drives;
  for (const TqVolumeInfo* volume : volumes) {
    if (!drives.IsEmpty()) drives.Append(", ");
    AppendAll(drives, volume->mountPointPath, "___abstr=Selected_", volume->volumeIsSelectedForBackup ? 1 : 0,
              "__Remaining_unknown");
  }
  return drives;
}

void WriteInstallation(Report& report) {
  TqString summary;
  TqString abbreviation;
  TqUiUtil::GetHardDriveSummary(summary, abbreviation);
  const TqString hguid = MyHostGuid();
  const TqString oldList = Joined(TqInstall::ListsFolder(), "completefilelist.dat");
  const bool initial = TqFile::Exists(oldList);
  report.Write(
      "Installation Information\n", "  OperatingSystem: ", TqSystem::OsDetailText(), "\n",
      "  InstallDir: ", TqInstall::InstallFolder(), "\n", "  DataDir: ", TqInstall::DataFolder(), "\n",
      "  hGuid: ", hguid, " (created: ", HostGuidCreationDate(hguid), ")\n",
      "  MyEmailAddr: ", TqInfoManager::Settings().login, "\n",
      "  ComputerName: ", TqInfoManager::Settings().onlineHostname, "\n", "  drives: ", DrivesText(), "\n",
      "  BackupSummary: ", summary, "___abstr=", abbreviation, "\n",
      "  BackupStage: ", initial ? "initial_backup" : "steady_state", "\n",
      initial ? "  ERROR_BAD: completefilelist.dat still exists at: " : "  GOOD: no completefilelist.dat exists at: ",
      oldList, "\n\n");
}

void LoadRules(Report& report) {
  if (!TqInfoManager::LoadAllExcludeFilenameRulesProperly(tqExcludeFilenameRules, &num_tqExcludeFilenameRules)) {
    report.Write("ERROR: TqExplainFile - TqInfoManager::LoadAllExcludeFilenameRulesProperly returned false\n");
  }
}

/// The first diagnosis that ends the search, or an empty text. Searches one list.
std::string_view SearchList(Report& report, const TqString& file, const TqString& listPath, std::size_t listIndex,
                            std::int32_t& hits, Findings& findings) {
  report.Write(" - perVol ", listIndex, " filelist.dat has: ", TqFile::FileSize(listPath), " bytes, fname: ", listPath,
               " (", TqFile::CountLinesInFile(listPath), " lines)\n\n");
  TqStringVector numbers;
  TqStringVector lines;
  TqString error;
  if (!TqFile::TqGrepFile(listPath, file, false, kGrepLimit, numbers, lines, &error)) {
    report.Write("ERROR: could not TqGrepFile per_vol_filelist.dat, errStr=", error, "\n");
    return "completefilelist_does_not_grep";
  }
  const std::int64_t sizeLimit = TqInfoManager::Settings().MaxFileSizeBytes();
  for (std::int32_t i = 0; i < lines.Count(); ++i) {
    if (++hits > kMaxHits) {
      report.Write("ERROR: filename is too common in the perVolumeFileLists\n");
      return "ambiguous_query_THOUSANDS_OF_different_files_match_in_completefilelist";
    }
    TqListHit hit =
        TqInfoManager::ClassifyListLine(lines.At(i), sizeLimit, tqExcludeFilenameRules, num_tqExcludeFilenameRules);
    report.Write("  - line ", numbers.At(i), " - ", hit.wording, "\n");
    if (hit.hitClass != TqHitClass::kFileFound) continue;
    if (hit.isIntended) ++findings.intended;
    findings.found.push_back(std::move(hit));
    findings.listOf.push_back(listIndex);
  }
  return {};
}

std::string_view SearchLists(Report& report, const TqString& file, const TqStringVector& lists, Findings& findings) {
  std::int32_t hits = 0;
  for (std::int32_t i = 0; i < lists.Count() && !report.Failed(); ++i) {
    const std::string_view ending = SearchList(report, file, lists.At(i), static_cast<std::size_t>(i), hits, findings);
    if (!ending.empty()) return ending;
  }
  report.Write("-----end_pervol_info----------------------------------------\n");
  return {};
}

void WriteSizes(Report& report, const TqFileInfo& info) {
  report.Write("  fileSizeInBytes: ", info.dataSize, "\n", "  rsrcForkInBytes: ", info.rsrcSize, "\n",
               "  lastModifiedTime (GMT): ", TqSystem::GmtDateTimeText(info.modTimeMs), "\n");
}

void WriteReadRights(Report& report, const TqString& file) {
  TqString detail;
  const bool iCan = TqSystem::CurrentLoginCanRead(file, detail);
  report.Write("  my_current_login_has_rights_to_read_file: ", iCan, ", detail=", detail, "\n");
  const bool serviceCan = TqSystem::LoginCanRead(ServiceLoginName(), file, detail);
  report.Write("  tqserv_login_has_rights_to_read_file: ", serviceCan, ", detail=", detail, "\n");
}

bool EndWithoutMatch(Report& report, const TqString& file) {
  report.Write("Found NO MATCHING FILES in the per vol filelists for: ", file, "\n",
               TqInfoManager::NoMatchReasons(file));
  if (file.StartsWith("/")) {
    report.Write("\nIs absolute path, so on-disk local FileInfo for: ", file, "\n");
    TqString path;
    TqFileInfo info;
    TqInfoManager::FindOnDisk(file, path, info);
    WriteSizes(report, info);
    WriteReadRights(report, path);
  } else {
    report.Write("\nNot an absolute path, so cannot get on-disk local FileInfo for file.\n");
  }
  return report.End("no_matching_file_found_in_completefilelist");
}

bool EndWithNoneIntended(Report& report, const Findings& findings) {
  report.Write("Found Zero matches in the per vol filelists that are intended for backup, see tqinfo.xml:\n");
  TqString settings;
  if (!TqFile::ReadFileIntoString(TqInfoManager::TqInfoPath(), settings)) {
    report.Write("Could not read in tqinfo.xml from this location: ", TqInfoManager::TqInfoPath(), "\n");
    return report.End("file_purposely_not_scheduled_for_backup_tqinfo_missing");
  }
  report.Write("-------------------tqinfo.xml start--------------------------\n", settings,
               settings.EndsWith("\n") ? "" : "\n", "-------------------tqinfo.xml end----------------------------\n");
  const bool isOne = findings.found.size() == 1;
  report.Write(isOne ? "Found this one matching file in the per vol filelists:\n"
                     : "Found several matching files in the per vol filelists:\n");
  for (const TqListHit& hit : findings.found) report.Write("  ", hit.path, "\n");
  report.Write(isOne ? "but Kestrune will not try to back this file up.  This is on purpose.\n"
                     : "but Kestrune will not try to back any of these up.  This is on purpose.\n",
               TqInfoManager::NotIntendedReasons());
  if (isOne) return report.End("file_purposely_not_scheduled_for_backup");
  return report.End(Joined("ambiguous_query_", findings.found.size(),
                           "_files_in_completefilelist_all_purposely_not_sched_for_backup"));
}

bool EndWithSeveralIntended(Report& report, const Findings& findings) {
  report.Write(
      "MORE THAN ONE FILE MATCHED that Kestrune will attempt to back up, refine\n"
      "your search to one of these files to get much more detailed information.\n",
      "Found ", findings.intended, " different likely files in the per vol filelists that all match:\n");
  for (const TqListHit& hit : findings.found) {
    if (hit.isIntended) report.Write("  ", hit.path, "\n");
  }
  return report.End(Joined("ambiguous_query_", findings.intended, "_different_files_match_in_completefilelist"));
}

// --- the pipeline behind the lists: file ids, to-do lists, done lists, transmitter logs ---

/// Lines of `path` that hold `needle`; an unreadable file gets its line in the report and gives none.
TqStringVector GrepForReport(Report& report, const TqString& path, const TqString& needle) {
  TqStringVector numbers;
  TqStringVector lines;
  if (TqFile::FileSize(path) == 0 && TqFile::Exists(path)) return lines;
  if (!TqFile::TqGrepFile(path, needle, false, kGrepLimit, numbers, lines, nullptr)) {
    report.Write("  ERROR: could not read ", path, "\n");
  }
  return lines;
}

/// Full paths of a folder's files whose name begins and ends so, in name order.
TqStringVector FilesNamed(std::string_view folder, std::string_view beginning, std::string_view ending) {
  TqStringVector paths;
  TqFileInfoList entries;
  const TqString dir(folder);
  TqFile::GetListOfFileInfosInDir(&dir, &entries);
  for (std::int32_t i = 0; i < entries.Count(); ++i) {
    const TqString& path = entries.Get(i)->path;
    const std::string_view name = path.Slice(path.FindLastChar('/') + 1);
    if (!entries.Get(i)->isDir && name.starts_with(beginning) && name.ends_with(ending)) paths.Add(path);
  }
  paths.Sort([](const void* a, const void* b) {
    return CompareBytes(**static_cast<TqString* const*>(a), **static_cast<TqString* const*>(b));
  });
  return paths;
}

/// Traces the file id; gives it, or an empty text.
TqString TraceFileId(Report& report, const TqListHit& hit) {
  const TqString table = Joined(TqInstall::DataFolder(), "tqbackup/tqfileids.dat");
  const TqStringVector lines = GrepForReport(report, table, hit.path);
  if (lines.Count() == 0) {
    report.Write("  No references to our file found in tqfileids.dat\n");
    return {};
  }
  if (lines.Count() == 1) {
    report.Write("  GOOD_TQFILEID - Found 1 matching reference to our file in tqfileids.dat:\n");
  } else if (hit.listedSize < kLargeFileBytes) {
    report.Write("  WARNING: Small file but found these ", lines.Count(),
                 " references to our file in tqfileids.dat:\n");
  } else {
    report.Write("  LARGE_FILE: found these ", lines.Count(), " references to our large file in tqfileids.dat:\n");
  }
  report.WriteLines(lines);
  const std::string_view first = lines.At(0);
  const TqString id(first.substr(0, first.find('\t')));
  const TqStringVector references = GrepForReport(report, table, id);
  if (references.Count() == 0) {
    report.Write("  ERROR: No ref to our fileId of ", id, " found in 2nd TqGrep of tqfileids.dat\n");
  } else {
    report.Write("  INTERESTING: Found these ", references.Count(), " refs to our fileID of ", id,
                 " in 2nd grep of tqfileids.dat:\n");
    report.WriteLines(references);
  }
  return id;
}

void TraceToDo(Report& report, const TqString& path, const TqString& vguid) {
  const TqStringVector files =
      FilesNamed(Joined(TqInstall::DataFolder(), "tqdatacenter"), Joined("tq_todo_", vguid), "");
  if (files.Count() == 0) report.Write("No PerVOLUME tq_todo_ file found on system.\n");
  for (const TqString* file : files) {
    report.Write("Examining PerVOLUME tq_todo_ file found on system:\n  ", *file, "\n");
    const TqStringVector lines = GrepForReport(report, *file, path);
    report.Write(lines.Count() > 0 ? "  Found these references to our file found in tq_todo_:\n"
                                   : "  No references to our file found in tq_todo_\n");
    report.WriteLines(lines);
  }
}

/// Whether the done files mention the file id.
bool TraceDone(Report& report, const TqString& id) {
  const TqStringVector files = FilesNamed(Joined(TqInstall::DataFolder(), "tqdatacenter"), "tq_done_", "");
  if (files.Count() == 0) {
    report.Write("No tq_done_ files found on system.\n");
    return false;
  }
  if (files.Count() == 1) {
    report.Write("One tq_done_ file found on system:\n");
  } else {
    report.Write("Several (", files.Count(), ") tq_done_ files found on system:\n");
  }
  report.WriteLines(files);
  TqStringVector lines;
  for (const TqString* file : files) {
    for (const TqString* line : GrepForReport(report, *file, id)) lines.Add(*line);
  }
  if (lines.Count() == 0) {
    report.Write("  - no references to the tqfileid ", id, " were found in tq_done_ files\n");
    return false;
  }
  report.Write("Found these references in tq_done_ files to to tqfileid: ", id, "\n");
  report.WriteLines(lines);
  return true;
}

void TraceLogs(Report& report, const TqString& path) {
  const TqString folder = Joined(TqInstall::LogsFolder(), "tqtransmit");
  const TqStringVector logs = FilesNamed(folder, "", ".log");
  const TqStringVector archives = FilesNamed(folder, "", ".zip");
  if (logs.Count() + archives.Count() == 0) {
    report.Write("Found no tqtransmit log files at all\n");
    return;
  }
  report.Write("Looking through ", logs.Count() + archives.Count(),
               " tqtransmit log files for mentions of this file\n");
  for (const TqString* archive : archives) {
    report.Write("  - not searched, compressed: ", archive->Slice(archive->FindLastChar('/') + 1), "\n");
  }
  TqStringVector lines;
  for (const TqString* log : logs) {
    for (const TqString* line : GrepForReport(report, *log, path)) lines.Add(*line);
  }
  if (lines.Count() == 0) report.Write("  - no references to the file were found\n");
  report.WriteLines(lines);
}

bool EndWithBestCase(Report& report, const Findings& findings, const TqStringVector& lists) {
  std::size_t index = 0;
  const TqListHit& hit = findings.FirstIntended(index);
  report.Write("BEST_CASE - Found 1 matching file in the per vol filelists intended for backup:\n  ", hit.path, "\n");
  TqString path;
  TqFileInfo info;
  if (TqInfoManager::FindOnDisk(hit.path, path, info)) {
    report.Write("FileInfo for file: ", hit.path, "\n");
    WriteSizes(report, info);
  } else {
    report.Write("GetInfoAboutFileOrDir failed for file: ", hit.path, "\n");
  }
  const TqString id = TraceFileId(report, hit);
  TraceToDo(report, hit.path, VguidOfList(lists.At(static_cast<std::int32_t>(findings.listOf[index]))));
  const bool isDone = TraceDone(report, id);
  TraceLogs(report, hit.path);
  return report.End(isDone ? "healthy_and_found_in_tq_done" : "not_found_in_tq_done");
}

bool EndByFindings(Report& report, const TqString& file, const Findings& findings, const TqStringVector& lists) {
  if (findings.found.empty()) return EndWithoutMatch(report, file);
  if (findings.intended == 0) return EndWithNoneIntended(report, findings);
  if (findings.intended > 1) return EndWithSeveralIntended(report, findings);
  return EndWithBestCase(report, findings, lists);
}

}  // namespace

bool TqExplainFile(const TqString& file, const TqString& reportPath, TqString& diagnosis) {
  Report report(reportPath, diagnosis);
  WriteHeader(report, file);
  WriteInstallation(report);
  LoadRules(report);
  std::vector<TqWatchedDir> watchedDirs;
  if (!TqInfoManager::ParseTqInfoForFilesToWatch(watchedDirs)) {
    return report.End("could_not_parse_tqinfo_for_files_to_watch");
  }
  TqStringVector lists;
  if (!TqUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(lists)) {
    report.Write("ERROR: TqUiUtil::GetVecOf_SelForBackup_PerVol failed\n");
  }
  Findings findings;
  const std::string_view ending = SearchLists(report, file, lists, findings);
  if (!ending.empty()) return report.End(ending);
  return EndByFindings(report, file, findings, lists);
}
