// The engine against the naive rules, on paths made of the rules' own pieces so that hits are frequent; and the promise
// that a decision allocates nothing.

#include <iterator>
#include <random>
#include <sstream>

#include "selection/rule_texts.h"
#include "tests/selection/naive_rules.h"
#include "tests/selection/selection_fixture.h"

// The test program is linked so that its objects' calls of malloc, realloc and operator new (_Znwm) pass here.
namespace {
long allocations = 0;
}
extern "C" {
void* __real_malloc(std::size_t bytes);
void* __real_realloc(void* block, std::size_t bytes);
void* __real__Znwm(std::size_t bytes);
void* __wrap_malloc(std::size_t bytes) {
  return ++allocations, __real_malloc(bytes);
}
void* __wrap_realloc(void* block, std::size_t bytes) {
  return ++allocations, __real_realloc(block, bytes);
}
void* __wrap__Znwm(std::size_t bytes) {
  return ++allocations, __real__Znwm(bytes);
}
}

namespace {

using Words = std::vector<std::string>;

class RuleAgreementTest : public SelectionTest {
 protected:
  RuleAgreementTest() { TqLog::CloseLog(); }

  bool OneIn(unsigned n) { return random_() % n == 0; }
  const std::string& Pick(const Words& words) { return words[random_() % words.size()]; }
  std::string Criterion(const Words& words, unsigned usedOneIn) { return OneIn(usedOneIn) ? Pick(words) : "*"; }

  std::string RandomRule() {
    const Words lists = {Pick(kPieces) + "|" + Pick(kPieces), Pick(kPieces), "||"};
    return Rule(Pick(kPrefixes), Criterion(kPieces, 2), Criterion(kPieces, 4), Criterion(lists, 5), Criterion(kEnds, 6),
                Criterion(kExtensions, 2), Pick({"*", "*", "*", "*", "10.15", "10.6"}));
  }

  std::string RandomPath(const Words& starts, const Words& pieces, const Words& ends) {
    std::string path = OneIn(3) ? Pick(kVolumes) : "";
    path += "/" + Pick(starts);
    for (auto n = random_() % 4; n > 0; --n) path += Pick(pieces);
    if (!OneIn(4)) path += Pick(ends);
    if (OneIn(12)) path = path.substr(0, random_() % 13);
    for (char& c : path) c = c >= 'a' && c <= 'z' && OneIn(5) ? static_cast<char>(c - 32) : c;
    return path;
  }

  static Words EngineOrder() {
    Words shown;
    ForEachRule([&](const TqExcludeFilenameRule& r, std::int32_t) {
      std::string text;
      const std::initializer_list<const char*> criteria = {r.skipFirstCharThenStartsWith,
                                                           r.contains_1,
                                                           r.contains_2,
                                                           r.doesNotContain != nullptr ? "list" : nullptr,
                                                           r.endsWith,
                                                           r.hasFileExtension};
      for (const char* criterion : criteria) text += Shown(criterion) + " ";
      shown.push_back(text + std::to_string(r.hitCount));
    });
    return shown;
  }
  static Words Split(const char* words) {
    std::istringstream in(words);
    return {std::istream_iterator<std::string>(in), {}};
  }

  const Words kPrefixes = Split(
      "* * users/ Users/ users/bob/ us library/ volumes/ext/users/ volumes/nine/us volumes/ext/ volumes//us "
      "volumes/we_still \xC3\xA9t\xC3\xA9/ v vo");
  const Words kPieces = Split("/Library/ caches/ save a .app /\xC3\x89 bob/ \\ user");
  const Words kEnds = Split("/x.txt .TXT notes. e.gz /README .d/y .d\\y .db save");
  const Words kExtensions = Split("txt gz DB app d\\y");
  const Words kVolumes = Split("/Volumes/Ext /volumes/Nine /Volumes/\xC3\xA9 /Volumes/ /Volumes /vo");
  std::mt19937 random_{20'071'228};
};

TEST_F(RuleAgreementTest, RandomRules) {
  int excluded = 0;
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
      excluded += wanted ? 0 : 1;
    }
    Words order;
    for (const NaiveRule* rule : naive.All()) order.push_back(rule->Shown());
    ASSERT_EQ(EngineOrder(), order) << "round " << round;
  }
  // Both answers must be common among the 30,000, or the comparison would say little.
  EXPECT_GT(excluded, 6000);
  EXPECT_LT(excluded, 24000);
}

TEST_F(RuleAgreementTest, DecisionsAllocateNothing) {
  ASSERT_TRUE(Parse(TqInfoManager::MandatoryRulesText().c_str()));
  std::vector<TqString> paths;
  for (int i = 0; i < 500; ++i) {
    const std::string path = "/Users/Bob/" + std::string(random_() % 900, 'x') + Pick(kPieces) + Pick(kEnds);
    paths.emplace_back((OneIn(2) ? "/Volumes/Ext" : "") + path);
  }
  Wanted("/Users/" + std::string(2000, 'x'));  // the scratch text takes its size
  const long before = allocations;
  for (const TqString& path : paths) TqInfoManager::UserWantsThisFileBackedUpEx(path, 1, 2, tqRules, count);
  EXPECT_EQ(allocations, before);
  const TqString copy(paths[0]);
  EXPECT_GT(allocations, before) << "the counters are not linked in";
}

}  // namespace
