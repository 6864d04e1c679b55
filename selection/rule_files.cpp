#include "selection/rule_files.h"

#include <algorithm>
#include <vector>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/vector.h"
#include "base/xml_snippets.h"
#include "selection/rule_texts.h"
#include "selection/settings.h"

namespace TqInfoManager {
namespace {

constexpr std::string_view kRulesEnd = "</tqexclusions>";

// --- The two files ---

constexpr std::string_view kMakeSure = "MakeSureExcludeRulesFilesExistIn_tqdata_Folder - ";

/// `created` tells whether the file was missing and is there now. False: it is missing still.
bool MakeSureFileExists(const TqString& path, TqString (*text)(), bool& created) {
  created = false;
  if (TqFile::Exists(path)) {
    Log(kMakeSure, "fileName already exists=", path);
    return true;
  }
  created = TqFile::WriteFileAndSwapIn(path, text());
  if (created) {
    Log(kMakeSure, "successfully wrote out fileName=", path);
  } else {
    Log("ERROR - ", kMakeSure, "failed to write out fileName=", path);
  }
  return created;
}

void SetMergeLogAside() {
  Log(kMakeSure, "created editable rules so must reapply the entire list of merged editable rules.");
  const TqString path = MergeLogPath();
  if (!TqFile::Exists(path)) return;
  if (TqFile::AtomicMoveFile(path, Joined(path, ".aside"))) {
    Log(kMakeSure, "mergeLog_existed, successfully moved aside fName=", path);
  } else {
    Log("ERROR - ", kMakeSure, "mergeLog_existed, but failed to moving aside fName=", path);
  }
}

// --- Merging ---

constexpr std::string_view kMerge = "MakeSureAllEditableExcludeRuleBlocksAreMerged";

bool BailOut(std::string_view why, const TqString& path) {
  Log("ERROR ", kMerge, ", ", why, path, ", bailing out with false - nothing modified");
  return false;
}

bool ReadEditableFile(TqString& text) {
  const TqString path = EditableRulesPath();
  if (!TqFile::Exists(path)) return BailOut("file does not exist, editable rules fileName=", path);
  if (!TqFile::ReadFileIntoString(path, text) || text.IsEmpty()) {
    return BailOut("file exists, but could not read editable rules fileName=", path);
  }
  if (!text.Contains(kRulesEnd)) {
    return BailOut("file exists, some content exists, but no end tag </tqexclusions> inside editable rules fileName=",
                   path);
  }
  return true;
}

/// The numbers of the blocks merged so far. A log that cannot be read is no empty one: the user would get rules back
/// that were taken out.
bool ReadMergeLog(TqStringVector& blocks) {
  const TqString path = MergeLogPath();
  if (!TqFile::Exists(path)) {
    Log(kMerge, ", merge log logFileName=", path, " does not exist yet, which is fine.");
    return true;
  }
  TqString text;
  if (!TqFile::ReadFileIntoString(path, text)) {
    return BailOut("merge log exists, but could not read logFileName=", path);
  }
  TqStringVector lines;
  lines.Split(text, '\n', false);
  TqString block;
  for (const TqString* line : lines) {
    if (!TqFile::GetUniqueStrAttrFromXmlSnippet(*line, "tqmergeblock", block)) continue;
    Log(kMerge, " - found and parsed out tqmergeblock_str=", block);
    blocks.Add(block);
  }
  return true;
}

/// Whether the shipped rule `snippet` is to be merged; `block` gets its number.
bool IsToBeMerged(const TqString& snippet, std::int32_t index, const TqStringVector& mergedBefore, TqString& block) {
  TqString plat;
  if (!TqFile::GetUniqueStrAttrFromXmlSnippet(snippet, "tqmergeblock", block)) {
    Log("ERROR: TqInfoManager::", kMerge, " - impossible code path_B", snippet);
    return false;
  }
  if (mergedBefore.Find(block) >= 0) {
    Log(kMerge, ", skipping rule because tqmergeblock=", block,
        " was already merged at some point in the past, index=", index);
    return false;
  }
  if (!TqFile::GetUniqueStrAttrFromXmlSnippet(snippet, "plat", plat)) {
    Log("ERROR: TqInfoManager::", kMerge, " - very bad path_C", snippet);
    return false;
  }
  if (plat == "mac") return true;
  Log(kMerge, ", skipping over mergable rule because plat=", plat,
      " is not our platform=mac (this is fine and expected for some rules), skipping this mergableItem index=", index);
  return false;
}

/// Puts `line` on a line of its own in front of the last end tag.
void InsertRuleLine(TqString& text, const TqString& line) {
  const std::int32_t end = text.FindLast(kRulesEnd);
  const bool needsLineEnd = end > 0 && text.CharAt(end - 1) != '\n';
  text.Insert(end, Joined(needsLineEnd ? "\n" : "", line, '\n'));
}

TqStringVector MergeInto(TqString& editable, const TqStringVector& mergedBefore) {
  TqStringVector rules;
  TqStringVector merged;
  TqFile::GetAllXmlSnippetsWithTagNameInXml(MergeBlocksText(), "excludefname_rule", rules);
  for (std::int32_t i = 0; i < rules.Count(); ++i) {
    TqString block;
    if (!IsToBeMerged(rules.At(i), i, mergedBefore, block)) continue;
    InsertRuleLine(editable, rules.At(i));
    if (merged.Find(block) < 0) merged.Add(block);
  }
  return merged;
}

void AppendToMergeLog(const TqStringVector& blocks) {
  const TqString path = MergeLogPath();
  const TqString now = TqSystem::NowAsGmtText();
  for (const TqString* block : blocks) {
    if (TqFile::AppendStringToFile(path, Joined("merged_", now, " tqmergeblock=\"", *block, "\"\n"))) continue;
    Log("ERROR ", kMerge,
        ", VERY_BAD failed to append log line to merge_log which will result in duplicate editable rules merges, "
        "logFileName=",
        path);
  }
}

// --- Rules from the settings ---

constexpr std::string_view kMakeRules = "TqInfoManager::ParseTqInfo_MakeIntoExcludeFileNameRulesXml";
constexpr std::int32_t kMaxGeneratedRules = 9997;  // one more and the engine would refuse them all

bool ReadSettingsWithRetry(TqString& settings) {
  constexpr int kTries = 17;
  constexpr std::int64_t kPauseMicros = 500;
  const TqString path = TqInfoPath();
  if (!TqFile::Exists(path)) {
    Log("ERROR: ", kMakeRules, " no tqinfo.xml found at: ", path);
    return false;
  }
  for (int i = 0; i < kTries; ++i) {
    if (i > 0) TqSystem::SleepMicros(kPauseMicros);
    if (ReadSettingsFile(settings)) return true;
    Log("WARNING: ", kMakeRules, " could not read tqinfo.xml so pausing and trying again found at: ", path);
  }
  Log("ERROR: ", kMakeRules, " could not read tqinfo.xml after 17 tries, found at: ", path);
  return false;
}

/// The lines of the generated rules up to their limit.
class GeneratedRules {
 public:
  /// `rule` has single, lower-cased criteria.
  void Add(const TqBuiltInRule& rule) {
    if (count_ < kMaxGeneratedRules) AppendAll(lines_, RuleLine(rule, ""), '\n');
    if (count_ == kMaxGeneratedRules) Log("ERROR: ", kMakeRules, " more than 9997 rules, so ignoring the rest");
    ++count_;
  }
  const TqString& Lines() const { return lines_; }

 private:
  TqString lines_;
  std::int32_t count_ = 0;
};

void AddFileTypeRules(const TqString& settings, GeneratedRules& rules) {
  TqString types;
  TqStringVector extensions;
  TqFile::GetUniqueStrAttrFromXmlSnippet(settings, "excludefiletypes", types);
  if (types.IsEmpty()) Log("INTERESTING: ", kMakeRules, " no excludefiletypes in tqinfo file: ", TqInfoPath());
  types.LowerCase();
  extensions.Split(types, ',', true);
  for (const TqString* extension : extensions) {
    if (*extension == "*") {
      Log("ERROR: ", kMakeRules, " skipping excludefiletypes entry \"*\"");  // it would exclude every file
    } else {
      rules.Add({.prefix = "*", .extension = *extension, .optional = true});
    }
  }
}

bool FilterAttribute(const TqString& snippet, std::string_view name, TqString& value) {
  if (TqFile::GetUniqueStrAttrFromXmlSnippet(snippet, name, value)) return true;
  Log("ERROR: ", kMakeRules, " skipping exclusion because no \"", name,
      "\" attribute on \"tqdirfilter\" in tqinfo file: ", TqInfoPath());
  return false;
}

void AddDirFilterRule(const TqString& snippet, GeneratedRules& rules) {
  constexpr std::int32_t kShortestDir = 3;
  TqString dir;
  TqString whichFiles;
  if (!FilterAttribute(snippet, "dir", dir) || !FilterAttribute(snippet, "whichfiles", whichFiles)) return;
  if (!whichFiles.EqualsIgnoreCase("none")) return;
  if (!dir.IsEmpty() && !dir.EndsWith("/")) dir.AppendChar('/');
  if (dir == "/") return;
  if (dir.Length() < kShortestDir) {
    Log("ERROR: ", kMakeRules,
        " skipping exclusion \"dir\" attribute is TOO SHORT on \"tqdirfilter\" in tqinfo file: ", TqInfoPath());
    return;
  }
  dir.LowerCase();
  rules.Add({.prefix = dir.Slice(1), .optional = true});
}

void AddDirFilterRules(const TqString& settings, GeneratedRules& rules) {
  TqStringVector filters;
  if (!TqFile::GetAllXmlSnippetsWithTagNameInXml(settings, "tqdirfilter", filters)) {
    Log("INTERESTING: ", kMakeRules, " no tqdirfilter in tqinfo file: ", TqInfoPath());
  }
  for (const TqString* filter : filters) AddDirFilterRule(*filter, rules);
}

// --- Filters from one settings text into another ---

bool MergeFails(std::string_view why) {
  Log("ERROR: TqInfoManager::MergeTqInfoTqDirFilter - ", why);
  return false;
}

/// Whether `text` has a `do_backup` block that filters can be put into.
bool HasBackupBlock(const TqString& text) {
  const std::int32_t start = text.Find("<do_backup");
  if (start < 0) return MergeFails("cannot find <do_backup>");
  const std::int32_t tagEnd = text.FindChar('>', start);
  if (tagEnd < 0 || text.CharAt(tagEnd - 1) == '/') return MergeFails("malformed <do_backup> tag");
  return text.Find("</do_backup>", tagEnd) >= 0 || MergeFails("cannot find </do_backup> end tag");
}

/// Replaces the filter of the same directory, or adds it in front of the block's end. False, and nothing is added, when
/// there are as many as readers take.
bool MergeFilter(const TqDirFilter& filter, std::vector<TqDirFilter>& present, TqString& to) {
  const auto same =
      std::ranges::find_if(present, [&](const TqDirFilter& other) { return other.dir.EqualsIgnoreCase(filter.dir); });
  if (same != present.end()) {
    to.ReplaceAll(same->snippet, filter.snippet);
    *same = filter;
    return true;
  }
  if (present.size() >= TQ_INFO_MAX_NUM_DIR_FILTERS) return false;
  to.Insert(to.Find("</do_backup>", to.Find("<do_backup")), Joined("    ", filter.snippet, " \n"));
  present.push_back(filter);
  return true;
}

}  // namespace

TqString MandatoryRulesPath() {
  return Joined(TqInstall::DataFolder(), "tqexcluderules_mandatory.xml");
}

TqString EditableRulesPath() {
  return Joined(TqInstall::DataFolder(), "tqexcluderules_editable.xml");
}

TqString MergeLogPath() {
  return Joined(TqInstall::ReportsFolder(), "tqexcluderules_editable_mergelog.txt");
}

bool MakeSureExcludeRulesFilesExistIn_tqdata_Folder() {
  bool created = false;
  const bool mandatoryExists = MakeSureFileExists(MandatoryRulesPath(), MandatoryRulesText, created);
  const bool editableExists = MakeSureFileExists(EditableRulesPath(), EditableRulesText, created);
  if (created) {
    SetMergeLogAside();
    MakeSureAllEditableExcludeRuleBlocksAreMerged();
  }
  return mandatoryExists && editableExists;
}

bool MakeSureAllEditableExcludeRuleBlocksAreMerged() {
  Log("Entering ", kMerge);
  TqString editable;
  TqStringVector mergedBefore;
  if (!ReadEditableFile(editable) || !ReadMergeLog(mergedBefore)) return false;
  const TqStringVector merged = MergeInto(editable, mergedBefore);
  const TqString path = EditableRulesPath();
  if (merged.Count() == 0) {
    Log(kMerge, ", no rules were merged into RAM, so not writing file out to disk, fName=", path);
    return false;
  }
  TqInstall::CreateSubFolder(TqInstall::ReportsFolder());
  if (!TqFile::WriteFileAndSwapIn(path, editable)) return BailOut("could not write out editable rules fileName=", path);
  AppendToMergeLog(merged);
  return true;
}

bool ParseTqInfo_MakeIntoExcludeFileNameRulesXml(TqString& text) {
  TqString settings;
  GeneratedRules rules;
  const bool wereRead = ReadSettingsWithRetry(settings);
  if (wereRead) {
    AddFileTypeRules(settings, rules);
    AddDirFilterRules(settings, rules);
  }
  text = Joined("<?xml version=\"1.0\" encoding=\"UTF-8\" ?> \n\n<tqexclusions>\n", rules.Lines(), kRulesEnd, '\n');
  return wereRead;
}

bool MergeTqInfoTqDirFilter(std::string_view from, TqString& to) {
  std::vector<TqDirFilter> wanted;
  std::vector<TqDirFilter> present;
  if (!read_tqinfo_tqdirfilter(from, wanted)) return MergeFails("no tqdirfilter found (tqinfoFrom)");
  if (!read_tqinfo_tqdirfilter(to, present)) return MergeFails("no tqdirfilter found (tqinfoTo)");
  if (!HasBackupBlock(to)) return false;
  bool allMerged = true;
  for (const TqDirFilter& filter : wanted) allMerged = MergeFilter(filter, present, to) && allMerged;
  if (!allMerged) {
    Log("ERROR: TqInfoManager::MergeTqInfoTqDirFilter - adding more than TQ_INFO_MAX_NUM_DIR_FILTERS=",
        TQ_INFO_MAX_NUM_DIR_FILTERS, " tqdirfilters, so ignoring the rest");
  }
  return true;
}

}  // namespace TqInfoManager
