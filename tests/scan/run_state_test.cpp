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
  TqRunState run;
};

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

TEST_F(RunStateTest, LockOfALivingRunIsLeftAlone) {
  fake.nowMillis += 3'000'001;
  fake.WriteFile(run.lockPath, "another run's");
  EXPECT_THROW(RefreshGlobalThreeHourLock_ExitIfFail(run, "/Users"), ExitCalled);
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
  EXPECT_EQ(run.lock->stalenessMillis, 3'600'000);
  EXPECT_TRUE(Logged(" -  lost hour lock but grabbed it back again, so continuing on...\n"));
  EXPECT_EQ(run.lastLockRefreshMillis, fake.nowMillis);
}
