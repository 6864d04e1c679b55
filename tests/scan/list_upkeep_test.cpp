#include "scan/list_upkeep.h"

#include <cerrno>

#include "tests/scan/scan_run_fixture.h"

/// The tidying-up steps by themselves; the drive is selected and unplugged.
class ListUpkeepTest : public ScanRunTest {
 protected:
  ListUpkeepTest() { fake.Unmount("/Volumes/Drive"); }
  void AgeOut(const char* retention = "uxe_30d") {
    TqVolumeInfoList selected;
    ReadSelectionAgain(selected);
    fake.WriteFile(Data("tqreports/tqrollback_current_uxe.txt"), retention);
    WriteStubsForUnseenVolumes(selected, ReadRetentionPolicy(), swapper);
  }
  void FillMissing() {
    TqVolumeInfoList selected;
    ReadSelectionAgain(selected);
    WriteStubsForMissingLists(selected);
  }

  TqTopDirsList plan;
  TqListOutput output{false};
  TqListSwapper swapper{plan, output};
};

TEST_F(ListUpkeepTest, AgingFollowsTheRetentionPolicy) {
  struct Policy {
    const char* retention;
    int firstDay;
    const char* stub;
  };
  for (const auto& [retention, firstDay, stub] :
       {Policy{"30d", 31, "30 days\n"}, Policy{"x_rb365d", 91, "90 days one year rollback customer\n"},
        Policy{"x_rb365z", 91, "90 days one year rollback customer\n"},
        Policy{"_rb002", 3, "2 days SPECIAL_TEST_PATH\n"}, Policy{"_rb002_rb365d", 3, "2 days SPECIAL_TEST_PATH\n"}}) {
    for (const int days : {firstDay - 1, firstDay, 100, 499, 500}) {
      PutList(kDriveList, kOldList);
      PutRegistry({days});
      AgeOut(retention);
      const bool isAged = days >= firstDay && days < 500;
      const std::string line = std::string("\n# Stub becaused drive has not been seen in ") + stub;
      EXPECT_EQ(List(kDriveList) == kOldList, !isAged) << retention << days;
      EXPECT_EQ(List(kDriveList).ends_with(line), isAged) << retention << days << List(kDriveList);
    }
  }
  EXPECT_TRUE(
      Logged("WARNING: customer is paying for one year or more rollback, and it has been more than 90 days since "
             "we saw mountP=/Volumes/Drive/ so we have decided to generate the stub.\n"));
  EXPECT_TRUE(
      Logged("WARNING: AGING_FILES_OUT because it has been 31 days since drive has been seen, "
             "mountP=/Volumes/Drive/ with vGuid=v001bbbbbbbbbbbbbbbbbbbbbbbb, and "
             "lastRollbackHistoryEvent=30d\n"));
}

TEST_F(ListUpkeepTest, AgingStubIsExact) {
  fake.localOffsetSeconds = -3'600;
  PutRegistry({20});
  AgeOut();
  EXPECT_FALSE(Logged("WARNING: it has been 20 days"));
  PutRegistry({31});
  AgeOut();
  EXPECT_TRUE(Logged("WARNING: it has been 31 days"));
  EXPECT_EQ(List(kDriveList),
            "# GmtMillisThisListWasStarted: 0000018bcfe56800, GmtDateTime: 20231114211320\n"
            "# Stub becaused drive has not been seen in 30 days\n");
}

TEST_F(ListUpkeepTest, NoStubForAVolumeThatWasSeen) {
  const auto keepsList = [&](const char* why) {
    AgeOut();
    EXPECT_EQ(List(kDriveList), kOldList) << why;
    EXPECT_FALSE(Logged("WARNING: it has been ")) << why;
  };
  PutRegistry({40, 3, 60});
  keepsList("newest line counts");
  PutRegistry({40});
  Attach("/Volumes/Drive", kDataGuid);
  keepsList("attached now");
  plan.dirs.Add("0/Volumes/Drive/");
  plan.vguids.Add(kDataGuid);
  PutList(kDriveList + ".future", kOldList);
  swapper.SwapInAllLists();
  fake.Unmount("/Volumes/Drive");
  keepsList("swapped in during this run");
  Select({{"/", kSystemGuid}});
  keepsList("not selected");
}

TEST_F(ListUpkeepTest, MissingListGetsAStubAfterASecondLook) {
  RemoveList(kDriveList);
  fake.onSleep = [&](std::int64_t) { PutList(kDriveList, "late"); };
  FillMissing();
  EXPECT_EQ(List(kDriveList), "late");
  EXPECT_TRUE(Logged("ERROR: it came back?"));
  EXPECT_TRUE(
      Logged("ERROR: a drive that was selected for backup no per-vol-guidfilelist.dat file existed, creating stub "
             "for: /Volumes/Drive/ with vGuid=v001bbbbbbbbbbbbbbbbbbbbbbbb"));
  RemoveList(kDriveList);
  fake.onSleep = nullptr;
  FillMissing();
  EXPECT_EQ(List(kDriveList),
            "# GmtMillisThisListWasStarted: 0000018bcfe58f10\n# Stub becaused file should have existed!\n");
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(2, 5'000'000));
}

TEST_F(ListUpkeepTest, ListUnderAnyTagIsAList) {
  fake.fault = [](std::string_view operation, std::string_view) { return operation == "list" ? EIO : 0; };
  FillMissing();
  EXPECT_EQ(List(kDriveList), kOldList) << "a folder that cannot be listed proves nothing";
  fake.fault = nullptr;
  RemoveList(kDriveList);
  PutList(Text(kDataGuid) + "_old__filelist.dat", "there");
  FillMissing();
  EXPECT_FALSE(HasList(kDriveList)) << "the volume was renamed";
}

TEST_F(ListUpkeepTest, OnlyListsOfDeselectedVolumesAreDeleted) {
  const std::string other = kOtherGuid;
  for (const std::string& kept :
       {other + "_els_filelist.dat", other + "_else__filelist.dat", "w" + other.substr(1) + "_else_filelist.dat",
        std::string("v001BBBBBBBBBBBBBBBBBBBBBBBB_driv_filelist.dat")}) {
    PutList(kept, "");
  }
  fake.MakeLink(Data("tqfilelists/") + other + "_link_filelist.dat", "/Users");
  PutList(other + "_else_filelist.dat", "");
  const std::size_t before = Folder().size();
  TqStringVector names;
  DeleteAllFutureFiles(names);
  TqVolumeInfoList selected;
  DeleteListsOfDeselectedVolumes(names, selected);
  EXPECT_EQ(Folder().size(), before) << "nothing selected: nothing deleted";
  ReadSelectionAgain(selected);
  DeleteListsOfDeselectedVolumes(names, selected);
  EXPECT_EQ(Folder().size(), before - 1);
  EXPECT_FALSE(HasList(other + "_else_filelist.dat"));
}

TEST_F(ListUpkeepTest, SelectionCountsOnlyWhenTheSettingsAreWhole) {
  const std::string whole = fake.ReadFile(Data("tqinfo.xml"));
  TqVolumeInfoList selected;
  ReadSelectionAgain(selected);
  EXPECT_EQ(selected.Count(), 2);
  for (const std::string& text :
       {std::string(), whole.substr(0, whole.size() - 10), std::string("<tqinfo>\n</tqinfo>\n")}) {
    fake.WriteFile(Data("tqinfo.xml"), text);
    ReadSelectionAgain(selected);
    EXPECT_EQ(selected.Count(), 0) << text;
  }
}

TEST_F(ListUpkeepTest, LeftoversGoByTheirEndings) {
  for (const char* name : {"x.future", "x.future_", "completefilelist.dat.future", "v_filelist.dat.future_aside"}) {
    PutList(name, "");
  }
  fake.MakeFolders(Data("tqfilelists/folder.future"));
  DeleteFutureLists();
  EXPECT_EQ(Folder(), (std::vector<std::string>{"folder.future", kRootList, kDriveList, "x.future", "x.future_"}));
  TqStringVector names;
  DeleteAllFutureFiles(names);
  EXPECT_EQ(Folder(), (std::vector<std::string>{"folder.future", kRootList, kDriveList, "x.future_"}));
}
