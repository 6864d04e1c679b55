#include "scan/top_dirs.h"

#include "tests/scan/scan_fixture.h"

/// The texts, each followed by ";".
static std::string All(const TqStringVector& texts) {
  TqString all;
  for (const TqString* text : texts) AppendAll(all, *text, ";");
  return all.c_str();
}

class TopDirsTest : public ScanTest {
 protected:
  TopDirsTest() {
    list.secondsTable = seconds.data();
    AttachSystemVolume();
  }

  void Plan(const TqVolumeInfo* defcon = nullptr) {
    const auto stop = [](void*) { throw ExitCalled{0}; };
    ScanDiskAndCreateTopDirsListInRam(list, defcon != nullptr, defcon, stop, nullptr);
  }
  /// An entry without planning.
  void AddEntry(const char* dir, const char* vguid) {
    list.dirs.Add(dir);
    list.vguids.Add(vguid);
    ++list.count;
  }

  std::vector<std::int32_t> seconds = std::vector<std::int32_t>(TqTopDirsList::kMaxSeconds);
  TqTopDirsList list;
  const std::string path = Data("tqfilelists/topdirs.xml");
};

TEST_F(TopDirsTest, PlansTwoLevelsOfEveryAttachedVolumeSortedByPath) {
  AddIdentified("/Volumes/Data", kDiskGuid);
  AddIdentified("/Volumes/Bad", kOtherGuid);
  fake.Find("/Volumes/Bad")->openErrno = EACCES;
  for (const char* folder : {"/Users/al/deep", "/Users/\xC3\x84", "/Users-x", "/Library/x", "/Volumes/Data/Developer/x",
                             "/Volumes/Data/Library/x", "/opt/local", "/Windows/x", "/.Spotlight-v100/x", "/share/nas",
                             "/sealed", "/Volumes/Data/pics/2020"}) {
    fake.MakeFolders(folder);
  }
  fake.MakeLink("/link", "/Users");
  fake.MakeLink("/Users/link", "/Users/al");
  fake.Find("/sealed")->openErrno = EACCES;
  fake.skippedMounts = {{"/share/nas", "//nas/share", "smbfs"}};
  const std::string gone = "v003dddddddddddddddddddddddd";
  Select({{kRootGuid, "/"}, {kDiskGuid, "/Volumes/Data/"}, {kOtherGuid, "/Volumes/Bad/"}, {gone, "/Volumes/Gone/"}},
         "<tqdirfilter dir=\"/volumes/data/developer/\" whichfiles=\"none\"/> \n");
  TqVolumeInfo defcon;
  defcon.mountPointPath = "/Volumes/Data/";
  Plan(&defcon);

  // "-" sorts before "/", a byte of 0x80 or more before ASCII.
  EXPECT_EQ(All(list.dirs),
            "0/Volumes/Data/;1/Volumes/Data/.tqvol/;1/Volumes/Data/Library/;2/Volumes/Data/Library/x/;"
            "1/Volumes/Data/pics/;2/Volumes/Data/pics/2020/;0/;1/Users-x/;1/Users/;2/Users/\xC3\x84/;2/Users/al/;"
            "1/sealed/;1/share/;");
  for (std::int32_t i = 0; i < list.count; ++i) EXPECT_EQ(list.vguids.At(i), i < 6 ? kDiskGuid : kRootGuid);
  EXPECT_EQ(list.count, 13);
}

TEST_F(TopDirsTest, WhatNeedNotLastGetsASecondListingAndAMountPointIsPlannedWholeOrNotAtAll) {
  AddIdentified("/Volumes/Data", kDiskGuid);
  fake.MakeFolders("/Volumes/Data/a/x");
  Select({{kDiskGuid, "/Volumes/Data/"}});
  const std::string top = "0/Volumes/Data/;1/Volumes/Data/.tqvol/;1/Volumes/Data/a/;",
                    all = top + "2/Volumes/Data/a/x/;";
  const std::tuple<const char*, int, bool, std::string> cases[] = {{"/Volumes/Data", EIO, false, ""},
                                                                   {"/Volumes/Data", EIO, true, all},
                                                                   {"/Volumes/Data/a", EIO, false, top},
                                                                   {"/Volumes/Data/a", EIO, true, all},
                                                                   {"/Volumes/Data/a", EACCES, false, top}};
  for (const auto& [folder, error, recovers, planned] : cases) {
    FakePlatform::Node& node = *fake.Find(folder);
    node.readErrno = error;  // at the first entry behind ".tqvol", or at once
    node.readErrnoAfter = node.children.size() > 1 ? 1 : 0;
    fake.sleepsMicros.clear();
    fake.onSleep = [&, mends = recovers](std::int64_t) { node.readErrno = mends ? 0 : error; };
    Plan();
    EXPECT_EQ(All(list.dirs), planned) << folder << recovers;
    EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(error == EACCES ? 0 : 1, 1'000'000));
    node.readErrno = 0;
  }
}

TEST_F(TopDirsTest, LeavesOutPrintersOnlyInLowerCase) {
  for (const char* folder : {"/library/printers/x", "/library/Printers"}) fake.MakeFolders(folder);
  Select({{kRootGuid, "/"}});  // without any filter no directory counts as excluded
  Plan();
  EXPECT_EQ(All(list.dirs), "0/;1/Library/;2/Library/Kestrune.tqpkg/;1/library/;2/library/Printers/;");
  Select({{kDiskGuid, "/Volumes/Gone/"}});
  EXPECT_THROW(Plan(), ExitCalled) << "no selected volume is attached";
}

TEST_F(TopDirsTest, WritesActiveEntriesAndCountsTheNextIndexAmongThem) {
  AddEntry("0/", kRootGuid);
  AddEntry("1/gone/", "");
  AddEntry("", kDiskGuid);
  AddEntry("2/a&\"b/", kRootGuid);
  list.SetSeconds(3, 17);
  list.SetSeconds(TqTopDirsList::kMaxSeconds, 5);  // beyond the table: must not be stored
  list.next_to_index = 3;
  list.num_times_mount_points_verified = 2;
  list.millis_to_produce = 34;
  list.gmt_millis = fake.nowMillis;
  ASSERT_TRUE(WriteTopDirsXmlFile(path, list));
  EXPECT_EQ(fake.ReadFile(path),
            "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n"
            "<stats numtopdirs=\"4\" num_times_mount_points_verified=\"2\" millis_to_produce=\"34\" "
            "next_to_index=\"1\" gmt_millis=\"0000018bcfe56800\" gmt_datetime=\"20231114221320\" />\n"
            "<dir num=\"0\" vguid=\"v000rrrrrrrrrrrrrrrrrrrrrrrr\" secs_to_scan=\"0\" path=\"0/\" />\n"
            "<dir num=\"1\" vguid=\"v000rrrrrrrrrrrrrrrrrrrrrrrr\" secs_to_scan=\"17\" path=\"2/a&amp;&quot;b/\" />\n"
            "</contents>\n");

  seconds.assign(seconds.size(), 0);
  ASSERT_TRUE(ReadTopDirsXmlFile(path, list));
  EXPECT_EQ(All(list.dirs), "0/;2/a&\"b/;");
  EXPECT_TRUE(list.SecondsOf(1) == 17 && list.next_to_index == 1);
  EXPECT_EQ(list.gmt_millis, 18) << "written in hexadecimal, read as the decimal digits before the first letter";
}

TEST_F(TopDirsTest, AFullDiskKeepsTheOldFileAndAFailedRenameIsTriedFiveTimes) {
  fake.WriteFile(path, "old");
  AddEntry("0/", kRootGuid);
  Fail("rename", "");
  EXPECT_TRUE(WriteTopDirsXmlFile(path, list));
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(5, 1'000'000));
  fake.fault = nullptr;
  fake.diskBytesLeft = 20;
  EXPECT_FALSE(WriteTopDirsXmlFile(path, list));
  EXPECT_EQ(fake.ReadFile(path), "old");
}

TEST_F(TopDirsTest, ReadsDamagedFilesLeniently) {
  AddIdentified("/Volumes/Data", kDiskGuid);
  AddIdentified("/Volumes/Data2", kOtherGuid);
  Select({{kDiskGuid, "/Volumes/Data/"}, {kOtherGuid, "/Volumes/Data2/"}});
  EXPECT_FALSE(ReadTopDirsXmlFile("/missing.xml", list));
  fake.WriteFile(path, "<contents>\n<stats next_to_index=\"1\" />\n</contents>\n");
  EXPECT_FALSE(ReadTopDirsXmlFile(path, list));
  fake.WriteFile(path,
                 "<contents>\n<stats next_to_index=\"-2\" />\n<dir vguid=\"v\" path=\"2/Volumes/Data2/x/\" />\n"
                 "<dir path=\"2/Users/x/\" secs_to_scan=\"5\" />\n<dir vguid=\"v000aaaa\" />\n");
  ASSERT_TRUE(ReadTopDirsXmlFile(path, list));
  EXPECT_EQ(All(list.vguids), kOtherGuid + std::string(";;v000aaaa;")) << "/Volumes/Data is a mere prefix";
  EXPECT_TRUE(list.next_to_index == 0 && list.SecondsOf(1) == 5 && !list.IsActive(1) && !list.IsActive(2));
}

TEST_F(TopDirsTest, VerifyingDropsAVolumeThatWentAway) {
  AddIdentified("/Volumes/Data", kDiskGuid);
  AddIdentified("/Volumes/Stays", kOtherGuid);
  AddEntry("0/Volumes/Data/", kDiskGuid);
  AddEntry("2/Volumes/Data/b\\c/", kDiskGuid);
  AddEntry("2/Volumes/Stays/x/", "V002BBBBBBBBBBBBBBBBBBBBBBBB");
  const std::string good = Data("tqfilelists/") + kDiskGuid + "_data_filelist.dat";
  for (const char* ending : {"", ".future"}) fake.WriteFile(good + ending, "a list");
  EXPECT_TRUE(VerifyMountPointsAndCorrectTopDirs(list, nullptr));

  fake.Unmount("/Volumes/Data");
  const TqString below = "/Volumes/Data/b_-backslash-_c/d";
  EXPECT_TRUE(VerifyMountPointsAndCorrectTopDirs(list, &below));
  EXPECT_TRUE(fake.Has(good + ".future"));

  const TqString top = "/Volumes/Data/b_-backslash-_c";
  EXPECT_FALSE(VerifyMountPointsAndCorrectTopDirs(list, &top));
  EXPECT_EQ(All(list.dirs), ";;2/Volumes/Stays/x/;");
  EXPECT_TRUE(list.IsActive(2) && fake.Has(good) && !fake.Has(good + ".future"));
  EXPECT_EQ(list.num_times_mount_points_verified, 3);
}

TEST_F(TopDirsTest, FromThe21stOnVerifiesAtMostOnceInFiveMinutes) {
  AddEntry("0/Volumes/Gone/", kDiskGuid);
  list.num_times_mount_points_verified = 20;
  for (const auto& [waited, isDue] : {std::pair{0, false}, {299'999, false}, {1, true}}) {
    fake.nowMillis += waited;
    EXPECT_EQ(VerifyMountPointsAndCorrectTopDirs(list, nullptr), !isDue) << waited;
    EXPECT_EQ(list.num_times_mount_points_verified, isDue ? 21 : 20) << waited;
  }
}
