#include "selection/rule_engine.h"

#include <algorithm>
#include <cstddef>

#include "base/log.h"
#include "base/xml_snippets.h"
#include "selection/rule_matcher.h"

namespace TqInfoManager {
namespace {

constexpr std::string_view kExternalVolumes = "/volumes/";

// --- Deciding one file ---

/// The last path that was judged, and what is known of its directory: files come directory by directory.
struct LastJudged {
  TqRuleMatcher matcher;
  TqString directory;  ///< as given, with its "/"
  TqString text;       ///< the path in lower case
  std::size_t judgedFrom = 0;
  bool onlyCatchAll = false;
};

LastJudged last;

/// On an external volume a path is judged from the "/" behind the volume's name on.
void FindJudgedPart() {
  const std::string_view directory = last.text;
  last.judgedFrom = 0;
  last.onlyCatchAll = false;
  if (!directory.starts_with(kExternalVolumes)) return;
  const std::size_t nameEnd = directory.find('/', kExternalVolumes.size());
  last.onlyCatchAll = nameEnd == std::string_view::npos;
  if (!last.onlyCatchAll) last.judgedFrom = nameEnd;
}

/// The judged part of the scratch text.
TqJudgedPath JudgedText() {
  const std::string_view text = last.text;
  TqJudgedPath judged;
  judged.text = text.substr(std::min(last.judgedFrom, text.size()));
  judged.onlyCatchAll = last.onlyCatchAll;
  return judged;
}

void EnterDirectory(std::string_view directory) {
  last.directory = directory;
  last.text = directory;
  last.text.LowerCase();
  FindJudgedPart();
  last.matcher.EnterDirectory(JudgedText());
}

/// The views of the result hold until the next call.
TqJudgedPath Judged(std::string_view fullPath, std::size_t nameAt) {
  const std::string_view directory = fullPath.substr(0, nameAt);
  if (last.directory != directory) EnterDirectory(directory);
  const std::int32_t directoryLength = last.directory.Length();
  last.text.Truncate(directoryLength);
  last.text.Append(fullPath.substr(nameAt));
  last.text.LowerCase(directoryLength);
  return JudgedText();
}

void BuildMatcher(TqExcludeFilenameRule* rules, std::int32_t count) {
  constexpr std::int64_t kLongestPath = 4'096;  // of an ordinary file; a longer one makes the texts grow
  last.matcher.Build(rules, count);
  last.directory.Clear();
  last.directory.Reserve(kLongestPath);
  last.text.Clear();
  last.text.Reserve(kLongestPath);
  FindJudgedPart();
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
  return UserWantsThisFileBackedUpEx(fullPath, fullPath.View().rfind('/') + 1, fileSize, sizeLimit, rules, count);
}

bool UserWantsThisFileBackedUpEx(const TqString& fullPath, std::size_t nameAt, std::int64_t fileSize,
                                 std::int64_t sizeLimit, TqExcludeFilenameRule* rules, std::int32_t count) {
  if (fileSize > sizeLimit) return false;
  if (count < 1) return true;
  if (!last.matcher.IsBuiltFrom(rules, count)) BuildMatcher(rules, count);
  const TqJudgedPath judged = Judged(fullPath, nameAt);
  if (judged.onlyCatchAll) {
    Log("ERROR: TqInfoManager::UserWantsThisFileBackedUpEx - unknown external volume situation for fileName=",
        fullPath);
  }
  TqExcludeFilenameRule* rule = last.matcher.FirstMatch(judged);
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
