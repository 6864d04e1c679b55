#include "scan/run_state.h"

#include "tests/platform_fixture.h"

class RunStateTest : public PlatformTest {
 protected:
  RunStateTest() {
    PrepareScanPaths(run);
    run.lock = TqLock::GrabFileBasedLock(run.lockPath, 10'800, 3);
    run.lastLockRefreshMillis = fake.nowMillis;
  }
  std::int64_t LockTime() { return fake.Find(run.lockPath)->modTimeSec; }
  /// The exit status of `call`, -1 when it returns.
  template <typename Call>
  int ExitOf(Call call) {
    try {
      call();
    } catch (const ExitCalled& exit) {
      return exit.status;
    }
    return -1;
  }
  TqRunState run;
};

TEST_F(RunStateTest, PathsLieInTheListsFolder) {
  EXPECT_EQ(run.stopFilePath, Data("tqfilelists/tqfilelist_stop_run.txt"));
  EXPECT_EQ(run.lockPath, Data("tqfilelists/tqfilelist_hour_lock.lck"));
  EXPECT_EQ(fake.Find(Data("tqfilelists"))->mode, 0777U);
}

TEST_F(RunStateTest, RefreshesBehindFiveMinutes) {
  const std::int64_t first = LockTime();
  fake.nowMillis += 300'000;
  RefreshScanLockBetweenTopDirs(run);
  EXPECT_EQ(LockTime(), first);
  fake.nowMillis += 1;
  RefreshScanLockBetweenTopDirs(run);
  EXPECT_EQ(LockTime(), first + 300);
  fake.nowMillis += 20'000;
  RefreshGlobalThreeHourLock_ExitIfFail(run, "/Users");
  EXPECT_EQ(LockTime(), first + 300);
  RefreshScanLockNow(run);
  EXPECT_EQ(LockTime(), first + 320);
}

TEST_F(RunStateTest, WalkerNamesItsDirectory) {
  fake.nowMillis += 3'000'001;
  fake.WriteFile(run.lockPath, "another run's");
  EXPECT_EQ(ExitOf([&] { RefreshGlobalThreeHourLock_ExitIfFail(run, "/Users"); }), 1);
  EXPECT_EQ(fake.ReadFile(run.lockPath), "another run's");
  EXPECT_TRUE(
      Logged("WARNING: tqfilelist RefreshGlobalThreeHourLock_ExitIfFail - processId= 12345 more than 50 minutes "
             "since last refresh, elapsedMillis=3000001, startDirIn=/Users\n"));
  EXPECT_TRUE(
      Logged("ERROR: tqfilelist RefreshGlobalThreeHourLock_ExitIfFail - processId= 12345 lost hour lock and "
             "could not grab it again, exiting!!, startDirIn=/Users\n"));
}

TEST_F(RunStateTest, LockTakenAnewGoesStaleAfterOneHour) {
  fake.nowMillis += 300'001;
  fake.WriteFile(run.lockPath, "a dead run's").modTimeSec -= 3'601;
  RefreshScanLockBetweenTopDirs(run);
  ASSERT_NE(run.lock, nullptr);
  EXPECT_EQ(run.lock->stalenessMillis, 3'600'000);
  EXPECT_EQ(run.lastLockRefreshMillis, fake.nowMillis);
}

TEST_F(RunStateTest, LeavingReleasesTheLock) {
  EXPECT_EQ(ExitOf([&] { CheckForStopRequest(run); }), -1);
  EXPECT_EQ(ExitOf([&] { ExitScanRun(run, 7); }), 7);
  EXPECT_FALSE(fake.Has(run.lockPath));
}

TEST_F(RunStateTest, StackIsMeasuredInMegabytes) {
  EXPECT_EQ(run.StackMegabytes(), 0);
  run.stackBase = static_cast<const char*>(__builtin_frame_address(0)) + 3 * 1'048'576 + 4'096;
  EXPECT_EQ(run.StackMegabytes(), 3);
}
