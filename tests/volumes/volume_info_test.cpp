#include "volumes/volume_info.h"

#include "tests/volumes/volumes_fixture.h"

namespace {

class VolumeInfoTest : public VolumesTest {};

TEST_F(VolumeInfoTest, MountPointOfAPath) {
  const std::pair<const char*, const char*> cases[] = {
      {"/", "/"},
      {"", "/"},
      {"/Users/a", "/"},
      {"/Volumes", "/"},
      {"/Volumes/", "/"},
      {"/Volumesx/Disk/", "/"},
      {"/Volumes/Disk", "/Volumes/Disk/"},
      {"/Volumes/Disk/sub/dir", "/Volumes/Disk/"},
      {"/voLUMES/Disk/a", "/voLUMES/Disk/"},  // recognised in any case, spelling kept
  };
  for (const auto& [path, mountPoint] : cases)
    EXPECT_STREQ(TqFile::GetVolumePathOfDir(path).c_str(), mountPoint) << path;
}

TEST_F(VolumeInfoTest, ListNames) {
  const std::pair<const char*, const char*> cases[] = {
      {"/", "root"},
      {"/Users/", "root"},
      {"", "c___"},
      {"/Volumes/Data/sub", "data"},
      {"/Volumes/X", "x___"},
      {"/Volumes/a:b,c", "a_b_"},
      {"/Volumes/A\\b", "a_b_"},
      {"/Volumes/ab\xE6\x97\xA5", "ab__"},  // the cut goes through the character
      {"/Volumes/a\xE6\x97\xA5z", "a\xE6\x97\xA5"},
  };
  for (const auto& [directory, tag] : cases) EXPECT_STREQ(TqFile::ListNameTag(directory).c_str(), tag) << directory;
  const std::string path = TqFile::PerVolumeListPath(kDiskGuid, "/Volumes/Data/sub").c_str();
  EXPECT_EQ(path, Data("tqfilelists/") + kDiskGuid + "_data_filelist.dat");
  EXPECT_EQ(path.size() - Data("tqfilelists/").size(), static_cast<std::size_t>(kListNameLength));
}

TEST_F(VolumeInfoTest, CopyTakesEveryFieldAndResetClearsIt) {
  const auto expectEqual = [](const TqVolumeInfo& a, const TqVolumeInfo& b) {
    TqString jsonA;
    TqString jsonB;
    a.ToJson(jsonA);
    b.ToJson(jsonB);
    EXPECT_STREQ(jsonA.c_str(), jsonB.c_str());
    EXPECT_STREQ(a.volumeType, b.volumeType);
    EXPECT_STREQ(a.vguid, b.vguid);
    EXPECT_STREQ(a.associatedHguid, b.associatedHguid);
    EXPECT_EQ(a.lastTimeVolumeWasSeenAttachedGmtMillis, b.lastTimeVolumeWasSeenAttachedGmtMillis);
    EXPECT_EQ(a.volumeUuid, b.volumeUuid);
    EXPECT_EQ(a.isLocalMount, b.isLocalMount);
    EXPECT_EQ(a.defconLevel, b.defconLevel);
    EXPECT_EQ(a.lastSeenInDays, b.lastSeenInDays);
    EXPECT_EQ(a.lastFileListedInDays, b.lastFileListedInDays);
    EXPECT_EQ(a.lastFilePushedInDays, b.lastFilePushedInDays);
    EXPECT_EQ(a.reserved32[2], b.reserved32[2]);
    EXPECT_EQ(a.reserved64[2], b.reserved64[2]);
  };
  TqVolumeInfo full;
  full.numBytesFreeOnVolume = 1;
  full.numBytesUsedOnVolume = 2;
  full.numBytesTotalOnVolume = 18'446'744'073'709'551'615U;
  full.lastTimeVolumeWasSeenAttachedGmtMillis = 4;
  full.volumeIsCurrentlyConnected = full.volumeIsSelectedForBackup = full.isSystemVolume = true;
  full.isCasePreserving = full.isLocalMount = true;
  full.SetType("gmx");
  full.SetVguid(kDiskGuid);
  full.SetAssociatedHguid(kHostGuid);
  full.mountPointPath = "/Volumes/\"D/";
  full.volumeUuid = {0x0A, 0xbc, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 0xFF};
  full.defconLevel = full.lastSeenInDays = full.lastFileListedInDays = full.lastFilePushedInDays = 5;
  full.reserved32[2] = 6;
  full.reserved64[2] = 7;
  TqString json;
  full.ToJson(json);
  EXPECT_STREQ(json.c_str(),
               "{\"mountPointPath\":\"/Volumes/\"D/\",\"numBytesFreeOnVolume\":1,\"numBytesUsedOnVolume\":2,"
               "\"numBytesTotalOnVolume\":18446744073709551615,\"volumeIsCurrentlyConnected\":true,"
               "\"volumeIsSelectedForBackup\":true,\"isSystemVolume\":true,\"isWritable\":false,"
               "\"isCaseSensitive\":false,\"isCasePreserving\":true}");
  EXPECT_STREQ(full.UuidText().c_str(), "0ABC0102-0304-0506-0708-090A0B0C0DFF");
  TqVolumeInfo copy;
  full.CopyTo(copy);
  expectEqual(copy, full);
  EXPECT_STREQ(copy.volumeType, "gm");
  copy.Reset();
  expectEqual(copy, TqVolumeInfo());
  EXPECT_TRUE(copy.UuidText().IsEmpty());
  full.SetVguid("v00");
  full.SetAssociatedHguid("0123456789abcdef012345678");
  EXPECT_STREQ(full.vguid, "");
  EXPECT_STREQ(full.associatedHguid, "");
}

TEST_F(VolumeInfoTest, ListRecyclesItsRecords) {
  TqVolumeInfoList list;
  std::vector<std::int32_t> capacities;
  for (int i = 0; i < 16; ++i) {
    list.AddNew()->lastSeenInDays = i;
    if (capacities.empty() || capacities.back() != list.Capacity()) capacities.push_back(list.Capacity());
  }
  EXPECT_EQ(capacities, (std::vector<std::int32_t>{5, 15, 25}));
  list.RemoveAt(3);
  EXPECT_EQ(list.Get(3)->lastSeenInDays, 4);
  EXPECT_EQ(list.Get(15), nullptr);
  EXPECT_EQ(list.AddNew()->lastSeenInDays, -1);  // the removed record, reset
  list.Clear();
  EXPECT_EQ(list.AddNew()->lastSeenInDays, 0);  // handed out as it was left
  EXPECT_EQ(list.Get(-1), nullptr);
}

TEST_F(VolumeInfoTest, ListLooksUpAndSorts) {
  TqVolumeInfoList list;
  Add(list, kOtherGuid, "/Volumes/b/", 1);
  Add(list, kDiskGuid, "/Volumes/b/", 2);
  Add(list, kDiskGuid, "/Volumes/b/", 3);
  Add(list, kRootGuid, "/Volumes/\xC3\xA9/", 4);  // signed bytes: before every ASCII name
  list.SortForDisplay();
  std::string order;
  for (const TqVolumeInfo* volume : list) order += std::to_string(volume->lastTimeVolumeWasSeenAttachedGmtMillis);
  EXPECT_EQ(order, "4231");
  EXPECT_TRUE(list.ContainsMountPoint("/Volumes/b/deep/dir"));
  EXPECT_FALSE(list.ContainsMountPoint("/Volumes/B"));
  EXPECT_FALSE(list.ContainsMountPoint("/Users"));
  EXPECT_EQ(list.FindVguid(kDiskGuid), list.Get(1));
}

}  // namespace
