#include "selection/rule_engine.h"

#include <cstring>

#include "base/file_io.h"
#include "selection/rule_files.h"
#include "tests/selection/selection_fixture.h"

namespace {

class RuleEngineTest : public SelectionTest {
 protected:
  /// contains_1 of every rule of an entry, in the order in which they are tried.
  static std::string Order(std::int32_t entry) {
    std::string names;
    for (const auto* sub = &tqRules[entry]; sub != nullptr; sub = sub->nextExtensionGroup) {
      for (const auto* rule = sub; rule != nullptr; rule = rule->nextSameExtension) names += rule->contains_1;
    }
    return names;
  }
  static std::string Prefixes() {
    std::string all;
    for (std::int32_t i = 0; i < count; ++i) {
      const char* prefix = tqRules[i].skipFirstCharThenStartsWith;
      all += std::string(prefix != nullptr ? prefix : "null") + " ";
    }
    return all;
  }
  static std::string Ext(const char* prefix, const char* name, const char* extension) {
    return Rule(prefix, name, "*", "*", "*", extension);
  }
  static std::string Without(std::string rule, const std::string& attribute) {
    const std::size_t start = rule.find(" " + attribute + "=");
    return rule.erase(start, rule.find('"', rule.find('"', start) + 1) + 1 - start);
  }
};

TEST_F(RuleEngineTest, DecidesByTheShippedRules) {
  WriteSettings(
      "<globalexcludes excludefiletypes=\"iso, DMG\" />\n<do_backup a=\"b\">\n"
      "    <tqdirfilter dir=\"/Users/Bob/Music\" whichfiles=\"None\" /> \n</do_backup>\n");
  ASSERT_TRUE(TqInfoManager::LoadAllExcludeFilenameRulesProperly(tqRules, &count));
  EXPECT_TRUE(Logged("found 163 excludefname_rule from dataSet=mandatory_rules"));
  EXPECT_TRUE(Logged("and found 161 that applied to me, with 44 unique skipFirstCharThenStartsWith now"));
  const struct {
    const char* path;
    bool wanted;
  } cases[] = {
      {"/Users/Bob/Documents/a.txt", true},
      {"/Users/Bob/Library/Caches/x", false},
      {"/Volumes/Ext/Users/Bob/Library/Caches/x", false},
      {"/Volumes/Ext/Photos/Library/Caches/x", true},
      {"/Volumes/Ext/private/x", false},
      {"/Applications/Mail.app", false},
      {"/Users/Bob/a/.DS_Store", false},
      {"/Users/Bob/DS_Store", true},
      {"/Users/Bob/Library/Application Support/Steam/steamapps/a.u", false},
      {"/Users/Bob/Library/Application Support/Steam/steamapps/saved.u", true},
      {"/mach_kernel", false},
      {"/machine", true},
      {"/Users/Bob/disk.Iso", false},
      {"/Users/Bob/x.dmg", false},
      {"/Users/Bob/Music/song.mp3", false},
      {"/Users/Bob/Musical.mp3", true},
      {"/Users/Bob/Library/Application Support/Slack/x", false},
  };
  for (const auto& c : cases) EXPECT_EQ(Wanted(c.path), c.wanted) << c.path;
  // A second load starts from an empty index.
  const std::int32_t groups = count;
  ASSERT_TRUE(TqInfoManager::LoadAllExcludeFilenameRulesProperly(tqRules, &count));
  EXPECT_EQ(count, groups);
}

TEST_F(RuleEngineTest, LoadTellsWhatFailed) {
  EXPECT_FALSE(TqInfoManager::LoadAllExcludeFilenameRulesProperly(tqRules, nullptr));
  EXPECT_TRUE(Logged("called with bad NULL arg num_tqExcludeFilenameRulesRet"));
  // No settings: the other rules count, the result is false.
  EXPECT_FALSE(TqInfoManager::LoadAllExcludeFilenameRulesProperly(tqRules, &count));
  EXPECT_EQ(CountLogged("could not parse any excludefname_rule out of dataSet=tqinfo.xml"), 1);
  EXPECT_FALSE(Wanted("/Users/Bob/Library/Caches/x"));
  // Settings that exclude nothing are fine.
  WriteSettings("<globalexcludes excludefiletypes=\"\" />\n");
  EXPECT_TRUE(TqInfoManager::LoadAllExcludeFilenameRulesProperly(tqRules, &count));
  EXPECT_TRUE(Logged(
      "INTERESTING: TqInfoManager::LoadAllExcludeFilenameRulesProperly - no excludefname_rule came out of tqinfo.xml"));
  // An editable file of no bytes stops the load and stays as it is.
  fake.WriteFile(Data("tqexcluderules_editable.xml"), "");
  EXPECT_FALSE(TqInfoManager::LoadAllExcludeFilenameRulesProperly(tqRules, &count));
  EXPECT_TRUE(Logged("file exists, but could not read: " + Data("tqexcluderules_editable.xml")));
  EXPECT_EQ(fake.ReadFile(Data("tqexcluderules_editable.xml")), "");
  EXPECT_EQ(count, 44);
}

TEST_F(RuleEngineTest, SizeLimitAndExternalVolumes) {
  const TqString path("/a");
  EXPECT_TRUE(TqInfoManager::UserWantsThisFileBackedUpEx(path, 10, 10, tqRules, 0));
  EXPECT_FALSE(TqInfoManager::UserWantsThisFileBackedUpEx(path, 11, 10, tqRules, 0));
  ASSERT_TRUE(Parse(Rule("volumes/we_still_hardcode_this") + Rule("*", "*", "*", "*", "ext") + Rule("vo", "/voice")));
  EXPECT_STREQ(tqRules[0].skipFirstCharThenStartsWith, "volumes/we_still_hardcode_this");
  EXPECT_FALSE(Wanted("/Volumes/Ext"));
  EXPECT_TRUE(Wanted("/Volumes/Other"));
  EXPECT_EQ(CountLogged("unknown external volume situation for fileName=/Volumes/Other"), 1);
  EXPECT_FALSE(Wanted("/voices"));
  EXPECT_FALSE(Wanted("/Volumes/Disk/voices"));
  EXPECT_TRUE(Wanted("/Volumes/we_still_hardcode_this/x"));
}

TEST_F(RuleEngineTest, ChainsKeepTheirPeculiarOrder) {
  ASSERT_TRUE(Parse(Ext("*", "z", "*") + Ext("ab", "1", "*") + Ext("ab", "2", "txt") + Ext("ab", "3", "db") +
                    Ext("ab", "4", "txt") + Ext("ab", "5", "txt") + Ext("ab", "6", "*") + Ext("cd", "1", "txt") +
                    Ext("cd", "2", "*") + Ext("cd", "3", "db")));
  EXPECT_EQ(Prefixes(), "cd ab null ");
  EXPECT_EQ(Order(1), "254316");  // the head gave its place to the first rule with an extension
  EXPECT_EQ(Order(0), "132");
  // The catch-all group takes rules of later data sets and stays last; the last entry takes its place.
  ASSERT_TRUE(Parse(Rule("ef") + Ext("*", "y", "*") + Rule("gh")));
  EXPECT_EQ(Prefixes(), "cd ab gh ef null ");
  EXPECT_EQ(Order(4), "zy");
  EXPECT_FALSE(Logged("BAD_CODE_BUG"));
}

TEST_F(RuleEngineTest, FirstMatchTakesTheOnlyHit) {
  ASSERT_TRUE(Parse(Ext("ab", "x", "*") + Ext("ab", "y", "txt")));
  EXPECT_FALSE(Wanted("/abx-y.txt"));
  EXPECT_FALSE(Wanted("/abx.gz"));
  EXPECT_FALSE(Wanted("/abx"));
  EXPECT_TRUE(Wanted("/aby.txt/z"));
  EXPECT_EQ(tqRules[0].hitCount, 1);
  EXPECT_EQ(tqRules[0].nextExtensionGroup->hitCount, 2);
}

TEST_F(RuleEngineTest, LooseDuplicatesAreDropped) {
  ASSERT_TRUE(Parse(Rule("users/", "a", "*", "x|y") + Rule("USERS/", "A", "*", "z") + Rule("users/", "a")));
  EXPECT_EQ(
      CountLogged("INTERESTING (sometimes happens) - TqInfoManager::ParseExcludeFileNameRules -duplicate XML rule_1 "
                  "skipFirstChar=users/, hasFileExtension=*, contains_1=a, contains_2=*, endsWith=*"),
      1);
  EXPECT_TRUE(Logged("and found 3 that applied to me, with 1 unique"));
  EXPECT_EQ(Order(0), "aa");
  EXPECT_EQ(tqRules[0].doesNotContain->Count(), 2);
}

TEST_F(RuleEngineTest, BadElementsAreSkippedWithTheirCode) {
  const struct {
    const char* attribute;
    char code;
    const char* tail;
  } cases[] = {{"plat", 'A', ", Here is xmlSnippet : <"},
               {"osVers", 'B', ", Here is xmlSnippet: <"},
               {"skipFirstCharThenStartsWith", 'C', ", Here is xmlSnippet: <"},
               {"contains_1", 'E', ",   Here is xmlSnippet: <"},
               {"contains_2", 'F', ", Here is xmlSnippet: <"},
               {"doesNotContain", 'G', ", Here is xmlSnippet: <"},
               {"endsWith", 'H', ", Here is xmlSnippet: <"},
               {"hasFileExtension", 'I', ", Here is xmlSnippet: <"}};
  for (const auto& c : cases) {
    ASSERT_TRUE(Parse(Rule("ok") + Without(Rule("users/"), c.attribute), "bad"));
    EXPECT_TRUE(Logged(std::string("ERROR - TqInfoManager::ParseExcludeFileNameRules - BAD_EXCLUDEFNAME_RULE_") +
                       c.code + ".  XML rule num=1 did not contain criteria \"" + c.attribute +
                       "\" so it will be skipped! From dataSet=bad" + c.tail));
  }
  ASSERT_TRUE(Parse(Rule("a") + Rule("volumes/ext/") + Rule("ok", "") + Rule("volumes/photos/archive/") + Rule("bc")));
  EXPECT_EQ(CountLogged("skipFirstCharThenStartsWith=\"a\" is to short so this rule will be skipped! From dataSet=set"),
            1);
  EXPECT_EQ(CountLogged("BAD_EXCLUDEFNAME_RULE_D"), 2);
  EXPECT_EQ(CountLogged("BAD_EXCLUDEFNAME_RULE_E"), 2);
  EXPECT_EQ(Prefixes(), "ok archive/ bc ");
}

TEST_F(RuleEngineTest, OsVersionsCompareByTheirSecondNumber) {
  const struct {
    const char* version;
    const char* prefixes;
  } cases[] = {{"10.15.7", "bb "}, {"13.2.1", "aa "}, {"11", "dd "}, {"", "dd "}};
  for (const auto& c : cases) {
    TqInfoManager::FreeRules(tqRules, &count);
    SetProductVersion(c.version);
    const auto rule = [](const char* prefix, const char* osVers) {
      return Rule(prefix, "*", "*", "*", "*", "*", osVers);
    };
    ASSERT_TRUE(Parse(rule("aa", "10.2") + rule("bb", "10.15") + rule("cc", "11") + rule("dd", "10.-1")));
    EXPECT_EQ(Prefixes(), c.prefixes) << c.version;
  }
}

TEST_F(RuleEngineTest, CommentsHideRules) {
  ASSERT_TRUE(Parse("<!-- " + Rule("hidden/") + " -->" + Rule("seen/") + "<!-->" + Rule("behind/") + "--> <!-- open"));
  EXPECT_EQ(Prefixes(), "seen/ ");
  EXPECT_TRUE(Logged(
      "ParseExcludeFileNameRules_AddToArray - could not find end of comment, where START of comment is: <!-- open"));
}

TEST_F(RuleEngineTest, RefusedDataSetsLeaveTheIndexAlone) {
  ASSERT_TRUE(Parse(Rule("ok") + Rule("*", "z")));
  EXPECT_FALSE(Parse(""));
  std::string many;
  for (int i = 0; i < 9998; ++i) many += "<excludefname_rule plat=\"win\" />";
  EXPECT_FALSE(Parse(many));
  EXPECT_TRUE(
      Logged("TOO_MANY_EXCLUEFNAME_RULE.  We found 9998 excludefname_rule from dataSet=set, which is too many"));
  EXPECT_TRUE(Parse(many.substr(33)));
  const TqString text;
  EXPECT_FALSE(TqInfoManager::ParseExcludeFileNameRules(nullptr, tqRules, &count, "n"));
  EXPECT_FALSE(TqInfoManager::ParseExcludeFileNameRules(&text, nullptr, &count, "n"));
  EXPECT_FALSE(TqInfoManager::ParseExcludeFileNameRules(&text, tqRules, nullptr, "n"));
  EXPECT_EQ(CountLogged(" bad NULL param for dataSet=n"), 3);
  EXPECT_EQ(Prefixes(), "ok null ");
  EXPECT_FALSE(Wanted("/z"));
}

TEST_F(RuleEngineTest, GroupsAndPrefixesHaveTheirLimits) {
  for (std::int32_t i = 1; i < TqInfoManager::kMaxRuleGroups; ++i) {
    tqRules[count++].skipFirstCharThenStartsWith = ::strdup(std::to_string(1'000'000 + i).c_str());
  }
  const std::string longest(5000, 'x');
  ASSERT_TRUE(Parse(Rule(longest) + Rule(longest + "x")));
  EXPECT_EQ(count, TqInfoManager::kMaxRuleGroups);
  EXPECT_EQ(
      CountLogged("too many unique skipFirstCharThenStartsWith, 10000 is the max, skipping rule from dataSet=set"), 1);
  EXPECT_FALSE(Wanted("/" + longest + "xx"));
  TqInfoManager::FreeRules(tqRules, &count);
  ASSERT_TRUE(Parse(Rule(longest + "x")));
  EXPECT_TRUE(Wanted("/" + longest + "xx"));
}

TEST_F(RuleEngineTest, WholeDirectories) {
  const auto excluded = [](const char* dir) { return TqInfoManager::DirIsExcludedFromBackupInTqInfo(TqString(dir)); };
  EXPECT_FALSE(excluded("/applications/"));
  EXPECT_TRUE(Logged("DirIsExcludedFromBackupInTqInfo - could not find any tqdirfilters in tqinfo.xml"));
  WriteSettings(
      "<tqvolume tqVolumeGuid=\"v000000000000000000000000000\" mountPointPath=\"/\" />\n"
      "<do_backup a=\"b\"><tqdirfilter dir=\"/Opt/Stuff/\" whichfiles=\"none\" />"
      "<tqdirfilter dir=\"/srv/\" whichfiles=\"all\" /></do_backup>\n");
  ASSERT_TRUE(TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile());
  EXPECT_TRUE(excluded("/opt/stuff"));
  EXPECT_TRUE(excluded("/Applications"));
  EXPECT_TRUE(excluded("/Users/"));  // other criteria of a rule are not looked at
  EXPECT_FALSE(excluded("/srv/"));
  EXPECT_TRUE(Logged("could not find any excludefname_rule in tqexcluderules_editable.xml"));
  fake.WriteFile(Data("tqexcluderules_editable.xml"), "<tqexclusions>\n<!-- " + Rule("hidden/") + "-->" + Rule("SRV/"));
  EXPECT_TRUE(excluded("/srv"));
  EXPECT_FALSE(excluded("/hidden/"));
}

TEST_F(RuleEngineTest, HitCountDump) {
  TqStringVector lines;
  EXPECT_FALSE(TqInfoManager::CollectStringArrayOfExcludeRulesWithHitCounts(tqRules, 0, &lines));
  EXPECT_FALSE(TqInfoManager::CollectStringArrayOfExcludeRulesWithHitCounts(nullptr, 1, &lines));
  EXPECT_FALSE(TqInfoManager::CollectStringArrayOfExcludeRulesWithHitCounts(tqRules, 1, nullptr));
  EXPECT_TRUE(Logged("BAD arg num_tqExcludeFilenameRules less than 1=0"));
  ASSERT_TRUE(Parse(Rule("ab", "*", "lost") + Rule("ab", "x&y", "*", "n|m") + Rule("*", "z", "q", "*", "end", "gz")));
  for (int i = 0; i < 10; ++i) Wanted("/ab lost");
  for (int i = 0; i < 2; ++i) Wanted("/z/q/end");
  for (int i = 0; i < 2; ++i) Wanted("/zq.end.gz");
  for (int i = 0; i < 2; ++i) Wanted("/abx&y");
  ASSERT_TRUE(TqInfoManager::CollectStringArrayOfExcludeRulesWithHitCounts(tqRules, count, &lines));
  ASSERT_EQ(lines.Count(), 3);
  const std::string start =
      "<excludefname_rule plat=\"mac\" osVers=\"*\" ruleIsOptional=\"t\" skipFirstCharThenStartsWith=";
  EXPECT_EQ(start +
                "\"*\" contains_1=\"z\" contains_2=\"q\" doesNotContain=\"*\" endsWith=\"end\" hasFileExtension=\"gz\" "
                "hitCount=\"0\" />",
            lines.At(0).c_str());
  EXPECT_EQ(start +
                "\"ab\" contains_1=\"x&amp;y\" contains_2=\"\" doesNotContain=\"n|m\" endsWith=\"*\" "
                "hasFileExtension=\"*\" hitCount=\"2\" />",
            lines.At(1).c_str());
  EXPECT_EQ(start +
                "\"ab\" contains_1=\"*\" contains_2=\"*\" doesNotContain=\"*\" endsWith=\"*\" hasFileExtension=\"*\" "
                "hitCount=\"10\" />",
            lines.At(2).c_str());
}

}  // namespace
