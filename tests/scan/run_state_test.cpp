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

TEST_F(RunStateTest, LockOfALivingRunIsLeftAloneThatOfADeadOneGoesStaleAfterOneHour) {
  fake.nowMillis += 300'001;
  fake.WriteFile(run.lockPath, "another run's");
  EXPECT_THROW(RefreshGlobalThreeHourLock_ExitIfFail(run, "/Users"), ExitCalled);
  EXPECT_EQ(fake.ReadFile(run.lockPath), "another run's");
  fake.Find(run.lockPath)->modTimeSec -= 3'601;
  RefreshScanLockBetweenTopDirs(run);
  EXPECT_TRUE(run.lock->stalenessMillis == 3'600'000 && run.lastLockRefreshMillis == fake.nowMillis);
}
