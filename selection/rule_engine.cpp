#include "selection/rule_engine.h"

#include <cstddef>

#include "base/log.h"
#include "base/xml_snippets.h"
#include "selection/rule_matcher.h"

namespace TqInfoManager {
namespace {

constexpr std::string_view kExternalVolumes = "/Volumes/";

// --- Deciding one file ---

TqRuleMatcher matcher;
TqString scratchPath;

std::string_view ExtensionOf(std::string_view path) {
  const std::size_t stop = path.find_last_of("./\\");
  return stop == std::string_view::npos || path[stop] != '.' ? std::string_view() : path.substr(stop + 1);
}

/// What of a path is judged: on an external volume it begins with the "/" behind the volume's name. `onlyCatchAll`:
/// there is none (logged).
std::string_view JudgedPart(const TqString& fullPath, bool& onlyCatchAll) {
  constexpr std::int32_t kVolumeNameEndsFrom = 9;
  onlyCatchAll = false;
  if (!fullPath.StartsWithIgnoreCase(kExternalVolumes)) return fullPath;
  const std::int32_t nameEnd = fullPath.FindChar('/', kVolumeNameEndsFrom);
  if (nameEnd >= 0) return fullPath.Slice(nameEnd);
  Log("ERROR: TqInfoManager::UserWantsThisFileBackedUpEx - unknown external volume situation for fileName=", fullPath);
  onlyCatchAll = true;
  return fullPath;
}

/// The result's views are of the scratch text.
TqJudgedPath Judged(const TqString& fullPath) {
  TqJudgedPath judged;
  scratchPath.Assign(JudgedPart(fullPath, judged.onlyCatchAll));
  scratchPath.LowerCase();
  judged.text = scratchPath;
  judged.extension = ExtensionOf(judged.text);
  return judged;
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
  if (!matcher.IsBuiltFrom(rules, count)) matcher.Build(rules, count);
  TqExcludeFilenameRule* rule = matcher.FirstMatch(Judged(fullPath));
  if (rule == nullptr) return true;
  ++rule->hitCount;
  return false;
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
