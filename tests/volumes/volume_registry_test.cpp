#include "volumes/volume_registry.h"

#include <cerrno>

#include "tests/volumes/volumes_fixture.h"

namespace {

class VolumeRegistryTest : public VolumesTest {
 protected:
  VolumeRegistryTest() { registry = Data("tqvolumes.xml"); }

  /// The short id and volumes of a registry with these lines between its frame.
  std::string ReadLines(const std::string& lines) {
    fake.WriteFile(registry, "<?xml?>\n<contents>\n" + lines + "\n</contents>\n");
    TqString shortId;
    TqVolumeInfoList list;
    if (!TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile(shortId, list)) return "unreadable";
    return std::string(shortId.c_str()) + " " + Summary(list);
  }
  static std::string Line(const std::string& vguid, const std::string& mountPoint) {
    return "<tqvolume tqVolumeGuid=\"" + vguid + "\" " + mountPoint + " />\n";
  }
  std::string ShortIdAfter(const std::string& shortId) {
    ReadLines("<tqvol_metadata lastAssignedTqVolShortId=\"" + shortId + "\" />\n" +
              Line(kDiskGuid, "mountPointPathHex=\"2f\""));
    return std::string(TqUiUtil::CreateNewTqVolumeGuid().Slice(1, 3));
  }
  std::string registry;
};

TEST_F(VolumeRegistryTest, WritesTheExactFormat) {
  TqVolumeInfoList list;
  Add(list, "v00fffffffffffffffffffffffff", "/Volumes/A", 12);
  list.Get(0)->SetType("gm");
  list.Get(0)->numBytesTotalOnVolume = 3;
  list.Get(0)->numBytesUsedOnVolume = 2;
  list.Get(0)->numBytesFreeOnVolume = 1;
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("00a", list));
  EXPECT_EQ(
      fake.ReadFile(registry),
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n\n<tqvol_metadata lastAssignedTqVolShortId=\"00f\" "
      "gmtMillisThisFileWasWritten=\"1700000000000\" gmtDateTimeFileWasWritten=\"20231114221320\" />\n\n"
      "<tqvolume tqVolumeGuid=\"v00fffffffffffffffffffffffff\" mountPointPathHex=\"2f566f6c756d65732f412f\" "
      "typeOfVolumeTwoCharCode=\"gm\" lastTimeVolumeWasSeenAttachedGmtMillis=\"12\" numBytesFreeOnVolume=\"1\" "
      "numBytesUsedOnVolume=\"2\" numBytesTotalOnVolume=\"3\" />\n\n</contents>\n");
  TqString shortId;
  TqVolumeInfoList back;
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile(shortId, back));
  ASSERT_EQ(back.Count(), 1);
  EXPECT_TRUE(back.Get(0)->IsType("gm"));
  EXPECT_EQ(back.Get(0)->lastTimeVolumeWasSeenAttachedGmtMillis, 12);
  EXPECT_EQ(back.Get(0)->numBytesTotalOnVolume, 3U);
  EXPECT_STREQ(back.Get(0)->associatedHguid, kHostGuid);

  list.Clear();
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("0a", list, true));
  EXPECT_TRUE(Logged("bad len arg: 0a"));
  EXPECT_NE(fake.ReadFile(registry).find("\"000\" gmtMillis"), std::string::npos);
  EXPECT_NE(fake.ReadFile(registry).find("\"20231114221320\" first_tqinfo_staging=\"true\" />\n\n\n</contents>\n"),
            std::string::npos);
  EXPECT_EQ(RegistrySummary(), "");
  EXPECT_FALSE(Logged("could not find any <tqvolume ...> snippets in: "));
}

TEST_F(VolumeRegistryTest, AFailedWriteLeavesTheOldFile) {
  WriteRegistry({{kDiskGuid, "/Volumes/Disk/"}});
  const std::string before = fake.ReadFile(registry);
  TqVolumeInfoList empty;
  fake.diskBytesLeft = 30;
  EXPECT_FALSE(TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("000", empty));
  EXPECT_EQ(fake.ReadFile(registry), before);
}

TEST_F(VolumeRegistryTest, AnUnfinishedFileIsTriedNineTimes) {
  EXPECT_EQ(RegistrySummary(), "unreadable");
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(8, 100'000));
  EXPECT_TRUE(Logged("ERROR: TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile - file did not exist: " + registry));
  fake.WriteFile(registry, "<a/>");
  EXPECT_EQ(RegistrySummary(), "unreadable");
  EXPECT_TRUE(Logged("file exists but was not readable or no contents: "));
  fake.WriteFile(registry,
                 "<contents>\n</contents>\n" + std::string(13, ' '));  // the end tag lies too far from the end
  EXPECT_EQ(RegistrySummary(), "unreadable");
  EXPECT_TRUE(Logged("file exists but was corrupted: <contents>"));
  fake.onSleep = [&](std::int64_t) { WriteRegistry({{kDiskGuid, "/"}}), fake.onSleep = nullptr; };
  EXPECT_EQ(RegistrySummary(), std::string(kDiskGuid) + " /;");  // another process was just writing
}

TEST_F(VolumeRegistryTest, BadLinesAreSkipped) {
  const std::string good = Line(kDiskGuid, "mountPointPathHex=\"2f\"");
  EXPECT_EQ(ReadLines("<tqvolume mountPointPathHex=\"2f\" />\n" + good), std::string("000 ") + kDiskGuid + " /;");
  EXPECT_TRUE(Logged("could not find lastAssignedTqVolShortId, default to 0"));
  EXPECT_TRUE(Logged("could not find tqVolumeGuid in line: <tqvolume mountPointPathHex"));
  EXPECT_EQ(ReadLines("<m lastAssignedTqVolShortId=\"00b\" />" + Line("v1", "mountPointPathHex=\"2f\"")), "00b ");
  EXPECT_TRUE(Logged("badly_5 formed tqVolumeGuid in line: "));
  EXPECT_EQ(ReadLines(Line(kDiskGuid, "mountPointPath=\"/Volumes/P/\"")),
            std::string("000 ") + kDiskGuid + " /Volumes/P/;");
  EXPECT_TRUE(Logged("could not find mountPointPathHex HEX so attempting fallback in line: "));
  for (const char* mountPoint : {"mountPointPathHex=\"2g\"", "mountPointPathHex=\"\"", "mountPointPath=\"\"", ""}) {
    EXPECT_EQ(ReadLines(Line(kDiskGuid, mountPoint)), "000 ") << mountPoint;
  }
  EXPECT_EQ(CountLogged("badly_56 formed"), 3);
  EXPECT_EQ(CountLogged("badly_78 formed"), 1);
  ReadLines("");
  EXPECT_TRUE(Logged("could not find any <tqvolume ...> snippets in: "));
}

TEST_F(VolumeRegistryTest, NewGuidInterleavesTimeAndHardwareAddress) {
  EXPECT_STREQ(TqUiUtil::CreateNewTqVolumeGuid().c_str(), "v0010a016b82ec53cdf48eb50f16");
  // The same millisecond again: two milliseconds later.
  EXPECT_STREQ(TqUiUtil::CreateNewTqVolumeGuid().c_str(), "v0010a216b82ec53cdf48eb50f16");
  TqUiUtil::ForgetGuidState();
  fake.hardwareAddressStatus = platform::HardwareAddressStatus::kUnreadable;
  fake.randoms = {7, 45'678'901, 23};
  EXPECT_STREQ(TqUiUtil::CreateNewTqVolumeGuid().c_str(), "v00107246586e758c9f081b20311");
  TqUiUtil::ForgetGuidState();
  fake.hardwareAddressStatus = platform::HardwareAddressStatus::kFound;
  fake.hardwareAddress = "9F-FF-FF-FF-FF-FF";
  fake.nowMillis = 0x18bcfe56890;  // the body would begin with "99"
  fake.randoms = {0, 0, 0, 8};
  EXPECT_STREQ(TqUiUtil::CreateNewTqVolumeGuid().c_str(), "v001980f6f8fef5fcfff8fbf0f1f");
}

TEST_F(VolumeRegistryTest, NewShortIdFollowsTheHighest) {
  EXPECT_EQ(ShortIdAfter("000"), "002");  // above the volume's "001"
  EXPECT_EQ(ShortIdAfter("998"), "99a");
  EXPECT_EQ(ShortIdAfter("ff8"), "ff9");
  EXPECT_EQ(ShortIdAfter("ff9"), "001");
  EXPECT_TRUE(Logged("ERROR: TqUiUtil::CreateNewTqVolumeGuid high, wrapping to 1"));
  EXPECT_EQ(ShortIdAfter("zzz"), "002");
  fake.WriteFile(registry, "damaged beyond repair");
  EXPECT_TRUE(TqUiUtil::CreateNewTqVolumeGuid().StartsWith("v000"));
}

TEST_F(VolumeRegistryTest, AssigningWritesTheIdentityThenTheRegistry) {
  fake.Remove(kData);
  fake.AddVolume("/Volumes/Disk");
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_AssignNewTqVolumeGuidToVolume("/"));
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_AssignNewTqVolumeGuidToVolume("/Volumes/Disk"));
  const std::string rootGuid = "v0000a016b82ec53cdf48eb50f16";
  const std::string diskGuid = "v0010a216b82ec53cdf48eb50f16";
  EXPECT_EQ(RegistrySummary(), rootGuid + " /;" + diskGuid + " /Volumes/Disk/;");
  EXPECT_NE(fake.ReadFile("/Volumes/Disk/.tqvol/tqvol_id.xml").find(diskGuid), std::string::npos);
  EXPECT_NE(fake.ReadFile(Data("tqvol_system_volume/tqvol_id.xml")).find(rootGuid), std::string::npos);

  TqLog::OpenLog(Data("tqlogs/tqfilelist"), TqInstall::DataFolder());
  const std::string before = fake.ReadFile(registry);
  for (const char* mountPoint : {"/Volumes/Gone/", ""}) {
    EXPECT_FALSE(TqUiUtil::TqVolumesXml_AssignNewTqVolumeGuidToVolume(mountPoint));
  }
  EXPECT_TRUE(Logged("failed for volume /Volumes/Gone/ with err: could_not_create_hidden_tqvol_top_dir"));
  EXPECT_EQ(fake.ReadFile(registry), before);
  EXPECT_FALSE(TqUiUtil::TqVolumesXml_AddNewTqVolumeGuid("/", "v001"));
}

TEST_F(VolumeRegistryTest, AddingSetsADamagedRegistryAside) {
  fake.AddVolume("/Volumes/Disk");
  fake.WriteFile(registry, "a damaged registry, maybe rescued by hand");
  fake.fault = [&](std::string_view operation, std::string_view path) {
    return operation == "rename" && path.ends_with(".damaged") ? EIO : 0;
  };
  EXPECT_FALSE(TqUiUtil::TqVolumesXml_AddNewTqVolumeGuid("/Volumes/Disk", kDiskGuid));
  EXPECT_EQ(fake.ReadFile(registry), "a damaged registry, maybe rescued by hand");
  fake.fault = nullptr;
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_AssignNewTqVolumeGuidToVolume("/Volumes/Disk"));
  EXPECT_EQ(fake.ReadFile(registry + ".damaged"), "a damaged registry, maybe rescued by hand");
  EXPECT_EQ(RegistrySummary().substr(0, 4), "v001");  // "000" stays the system volume's
}

TEST_F(VolumeRegistryTest, RefreshLearnsAttachedVolumesOfThisHost) {
  const std::string foreign = "v009cccccccccccccccccccccccc";
  WriteRegistry({{kDiskGuid, "/Volumes/Old/"}, {kOtherGuid, "/Volumes/Away/"}, {foreign.c_str(), "/Volumes/F0/"}}, 5);
  AddIdentified("/Volumes/New", kDiskGuid);
  AddIdentified("/Volumes/F1", foreign, "ffffffffffffffffffffffff");
  AddIdentified("/Volumes/Unknown", "v00adddddddddddddddddddddddd");
  WriteSettingsFile({{kDiskGuid, "/Volumes/Old/"}, {kRootGuid, "/"}, {"v00", "/Volumes/Bad/"}});
  TqUiUtil::TqVolumesXml_QueryAttachDrives_UpdateTqVolXml();
  TqString shortId;
  TqVolumeInfoList list;
  ASSERT_TRUE(TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile(shortId, list));
  EXPECT_EQ(Summary(list), std::string(kDiskGuid) + " /Volumes/New/;" + kOtherGuid + " /Volumes/Away/;" + foreign +
                               " /Volumes/F0/;" + kRootGuid + " /;");
  EXPECT_EQ(list.Get(0)->lastTimeVolumeWasSeenAttachedGmtMillis, fake.nowMillis);
  EXPECT_EQ(list.Get(1)->lastTimeVolumeWasSeenAttachedGmtMillis, 5);
  EXPECT_STREQ(shortId.c_str(), "009");
  EXPECT_TRUE(Logged(" - hGuid mis-match on drive /Volumes/F1/, myHguid="));
  EXPECT_TRUE(Logged(" - self repairing sel for backup mountPoint: /, volumeId: v000r"));
}

TEST_F(VolumeRegistryTest, RefreshRebuildsACutOffRegistry) {
  WriteRegistry({{kDiskGuid, "/Volumes/Disk/"}});
  const std::string cutOff = fake.ReadFile(registry).substr(0, 200);
  fake.WriteFile(registry, cutOff);
  WriteSettingsFile({{kDiskGuid, "/Volumes/Disk/"}});
  TqUiUtil::TqVolumesXml_QueryAttachDrives_UpdateTqVolXml();
  EXPECT_EQ(RegistrySummary(), std::string(kDiskGuid) + " /Volumes/Disk/;");
  EXPECT_EQ(fake.ReadFile(registry + ".damaged"), cutOff);
  EXPECT_TRUE(Logged("file exists but was corrupted: "));
}

TEST_F(VolumeRegistryTest, TellsTheFirstPairOfEqualGuids) {
  TqString a;
  TqString b;
  fake.AddVolume("/Volumes/NoId1");
  fake.AddVolume("/Volumes/NoId2");
  AddIdentified("/Volumes/A", kOtherGuid);
  AddIdentified("/Volumes/B", kDiskGuid);
  EXPECT_FALSE(TqUiUtil::DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids(a, b));
  AddIdentified("/Volumes/C", kDiskGuid);
  AddIdentified("/Volumes/D", kOtherGuid);
  EXPECT_TRUE(TqUiUtil::DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids(a, b));
  EXPECT_TRUE(Logged("FOUND_DUPLICATE_VOL_ID: Vol_A_/Volumes/A/__Vol_B_/Volumes/D/\n"));
}

TEST_F(VolumeRegistryTest, RequestsAnAssignmentByFile) {
  TqUiUtil::TqVolumesXml_SpawnAsyncTqFilelistAsRootToAssignVolumeGuid("/Volumes/D");
  EXPECT_EQ(fake.ReadFile(Data("starttqfilelist_assignvolumeguid.xml")),
            "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<tqfilelistrequest "
            "gmtMillisOfRequest=\"1700000000000\" "
            "mountPointPathHex=\"2f566f6c756d65732f44\" />\n</contents>\n");
}

}  // namespace
