#include "volumes/selected_volumes.h"

#include "tests/volumes/volumes_fixture.h"
#include "volumes/drive_summary.h"

class SelectedVolumesTest : public VolumesTest {
 protected:
  /// Summary and abbreviation, joined by a line feed.
  static std::string DriveSummary() {
    TqString summary, abbreviation;
    TqUiUtil::GetHardDriveSummary(summary, abbreviation);
    return Joined(summary, "\n", abbreviation).c_str();
  }
  TqVolumeInfoList list;
};

TEST_F(SelectedVolumesTest, EverySelectedVolumeIsThereAttachedOrNot) {
  EXPECT_FALSE(TqInfoManager::GetVolumesSelectedForBackup(list));
  Select({{kOtherGuid, "/Volumes/Unplugged"}, {kDiskGuid, "/Volumes/Second/"}, {kRootGuid, "/"}});
  AddIdentified("/Volumes/First", kDiskGuid);
  AddIdentified("/Volumes/Unselected", "v009cccccccccccccccccccccccc");
  ASSERT_TRUE(TqInfoManager::GetVolumesSelectedForBackup(list));
  EXPECT_EQ(Summary(list), "v002 /Volumes/Unplugged/;v001 /Volumes/First/;v000 /;");
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(list.Get(i)->volumeIsSelectedForBackup && list.Get(i)->volumeIsCurrentlyConnected == (i > 0)) << i;
  }
  AddIdentified("/Volumes/Second", kDiskGuid);  // a copied drive: the one at the settings' place counts
  EXPECT_TRUE(TqInfoManager::GetVolumesSelectedForBackup(list) && list.Get(1)->mountPointPath == "/Volumes/Second/");
}

TEST_F(SelectedVolumesTest, ListNamesOnlyWhenAllExist) {
  TqStringVector paths;
  const auto get = [&] { return TqUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(paths); };
  EXPECT_FALSE(get());
  WriteSettingsFile({{kRootGuid, "/"}, {kDiskGuid, "/Volumes/Disk/"}});
  fake.WriteFile(ListPath("v000rrrrrrrrrrrrrrrrrrrrrrrr_root"), "#\n");
  EXPECT_TRUE(!get() && paths.Count() == 0);
  fake.WriteFile(ListPath("v001aaaaaaaaaaaaaaaaaaaaaaaa_disk"), "#\n");
  EXPECT_TRUE(get() && paths.Count() == 2 && paths.At(1) == ListPath("v001aaaaaaaaaaaaaaaaaaaaaaaa_disk"));
}

TEST_F(SelectedVolumesTest, DisplayListAndSummary) {
  Select({{kOtherGuid, "/Volumes/Un'plugged/"}, {kDiskGuid, "/Volumes/B/"}});
  AddIdentified("/Volumes/B", kDiskGuid).attributes.totalBytes = std::uint64_t{51} << 30;
  fake.AddVolume("/Volumes/A").attributes.totalBytes = std::uint64_t{9'500} << 30;
  TqVolumeInfo& known = Add(list, kOtherGuid, "/Volumes/Elsewhere/", 7);
  known.SetType("gm");
  known.numBytesTotalOnVolume = (std::uint64_t{9'500} << 30) - 1;
  known.numBytesUsedOnVolume = std::uint64_t{950} << 30;
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("000", list));

  TqUiUtil::TqVolumesXml_GetListOfHardDrivesToDisplayInGui(list);
  EXPECT_EQ(Summary(list), " /; /Volumes/A/;v001 /Volumes/B/;v002 /Volumes/Un'plugged/;");
  EXPECT_EQ(list.Get(3)->lastTimeVolumeWasSeenAttachedGmtMillis, 7);
  EXPECT_EQ(DriveSummary(),
            "YesBackedUp_con,gm,t1u0,/Volumes/B/__xxx,gm,tJuB,/Volumes/Un&apos;plugged/__"
            "NotBackedUp_con,gm,t5u2,/__con,em,tZuJ,/Volumes/A/\nno_1_s0_v10255308161023");
  fake.WriteFile(Data("tqreports/tqstat_totalbackup.xml"), "<a totnumbytesforbackup=\"10255308161024\" />");
  EXPECT_TRUE(DriveSummary().ends_with("\nyes_5_s10255308161024_v10255308161023"));
  Select({});
  fake.volumes.clear();
  EXPECT_EQ(DriveSummary(), "YesBackedUp_none__NotBackedUp_none\nyes_5_s10255308161024_v0");
}

TEST_F(SelectedVolumesTest, VolumeOfAFile) {
  Select({{kOtherGuid, "/Volumes/Away/"}});
  AddIdentified("/Volumes/Disk", kDiskGuid);
  Add(list, "v009cccccccccccccccccccccccc", "/Volumes/Away/", 5);
  Add(list, kOtherGuid, "/Volumes/Away/", 6);
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("000", list));
  TqVolumeInfo volume;
  ASSERT_TRUE(TqUiUtil::GetVolumeInfoFromFilename("/Volumes/Disk/a/b", volume));
  EXPECT_TRUE(std::string_view(volume.vguid) == kDiskGuid && !volume.volumeIsSelectedForBackup);
  ASSERT_TRUE(TqUiUtil::GetVolumeInfoFromFilename("/Volumes/Away/c", volume));
  EXPECT_TRUE(std::string_view(volume.vguid) == kOtherGuid && volume.volumeIsSelectedForBackup);
  EXPECT_FALSE(TqUiUtil::GetVolumeInfoFromFilename("/Volumes/Never/c", volume));
}
