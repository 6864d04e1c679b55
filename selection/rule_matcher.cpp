#include "selection/rule_matcher.h"

#include <algorithm>
#include <cstring>
#include <tuple>

namespace TqInfoManager {
namespace {

constexpr std::size_t kLongestPrefix = 5000;  // a longer one never matches

// --- one rule, exactly ---

bool Holds(const TqJudgedPath& path, const char* text) {
  return text == nullptr || std::strstr(path.text.data(), text) != nullptr;
}

bool HoldsNone(const TqJudgedPath& path, const TqStringVector* texts) {
  if (texts == nullptr) return true;
  return std::none_of(texts->begin(), texts->end(), [&](const TqString* text) { return Holds(path, text->c_str()); });
}

/// All criteria but the prefix.
bool RuleMatches(const TqExcludeFilenameRule& rule, const TqJudgedPath& path) {
  return (rule.hasFileExtension == nullptr || path.extension == rule.hasFileExtension) &&
         (rule.endsWith == nullptr || path.text.ends_with(rule.endsWith)) && Holds(path, rule.contains_1) &&
         Holds(path, rule.contains_2) && HoldsNone(path, rule.doesNotContain);
}

// --- numbering ---

/// Gives texts numbers in the order in which they first come.
class Numbering {
 public:
  explicit Numbering(std::size_t most) : table_(static_cast<std::int32_t>(most) + 1) {}

  /// The text's number. It must outlive this object.
  std::uint32_t Add(const char* text) {
    std::uint64_t number = texts_.size();
    if (table_.Lookup(text, number)) return static_cast<std::uint32_t>(number);
    table_.InsertNoCopy(text, number);
    texts_.emplace_back(text);
    uses_.push_back(0);
    return static_cast<std::uint32_t>(number);
  }
  std::uint32_t& Uses(std::uint32_t number) { return uses_[number]; }
  const std::vector<std::string_view>& Texts() const { return texts_; }

 private:
  TqHashTable table_;
  std::vector<std::string_view> texts_;
  std::vector<std::uint32_t> uses_;
};

/// Calls `visit` with each text that a path must hold for the rule to match, of those long enough to be searched for.
template <typename Visit>
void ForEachNeededText(const TqExcludeFilenameRule& rule, Visit visit) {
  for (const char* text : {rule.contains_1, rule.contains_2, rule.endsWith}) {
    if (text != nullptr && std::strlen(text) >= TqTextFinder::kShortest) visit(text);
  }
}

}  // namespace

// --- building ---

void TqRuleMatcher::Build(TqExcludeFilenameRule* rules, std::int32_t count) {
  rules_ = rules;
  count_ = count;
  changes_ = RuleIndexChanges();
  CollectRules(rules, count);
  ChooseKeys();
  FileRules();
  CollectPrefixes();
  matched_.resize(catchAll_.size() + prefixes_.MostMatches());
}

void TqRuleMatcher::CollectRules(TqExcludeFilenameRule* rules, std::int32_t count) {
  filed_.clear();
  for (std::int32_t i = 0; i < count; ++i) {
    for (auto* subGroup = &rules[i]; subGroup != nullptr; subGroup = subGroup->nextExtensionGroup) {
      for (auto* rule = subGroup; rule != nullptr; rule = rule->nextSameExtension) {
        filed_.push_back({rule, static_cast<std::uint32_t>(filed_.size()), static_cast<std::uint32_t>(i)});
      }
    }
  }
}

/// Among the texts of a rule the one that fewest rules need, and of those the longest: it sorts out the most paths.
void TqRuleMatcher::ChooseKeys() {
  Numbering extensions(filed_.size());
  Numbering needed(3 * filed_.size());
  for (const FiledRule& filed : filed_) {
    if (filed.rule->hasFileExtension != nullptr) extensions.Add(filed.rule->hasFileExtension);
    ForEachNeededText(*filed.rule, [&](const char* text) { ++needed.Uses(needed.Add(text)); });
  }
  firstTextKey_ = kAlways + 1 + static_cast<std::uint32_t>(extensions.Texts().size());

  std::vector<std::string_view> searched;
  constexpr std::uint32_t kNoKeyYet = 0;
  std::vector<std::uint32_t> textKeys(needed.Texts().size(), kNoKeyYet);
  for (FiledRule& filed : filed_) {
    const char* best = nullptr;
    const auto rank = [&](const char* text) {
      return std::pair(needed.Uses(needed.Add(text)), -static_cast<std::int64_t>(std::strlen(text)));
    };
    ForEachNeededText(*filed.rule, [&](const char* text) {
      if (best == nullptr || rank(text) < rank(best)) best = text;
    });
    if (best == nullptr) {
      const char* extension = filed.rule->hasFileExtension;
      filed.key = extension != nullptr ? kAlways + 1 + extensions.Add(extension) : kAlways;
      continue;
    }
    std::uint32_t& key = textKeys[needed.Add(best)];
    if (key == kNoKeyYet) {
      key = firstTextKey_ + static_cast<std::uint32_t>(searched.size());
      searched.emplace_back(best);
    }
    filed.key = key;
  }
  texts_.Build(std::move(searched));

  extensions_ = std::make_unique<TqHashTable>(static_cast<std::int32_t>(2 * extensions.Texts().size()) + 1);
  for (const std::string_view extension : extensions.Texts()) {
    extensions_->InsertNoCopy(extension.data(), kAlways + 1 + extensions.Add(extension.data()));
  }
}

void TqRuleMatcher::FileRules() {
  std::ranges::sort(filed_, {}, [](const FiledRule& rule) { return std::tuple(rule.group, rule.key, rule.place); });
  drawers_.clear();
  groups_.assign(static_cast<std::size_t>(count_), {});
  for (std::uint32_t i = 0; i < filed_.size(); ++i) {
    const FiledRule& filed = filed_[i];
    Group& group = groups_[filed.group];
    const auto drawerCount = static_cast<std::uint32_t>(drawers_.size());
    if (group.endDrawer == 0) group.firstDrawer = group.endDrawer = drawerCount;
    if (group.firstDrawer == drawerCount || drawers_.back().key != filed.key) drawers_.push_back({filed.key, i, i});
    group.endDrawer = static_cast<std::uint32_t>(drawers_.size());
    drawers_.back().endRule = i + 1;
    if (filed.key >= firstTextKey_) group.firstTextPlace = std::min(group.firstTextPlace, filed.place);
  }
}

void TqRuleMatcher::CollectPrefixes() {
  std::vector<TqPrefixTree::Prefix> prefixes;
  catchAll_.clear();
  for (std::uint32_t i = 0; i < groups_.size(); ++i) {
    const char* prefix = rules_[i].skipFirstCharThenStartsWith;
    if (prefix == nullptr) {
      catchAll_.push_back(i);
    } else if (const std::string_view text(prefix); text.size() <= kLongestPrefix) {
      prefixes.push_back({text, i});
    }
  }
  prefixes_.Build(std::move(prefixes));
}

// --- deciding ---

/// Looks through one drawer for a rule that matches and stands before `best`.
void TqRuleMatcher::Try(std::uint32_t group, std::uint32_t key, const TqJudgedPath& path,
                        const FiledRule*& best) const {
  const Drawer* const end = drawers_.data() + groups_[group].endDrawer;
  const Drawer* drawer =
      std::ranges::lower_bound(drawers_.data() + groups_[group].firstDrawer, end, key, {}, &Drawer::key);
  if (drawer == end || drawer->key != key) return;
  for (std::uint32_t i = drawer->firstRule; i < drawer->endRule; ++i) {
    const FiledRule& filed = filed_[i];
    if (best != nullptr && filed.place > best->place) return;
    if (RuleMatches(*filed.rule, path)) best = &filed;
  }
}

TqExcludeFilenameRule* TqRuleMatcher::FirstMatch(const TqJudgedPath& path) {
  std::uint32_t* end = matched_.data();
  if (!path.onlyCatchAll && !path.text.empty()) end += prefixes_.Collect(path.text.substr(1), end);
  end = std::copy(catchAll_.begin(), catchAll_.end(), end);

  std::uint64_t extensionKey = kAlways;
  if (!path.extension.empty()) extensions_->Lookup(path.extension.data(), extensionKey);
  const FiledRule* best = nullptr;
  std::uint32_t firstTextPlace = kNowhere;
  for (const std::uint32_t* group = matched_.data(); group != end; ++group) {
    Try(*group, kAlways, path, best);
    if (extensionKey != kAlways) Try(*group, static_cast<std::uint32_t>(extensionKey), path, best);
    firstTextPlace = std::min(firstTextPlace, groups_[*group].firstTextPlace);
  }
  if (firstTextPlace < (best != nullptr ? best->place : kNowhere)) {
    texts_.ForEachIn(path.text, [&](std::uint32_t number) {
      for (const std::uint32_t* group = matched_.data(); group != end; ++group) {
        Try(*group, firstTextKey_ + number, path, best);
      }
    });
  }
  return best != nullptr ? best->rule : nullptr;
}

}  // namespace TqInfoManager
