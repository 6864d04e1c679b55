#include "volumes/drive_ping.h"

#include <algorithm>
#include <cerrno>

#include "tests/volumes/volumes_fixture.h"

namespace {

using Names = std::vector<std::string>;

/// The fake clock stands at 2023-11-14.
class DrivePingTest : public VolumesTest {
 protected:
  void SetUp() override {
    Select({{kRootGuid, "/"}, {kDiskGuid, "/Volumes/Disk/"}});
    AddIdentified("/Volumes/Disk", kDiskGuid);
    fake.WriteFile(Data("tqvol_system_volume/tqvol_id.xml"), IdentityText(kRootGuid));
  }
  std::string File(const std::string& name) { return "/Volumes/Disk/.tqvol/" + name; }
  bool AllAnswered() {
    fake.sleepsMicros.clear();
    TqUiUtil::PingDrivesThatAreSelectedForBackup();
    EXPECT_EQ(std::count(fake.sleepsMicros.begin(), fake.sleepsMicros.end(), 3'000'000), 1);
    const std::string log = LogText();
    return log.substr(log.rfind(") - after, signConnect=")).starts_with(") - after, signConnect=true,  todayD");
  }
};

TEST_F(DrivePingTest, KeepsOneLogADay) {
  fake.randoms = {1, 2, 3, 4, 5, 6, 7, 8, 9, 0};
  std::string wakeFile;
  fake.fault = [&](auto operation, auto path) {
    if (operation == "unlink" && path.find("wake_") < path.size()) wakeFile = path;
    return 0;
  };
  EXPECT_TRUE(AllAnswered());
  EXPECT_EQ(wakeFile, File("wake_20231114_1234567890.txt"));
  EXPECT_EQ(fake.Names(File("")), (Names{"tqvol_id.xml", "ping_20231114_0000.log"}));
  EXPECT_EQ(fake.ReadFile(File("ping_20231114_0000.log")), "20231114221320 - randomNum=1234567890\n");
  EXPECT_TRUE(AllAnswered());
  EXPECT_EQ(fake.Names(File("")), (Names{"tqvol_id.xml", "ping_20231114_0001.log"}));
  EXPECT_EQ(fake.ReadFile(File("ping_20231114_0001.log")).size(), 76U);
  fake.nowMillis += kDay;
  AllAnswered();  // yesterday's log is counted up, then cleaned away
  EXPECT_EQ(fake.Names(File("")), (Names{"tqvol_id.xml"}));
  EXPECT_TRUE(Logged(" -   before doing anything,  todayDateTimeStr=20231114221320,     driveReport=YesBackedUp_con,"));
  EXPECT_TRUE(
      Logged("PingDrivesThatAreSelectedForBackup: (processId=12345) - todayDateTimeStr=20231114221320 - vGuidReport:"
             " / withVolGuidFromDisk=v000rrrrrrrrrrrrrrrrrrrrrrrr, /Volumes/Disk/ withVolGuidFromDisk=v001a"));
}

TEST_F(DrivePingTest, CounterWrapsAndNeverOverwrites) {
  fake.WriteFile(File("ping_20231114_9000.log"), "a");
  fake.WriteFile(File("ping_20231114_0041.log"), "b");
  fake.WriteFile(File("ping_20231114_0042.log"), "c");
  AllAnswered();
  EXPECT_EQ(fake.ReadFile(File("ping_20231114_5000.log"))[0], 'a');
  EXPECT_EQ(fake.ReadFile(File("ping_20231114_0041.log"))[0], 'b');  // its next name was taken
  EXPECT_EQ(fake.ReadFile(File("ping_20231114_0043.log"))[0], 'c');
}

TEST_F(DrivePingTest, TouchesOnlyItsOwnRegularFiles) {
  const Names kept = {"ping_20231114_0007.txt", "wake_2023_short.txt", "pong_20200101_0000.log",
                      "ping_20200101_0000.dat"};
  const Names cleaned = {"wake_20200101_1234567890.txt", "ping_20200101_long_name.txt"};
  for (const Names& names : {kept, cleaned}) {
    for (const std::string& name : names) fake.WriteFile(File(name), "");
  }
  fake.MakeFolders(File("ping_20200102_0000.log"));
  fake.MakeLink(File("ping_20200103_0000.log"), "/Volumes/Disk/photo.jpg");
  AllAnswered();
  for (const std::string& name : kept) EXPECT_TRUE(fake.Has(File(name))) << name;
  for (const std::string& name : cleaned) EXPECT_FALSE(fake.Has(File(name))) << name;
  EXPECT_TRUE(fake.Has(File("ping_20200102_0000.log")) && fake.Has(File("ping_20200103_0000.log")));
  EXPECT_EQ(fake.ReadFile("/Volumes/Disk/photo.jpg"), "x");
  EXPECT_TRUE(fake.Has(File("ping_20231114_0000.log")));  // folders and links are no ping logs
}

TEST_F(DrivePingTest, AMissingOrLinkedFolderIsLeftAlone) {
  fake.Remove("/Volumes/Disk/.tqvol");
  EXPECT_FALSE(AllAnswered());
  EXPECT_FALSE(fake.Has("/Volumes/Disk/.tqvol"));
  fake.WriteFile("/Volumes/Other/.tqvol/tqvol_id.xml", IdentityText(kOtherGuid));
  fake.MakeLink("/Volumes/Disk/.tqvol", "/Volumes/Other/.tqvol");
  EXPECT_FALSE(AllAnswered());
  EXPECT_EQ(fake.Names("/Volumes/Other/.tqvol"), (Names{"tqvol_id.xml"}));
  EXPECT_EQ(CountLogged("/Volumes/Disk/ withVolGuidFromDisk=no_tqvol_id_xml_file_present\n"), 2);
  fake.Unmount("/Volumes/Disk", false);
  EXPECT_FALSE(AllAnswered());
  EXPECT_FALSE(fake.Has("/Volumes/Disk"));
}

TEST_F(DrivePingTest, WhatClearsTheSignAndWhatIsReported) {
  fake.Find("/Volumes/Disk/.tqvol")->openErrno = EIO;
  EXPECT_FALSE(AllAnswered());
  fake.Find("/Volumes/Disk/.tqvol")->openErrno = 0;
  fake.WriteFile(File("tqvol_id.xml"), IdentityText(kDiskGuid, "abc"));
  EXPECT_TRUE(AllAnswered());
  EXPECT_TRUE(Logged(") - error wrong hguid in tqvol_id.xml fileName=" + File("tqvol_id.xml") + ", myHguid="));
  fake.WriteFile(File("tqvol_id.xml"), std::string(49, 'x'));
  AllAnswered();
  EXPECT_TRUE(Logged("withVolGuidFromDisk=tqvol_id_xml_file_present_and_read_but_too_short\n"));
  fake.Remove(File("tqvol_id.xml"));
  EXPECT_FALSE(AllAnswered());
  fake.WriteFile("/.tqvol/tqvol_id.xml", IdentityText(kRootGuid));
  Select({{kRootGuid, "/"}});  // the system volume is never written to
  EXPECT_TRUE(AllAnswered());
  EXPECT_EQ(fake.Names("/.tqvol").size() + fake.Names(Data("tqvol_system_volume")).size(), 2U);
}

}  // namespace
