#include "volumes/selected_volumes.h"

#include "tests/volumes/volumes_fixture.h"
#include "volumes/drive_summary.h"

namespace {

class SelectedVolumesTest : public VolumesTest {};

TEST_F(SelectedVolumesTest, EverySelectedVolumeIsThereAttachedOrNot) {
  TqVolumeInfoList list;
  EXPECT_FALSE(TqInfoManager::GetVolumesSelectedForBackup(list));
  Select({{kOtherGuid, "/Volumes/Unplugged"}, {kDiskGuid, "/Volumes/Second/"}, {kRootGuid, "/"}});
  AddIdentified("/Volumes/First", kDiskGuid);
  AddIdentified("/Volumes/Unselected", "v009cccccccccccccccccccccccc");
  ASSERT_TRUE(TqInfoManager::GetVolumesSelectedForBackup(list));
  EXPECT_EQ(Summary(list),
            std::string(kOtherGuid) + " /Volumes/Unplugged/;" + kDiskGuid + " /Volumes/First/;" + kRootGuid + " /;");
  EXPECT_FALSE(list.Get(0)->volumeIsCurrentlyConnected);
  EXPECT_TRUE(list.Get(1)->volumeIsCurrentlyConnected && list.Get(2)->volumeIsCurrentlyConnected);
  EXPECT_TRUE(list.Get(2)->isSystemVolume);
  for (const TqVolumeInfo* volume : list) EXPECT_TRUE(volume->volumeIsSelectedForBackup);
  AddIdentified("/Volumes/Second", kDiskGuid);  // a copied drive: the one at the settings' place counts
  ASSERT_TRUE(TqInfoManager::GetVolumesSelectedForBackup(list));
  EXPECT_STREQ(list.Get(1)->mountPointPath.c_str(), "/Volumes/Second/");
}

TEST_F(SelectedVolumesTest, ListNamesOnlyWhenAllExist) {
  TqStringVector paths;
  EXPECT_FALSE(TqUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(paths));
  WriteSettingsFile({{kRootGuid, "/"}, {kDiskGuid, "/Volumes/Disk/"}});
  const std::string rootList = Data("tqfilelists/v000rrrrrrrrrrrrrrrrrrrrrrrr_root_filelist.dat");
  const std::string diskList = Data("tqfilelists/v001aaaaaaaaaaaaaaaaaaaaaaaa_disk_filelist.dat");
  fake.WriteFile(rootList, "#\n");
  EXPECT_FALSE(TqUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(paths));
  EXPECT_EQ(paths.Count(), 0);
  EXPECT_TRUE(Logged(" - failed could not find file for selected drive: /Volumes/Disk/, vGuid="));
  fake.WriteFile(diskList, "#\n");
  ASSERT_TRUE(TqUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(paths));
  ASSERT_EQ(paths.Count(), 2);
  EXPECT_EQ(paths.At(0).c_str(), rootList);
  EXPECT_EQ(paths.At(1).c_str(), diskList);
}

TEST_F(SelectedVolumesTest, DisplayListAndSummary) {
  Select({{kOtherGuid, "/Volumes/Un'plugged/"}, {kDiskGuid, "/Volumes/B/"}});
  AddIdentified("/Volumes/B", kDiskGuid).attributes.totalBytes = std::uint64_t{51} << 30;
  fake.AddVolume("/Volumes/A").attributes.totalBytes = std::uint64_t{9'500} << 30;
  TqVolumeInfoList registry;
  Add(registry, kOtherGuid, "/Volumes/Elsewhere/", 7);
  registry.Get(0)->SetType("gm");
  registry.Get(0)->numBytesTotalOnVolume = (std::uint64_t{9'500} << 30) - 1;
  registry.Get(0)->numBytesUsedOnVolume = std::uint64_t{950} << 30;
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("000", registry));

  TqVolumeInfoList list;
  TqUiUtil::TqVolumesXml_GetListOfHardDrivesToDisplayInGui(list);
  EXPECT_EQ(Summary(list),
            std::string(" /; /Volumes/A/;") + kDiskGuid + " /Volumes/B/;" + kOtherGuid + " /Volumes/Un'plugged/;");
  EXPECT_EQ(list.Get(3)->lastTimeVolumeWasSeenAttachedGmtMillis, 7);
  EXPECT_TRUE(list.Get(3)->volumeIsSelectedForBackup);

  TqString summary;
  TqString abbreviation;
  TqUiUtil::GetHardDriveSummary(summary, abbreviation);
  EXPECT_STREQ(summary.c_str(),
               "YesBackedUp_con,gm,t1u0,/Volumes/B/__xxx,gm,tJuB,/Volumes/Un&apos;plugged/__"
               "NotBackedUp_con,gm,t5u2,/__con,em,tZuJ,/Volumes/A/");
  EXPECT_STREQ(abbreviation.c_str(), "no_1_s0_v10255308161023");
  fake.WriteFile(Data("tqreports/tqstat_totalbackup.xml"), "<a totnumbytesforbackup=\"10255308161024\" />");
  TqUiUtil::GetHardDriveSummary(summary, abbreviation);
  EXPECT_STREQ(abbreviation.c_str(), "yes_5_s10255308161024_v10255308161023");
}

TEST_F(SelectedVolumesTest, SummaryOfNothing) {
  Select({});
  fake.volumes.clear();
  TqString summary;
  TqString abbreviation;
  TqUiUtil::GetHardDriveSummary(summary, abbreviation);
  EXPECT_STREQ(summary.c_str(), "YesBackedUp_none__NotBackedUp_none");
  EXPECT_STREQ(abbreviation.c_str(), "no_1_s0_v0");
}

TEST_F(SelectedVolumesTest, VolumeOfAFile) {
  Select({{kOtherGuid, "/Volumes/Away/"}});
  AddIdentified("/Volumes/Disk", kDiskGuid);
  TqVolumeInfoList registry;
  Add(registry, "v009cccccccccccccccccccccccc", "/Volumes/Away/", 5);
  Add(registry, kOtherGuid, "/Volumes/Away/", 6);
  Add(registry, "v00adddddddddddddddddddddddd", "/Volumes/Away/", 4);
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("000", registry));
  TqVolumeInfo volume;
  ASSERT_TRUE(TqUiUtil::GetVolumeInfoFromFilename("/Volumes/Disk/a/b", volume));
  EXPECT_STREQ(volume.vguid, kDiskGuid);
  EXPECT_FALSE(volume.volumeIsSelectedForBackup);
  ASSERT_TRUE(TqUiUtil::GetVolumeInfoFromFilename("/Volumes/Away/c", volume));
  EXPECT_STREQ(volume.vguid, kOtherGuid);
  EXPECT_TRUE(volume.volumeIsSelectedForBackup);
  EXPECT_FALSE(TqUiUtil::GetVolumeInfoFromFilename("/Volumes/Never/c", volume));
  EXPECT_FALSE(TqUiUtil::GetVolumeInfoFromFilename("Volumes/Disk/a", volume));
}

}  // namespace
