#include <cerrno>
#include <regex>

#include "base/clock.h"
#include "tests/scan/scan_run_fixture.h"

namespace {

constexpr const char* kOldList = "# GmtMillisThisListWasStarted: 0000018bcfe50000, GmtDateTime: 20231114221300\nold\n";

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
  for (const char* leftover : {"completefilelist.dat", "completefilelist.dat.future_aside", "bigfilelist.dat.future",
                               "topdirs.xml.future", "other.future", "urgent_is_still_running_flag.txt"}) {
    PutList(leftover, "left over");
  }
  PutList(kDriveList + ".future", "left over\n");
  PutList(kRootList, kOldList);
  fake.WriteFile("/Volumes/Drive/photos/huge.mov", "").fakeSize = 524'288'000;
  ASSERT_EQ(Run(), 0);

  EXPECT_EQ(Folder(),
            (std::vector<std::string>{"bigfilelist.dat", "filestats.xml", "topdirs.xml", kRootList, kDriveList}));
  EXPECT_EQ(List("bigfilelist.dat"), "t\t524288000\t/Volumes/Drive/photos/huge.mov\n");
  const std::string time = "f\t[0-9a-f]{16}\t";
  EXPECT_TRUE(std::regex_match(
      List(kDriveList), std::regex("# GmtMillisThisListWasStarted: 0000018bcfe576d8, GmtDateTime: 20231114221323\n"
                                   "#\n# Dir: /Volumes/Drive\n# Files: 1\n" +
                                   time +
                                   "1\t/Volumes/Drive/file.txt\n"
                                   "#\n# Dir: /Volumes/Drive/.tqvol\n# Files: 2\n(" +
                                   time +
                                   ".*\n){2}"
                                   "#\n# Dir: /Volumes/Drive/photos\n# Files: 1\n" +
                                   time +
                                   "524288000\t/Volumes/Drive/photos/huge.mov\n"
                                   "#\n# Dir: /Volumes/Drive/photos/2020\n# Files: 1\n" +
                                   time +
                                   "3\t/Volumes/Drive/photos/2020/a.jpg\n"
                                   "#\n# Dir: /Volumes/Drive/photos/2021\n# Files: 1\n" +
                                   time + "4\t/Volumes/Drive/photos/2021/b.jpg\n")))
      << List(kDriveList);
  EXPECT_NE(List(kRootList).find("\t5\t/Users/bob/Documents/letter.doc\n"), std::string::npos);
  EXPECT_NE(List("topdirs.xml").find(" next_to_index=\"0\" "), std::string::npos);
  EXPECT_NE(List("filestats.xml").find("totally_final=\"true\""), std::string::npos);
  EXPECT_EQ(fake.ReadFile(Data("tqreports/tqstat_max_verify_mounts.txt")), "1");
  EXPECT_EQ(fake.ReadFile(Data("tqreports/tqstat_progs.txt")), "no_none");
  EXPECT_EQ(LogText().find("AddFilenamesFromThisDirToList"), std::string::npos) << "details outside the verbose mode";
  EXPECT_FALSE(HasList("firstfilescantime.xml"));
}

TEST_F(ScanRunTest, SecondRunIsPacedAndKeepsTheUrgentFlag) {
  for (int i = 0; i < 230; ++i) fake.MakeFolders("/Volumes/Drive/many/" + std::to_string(1000 + i));
  ASSERT_EQ(Run(), 0);
  const auto pauses = [&] { return std::count(fake.sleepsMicros.begin(), fake.sleepsMicros.end(), 3'000'000); };
  EXPECT_EQ(pauses(), 1) << "the ping's own";
  PutList("urgent_is_still_running_flag.txt", "");
  fake.sleepsMicros.clear();
  ASSERT_EQ(Run(), 0);
  EXPECT_EQ(pauses(), 1 + 2);
  EXPECT_TRUE(HasList("urgent_is_still_running_flag.txt"));
  EXPECT_TRUE(Logged("tqfilelist processId=12345 topdirs.xml.future did not exist, starting fresh scan"));
  EXPECT_EQ(CountLogged(", i=10, "), 4) << "first and second line, two runs";
  EXPECT_EQ(CountLogged(", i=11, "), 0);
  EXPECT_EQ(CountLogged(", i=150, "), 4);
  EXPECT_EQ(CountLogged(", i=160, "), 0);
}

TEST_F(ScanRunTest, FirstInstallIsUrgentAndWritesItsSeconds) {
  PutList("topdirs.xml", "an earlier one");
  PutRegistry({{kSystemGuid, "/", 0}, {kDataGuid, "/Volumes/Drive/", 0}});
  WhenListed(fake, "/Volumes/Drive/photos/2020", [&] { fake.nowMillis += 7'499; });
  ASSERT_EQ(Run([](TqRunState& run) { run.firstInstall = run.urgent = true; }), 0);
  EXPECT_EQ(List("firstfilescantime.xml"),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<firsttimestats>\n<stat install_fscan_numsecs=\"7\" "
            "/>\n</firsttimestats>\n");
  EXPECT_NE(List("topdirs.xml").find("secs_to_scan=\"7\" path=\"2/Volumes/Drive/photos/2020/\""), std::string::npos);
  EXPECT_TRUE(Logged(" URGENTLY and AT_FIRST_INSTALL_TIME topdirs.xml.future did not exist"));
  EXPECT_TRUE(Logged("exiting out of main, numSeconds=10"));
}

TEST_F(ScanRunTest, VerboseModeTellsEachStepAndWritesLineByLine) {
  ASSERT_EQ(Run([](TqRunState& run) { run.bufferingOff = true; }), 0);
  for (const char* detail :
       {"processId=12345 entering into top_of_loop index=0",
        " About to AddFilenamesFromThisDirToList, index=0, dir=/\n",
        " After AddFilenamesFromThisDirToList, index=0, dir=/\n",
        " About to RecursivelyAddFilenamesToList, index=4, dir=/Users/bob/, numMBytesCurrentVirtualMemSize=1000, "
        "numMBytesCurrentResidentMemSize=100, numMBytesCurrentHardwareRamMemSize=16384",
        "finished with loop index=9, about to loop to top and start next iteration.",
        ", skippingOptimization because we are so close to end anyway"}) {
    EXPECT_TRUE(Logged(detail)) << detail;
  }
}

TEST_F(ScanRunTest, MountVerificationRecordOnlyGrows) {
  const std::string path = Data("tqreports/tqstat_max_verify_mounts.txt");
  for (const auto& [before, after] :
       std::vector<std::pair<std::string, std::string>>{{" 7\n", " 7\n"}, {"0", "1"}, {"many", "1"}, {"", "1"}}) {
    fake.WriteFile(path, before);
    ASSERT_EQ(Run(), 0);
    EXPECT_EQ(fake.ReadFile(path), after) << before;
  }
}

// --- runs that do not begin ---

TEST_F(ScanRunTest, RefusesToRun) {
  PutList(kDriveList, kOldList);
  const auto refuses = [&](int status, const char* message) {
    EXPECT_EQ(Run(), status) << message;
    EXPECT_TRUE(Logged(message));
    EXPECT_EQ(List(kDriveList), kOldList) << message;
    EXPECT_FALSE(HasList("tqfilelist_hour_lock.lck")) << message;
  };
  const std::string selfDestruct = Data("tqupdates/tqflag_selfdestructflag.txt");
  fake.WriteFile(selfDestruct, "nuke_and_pave now");
  refuses(1, "TQFILELIST - Self Destruct Flag Set so not running");
  fake.WriteFile(selfDestruct, "do not nuke_and_pave");
  fake.WriteFile(Data("tqreports/tqclient_end_of_life.txt"), Text(" ") + TqVersionString() + " \nmore");
  refuses(1, "TQFILELIST - client version has reached End-Of-Life, exiting");
  EXPECT_TRUE(Logged("scan_run.cpp:"));
  fake.WriteFile(Data("tqreports/tqclient_end_of_life.txt"), "0.0.1");
  fake.WriteFile(Data("tqexcluderules_editable.xml"), "");
  refuses(0, "ERROR: first TqInfoManager::LoadAllExcludeFilenameRulesProperly returned false, exiting");
  fake.Remove(Data("tqexcluderules_editable.xml"));
  Select({});
  refuses(0, "no drives selected for backup, exiting...");
  fake.Remove(Data("tqinfo.xml"));
  refuses(0, "got three hour lock");
}

TEST_F(ScanRunTest, SecondCopyExitsQuietly) {
  PutList("tqfilelist_hour_lock.lck", "");
  EXPECT_EQ(Run(), 0);
  EXPECT_TRUE(
      Logged("tqfilelist processId=12345 could not grab three hour lock, so some OTHER tqfilelist is already "
             "running, exiting quietly"));
  EXPECT_TRUE(HasList("tqfilelist_hour_lock.lck"));
  fake.nowMillis += 10'800'000 + 1'000;
  EXPECT_EQ(Run(), 0) << "a lock of a dead run is broken";
  EXPECT_TRUE(HasList(kRootList));
}

// --- stop requests ---

TEST_F(ScanRunTest, StopsAtEachCheckPoint) {
  const auto requestStop = [&] { PutList("tqfilelist_stop_run.txt", ""); };
  const auto stopped = [&](const char* where) {
    EXPECT_EQ(Run(), 0) << where;
    EXPECT_FALSE(HasList("tqfilelist_stop_run.txt")) << where;
    EXPECT_FALSE(HasList("tqfilelist_hour_lock.lck")) << where;
    EXPECT_EQ(List(kRootList), kOldList) << where;
  };
  PutList(kRootList, kOldList);
  requestStop();
  stopped("at the start");
  EXPECT_FALSE(Logged("three hour lock"));

  WhenListed(fake, "/Users/bob", [&] {
    requestStop();
    fake.nowMillis += 5'001;
  });
  stopped("after a top directory");
  EXPECT_NE(List("topdirs.xml.future").find(" next_to_index=\"5\" "), std::string::npos) << "saved before the stop";
  EXPECT_NE(List("filestats.xml.future").find("totally_final=\"false\""), std::string::npos);
  EXPECT_TRUE(HasList(kRootList + ".future"));

  fake.fault = nullptr;
  PutList("topdirs.xml", "an earlier one");
  for (int i = 0; i < 120; ++i) fake.WriteFile("/Users/m" + std::to_string(i) + "/f", "");
  fake.onSleep = [&, pauses = 0](std::int64_t micros) mutable {
    if (micros == 3'000'000 && ++pauses == 2) requestStop();
  };
  stopped("after a pause");
  EXPECT_EQ(CountLogged(" - STOP RUNNING file is in place, deleting file and exiting!"), 3);

  fake.onSleep = nullptr;
  EXPECT_EQ(Run(), 0);
  EXPECT_NE(List(kRootList), kOldList);
  EXPECT_EQ(List(kRootList).find("# Dir: /Users/bob\n"), List(kRootList).rfind("# Dir: /Users/bob\n"))
      << "nothing was appended to the stopped run's list";
}

// --- the lock ---

TEST_F(ScanRunTest, LosingTheLock) {
  PutList(kDriveList, kOldList);
  const std::string lock = Data("tqfilelists/tqfilelist_hour_lock.lck");
  WhenListed(fake, "/Users/bob", [&] {
    fake.nowMillis += 3'000'001;
    fake.WriteFile(lock, "another run's");
  });
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(fake.ReadFile(lock), "another run's");
  EXPECT_EQ(List(kDriveList), kOldList);
  EXPECT_TRUE(Logged("WARNING: tqfilelist processId= 12345 more than 50 minutes since last refresh, elapsedMillis=30"));
  EXPECT_TRUE(Logged("ERROR: tqfilelist processId= 12345 lost hour lock and could not grab it again, exiting!!"));

  fake.Remove(lock);
  WhenListed(fake, "/Users/bob", [&] {
    fake.nowMillis += 300'001;
    fake.Remove(lock);
  });
  EXPECT_EQ(Run(), 0);
  EXPECT_TRUE(
      Logged(" - "
             " lost hour lock but grabbed it back again, so continuing on...\n"));
  EXPECT_FALSE(fake.Has(lock));
  EXPECT_NE(List(kDriveList), kOldList);
}

TEST_F(ScanRunTest, LockIsLookedAtOnceMoreBeforeTheSwaps) {
  PutList(kDriveList, kOldList);
  WhenListed(fake, "/Volumes/Drive/photos/2021", [&] {
    fake.nowMillis += 20'000;
    PutList("tqfilelist_hour_lock.lck", "another run's");
  });
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(List(kDriveList), kOldList);
}

// --- volumes that go away, disks that fill up ---

TEST_F(ScanRunTest, UnpluggedVolumeKeepsItsList) {
  PutList(kDriveList, kOldList);
  WhenListed(fake, "/Volumes/Drive/photos/2020", [&] { fake.Unmount("/Volumes/Drive"); });
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(List(kDriveList), kOldList);
  EXPECT_EQ(Folder(), (std::vector<std::string>{"filestats.xml", "topdirs.xml", kRootList, kDriveList}));
  EXPECT_EQ(List("topdirs.xml").find("/Volumes/Drive"), std::string::npos);
}

TEST_F(ScanRunTest, VolumeThatCameBackDuringTheWalkKeepsItsList) {
  PutList(kDriveList, kOldList);
  // Between two top directories, so that no listing ever fails.
  WhenListed(fake, "/Volumes/Drive/photos/2020", [&] {
    fake.Unmount("/Volumes/Drive", false);
    Attach("/Volumes/Drive", kDataGuid);
    fake.WriteFile("/Volumes/Drive/photos/2020/c.jpg", "");
    fake.MakeFolders("/Volumes/Drive/photos/2021");
  });
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(List(kDriveList), kOldList);
  EXPECT_TRUE(
      Logged("NOT SWAPPING IN in AtomicMove per-Vol filelist: " + Data("tqfilelists/") + kDriveList + ", numBytes="));
}

TEST_F(ScanRunTest, FullDiskNeverReplacesAGoodList) {
  PutList(kDriveList, kOldList);
  PutList(kRootList, kOldList);
  PutList("bigfilelist.dat", "old");
  fake.WriteFile("/Volumes/Drive/photos/2020/huge.mov", "").fakeSize = 600'000'000;
  fake.fault = [&](std::string_view operation, std::string_view path) {
    if (operation == "list" && path == "/Volumes/Drive/photos/2020") fake.diskBytesLeft = 0;
    if (operation == "list" && path == "/Volumes/Drive/photos/2021") fake.diskBytesLeft = -1;
    return 0;
  };
  EXPECT_EQ(Run(), 0);
  EXPECT_NE(List(kRootList), kOldList);
  EXPECT_EQ(List(kDriveList), kOldList);
  EXPECT_EQ(List("bigfilelist.dat"), "old");
  EXPECT_TRUE(Logged(kDriveList + ", because it could not be written completely!"));
  EXPECT_EQ(Folder().size(), 5U);
}

// --- damaged state ---

TEST_F(ScanRunTest, DamagedStateFilesCostNoList) {
  ASSERT_EQ(Run(), 0);
  const std::string strange = Text(kOtherGuid) + "_else_filelist.dat";
  PutList(strange, "kept");
  PutList("topdirs.xml", "<contents><stats");
  fake.WriteFile(Data("tqvolumes.xml"), "<contents><tqvolume tqVolumeGuid=\"");
  fake.WriteFile(Data("tqreports/tqdefcon.xml"), "garbage");
  // The settings are whole when the run begins and cut off when it tidies up.
  WhenListed(fake, "/Volumes/Drive/photos/2021", [&] {
    fake.WriteFile(Data("tqinfo.xml"),
                   "<tqinfo>\n<tqvolume tqVolumeGuid=\"" + Text(kSystemGuid) + "\" mountPointPath=\"/\" />\n<tqvol");
  });
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(List(strange), "kept");
  EXPECT_NE(List(kDriveList).find("2021/b.jpg"), std::string::npos);
  EXPECT_TRUE(Logged("ERROR: found no vol selected for backup in per-vol-guid cleanup"));
  EXPECT_FALSE(Logged("deleting: "));

  SelectBoth();
  fake.fault = nullptr;
  EXPECT_EQ(Run(), 0);
  EXPECT_FALSE(HasList(strange));
  EXPECT_TRUE(
      Logged("Found per-vol-guid filelist not selected for backup, deleting: " + Data("tqfilelists/") + strange));
}

// --- resuming ---

class ResumeTest : public ScanRunTest {
 protected:
  /// A run is stopped inside the drive; its progress file cannot be deleted.
  ResumeTest() {
    WhenListed(fake, "/Volumes/Drive/photos/2020", [&] {
      fake.nowMillis += 5'001;
      PutList("tqfilelist_stop_run.txt", "");
    });
    EXPECT_EQ(Run(), 0);
    const std::string leftover = Data("tqfilelists/topdirs.xml.future");
    fake.fault = [leftover](std::string_view operation, std::string_view path) {
      const bool aside = operation == "rename" && path == leftover + "\n" + leftover + "_aside";
      return aside || (operation == "unlink" && path == leftover) ? EPERM : 0;
    };
    PutList("topdirs.xml", "an earlier one");
    EXPECT_NE(List("topdirs.xml.future").find(" next_to_index=\"9\" "), std::string::npos);
  }
  int CountInList(const std::string& text) {
    const std::string list = List(kDriveList);
    int count = 0;
    for (std::size_t at = list.find(text); at != std::string::npos; at = list.find(text, at + 1)) ++count;
    return count;
  }
};

TEST_F(ResumeTest, GoesOnWhereTheLastRunStopped) {
  const std::string marked = List(kDriveList + ".future") + "# mark of the first run\n";
  PutList(kDriveList + ".future", marked);
  ASSERT_EQ(Run(), 0);
  EXPECT_TRUE(Logged("tqfilelist processId=12345 topdirs.xml already existed, reading it in"));
  EXPECT_TRUE(List(kDriveList).starts_with(marked + "#\n# Dir: /Volumes/Drive/photos/2021\n")) << List(kDriveList);
  EXPECT_NE(List("filestats.xml").find("everythingnum=\"4\""), std::string::npos);
}

TEST_F(ResumeTest, StartsAnewWithoutTheHalfWrittenList) {
  fake.Remove(Data("tqfilelists/") + kDriveList + ".future");
  ASSERT_EQ(Run(), 0);
  EXPECT_EQ(CountInList("a.jpg"), 1) << "the rest alone must not become the list";
  EXPECT_EQ(CountInList("b.jpg"), 1);
  EXPECT_NE(List("filestats.xml").find("everythingnum=\"4\""), std::string::npos);
}

TEST_F(ResumeTest, UnreadablePlanIsBuiltAnew) {
  PutList("topdirs.xml.future", "<contents>\n<stats numtopdirs=\"10\" next_to_index=\"9\" />\n</contents>\n");
  ASSERT_EQ(Run(), 0);
  EXPECT_TRUE(Logged("ERROR: problem reading out topdirs.xml.future"));
  EXPECT_EQ(CountInList("a.jpg"), 1);
  EXPECT_EQ(CountInList("# GmtMillis"), 1);
}

TEST_F(ResumeTest, UrgentRunWalksALeftoverPlanFromItsStart) {
  ASSERT_EQ(Run([](TqRunState& run) { run.urgent = true; }), 0);
  EXPECT_EQ(CountInList("a.jpg"), 1);
  EXPECT_EQ(CountInList("b.jpg"), 1);
  EXPECT_NE(List("filestats.xml").find("everythingnum=\"4\""), std::string::npos);
}

// --- urgency by age of a list ---

TEST_F(ScanRunTest, OldListOfAnElevatedVolumeIsMadeFirst) {
  for (const auto& [days, urgent] : std::vector<std::pair<int, bool>>{{14, false}, {15, true}}) {
    TqUiUtil::ForgetDefconCache();
    PutList("topdirs.xml", "an earlier one");
    PutList(kRootList, kOldList);
    PutList(kDriveList, Joined("# GmtMillisThisListWasStarted: ", Hex16(fake.nowMillis - days * 86'400'000LL),
                               ", GmtDateTime: 20231101000000\nold\n")
                            .c_str());
    for (const char* vguid : {kSystemGuid, kDataGuid}) {
      fake.WriteFile(Data("tqlogs/tqreports_lastfilestransmitted/tqstat_pervol_") + vguid + "_latest_file.xml",
                     "<x gmt_millis=\"" + std::to_string(fake.nowMillis) + "\" />");
    }
    PutRegistry({{kSystemGuid, "/", 0}, {kDataGuid, "/Volumes/Drive/", 0}});
    bool driveCameFirst = false;
    WhenListed(fake, "/Users/bob", [&] { driveCameFirst = List(kDriveList).find("b.jpg") != std::string::npos; });
    ASSERT_EQ(Run(), 0);
    EXPECT_TRUE(driveCameFirst);
    EXPECT_EQ(CountLogged(" URGENTLY topdirs.xml.future did not exist"), urgent ? 1 : 0);
    EXPECT_EQ(CountLogged("and we are going to URGENTLY_RUN_FAST this run!"), urgent ? 1 : 0);
  }
  EXPECT_TRUE(Logged("All_Volume_Defcon_Level=3, listing 2 volumes below:\n"));
  EXPECT_TRUE(
      Logged("\n                   defcon_volume_index=0, tqVol_defconLevel=5, tqVol_lastFileListedInDays=0 , "
             "tqVol_lastSeenInDays=0, tqVol_lastFilePushedInDays=0, mountPointPath=/\n"));
  EXPECT_TRUE(
      Logged("OPTIMIZATION_for_DEFCON processId=12345 - tqfilelist swapping in .future filelist of "
             "tqVol_lastFileListedInDays=14, fromMount = 2/Volumes/Drive/photos/2021/, with vGuid=" +
             Text(kDataGuid)));
  EXPECT_EQ(CountLogged(" - DEFCON_Swapped in AtomicMove per-Vol filelist: "), 2);
}
