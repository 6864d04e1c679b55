#include "volumes/volume_query.h"

#include <cerrno>

#include "tests/volumes/volumes_fixture.h"

namespace {

class VolumeQueryTest : public VolumesTest {
 protected:
  /// The type of the volume at `path`, "failed" when the query fails.
  std::string TypeOf(const char* path) {
    TqString copy(path);
    return TqFile::GetInfoAboutAttachedVolume(&copy, &volume) ? volume.volumeType : "failed";
  }
  void WriteBackupPreferences(const std::string& destinations) {
    fake.WriteFile(
        "/Library/Preferences/com.apple.TimeMachine.plist",
        "<plist version=\"1.0\"><dict><key>Destinations</key><array>" + destinations + "</array></dict></plist>");
  }
  TqVolumeInfo volume;
};

TEST_F(VolumeQueryTest, AutomountPathsSucceedWithNothingFilled) {
  for (const char* path : {"/net/host", "/NET", "/Home/bob", "/homework", "/VOLUMES", "/Volumes/"}) {
    EXPECT_EQ(TypeOf(path), "un") << path;
    EXPECT_TRUE(volume.mountPointPath.IsEmpty()) << path;
    EXPECT_EQ(volume.numBytesTotalOnVolume, 0U) << path;
  }
}

TEST_F(VolumeQueryTest, PathsThatNameNoVolumeFail) {
  TqString path("Volumes/Disk");
  EXPECT_FALSE(TqFile::GetInfoAboutAttachedVolume(&path, &volume));
  EXPECT_STREQ(path.c_str(), "Volumes/Disk/");
  EXPECT_TRUE(Logged("ERROR: TqFile::GetInfoAboutAttachedVolume, Invalid mount point Volumes/Disk"));
  TqString empty;
  EXPECT_FALSE(TqFile::GetInfoAboutAttachedVolume(&empty, &volume));
  EXPECT_TRUE(empty.IsEmpty());
  EXPECT_FALSE(TqFile::GetInfoAboutAttachedVolume(nullptr, &volume));
  EXPECT_FALSE(TqFile::GetInfoAboutAttachedVolume(&path, nullptr));
  fake.MakeFolders("/Volumes/Left");  // a folder that an unplugged drive left behind
  EXPECT_EQ(TypeOf("/Volumes/Left"), "failed");
  EXPECT_TRUE(Logged("ERROR: TqFile::GetInfoAboutAttachedVolume, getattrlist returned errno=22"));
  EXPECT_EQ(TypeOf("/Volumes/Gone"), "failed");
  EXPECT_TRUE(Logged("getattrlist returned errno=2\n"));
  EXPECT_TRUE(volume.mountPointPath.IsEmpty());
}

TEST_F(VolumeQueryTest, FillsTheRecordOfAMountedVolume) {
  FakePlatform::FakeVolume& disk = AddIdentified("/Volumes/Disk", kDiskGuid);
  disk.attributes.isCaseSensitive = true;
  TqString path("/Volumes/Disk/sub/dir/");
  ASSERT_TRUE(TqFile::GetInfoAboutAttachedVolume(&path, &volume));
  EXPECT_STREQ(path.c_str(), "/Volumes/Disk/");
  EXPECT_STREQ(volume.mountPointPath.c_str(), "/Volumes/Disk/");
  EXPECT_EQ(volume.numBytesTotalOnVolume, 1'000'000'000U);
  EXPECT_EQ(volume.numBytesFreeOnVolume, 250'000'000U);
  EXPECT_EQ(volume.numBytesUsedOnVolume, 500'000'000U);
  EXPECT_EQ(volume.lastTimeVolumeWasSeenAttachedGmtMillis, fake.nowMillis);
  EXPECT_TRUE(volume.volumeIsCurrentlyConnected && volume.isLocalMount && volume.isWritable && volume.isCaseSensitive &&
              volume.isCasePreserving);
  EXPECT_FALSE(volume.isSystemVolume);
  EXPECT_STREQ(volume.vguid, kDiskGuid);
  EXPECT_STREQ(volume.associatedHguid, kHostGuid);
  TypeOf("/");
  EXPECT_TRUE(volume.isSystemVolume);
  disk.attributes.isLocal = false;  // no media behind a network mount
  EXPECT_EQ(TypeOf("/Volumes/Disk/"), "un");
}

TEST_F(VolumeQueryTest, TypeComesFromTheMedia) {
  using platform::MediaObject;
  constexpr MediaObject kBus{};
  constexpr MediaObject kSlice{true, false, false, true};
  constexpr MediaObject kDisk{true, false, true, true};
  constexpr MediaObject kReadOnlyDisk{true, false, true, false};
  constexpr MediaObject kDisc{true, true, true, true};
  struct Case {
    platform::MediaWalk walk;
    bool holdsWindows;
    const char* type;
    bool isWritable;
  };
  const Case cases[] = {
      {{true, {}}, false, "un", false},
      {{true, {kBus}}, false, "un", false},
      {{true, {kSlice, kBus, kDisk}}, false, "gm", true},
      {{true, {kSlice, kBus}}, false, "un", false},  // not whole
      {{false, {kSlice, kBus}}, false, "gm", true},  // found another way: partitions count
      {{true, {kDisk, kReadOnlyDisk}}, false, "gm", false},
      {{true, {kDisk}}, true, "bc", true},
      {{true, {kDisc}}, true, "un", false},
      {{true, {kDisk, kDisc}}, false, "gm", true},
  };
  for (const Case& c : cases) {
    volume.Reset();
    TqFile::TakeTypeFromMedia(c.walk, c.holdsWindows, volume);
    EXPECT_STREQ(volume.volumeType, c.type) << &c - cases;
    EXPECT_EQ(volume.isWritable, c.isWritable) << &c - cases;
  }
}

TEST_F(VolumeQueryTest, TypeComesFromTheRootFolder) {
  fake.AddVolume("/Volumes/D");
  fake.MakeFolders("/Volumes/D/.Trashes");
  fake.WriteFile("/Volumes/D/AutoRun.inf", "");
  fake.MakeFolders("/Volumes/D/$RECYCLE.BIN");
  EXPECT_EQ(TypeOf("/Volumes/D"), "em");
  fake.MakeFolders("/Volumes/D/lost+found");
  EXPECT_EQ(TypeOf("/Volumes/D"), "gm");
  fake.Find("/Volumes/D")->openErrno = EACCES;
  EXPECT_EQ(TypeOf("/Volumes/D"), "em");
  fake.Find("/Volumes/D")->openErrno = 0;
  fake.WriteFile("/Volumes/D/Windows/System32", "a file, not a folder");
  EXPECT_EQ(TypeOf("/Volumes/D"), "gm");
  fake.Remove("/Volumes/D/Windows");
  fake.MakeFolders("/Volumes/D/Windows/System32");
  EXPECT_EQ(TypeOf("/Volumes/D"), "bc");
  fake.MakeFolders("/Volumes/D/Backups.backupdb");
  fake.MakeFolders("/Backups.backupdb");
  EXPECT_EQ(TypeOf("/Volumes/D"), "tm");
  EXPECT_EQ(TypeOf("/"), "gm");
}

TEST_F(VolumeQueryTest, BackupDestinationsDecideOnceThereAreAny) {
  FakePlatform::FakeVolume& disk = fake.AddVolume("/Volumes/D");
  fake.MakeFolders("/Volumes/D/Backups.backupdb");
  disk.attributes.uuid = {0xAB, 0xCD, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
  const std::string uuid = "abcd0102-0304-0506-0708-090a0b0c0d0e";
  const std::string otherKey = "<dict><key>DestinationID</key><string>" + uuid + "</string></dict>";
  WriteBackupPreferences(otherKey + "<dict><key>DestinationUUIDs</key><array><string>" + uuid +
                         "</string><string>short</string><integer>1</integer></array></dict>");
  TqStringVector uuids;
  EXPECT_TRUE(TqFile::GetBackupVolumeUuids(uuids));
  ASSERT_EQ(uuids.Count(), 1);
  EXPECT_STREQ(uuids.At(0).c_str(), "ABCD0102-0304-0506-0708-090A0B0C0D0E");
  EXPECT_TRUE(Logged("INFO: GetBackupVolumeUuids() - Unexpected CFType found."));
  EXPECT_EQ(TypeOf("/Volumes/D"), "tm");
  disk.attributes.uuid = {};  // another drive: its old backup folder counts no longer
  EXPECT_EQ(TypeOf("/Volumes/D"), "gm");
  fake.WriteFile("/Library/Preferences/com.apple.TimeMachine.plist", "<plist version=\"1.0\"><array/></plist>");
  EXPECT_FALSE(TqFile::GetBackupVolumeUuids(uuids));
  EXPECT_EQ(uuids.Count(), 0);
  EXPECT_TRUE(Logged("ERROR: GetBackupVolumeUuids() - Expected a dictionary but got something else."));
  EXPECT_EQ(TypeOf("/Volumes/D"), "tm");
}

TEST_F(VolumeQueryTest, AttachedVolumesAreLocalBrowsableAndListedOnce) {
  fake.AddVolume("/Volumes/A");
  fake.AddVolume("/Volumes/Net").isLocal = false;
  fake.AddVolume("/Volumes/Hidden").isBrowsable = false;
  fake.AddVolume("/System/Volumes/Data");  // lies on "/"
  fake.AddVolume("/Volumes/Sick").queryErrno = EIO;
  fake.AddVolume("/Volumes/Odd").error = {"domain", 257, true, std::nullopt, false, std::nullopt};
  fake.AddVolume("/Volumes/Z");
  TqVolumeInfoList list;
  Add(list, kDiskGuid, "/old/");
  EXPECT_TRUE(TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(&list));
  EXPECT_EQ(Summary(list), " /; /Volumes/A/; /Volumes/Z/;");
  EXPECT_TRUE(
      Logged("WARNING: R9File::QueryAllAttachedVolumesForVolumeInfo - could not get any info about mac volume: "
             "/Volumes/Sick\n"));
  for (const char* line :
       {"Error domain: domain\n", "Error code: 257\n", "Error description:  unknown because query returned null. C\n",
        "Error reason:  unknown because query returned null. D\n"}) {
    EXPECT_TRUE(Logged(line)) << line;
  }
  EXPECT_FALSE(TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(nullptr));
}

}  // namespace
