#include "selection/settings.h"

#include "tests/selection/selection_fixture.h"

namespace {

using namespace TqInfoManager;

const std::string kVguid = "v00012345678901234567890123a";

class SettingsTest : public SelectionTest {
 protected:
  const TqInfoSettings& Read(const std::string& elements) {
    WriteSettings(elements);
    EXPECT_TRUE(ReadControlPanelSettingsFromTqInfoXmlFile());
    return Settings();
  }
  static std::string Volume(const std::string& vguid, const std::string& mountPoint) {
    return "    <tqvolume tqVolumeGuid=\"" + vguid + "\" mountPointPath=\"" + mountPoint + "\" />\n";
  }
};

TEST_F(SettingsTest, NumbersHaveTheirBoundsAndFallbacks) {
  const auto days = [&](const std::string& v) {
    return Read("<p numdays_warn_if_no_backup=\"" + v + "\" />").numDaysWarnIfNoBackup;
  };
  EXPECT_EQ(days("3"), 3u);
  for (const char* v : {"30", "-1", "x", "99999999999"}) EXPECT_EQ(days(v), 7u) << v;
  const auto threads = [&](const std::string& v) {
    return Read("<p num_backup_threads=\"" + v + "\" />").numBackupThreads;
  };
  EXPECT_EQ(threads("200"), 200);
  EXPECT_EQ(threads(" 1 "), 1);
  for (const char* v : {"0", "201", "none", "", "x"}) EXPECT_EQ(threads(v), 8) << v;
  EXPECT_EQ(threads("5"), 5);
  EXPECT_EQ(Read("<p />").numBackupThreads, 5);
  EXPECT_EQ(Read("<p net_auto_throttle=\"True\" />").numBackupThreads, 8);
  const auto size = [&](const std::string& v) { return Read("<p max_filesize_mb=\"" + v + "\" />").maxFileSizeMb; };
  EXPECT_EQ(size("none"), 1'000'000'000);
  EXPECT_EQ(size("12 MB"), 4000);
  EXPECT_EQ(size("70000"), 70000);
  EXPECT_EQ(Settings().MaxFileSizeBytes(), 73'400'320'000);
  EXPECT_EQ(Read("<p net_throttle=\"x\" />").netThrottle, 50);
  EXPECT_EQ(Read("<p net_throttle=\"+20\" />").netThrottle, 20);
}

TEST_F(SettingsTest, MissingAttributesKeepTheirSettingUnlessTheyHaveADefault) {
  Read(
      "<p allow_network_tests=\"False\" use_time_machine_excludes=\"T\" show_help_tips=\"1\" "
      "backup_on_battery=\"False\"\n"
      "backup_schedule_type=\"when_idle\" backup_schedule_detail=\"noon\" online_hostname=\"A &amp; B\" "
      "tqlogin=\"me@x\"\n"
      "excludefiletypes=\"iso\" scratch_vol_guid=\"x00012345678901234567890123a\" smartwatchfilesets=\"docs,video\" "
      "/>\n");
  EXPECT_FALSE(Settings().allowNetworkTests);
  EXPECT_TRUE(Settings().useTimeMachineExcludes);
  EXPECT_FALSE(Settings().showHelpTips);
  EXPECT_FALSE(Settings().backupOnBattery);
  EXPECT_FALSE(Settings().netAutoThrottle);
  EXPECT_STREQ(Settings().scheduleDetail.c_str(), "noon");
  EXPECT_STREQ(Settings().onlineHostname.c_str(), "A & B");
  EXPECT_STREQ(Settings().scratchVguid.c_str(), "v000000000000000000000000000");
  EXPECT_TRUE(Settings().smartWatchDocs && Settings().smartWatchVideo && !Settings().smartWatchMusic);
  Read("<p backup_schedule_type=\"sometimes\" />");
  EXPECT_STREQ(Settings().scheduleType.c_str(), "when_idle");
  EXPECT_STREQ(Settings().scheduleDetail.c_str(), "none");
  EXPECT_TRUE(Settings().backupOnBattery);
  EXPECT_TRUE(Settings().useTimeMachineExcludes);
  EXPECT_STREQ(Settings().login.c_str(), "me@x");
  EXPECT_STREQ(Settings().excludedFileTypes.c_str(), "iso");
}

TEST_F(SettingsTest, SelectedVolumesAndBlockedNetworks) {
  Read(Volume(kVguid, "/") + Volume(kVguid.substr(1), "/27") + Volume(kVguid, "/again") +
       Volume(std::string(28, 'b'), "") + "<tqvolume mountPointPath=\"/x\" /><tqvolume tqVolumeGuid=\"" + kVguid +
       "\" />" + Volume(std::string(28, 'c'), "/Volumes/C") +
       "<tqblocked_network blocked_network_name=\"Cafe\" blocked_network_mac_addr=\"00:11\" />"
       "<tqblocked_network blocked_network_name=\"\" blocked_network_mac_addr=\"00:12\" />"
       "<tqblocked_network blocked_network_name=\"Short\" blocked_network_mac_addr=\"0\" />"
       "<tqblocked_network blocked_network_name=\"None\" />");
  ASSERT_EQ(Settings().selectedVolumes.size(), 2u);
  EXPECT_STREQ(Settings().selectedVolumes[1].mountPoint.c_str(), "/Volumes/C");
  ASSERT_EQ(Settings().blockedNetworks.size(), 1u);
  const std::string bogus =
      "ERROR: TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile - bogus <tqvolume ... /> tag in tqinfo.xml ";
  for (const char* fault : {"no vGuid: <", "bad vGuid: <", "no mnt: <", "bad mnt: <"}) {
    EXPECT_EQ(CountLogged(bogus + fault), 1) << fault;
  }
  EXPECT_EQ(
      CountLogged("ERROR: TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile - removing dup tqvolume tqVolGuid=" +
                  kVguid + ", mountPoint=/again"),
      1);
  for (const char* fault :
       {"no blocked_network_mac_addr=", "too short blocked_network_mac_addr=", "too short blocked_network_name="}) {
    EXPECT_EQ(CountLogged(std::string("ERROR: ReadControlPanelSettingsFromTqInfoXmlFile - bad XML with ") + fault), 1);
  }
}

TEST_F(SettingsTest, AFailedReadChangesNothing) {
  EXPECT_FALSE(ReadControlPanelSettingsFromTqInfoXmlFile());
  EXPECT_TRUE(Logged("WARNING: tqinfo.xml file does not exist here=" + Data("tqinfo.xml") +
                     ", which is normal in the installer"));
  EXPECT_FALSE(Settings().wereRead);
  Read(Volume(kVguid, "/"));
  EXPECT_STREQ(SettingsText().c_str(), fake.ReadFile(Data("tqinfo.xml")).c_str());
  fake.WriteFile(Data("tqinfo.xml"), "");
  EXPECT_FALSE(ReadControlPanelSettingsFromTqInfoXmlFile());
  EXPECT_TRUE(Logged("ERROR: could not read tqinfo.xml file from disk 1: " + Data("tqinfo.xml")));
  EXPECT_EQ(Settings().selectedVolumes.size(), 1u);
  EXPECT_TRUE(SettingsText().Contains(kVguid));
  Read("<p tqserv_long_term_mode_override=\"slow\" />");
  EXPECT_TRUE(Settings().selectedVolumes.empty());
  EXPECT_TRUE(Logged("found no <tqvolume ... /> tags in tqinfo.xml which is bad."));
  EXPECT_STREQ(GetTqservLongTermModeOverride().c_str(), "slow");
}

TEST_F(SettingsTest, FilesToWatch) {
  std::vector<TqWatchedDir> dirs(1);
  EXPECT_FALSE(ParseTqInfoForFilesToWatch(dirs));
  EXPECT_TRUE(dirs.empty());
  WriteSettings(
      "<filesetdef filesetname=\"docs\" extensions=\"DOC, txt,\" /><filesetdef filesetname=\"music\" extensions=\" "
      "mp3\" />\n"
      "<smartwatch smartwatchfilesets=\"docs,music\" />\n<tqdirfilter dir=\"/outside/\" whichfiles=\"all\" "
      "/>\n<do_backup a=\"b\">"
      "<tqdirfilter dir=\"/Users/\" whichfiles=\"smartwatchfilesets\" /><tqdirfilter dir=\"/x/\" whichfiles=\"None,,\" "
      "/>"
      "<tqdirfilter dir=\"/y/\" whichfiles=\"*\" /><tqdirfilter dir=\"/z/\" whichfiles=\"odd, Music\" />"
      "<tqdirfilter whichfiles=\"all\" /></do_backup>\n");
  ASSERT_TRUE(ParseTqInfoForFilesToWatch(dirs));
  ASSERT_EQ(dirs.size(), 4u);
  EXPECT_STREQ(dirs[0].dir.c_str(), "/users/");
  ASSERT_EQ(dirs[0].extensions.Count(), 3);
  EXPECT_STREQ(dirs[0].extensions.At(0).c_str(), "doc");
  EXPECT_STREQ(dirs[0].extensions.At(2).c_str(), " mp3");  // a lone extension is not trimmed
  EXPECT_TRUE(dirs[1].none && !dirs[1].all && dirs[2].all);
  EXPECT_EQ(dirs[3].extensions.Count(), 1);
  EXPECT_TRUE(Logged("contains a fileset that does not make sense: odd, tqdirfilter=<tqdirfilter dir=\"/z/\""));
  EXPECT_TRUE(
      Logged("TqFile::GetUniqueStrAttrFromXmlSnippet NO dir in this tqdirfilter snippet: <tqdirfilter whichfiles"));
  EXPECT_TRUE(Logged("ERROR: no excludefiletypes tag in tqinfo file: " + Data("tqinfo.xml")));
}

TEST_F(SettingsTest, OnlySoManyFilters) {
  std::string filters;
  for (int i = 0; i < 10'000; ++i)
    filters += "<tqdirfilter dir=\"/" + std::to_string(i) + "/\" whichfiles=\"all\" />\n";
  WriteSettings("<do_backup a=\"b\">" + filters + "</do_backup>\n");
  std::vector<TqWatchedDir> dirs;
  ASSERT_TRUE(ParseTqInfoForFilesToWatch(dirs));
  ASSERT_EQ(dirs.size(), 9999u);
  EXPECT_STREQ(dirs[9998].dir.c_str(), "/9998/");
  const std::string overflow =
      "ERROR: parsing tqinfo.xml, found more than TQ_INFO_MAX_NUM_DIR_FILTERS=9999 tqdirfilters, so ignoring the rest "
      "- location ";
  EXPECT_EQ(CountLogged(overflow + "B"), 1);
  std::vector<TqDirFilter> read;
  EXPECT_TRUE(read_tqinfo_tqdirfilter("\n" + filters, read));
  EXPECT_EQ(CountLogged(overflow + "A"), 1);
  EXPECT_FALSE(read_tqinfo_tqdirfilter("<t>", read));
  EXPECT_TRUE(read.empty());
}

TEST_F(SettingsTest, EmptyFileTypesAreToldSparingly) {
  WriteSettings("<globalexcludes excludefiletypes=\"\" />\n");
  std::vector<TqWatchedDir> dirs;
  const auto parse = [&](int times) {
    for (int i = 0; i < times; ++i) ParseTqInfoForFilesToWatch(dirs);
    return CountLogged("excludefiletypes val zero len");
  };
  EXPECT_EQ(parse(25), 20);
  EXPECT_TRUE(
      Logged("WARNING: TqInfoManager::ParseTqInfoForFilesToWatch processId=12345)  excludefiletypes val zero len "
             "(hitWarningCount=20) in tqinfo file : "));
  EXPECT_EQ(CountLogged("logging rate is forced low to prevent log clutter."), 1);
  fake.nowMillis += 599'999;
  EXPECT_EQ(parse(1), 20);
  fake.nowMillis += 1;
  EXPECT_EQ(parse(3), 23);
  EXPECT_EQ(CountLogged("logging resuming normal rate."), 1);
}

TEST_F(SettingsTest, FileSetDefinitions) {
  std::vector<FileSetDef> sets(1);
  WriteSettings("");
  EXPECT_FALSE(ReadFileSetDefs(sets));
  EXPECT_TRUE(sets.empty());
  EXPECT_TRUE(
      Logged("ERROR: ParseTqInfoForFileSetHashes, TqFile::GetAllXmlSnippetsWithTagNameInXmlFile NO filesetdefs in "
             "tqinfoFile: " +
             Data("tqinfo.xml")));
  std::string many = "<filesetdef extensions=\"a\" /><filesetdef filesetname=\"empty\" />";
  for (int i = 2; i < 150; ++i) many += "<filesetdef filesetname=\"s" + std::to_string(i) + "\" extensions=\"A,b\" />";
  WriteSettings(many);
  EXPECT_TRUE(ReadFileSetDefs(sets));
  EXPECT_EQ(sets.size(), 149u);
  EXPECT_EQ(CountLogged("NO filesetdefs name in this filesetdef snippet: <filesetdef extensions=\"a\" />"), 1);
  EXPECT_EQ(sets[0].extensions.Count(), 0);
  EXPECT_STREQ(sets[1].extensions.At(0).c_str(), "a");
  EXPECT_FALSE(Logged("clipping to 150!"));
  WriteSettings(many + "<filesetdef filesetname=\"s150\" />");
  EXPECT_TRUE(ReadFileSetDefs(sets));
  EXPECT_TRUE(
      Logged("ERROR: ParseTqInfoForFileSetHashes, too many filesetdef definitions, 150 is the max, clipping to 150!"));
  EXPECT_EQ(sets.size(), 148u);  // 149 elements, one of them nameless
}

}  // namespace
