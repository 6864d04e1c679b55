#include "volumes/defcon.h"

#include <algorithm>
#include <charconv>

#include "base/clock.h"
#include "base/fast_file_reader.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/text_codec.h"
#include "base/xml_snippets.h"
#include "selection/settings.h"
#include "volumes/retry.h"
#include "volumes/selected_volumes.h"
#include "volumes/volume_query.h"
#include "volumes/volume_registry.h"

namespace TqUiUtil {
namespace {

using TqFile::GetUniqueStrAttrFromXmlSnippet;

constexpr std::string_view kUpdater = "TqUiUtil::TqVolDefcon_UpdateTqVolumesDefconXmlFile ";
constexpr std::string_view kReader = "ERROR: TqUiUtil::TqVolDefcon_HitDisk_ReadTqDefconXmlFile - ";
constexpr std::string_view kSummaryAttribute = "most_critial_volume_defcon";  // spelled so in every reader of the file

constexpr std::int32_t kNothingRated = 6;     ///< the summary of a file without volumes
constexpr std::int32_t kHighestElevated = 4;  ///< levels above it are normal
constexpr std::int32_t kListIsOldDays = 8;
constexpr std::int64_t kCacheMillis = 300'000;

// --- Rating ---

/// A time in milliseconds: 16 hex digits, as list headers and `gmt_millis` have it, or decimal digits.
bool ParseMillis(std::string_view text, std::int64_t& millis) {
  const char* end = text.data() + text.size();
  std::uint64_t number = 0;
  const auto [stop, error] = std::from_chars(text.data(), end, number, text.size() == 16 ? 16 : 10);
  if (error != std::errc() || stop != end || number > INT64_MAX) return false;
  millis = static_cast<std::int64_t>(number);
  return true;
}

/// Days since `then`; an age beyond the limit is logged as "more than 24_years since <what>".
std::int32_t DaysSince(std::int64_t now, std::int64_t then, std::string_view what, const TqVolumeInfo& volume) {
  if (TqSystem::WholeDaysBetween(now, then) > std::uint64_t{TqSystem::kMaxDays}) {
    Log("ERROR: ", kUpdater, "- more than 24_years since ", what, ", mountName=", volume.mountPointPath);
  }
  return TqSystem::DaysBetween(now, then);
}

void RateSeen(const TqVolumeInfoList& registry, std::int64_t now, TqVolumeInfo& volume) {
  const TqVolumeInfo* known = registry.FindVguid(volume.vguid);
  volume.lastSeenInDays =
      known != nullptr ? DaysSince(now, known->lastTimeVolumeWasSeenAttachedGmtMillis, "drive was seen", volume) : -1;
}

/// A list's first line; lists can be larger than a text may be, so never the whole file.
bool ReadFirstLineOfList(const TqString& path, TqString& line) {
  TqFastFileReader reader;
  reader.TqSetRamCacheSize(10'000, nullptr);
  return reader.TqOpenFileReadOnly(path, nullptr) && reader.TqReadNextLine(&line, nullptr);
}

/// False (logged) when the volume's list is there but does not tell its age.
bool RateListed(std::int64_t now, TqVolumeInfo& volume) {
  constexpr std::string_view kMarker = "GmtMillisThisListWasStarted: ";
  const TqString path = TqFile::PerVolumeListPath(volume.vguid, volume.mountPointPath);
  if (!TqFile::Exists(path)) {
    Log("WARNING: - ", kUpdater, "per-volume filelist does not exist so using -1, mountName=", volume.mountPointPath);
    return true;
  }
  TqString firstLine;
  if (!Retry(10, 1'000, [&](int) { return ReadFirstLineOfList(path, firstLine); })) {
    Log("ERROR: ", kUpdater, "- could not read per-volume filelist so bailing out, mountName=", volume.mountPointPath);
    return false;
  }
  const std::int32_t marker = firstLine.Find(kMarker);
  std::string_view text = Trimmed(firstLine.Slice(marker + static_cast<std::int32_t>(kMarker.size())));
  text = Trimmed(text.substr(0, text.find(',')));
  std::int64_t started = 0;
  if (marker < 0 || !ParseMillis(text, started)) {
    Log("ERROR: ", kUpdater,
        "- read per-volume filelist but did not parse first line correctly, so bailing out, mountName=",
        volume.mountPointPath, ", firstLine=", firstLine);
    return false;
  }
  volume.lastFileListedInDays = DaysSince(now, started, "filelist was generated", volume);
  return true;
}

/// False (logged) when the uploader has left no record for the volume.
bool RatePushed(std::int64_t now, TqVolumeInfo& volume) {
  const TqString path = Joined(TqInstall::LogsFolder(), "tqreports_lastfilestransmitted/tqstat_pervol_", volume.vguid,
                               "_latest_file.xml");
  if (!TqFile::Exists(path)) {
    Log("ERROR: ", kUpdater, "- tqstat_pervol_latest_file.xml not found here: ", path,
        ", so bailing out of defcon calculations");
    return false;
  }
  TqString contents;
  if (!Retry(10, 100, [&](int) { return TqFile::ReadFileIntoString(path, contents) && contents.Length() > 2; })) {
    Log("ERROR: ", kUpdater, "- could not read, so using none: ", path);
    contents = "none";
  }
  TqString text;
  std::int64_t pushed = 0;
  if (GetUniqueStrAttrFromXmlSnippet(contents, "gmt_millis", text) && ParseMillis(Trimmed(text), pushed)) {
    volume.lastFilePushedInDays = DaysSince(now, pushed, "file was transmitted", volume);
  }
  return true;
}

TqString VolumeLine(const TqVolumeInfo& volume) {
  return Joined("<tqvolume tqVolumeGuid=\"", TqFile::XmlEscaped(volume.vguid), "\" mountPointPathHex=\"",
                HexEncode(volume.mountPointPath), "\" vol_defcon_level=\"", volume.defconLevel,
                "\" vol_last_seen_in_days=\"", volume.lastSeenInDays, "\" vol_last_filelisted_in_days=\"",
                volume.lastFileListedInDays, "\" vol_last_file_pushed_in_days=\"", volume.lastFilePushedInDays,
                "\" />\n");
}

bool WriteDefconFile(std::int32_t summary, const TqVolumeInfoList& volumes) {
  TqString text = Joined("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<volume_defcon_summary ",
                         kSummaryAttribute, "=\"", summary, "\" />\n");
  for (const TqVolumeInfo* volume : volumes) text.Append(VolumeLine(*volume));
  text.Append("</contents>\n");
  const TqString path = TqDefconXmlPath();
  TqInstall::CreateSubFolder(TqInstall::ReportsFolder());  // its failure shows in the write
  switch (TqFile::SwapInQuietly(path, text, 10, 20, 100)) {
    case TqFile::SwapResult::kWriteFailed:
      Log("ERROR: ", kUpdater, "- could not write out temporary file, bailing: ", path, ".tmp");
      return false;
    case TqFile::SwapResult::kMoveFailed:
      Log("ERROR: ", kUpdater, "- could not swap in temporary file, bailing: ", path, ".tmp");
      return false;
    case TqFile::SwapResult::kDone:
      break;
  }
  Log(kUpdater, "- success updating file: ", path);
  return true;
}

// --- Reading ---

bool ReadSummary(const TqString& contents, const TqString& path, std::int32_t& summary) {
  TqString text;
  if (!GetUniqueStrAttrFromXmlSnippet(contents, kSummaryAttribute, text)) {
    Log(kReader, "did not contain most_critial_volume_defcon fName=", path);
    return false;
  }
  std::int64_t number = 0;
  if (!ParseInt64(Trimmed(text), number) || number < 1 || number >= kNothingRated) {
    Log(kReader, "most_critial_volume_defcon out_of_range fName=", path);
    return false;
  }
  summary = static_cast<std::int32_t>(number);
  return true;
}

bool ReadNumber(const TqString& snippet, std::string_view name, std::int32_t& number) {
  TqString text;
  std::int64_t wide = 0;
  if (!GetUniqueStrAttrFromXmlSnippet(snippet, name, text) || !ParseInt64(Trimmed(text), wide)) return false;
  if (wide < INT32_MIN || wide > INT32_MAX) return false;
  number = static_cast<std::int32_t>(wide);
  return true;
}

bool ReadVguid(const TqString& snippet, TqVolumeInfo& volume) {
  TqString vguid;
  if (!GetUniqueStrAttrFromXmlSnippet(snippet, "tqVolumeGuid", vguid)) return false;
  volume.SetVguid(vguid);
  return vguid.Length() == kVguidLength;
}

bool ReadMountPoint(const TqString& snippet, TqVolumeInfo& volume) {
  TqString hex;
  return GetUniqueStrAttrFromXmlSnippet(snippet, "mountPointPathHex", hex) && HexDecode(hex, volume.mountPointPath);
}

/// Fills `volume` from its line; the name of the first attribute that cannot be read, empty when all can.
std::string_view ParseVolume(const TqString& snippet, TqVolumeInfo& volume) {
  volume.Reset();
  if (!ReadVguid(snippet, volume)) return "tqVolumeGuid";
  if (!ReadMountPoint(snippet, volume)) return "mountPointPathHex";
  const struct {
    std::string_view name;
    std::int32_t& number;
  } numbers[] = {{"vol_defcon_level", volume.defconLevel},
                 {"vol_last_seen_in_days", volume.lastSeenInDays},
                 {"vol_last_filelisted_in_days", volume.lastFileListedInDays},
                 {"vol_last_file_pushed_in_days", volume.lastFilePushedInDays}};
  for (const auto& [name, number] : numbers) {
    if (!ReadNumber(snippet, name, number)) return name;
  }
  return "";
}

bool ReadVolumes(const TqString& contents, const TqString& path, TqVolumeInfoList& list) {
  TqStringVector snippets;
  if (!TqFile::GetAllXmlSnippetsWithTagNameInXml(contents, "tqvolume", snippets)) {
    Log(kReader, "did not contain any tqvolume_A fName=", path);
    return false;
  }
  TqVolumeInfo volume;
  for (std::int32_t i = 0; i < snippets.Count(); ++i) {
    const std::string_view fault = ParseVolume(snippets.At(i), volume);
    if (!fault.empty()) {
      Log(kReader, "read tqdefcon.xml file, but problem parsing ", fault, " for i=", i);
      list.Clear();
      return false;
    }
    list.AppendCopy(volume);
  }
  return true;
}

bool ReadContents(const TqString& path, TqString& contents) {
  if (!TqFile::Exists(path)) {
    Log(kReader, "tqdefcon.xml file did not exist fName=", path);
    return false;
  }
  if (!Retry(20, 100, [&](int) { return TqFile::ReadFileIntoString(path, contents); })) {
    Log(kReader, "many tries could not read tqdefcon.xml file but it DOES exist fName=", path);
    return false;
  }
  if (contents.Length() > 19) return true;
  Log(kReader, "read tqdefcon.xml file but too short fName=", path);
  return false;
}

/// False (logged under `caller`) when an output is null.
bool HaveOutputs(std::string_view caller, const std::int32_t* mostCritical, const TqVolumeInfoList* list) {
  if (mostCritical == nullptr) Log("ERROR: ", caller, " - arg mostCritical NULL");
  if (list == nullptr) Log("ERROR: ", caller, " - arg vecOfVolInfosRet NULL");
  return mostCritical != nullptr && list != nullptr;
}

// --- The five-minute copy ---

struct DefconCache {
  bool loaded = false;
  std::int64_t loadedMillis = 0;
  std::int32_t summary = -1;
  TqVolumeInfoList volumes;
};

DefconCache& Cache() {
  static DefconCache cache;
  return cache;
}

bool RefreshCacheIfOld() {
  DefconCache& cache = Cache();
  const std::int64_t now = TqSystem::NowGmtMillis();
  const std::int64_t age = now > cache.loadedMillis ? now - cache.loadedMillis : cache.loadedMillis - now;
  if (cache.loaded && age <= kCacheMillis) return true;
  cache.summary = -1;
  if (!TqVolDefcon_HitDisk_ReadTqDefconXmlFile(&cache.summary, &cache.volumes)) return false;
  cache.loaded = true;
  cache.loadedMillis = now;
  return true;
}

void CopyRating(const TqVolumeInfo& from, TqVolumeInfo& to) {
  to.defconLevel = from.defconLevel;
  to.lastSeenInDays = from.lastSeenInDays;
  to.lastFileListedInDays = from.lastFileListedInDays;
  to.lastFilePushedInDays = from.lastFilePushedInDays;
}

/// Fills `volume` when the rated volume is attached at its mount point now.
bool QueryRatedVolume(const TqVolumeInfo& rated, TqVolumeInfo& volume) {
  TqString path = rated.mountPointPath;
  if (!TqFile::GetInfoAboutAttachedVolume(&path, &volume)) return false;
  if (!volume.volumeIsCurrentlyConnected || std::string_view(volume.vguid) != rated.vguid) return false;
  CopyRating(rated, volume);
  return true;
}

}  // namespace

TqString TqDefconXmlPath() {
  return Joined(TqInstall::ReportsFolder(), "tqdefcon.xml");
}

std::int32_t DefconLevelFor(std::int32_t seenDays, std::int32_t listedDays, std::int32_t pushedDays) {
  const std::int32_t days = std::max({seenDays, listedDays, pushedDays});
  if (days > 28) return 1;
  if (days > 21) return 2;
  if (days > 14) return 3;
  return days > 7 ? 4 : 5;
}

bool TqVolDefcon_UpdateTqVolumesDefconXmlFile() {
  TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile();
  TqVolumeInfoList volumes;
  if (!TqInfoManager::GetVolumesSelectedForBackup(volumes)) {
    Log("ERROR: ", kUpdater, "- no settings, so bailing out of defcon calculations");
    return false;
  }
  TqString shortId;
  TqVolumeInfoList registry;
  TqVolumesXml_ReadTqVolumesXmlFile(shortId, registry);
  const std::int64_t now = TqSystem::NowGmtMillis();
  std::int32_t summary = kNothingRated;
  for (TqVolumeInfo* volume : volumes) {
    RateSeen(registry, now, *volume);
    if (!RateListed(now, *volume) || !RatePushed(now, *volume)) return false;
    volume->defconLevel =
        DefconLevelFor(volume->lastSeenInDays, volume->lastFileListedInDays, volume->lastFilePushedInDays);
    summary = std::min(summary, volume->defconLevel);
  }
  return WriteDefconFile(summary, volumes);
}

bool TqVolDefcon_HitDisk_ReadTqDefconXmlFile(std::int32_t* mostCritical, TqVolumeInfoList* list) {
  if (!HaveOutputs("TqUiUtil::TqVolDefcon_HitDisk_ReadTqDefconXmlFile", mostCritical, list)) return false;
  list->Clear();
  const TqString path = TqDefconXmlPath();
  TqString contents;
  std::int32_t summary = -1;
  if (!ReadContents(path, contents) || !ReadSummary(contents, path, summary) || !ReadVolumes(contents, path, *list))
    return false;
  *mostCritical = summary;
  return true;
}

bool TqVolDefcon_CacheForFiveMinutes_ReadTqDefconXmlFile(std::int32_t* mostCritical, TqVolumeInfoList* list) {
  constexpr std::string_view kFunction = "TqUiUtil::TqVolDefcon_CacheForFiveMinutes_ReadTqDefconXmlFile";
  if (!HaveOutputs(kFunction, mostCritical, list)) return false;
  list->Clear();
  if (!RefreshCacheIfOld()) {
    Log("ERROR: ", kFunction, " - refresh of cache failed call");
    return false;
  }
  *mostCritical = Cache().summary;
  for (const TqVolumeInfo* volume : Cache().volumes) list->AppendCopy(*volume);
  return true;
}

bool TqVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached(TqVolumeInfo& volume) {
  volume.Reset();
  std::int32_t mostCritical = -1;
  TqVolumeInfoList rated;
  if (!TqVolDefcon_CacheForFiveMinutes_ReadTqDefconXmlFile(&mostCritical, &rated)) {
    Log("ERROR: TqUiUtil::TqVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached - called "
        "TqUiUtil::TqVolDefcon_CacheForFiveMinutes_ReadTqDefconXmlFile which failed");
    return false;
  }
  if (mostCritical > kHighestElevated) return false;
  std::int32_t best = kListIsOldDays;
  bool found = false;
  TqVolumeInfo candidate;
  for (const TqVolumeInfo* entry : rated) {  // of equally old lists the later entry wins
    if (entry->defconLevel > kHighestElevated || entry->lastFileListedInDays < best) continue;
    if (!QueryRatedVolume(*entry, candidate)) continue;
    candidate.CopyTo(volume);
    best = entry->lastFileListedInDays;
    found = true;
  }
  return found;
}

void ForgetDefconCache() {
  Cache().loaded = false;
}

}  // namespace TqUiUtil
