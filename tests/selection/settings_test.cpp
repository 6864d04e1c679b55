#include "selection/settings.h"

#include "tests/selection/selection_fixture.h"

using namespace TqInfoManager;

const std::string kVguid = "v00012345678901234567890123a";

class SettingsTest : public SelectionTest {
 protected:
  const TqInfoSettings& Read(const std::string& elements) {
    WriteSettings(elements);
    EXPECT_TRUE(ReadControlPanelSettingsFromTqInfoXmlFile());
    return Settings();
  }
  const TqInfoSettings& ReadOne(const std::string& name, const std::string& value) {
    return Read("<p " + name + "=\"" + value + "\" />");
  }
  static std::string Volume(const std::string& vguid, const std::string& mountPoint) {
    return "<tqvolume tqVolumeGuid=\"" + vguid + "\" mountPointPath=\"" + mountPoint + "\" />";
  }
};

TEST_F(SettingsTest, NumbersHaveTheirBoundsAndFallbacks) {
  for (const auto& [value, days] : {std::pair{"3", 3U}, {"30", 7}, {"-1", 7}, {"x", 7}, {"99999999999", 7}}) {
    EXPECT_EQ(ReadOne("numdays_warn_if_no_backup", value).numDaysWarnIfNoBackup, days) << value;
  }
  for (const auto& [value, threads] :
       {std::pair{"200", 200}, {"0", 8}, {"201", 8}, {"none", 8}, {"", 8}, {"x", 8}, {" 5 ", 5}}) {
    EXPECT_EQ(ReadOne("num_backup_threads", value).numBackupThreads, threads) << value;
  }
  EXPECT_EQ(Read("<p />").numBackupThreads, 5);
  EXPECT_EQ(ReadOne("net_auto_throttle", "True").numBackupThreads, 8);
  for (const auto& [value, bytes] :
       {std::pair{"none", 1'048'576'000'000'000}, {"12 MB", 4'194'304'000}, {"70000", 73'400'320'000}}) {
    EXPECT_EQ(ReadOne("max_filesize_mb", value).MaxFileSizeBytes(), bytes) << value;
  }
  EXPECT_TRUE(ReadOne("net_throttle", "x").netThrottle == 50 && ReadOne("net_throttle", "+20").netThrottle == 20);
}

TEST_F(SettingsTest, MissingAttributesKeepTheirSettingUnlessTheyHaveADefault) {
  Read(
      "<p allow_network_tests=\"no\" use_time_machine_excludes=\"T\" backup_on_battery=\"False\"\n"
      "backup_schedule_type=\"when_idle\" backup_schedule_detail=\"noon\" online_hostname=\"A &amp; B\"\n"
      "scratch_vol_guid=\"x00012345678901234567890123a\" smartwatchfilesets=\"docs,video\" />");
  EXPECT_TRUE(!Settings().allowNetworkTests && !Settings().backupOnBattery && !Settings().netAutoThrottle);
  EXPECT_EQ(Joined(Settings().scheduleDetail, Settings().scratchVguid), "noonv000000000000000000000000000");
  EXPECT_TRUE(Settings().smartWatchDocs && Settings().smartWatchVideo && !Settings().smartWatchMusic);
  ReadOne("backup_schedule_type", "sometimes");
  EXPECT_EQ(Joined(Settings().scheduleType, Settings().scheduleDetail, Settings().onlineHostname),
            "when_idlenoneA & B");
  EXPECT_TRUE(Settings().backupOnBattery && Settings().useTimeMachineExcludes);
}

TEST_F(SettingsTest, SelectedVolumesAndBlockedNetworks) {
  Read(Volume(kVguid, "/") + Volume(kVguid.substr(1), "/27") + Volume(kVguid, "/again") +
       Volume(std::string(28, 'b'), "") + Volume("v000/../../../../etc/passwd0", "/Volumes/P") +
       "<tqvolume mountPointPath=\"/x\" /><tqvolume tqVolumeGuid=\"" + kVguid + "\" />" +
       Volume(std::string(28, 'c'), "/Volumes/C") +
       "<tqblocked_network blocked_network_name=\"Cafe\" blocked_network_mac_addr=\"00:11\" />"
       "<tqblocked_network blocked_network_name=\"\" blocked_network_mac_addr=\"00:12\" />"
       "<tqblocked_network blocked_network_name=\"Short\" blocked_network_mac_addr=\"0\" />"
       "<tqblocked_network blocked_network_name=\"None\" />");
  EXPECT_TRUE(Settings().selectedVolumes.size() == 2 && Settings().selectedVolumes[1].mountPoint == "/Volumes/C");
  EXPECT_EQ(Settings().blockedNetworks.size(), 1u);
  const std::string bogus = "TqInfoXmlFile - bogus <tqvolume ... /> tag in tqinfo.xml ";
  const std::string network = "TqInfoXmlFile - bad XML with ";
  ExpectLogged({bogus + "no vGuid: <", bogus + "bad vGuid: <", bogus + "no mnt: <", bogus + "bad mnt: <",
                "TqInfoXmlFile - removing dup tqvolume tqVolGuid=" + kVguid + ", mountPoint=/again",
                network + "no blocked_network_mac_addr=", network + "too short blocked_network_mac_addr=",
                network + "too short blocked_network_name="});
}

TEST_F(SettingsTest, AFailedReadChangesNothing) {
  EXPECT_FALSE(ReadControlPanelSettingsFromTqInfoXmlFile() || Settings().wereRead);
  Read(Volume(kVguid, "/"));
  fake.WriteFile(Data("tqinfo.xml"), "");
  EXPECT_FALSE(ReadControlPanelSettingsFromTqInfoXmlFile());
  EXPECT_TRUE(Settings().selectedVolumes.size() == 1 && SettingsText().Contains(kVguid));
  EXPECT_TRUE(ReadOne("tqserv_long_term_mode_override", "slow").selectedVolumes.empty());
  EXPECT_EQ(GetTqservLongTermModeOverride(), "slow");
  const std::string path = Data("tqinfo.xml");
  ExpectLogged({"tqinfo.xml file does not exist here=" + path + ", which is normal in the installer, but bad",
                "ERROR: could not read tqinfo.xml file from disk 1: " + path,
                "found no <tqvolume ... /> tags in tqinfo.xml which is bad."});
}

TEST_F(SettingsTest, FilesToWatch) {
  std::vector<TqWatchedDir> dirs(1);
  EXPECT_FALSE(ParseTqInfoForFilesToWatch(dirs));
  WriteSettings(
      "<filesetdef filesetname=\"docs\" extensions=\"DOC, txt,\" /><filesetdef filesetname=\"music\" "
      "extensions=\" mp3\" /><s smartwatchfilesets=\"docs,music\" /><tqdirfilter dir=\"/outside/\" "
      "whichfiles=\"all\" /><do_backup a=\"b\"><tqdirfilter dir=\"/Users/\" whichfiles=\"smartwatchfilesets\" />"
      "<tqdirfilter dir=\"/x/\" whichfiles=\"None,,\" /><tqdirfilter dir=\"/y/\" whichfiles=\"*\" />"
      "<tqdirfilter dir=\"/z/\" whichfiles=\"odd, Music\" /><tqdirfilter whichfiles=\"all\" /></do_backup>");
  ASSERT_TRUE(ParseTqInfoForFilesToWatch(dirs) && dirs.size() == 4);
  const auto& extensions = dirs[0].extensions;  // a lone one (" mp3") is not trimmed
  EXPECT_EQ(Joined(dirs[0].dir, extensions.At(0), extensions.At(1), extensions.At(2)), "/users/doctxt mp3");
  EXPECT_TRUE(dirs[1].none && !dirs[1].all && dirs[2].all && dirs[3].extensions.Count() == 1);
  ExpectLogged({"contains a fileset that does not make sense: odd, tqdirfilter=<tqdirfilter dir=\"/z/\"",
                "XmlSnippet NO dir in this tqdirfilter snippet: <tqdirfilter whichfiles",
                "ERROR: no excludefiletypes tag in tqinfo file: " + Data("tqinfo.xml")});
  std::string many = "<do_backup a=\"b\">";
  for (int i = 0; i < 10'000; ++i) many += "<tqdirfilter dir=\"/" + std::to_string(i) + "/\" whichfiles=\"all\" />";
  const std::string more = "</do_backup><do_backup a=\"b\"><tqdirfilter dir=\"/m/\" whichfiles=\"all\" /></do_backup>";
  WriteSettings(many + more);
  std::vector<TqDirFilter> filters;
  ASSERT_TRUE(ParseTqInfoForFilesToWatch(dirs) && read_tqinfo_tqdirfilter(many, filters));
  EXPECT_TRUE(dirs.size() == 9999 && filters.back().dir == "/9998/");
  const std::string overflow = "found more than TQ_INFO_MAX_NUM_DIR_FILTERS=9999 tqdirfilters, so ignoring the rest";
  EXPECT_TRUE(CountLogged(overflow + " - location A") == 1 && CountLogged(overflow + " - location B") == 1);
}

TEST_F(SettingsTest, EmptyFileTypesAreToldSparingly) {
  WriteSettings("<g excludefiletypes=\"\" />");
  std::vector<TqWatchedDir> dirs;
  const auto parse = [&](int times) {
    for (int i = 0; i < times; ++i) ParseTqInfoForFilesToWatch(dirs);
    return CountLogged("ToWatch processId=12345)  excludefiletypes val zero len (hitWarningCount=");
  };
  EXPECT_TRUE(parse(25) == 20 && CountLogged("logging rate is forced low to prevent log clutter.") == 1);
  fake.nowMillis += 599'999;
  EXPECT_EQ(parse(1), 20);
  fake.nowMillis += 1;
  EXPECT_TRUE(parse(3) == 23 && CountLogged("logging resuming normal rate.") == 1);
}

TEST_F(SettingsTest, FileSetDefinitions) {
  std::vector<FileSetDef> sets(1);
  WriteSettings("<p />");
  EXPECT_TRUE(!ReadFileSetDefs(sets) && sets.empty());
  std::string many = "<filesetdef extensions=\"a\" /><filesetdef filesetname=\"empty\" />";
  for (int i = 2; i < 150; ++i) many += "<filesetdef filesetname=\"s\" extensions=\"A,b\" />";
  WriteSettings(many);
  EXPECT_TRUE(ReadFileSetDefs(sets) && sets.size() == 149 && sets[1].extensions.At(0) == "a");
  EXPECT_FALSE(Logged("clipping to 150!"));
  WriteSettings(many + "<filesetdef filesetname=\"s\" />");
  EXPECT_TRUE(ReadFileSetDefs(sets) && sets.size() == 148);  // 149 elements, one of them nameless
  ExpectLogged({"TqFile::GetAllXmlSnippetsWithTagNameInXmlFile NO filesetdefs in tqinfoFile: " + Data("tqinfo"),
                "ParseTqInfoForFileSetHashes, too many filesetdef definitions, 150 is the max, clipping to 150!",
                "TqFile::GetUniqueStrAttrFromXmlSnippet NO filesetdefs name in this filesetdef snippet: <"});
}
