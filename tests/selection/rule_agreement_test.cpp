// The engine against the naive rules, on paths made of the rules' own pieces so that hits are frequent; and the promise
// that a decision allocates nothing.

#include <random>

#include "selection/rule_texts.h"
#include "tests/selection/allocation_count.h"
#include "tests/selection/naive_rules.h"
#include "tests/selection/selection_fixture.h"

namespace {

using Words = std::vector<std::string>;

class RuleAgreementTest : public SelectionTest {
 protected:
  RuleAgreementTest() { TqLog::CloseLog(); }

  const std::string& Pick(const Words& words) { return words[random_() % words.size()]; }
  bool OneIn(unsigned n) { return random_() % n == 0; }

  /// "*" mostly, else one of the words.
  std::string Criterion(const Words& words, unsigned starOneIn) { return OneIn(starOneIn) ? Pick(words) : "*"; }

  std::string RandomRule() {
    const std::string list = Pick(kPieces) + "|" + Pick(kPieces);
    return Rule(Pick(kPrefixes), Criterion(kPieces, 2), Criterion(kPieces, 4), OneIn(5) ? list : Criterion({"||"}, 20),
                Criterion(kEnds, 6), Criterion(kExtensions, 2),
                OneIn(12)  ? "10.6"
                : OneIn(6) ? "10.15"
                           : "*");
  }

  std::string RandomPath(const Words& starts, const Words& pieces, const Words& ends) {
    std::string path = OneIn(3) ? Pick(kVolumes) : "";
    path += "/" + Pick(starts);
    for (auto n = random_() % 4; n > 0; --n) path += Pick(pieces);
    if (!OneIn(4)) path += Pick(ends);
    if (OneIn(12)) path = path.substr(0, random_() % 13);
    for (char& c : path) {
      if (c >= 'a' && c <= 'z' && OneIn(5)) c = static_cast<char>(c - 'a' + 'A');
    }
    return path;
  }

  static Words EngineOrder() {
    Words shown;
    const auto text = [](const char* criterion) { return std::string(criterion != nullptr ? criterion : "*"); };
    for (std::int32_t i = 0; i < count; ++i) {
      for (const auto* sub = &tqRules[i]; sub != nullptr; sub = sub->nextExtensionGroup) {
        for (const auto* rule = sub; rule != nullptr; rule = rule->nextSameExtension) {
          shown.push_back(NaiveRule{text(rule->skipFirstCharThenStartsWith), text(rule->contains_1),
                                    text(rule->contains_2), rule->doesNotContain != nullptr ? "list" : "*",
                                    text(rule->endsWith), text(rule->hasFileExtension),
                                    static_cast<long>(rule->hitCount)}
                              .Shown());
        }
      }
    }
    return shown;
  }

  const Words kPrefixes = {"*",
                           "*",
                           "users/",
                           "Users/",
                           "users/bob/",
                           "us",
                           "library/",
                           "volumes/ext/users/",
                           "volumes/nine/us",
                           "volumes/ext/",
                           "volumes/we_still",
                           "\xC3\xA9t\xC3\xA9/",
                           "v",
                           "vo"};
  const Words kPieces = {"/Library/", "caches/", "save", "a", ".app", "/\xC3\x89", "bob/", "\\", "user"};
  const Words kEnds = {"/x.txt", ".TXT", "notes.", "e.gz", "/README", ".d/y", ".d\\y", ".db", "mach"};
  const Words kExtensions = {"txt", "gz", "DB", "app"};
  const Words kVolumes = {"/Volumes/Ext", "/volumes/Nine", "/Volumes/\xC3\xA9", "/Volumes/", "/Volumes", "/vo"};
  std::mt19937 random_{20'071'228};
};

TEST_F(RuleAgreementTest, EngineAgreesAboutRandomRules) {
  long excluded = 0;
  for (int round = 0; round < 250; ++round) {
    TqInfoManager::FreeRules(tqRules, &count);
    NaiveRules naive;
    for (int dataSet = 0; dataSet < 3; ++dataSet) {
      std::string rules;
      for (auto n = 1 + random_() % 14; n > 0; --n) rules += RandomRule();
      ASSERT_TRUE(Parse(rules));
      naive.Load(rules);
    }
    for (int i = 0; i < 120; ++i) {
      const std::string path = RandomPath(kPrefixes, kPieces, kEnds);
      const bool wanted = Wanted(path);
      ASSERT_EQ(wanted, naive.Wants(path)) << "round " << round << " path " << path;
      if (!wanted) ++excluded;
    }
    ASSERT_EQ(EngineOrder(), naive.InOrder()) << "round " << round;
  }
  // Both answers must be common, or the comparison would say little.
  EXPECT_GT(excluded, 6000);
  EXPECT_LT(excluded, 24000);
}

TEST_F(RuleAgreementTest, EngineAgreesAboutTheShippedRules) {
  const TqString texts[] = {TqInfoManager::MandatoryRulesText(), TqInfoManager::EditableRulesText(),
                            TqInfoManager::MergeBlocksText()};
  NaiveRules naive;
  for (const TqString& text : texts) {
    ASSERT_TRUE(Parse(text.c_str()));
    naive.Load(text.c_str());
  }
  Words starts = {"users/bob/", "users/", "users/bob"};
  Words pieces = {"/x"};
  Words ends = {".txt", ".db", "/y"};
  for (const TqBuiltInRule& row : TqInfoManager::MandatoryRules()) {
    if (row.prefix != "*" && row.prefix != "users/") starts.emplace_back(row.prefix);
    if (row.prefix != "users/") starts.emplace_back("users/bob");
    if (row.contains1 != "*") pieces.emplace_back(row.contains1);
    if (row.contains2 != "*") pieces.emplace_back(std::string(row.contains1) + std::string(row.contains2));
    if (row.endsWith != "*") ends.emplace_back(row.endsWith);
    if (row.extension != "*" && row.extension[0] != '{') ends.emplace_back("." + std::string(row.extension));
  }
  for (int i = 0; i < 20'000; ++i) {
    const std::string path = RandomPath(starts, pieces, ends);
    ASSERT_EQ(Wanted(path), naive.Wants(path)) << path;
  }
  EXPECT_EQ(EngineOrder(), naive.InOrder());
}

TEST_F(RuleAgreementTest, DecisionsAllocateNothing) {
  ASSERT_TRUE(Parse(TqInfoManager::MandatoryRulesText().c_str()));
  std::vector<TqString> paths;
  for (int i = 0; i < 500; ++i) {
    paths.emplace_back("/Users/Bob/" + std::string(random_() % 900, 'x') + Pick(kPieces) + Pick(kEnds));
    paths.emplace_back("/Volumes/Ext" + std::string(paths.back().c_str()));
  }
  Wanted("/Users/" + std::string(2000, 'x'));  // the scratch text takes its size
  const long before = AllocationCount();
  for (const TqString& path : paths) {
    TqInfoManager::UserWantsThisFileBackedUpEx(path, 1, 2, tqRules, count);
  }
  EXPECT_EQ(AllocationCount() - before, 0);
  const TqString copy(paths[0]);
  EXPECT_GT(AllocationCount() - before, 0) << "the counters are not linked in";
}

}  // namespace
