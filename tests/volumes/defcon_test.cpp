#include "volumes/defcon.h"

#include <array>

#include "tests/volumes/volumes_fixture.h"

using namespace TqUiUtil;

class DefconTest : public VolumesTest {
 protected:
  /// A list of the disk whose first line holds that start time.
  void WriteList(const std::string& started) {
    fake.WriteFile(diskList, "# GmtMillisThisListWasStarted: " + started + "\nnext line\n");
  }
  void WritePushed(const std::string& vguid, const std::string& millis) {
    fake.WriteFile(Data("tqlogs/tqreports_lastfilestransmitted/tqstat_pervol_" + vguid + "_latest_file.xml"),
                   "<x gmt_millis=\"" + millis + "\" />");
  }
  std::string DaysAgoHex(std::int64_t days) const { return Hex16(fake.nowMillis - days * kDay).c_str(); }
  /// A defcon file of entries {vguid, mount point as hex, level, days since listed}.
  void WriteDefcon(const std::string& critical, const std::vector<std::array<std::string, 4>>& entries) {
    std::string text = "<contents>\n<volume_defcon_summary most_critial_volume_defcon=\"" + critical + "\" />\n";
    for (const auto& [vguid, hex, level, listed] : entries) {
      text += "<tqvolume tqVolumeGuid=\"" + vguid + "\" mountPointPathHex=\"" + hex + "\" vol_defcon_level=\"" + level +
              "\" vol_last_seen_in_days=\"1\" vol_last_filelisted_in_days=\"" + listed +
              "\" vol_last_file_pushed_in_days=\"-1\" />\n";
    }
    fake.WriteFile(file, text + "</contents>\n");
  }
  bool ReadFails(const std::string& reason) {
    summary = -1;
    Add(list, kDiskGuid, "/");
    const bool read = TqVolDefcon_HitDisk_ReadTqDefconXmlFile(&summary, &list);
    return !read && summary == -1 && list.Count() == 0 &&
           Logged("ERROR: TqUiUtil::TqVolDefcon_HitDisk_ReadTqDefconXmlFile - " + reason);
  }
  const std::string file = Data("tqreports/tqdefcon.xml");
  const std::string diskList = Data("tqfilelists/v001aaaaaaaaaaaaaaaaaaaaaaaa_disk_filelist.dat");
  std::int32_t summary = -1;
  TqVolumeInfoList list;
};

TEST_F(DefconTest, LevelsByDays) {
  for (const auto& [seen, listed, pushed, level] :
       {std::array{-1, 7, 7, 5}, {0, 8, 0, 4}, {15, 0, 0, 3}, {28, 28, 28, 2}, {0, 0, 29, 1}}) {
    EXPECT_EQ(DefconLevelFor(seen, listed, pushed), level);
  }
}

TEST_F(DefconTest, UpdateWritesTheExactFile) {
  WriteSettingsFile({{kDiskGuid, "/Volumes/Disk/"}, {kOtherGuid, "/O/"}});
  WriteRegistry({{kDiskGuid, "/Volumes/Disk/"}}, fake.nowMillis - 3 * kDay - 1);
  WriteList(DaysAgoHex(16) + ", GmtDateTime: 20231029221320");
  WritePushed(kDiskGuid, DaysAgoHex(2));
  WritePushed(kOtherGuid, "none");
  ASSERT_TRUE(TqVolDefcon_UpdateTqVolumesDefconXmlFile());
  EXPECT_EQ(
      fake.ReadFile(file),
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<volume_defcon_summary most_critial_volume_defcon="
      "\"3\" />\n<tqvolume tqVolumeGuid=\"v001aaaaaaaaaaaaaaaaaaaaaaaa\" mountPointPathHex="
      "\"2f566f6c756d65732f4469736b2f\" vol_defcon_level=\"3\" vol_last_seen_in_days=\"3\" "
      "vol_last_filelisted_in_days=\"16\" vol_last_file_pushed_in_days=\"2\" />\n<tqvolume tqVolumeGuid="
      "\"v002bbbbbbbbbbbbbbbbbbbbbbbb\" mountPointPathHex=\"2f4f2f\" vol_defcon_level=\"5\" vol_last_seen_in_days="
      "\"-1\" vol_last_filelisted_in_days=\"-1\" vol_last_file_pushed_in_days=\"-1\" />\n</contents>\n");
}

TEST_F(DefconTest, TimesAreHexadecimalAtSixteenDigitsElseDecimal) {
  WriteSettingsFile({{kDiskGuid, "/Volumes/Disk/"}});
  WriteRegistry({{kDiskGuid, "/Volumes/Disk/"}}, fake.nowMillis);
  WritePushed(kDiskGuid, std::to_string(fake.nowMillis - 10 * kDay));
  const auto rated = [&](const std::string& started) {
    WriteList(started);
    if (!TqVolDefcon_UpdateTqVolumesDefconXmlFile()) return std::string("abandoned");
    EXPECT_TRUE(TqVolDefcon_HitDisk_ReadTqDefconXmlFile(&summary, &list));
    return std::to_string(list.Get(0)->lastFileListedInDays) + "/" + std::to_string(list.Get(0)->lastFilePushedInDays);
  };
  EXPECT_EQ(rated(DaysAgoHex(1)), "1/10");  // as in a stub, without a date text
  EXPECT_EQ(rated(std::to_string(fake.nowMillis - 4 * kDay) + " ,"), "4/10");
  EXPECT_EQ(rated(DaysAgoHex(9001)), "9001/10");
  EXPECT_FALSE(Logged("24_years"));
  EXPECT_EQ(rated("0000000000000000, x"), "9001/10");
  EXPECT_TRUE(Logged("- more than 24_years since filelist was generated, mountName=/Volumes/Disk/"));
  EXPECT_EQ(rated("18bcfe56800, x"), "abandoned");
}

TEST_F(DefconTest, AVolumeThatCannotBeRatedLeavesTheOldFile) {
  fake.WriteFile(file, "old");
  const auto updateFails = [&] { return !TqVolDefcon_UpdateTqVolumesDefconXmlFile() && fake.ReadFile(file) == "old"; };
  EXPECT_TRUE(updateFails());  // no settings
  WriteSettingsFile({{kOtherGuid, "/O/"}, {kDiskGuid, "/Volumes/Disk/"}});
  WriteRegistry({});
  WritePushed(kOtherGuid, "1");
  WriteList(DaysAgoHex(1));
  EXPECT_TRUE(updateFails() && Logged("tqstat_pervol_latest_file.xml not found here: " + Data("tqlogs/")));
  WritePushed(kDiskGuid, "1");
  fake.WriteFile(diskList, "# Dir: /\n");
  EXPECT_TRUE(updateFails() && Logged(", so bailing out, mountName=/Volumes/Disk/, firstLine=# Dir: /"));
  fake.sleepsMicros.clear();
  fake.WriteFile(diskList, "");
  EXPECT_TRUE(updateFails() && fake.sleepsMicros == std::vector<std::int64_t>(9, 1'000'000));
  WriteSettingsFile({});
  EXPECT_TRUE(TqVolDefcon_UpdateTqVolumesDefconXmlFile());
  EXPECT_TRUE(ReadFails("most_critial_volume_defcon out_of_range fName="));  // 6: nothing was rated
}

TEST_F(DefconTest, DamagedFilesAreRefused) {
  EXPECT_TRUE(ReadFails("tqdefcon.xml file did not exist fName="));
  WriteDefcon("0", {{kDiskGuid, "2f", "4", "9"}});
  EXPECT_TRUE(ReadFails("most_critial_volume_defcon out_of_range fName="));
  WriteDefcon("4", {{kDiskGuid, "2f", "4", "9"}, {kOtherGuid, "2", "4", "9"}});
  EXPECT_TRUE(ReadFails("read tqdefcon.xml file, but problem parsing mountPointPathHex for i=1"));
  WriteDefcon("4", {{kDiskGuid, "2f", "4", "many"}});
  EXPECT_TRUE(ReadFails("read tqdefcon.xml file, but problem parsing vol_last_filelisted_in_days for i=0"));
}

TEST_F(DefconTest, CacheLastsFiveMinutes) {
  const auto read = [&] { return TqVolDefcon_CacheForFiveMinutes_ReadTqDefconXmlFile(&summary, &list); };
  EXPECT_FALSE(read());
  WriteDefcon("4", {{kDiskGuid, "2f", "4", "9"}});
  EXPECT_TRUE(read());
  WriteDefcon("2", {{kDiskGuid, "2f", "2", "9"}});
  fake.nowMillis += 300'000;
  EXPECT_TRUE(read() && summary == 4 && Summary(list) == "v001 /;");
  fake.nowMillis += 1;
  EXPECT_TRUE(read() && summary == 2);
}

TEST_F(DefconTest, TheOldestListOfAnAttachedElevatedVolumeWins) {
  const std::string hexA = "2f566f6c756d65732f412f", hexB = "2f566f6c756d65732f422f";
  AddIdentified("/Volumes/A", kDiskGuid);
  AddIdentified("/Volumes/B", kOtherGuid);
  const auto chosen = [&](const std::vector<std::array<std::string, 4>>& entries, const char* critical = "1") {
    WriteDefcon(critical, entries);
    ForgetDefconCache();
    TqVolumeInfo volume;
    const bool found = TqVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached(volume);
    EXPECT_EQ(found, volume.volumeIsCurrentlyConnected && volume.defconLevel > 0);
    return std::string(volume.mountPointPath.c_str());
  };
  EXPECT_EQ(chosen({{kDiskGuid, hexA, "1", "8"}}), "/Volumes/A/");
  EXPECT_EQ(chosen({{kDiskGuid, hexA, "1", "7"}}), "");
  EXPECT_EQ(chosen({{kDiskGuid, hexA, "5", "9"}}), "");
  EXPECT_EQ(chosen({{kDiskGuid, hexA, "1", "9"}}, "5"), "");
  EXPECT_EQ(chosen({{kDiskGuid, hexA, "4", "20"}, {kOtherGuid, hexB, "1", "9"}}), "/Volumes/A/");
  EXPECT_EQ(chosen({{kDiskGuid, hexA, "4", "9"}, {kOtherGuid, hexB, "4", "9"}}), "/Volumes/B/");
  EXPECT_EQ(chosen({{kDiskGuid, hexA, "4", "9"}, {kDiskGuid, hexB, "1", "30"}}), "/Volumes/A/");  // B is another drive
  fake.Unmount("/Volumes/B");
  EXPECT_EQ(chosen({{kDiskGuid, hexA, "4", "9"}, {kOtherGuid, hexB, "1", "30"}}), "/Volumes/A/");
}
