#include "selection/rule_engine.h"

#include <cstring>

#include "tests/selection/selection_fixture.h"

namespace {

using namespace TqInfoManager;

class RuleEngineTest : public SelectionTest {
 protected:
  /// Prefix and contains_1 of every rule, in the order in which they are tried.
  static std::string Order() {
    std::string all;
    std::int32_t last = -1;
    ForEachRule([&](const TqExcludeFilenameRule& rule, std::int32_t group) {
      const char* prefix = rule.skipFirstCharThenStartsWith;
      if (group != last) all += std::string(group > 0 ? " " : "") + (prefix != nullptr ? prefix : "null") + ":";
      last = group;
      all += Shown(rule.contains_1);
    });
    return all;
  }
  static std::string Ext(const char* prefix, const char* name, const char* extension) {
    return Rule(prefix, name, "*", "*", "*", extension);
  }
};

TEST_F(RuleEngineTest, DecidesByTheShippedRulesAndTheSettings) {
  WriteSettings("<g excludefiletypes=\"iso, DMG\" /><tqdirfilter dir=\"/Users/Bob/Music\" whichfiles=\"None\" />");
  ASSERT_TRUE(LoadAllExcludeFilenameRulesProperly(tqRules, &count));
  ExpectLogged({"found 163 excludefname_rule from dataSet=mandatory_rules, now beginning to parse the rules",
                "and found 161 that applied to me, with 44 unique skipFirstCharThenStartsWith now in the array"});
  for (const char* path :
       {"/Users/Bob/Documents/a.txt", "/Volumes/Ext/Photos/Library/Caches/x", "/Users/Bob/DS_Store", "/machine",
        "/Users/Bob/Library/Application Support/Steam/steamapps/saved.u", "/Users/Bob/Musical.mp3", "/Volumes/Other"}) {
    EXPECT_TRUE(Wanted(path)) << path;
  }
  for (const char* path :
       {"/Users/Bob/Library/Caches/x", "/Volumes/Ext/Users/Bob/Library/Caches/x", "/Volumes/Ext/private/x",
        "/Applications/Mail.app", "/Users/Bob/a/.DS_Store", "/mach_kernel", "/Users/Bob/x.dmg", "/Users/Bob/disk.Iso",
        "/Users/Bob/Library/Application Support/Steam/steamapps/a.u", "/Users/Bob/Music/song.mp3",
        "/Users/Bob/Library/Application Support/Slack/x"}) {
    EXPECT_FALSE(Wanted(path)) << path;
  }
  EXPECT_FALSE(UserWantsThisFileBackedUpEx(TqString("/Users/Bob/Documents/a.txt"), 11, 10, tqRules, count));
  EXPECT_TRUE(UserWantsThisFileBackedUpEx(TqString("/Users/Bob/Documents/a.txt"), 10, 10, tqRules, count));
  EXPECT_TRUE(Logged("UpEx - unknown external volume situation for fileName=/Volumes/Other"));
  const std::string order = Order();
  ASSERT_TRUE(LoadAllExcludeFilenameRulesProperly(tqRules, &count));
  EXPECT_EQ(Order(), order) << "a second load starts from an empty index";
}

TEST_F(RuleEngineTest, LoadTellsWhatFailed) {
  EXPECT_FALSE(LoadAllExcludeFilenameRulesProperly(tqRules, nullptr));
  // No settings: the other rules count, the result is false.
  EXPECT_FALSE(LoadAllExcludeFilenameRulesProperly(tqRules, &count));
  EXPECT_FALSE(Wanted("/Users/Bob/Library/Caches/x"));
  // Settings that exclude nothing are fine.
  WriteSettings("<g excludefiletypes=\"\" />");
  EXPECT_TRUE(LoadAllExcludeFilenameRulesProperly(tqRules, &count));
  fake.WriteFile(Data("tqexcluderules_editable.xml"), "");
  EXPECT_FALSE(LoadAllExcludeFilenameRulesProperly(tqRules, &count));
  EXPECT_EQ(fake.ReadFile(Data("tqexcluderules_editable.xml")), "");
  EXPECT_EQ(count, 44);
  std::int32_t noneLoaded = 44;
  EXPECT_FALSE(LoadAllExcludeFilenameRulesProperly(nullptr, &noneLoaded));
  EXPECT_EQ(noneLoaded, 0);
  ExpectLogged({"called with bad NULL arg num_tqExcludeFilenameRulesRet",
                "could not parse any excludefname_rule out of dataSet=tqinfo.xml",
                "ExcludeFilenameRulesProperly - no excludefname_rule came out of tqinfo.xml",
                "file exists, but could not read: " + Data("tqexcluderules_editable.xml")});
}

TEST_F(RuleEngineTest, ChainsKeepTheirPeculiarOrder) {
  ASSERT_TRUE(Parse(Ext("*", "z", "*") + Ext("ab", "1", "*") + Ext("ab", "2", "txt") + Ext("ab", "3", "db") +
                    Ext("ab", "4", "txt") + Ext("ab", "5", "txt") + Ext("ab", "6", "*") + Ext("cd", "1", "txt") +
                    Ext("cd", "2", "*") + Ext("cd", "3", "db")));
  EXPECT_EQ(Order(), "cd:132 ab:254316 null:z");
  // The catch-all group takes rules of later data sets and stays last; the last entry takes its place.
  ASSERT_TRUE(Parse(Ext("ef", "1", "*") + Ext("*", "y", "*") + Ext("gh", "1", "*")));
  EXPECT_EQ(Order(), "cd:132 ab:254316 gh:1 ef:1 null:zy");
  EXPECT_FALSE(Logged("BAD_CODE_BUG"));
  // Two rules that differ only in what they must not contain count as the same.
  ASSERT_TRUE(Parse(Rule("IJ", "A", "*", "x|y") + Rule("ij", "a", "*", "z") + Rule("ij", "a")));
  EXPECT_TRUE(Order().starts_with("cd:132 ab:254316 gh:1 ef:1 ij:aa null"));
  ExpectLogged({"-duplicate XML rule_1 skipFirstChar=ij, hasFileExtension=*, contains_1=a, contains_2=*, endsWith=*",
                "and found 3 that applied to me, with 6 unique"});
}

TEST_F(RuleEngineTest, BadElementsAreSkippedWithTheirCode) {
  const char* attributes[] = {
      "plat",     "osVers",          "skipFirstCharThenStartsWith", "", "contains_1", "contains_2", "doesNotContain",
      "endsWith", "hasFileExtension"};
  for (char code = 'A'; code <= 'I'; ++code) {
    if (code == 'D') continue;
    const std::string attribute = attributes[code - 'A'];
    std::string nameless = Rule("users/");
    nameless[nameless.find(attribute)] = '_';
    // Cut at its NUL byte the rule would leave out more than it says.
    std::string cut = Rule("users/");
    cut.insert(cut.find(attribute) + attribute.size() + 2, std::string("a/\0", 3));
    ASSERT_TRUE(Parse(Rule("ok") + nameless + cut, "bad"));
    const std::string tail = code == 'A' ? ", Here is xmlSnippet : <" : code == 'E' ? ",   Here is" : ", Here is";
    const auto isSkipped = [&](char number) {
      return Logged(std::string("BAD_EXCLUDEFNAME_RULE_") + code + ".  XML rule num=" + number +
                    " did not contain criteria \"" + attribute + "\" so it will be skipped! From dataSet=bad" + tail);
    };
    EXPECT_TRUE(isSkipped('1')) << code;
    EXPECT_EQ(isSkipped('2'), code >= 'C') << code << ": any other platform or version is skipped silently";
  }
  ASSERT_TRUE(Parse(Rule("a") + Rule("volumes/ext/") + Rule("xx", "") + Rule("volumes/photos/archive/") + Rule("bc")));
  EXPECT_EQ(CountLogged("_D.  XML rule num=0 skipFirstCharThenStartsWith=\"a\" is to short so this rule will be"), 1);
  EXPECT_EQ(CountLogged("BAD_EXCLUDEFNAME_RULE_D"), 2);
  EXPECT_EQ(Order(), "ok:* archive/:* bc:*");
}

TEST_F(RuleEngineTest, OsVersionsCompareByTheirSecondNumber) {
  const char* cases[][2] = {{"10.15.7", "bb:*"}, {"13.2.1", "aa:*"}, {"11", "dd:*"}, {"", "dd:*"}};
  const char* numbers[][2] = {{"aa", "10.2"}, {"bb", "10.15"}, {"cc", "11"}, {"dd", "10.-1"}};
  std::string rules;
  for (const auto& [prefix, number] : numbers) rules += Rule(prefix, "*", "*", "*", "*", "*", number);
  for (const auto& [version, order] : cases) {
    FreeRules(tqRules, &count);
    SetProductVersion(version);
    ASSERT_TRUE(Parse(rules));
    EXPECT_EQ(Order(), order) << version;
  }
}

TEST_F(RuleEngineTest, RefusedDataSetsLeaveTheIndexAlone) {
  ASSERT_TRUE(
      Parse("<!-- " + Rule("no/") + " -->" + Rule("ok") + Rule("*", "z") + "<!-->" + Rule("no/") + "--> <!-- open"));
  EXPECT_FALSE(Parse("<!-- " + Rule("no/") + " -->"));
  std::string many;
  for (int i = 0; i < 9998; ++i) many += "<excludefname_rule plat=\"win\" />";
  EXPECT_FALSE(Parse(many));
  EXPECT_TRUE(Parse(many.substr(many.size() / 9998)));
  const TqString text;
  EXPECT_FALSE(ParseExcludeFileNameRules(nullptr, tqRules, &count, "n") ||
               ParseExcludeFileNameRules(&text, nullptr, &count, "n") ||
               ParseExcludeFileNameRules(&text, tqRules, nullptr, "n"));
  EXPECT_EQ(CountLogged(" bad NULL param for dataSet=n"), 3);
  ExpectLogged({"could not find end of comment, where START of comment is: <!-- open",
                "TOO_MANY_EXCLUEFNAME_RULE.  We found 9998 excludefname_rule from dataSet=set, which is too many"});
  EXPECT_EQ(Order(), "ok:* null:z");
}

TEST_F(RuleEngineTest, GroupsAndPrefixesHaveTheirLimits) {
  for (std::int32_t i = 1; i < kMaxRuleGroups; ++i) {
    tqRules[count++].skipFirstCharThenStartsWith = ::strdup(std::to_string(1'000'000 + i).c_str());
  }
  const std::string longest(5000, 'x');
  ASSERT_TRUE(Parse(Rule(longest) + Rule(longest + "x")));
  EXPECT_EQ(count, kMaxRuleGroups);
  EXPECT_TRUE(Logged("too many unique skipFirstCharThenStartsWith, 10000 is the max, skipping rule from dataSet=set"));
  EXPECT_FALSE(Wanted("/" + longest + "xx"));
  FreeRules(tqRules, &count);
  ASSERT_TRUE(Parse(Rule(longest + "x")));
  EXPECT_TRUE(Wanted("/" + longest + "xx"));
}

TEST_F(RuleEngineTest, WholeDirectories) {
  const auto excluded = [](const char* dir) { return DirIsExcludedFromBackupInTqInfo(TqString(dir)); };
  EXPECT_FALSE(excluded("/applications/"));  // no settings were read
  WriteSettings(
      "<tqdirfilter dir=\"/Opt/Stuff/\" whichfiles=\"none\" /><tqdirfilter dir=\"/srv/\" whichfiles=\"all\" />");
  ASSERT_TRUE(ReadControlPanelSettingsFromTqInfoXmlFile());
  EXPECT_TRUE(excluded("/opt/stuff") && excluded("/Applications"));
  EXPECT_TRUE(excluded("/Users/") && !excluded("/srv/"));  // the other criteria of a rule are not looked at
  fake.WriteFile(Data("tqexcluderules_editable.xml"), "<x>\n<!-- " + Rule("hidden/") + "-->" + Rule("SRV/"));
  EXPECT_TRUE(excluded("/srv") && !excluded("/hidden/"));
  ExpectLogged({"DirIsExcludedFromBackupInTqInfo - could not find any tqdirfilters in tqinfo.xml",
                "InTqInfo - could not find any excludefname_rule in tqexcluderules_editable.xml"});
}

TEST_F(RuleEngineTest, HitCountDump) {
  TqStringVector lines;
  EXPECT_FALSE(CollectStringArrayOfExcludeRulesWithHitCounts(tqRules, 0, &lines));
  EXPECT_TRUE(Logged("WithHitCounts, BAD arg num_tqExcludeFilenameRules less than 1=0"));
  ASSERT_TRUE(Parse(Rule("ab", "*", "lost") + Rule("ab", "x&y", "*", "n|m") + Rule("*", "z", "q", "*", "end", "gz")));
  for (const char* path : {"/abx&y", "/ab lost", "/ab lost"}) Wanted(path);
  ASSERT_TRUE(CollectStringArrayOfExcludeRulesWithHitCounts(tqRules, count, &lines));
  const std::string start =
      "<excludefname_rule plat=\"mac\" osVers=\"*\" ruleIsOptional=\"t\" skipFirstCharThenStartsWith=";
  ASSERT_EQ(lines.Count(), 3);
  EXPECT_EQ(lines.At(0).c_str(), start +
                                     "\"*\" contains_1=\"z\" contains_2=\"q\" doesNotContain=\"*\" "
                                     "endsWith=\"end\" hasFileExtension=\"gz\" hitCount=\"0\" />");
  EXPECT_EQ(lines.At(1).c_str(), start +
                                     "\"ab\" contains_1=\"x&amp;y\" contains_2=\"\" doesNotContain=\"n|m\" "
                                     "endsWith=\"*\" hasFileExtension=\"*\" hitCount=\"1\" />");
  EXPECT_TRUE(lines.At(2).StartsWith(start + "\"ab\" contains_1=\"*\" contains_2=\"*\" "));  // "lost" is not told
}

}  // namespace
