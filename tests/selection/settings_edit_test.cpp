#include "selection/settings_edit.h"

#include "selection/settings_text.h"
#include "tests/selection/selection_fixture.h"

using namespace TqInfoManager;

constexpr const char* kVguidA = "v000aaaaaaaaaaaaaaaaaaaaaaaa";
constexpr const char* kVguidB = "v001bbbbbbbbbbbbbbbbbbbbbbbb";

class SettingsEditTest : public SelectionTest {
 protected:
  SettingsEditTest() { Write(before = DefaultTqInfoText({{kVguidA, "/"}}, {kVguidA, "/"}, "Bob's <Mac>").c_str()); }
  void Write(const std::string& text) { fake.WriteFile(Data("tqinfo.xml"), text); }
  std::string Text() { return fake.ReadFile(Data("tqinfo.xml")); }
  /// `text` with its first `from` replaced.
  static std::string With(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
  }
  /// The edit must change nothing but one place of the file.
  void ExpectChange(bool edited, const std::string& from, const std::string& to) {
    EXPECT_TRUE(edited);
    EXPECT_EQ(Text(), With(before, from, to));
    before = Text();
    EXPECT_FALSE(fake.Has(Data("tqinfo.xml.tmp")));
  }
  std::string before;  ///< as the last step left it
};

TEST_F(SettingsEditTest, DefaultFileReadsBackAsStated) {
  ASSERT_TRUE(ReadControlPanelSettingsFromTqInfoXmlFile());
  const TqInfoSettings& read = Settings();
  EXPECT_EQ(Joined(read.onlineHostname, " ", read.login, " ", read.numDaysWarnIfNoBackup, " ", read.maxFileSizeMb, " ",
                   read.numBackupThreads, " ", read.scheduleType, " ", read.scratchVguid),
            "Bob's <Mac> unspecified 7 1000000000 8 continuously v000aaaaaaaaaaaaaaaaaaaaaaaa");
  EXPECT_TRUE(read.allowNetworkTests && read.showHelpTips && read.backupOnBattery && read.netAutoThrottle);
  EXPECT_FALSE(read.useTimeMachineExcludes);
  EXPECT_TRUE(read.smartWatchDocs && read.smartWatchBrowserFavorites && read.smartWatchSpreadsheets);
  EXPECT_TRUE(read.excludedFileTypes.StartsWith("wab~,vmc,") && read.excludedFileTypes.EndsWith(",nvram,hdd"));
  ASSERT_EQ(read.selectedVolumes.size(), 1U);
  EXPECT_EQ(read.selectedVolumes[0].mountPoint, "/");
  std::vector<FileSetDef> sets;
  ASSERT_TRUE(ReadFileSetDefs(sets));
  ASSERT_EQ(sets.size(), 11U);
  EXPECT_EQ(Joined(sets[0].extensions.Count(), " ", sets[10].name), "38 usercustom01");
  std::vector<TqWatchedDir> dirs;
  ASSERT_TRUE(ParseTqInfoForFilesToWatch(dirs));
  ASSERT_EQ(dirs.size(), 17U);
  EXPECT_EQ(Joined(dirs[0].dir, " ", dirs[16].dir), "/ /home/");
  EXPECT_TRUE(dirs[0].all && dirs[16].none);
  EXPECT_TRUE(
      Text().ends_with("\n    <tqdirfilter dir=\"/home/\" whichfiles=\"none\" /> \n</do_backup>  \n\n</tqinfo>\n"));
}

TEST_F(SettingsEditTest, SetterChangesItsOwnBytesAlone) {
  ExpectChange(SetNumDaysWarnWhenNotBackedUp(-3), "backup=\"7\"", "backup=\"-3\"");
  ExpectChange(SetShowAnimatedHelpTips(false), "show_help_tips=\"true\"", "show_help_tips=\"false\"");
  const std::size_t types = before.find("wab~,vmc,");
  ExpectChange(SetFileTypesToExcludeStr("a\"<&>'"), before.substr(types, before.find('"', types) - types),
               "a&quot;&lt;&amp;&gt;&apos;");
  ExpectChange(SetOnlineNameForThisComputer("/> x"), "\"Bob&apos;s &lt;Mac&gt;\" tqlogin=\"unspecified\"",
               "\"/&gt; x\" tqlogin=\"unspecified\" online_hostname_updated=\"20231114221320\"");
  ExpectChange(SaveUsernamePasswordIntoTqInfoXml("bob", "secret"), "\"unspecified\"", "\"bob\"");
  ExpectChange(SetBackupSchedule("when_idle", "noon", "5"),
               "continuously\" backup_schedule_detail=\"none\" backup_schedule_end_hour=\"none\"",
               "when_idle\" backup_schedule_detail=\"noon\" backup_schedule_end_hour=\"5\"");
  ExpectChange(SetBlockedNetworkList({{"Cafe \"1\"", "a1-b2"}}), "</tqinfo>",
               "<network_block_list>\n    <tqblocked_network blocked_network_name=\"Cafe &quot;1&quot;\" "
               "blocked_network_mac_addr=\"a1-b2\" />\n</network_block_list>\n\n</tqinfo>");
  ExpectChange(
      SetBlockedNetworkList({}),
      "\n    <tqblocked_network blocked_network_name=\"Cafe &quot;1&quot;\" blocked_network_mac_addr=\"a1-b2\" />", "");
  ExpectChange(SetOneTqDirFilter("/HOME/", "docs"), "<tqdirfilter dir=\"/home/\" whichfiles=\"none\" />",
               "<tqdirfilter dir=\"/home/\" whichfiles=\"docs\" />");
  ExpectChange(SetOneTqDirFilter("/new/", "all"), "</do_backup>",
               "    <tqdirfilter dir=\"/new/\" whichfiles=\"all\" /> \n</do_backup>");
}

TEST_F(SettingsEditTest, OldFilesGetWhatTheyLack) {
  Write(before = "<myprefs\tshow_help_tips=\"a > b\"  /><hard_drives_to_backup></hard_drives_to_backup>");
  ExpectChange(SetNumDaysWarnWhenNotBackedUp(3), "\"  />", "\" numdays_warn_if_no_backup=\"3\"  />");
  ExpectChange(SetShowAnimatedHelpTips(true), "\"a > b\"", "\"true\"");
  ExpectChange(SetScratchVolume("v000", "/"), "<hard_drives",
               "<scratch_drive scratch_vol_guid=\"v000\" scratch_mountpoint=\"/\" />\n\n<hard_drives");
}

TEST_F(SettingsEditTest, ElementsOfOtherHandsKeepTheirForm) {
  Write(before =
            "<do_backup a=\"b\"><tqdirfilter dir=\"/A/\" whichfiles=\"all\" x=\"y\"></tqdirfilter><tqdirfilter "
            "whichfiles=\"docs\" dir=\"/b/\" /><tqdirfilter dir=\"/c/\" ></tqdirfilter></do_backup>"
            "<network_block_list x=\"y\" /></tqinfo>");
  ExpectChange(SetOneTqDirFilter("/a/", "none"), "\"all\" x", "\"none\" x");
  ExpectChange(SetOneTqDirFilter("/b/", "music"), "\"docs\" dir", "\"music\" dir");
  ExpectChange(SetOneTqDirFilter("/c/", "all"), "\"/c/\" >", "\"/c/\" whichfiles=\"all\" >");
  ExpectChange(SetBlockedNetworkList({{"n", "m"}}), "x=\"y\" />",
               "x=\"y\">\n    <tqblocked_network blocked_network_name=\"n\" blocked_network_mac_addr=\"m\" />\n"
               "</network_block_list>");
  ExpectChange(SetBlockedNetworkList({{"o", "m"}}), "name=\"n\"", "name=\"o\"");
  Write(before =
            "<do_backup a=\"b\"><tqdirfilter dir=\"/d/\" whichfiles=\"all /><tqdirfilter dir=\"/e/\" "
            "whichfiles=\"all\" /></do_backup><network_block_list></tqinfo>");
  ExpectChange(SetOneTqDirFilter("/d/", "docs"), "\"all />", "\"docs\" />");
  EXPECT_FALSE(SetBlockedNetworkList({}));
  EXPECT_EQ(Text(), before);
  ExpectLogged({"SetBlockedNetworkList - could not find </network_block_list> in: "});
  // A selected volume whose only filter ends in an end tag gets no others.
  Write(before = std::string("<mountpoints mountpoints_to_watch=\"/\" /><hard_drives_to_backup>\n    <tqvolume "
                             "tqVolumeGuid=\"") +
                 kVguidA +
                 "\" mountPointPath=\"/\" />\n</hard_drives_to_backup><do_backup a=\"b\">"
                 "<tqdirfilter dir=\"/\" whichfiles=\"all\"></tqdirfilter></do_backup></tqinfo>");
  EXPECT_TRUE(WriteSelectedVolumes({{kVguidA, "/"}}));
  EXPECT_EQ(Text(), before);
}

TEST_F(SettingsEditTest, SelectionKeepsFiltersAndAddsThoseOfNewVolumes) {
  ASSERT_TRUE(WriteSelectedVolumes({{kVguidA, "/"}, {kVguidB, "/Volumes/B & C/"}}));
  std::string filters;
  for (const TqDirFilter& filter : DefaultDirFilters("/volumes/b &amp; c/")) {
    filters += Joined("    <tqdirfilter dir=\"", filter.dir, "\" whichfiles=\"", filter.whichFiles, "\" /> \n").c_str();
  }
  std::string expected = With(before, "mountpoints_to_watch=\"/\"", "mountpoints_to_watch=\"/,/Volumes/B &amp; C/\"");
  expected = With(expected, "</hard_drives",
                  std::string("    <tqvolume tqVolumeGuid=\"") + kVguidB +
                      "\" mountPointPath=\"/Volumes/B &amp; C/\" />\n</hard_drives");
  EXPECT_EQ(Text(), With(expected, "</do_backup>", filters + "</do_backup>"));
  ASSERT_TRUE(WriteSelectedVolumes({{kVguidA, "/"}}));
  EXPECT_EQ(Text(), With(before, "</do_backup>", filters + "</do_backup>")) << "no filter is ever removed";
}

TEST_F(SettingsEditTest, RefusalsLeaveTheFileAsItIs) {
  EXPECT_FALSE(WriteSelectedVolumes({}));
  std::vector<TqDirFilter> filters(TQ_INFO_MAX_NUM_DIR_FILTERS, {"/a/", "all"});
  ASSERT_TRUE(SaveTqDirFiltersToDisk(filters));
  before = Text();
  EXPECT_FALSE(SetOneTqDirFilter("/new/", "all"));
  EXPECT_FALSE(WriteSelectedVolumes({{kVguidB, "/Volumes/B/"}})) << "17 filters more";
  EXPECT_EQ(Text(), before);
  EXPECT_TRUE(SetOneTqDirFilter("/A/", "none"));
  EXPECT_TRUE(
      Logged("adding more than TQ_INFO_MAX_NUM_DIR_FILTERS=9999 tqdirfilters, so ignoring the rest - location C"));

  Write(before = "<tqinfo>\n<do_backup_more />\n</tqinfo>\n");
  EXPECT_FALSE(SetBackupSchedule("a", "b", "c") || SetOneTqDirFilter("/", "all") || SetOnlineNameForThisComputer("x"));
  EXPECT_FALSE(SetScratchVolume(kVguidA, "/") || WriteSelectedVolumes({{kVguidA, "/"}}));
  Write(before = "<myprefs />");
  Fail("rename", "");
  EXPECT_FALSE(SetShowAnimatedHelpTips(true));
  ExpectLogged({"could not find <do_backup in: ", "could not find <myidentity in: ",
                "could not find <hard_drives_to_backup> in: ", "could not atomic swap in tqinfo.xml from file: "});
  fake.fault = nullptr;
  fake.diskBytesLeft = 5;
  EXPECT_FALSE(SetShowAnimatedHelpTips(true));
  EXPECT_EQ(Text(), before);
  EXPECT_FALSE(fake.Has(Data("tqinfo.xml.tmp")));
}
