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
  return (rule.hasFileExtension == nullptr || ExtensionOf(path.text) == rule.hasFileExtension) &&
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
  lastExtensionKey_.Forget();
  EnterDirectory({});
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
  std::uint32_t i = 0;
  for (std::uint32_t number = 0; number < groups_.size(); ++number) {
    Group& group = groups_[number];
    group.firstDrawer = group.firstExtensionDrawer = group.firstTextDrawer =
        static_cast<std::uint32_t>(drawers_.size());
    for (; i < filed_.size() && filed_[i].group == number; ++i) {
      const FiledRule& filed = filed_[i];
      if (drawers_.size() == group.firstDrawer || drawers_.back().key != filed.key)
        drawers_.push_back({filed.key, i, i});
      drawers_.back().endRule = i + 1;
      const auto behind = static_cast<std::uint32_t>(drawers_.size());
      if (filed.key == kAlways) group.firstExtensionDrawer = behind;
      if (filed.key < firstTextKey_) group.firstTextDrawer = behind;
      if (filed.key >= firstTextKey_) group.firstTextPlace = std::min(group.firstTextPlace, filed.place);
    }
    group.endDrawer = static_cast<std::uint32_t>(drawers_.size());
  }
}

void TqRuleMatcher::CollectPrefixes() {
  std::vector<TqPrefixTree::Prefix> prefixes;
  matched_.clear();
  for (std::uint32_t i = 0; i < groups_.size(); ++i) {
    const char* prefix = rules_[i].skipFirstCharThenStartsWith;
    if (prefix == nullptr) {
      matched_.push_back(i);
    } else if (const std::string_view text(prefix); text.size() <= kLongestPrefix) {
      prefixes.push_back({text, i});
    }
  }
  prefixes_.Build(std::move(prefixes));
  catchAllCount_ = matched_.size();
  matched_.resize(catchAllCount_ + prefixes_.MostMatches());
}

// --- deciding ---

void TqRuleMatcher::EnterDirectory(const TqJudgedPath& directory) {
  directory_.length = directory.text.size();
  directory_.endMatched = matched_.data() + catchAllCount_;
  directory_.place = {.node = 0, .at = 1};  // a path's first character does not count
  if (!directory.onlyCatchAll) {
    directory_.endMatched += prefixes_.Collect(directory.text, directory_.place, directory_.endMatched);
  }
  directory_.sightingCount = 0;
  texts_.ForEachIn(directory.text, 0, [this](const TqTextFinder::Sighting& sighting) {
    const std::size_t number = directory_.sightingCount++;
    if (number < Directory::kMostSightings) directory_.sightings[number] = sighting;
  });
}

std::uint32_t TqRuleMatcher::ExtensionKey(std::string_view path) {
  return lastExtensionKey_.Of(path, [this](std::string_view extension) {
    std::uint64_t key = kAlways;
    extensions_->Lookup(extension.data(), key);
    return static_cast<std::uint32_t>(key);
  });
}

/// Looks through one drawer for a rule that matches and stands before `best`.
void TqRuleMatcher::TryDrawer(const Drawer& drawer, const TqJudgedPath& path, const FiledRule*& best) const {
  for (std::uint32_t i = drawer.firstRule; i < drawer.endRule; ++i) {
    if (best != nullptr && filed_[i].place > best->place) return;
    if (RuleMatches(*filed_[i].rule, path)) best = &filed_[i];
  }
}

void TqRuleMatcher::TryKey(std::uint32_t firstDrawer, std::uint32_t endDrawer, std::uint32_t key,
                           const TqJudgedPath& path, const FiledRule*& best) const {
  const Drawer* const end = drawers_.data() + endDrawer;
  const Drawer* drawer = std::ranges::lower_bound(drawers_.data() + firstDrawer, end, key, {}, &Drawer::key);
  if (drawer != end && drawer->key == key) TryDrawer(*drawer, path, best);
}

void TqRuleMatcher::TryText(const TqTextFinder::Sighting& sighting, const std::uint32_t* endMatched,
                            const TqJudgedPath& path, const FiledRule*& best) const {
  if (!texts_.IsWhole(sighting, path.text)) return;
  for (const std::uint32_t* number = matched_.data(); number != endMatched; ++number) {
    const Group& group = groups_[*number];
    TryKey(group.firstTextDrawer, group.endDrawer, firstTextKey_ + sighting.text, path, best);
  }
}

void TqRuleMatcher::TryTexts(const std::uint32_t* endMatched, const TqJudgedPath& path, const FiledRule*& best) const {
  const auto tryText = [&](const TqTextFinder::Sighting& sighting) { TryText(sighting, endMatched, path, best); };
  const bool areNoted = directory_.sightingCount <= Directory::kMostSightings;
  if (areNoted) std::for_each_n(directory_.sightings, directory_.sightingCount, tryText);
  texts_.ForEachIn(path.text, areNoted ? directory_.length : 0, tryText);
}

TqExcludeFilenameRule* TqRuleMatcher::FirstMatch(const TqJudgedPath& path) {
  std::uint32_t* end = directory_.endMatched;
  if (!path.onlyCatchAll && !directory_.place.isEnd) {
    TqPrefixTree::Place place = directory_.place;
    end += prefixes_.Collect(path.text, place, end);
  }
  const std::uint32_t extensionKey = ExtensionKey(path.text);
  const FiledRule* best = nullptr;
  std::uint32_t firstTextPlace = kNowhere;
  for (const std::uint32_t* number = matched_.data(); number != end; ++number) {
    const Group& group = groups_[*number];
    if (group.firstDrawer != group.firstExtensionDrawer) TryDrawer(drawers_[group.firstDrawer], path, best);
    if (extensionKey != kAlways) {
      TryKey(group.firstExtensionDrawer, group.firstTextDrawer, extensionKey, path, best);
    }
    firstTextPlace = std::min(firstTextPlace, group.firstTextPlace);
  }
  // Texts are looked for last, and only for rules that stand before the one found so far.
  if (firstTextPlace < (best != nullptr ? best->place : kNowhere)) TryTexts(end, path, best);
  return best != nullptr ? best->rule : nullptr;
}

}  // namespace TqInfoManager
