#include "volumes/drive_ping.h"

#include <algorithm>

#include "tests/volumes/volumes_fixture.h"

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
    EXPECT_EQ(std::ranges::count(fake.sleepsMicros, 3'000'000), 1);
    const std::string log = LogText();
    return log.substr(log.rfind(") - after, signConnect=")).starts_with(") - after, signConnect=true,  todayD");
  }
};

TEST_F(DrivePingTest, KeepsOneLogADay) {
  fake.randoms = {1, 2, 3, 4, 5, 6, 7, 8, 9, 0};
  std::string unlinked;
  fake.fault = [&](auto operation, auto path) { return operation == "unlink" ? unlinked += path, 0 : 0; };
  EXPECT_TRUE(AllAnswered());
  EXPECT_NE(unlinked.find(File("wake_20231114_1234567890.txt")), unlinked.npos);
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
  const auto log = [&](const std::string& number) { return File("ping_20231114_" + number + ".log"); };
  for (const char* number : {"9000", "0041", "0042"}) fake.WriteFile(log(number), number);
  AllAnswered();
  EXPECT_TRUE(fake.ReadFile(log("5000")).starts_with("9000") && fake.ReadFile(log("0043")).starts_with("0042"));
  EXPECT_TRUE(fake.ReadFile(log("0041")).starts_with("0041")) << "its next name was taken";
}

TEST_F(DrivePingTest, TouchesOnlyItsOwnRegularFiles) {
  const std::pair<const char*, bool> files[] = {
      {"ping_20231114_0007.txt", true},        {"wake_2023_short.txt", true},
      {"pong_20200101_0000.log", true},        {"ping_20200101_0000.dat", true},
      {"wake_20200101_1234567890.txt", false}, {"ping_20200101_long_name.txt", false}};
  for (const auto& [name, isKept] : files) fake.WriteFile(File(name), "");
  fake.MakeFolders(File("ping_20200102_0000.log"));
  fake.MakeLink(File("ping_20200103_0000.log"), "/Volumes/Disk/photo.jpg");
  AllAnswered();
  for (const auto& [name, isKept] : files) EXPECT_EQ(fake.Has(File(name)), isKept) << name;
  EXPECT_TRUE(fake.Has(File("ping_20200102_0000.log")) && fake.Has(File("ping_20200103_0000.log")));
  EXPECT_TRUE(fake.ReadFile("/Volumes/Disk/photo.jpg") == "x" && fake.Has(File("ping_20231114_0000.log")));
}

TEST_F(DrivePingTest, AMissingOrLinkedFolderIsLeftAlone) {
  fake.Remove("/Volumes/Disk/.tqvol");
  EXPECT_FALSE(AllAnswered() || fake.Has("/Volumes/Disk/.tqvol"));
  fake.WriteFile("/Volumes/Other/.tqvol/tqvol_id.xml", IdentityText(kOtherGuid));
  fake.MakeLink("/Volumes/Disk/.tqvol", "/Volumes/Other/.tqvol");
  EXPECT_FALSE(AllAnswered());
  EXPECT_EQ(fake.Names("/Volumes/Other/.tqvol"), (Names{"tqvol_id.xml"}));
  EXPECT_EQ(CountLogged("/Volumes/Disk/ withVolGuidFromDisk=no_tqvol_id_xml_file_present\n"), 2);
  fake.Unmount("/Volumes/Disk", false);
  EXPECT_FALSE(AllAnswered() || fake.Has("/Volumes/Disk"));
}

TEST_F(DrivePingTest, WhatClearsTheSignAndWhatIsReported) {
  Fail("list", "/Volumes/Disk/.tqvol");
  EXPECT_FALSE(AllAnswered());
  fake.fault = nullptr;
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
