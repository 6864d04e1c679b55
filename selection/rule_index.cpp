#include "selection/rule_index.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "base/log.h"

namespace TqInfoManager {

TqExcludeFilenameRule tqExcludeFilenameRules[kMaxRuleGroups];
std::int32_t num_tqExcludeFilenameRules = 0;

namespace {

std::uint64_t changes = 0;

bool IsUnused(const TqString& criterion) {
  return criterion == "*";
}

bool SameText(const char* a, const char* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return std::strcmp(a, b) == 0;
}

std::string_view Shown(const char* criterion) {
  return criterion != nullptr ? criterion : "*";
}

void FreeRule(TqExcludeFilenameRule* rule) {
  for (char* text : {rule->skipFirstCharThenStartsWith, rule->contains_1, rule->contains_2, rule->endsWith,
                     rule->hasFileExtension}) {
    std::free(text);
  }
  delete rule->doesNotContain;
  delete rule;
}

/// Copies a criterion; "*" becomes null. False without memory: a lost criterion would widen the rule.
bool CopyCriterion(const TqString& criterion, char*& copy) {
  if (IsUnused(criterion)) return true;
  copy = ::strdup(criterion.c_str());
  return copy != nullptr;
}

bool CopyExclusions(const TqString& criterion, TqStringVector*& copy) {
  if (IsUnused(criterion)) return true;
  copy = new (std::nothrow) TqStringVector;
  return copy != nullptr && copy->Split(criterion, '|', false);
}

bool FillRule(const TqParsedRule& parsed, TqExcludeFilenameRule& rule) {
  rule.skipFirstCharThenStartsWith = ::strdup(parsed.skipFirstCharThenStartsWith.c_str());
  return rule.skipFirstCharThenStartsWith != nullptr && CopyCriterion(parsed.contains_1, rule.contains_1) &&
         CopyCriterion(parsed.contains_2, rule.contains_2) &&
         CopyExclusions(parsed.doesNotContain, rule.doesNotContain) && CopyCriterion(parsed.endsWith, rule.endsWith) &&
         CopyCriterion(parsed.hasFileExtension, rule.hasFileExtension);
}

/// Null (logged) without memory; `place` tells support where.
TqExcludeFilenameRule* NewRule(const TqParsedRule& parsed, std::string_view place) {
  auto* rule = new (std::nothrow) TqExcludeFilenameRule;
  if (rule != nullptr && FillRule(parsed, *rule)) return rule;
  if (rule != nullptr) FreeRule(rule);
  Log("ERROR - TqInfoManager::InsertRuleWithSameSkipFirstCharThenStartsWith - malloc of tiny amount of memory_", place,
      " failed. skipFirstCharPat=", parsed.skipFirstCharThenStartsWith, ", fileExt=", parsed.hasFileExtension);
  return nullptr;
}

TqExcludeFilenameRule* FindGroup(const TqParsedRule& parsed, TqExcludeFilenameRule* rules, std::int32_t count) {
  for (std::int32_t j = 0; j < count; ++j) {
    const char* prefix = rules[j].skipFirstCharThenStartsWith;
    if (prefix == nullptr) {
      Log("ERROR - TqInfoManager::ParseExcludeFileNameRules - BAD_CODE_BUG.  XML rule num=", parsed.number,
          " unknown_state_KK of parser NULL skipThenStartsWithStrPtr. j=", j,
          ",  Here is xmlSnippet : ", parsed.snippet);
    } else if (std::strcmp(parsed.skipFirstCharThenStartsWith.c_str(), prefix) == 0) {
      return &rules[j];
    }
  }
  return nullptr;
}

void AddGroup(const TqParsedRule& parsed, TqExcludeFilenameRule* rules, std::int32_t& count) {
  if (count >= kMaxRuleGroups) {
    Log("ERROR - TqInfoManager::ParseExcludeFileNameRules - too many unique skipFirstCharThenStartsWith, 10000 is the "
        "max, skipping rule from dataSet=",
        parsed.dataSetName, ", Here is xmlSnippet: ", parsed.snippet);
    return;
  }
  TqExcludeFilenameRule* rule = NewRule(parsed, "Z_11");
  if (rule == nullptr) return;
  rules[count] = *rule;  // the entry takes over the texts
  ++count;
  delete rule;
}

/// Looser than equality on purpose: the texts of `doesNotContain` are not compared.
bool IsDuplicate(const TqExcludeFilenameRule& a, const TqExcludeFilenameRule& b) {
  return SameText(a.skipFirstCharThenStartsWith, b.skipFirstCharThenStartsWith) &&
         SameText(a.contains_1, b.contains_1) && SameText(a.contains_2, b.contains_2) &&
         SameText(a.endsWith, b.endsWith) && SameText(a.hasFileExtension, b.hasFileExtension) &&
         (a.doesNotContain == nullptr) == (b.doesNotContain == nullptr);
}

/// `first` is the head of the extension's chain.
void AddToExtension(const TqParsedRule& parsed, TqExcludeFilenameRule* first) {
  TqExcludeFilenameRule* rule = NewRule(parsed, "Z_22");
  if (rule == nullptr) return;
  for (const TqExcludeFilenameRule* other = first; other != nullptr; other = other->nextSameExtension) {
    if (!IsDuplicate(*other, *rule)) continue;
    Log("INTERESTING (sometimes happens) - TqInfoManager::ParseExcludeFileNameRules -duplicate XML rule_1 "
        "skipFirstChar=",
        parsed.skipFirstCharThenStartsWith, ", hasFileExtension=", Shown(rule->hasFileExtension),
        ", contains_1=", Shown(rule->contains_1), ", contains_2=", Shown(rule->contains_2),
        ", endsWith=", Shown(rule->endsWith));
    FreeRule(rule);
    return;
  }
  // Second place, so later rules stand in reverse order behind the first.
  rule->nextSameExtension = first->nextSameExtension;
  first->nextSameExtension = rule;
}

/// Swaps everything but the place in the chain of extensions.
void ExchangeContents(TqExcludeFilenameRule& a, TqExcludeFilenameRule& b) {
  std::swap(a, b);
  std::swap(a.nextExtensionGroup, b.nextExtensionGroup);
}

void AddExtension(const TqParsedRule& parsed, TqExcludeFilenameRule* head) {
  TqExcludeFilenameRule* rule = NewRule(parsed, "Z_11");
  if (rule == nullptr) return;
  if (rule->hasFileExtension == nullptr) {
    TqExcludeFilenameRule* last = head;
    while (last->nextExtensionGroup != nullptr) last = last->nextExtensionGroup;
    last->nextExtensionGroup = rule;
    return;
  }
  const bool headIsAloneWithoutExtension = head->nextExtensionGroup == nullptr && head->hasFileExtension == nullptr;
  rule->nextExtensionGroup = head->nextExtensionGroup;
  head->nextExtensionGroup = rule;
  // Rules without an extension apply to every file, so they come last.
  if (headIsAloneWithoutExtension) ExchangeContents(*head, *rule);
}

}  // namespace

void InsertRuleWithSameSkipFirstCharThenStartsWith(const TqParsedRule& parsed, TqExcludeFilenameRule* rules,
                                                   std::int32_t& count) {
  ++changes;
  TqExcludeFilenameRule* head = FindGroup(parsed, rules, count);
  if (head == nullptr) {
    AddGroup(parsed, rules, count);
    return;
  }
  const char* extension = IsUnused(parsed.hasFileExtension) ? nullptr : parsed.hasFileExtension.c_str();
  TqExcludeFilenameRule* same = head;
  while (same != nullptr && !SameText(same->hasFileExtension, extension)) same = same->nextExtensionGroup;
  if (same != nullptr) {
    AddToExtension(parsed, same);
  } else {
    AddExtension(parsed, head);
  }
}

void OpenCatchAllGroup(TqExcludeFilenameRule* rules, std::int32_t count) {
  ++changes;
  for (std::int32_t i = 0; i < count; ++i) {
    char*& prefix = rules[i].skipFirstCharThenStartsWith;
    if (prefix == nullptr) prefix = ::strdup("*");
  }
}

void MoveCatchAllGroupToEnd(TqExcludeFilenameRule* rules, std::int32_t count) {
  ++changes;
  for (std::int32_t i = 0; i < count; ++i) {
    char*& prefix = rules[i].skipFirstCharThenStartsWith;
    if (!SameText(prefix, "*")) continue;
    std::free(prefix);
    prefix = nullptr;
    if (i != count - 1) std::swap(rules[i], rules[count - 1]);
  }
}

std::uint64_t RuleIndexChanges() {
  return changes;
}

void FreeRules(TqExcludeFilenameRule* rules, std::int32_t* count) {
  ++changes;
  for (std::int32_t i = 0; i < *count; ++i) {
    TqExcludeFilenameRule* group = new TqExcludeFilenameRule(std::exchange(rules[i], {}));
    while (group != nullptr) {
      TqExcludeFilenameRule* nextGroup = group->nextExtensionGroup;
      while (group != nullptr) {
        TqExcludeFilenameRule* next = group->nextSameExtension;
        FreeRule(group);
        group = next;
      }
      group = nextGroup;
    }
  }
  *count = 0;
}

}  // namespace TqInfoManager
