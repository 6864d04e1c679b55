#include "selection/rule_engine.h"

#include <cstddef>
#include <cstring>

#include "base/log.h"
#include "base/xml_snippets.h"

namespace TqInfoManager {
namespace {

constexpr std::int32_t kMaxPrefixCompared = 5000;
constexpr std::string_view kExternalVolumes = "/Volumes/";

// --- Deciding one file ---

/// What of a path is judged, and the two characters that sort out most groups before any text work.
struct JudgedPath {
  std::string_view path;
  char first = '\0';
  char second = '\0';
};

/// On an external volume the path is judged from the "/" behind the volume's name.
JudgedPath JudgedPathOf(const TqString& fullPath) {
  constexpr std::int32_t kVolumeNameEndsFrom = 9;
  JudgedPath judged{fullPath, LowerChar(fullPath.CharAt(1)), LowerChar(fullPath.CharAt(2))};
  if (judged.first != 'v' || judged.second != 'o' || !fullPath.StartsWithIgnoreCase(kExternalVolumes)) return judged;
  const std::int32_t nameEnd = fullPath.FindChar('/', kVolumeNameEndsFrom);
  if (nameEnd < 0) {
    Log("ERROR: TqInfoManager::UserWantsThisFileBackedUpEx - unknown external volume situation for fileName=",
        fullPath);
    return {fullPath};  // only the catch-all group can match
  }
  return {fullPath.Slice(nameEnd), LowerChar(fullPath.CharAt(nameEnd + 1)), LowerChar(fullPath.CharAt(nameEnd + 2))};
}

/// The lower-cased path in judgement and its extension; views of the scratch text.
struct WorkingPath {
  const char* text = nullptr;  ///< NUL-terminated; null until a group needs it
  std::string_view view;
  std::string_view extension;  ///< empty: none
};

TqString scratchPath;

std::string_view ExtensionOf(std::string_view path) {
  const std::size_t stop = path.find_last_of("./\\");
  return stop == std::string_view::npos || path[stop] != '.' ? std::string_view() : path.substr(stop + 1);
}

WorkingPath MakeWorkingPath(std::string_view path) {
  scratchPath.Assign(path);
  scratchPath.LowerCase();
  return {scratchPath.c_str(), scratchPath, ExtensionOf(scratchPath)};
}

bool MayMatch(const TqExcludeFilenameRule& group, const JudgedPath& judged) {
  const char* prefix = group.skipFirstCharThenStartsWith;
  return prefix == nullptr || (prefix[0] == judged.first && prefix[1] == judged.second);
}

/// A prefix of more than kMaxPrefixCompared characters never matches.
bool PrefixMatches(const TqExcludeFilenameRule& group, const WorkingPath& working) {
  const char* prefix = group.skipFirstCharThenStartsWith;
  if (prefix == nullptr) return true;
  if (working.view.empty()) return false;  // no memory for the copy
  const char* path = working.text + 1;
  for (std::int32_t i = 0; i < kMaxPrefixCompared; ++i) {
    if (prefix[i] == '\0') return true;
    if (path[i] != prefix[i]) return false;
  }
  return prefix[kMaxPrefixCompared] == '\0';
}

// strstr, because the library's is several times faster than std::string_view::find on paths, and this is most of the
// work.

bool Holds(const WorkingPath& working, const char* text) {
  return text == nullptr || std::strstr(working.text, text) != nullptr;
}

bool HoldsNone(const WorkingPath& working, const TqStringVector* texts) {
  if (texts == nullptr) return true;
  for (const TqString* text : *texts) {
    if (Holds(working, text->c_str())) return false;
  }
  return true;
}

bool RuleMatches(const TqExcludeFilenameRule& rule, const WorkingPath& working) {
  return (rule.endsWith == nullptr || working.view.ends_with(rule.endsWith)) && Holds(working, rule.contains_1) &&
         Holds(working, rule.contains_2) && HoldsNone(working, rule.doesNotContain);
}

/// The first rule of a group that excludes the path, or null.
TqExcludeFilenameRule* MatchingRule(TqExcludeFilenameRule& group, const WorkingPath& working) {
  for (auto* subGroup = &group; subGroup != nullptr; subGroup = subGroup->nextExtensionGroup) {
    if (subGroup->hasFileExtension != nullptr && working.extension != subGroup->hasFileExtension) continue;
    for (auto* rule = subGroup; rule != nullptr; rule = rule->nextSameExtension) {
      if (RuleMatches(*rule, working)) return rule;
    }
  }
  return nullptr;
}

// --- The hit-count dump ---

void AppendCriterion(TqString& line, std::string_view name, std::string_view value) {
  AppendAll(line, " ", name, "=\"", TqFile::XmlEscaped(value), "\"");
}

std::string_view OrStar(const char* criterion) {
  return criterion != nullptr ? criterion : "*";
}

TqString JoinedExclusions(const TqStringVector* texts) {
  if (texts == nullptr) return TqString("*");
  TqString joined;
  for (const TqString* text : *texts) AppendAll(joined, joined.IsEmpty() ? "" : "|", *text);
  return joined;
}

/// `contains_2` is told only beside a `contains_1`, and then an unused one shows as nothing: readers of the dump know
/// it so.
std::string_view ShownContains2(const TqExcludeFilenameRule& rule) {
  if (rule.contains_1 == nullptr) return "*";
  return rule.contains_2 != nullptr ? rule.contains_2 : "";
}

TqString HitCountLine(const TqExcludeFilenameRule& rule) {
  TqString line = Joined("<excludefname_rule plat=\"mac\" osVers=\"*\" ruleIsOptional=\"t\"");
  AppendCriterion(line, "skipFirstCharThenStartsWith", OrStar(rule.skipFirstCharThenStartsWith));
  AppendCriterion(line, "contains_1", OrStar(rule.contains_1));
  AppendCriterion(line, "contains_2", ShownContains2(rule));
  AppendCriterion(line, "doesNotContain", JoinedExclusions(rule.doesNotContain));
  AppendCriterion(line, "endsWith", OrStar(rule.endsWith));
  AppendCriterion(line, "hasFileExtension", OrStar(rule.hasFileExtension));
  AppendAll(line, " hitCount=\"", rule.hitCount, "\" />");
  return line;
}

std::int64_t HitCountOf(const TqString& line, std::string_view nameInLog) {
  TqString value;
  std::int64_t hitCount = 0;
  if (!TqFile::GetUniqueStrAttrFromXmlSnippet(line, "hitCount", value)) {
    Log("ERROR: sortByHitCountAttribute - no hitCount in ", nameInLog, "=", line);
  }
  ParseInt64(value, hitCount);
  return hitCount;
}

int SortByHitCountAttribute(const void* a, const void* b) {
  const TqString& lineA = **static_cast<TqString* const*>(a);
  const TqString& lineB = **static_cast<TqString* const*>(b);
  const std::int64_t hitsA = HitCountOf(lineA, "xmlStr1");
  const std::int64_t hitsB = HitCountOf(lineB, "xmlStr2");
  if (hitsA != hitsB) return hitsA < hitsB ? -1 : 1;
  return CompareBytes(lineA, lineB);
}

}  // namespace

bool UserWantsThisFileBackedUpEx(const TqString& fullPath, std::int64_t fileSize, std::int64_t sizeLimit,
                                 TqExcludeFilenameRule* rules, std::int32_t count) {
  if (fileSize > sizeLimit) return false;
  if (count < 1) return true;
  const JudgedPath judged = JudgedPathOf(fullPath);
  WorkingPath working;
  for (std::int32_t i = 0; i < count; ++i) {
    if (!MayMatch(rules[i], judged)) continue;
    if (working.text == nullptr) working = MakeWorkingPath(judged.path);
    if (!PrefixMatches(rules[i], working)) continue;
    if (TqExcludeFilenameRule* rule = MatchingRule(rules[i], working)) {
      ++rule->hitCount;
      return false;
    }
  }
  return true;
}

bool CollectStringArrayOfExcludeRulesWithHitCounts(const TqExcludeFilenameRule* rules, std::int32_t count,
                                                   TqStringVector* lines) {
  constexpr std::string_view kBadArgument = "ERROR: TqInfoManager::CollectStringArrayOfExcludeRulesWithHitCounts, ";
  if (lines == nullptr) {
    Log(kBadArgument, "NULL arg hitCountStrRet");
    return false;
  }
  lines->Clear();
  if (rules == nullptr) {
    Log(kBadArgument, "NULL arg tqExcludeFilenameRules");
    return false;
  }
  if (count < 1) {
    Log(kBadArgument, "BAD arg num_tqExcludeFilenameRules less than 1=", count);
    return false;
  }
  for (std::int32_t i = 0; i < count; ++i) {
    for (const auto* subGroup = &rules[i]; subGroup != nullptr; subGroup = subGroup->nextExtensionGroup) {
      for (const auto* rule = subGroup; rule != nullptr; rule = rule->nextSameExtension)
        lines->Add(HitCountLine(*rule));
    }
  }
  lines->Sort(SortByHitCountAttribute);
  return true;
}

}  // namespace TqInfoManager
