#include <algorithm>
#include <charconv>
#include <cstdint>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/log.h"
#include "base/xml_snippets.h"
#include "scan/run_state.h"
#include "scan/top_dirs.h"
#include "volumes/selected_volumes.h"

namespace {

constexpr std::int64_t kXmlReserve = 50'000;
constexpr int kMoveTries = 5;
constexpr std::int64_t kMovePauseMillis = 1'000;
constexpr std::int32_t kShortestVguid = 5;

/// The index of the next entry among those written: inactive entries before it do not count, since they are left out.
std::int32_t NextIndexToWrite(const TqTopDirsList& list) {
  if (list.next_to_index >= list.count) return 0;
  std::int32_t next = list.next_to_index;
  for (std::int32_t i = 0; i < list.next_to_index; ++i) {
    if (!list.IsActive(i)) --next;
  }
  if (next >= 0) return next;
  Log("WARNING: WriteTopDirsXmlFile, ", ProcessIdText(), " theNextDirToIndex was going to be written out neg: ", next);
  return 0;
}

TqString TopDirsXml(const TqTopDirsList& list) {
  TqString xml;
  xml.Reserve(kXmlReserve);
  AppendAll(xml, "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<stats numtopdirs=\"", list.count,
            "\" num_times_mount_points_verified=\"", list.num_times_mount_points_verified, "\" millis_to_produce=\"",
            list.millis_to_produce, "\" next_to_index=\"", NextIndexToWrite(list), "\" gmt_millis=\"",
            Hex16(list.gmt_millis), "\" gmt_datetime=\"", TqSystem::GmtDateTimeText(list.gmt_millis), "\" />\n");
  std::int32_t written = 0;
  for (std::int32_t i = 0; i < list.count; ++i) {
    if (!list.IsActive(i)) continue;
    AppendAll(xml, "<dir num=\"", written++, "\" vguid=\"", TqFile::XmlEscaped(list.vguids.At(i)), "\" secs_to_scan=\"",
              list.SecondsOf(i), "\" path=\"", TqFile::XmlEscaped(list.dirs.At(i)), "\" />\n");
  }
  xml.Append("</contents>\n");
  return xml;
}

/// The decimal digits at the beginning of `text`, 0 when there are none.
template <typename Number>
Number LeadingNumber(std::string_view text) {
  Number number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

/// An attribute of the whole file's text; "0" when it is missing, logged in the given words.
TqString StatOf(const TqString& xml, std::string_view attribute, std::string_view missing, std::string_view path) {
  TqString value;
  if (TqFile::GetUniqueStrAttrFromXmlSnippet(xml, attribute, value)) return value;
  Log("ERROR: ReadTopDirsXmlFile - no attr ", missing, path);
  return "0";
}

void ReadStats(const TqString& xml, std::string_view path, TqTopDirsList& list) {
  list.millis_to_produce = LeadingNumber<std::int64_t>(StatOf(xml, "millis_to_produce", "millis_to_produce in:", path));
  // On purpose: written in hexadecimal, read as the decimal digits before the first letter.
  list.gmt_millis = LeadingNumber<std::int64_t>(StatOf(xml, "gmt_millis", "gmt_millis in:", path));
  list.next_to_index = LeadingNumber<std::int32_t>(StatOf(xml, "next_to_index", "next_to_index in:", path));
  const auto verified =
      LeadingNumber<std::int32_t>(StatOf(xml, "num_times_mount_points_verified", "num_times_mount_points_ver:", path));
  list.num_times_mount_points_verified = std::min(verified, INT32_MAX / 2);  // it is counted on from here
  if (list.next_to_index >= 0) return;
  Log("WARNING: ReadTopDirsXmlFile, ", ProcessIdText(),
      " stat_nextDirToIndex was read out neg, fixed to zero: ", list.next_to_index);
  list.next_to_index = 0;
}

void ReadDir(const TqString& snippet, std::string_view path, const TqVolumeInfoList& volumes, TqTopDirsList& list) {
  const std::int32_t index = list.count++;
  TqString dir;
  if (!TqFile::GetUniqueStrAttrFromXmlSnippet(snippet, "path", dir)) {
    Log("ERROR: ReadTopDirsXmlFile - no attr path in: ", path);
  }
  list.dirs.Add(dir);

  TqString vguid;
  TqFile::GetUniqueStrAttrFromXmlSnippet(snippet, "vguid", vguid);
  if (vguid.Length() < kShortestVguid) {
    Log("WARNING: ReadTopDirsXmlFile - no attr vguid in: ", path);
    vguid = VguidOfPath(volumes, list.PathOf(index), "ReadDiskAndCreateTopDirsListInRam");
  }
  list.vguids.Add(vguid);

  TqString seconds;
  if (!TqFile::GetUniqueStrAttrFromXmlSnippet(snippet, "secs_to_scan", seconds)) {
    Log("ERROR: ReadTopDirsXmlFile - no secs_to_scan in: ", path);
  }
  list.SetSeconds(index, LeadingNumber<std::int32_t>(seconds));
}

}  // namespace

bool WriteTopDirsXmlFile(std::string_view path, const TqTopDirsList& list) {
  const TqString temporary = Joined(path, ".tmp");
  if (!TqFile::WriteFileToDiskWithRetry(temporary, TopDirsXml(list))) {
    Log("ERROR: WriteTopDirsXmlFile could not write out file: ", temporary);
    return false;
  }
  for (int i = 0; i < kMoveTries && !TqFile::AtomicMoveFile(temporary, path); ++i) {
    Log("ERROR: WriteTopDirsXmlFile could not write AtomicMove file: ", temporary);
    TqSystem::SleepMillis(kMovePauseMillis);
  }
  return true;
}

bool ReadTopDirsXmlFile(std::string_view path, TqTopDirsList& list) {
  list.Clear();
  if (!TqFile::Exists(path)) {
    Log("ERROR: ReadTopDirsXmlFile - file does not exist: ", path);
    return false;
  }
  TqString xml;
  if (!TqFile::ReadFileIntoString(path, xml)) {
    Log("ERROR: ReadTopDirsXmlFile - file exists but could not be read: ", path);
    return false;
  }
  ReadStats(xml, path, list);

  TqStringVector snippets;
  if (!TqFile::GetAllXmlSnippetsWithTagNameInXml(xml, "dir", snippets)) {
    Log("ERROR: ReadTopDirsXmlFile - could not find any \"<dir \" in:", path);
    return false;
  }
  TqVolumeInfoList volumes;
  TqInfoManager::GetVolumesSelectedForBackup(volumes);
  for (const TqString* snippet : snippets) ReadDir(*snippet, path, volumes, list);
  return true;
}
