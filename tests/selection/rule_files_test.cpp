#include "selection/rule_files.h"

#include "base/file_io.h"
#include "base/vector.h"
#include "selection/rule_texts.h"
#include "tests/selection/selection_fixture.h"

namespace {

using namespace TqInfoManager;

class RuleFilesTest : public SelectionTest {
 protected:
  const std::string kEditable = Data("tqexcluderules_editable.xml");
  const std::string kMandatory = Data("tqexcluderules_mandatory.xml");
  const std::string kLog = Data("tqreports/tqexcluderules_editable_mergelog.txt");

  static int Count(const std::string& text, const std::string& part) {
    int n = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
  }
};

TEST_F(RuleFilesTest, BuiltInTexts) {
  const std::string mandatory = MandatoryRulesText().c_str();
  const std::string editable = EditableRulesText().c_str();
  for (const std::string& text : {mandatory, editable}) {
    EXPECT_EQ(text.find("<?xml version=\"1.0\" encoding=\"UTF-8\" ?> \n\n<tqexclusions>\n<!--"), 0u);
    EXPECT_TRUE(text.ends_with("/>\n</tqexclusions>\n"));
    // The header must not confuse the readers of plain text.
    const std::size_t start = text.find("<!--") + 4;
    const std::string header = text.substr(start, text.find("-->", start) - start);
    EXPECT_NE(header.find("Rule 2: a file must match ALL criteria on the line to be excluded from backup."),
              header.npos);
    EXPECT_EQ(header.find("--"), header.npos);
    EXPECT_EQ(header.find("<excludefname_rule"), header.npos);
    EXPECT_EQ(Count(text, "</tqexclusions>"), 1);
  }
  EXPECT_NE(mandatory.find("\nMandatory Exclusions: editing this file DOES NOT DO ANYTHING.\n"), mandatory.npos);
  EXPECT_NE(editable.find("\nTo restore the defaults, remove this file (it will return).\n"), editable.npos);
  EXPECT_EQ(Count(mandatory, "<excludefname_rule "), 163);
  EXPECT_EQ(Count(mandatory, "ruleIsOptional=\"t\""), 4);
  EXPECT_EQ(Count(editable, "ruleIsOptional=\"t\""), 7);
  EXPECT_NE(mandatory.find("\n<excludefname_rule plat=\"mac\" osVers=\"*\"  ruleIsOptional=\"f\" "
                           "skipFirstCharThenStartsWith=\"users/\" contains_1=\"/library/caches/\" contains_2=\"*\" "
                           "doesNotContain=\"*\" endsWith=\"*\" hasFileExtension=\"*\" />\n"),
            mandatory.npos);
}

TEST_F(RuleFilesTest, CreatesTheFilesAndMergesEveryBlockOnce) {
  fake.WriteFile(kLog, "merged_20200101000000 tqmergeblock=\"001\"\n");
  ASSERT_TRUE(MakeSureExcludeRulesFilesExistIn_tqdata_Folder());
  EXPECT_EQ(fake.ReadFile(kMandatory), MandatoryRulesText().c_str());
  EXPECT_EQ(fake.ReadFile(kLog + ".aside"), "merged_20200101000000 tqmergeblock=\"001\"\n");
  std::string log;
  for (const char* block : {"001", "002", "005", "006", "007", "008"}) {
    log += std::string("merged_20231114221320 tqmergeblock=\"") + block + "\"\n";
  }
  EXPECT_EQ(fake.ReadFile(kLog), log);
  const std::string text = fake.ReadFile(kEditable);
  EXPECT_EQ(Count(text, "<excludefname_rule tqmergeblock=\""), 7);
  EXPECT_EQ(Count(text,
                  "<excludefname_rule tqmergeblock=\"007\" plat=\"mac\" osVers=\"*\"  ruleIsOptional=\"t\" "
                  "skipFirstCharThenStartsWith=\"users/\" contains_1=\"/library/Safari/\""),
            2);
  EXPECT_EQ(Count(text, "merge block"), 0);
  EXPECT_TRUE(text.starts_with(std::string(EditableRulesText().Slice(0, EditableRulesText().Length() - 16))));
  EXPECT_TRUE(text.ends_with(" />\n</tqexclusions>\n"));
  // What the user takes out stays out.
  fake.WriteFile(kEditable, "<tqexclusions>\n</tqexclusions>\n");
  EXPECT_FALSE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  EXPECT_TRUE(MakeSureExcludeRulesFilesExistIn_tqdata_Folder());
  EXPECT_EQ(fake.ReadFile(kEditable), "<tqexclusions>\n</tqexclusions>\n");
  EXPECT_TRUE(Logged("no rules were merged into RAM, so not writing file out to disk, fName=" + kEditable));
  EXPECT_TRUE(Logged("tqmergeblock=008 was already merged at some point in the past, index=6"));
}

TEST_F(RuleFilesTest, MergesOnlyMissingBlocksInFrontOfTheLastEndTag) {
  fake.WriteFile(kEditable, "<!-- </tqexclusions> -->\n<tqexclusions></tqexclusions>tail");
  fake.WriteFile(kLog,
                 "merged_1 tqmergeblock=\"001\"\nmerged_1 tqmergeblock=\"002\"\nmerged_1 tqmergeblock=\"005\"\n"
                 "merged_1 tqmergeblock=\"006\"\nmerged_1 tqmergeblock=\"007\"\n");
  EXPECT_TRUE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  EXPECT_EQ(
      fake.ReadFile(kEditable),
      "<!-- </tqexclusions> -->\n<tqexclusions>\n<excludefname_rule tqmergeblock=\"008\" plat=\"mac\" osVers=\"*\"  "
      "ruleIsOptional=\"t\" skipFirstCharThenStartsWith=\"users/\" "
      "contains_1=\"/library/containers/com.docker.docker/\" "
      "contains_2=\"*\" doesNotContain=\"*\" endsWith=\"*\" hasFileExtension=\"*\" />\n</tqexclusions>tail");
}

TEST_F(RuleFilesTest, MergeBailsOutWithoutChanges) {
  const std::string tail = ", bailing out with false - nothing modified";
  EXPECT_FALSE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  EXPECT_TRUE(Logged(
      "ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, file does not exist, editable rules fileName=" + kEditable +
      tail));
  EXPECT_FALSE(fake.Has(kEditable));
  fake.WriteFile(kEditable, "<tqexclusions>");
  EXPECT_FALSE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  EXPECT_TRUE(Logged("but no end tag </tqexclusions> inside editable rules fileName=" + kEditable + tail));
  fake.WriteFile(kEditable, "<tqexclusions></tqexclusions>");
  fake.WriteFile(kLog, "merged_1 tqmergeblock=\"001\"\n").openErrno = EACCES;
  EXPECT_FALSE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  EXPECT_TRUE(Logged("merge log exists, but could not read logFileName=" + kLog + tail));
  fake.WriteFile(kLog, "");
  fake.fault = [&](std::string_view op, std::string_view path) {
    return op == "rename" && path.ends_with(kEditable) ? EIO : 0;
  };
  EXPECT_FALSE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  EXPECT_EQ(fake.ReadFile(kLog), "");
  EXPECT_EQ(fake.ReadFile(kEditable), "<tqexclusions></tqexclusions>");
  // A merge that cannot be recorded stays merged.
  fake.fault = nullptr;
  fake.WriteFile(kLog, "").linkCount = 2;
  EXPECT_TRUE(MakeSureAllEditableExcludeRuleBlocksAreMerged());
  EXPECT_TRUE(Logged("VERY_BAD failed to append log line to merge_log"));
}

TEST_F(RuleFilesTest, RulesFromTheSettings) {
  WriteSettings(
      "<globalexcludes excludefiletypes=\" ISO,, wab~ ,*\" />\n<do_backup a=\"b\">\n"
      "<tqdirfilter dir=\"/Users/Bob/R&amp;B\" whichfiles=\"none\" />\n<tqdirfilter dir=\"/\" whichfiles=\"none\" />\n"
      "<tqdirfilter dir=\"/a\" whichfiles=\"NONE\" />\n<tqdirfilter dir=\"\" whichfiles=\"none\" />\n"
      "<tqdirfilter dir=\"b\" whichfiles=\"none\" />\n<tqdirfilter dir=\"/all/\" whichfiles=\"all\" />\n"
      "<tqdirfilter dir=\"/x/\" />\n<tqdirfilter whichfiles=\"none\" />\n</do_backup>\n");
  const auto line = [](const std::string& prefix, const std::string& extension) {
    return "<excludefname_rule plat=\"mac\" osVers=\"*\"  ruleIsOptional=\"t\" skipFirstCharThenStartsWith=\"" +
           prefix + "\" contains_1=\"*\" contains_2=\"*\" doesNotContain=\"*\" endsWith=\"*\" hasFileExtension=\"" +
           extension + "\" />\n";
  };
  TqString text;
  ASSERT_TRUE(ParseTqInfo_MakeIntoExcludeFileNameRulesXml(text));
  EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\" ?> \n\n<tqexclusions>\n" + line("*", "iso") + line("*", "wab~") +
                line("users/bob/r&amp;b/", "*") + line("a/", "*") + "</tqexclusions>\n",
            text.c_str());
  EXPECT_EQ(CountLogged("attribute is TOO SHORT on \"tqdirfilter\" in tqinfo file: " + Data("tqinfo.xml")), 2);
  EXPECT_EQ(CountLogged("skipping excludefiletypes entry \"*\""), 1);
  EXPECT_EQ(CountLogged("skipping exclusion because no \""), 2);
}

TEST_F(RuleFilesTest, RulesFromTheSettingsAreRetriedAndLimited) {
  TqString text("old");
  EXPECT_FALSE(ParseTqInfo_MakeIntoExcludeFileNameRulesXml(text));
  EXPECT_FALSE(text.Contains("old"));
  EXPECT_TRUE(Logged("ParseTqInfo_MakeIntoExcludeFileNameRulesXml no tqinfo.xml found at: "));
  std::string types;
  for (int i = 0; i < 9998; ++i) types += "," + std::to_string(i);
  WriteSettings("<globalexcludes excludefiletypes=\"" + types +
                "\" />\n<tqdirfilter dir=\"/gone/\" whichfiles=\"none\" />\n");
  fake.Find(Data("tqinfo.xml"))->openErrno = EACCES;
  EXPECT_FALSE(ParseTqInfo_MakeIntoExcludeFileNameRulesXml(text));
  EXPECT_EQ(CountLogged("could not read tqinfo.xml so pausing and trying again found at: "), 17);
  EXPECT_EQ(CountLogged("could not read tqinfo.xml after 17 tries, found at: "), 1);
  fake.onSleep = [&](std::int64_t) { fake.Find(Data("tqinfo.xml"))->openErrno = 0; };
  EXPECT_TRUE(ParseTqInfo_MakeIntoExcludeFileNameRulesXml(text));
  EXPECT_EQ(Count(text.c_str(), "<excludefname_rule "), 9997);
  EXPECT_FALSE(text.Contains("gone/"));
  EXPECT_EQ(CountLogged("more than 9997 rules, so ignoring the rest"), 1);
}

TEST_F(RuleFilesTest, FiltersMoveBetweenSettingsTexts) {
  const TqString from(
      "<t>\n<tqdirfilter dir=\"/a/\" whichfiles=\"docs\" />\n<tqdirfilter dir=\"/new/\" whichfiles=\"none\" />");
  TqString to(
      "<t>\n<do_backup x=\"y\">\n    <tqdirfilter dir=\"/A/\" whichfiles=\"all\" /> \n"
      "    <tqdirfilter dir=\"/b/\" whichfiles=\"none\" /> \n</do_backup>  \n</t>");
  ASSERT_TRUE(MergeTqInfoTqDirFilter(from, to));
  EXPECT_STREQ(to.c_str(),
               "<t>\n<do_backup x=\"y\">\n    <tqdirfilter dir=\"/a/\" whichfiles=\"docs\" /> \n"
               "    <tqdirfilter dir=\"/b/\" whichfiles=\"none\" /> \n"
               "    <tqdirfilter dir=\"/new/\" whichfiles=\"none\" /> \n</do_backup>  \n</t>");
  const struct {
    const char* from;
    const char* to;
    const char* error;
  } bad[] = {{"<t>", " <tqdirfilter />", "no tqdirfilter found (tqinfoFrom)"},
             {" <tqdirfilter />", "<t>", "no tqdirfilter found (tqinfoTo)"},
             {" <tqdirfilter />", " <tqdirfilter />", "cannot find <do_backup>"},
             {" <tqdirfilter />", " <tqdirfilter /><do_backup", "malformed <do_backup> tag"},
             {" <tqdirfilter />", " <tqdirfilter /><do_backup>", "cannot find </do_backup> end tag"}};
  for (const auto& c : bad) {
    TqString target(c.to);
    EXPECT_FALSE(MergeTqInfoTqDirFilter(c.from, target));
    EXPECT_TRUE(Logged(std::string("ERROR: TqInfoManager::MergeTqInfoTqDirFilter - ") + c.error));
    EXPECT_STREQ(target.c_str(), c.to);
  }
}

}  // namespace
