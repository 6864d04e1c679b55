#include "scan/list_upkeep.h"

#include <cerrno>
#include <tuple>

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

// --- aging ---

TEST_F(ListUpkeepTest, AgingFollowsTheRetentionPolicy) {
  const std::string thirty = "# Stub becaused drive has not been seen in 30 days\n";
  const std::string ninety = "# Stub becaused drive has not been seen in 90 days one year rollback customer\n";
  const std::string two = "# Stub becaused drive has not been seen in 2 days SPECIAL_TEST_PATH\n";
  const std::vector<std::tuple<const char*, int, std::string>> cases = {
      {"uxe_30d", 30, ""},        {"uxe_30d", 31, thirty},    {"uxe_30d", 499, thirty},  {"uxe_30d", 500, ""},
      {"x_rb365d", 90, ""},       {"x_rb365d", 91, ninety},   {"x_rb365z", 499, ninety}, {"x_rb365z", 500, ""},
      {"_rb002", 2, ""},          {"_rb002", 3, two},         {"_rb002", 31, two},       {"_rb002", 500, ""},
      {"_rb002_rb365d", 90, two}, {"_rb002_rb365d", 91, two}, {"_rb002_rb365d", 500, ""}};
  for (const auto& [retention, days, line] : cases) {
    PutList(kDriveList, "old");
    PutRegistry({{kDataGuid, "/Volumes/Drive/", days}});
    AgeOut(retention);
    if (line.empty()) {
      EXPECT_EQ(List(kDriveList), "old") << retention << days;
    } else {
      EXPECT_TRUE(List(kDriveList).ends_with("\n" + line)) << retention << days << List(kDriveList);
    }
  }
  EXPECT_TRUE(
      Logged("WARNING: customer is paying for one year or more rollback, and it has been more than 90 days since "
             "we saw mountP=/Volumes/Drive/ so we have decided to generate the stub.\n"));
  EXPECT_TRUE(
      Logged("WARNING: AGING_FILES_OUT because it has been 31 days since drive has been seen, "
             "mountP=/Volumes/Drive/ with vGuid=" +
             Text(kDataGuid) + ", and lastRollbackHistoryEvent=uxe_30d\n"));
  EXPECT_TRUE(Logged("tqfilelist (processId=12345) customer has _rb365z so different external drive unplug policy.\n"));
}

TEST_F(ListUpkeepTest, AgingStubIsExact) {
  fake.localOffsetSeconds = -3'600;
  PutRegistry({{kDataGuid, "/Volumes/Drive/", 31}});
  AgeOut();
  EXPECT_EQ(List(kDriveList),
            "# GmtMillisThisListWasStarted: 0000018bcfe56800, GmtDateTime: 20231114211320\n"
            "# Stub becaused drive has not been seen in 30 days\n");
  EXPECT_FALSE(HasList(kDriveList + ".tmp"));
}

TEST_F(ListUpkeepTest, WarningBeginsBehindTwentyDays) {
  for (const int days : {20, 21}) {
    PutRegistry({{kDataGuid, "/Volumes/Drive/", days}});
    AgeOut();
    EXPECT_EQ(CountLogged("WARNING: it has been "), days == 21 ? 1 : 0);
  }
}

TEST_F(ListUpkeepTest, NoStubForAVolumeThatWasSeen) {
  const auto keepsList = [&](const char* why) {
    PutList(kDriveList, "old");
    AgeOut();
    EXPECT_EQ(List(kDriveList), "old") << why;
    EXPECT_EQ(CountLogged("WARNING: it has been "), 0) << why;
  };
  PutRegistry(
      {{kDataGuid, "/Volumes/Drive/", 40}, {kDataGuid, "/Volumes/Drive/", 3}, {kDataGuid, "/Volumes/Drive/", 60}});
  keepsList("newest line counts");
  PutRegistry({{kDataGuid, "/Volumes/Drive/", 40}});
  Attach("/Volumes/Drive", kDataGuid);
  keepsList("attached now");
  fake.Unmount("/Volumes/Drive");
  Select({{"/", kSystemGuid}});
  keepsList("not selected");
  SelectBoth();
  fake.WriteFile(Data("tqvolumes.xml"), "cut off");
  keepsList("registry cannot be read");
  EXPECT_TRUE(Logged("ERROR: TqUiUtil::TqVolumesXml_ReadTqVolumesXml failed 30 day ageout"));
}

TEST_F(ListUpkeepTest, NoStubForAVolumeSwappedInDuringTheRun) {
  Attach("/Volumes/Drive", kDataGuid);
  plan.dirs.Add("0/Volumes/Drive/");
  plan.vguids.Add(kDataGuid);
  PutList(kDriveList + ".future", "new");
  swapper.SwapInAllLists();
  fake.Unmount("/Volumes/Drive");
  PutRegistry({{kDataGuid, "/Volumes/Drive/", 40}});
  AgeOut();
  EXPECT_EQ(List(kDriveList), "new");
}

TEST_F(ListUpkeepTest, StubThatCannotBeWrittenLeavesTheList) {
  PutList(kDriveList, "old");
  PutRegistry({{kDataGuid, "/Volumes/Drive/", 31}});
  fake.fault = [&](std::string_view operation, std::string_view path) {
    return operation == "rename" && path.ends_with("\n" + Data("tqfilelists/") + kDriveList) ? EBUSY : 0;
  };
  AgeOut();
  EXPECT_EQ(List(kDriveList), "old");
  EXPECT_FALSE(HasList(kDriveList + ".tmp"));
  EXPECT_EQ(CountLogged("ERROR: AGING_FILES_OUT failed swap\n"), 1);
}

// --- missing lists ---

TEST_F(ListUpkeepTest, MissingListGetsAStubAfterASecondLook) {
  PutList(kRootList, "there");
  FillMissing();
  EXPECT_EQ(List(kDriveList),
            "# GmtMillisThisListWasStarted: 0000018bcfe57b88\n# Stub becaused file should have existed!\n");
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>{5'000'000});
  EXPECT_TRUE(
      Logged("ERROR: a drive that was selected for backup no per-vol-guidfilelist.dat file existed, creating stub "
             "for: /Volumes/Drive/ with vGuid=" +
             Text(kDataGuid)));

  fake.Remove(Data("tqfilelists/") + kDriveList);
  fake.onSleep = [&](std::int64_t) { PutList(kDriveList, "late"); };
  FillMissing();
  EXPECT_EQ(List(kDriveList), "late");
  EXPECT_TRUE(Logged("ERROR: it came back?"));
}

TEST_F(ListUpkeepTest, ListUnderAnyTagIsAList) {
  PutList(kRootList, "there");
  PutList(Text(kDataGuid) + "_old__filelist.dat", "there");
  FillMissing();
  EXPECT_FALSE(HasList(kDriveList)) << "the volume was renamed";

  PutList(kDriveList, "there");
  fake.fault = [](std::string_view operation, std::string_view) { return operation == "list" ? EIO : 0; };
  FillMissing();
  EXPECT_EQ(List(kDriveList), "there") << "a folder that cannot be listed proves nothing";
}

// --- deleting ---

TEST_F(ListUpkeepTest, OnlyListsOfDeselectedVolumesAreDeleted) {
  const std::string other = kOtherGuid;
  PutList(other + "_else_filelist.dat", "");
  PutList(other + "_els_filelist.dat", "");
  PutList(other + "_else__filelist.dat", "");
  PutList("w" + other.substr(1) + "_else_filelist.dat", "");
  PutList("V" + Text(kDataGuid).substr(1) + "_driv_filelist.dat", "");
  PutList("v001BBBBBBBBBBBBBBBBBBBBBBBB_driv_filelist.dat", "");
  fake.MakeLink(Data("tqfilelists/") + other + "_link_filelist.dat", "/Users");
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
  TqVolumeInfoList selected;
  ReadSelectionAgain(selected);
  EXPECT_EQ(selected.Count(), 2);
  const std::string whole = fake.ReadFile(Data("tqinfo.xml"));
  for (const std::string& text :
       {whole.substr(0, whole.size() - 10), std::string("<tqinfo>\n</tqinfo>\n"), std::string()}) {
    fake.WriteFile(Data("tqinfo.xml"), text);
    ReadSelectionAgain(selected);
    EXPECT_EQ(selected.Count(), 0) << text;
  }
  fake.WriteFile(Data("tqinfo.xml"), whole).openErrno = EACCES;
  ReadSelectionAgain(selected);
  EXPECT_EQ(selected.Count(), 0);
  EXPECT_EQ(CountLogged("ERROR: found no vol selected for backup in per-vol-guid cleanup"), 4);
}

TEST_F(ListUpkeepTest, LeftoversGoByTheirEndings) {
  for (const char* name : {"x.future", "x.future_aside", "x.future_", "completefilelist.dat.future",
                           "v_filelist.dat.future", "v_filelist.dat.future_aside", "bigfilelist.dat.future"}) {
    PutList(name, "");
  }
  fake.MakeFolders(Data("tqfilelists/folder.future"));
  DeleteFutureLists();
  EXPECT_EQ(Folder(), (std::vector<std::string>{"folder.future", "x.future", "x.future_", "x.future_aside"}));
  TqStringVector names;
  DeleteAllFutureFiles(names);
  EXPECT_EQ(Folder(), (std::vector<std::string>{"folder.future", "x.future_"}));
}
