#include "scan/list_upkeep.h"

#include "tests/scan/scan_fixture.h"

/// The tidying-up steps by themselves; the drive is selected and unplugged.
class ListUpkeepTest : public ScanRunTest {
 protected:
  ListUpkeepTest() { fake.Unmount("/Volumes/Drive"); }
  void AgeOut(const char* retention = "uxe_30d") {
    fake.WriteFile(Data("tqreports/tqrollback_current_uxe.txt"), retention);
    WriteStubsForUnseenVolumes(Selected(), ReadRetentionPolicy(), swapper);
  }
  void FillMissing() { WriteStubsForMissingLists(Selected()); }
  TqVolumeInfoList& Selected() {
    ReadSelectionAgain(selected);
    return selected;
  }

  TqVolumeInfoList selected;
  TqTopDirsList plan;
  TqListOutput output{false};
  TqListSwapper swapper{plan, output};
};

TEST_F(ListUpkeepTest, AgingFollowsTheRetentionPolicy) {
  const char *year = "90 days one year rollback customer\n", *test = "2 days SPECIAL_TEST_PATH\n";
  const std::tuple<const char*, int, const char*> policies[] = {{"30d", 31, "30 days\n"},
                                                                {"x_rb365d", 91, year},
                                                                {"x_rb365z", 91, year},
                                                                {"_rb002", 3, test},
                                                                {"_rb002_rb365d", 3, test}};
  fake.localOffsetSeconds = -3'600;
  const std::string start = "# GmtMillisThisListWasStarted: 0000018bcfe56800, GmtDateTime: 20231114211320\n";
  for (const auto& [retention, firstDay, stub] : policies) {
    for (const int days : {firstDay - 1, firstDay, 100, 499, 500}) {
      PutList(kDriveList, kOldList);
      PutRegistry({days});
      AgeOut(retention);
      const std::string aged = start + "# Stub becaused drive has not been seen in " + stub;
      EXPECT_EQ(List(kDriveList), days >= firstDay && days < 500 ? aged : kOldList) << retention << days;
    }
  }
}

TEST_F(ListUpkeepTest, NoStubForAVolumeThatWasSeen) {
  const auto keepsList = [&](const char* why) {
    AgeOut();
    EXPECT_EQ(List(kDriveList), kOldList) << why;
  };
  PutRegistry({40, 3, 60});
  keepsList("newest line counts");
  PutRegistry({40});
  AddIdentified("/Volumes/Drive", kDiskGuid);
  keepsList("attached now");
  plan.dirs.Add("0/Volumes/Drive/");
  plan.vguids.Add(kDiskGuid);
  PutList(kDriveList + ".future", kOldList);
  swapper.SwapInAllLists();
  fake.Unmount("/Volumes/Drive");
  keepsList("swapped in during this run");
  Select({{kRootGuid, "/"}});
  keepsList("not selected");
}

TEST_F(ListUpkeepTest, AgingAsksTheVolumeItselfOnceMore) {
  PutRegistry({40});
  for (const auto& [vguid, isKept] : {std::pair{kDiskGuid, true}, {kOtherGuid, false}}) {
    Selected();  // sees no drive
    AddIdentified("/Volumes/Drive", vguid);
    WriteStubsForUnseenVolumes(selected, ReadRetentionPolicy(), swapper);
    EXPECT_EQ(List(kDriveList) == kOldList, isKept) << vguid;
    fake.Unmount("/Volumes/Drive");
  }
}

TEST_F(ListUpkeepTest, MissingListGetsAStubAfterASecondLook) {
  Fail("list", "");
  FillMissing();
  EXPECT_EQ(List(kDriveList), kOldList) << "a folder that cannot be listed proves nothing";
  fake.fault = nullptr;
  fake.Find(Data("tqfilelists"))->readErrno = EIO;
  fake.Find(Data("tqfilelists"))->readErrnoAfter = 1;
  FillMissing();
  EXPECT_EQ(List(kDriveList), kOldList) << "nor does one that cannot be listed to its end";
  fake.Find(Data("tqfilelists"))->readErrno = 0;
  RemoveList(kDriveList);
  PutList(std::string(kDiskGuid) + "_old__filelist.dat", "there");
  FillMissing();
  EXPECT_FALSE(HasList(kDriveList)) << "a list under any tag is a list: the volume was renamed";
  RemoveList(std::string(kDiskGuid) + "_old__filelist.dat");
  fake.sleepsMicros.clear();
  fake.onSleep = [&](std::int64_t) { PutList(kDriveList, "late"); };
  FillMissing();
  EXPECT_EQ(List(kDriveList), "late");
  RemoveList(kDriveList);
  fake.onSleep = nullptr;
  FillMissing();
  EXPECT_TRUE(List(kDriveList).ends_with("\n# Stub becaused file should have existed!\n"));
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(2, 5'000'000));
}

TEST_F(ListUpkeepTest, OnlyListsOfDeselectedVolumesAreDeleted) {
  const std::string other = kOtherGuid;
  const std::string capitals = "v001AAAAAAAAAAAAAAAAAAAAAAAA_driv";
  for (const std::string& kept : {other + "_els", other + "_else_", "w" + other.substr(1) + "_else", capitals}) {
    PutList(kept + "_filelist.dat", "");
  }
  fake.MakeLink(Data("tqfilelists/") + other + "_link_filelist.dat", "/Users");
  PutList(other + "_else_filelist.dat", "");
  std::vector<std::string> names = Folder();
  TqStringVector listed;
  DeleteAllFutureFiles(listed);
  DeleteListsOfDeselectedVolumes(listed, selected);
  EXPECT_EQ(Folder(), names) << "nothing selected: nothing deleted";
  DeleteListsOfDeselectedVolumes(listed, Selected());
  std::erase(names, other + "_else_filelist.dat");
  EXPECT_EQ(Folder(), names);
}

TEST_F(ListUpkeepTest, SelectionCountsOnlyWhenTheSettingsAreWhole) {
  const std::string whole = fake.ReadFile(Data("tqinfo.xml"));
  for (const std::string& text :
       {whole, std::string(), whole.substr(0, whole.size() - 10), std::string("<tqinfo>\n</tqinfo>\n")}) {
    fake.WriteFile(Data("tqinfo.xml"), text);
    EXPECT_EQ(Selected().Count(), text == whole ? 2 : 0) << text;
  }
}

TEST_F(ListUpkeepTest, LeftoversGoByTheirEndings) {
  for (const char* name : {"x.future", "x.future_", "completefilelist.dat.future", "v_filelist.dat.future_aside"}) {
    PutList(name, "");
  }
  fake.MakeFolders(Data("tqfilelists/folder.future"));
  fake.MakeLink(Data("tqfilelists/bigfilelist.dat.future"), "/etc/passwd");  // would be renamed into place
  DeleteFutureLists();
  EXPECT_EQ(Folder(), (std::vector<std::string>{"folder.future", kRootList, kDriveList, "x.future", "x.future_"}));
  TqStringVector names;
  DeleteAllFutureFiles(names);
  EXPECT_EQ(Folder(), (std::vector<std::string>{"folder.future", kRootList, kDriveList, "x.future_"}));
}
