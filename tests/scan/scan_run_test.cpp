#include "tests/scan/scan_run_fixture.h"

namespace {

/// Calls `action` once, when the walk lists `folder` (two levels below its volume, so that planning does not list it).
void WhenListed(FakePlatform& fake, const std::string& folder, const std::function<void()>& action) {
  fake.fault = [folder, action, done = false](std::string_view operation, std::string_view path) mutable {
    if (operation != "list" || path != folder || done) return 0;
    done = true;
    action();
    return 0;
  };
}

}  // namespace

// --- runs to the end ---

TEST_F(ScanRunTest, FreshRunReplacesEverythingLeftOver) {
  for (const char* leftover : {"completefilelist.dat", "bigfilelist.dat.future", "topdirs.xml.future", "x.future_aside",
                               "urgent_is_still_running_flag.txt"}) {
    PutList(leftover, "left over");
  }
  PutList(kDriveList + ".future", "left over\n");
  fake.WriteFile("/Volumes/Drive/photos/huge.mov", "").fakeSize = 524'288'000;
  int listedBefore = 0;
  fake.fault = [this, &listedBefore](std::string_view operation, std::string_view) {
    listedBefore += operation == "list" && fake.sideEffectRestrictions == 0 ? 1 : 0;
    return 0;
  };
  ASSERT_EQ(Run(), 0);
  EXPECT_EQ(listedBefore, 0) << "side effects are restricted before anything is listed";
  EXPECT_EQ(fake.sideEffectRestrictions, 1);
  EXPECT_EQ(Folder(),
            (std::vector<std::string>{"bigfilelist.dat", "filestats.xml", "topdirs.xml", kRootList, kDriveList}));
  EXPECT_EQ(List("bigfilelist.dat"), "t\t524288000\t/Volumes/Drive/photos/huge.mov\n");
  EXPECT_TRUE(List(kDriveList)
                  .starts_with("# GmtMillisThisListWasStarted: 0000018bcfe576d8, GmtDateTime: 20231114221323\n#\n# "
                               "Dir: /Volumes/Drive\n"));
  EXPECT_EQ(Count(List(kDriveList), "\nf\t"), 6);
  EXPECT_NE(List("filestats.xml").find("totally_final=\"true\""), std::string::npos);
  EXPECT_TRUE(fake.Has(Data("tqreports/tqstat_progs.txt")) && fake.Has(Data("tqreports/tqserv_perm_report.txt")));
}

TEST_F(ScanRunTest, SecondRunIsPacedAndKeepsTheUrgentFlag) {
  for (int i = 0; i < 230; ++i) fake.MakeFolders("/Volumes/Drive/m" + std::to_string(i));
  const auto pauses = [&] { return std::count(fake.sleepsMicros.begin(), fake.sleepsMicros.end(), 3'000'000); };
  ASSERT_EQ(Run(), 0);
  EXPECT_EQ(pauses(), 1) << "the ping's own";
  PutList("urgent_is_still_running_flag.txt", "");
  ASSERT_EQ(Run(), 0);
  EXPECT_EQ(pauses(), 1 + 1 + 2);
  EXPECT_TRUE(HasList("urgent_is_still_running_flag.txt"));
}

TEST_F(ScanRunTest, FirstInstallWritesItsSeconds) {
  WhenListed(fake, "/Volumes/Drive/photos/2020", [&] { fake.nowMillis += 7'499; });
  ASSERT_EQ(Run([](TqRunState& run) { run.firstInstall = run.urgent = true; }), 0);
  EXPECT_NE(List("firstfilescantime.xml").find("install_fscan_numsecs=\"7\""), std::string::npos);
  EXPECT_NE(List("topdirs.xml").find("secs_to_scan=\"7\" path=\"2/Volumes/Drive/photos/2020/\""), std::string::npos);
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
  const auto refuses = [&](int status, const char* message) {
    EXPECT_EQ(Run(), status) << message;
    EXPECT_TRUE(Logged(message));
    EXPECT_EQ(List(kDriveList), kOldList) << message;
    EXPECT_FALSE(HasList("tqfilelist_hour_lock.lck")) << message;
  };
  fake.WriteFile(Data("tqexcluderules_editable.xml"), "");
  refuses(0, "ERROR: first TqInfoManager::LoadAllExcludeFilenameRulesProperly returned false, exiting");
  fake.Remove(Data("tqexcluderules_editable.xml"));
  Select({});
  refuses(0, "no drives selected for backup, exiting...");
  fake.Remove(Data("tqinfo.xml"));
  refuses(0, "got three hour lock");
  EXPECT_EQ(CountLogged("LoadAllExcludeFilenameRulesProperly returned false"), 1) << "missing settings end it silently";
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
  EXPECT_NE(List("topdirs.xml.future").find(" next_to_index=\"5\" "), std::string::npos) << "saved before the stop";
  EXPECT_NE(List("filestats.xml.future").find("totally_final=\"false\""), std::string::npos);

  PutList("topdirs.xml", "an earlier one");
  for (int i = 0; i < 120; ++i) fake.MakeFolders("/Volumes/Drive/m" + std::to_string(i));
  bool listedAfterTheRequest = false;
  fake.fault = [&](std::string_view operation, std::string_view) {
    listedAfterTheRequest |= operation == "list" && HasList("tqfilelist_stop_run.txt");
    return 0;
  };
  fake.onSleep = [&, pauses = 0](std::int64_t micros) mutable {
    if (micros == 3'000'000 && ++pauses == 2) PutList("tqfilelist_stop_run.txt", "");
  };
  stops("after a pause");
  EXPECT_FALSE(listedAfterTheRequest);
  EXPECT_EQ(CountLogged(" - STOP RUNNING file is in place, deleting file and exiting!"), 3);

  fake.onSleep = nullptr;
  EXPECT_EQ(Run(), 0);
  const std::string list = List(kRootList);
  EXPECT_EQ(list.find("# Dir: /Users/bob\n"), list.rfind("# Dir: /Users/bob\n"))
      << "appended to the stopped run's list";
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

// --- volumes that go away, disks that fill up, damaged files ---

TEST_F(ScanRunTest, UnpluggedVolumeKeepsItsListEvenWhenItCameBackBetweenTwoListings) {
  for (const bool comesBack : {true, false}) {
    WhenListed(fake, "/Volumes/Drive/photos/2020", [&] {
      fake.Unmount("/Volumes/Drive", !comesBack);
      if (comesBack) Attach("/Volumes/Drive", kDataGuid);
      for (const char* year : {"2020", "2021"}) {
        if (comesBack) fake.MakeFolders(std::string("/Volumes/Drive/photos/") + year);
      }
    });
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Logged("GetListOfFileInfosInDir failed"), !comesBack);
    EXPECT_EQ(List(kDriveList), kOldList);
    EXPECT_EQ(Folder(), (std::vector<std::string>{"filestats.xml", "topdirs.xml", kRootList, kDriveList}));
  }
  EXPECT_EQ(List("topdirs.xml").find("/Volumes/Drive"), std::string::npos);
}

TEST_F(ScanRunTest, FullDiskNeverReplacesAGoodList) {
  PutList("bigfilelist.dat", "old");
  for (const char* file : {"huge.mov", "2020/huge.mov"}) {
    fake.WriteFile(std::string("/Volumes/Drive/photos/") + file, "").fakeSize = 600'000'000;
  }
  fake.fault = [&](std::string_view operation, std::string_view path) {
    if (operation == "list" && path == "/Volumes/Drive/photos/2020") fake.diskBytesLeft = 0;
    if (operation == "list" && path == "/Volumes/Drive/photos/2021") fake.diskBytesLeft = -1;
    return 0;
  };
  EXPECT_EQ(Run(), 0);
  EXPECT_NE(List(kRootList), kOldList);
  EXPECT_EQ(List(kDriveList), kOldList);
  EXPECT_EQ(List("bigfilelist.dat"), "old");
  EXPECT_EQ(Folder().size(), 5U);
}

TEST_F(ScanRunTest, DamagedStateFilesCostNoList) {
  ASSERT_EQ(Run(), 0);
  const std::string deselected = Text(kOtherGuid) + "_else_filelist.dat";
  PutList(deselected, "kept");
  PutList("topdirs.xml", "<contents><stats");
  fake.WriteFile(Data("tqvolumes.xml"), "<contents><tqvolume tqVolumeGuid=\"");
  fake.WriteFile(Data("tqreports/tqdefcon.xml"), "garbage");
  const std::string settings = fake.ReadFile(Data("tqinfo.xml"));
  // The settings are whole when the run begins and cut off when it tidies up.
  WhenListed(fake, "/Volumes/Drive/photos/2021",
             [&] { fake.WriteFile(Data("tqinfo.xml"), settings.substr(0, settings.find("<tqvolume") + 100)); });
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(List(deselected), "kept");
  EXPECT_NE(List(kDriveList).find("2021/b.jpg"), std::string::npos);
  SelectBoth();
  EXPECT_EQ(Run(), 0);
  EXPECT_FALSE(HasList(deselected));
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
    EXPECT_NE(List("topdirs.xml.future").find(" next_to_index=\"9\" "), std::string::npos);
    const std::string leftover = Data("tqfilelists/topdirs.xml.future");
    fake.fault = [leftover](std::string_view operation, std::string_view path) {
      const bool aside = operation == "rename" && path == leftover + "\n" + leftover + "_aside";
      return aside || (operation == "unlink" && path == leftover) ? EPERM : 0;
    };
    PutList("topdirs.xml", "an earlier one");
  }
  void ExpectWholeList() {
    const std::string list = List(kDriveList);
    for (const char* once : {"# GmtMillis", "a.jpg", "b.jpg"}) {
      EXPECT_NE(list.find(once), std::string::npos) << once;
      EXPECT_EQ(list.find(once), list.rfind(once)) << once;
    }
    EXPECT_NE(List("filestats.xml").find("everythingnum=\"4\""), std::string::npos);
  }
};

TEST_F(ResumeTest, GoesOnWhereTheLastRunStopped) {
  const std::string marked = List(kDriveList + ".future") + "# mark of the first run\n";
  PutList(kDriveList + ".future", marked);
  ASSERT_EQ(Run(), 0);
  EXPECT_TRUE(List(kDriveList).starts_with(marked + "#\n# Dir: /Volumes/Drive/photos/2021\n")) << List(kDriveList);
  ExpectWholeList();
}

TEST_F(ResumeTest, StartsAnewWithoutTheHalfWrittenList) {
  RemoveList(kDriveList + ".future");
  ASSERT_EQ(Run(), 0);
  ExpectWholeList();
}

TEST_F(ResumeTest, StartsAnewWithoutAReadablePlan) {
  PutList("topdirs.xml.future", "<contents>\n<stats numtopdirs=\"10\" next_to_index=\"9\" />\n</contents>\n");
  ASSERT_EQ(Run(), 0);
  ExpectWholeList();
}

TEST_F(ResumeTest, UrgentRunWalksALeftoverPlanFromItsStart) {
  ASSERT_EQ(Run([](TqRunState& run) { run.urgent = true; }), 0);
  ExpectWholeList();
}

// --- urgency by age of a list ---

TEST_F(ScanRunTest, OldListOfAnElevatedVolumeIsMadeFirst) {
  for (const char* vguid : {kSystemGuid, kDataGuid}) {
    fake.WriteFile(Data("tqlogs/tqreports_lastfilestransmitted/tqstat_pervol_") + vguid + "_latest_file.xml",
                   "<x gmt_millis=\"" + std::to_string(fake.nowMillis) + "\" />");
  }
  PutRegistry({0});
  for (const int days : {14, 15}) {
    TqUiUtil::ForgetDefconCache();
    PutList("topdirs.xml", "an earlier one");
    PutList(kDriveList,
            Joined(std::string_view(kOldList).substr(0, 31), Hex16(fake.nowMillis - days * 86'400'000LL)).c_str());
    bool driveCameFirst = false;
    WhenListed(fake, "/Users/bob", [&] { driveCameFirst = List(kDriveList).find("b.jpg") != std::string::npos; });
    ASSERT_EQ(Run(), 0);
    EXPECT_TRUE(driveCameFirst);
    EXPECT_EQ(CountLogged(" URGENTLY topdirs.xml.future did not exist"), days == 15 ? 1 : 0);
  }
}
