#include "selection/rule_files.h"

#include "selection/rule_texts.h"
#include "tests/selection/selection_fixture.h"

namespace {

using namespace TqInfoManager;

class RuleFilesTest : public SelectionTest {
 protected:
  const std::string kEditable = Data("tqexcluderules_editable.xml");
  const std::string kLog = Data("tqreports/tqexcluderules_editable_mergelog.txt");

  static std::string MergeLog(const std::string& time, std::initializer_list<const char*> blocks) {
    std::string log;
    for (const char* block : blocks) log += "merged_" + time + " tqmergeblock=\"" + block + "\"\n";
    return log;
  }
};

TEST_F(RuleFilesTest, BuiltInTexts) {
  const std::string mandatory = MandatoryRulesText().c_str();
  const std::string editable = EditableRulesText().c_str();
  for (const std::string& text : {mandatory, editable}) {
    EXPECT_TRUE(text.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\" ?> \n\n<tqexclusions>\n<!--"));
    EXPECT_TRUE(text.ends_with("/>\n</tqexclusions>\n"));
    // The header must not confuse the readers of plain text.
    const std::size_t start = text.find("<!--") + 4;
    const std::string header = text.substr(start, text.find("-->", start) - start);
    EXPECT_EQ(Count(header, "--") + Count(header, "<excludefname_rule") + Count(header, "</tqexclusions>"), 0);
  }
  EXPECT_EQ(Count(mandatory, "<excludefname_rule "), 163);
  EXPECT_EQ(Count(mandatory, "ruleIsOptional=\"t\""), 4);
  EXPECT_EQ(Count(editable, "ruleIsOptional=\"t\""), 7);
}

TEST_F(RuleFilesTest, CreatesTheFilesAndMergesEveryBlockOnce) {
  fake.WriteFile(kLog, MergeLog("1", {"001"}));
  ASSERT_TRUE(MakeSureExcludeRulesFilesExistIn_tqdata_Folder());
  EXPECT_EQ(fake.ReadFile(Data("tqexcluderules_mandatory.xml")), MandatoryRulesText().c_str());
  EXPECT_EQ(fake.ReadFile(kLog + ".aside"), MergeLog("1", {"001"}));
  EXPECT_EQ(fake.ReadFile(kLog), MergeLog("20231114221320", {"001", "002", "005", "006", "007", "008"}));
  const std::string text = fake.ReadFile(kEditable);
  EXPECT_EQ(Count(text, "<excludefname_rule tqmergeblock=\"") + Count(text, "<excludefname_rule plat="), 14);
  EXPECT_EQ(Count(text, "merge block"), 0);
  // What the user takes out stays out.
  fake.WriteFile(kEditable, "<tqexclusions>\n</tqexclusions>\n");
  EXPECT_TRUE(!MakeSureAllEditableExcludeRuleBlocksAreMerged() && MakeSureExcludeRulesFilesExistIn_tqdata_Folder());
  EXPECT_EQ(fake.ReadFile(kEditable), "<tqexclusions>\n</tqexclusions>\n");
  ExpectLogged({"no rules were merged into RAM, so not writing file out to disk, fName=" + kEditable,
                "tqmergeblock=008 was already merged at some point in the past, index=6"});
}

TEST_F(RuleFilesTest, MergesInFrontOfTheLastEndTag) {
  fake.WriteFile(kEditable, "<!-- </tqexclusions> -->\n<tqexclusions></tqexclusions>tail");
  fake.WriteFile(kLog, MergeLog("1", {"001", "002", "005", "006", "007"}));
  EXPECT_TRUE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  EXPECT_EQ(
      fake.ReadFile(kEditable),
      "<!-- </tqexclusions> -->\n<tqexclusions>\n<excludefname_rule tqmergeblock=\"008\" plat=\"mac\" osVers=\"*\"  "
      "ruleIsOptional=\"t\" skipFirstCharThenStartsWith=\"users/\" contains_1=\"/library/containers/"
      "com.docker.docker/\" contains_2=\"*\" doesNotContain=\"*\" endsWith=\"*\" hasFileExtension=\"*\" />\n"
      "</tqexclusions>tail");
}

TEST_F(RuleFilesTest, MergeBailsOutWithoutChanges) {
  EXPECT_FALSE(MakeSureAllEditableExcludeRuleBlocksAreMerged() || fake.Has(kEditable));
  fake.WriteFile(kEditable, "<tqexclusions>");
  EXPECT_FALSE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  fake.WriteFile(kEditable, "<tqexclusions></tqexclusions>");
  fake.WriteFile(kLog, MergeLog("1", {"001"})).openErrno = EACCES;
  EXPECT_FALSE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  fake.WriteFile(kLog, "").openErrno = 0;
  Fail("rename", kEditable);
  EXPECT_FALSE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  EXPECT_EQ(fake.ReadFile(kLog), "");
  EXPECT_EQ(fake.ReadFile(kEditable), "<tqexclusions></tqexclusions>");
  const std::string tail = ", bailing out with false - nothing modified";
  ExpectLogged({"BlocksAreMerged, file does not exist, editable rules fileName=" + kEditable + tail,
                "but no end tag </tqexclusions> inside editable rules fileName=" + kEditable + tail,
                "merge log exists, but could not read logFileName=" + kLog + tail});
  // A merge that cannot be recorded stays merged.
  fake.fault = nullptr;
  fake.Find(kLog)->linkCount = 2;
  EXPECT_TRUE(MakeSureAllEditableExcludeRuleBlocksAreMerged() &&
              Logged("VERY_BAD failed to append log line to merge_log"));
}

TEST_F(RuleFilesTest, RulesFromTheSettings) {
  const std::string none = "\" whichfiles=\"None\" />";
  WriteSettings(
      "<g excludefiletypes=\" ISO,, wab~ ,*\" /><tqdirfilter dir=\"/Users/R&amp;B" + none + "<tqdirfilter dir=\"/" +
      none + "<tqdirfilter dir=\"/a" + none + "<tqdirfilter dir=\"" + none + "<tqdirfilter dir=\"b" + none +
      "<tqdirfilter dir=\"/c/\" whichfiles=\"all\" /><tqdirfilter dir=\"/d/\" />" + "<tqdirfilter folder=\"/e/" + none);
  const auto line = [](const std::string& prefix, const std::string& extension) {
    return "<excludefname_rule plat=\"mac\" osVers=\"*\"  ruleIsOptional=\"t\" skipFirstCharThenStartsWith=\"" +
           prefix + "\" contains_1=\"*\" contains_2=\"*\" doesNotContain=\"*\" endsWith=\"*\" hasFileExtension=\"" +
           extension + "\" />\n";
  };
  TqString text;
  ASSERT_TRUE(ParseTqInfo_MakeIntoExcludeFileNameRulesXml(text));
  EXPECT_EQ(text.c_str(), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?> \n\n<tqexclusions>\n" + line("*", "iso") +
                              line("*", "wab~") + line("users/r&amp;b/", "*") + line("a/", "*") + "</tqexclusions>\n");
  EXPECT_EQ(CountLogged("attribute is TOO SHORT on \"tqdirfilter\" in tqinfo file: " + Data("tqinfo.xml")), 2);
  EXPECT_EQ(CountLogged("skipping exclusion because no \""), 2);
  EXPECT_TRUE(Logged("skipping excludefiletypes entry \"*\""));
}

TEST_F(RuleFilesTest, RulesFromTheSettingsAreRetriedAndLimited) {
  TqString text("old");
  EXPECT_FALSE(ParseTqInfo_MakeIntoExcludeFileNameRulesXml(text) || text.Contains("old"));
  std::string types;
  for (int i = 0; i < 9998; ++i) types += std::to_string(i) + ",";
  WriteSettings("<g excludefiletypes=\"" + types + "\" /><tqdirfilter dir=\"/gone/\" whichfiles=\"none\" />");
  fake.Find(Data("tqinfo.xml"))->openErrno = EACCES;
  EXPECT_FALSE(ParseTqInfo_MakeIntoExcludeFileNameRulesXml(text));
  EXPECT_EQ(CountLogged("could not read tqinfo.xml so pausing and trying again found at: "), 17);
  ExpectLogged({"RulesXml no tqinfo.xml found at: ", "could not read tqinfo.xml after 17 tries, found at: "});
  fake.onSleep = [&](std::int64_t) { fake.Find(Data("tqinfo.xml"))->openErrno = 0; };
  EXPECT_TRUE(ParseTqInfo_MakeIntoExcludeFileNameRulesXml(text));
  EXPECT_EQ(Count(text.c_str(), "<excludefname_rule "), 9997);
  EXPECT_EQ(CountLogged("more than 9997 rules, so ignoring the rest"), 1);
}

TEST_F(RuleFilesTest, FiltersMoveBetweenSettingsTexts) {
  const std::string start = "<t>\n<do_backup x=\"y\">\n    ";
  const std::string b = " \n    <tqdirfilter dir=\"/b/\" whichfiles=\"none\" /> \n";
  const std::string newA = "<tqdirfilter dir=\"/a/\" whichfiles=\"docs\" />";
  const std::string added = "<tqdirfilter dir=\"/new/\" whichfiles=\"none\" />";
  TqString to(start + "<tqdirfilter dir=\"/A/\" whichfiles=\"all\" />" + b + "</do_backup>  \n</t>");
  ASSERT_TRUE(MergeTqInfoTqDirFilter("<t>\n" + newA + added, to));
  EXPECT_EQ(to.c_str(), start + newA + b + "    " + added + " \n</do_backup>  \n</t>");
  // Readers take 9999: what would go beyond is left out, what is there already is still replaced.
  std::string many = "<do_backup>";
  for (int i = 0; i < 9998; ++i) many += "<tqdirfilter dir=\"/" + std::to_string(i) + "/\" whichfiles=\"all\" />";
  to = many + "</do_backup>";
  const std::string no7 = "<tqdirfilter dir=\"/7/\" whichfiles=\"none\" />";
  ASSERT_TRUE(MergeTqInfoTqDirFilter("<t>" + newA + added + added + no7, to));
  many.replace(many.find("all", many.find("\"/7/\"")), 3, "none");
  EXPECT_EQ(to.c_str(), many + "    " + newA + " \n</do_backup>");
  EXPECT_EQ(CountLogged("MergeTqInfoTqDirFilter - adding more than TQ_INFO_MAX_NUM_DIR_FILTERS=9999 tqdirfilters, so "
                        "ignoring the rest"),
            1);
  for (const char* bad : {"<t>", " <tqdirfilter />", " <tqdirfilter /><do_backup", " <tqdirfilter /><do_backup>"}) {
    to = bad;
    EXPECT_FALSE(MergeTqInfoTqDirFilter(" <tqdirfilter />", to)) << bad;
    EXPECT_STREQ(to.c_str(), bad);
  }
}

}  // namespace
