#include "volumes/volume_registry.h"

#include "tests/volumes/volumes_fixture.h"

using namespace TqUiUtil;

class VolumeRegistryTest : public VolumesTest {
 protected:
  /// What is read of a registry with a line of these attributes, and with that short id unless it is empty.
  std::string ReadLine(const std::string& shortId, const std::string& attributes) {
    const std::string metadata = shortId.empty() ? "" : "<m lastAssignedTqVolShortId=\"" + shortId + "\" />";
    fake.WriteFile(registry, "<?xml?>\n<contents>\n" + metadata + "\n<tqvolume " + attributes + " />\n</contents>\n");
    return RegistrySummary();
  }
  const std::string registry = Data("tqvolumes.xml");
};

TEST_F(VolumeRegistryTest, WritesTheExactFormat) {
  TqVolumeInfoList list;
  TqVolumeInfo& volume = Add(list, "v00fffffffffffffffffffffffff", "/Volumes/A", 12);
  volume.SetType("gm");
  volume.numBytesTotalOnVolume = 3;
  ASSERT_TRUE(TqVolumesXml_WriteTqVolumesXmlFile("00a", list));
  EXPECT_EQ(
      fake.ReadFile(registry),
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n\n<tqvol_metadata lastAssignedTqVolShortId=\"00f\" "
      "gmtMillisThisFileWasWritten=\"1700000000000\" gmtDateTimeFileWasWritten=\"20231114221320\" />\n\n<tqvolume "
      "tqVolumeGuid=\"v00fffffffffffffffffffffffff\" mountPointPathHex=\"2f566f6c756d65732f412f\" "
      "typeOfVolumeTwoCharCode=\"gm\" lastTimeVolumeWasSeenAttachedGmtMillis=\"12\" numBytesFreeOnVolume=\"0\" "
      "numBytesUsedOnVolume=\"0\" numBytesTotalOnVolume=\"3\" />\n\n</contents>\n");
  list.Clear();
  fake.diskBytesLeft = 30;
  EXPECT_TRUE(!TqVolumesXml_WriteTqVolumesXmlFile("000", list) && RegistrySummary() == "00f v00f /Volumes/A/;");
  fake.diskBytesLeft = -1;
  ASSERT_TRUE(TqVolumesXml_WriteTqVolumesXmlFile("0a", list, true));
  EXPECT_NE(fake.ReadFile(registry).find("\" first_tqinfo_staging=\"true\" />\n\n\n</contents>\n"), std::string::npos);
  EXPECT_TRUE(RegistrySummary() == "000 " && !Logged("could not find any <tqvolume ...> snippets in: "));
}

TEST_F(VolumeRegistryTest, AnUnfinishedFileIsTriedNineTimes) {
  EXPECT_TRUE(RegistrySummary() == "unreadable" && fake.sleepsMicros == std::vector<std::int64_t>(8, 100'000));
  fake.WriteFile(registry, "<contents>\n</contents>\n" + std::string(13, ' '));  // its end lies too far from the end
  EXPECT_TRUE(RegistrySummary() == "unreadable" && Logged("file exists but was corrupted: <contents>"));
  fake.onSleep = [&](std::int64_t) { WriteRegistry({{kDiskGuid, "/"}}); };
  EXPECT_EQ(RegistrySummary(), "001 v001 /;");  // another process was just writing
}

TEST_F(VolumeRegistryTest, BadLinesAreSkipped) {
  const std::string disk = "tqVolumeGuid=\"v001aaaaaaaaaaaaaaaaaaaaaaaa\" ", root = "mountPointPathHex=\"2f\"";
  EXPECT_EQ(ReadLine("", root + " />\n<tqvolume " + disk + root), "000 v001 /;");
  for (const std::string bad : {"v1", "v001/../../../../etc/passwd0"}) {  // the second is as long as a vguid
    EXPECT_EQ(ReadLine("00b", "tqVolumeGuid=\"" + bad + "\" " + root), "00b ") << bad;
  }
  EXPECT_EQ(ReadLine("", disk + "mountPointPath=\"/P/\""), "000 v001 /P/;");
  for (const char* mountPoint : {"mountPointPathHex=\"2g\"", "mountPointPathHex=\"\"", "mountPointPath=\"\"", ""}) {
    EXPECT_EQ(ReadLine("", disk + mountPoint), "000 ") << mountPoint;
  }
}

TEST_F(VolumeRegistryTest, NewGuidInterleavesTimeAndHardwareAddress) {
  EXPECT_STREQ(CreateNewTqVolumeGuid().c_str(), "v0010a016b82ec53cdf48eb50f16");
  EXPECT_STREQ(CreateNewTqVolumeGuid().c_str(), "v0010a216b82ec53cdf48eb50f16");  // same millisecond: 2 ms later
  ForgetGuidState();
  fake.hardwareAddressStatus = platform::HardwareAddressStatus::kUnreadable;
  fake.randoms = {7, 45'678'901, 23, 8};
  EXPECT_STREQ(CreateNewTqVolumeGuid().c_str(), "v00107246586e758c9f081b20311");
  ForgetGuidState();
  fake.hardwareAddressStatus = platform::HardwareAddressStatus::kFound;
  fake.hardwareAddress = "9F-FF-FF-FF-FF-FF";
  fake.nowMillis = 0x18bcfe56890;  // the body would begin with "99"
  EXPECT_STREQ(CreateNewTqVolumeGuid().c_str(), "v001980f6f8fef5fcfff8fbf0f1f");
}

TEST_F(VolumeRegistryTest, NewShortIdFollowsTheHighest) {
  const std::pair<const char*, const char*> cases[] = {
      {"000", "002"}, {"998", "99a"}, {"ff8", "ff9"}, {"ff9", "001"}, {"zzz", "002"}};  // the volume has "001"
  for (const auto& [last, next] : cases) {
    ReadLine(last, "tqVolumeGuid=\"v001aaaaaaaaaaaaaaaaaaaaaaaa\" mountPointPathHex=\"2f\"");
    EXPECT_EQ(CreateNewTqVolumeGuid().Slice(1, 3), next) << last;
  }
  fake.WriteFile(registry, "damaged beyond repair");
  EXPECT_TRUE(CreateNewTqVolumeGuid().StartsWith("v000"));
}

TEST_F(VolumeRegistryTest, AssigningWritesTheIdentityThenTheRegistry) {
  fake.Remove(kData);
  fake.AddVolume("/Volumes/Disk");
  for (const char* path : {"/", "/Volumes/Disk"}) ASSERT_TRUE(TqVolumesXml_AssignNewTqVolumeGuidToVolume(path));
  EXPECT_NE(fake.ReadFile("/Volumes/Disk/.tqvol/tqvol_id.xml").find("\"v0010a2"), std::string::npos);
  EXPECT_NE(fake.ReadFile(Data("tqvol_system_volume/tqvol_id.xml")).find("\"v0000a0"), std::string::npos);
  for (const char* bad : {"/Volumes/Gone/", ""}) EXPECT_FALSE(TqVolumesXml_AssignNewTqVolumeGuidToVolume(bad)) << bad;
  EXPECT_FALSE(TqVolumesXml_AddNewTqVolumeGuid("", kDiskGuid) || TqVolumesXml_AddNewTqVolumeGuid("/", "v001"));
  EXPECT_EQ(RegistrySummary(), "001 v000 /;v001 /Volumes/Disk/;");
}

TEST_F(VolumeRegistryTest, AddingSetsADamagedRegistryAside) {
  const std::string damaged = "a damaged registry, maybe rescued by hand";
  fake.AddVolume("/Volumes/Disk");
  fake.WriteFile(registry, damaged);
  Fail("rename", ".damaged");
  EXPECT_FALSE(TqVolumesXml_AddNewTqVolumeGuid("/Volumes/Disk", kDiskGuid) || fake.ReadFile(registry) != damaged);
  fake.fault = nullptr;
  ASSERT_TRUE(TqVolumesXml_AssignNewTqVolumeGuidToVolume("/Volumes/Disk"));
  EXPECT_EQ(fake.ReadFile(registry + ".damaged"), damaged);
  EXPECT_EQ(RegistrySummary(), "001 v001 /Volumes/Disk/;");  // "000" stays the system volume's
}

TEST_F(VolumeRegistryTest, RefreshLearnsAttachedVolumesOfThisHost) {
  const char* foreign = "v009cccccccccccccccccccccccc";
  WriteRegistry({{kDiskGuid, "/Volumes/Old/"}, {kOtherGuid, "/Volumes/Away/"}, {foreign, "/Volumes/F0/"}}, 5);
  AddIdentified("/Volumes/New", kDiskGuid);
  AddIdentified("/Volumes/F1", foreign, kOldHost);
  AddIdentified("/Volumes/Unknown", "v00adddddddddddddddddddddddd");
  WriteSettingsFile({{kDiskGuid, "/Volumes/Old/"}, {kRootGuid, "/"}, {"v00", "/Volumes/Bad/"}});
  TqVolumesXml_QueryAttachDrives_UpdateTqVolXml();
  EXPECT_EQ(RegistrySummary(), "009 v001 /Volumes/New/;v002 /Volumes/Away/;v009 /Volumes/F0/;v000 /;");
  const std::string text = fake.ReadFile(registry);
  EXPECT_TRUE(Count(text, "AttachedGmtMillis=\"1700000000000\"") > 0 && Count(text, "AttachedGmtMillis=\"5\"") > 0);
  EXPECT_TRUE(Logged(" - hGuid mis-match on drive /Volumes/F1/, myHguid="));
  // A cut-off registry is rebuilt.
  fake.WriteFile(registry, text.substr(0, 200));
  for (const char* path : {"/Volumes/New", "/Volumes/F1", "/Volumes/Unknown"}) fake.Unmount(path);
  TqVolumesXml_QueryAttachDrives_UpdateTqVolXml();
  EXPECT_EQ(RegistrySummary(), "001 v001 /Volumes/Old/;v000 /;");
  EXPECT_EQ(fake.ReadFile(registry + ".damaged"), text.substr(0, 200));
}

TEST_F(VolumeRegistryTest, TellsTheFirstPairOfEqualGuids) {
  TqString a, b;
  fake.AddVolume("/Volumes/NoIdentity");  // nor has "/"
  EXPECT_FALSE(DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids(a, b));
  AddIdentified("/Volumes/A", kOtherGuid);
  for (const char* path : {"/Volumes/B", "/Volumes/C"}) AddIdentified(path, kDiskGuid);
  AddIdentified("/Volumes/D", kOtherGuid);
  EXPECT_TRUE(DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids(a, b));
  EXPECT_STREQ(Joined(a, b).c_str(), "/Volumes/A//Volumes/D/");
}

TEST_F(VolumeRegistryTest, AChangeWaitsForAnotherProcessButNotForever) {
  WriteSettingsFile({{kDiskGuid, "/Volumes/A/"}});
  for (void (*change)() : {+[] { TqVolumesXml_AddNewTqVolumeGuid("/Volumes/A", kDiskGuid); },
                           +[] { TqVolumesXml_QueryAttachDrives_UpdateTqVolXml(); }}) {
    fake.sleepsMicros.clear();
    Fail("lock", kData, EWOULDBLOCK, 3);
    change();
    EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(3, 20'000));
  }
  Fail("lock", kData, EWOULDBLOCK);
  EXPECT_TRUE(TqVolumesXml_AddNewTqVolumeGuid("/Volumes/B", kOtherGuid));
  EXPECT_TRUE(fake.sleepsMicros.size() == 3 + 249 && Logged("not waiting any more"));
  EXPECT_EQ(RegistrySummary(), "002 v001 /Volumes/A/;v002 /Volumes/B/;");
}
