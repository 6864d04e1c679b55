// The directory filters and file sets of the settings file.

#include <algorithm>
#include <utility>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/log.h"
#include "base/system_info.h"
#include "base/xml_snippets.h"
#include "selection/settings.h"

namespace TqInfoManager {
namespace {

constexpr std::string_view kWatchReader = "TqInfoManager::ParseTqInfoForFilesToWatch";
constexpr std::string_view kAllFileSets =
    "docs,spreadsheets,presentations,financial,pictures,music,video,email,browserfavorites,zips,usercustom01";

/// At most twenty warnings in a row, then silence for ten minutes: the service asks every few seconds.
class WarningThrottle {
 public:
  /// Whether the warning with this number may be logged now; logs the changes of its own rate.
  bool Allows(std::int32_t& warningNumber) {
    const std::int64_t now = TqSystem::NowGmtMillis();
    if (silent_ && now - silentSince_ < kSilenceMillis) return false;
    if (silent_) {
      Log("INFO: ", kWatchReader, " logging resuming normal rate.");
      *this = WarningThrottle();
    } else if (count_ == kMaxWarnings) {
      Log("INFO: ", kWatchReader, " logging rate is forced low to prevent log clutter.");
      silent_ = true;
      silentSince_ = now;
      return false;
    }
    warningNumber = ++count_;
    return true;
  }

 private:
  static constexpr std::int32_t kMaxWarnings = 20;
  static constexpr std::int64_t kSilenceMillis = 600'000;
  std::int32_t count_ = 0;
  bool silent_ = false;
  std::int64_t silentSince_ = 0;
};

WarningThrottle emptyTypesThrottle;

void ReadExcludedFileTypes(const TqString& text, const TqString& path) {
  TqString types;
  std::int32_t warningNumber = 0;
  if (!TqFile::GetUniqueStrAttrFromXmlSnippet(text, "excludefiletypes", types)) {
    Log("ERROR: no excludefiletypes tag in tqinfo file: ", path);
    return;
  }
  if (types.IsEmpty() && emptyTypesThrottle.Allows(warningNumber)) {
    Log("WARNING: ", kWatchReader, " processId=", TqSystem::ProcessId(),
        ")  excludefiletypes val zero len (hitWarningCount=", warningNumber, ") in tqinfo file : ", path);
  }
}

TqString SmartWatchSets(const TqString& text, const TqString& path) {
  TqString sets;
  if (TqFile::GetUniqueStrAttrFromXmlSnippet(text, "smartwatchfilesets", sets)) return sets;
  Log("ERROR: ", kWatchReader, " - no smartwatchfilesets in tqinfo.xml file: ", path);
  return TqString(kAllFileSets);
}

bool FilterAttribute(const TqString& snippet, std::string_view name, std::string_view reader, TqString& value) {
  if (TqFile::GetUniqueStrAttrFromXmlSnippet(snippet, name, value)) return true;
  Log("ERROR: ", reader, " - TqFile::GetUniqueStrAttrFromXmlSnippet NO ", name,
      " in this tqdirfilter snippet: ", snippet);
  return false;
}

/// The filters that `elements` describe, until `filters` is full.
void ReadDirFilters(const TqStringVector& elements, std::string_view reader, char location,
                    std::vector<TqDirFilter>& filters) {
  for (const TqString* snippet : elements) {
    TqDirFilter filter;
    if (!FilterAttribute(*snippet, "dir", reader, filter.dir) ||
        !FilterAttribute(*snippet, "whichfiles", reader, filter.whichFiles)) {
      continue;
    }
    if (filters.size() == TQ_INFO_MAX_NUM_DIR_FILTERS) {
      Log("ERROR: parsing tqinfo.xml, found more than TQ_INFO_MAX_NUM_DIR_FILTERS=", TQ_INFO_MAX_NUM_DIR_FILTERS,
          " tqdirfilters, so ignoring the rest - location ", location);
      return;
    }
    filter.snippet = *snippet;
    filters.push_back(std::move(filter));
  }
}

/// The filter elements of all `do_backup` blocks.
TqStringVector FilterElementsOfBlocks(const TqString& text) {
  TqStringVector blocks;
  TqStringVector elements;
  TqFile::GetAllXmlSnippetsWithTagNameInXml(text, "do_backup", blocks);
  for (const TqString* block : blocks) {
    TqStringVector ofBlock;
    TqFile::GetAllXmlSnippetsWithTagNameInXml(*block, "tqdirfilter", ofBlock);
    for (const TqString* element : ofBlock) elements.Add(*element);
  }
  return elements;
}

TqStringVector ExtensionsOf(TqString extensions) {
  extensions.LowerCase();
  TqStringVector result;
  if (extensions.FindChar(',') >= 0) {
    result.Split(extensions, ',', true);
  } else if (!extensions.IsEmpty()) {
    result.Add(extensions);
  }
  return result;
}

bool FileSetDefsIn(const TqString& text, std::string_view caller, std::vector<FileSetDef>& sets) {
  TqStringVector snippets;
  if (!TqFile::GetAllXmlSnippetsWithTagNameInXml(text, "filesetdef", snippets)) {
    Log("ERROR: ", caller,
        ", TqFile::GetAllXmlSnippetsWithTagNameInXmlFile NO filesetdefs in tqinfoFile: ", TqInfoPath());
    return false;
  }
  if (snippets.Count() > kMaxFileSetDefs) {
    Log("ERROR: ", caller, ", too many filesetdef definitions, 150 is the max, clipping to 150!");
    // 149 remain, not 150: kept on purpose.
    snippets.Remove(kMaxFileSetDefs - 1, snippets.Count());
  }
  for (const TqString* snippet : snippets) {
    FileSetDef set;
    TqString extensions;
    if (!TqFile::GetUniqueStrAttrFromXmlSnippet(*snippet, "filesetname", set.name)) {
      Log("ERROR: ", caller,
          ", TqFile::GetUniqueStrAttrFromXmlSnippet NO filesetdefs name in this filesetdef snippet: ", *snippet);
      continue;
    }
    TqFile::GetUniqueStrAttrFromXmlSnippet(*snippet, "extensions", extensions);
    set.extensions = ExtensionsOf(std::move(extensions));
    sets.push_back(std::move(set));
  }
  return true;
}

/// Adds what one name of `whichfiles` stands for.
void AddWatchedSet(const TqString& name, const TqDirFilter& filter, const std::vector<FileSetDef>& sets,
                   TqWatchedDir& watched) {
  if (name == "*" || name.EqualsIgnoreCase("all")) {
    watched.all = true;
    return;
  }
  if (name.EqualsIgnoreCase("none")) {
    watched.none = true;
    return;
  }
  const auto set = std::ranges::find_if(sets, [&](const FileSetDef& def) { return def.name.EqualsIgnoreCase(name); });
  if (set == sets.end()) {
    Log("ERROR: parsing tqinfo.xml, a tqdirfilter contains a fileset that does not make sense: ", name,
        ", tqdirfilter=", filter.snippet);
    return;
  }
  for (const TqString* extension : set->extensions) watched.extensions.Add(*extension);
}

TqWatchedDir WatchedDirOf(const TqDirFilter& filter, const TqString& smartWatchSets,
                          const std::vector<FileSetDef>& sets) {
  TqWatchedDir watched;
  watched.dir = LowerCased(filter.dir);
  TqString which = filter.whichFiles;
  which.ReplaceAll("smartwatchfilesets", smartWatchSets);
  TqStringVector names;
  names.Split(which, ',', true);
  for (const TqString* name : names) AddWatchedSet(*name, filter, sets, watched);
  return watched;
}

}  // namespace

bool ParseTqInfoForFilesToWatch(std::vector<TqWatchedDir>& watchedDirs) {
  watchedDirs.clear();
  const TqString path = TqInfoPath();
  TqString text;
  if (!TqFile::Exists(path) || !ReadSettingsFile(text)) {
    Log("ERROR: ", kWatchReader, " - could not read tqinfo.xml file: ", path);
    return false;
  }
  ReadExcludedFileTypes(text, path);
  const TqString smartWatchSets = SmartWatchSets(text, path);
  std::vector<FileSetDef> sets;
  FileSetDefsIn(text, kWatchReader, sets);
  std::vector<TqDirFilter> filters;
  ReadDirFilters(FilterElementsOfBlocks(text), kWatchReader, 'B', filters);
  for (const TqDirFilter& filter : filters) watchedDirs.push_back(WatchedDirOf(filter, smartWatchSets, sets));
  return true;
}

bool read_tqinfo_tqdirfilter(std::string_view tqInfoText, std::vector<TqDirFilter>& filters) {
  filters.clear();
  TqStringVector elements;
  if (!TqFile::GetAllXmlSnippetsWithTagNameInXml(tqInfoText, "tqdirfilter", elements)) return false;
  ReadDirFilters(elements, "TqInfoManager::read_tqinfo_tqdirfilter", 'A', filters);
  return true;
}

bool ReadFileSetDefs(std::vector<FileSetDef>& sets, std::string_view caller) {
  sets.clear();
  TqString text;
  ReadSettingsFile(text);
  return FileSetDefsIn(text, caller, sets);
}

void ForgetFilesToWatch() {
  emptyTypesThrottle = WarningThrottle();
}

}  // namespace TqInfoManager
