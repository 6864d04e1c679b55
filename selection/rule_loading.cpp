// What the engine reads out of the rule texts: the index, and the answer about a whole directory.

#include <cstdio>

#include "base/file_info.h"
#include "base/file_io.h"
#include "base/log.h"
#include "base/system_info.h"
#include "base/xml_snippets.h"
#include "selection/rule_engine.h"
#include "selection/rule_files.h"
#include "selection/rule_texts.h"
#include "selection/settings.h"

namespace TqInfoManager {
namespace {

constexpr std::string_view kRuleTag = "excludefname_rule";
constexpr std::int32_t kTooManyRules = 9998;
constexpr std::int32_t kShortestPrefix = 2;

TqString WithoutComments(std::string_view xml) {
  TqString text(xml);
  TqString rest;
  if (!TqFile::StripXmlComments(text, rest) && !rest.IsEmpty()) {
    Log("ERROR: TqInfoManager::ParseExcludeFileNameRules_AddToArray - could not find end of comment, where START of "
        "comment is: ",
        rest);
  }
  return text;
}

/// "10." and the second number of the system's version, also from version 11 on: kept on purpose. So an `osVers` of 11
/// never matches, and version 13.2 counts as 10.2. A number that cannot be read is -1.
TqString OsReference() {
  constexpr std::int32_t kVersionAt = 7;  // behind "MacOsX-"
  int major = -1;
  int minor = -1;
  const TqString version(TqSystem::OsDetailText().Slice(kVersionAt));
  std::sscanf(version.c_str(), "%d.%d", &major, &minor);
  return Joined("10.", minor);
}

/// A value to compare paths with. One that holds a NUL byte ends there as a C string: the rule would match more than it
/// says, so it counts as no value.
bool IsUsable(const TqString& value) {
  return !value.IsEmpty() && value.FindChar('\0') < 0;
}

/// One attribute, lower-cased. False (logged) when it is missing; from criterion C on also when it is not usable.
bool ReadCriterion(const TqParsedRule& rule, std::string_view attribute, char code, TqString& value) {
  const bool found = TqFile::GetUniqueStrAttrFromXmlSnippet(rule.snippet, attribute, value);
  value.LowerCase();
  if (found && (code < 'C' || IsUsable(value))) return true;
  const std::string_view introduction = code == 'A'   ? ", Here is xmlSnippet : "
                                        : code == 'E' ? ",   Here is xmlSnippet: "
                                                      : ", Here is xmlSnippet: ";
  Log("ERROR - TqInfoManager::ParseExcludeFileNameRules - BAD_EXCLUDEFNAME_RULE_", code,
      ".  XML rule num=", rule.number, " did not contain criteria \"", attribute,
      "\" so it will be skipped! From dataSet=", rule.dataSetName, introduction, rule.snippet);
  return false;
}

bool AppliesToThisSystem(const TqParsedRule& rule, const TqString& osReference) {
  TqString plat;
  TqString osVers;
  return ReadCriterion(rule, "plat", 'A', plat) && plat == "mac" && ReadCriterion(rule, "osVers", 'B', osVers) &&
         (osVers == osReference || osVers == "*");
}

/// A prefix on one external volume loses the volume's name: all rules apply to all volumes.
void CutVolumeName(TqString& prefix) {
  constexpr std::int32_t kNameEndsFrom = 9;
  if (!prefix.Contains("volumes/")) return;
  const std::int32_t nameEnd = prefix.FindChar('/', kNameEndsFrom);
  if (nameEnd >= 0) prefix.Erase(0, nameEnd + 1);
}

bool ReadPrefix(TqParsedRule& rule) {
  TqString& prefix = rule.skipFirstCharThenStartsWith;
  if (!ReadCriterion(rule, "skipFirstCharThenStartsWith", 'C', prefix)) return false;
  CutVolumeName(prefix);
  if (prefix.Length() >= kShortestPrefix || prefix == "*") return true;
  Log("ERROR - TqInfoManager::ParseExcludeFileNameRules - BAD_EXCLUDEFNAME_RULE_D.  XML rule num=", rule.number,
      " skipFirstCharThenStartsWith=\"", prefix,
      "\" is to short so this rule will be skipped! From dataSet=", rule.dataSetName,
      ", Here is xmlSnippet: ", rule.snippet);
  return false;
}

bool ReadCriteria(TqParsedRule& rule) {
  return ReadPrefix(rule) && ReadCriterion(rule, "contains_1", 'E', rule.contains_1) &&
         ReadCriterion(rule, "contains_2", 'F', rule.contains_2) &&
         ReadCriterion(rule, "doesNotContain", 'G', rule.doesNotContain) &&
         ReadCriterion(rule, "endsWith", 'H', rule.endsWith) &&
         ReadCriterion(rule, "hasFileExtension", 'I', rule.hasFileExtension);
}

/// Inserts the rules of one data set; the result is how many apply to this system (duplicates count).
std::int32_t InsertRules(const TqStringVector& snippets, std::string_view dataSetName, TqExcludeFilenameRule* rules,
                         std::int32_t& count) {
  const TqString osReference = OsReference();
  std::int32_t applied = 0;
  for (std::int32_t i = 0; i < snippets.Count(); ++i) {
    TqParsedRule rule;
    rule.number = i;
    rule.snippet = snippets.At(i);
    rule.dataSetName = dataSetName;
    if (!AppliesToThisSystem(rule, osReference) || !ReadCriteria(rule)) continue;
    InsertRuleWithSameSkipFirstCharThenStartsWith(rule, rules, count);
    ++applied;
  }
  return applied;
}

bool HasNullArgument(const void* xml, const void* rules, const void* count, std::string_view dataSetName) {
  const char* missing = xml == nullptr     ? "xmlContainingExcludeRules"
                        : rules == nullptr ? "tqExcludeFilenameRulesArrayInOut"
                        : count == nullptr ? "num_tqExcludeFilenameRulesArrayInOut"
                                           : nullptr;
  if (missing == nullptr) return false;
  Log("ERROR: TqInfoManager::ParseExcludeFileNameRules, ", missing, " bad NULL param for dataSet=", dataSetName);
  return true;
}

/// The user's rule file. False (logged): there is nothing to go on with.
bool ReadEditableRules(TqString& text) {
  const TqString path = EditableRulesPath();
  if (!TqFile::Exists(path)) {
    Log("ERROR: TqInfoManager::LoadAllExcludeFilenameRulesProperly - file does not exist, do not go forward: ", path);
    return false;
  }
  if (TqFile::ReadFileIntoString(path, text) && !text.IsEmpty()) return true;
  Log("ERROR: TqInfoManager::LoadAllExcludeFilenameRulesProperly - file exists, but could not read: ", path);
  return false;
}

// --- The whole-directory test ---

constexpr std::string_view kDirTest = "ERROR: TqInfoManager::DirIsExcludedFromBackupInTqInfo - ";

/// Looks for an element of `text` that excludes `directory` whole: attribute `name` equals it and the element's text
/// holds `mark`. False in `hasElements` (logged) when there is no such element at all.
bool SomeElementExcludes(std::string_view text, std::string_view tag, std::string_view name, std::string_view mark,
                         std::string_view directory, bool& hasElements, std::string_view complaint) {
  TqStringVector snippets;
  hasElements = TqFile::GetAllXmlSnippetsWithTagNameInXml(text, tag, snippets);
  if (!hasElements) Log(kDirTest, complaint);
  TqString value;
  for (const TqString* snippet : snippets) {
    if (snippet->Contains(mark) && TqFile::GetUniqueStrAttrFromXmlSnippet(*snippet, name, value) &&
        value.EqualsIgnoreCase(directory)) {
      return true;
    }
  }
  return false;
}

/// "*" never equals a directory's path, which ends in "/".
bool SomeRuleExcludes(std::string_view rules, std::string_view prefix, bool& hasElements, std::string_view complaint) {
  return SomeElementExcludes(WithoutComments(rules), kRuleTag, "skipFirstCharThenStartsWith", " plat=\"mac\"", prefix,
                             hasElements, complaint);
}

}  // namespace

bool ParseExcludeFileNameRules(const TqString* xml, TqExcludeFilenameRule* rules, std::int32_t* count,
                               std::string_view dataSetName, bool allowEmpty) {
  if (HasNullArgument(xml, rules, count, dataSetName)) return false;
  TqStringVector snippets;
  if (!TqFile::GetAllXmlSnippetsWithTagNameInXml(WithoutComments(*xml), kRuleTag, snippets)) {
    if (allowEmpty) {
      Log("INTERESTING: TqInfoManager::LoadAllExcludeFilenameRulesProperly - no excludefname_rule came out of ",
          dataSetName);
    } else {
      Log("ERROR: TqInfoManager::ParseExcludeFileNameRules, could not parse any excludefname_rule out of dataSet=",
          dataSetName);
    }
    return allowEmpty;
  }
  if (snippets.Count() >= kTooManyRules) {
    Log("ERROR - TqInfoManager::ParseExcludeFileNameRules - TOO_MANY_EXCLUEFNAME_RULE.  We found ", snippets.Count(),
        " excludefname_rule from dataSet=", dataSetName,
        ", which is too many for our static datastructures to handle so we are bailing out.");
    return false;
  }
  Log("TqInfoManager::ParseExcludeFileNameRules - found ", snippets.Count(),
      " excludefname_rule from dataSet=", dataSetName, ", now beginning to parse the rules");
  OpenCatchAllGroup(rules, *count);
  const std::int32_t applied = InsertRules(snippets, dataSetName, rules, *count);
  MoveCatchAllGroupToEnd(rules, *count);
  Log("TqInfoManager::ParseExcludeFileNameRules - SUCCESSFULLY PARSED ", snippets.Count(),
      " excludefname_rule from dataSet=", dataSetName, ", and found ", applied, " that applied to me, with ", *count,
      " unique skipFirstCharThenStartsWith now in the array, returning success.");
  return true;
}

bool LoadAllExcludeFilenameRulesProperly(TqExcludeFilenameRule* rules, std::int32_t* count) {
  if (count == nullptr) {
    Log("ERROR: TqInfoManager::LoadAllExcludeFilenameRulesProperly - called with bad NULL arg "
        "num_tqExcludeFilenameRulesRet");
    return false;
  }
  if (rules != nullptr) FreeRules(rules, count);
  *count = 0;
  MakeSureExcludeRulesFilesExistIn_tqdata_Folder();  // the reading below finds out what is missing
  // The mandatory rules are the built-in ones, whatever the file on disk says.
  TqString text = MandatoryRulesText();
  bool allLoaded = ParseExcludeFileNameRules(&text, rules, count, "mandatory_rules");
  if (!ReadEditableRules(text)) return false;
  allLoaded = ParseExcludeFileNameRules(&text, rules, count, "editable_rules") && allLoaded;
  // A user who clears all exclusions still gets lists; settings that cannot be read are a failure.
  const bool settingsRead = ParseTqInfo_MakeIntoExcludeFileNameRulesXml(text);
  return ParseExcludeFileNameRules(&text, rules, count, "tqinfo.xml", settingsRead) && allLoaded;
}

bool DirIsExcludedFromBackupInTqInfo(const TqString& directory) {
  TqString path = LowerCased(directory);
  if (!path.EndsWith("/")) path.AppendChar('/');
  const std::string_view prefix = path.Slice(1);
  bool hasElements = false;
  if (SomeElementExcludes(SettingsText(), "tqdirfilter", "dir", " whichfiles=\"none\"", path, hasElements,
                          "could not find any tqdirfilters in tqinfo.xml")) {
    return true;
  }
  if (!hasElements) return false;
  if (SomeRuleExcludes(MandatoryRulesText(), prefix, hasElements,
                       "could not find any excludefname_rule in tqexcluderules_mandatory.xml")) {
    return true;
  }
  if (!hasElements) return false;
  TqString editable;
  TqFile::ReadFileIntoString(EditableRulesPath(), editable);
  return SomeRuleExcludes(editable, prefix, hasElements,
                          "could not find any excludefname_rule in tqexcluderules_editable.xml");
}

}  // namespace TqInfoManager
