#include "volumes/volume_info.h"

#include "tests/volumes/volumes_fixture.h"

class VolumeInfoTest : public VolumesTest {};

TEST_F(VolumeInfoTest, MountPointsAndListNames) {
  for (const char* path : {"", "/Users/a", "/Volumes", "/Volumes/", "/Volumesx/D/"}) {
    EXPECT_EQ(TqFile::GetVolumePathOfDir(path), "/") << path;
  }
  for (const char* path : {"/Volumes/D", "/Volumes/D/sub/dir"})
    EXPECT_EQ(TqFile::GetVolumePathOfDir(path), "/Volumes/D/");
  EXPECT_EQ(TqFile::GetVolumePathOfDir("/voLUMES/D/a"), "/voLUMES/D/");
  EXPECT_EQ(Joined(TqFile::ListNameTag("/Users/"), " ", TqFile::ListNameTag("")), "root c___");
  const std::pair<std::string, const char*> tags[] = {
      {"X", "x___"},
      {"a:b,c", "a_b_"},
      {"A\\b", "a_b_"},
      {"a\xE6\x97\xA5z", "a\xE6\x97\xA5"},
      {"ab\xE6\x97\xA5", "ab__"}};  // the last cut goes through the character
  for (const auto& [name, tag] : tags) EXPECT_EQ(TqFile::ListNameTag(("/Volumes/" + name).c_str()), tag) << name;
  const TqString path = TqFile::PerVolumeListPath(kDiskGuid, "/Volumes/Data/sub");
  EXPECT_EQ(path.c_str(), Data("tqfilelists/v001aaaaaaaaaaaaaaaaaaaaaaaa_data_filelist.dat"));
}

TEST_F(VolumeInfoTest, RecordCopiesWhatFits) {
  TqVolumeInfo full, copy;
  full.SetType("gmx");
  full.SetVguid(kDiskGuid);
  full.SetAssociatedHguid("0123456789abcdef012345678");  // one too many
  full.volumeUuid = {0x0A, 0xbc, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 0xFF};
  full.CopyTo(copy);
  EXPECT_STREQ(copy.UuidText().c_str(), "0ABC0102-0304-0506-0708-090A0B0C0DFF");
  EXPECT_EQ(std::string(copy.volumeType) + copy.vguid + copy.associatedHguid, "gm" + std::string(kDiskGuid));
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
  EXPECT_EQ(list.AddNew()->lastSeenInDays, -1);  // the removed record, reset
  list.Clear();
  EXPECT_EQ(list.AddNew()->lastSeenInDays, 0);  // handed out as it was left
}
