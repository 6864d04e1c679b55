#include "volumes/volume_query.h"

#include "tests/volumes/volumes_fixture.h"

namespace {

class VolumeQueryTest : public VolumesTest {
 protected:
  /// The type of the volume at `path`, "failed" when the query fails.
  std::string TypeOf(const char* text) {
    path = text;
    return TqFile::GetInfoAboutAttachedVolume(&path, &volume) ? volume.volumeType : "failed";
  }
  TqVolumeInfo volume;
  TqString path;
};

TEST_F(VolumeQueryTest, OddPaths) {
  for (const char* automount : {"/net/host", "/NET", "/Home/bob", "/homework", "/VOLUMES", "/Volumes/"}) {
    EXPECT_EQ(TypeOf(automount), "un") << automount;
    EXPECT_TRUE(volume.mountPointPath.IsEmpty() && !volume.volumeIsCurrentlyConnected) << automount;
  }
  fake.MakeFolders("/Volumes/Left");  // a folder that an unplugged drive left behind
  EXPECT_TRUE(TypeOf("/Volumes/Left") == "failed" && volume.mountPointPath.IsEmpty());
  EXPECT_TRUE(Logged("ERROR: TqFile::GetInfoAboutAttachedVolume, getattrlist returned errno=22"));
  EXPECT_TRUE(TypeOf("") == "failed" && path.IsEmpty());
}

TEST_F(VolumeQueryTest, FillsTheRecordOfAMountedVolume) {
  FakePlatform::FakeVolume& disk = AddIdentified("/Volumes/Disk", kDiskGuid);
  EXPECT_EQ(TypeOf("/Volumes/Disk/sub/dir/"), "gm");
  EXPECT_STREQ(volume.mountPointPath.c_str(), "/Volumes/Disk/");
  EXPECT_EQ(Joined(volume.numBytesTotalOnVolume, " ", volume.numBytesFreeOnVolume, " ", volume.numBytesUsedOnVolume),
            "1000000000 250000000 500000000");
  EXPECT_EQ(volume.lastTimeVolumeWasSeenAttachedGmtMillis, fake.nowMillis);
  EXPECT_TRUE(volume.volumeIsCurrentlyConnected && volume.isWritable && !volume.isSystemVolume);
  EXPECT_STREQ(volume.vguid, kDiskGuid);
  disk.attributes.isLocal = false;  // no media behind a network mount
  EXPECT_EQ(TypeOf("/Volumes/Disk"), "un");
}

TEST_F(VolumeQueryTest, TypeComesFromTheMedia) {
  constexpr platform::MediaObject kBus{}, kSlice{true, false, false, true}, kDisk{true, false, true, true},
      kReadOnlyDisk{true, false, true, false}, kDisc{true, true, true, true};
  const auto typeOf = [&](const platform::MediaWalk& walk, bool holdsWindows = false) {
    volume.Reset();
    TqFile::TakeTypeFromMedia(walk, holdsWindows, volume);
    return volume.volumeType + std::string(volume.isWritable ? " writable" : "");
  };
  EXPECT_EQ(typeOf({true, {kSlice, kBus, kDisk}}), "gm writable");
  EXPECT_EQ(typeOf({true, {kSlice, kBus}}), "un") << "not whole";
  EXPECT_EQ(typeOf({false, {kSlice, kBus}}), "gm writable") << "found another way: partitions count";
  EXPECT_EQ(typeOf({true, {kDisk, kReadOnlyDisk}}), "gm");
  EXPECT_EQ(typeOf({true, {kDisk}}, true), "bc writable");
  EXPECT_EQ(typeOf({true, {kDisc}}), "un");
}

TEST_F(VolumeQueryTest, TypeComesFromTheRootFolder) {
  fake.AddVolume("/Volumes/D");
  for (const char* ignored : {".Trashes", "AutoRun.inf", "$RECYCLE.BIN"})
    fake.MakeFolders(std::string("/Volumes/D/") + ignored);
  EXPECT_EQ(TypeOf("/Volumes/D"), "em");
  fake.MakeFolders("/Volumes/D/lost+found");
  EXPECT_EQ(TypeOf("/Volumes/D"), "gm");
  Fail("list", "/Volumes/D", EACCES);
  EXPECT_EQ(TypeOf("/Volumes/D"), "em");
  fake.fault = nullptr;
  fake.Find("/Volumes/D")->readErrno = EIO;  // reading stops at once: what it holds stays unknown
  EXPECT_EQ(TypeOf("/Volumes/D"), "gm");
  fake.Find("/Volumes/D")->readErrno = 0;
  fake.WriteFile("/Volumes/D/Windows/System32", "a file, not a folder");
  EXPECT_EQ(TypeOf("/Volumes/D"), "gm");
  fake.MakeSpecial("/Volumes/D/Windows/System32", platform::EntryKind::kDirectory);
  EXPECT_EQ(TypeOf("/Volumes/D"), "bc");
}

TEST_F(VolumeQueryTest, BackupVolumes) {
  FakePlatform::FakeVolume& disk = fake.AddVolume("/Volumes/D");
  fake.MakeFolders("/Volumes/D/Backups.backupdb");
  fake.MakeFolders("/Backups.backupdb");
  EXPECT_EQ(TypeOf("/Volumes/D"), "tm");
  EXPECT_EQ(TypeOf("/"), "gm");
  const std::string preferences = "/Library/Preferences/com.apple.TimeMachine.plist";
  fake.WriteFile(preferences,
                 "<plist version=\"1.0\"><dict><key>Destinations</key><array><dict><key>DestinationUUIDs</key>"
                 "<array><string>abcd0102-0304-0506-0708-090a0b0c0d0e</string><string>short</string>"
                 "<integer>1</integer></array></dict></array></dict></plist>");
  TqStringVector uuids;
  ASSERT_TRUE(TqFile::GetBackupVolumeUuids(uuids) && uuids.Count() == 1);
  EXPECT_STREQ(uuids.At(0).c_str(), "ABCD0102-0304-0506-0708-090A0B0C0D0E");
  EXPECT_EQ(TypeOf("/Volumes/D"), "gm");  // destinations are known: an old backup folder counts no longer
  disk.attributes.uuid = {0xAB, 0xCD, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
  EXPECT_EQ(TypeOf("/Volumes/D"), "tm");
  fake.WriteFile(preferences, "<plist version=\"1.0\"><array/></plist>");
  EXPECT_FALSE(TqFile::GetBackupVolumeUuids(uuids) || uuids.Count() != 0);
}

TEST_F(VolumeQueryTest, AttachedVolumesAreLocalBrowsableAndListedOnce) {
  fake.AddVolume("/Volumes/A");
  fake.AddVolume("/Volumes/A\\");  // the backslash is part of the name
  fake.AddVolume("/Volumes/Net").isLocal = false;
  fake.AddVolume("/Volumes/Hidden").isBrowsable = false;
  fake.AddVolume("/System/Volumes/Data");  // lies on "/"
  fake.AddVolume("/Volumes/Sick").queryErrno = EIO;
  fake.AddVolume("/Volumes/Odd").error = {"domain", 257, true, std::nullopt, false, std::nullopt};
  TqVolumeInfoList list;
  Add(list, kDiskGuid, "/old/");
  EXPECT_TRUE(TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(&list));
  EXPECT_EQ(Summary(list), " /; /Volumes/A/; /Volumes/A\\/;");
  EXPECT_TRUE(Logged("could not get any info about mac volume: /Volumes/Sick\n"));
}

TEST_F(VolumeQueryTest, ARootKeptBackByPrivacyProtectionIsNotEmpty) {
  AddIdentified("/Volumes/Disk", kDiskGuid);
  fake.fault = [](std::string_view operation, std::string_view listed) {
    return operation == "list" && listed.starts_with("/Volumes/Disk") ? EPERM : 0;
  };
  EXPECT_EQ(TypeOf("/Volumes/Disk"), "em");
  fake.privacyErrno = EPERM;
  EXPECT_EQ(TypeOf("/Volumes/Disk"), "gm");
}

}  // namespace
