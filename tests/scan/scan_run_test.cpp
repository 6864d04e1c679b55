#include "tests/scan/scan_fixture.h"

/// Calls `action` once, when the walk lists `folder` (two levels below its volume, so that planning does not list it).
static void WhenListed(FakePlatform& fake, const std::string& folder, const std::function<void()>& action) {
  fake.fault = [folder, action, done = false](std::string_view operation, std::string_view path) mutable {
    if (operation == "list" && path == folder && !std::exchange(done, true)) action();
    return 0;
  };
}

// --- runs to the end ---

TEST_F(ScanRunTest, FreshRunReplacesEverythingLeftOver) {
  for (const char* leftover : {"completefilelist.dat", "bigfilelist.dat.future", "topdirs.xml.future", "x.future_aside",
                               "urgent_is_still_running_flag.txt"}) {
    PutList(leftover, "left over");
  }
  PutList(kDriveList + ".future", "left over\n");
  fake.WriteFile("/Volumes/Drive/photos/huge.mov", "").fakeSize = 524'288'000;
  fake.fault = [this](std::string_view operation, std::string_view) {
    EXPECT_FALSE(operation == "list" && fake.sideEffectRestrictions == 0) << "they come before anything is listed";
    return 0;
  };
  ASSERT_EQ(Run(), 0);
  EXPECT_EQ(Folder(),
            (std::vector<std::string>{"bigfilelist.dat", "filestats.xml", "topdirs.xml", kRootList, kDriveList}));
  EXPECT_EQ(List("bigfilelist.dat"), "t\t524288000\t/Volumes/Drive/photos/huge.mov\n");
  EXPECT_TRUE(List(kDriveList).starts_with("# GmtMillisThisListWasStarted: 0000018bcfe576d8, GmtDateTime: 2023111422"));
  EXPECT_EQ(Count(List(kDriveList), "\nf\t"), 6);
  EXPECT_EQ(Count(List("filestats.xml"), "totally_final=\"true\""), 1);
  EXPECT_TRUE(fake.Has(Data("tqreports/tqstat_progs.txt")) && fake.Has(Data("tqreports/tqserv_perm_report.txt")));
}

TEST_F(ScanRunTest, FirstInstallWritesItsSeconds) {
  WhenListed(fake, "/Volumes/Drive/photos/2020", [&] { fake.nowMillis += 7'499; });
  ASSERT_EQ(Run([](TqRunState& run) { run.firstInstall = run.urgent = true; }), 0);
  EXPECT_EQ(Count(List("firstfilescantime.xml"), "install_fscan_numsecs=\"7\""), 1);
  EXPECT_EQ(Count(List("topdirs.xml"), "secs_to_scan=\"7\" path=\"2/Volumes/Drive/photos/2020/\""), 1);
}

TEST_F(ScanRunTest, MountVerificationRecordOnlyGrows) {
  const std::string path = Data("tqreports/tqstat_max_verify_mounts.txt");
  for (const auto& [before, after] : {std::pair{" 7\n", " 7\n"}, {"0", "1"}, {"many", "1"}, {"", "1"}}) {
    fake.WriteFile(path, before);
    ASSERT_EQ(Run(), 0);
    EXPECT_EQ(fake.ReadFile(path), after) << before;
  }
}

// --- runs that do not begin, or are ended ---

TEST_F(ScanRunTest, RefusesToRun) {
  const auto refuses = [&](const char* message, int status = 0) {
    EXPECT_EQ(Run(), status) << message;
    EXPECT_TRUE(Logged(message) && !HasList("tqfilelist_hour_lock.lck")) << message;
    EXPECT_EQ(List(kDriveList), kOldList) << message;
  };
  fake.WriteFile(Data("tqupdates/tqflag_selfdestructflag.txt"), "nuke_and_pave now");
  refuses("TQFILELIST - Self Destruct Flag Set so not running", 1);
  fake.WriteFile(Data("tqupdates/tqflag_selfdestructflag.txt"), "do not nuke_and_pave");
  fake.WriteFile(Data("tqreports/tqclient_end_of_life.txt"), TqVersionString());
  refuses("]:\tTQFILELIST - client version has reached End-Of-Life, exiting", 1);
  fake.Remove(Data("tqreports/tqclient_end_of_life.txt"));
  Select({});
  refuses("no drives selected for backup, exiting...");
  fake.WriteFile(Data("tqexcluderules_editable.xml"), "");
  refuses("ERROR: first TqInfoManager::LoadAllExcludeFilenameRulesProperly returned false, exiting");
  for (const char* settings : {"tqexcluderules_editable.xml", "tqinfo.xml"}) fake.Remove(Data(settings));
  refuses("got three hour lock");
  SelectBoth();
  PutList("tqfilelist_hour_lock.lck", "another run's");
  EXPECT_EQ(Run(), 0);
  EXPECT_TRUE(HasList("tqfilelist_hour_lock.lck") && List(kDriveList) == kOldList);
  fake.nowMillis += 10'800'000 + 1'000;
  EXPECT_EQ(Run(), 0);
  EXPECT_NE(List(kDriveList), kOldList) << "a dead run's lock is broken";
}

TEST_F(ScanRunTest, StopsAtEachCheckPoint) {
  const auto stops = [&](const char* where) {
    EXPECT_EQ(Run(), 0) << where;
    EXPECT_FALSE(HasList("tqfilelist_stop_run.txt") || HasList("tqfilelist_hour_lock.lck")) << where;
    EXPECT_EQ(List(kRootList), kOldList) << where;
  };
  PutList("tqfilelist_stop_run.txt", "");
  stops("at the start");
  EXPECT_FALSE(Logged("three hour lock"));

  WhenListed(fake, "/Users/bob", [&] {
    PutList("tqfilelist_stop_run.txt", "");
    fake.nowMillis += 5'001;
  });
  stops("after a top directory");
  EXPECT_EQ(Count(List("topdirs.xml.future"), " next_to_index=\"5\" "), 1) << "saved before the stop";
  EXPECT_EQ(Count(List("filestats.xml.future"), "totally_final=\"false\""), 1);

  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Count(List(kRootList), "# Dir: /Users/bob\n"), 1) << "not appended to the stopped run's list";
}

TEST_F(ScanRunTest, LosingTheLockEndsTheRun) {
  for (const auto& [folder, millis] : {std::pair{"/Users/bob", 300'001}, {"/Volumes/Drive/photos/2021", 20'000}}) {
    WhenListed(fake, folder, [&] {
      fake.nowMillis += millis;
      PutList("tqfilelist_hour_lock.lck", "another run's");
    });
    EXPECT_EQ(Run(), 1) << folder;
    EXPECT_EQ(List("tqfilelist_hour_lock.lck") + List(kRootList), std::string("another run's") + kOldList);
    RemoveList("tqfilelist_hour_lock.lck");
  }
  EXPECT_EQ(CountLogged(", just_after_main_disk analysis"), 1) << "the first run ended inside its walk";
}

TEST_F(ScanRunTest, VolumeThatCameBackBetweenTwoListingsKeepsItsList) {
  WhenListed(fake, "/Volumes/Drive/photos/2020", [&] {
    fake.Unmount("/Volumes/Drive", false);
    AddIdentified("/Volumes/Drive", kDiskGuid);
    for (const char* folder : {"2020", "2021"}) fake.MakeFolders(std::string("/Volumes/Drive/photos/") + folder);
  });
  EXPECT_EQ(Run(), 0);
  EXPECT_TRUE(List(kDriveList) == kOldList && !Logged("GetListOfFileInfosInDir failed"));
}

// --- resuming ---

/// A run was stopped inside the drive, and its progress file cannot be deleted.
class ResumeTest : public ScanRunTest {
 protected:
  ResumeTest() {
    WhenListed(fake, "/Volumes/Drive/photos/2020", [&] {
      fake.nowMillis += 5'001;
      PutList("tqfilelist_stop_run.txt", "");
    });
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Count(List("topdirs.xml.future"), " next_to_index=\"9\" "), 1);
    const std::string leftover = Data("tqfilelists/topdirs.xml.future");
    fake.fault = [leftover](std::string_view operation, std::string_view path) {
      const bool aside = operation == "rename" && path == leftover + "\n" + leftover + "_aside";
      return aside || (operation == "unlink" && path == leftover) ? EPERM : 0;
    };
    PutList("topdirs.xml", "an earlier one");
  }
  /// One run makes a list that holds everything once.
  void ExpectWholeList(void (*change)(TqRunState&) = nullptr) {
    ASSERT_EQ(Run(change), 0);
    for (const char* once : {"# GmtMillis", "a.jpg", "b.jpg"}) EXPECT_EQ(Count(List(kDriveList), once), 1) << once;
    EXPECT_EQ(Count(List("filestats.xml"), "everythingnum=\"4\""), 1);
  }
};

TEST_F(ResumeTest, GoesOnWhereTheLastRunStopped) {
  const std::string marked = List(kDriveList + ".future") + "# mark of the first run\n";
  PutList(kDriveList + ".future", marked);
  ExpectWholeList();
  EXPECT_TRUE(List(kDriveList).starts_with(marked + "#\n# Dir: /Volumes/Drive/photos/2021\n")) << List(kDriveList);
}

TEST_F(ResumeTest, StartsAnewWithoutTheHalfWrittenList) {
  RemoveList(kDriveList + ".future");
  ExpectWholeList();
}

TEST_F(ResumeTest, StartsAnewWithoutAReadablePlan) {
  PutList("topdirs.xml.future", "<contents>\n<stats numtopdirs=\"10\" next_to_index=\"9\" />\n</contents>\n");
  ExpectWholeList();
}

TEST_F(ResumeTest, StartsAnewWhenThePlanBeginsAtItsStart) {
  TqString plan(List("topdirs.xml.future"));
  plan.ReplaceAll(" next_to_index=\"9\" ", " next_to_index=\"0\" ");
  PutList("topdirs.xml.future", plan.c_str());
  ExpectWholeList();
}

TEST_F(ResumeTest, UrgentRunWalksALeftoverPlanFromItsStart) {
  ExpectWholeList([](TqRunState& run) { run.urgent = true; });
}

// --- urgency by age of a list ---

TEST_F(ScanRunTest, OldListOfAnElevatedVolumeIsMadeFirst) {
  for (const char* vguid : {kRootGuid, kDiskGuid}) {
    fake.WriteFile(Data("tqlogs/tqreports_lastfilestransmitted/tqstat_pervol_") + vguid + "_latest_file.xml",
                   "<x gmt_millis=\"" + std::to_string(fake.nowMillis) + "\" />");
  }
  PutRegistry({0});
  for (const int days : {14, 15}) {
    TqUiUtil::ForgetDefconCache();
    PutList("topdirs.xml", "an earlier one");
    const TqString start = Hex16(fake.nowMillis - days * 86'400'000LL);
    PutList(kDriveList, Joined("# GmtMillisThisListWasStarted: ", start).c_str());
    ASSERT_EQ(Run(), 0);
    EXPECT_EQ(CountLogged(" URGENTLY topdirs.xml.future did not exist"), days == 15 ? 1 : 0);
  }
}
