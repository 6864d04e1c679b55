#include "base/file_lock.h"

#include <cerrno>

#include "tests/platform_fixture.h"

namespace {

constexpr const char* kLock = "/locks/scan.lck";
constexpr std::int64_t kStaleSeconds = 100;

class FileLockTest : public PlatformTest {
 protected:
  FileLockTest() {
    fake.MakeFolders("/locks");
    fake.fault = [this](std::string_view operation, std::string_view path) {
      if (operation == "open" && path == kLock) ++lockOpens;
      return faultOn && faultOn(operation, path) ? EIO : 0;
    };
  }
  std::unique_ptr<TqLockHandle> Grab(std::int64_t waitSeconds = 0) {
    return TqLock::GrabFileBasedLock(kLock, kStaleSeconds, waitSeconds);
  }
  /// Another holder's file of that age.
  void OthersLock(std::int64_t ageSeconds) {
    fake.WriteFile(kLock, "").modTimeSec = fake.nowMillis / 1000 - ageSeconds;
  }
  std::size_t FilesLeft() { return fake.Names("/locks").size(); }

  int lockOpens = 0;
  std::function<bool(std::string_view, std::string_view)> faultOn;
};

TEST_F(FileLockTest, GrabRecordsTheFilesOwnTimeAndReleaseDeletesIt) {
  fake.fileClockAheadSeconds = 7;
  const std::int64_t now = fake.nowMillis;
  auto handle = Grab();
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->recordedModTime, now + 7'000);
  EXPECT_EQ(handle->lastRefresh, now);
  EXPECT_EQ(handle->stalenessMillis, 100'000);
  EXPECT_EQ(fake.Find(kLock)->mode, 0666U);
  TqLock::ReleaseFileBasedLock(std::move(handle));
  EXPECT_EQ(FilesLeft(), 0U);
  TqLock::ReleaseFileBasedLock(nullptr);
  EXPECT_EQ(LogText(), "");
}

TEST_F(FileLockTest, WaitOfThreeSecondsIsSixteenAttempts) {
  OthersLock(0);
  EXPECT_EQ(Grab(3), nullptr);
  EXPECT_EQ(lockOpens, 16);
  const std::vector<std::int64_t> expected = {5'000,   10'000,  20'000,  40'000,  80'000,  160'000, 320'000, 320'000,
                                              320'000, 320'000, 320'000, 320'000, 320'000, 320'000, 320'000};
  EXPECT_EQ(fake.sleepsMicros, expected);
  lockOpens = 0;
  fake.sleepsMicros.clear();
  EXPECT_EQ(Grab(0), nullptr);
  EXPECT_EQ(lockOpens, 1);
  EXPECT_EQ(Grab(-1), nullptr);
  EXPECT_EQ(lockOpens, 1);
  EXPECT_TRUE(fake.sleepsMicros.empty());
  EXPECT_EQ(FilesLeft(), 1U);
}

TEST_F(FileLockTest, LongWaitsNeverPauseMoreThanThreeSecondsAndEndWhenTheHolderLetsGo) {
  OthersLock(0);
  std::int64_t longest = 0;
  const std::int64_t start = fake.nowMillis;
  fake.onSleep = [&](std::int64_t micros) {
    longest = std::max(longest, micros);
    if (fake.nowMillis - start > 60'000) fake.Remove(kLock);
  };
  EXPECT_NE(TqLock::GrabFileBasedLock(kLock, 3'600, 600), nullptr);
  EXPECT_EQ(longest, 3'000'000);
}

TEST_F(FileLockTest, OnlyALockOlderThanItsStalenessIsBroken) {
  OthersLock(100);
  EXPECT_EQ(Grab(), nullptr);
  OthersLock(101);
  auto handle = Grab();
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->recordedModTime, fake.nowMillis / 1000 * 1000);
  EXPECT_EQ(FilesLeft(), 1U);
}

TEST_F(FileLockTest, StalenessIsJudgedByTheFileSystemsClock) {
  OthersLock(50);
  fake.fileClockAheadSeconds = 60;
  EXPECT_NE(Grab(), nullptr);
  OthersLock(150);
  fake.fileClockAheadSeconds = -60;
  EXPECT_EQ(Grab(), nullptr);
}

TEST_F(FileLockTest, AFreshLockThatReplacedTheStaleOneIsLeftAlone) {
  OthersLock(1'000);
  faultOn = [this](std::string_view operation, std::string_view path) {
    // Another process breaks the lock while the clock is probed.
    if (operation == "unlink" && path != kLock) OthersLock(0);
    return false;
  };
  EXPECT_EQ(Grab(), nullptr);
  EXPECT_TRUE(fake.Has(kLock));
  OthersLock(1'000);
  faultOn = [](std::string_view operation, std::string_view path) {
    return path == kLock && (operation == "query" || operation == "finder");
  };
  EXPECT_EQ(Grab(), nullptr);  // a time that cannot be read proves nothing
  EXPECT_TRUE(fake.Has(kLock));
}

TEST_F(FileLockTest, ALockThatVanishesAfterTheLastAttemptIsTaken) {
  OthersLock(0);
  faultOn = [this](std::string_view operation, std::string_view path) {
    if (operation == "query" && path == kLock && lockOpens == 1) fake.Remove(kLock);
    return false;
  };
  EXPECT_NE(Grab(), nullptr);
  EXPECT_EQ(lockOpens, 2);
}

TEST_F(FileLockTest, RefreshReplacesTheFileAtMostOncePerFifteenSeconds) {
  auto handle = Grab();
  const std::uint64_t first = fake.Find(kLock)->inode;
  fake.nowMillis += 14'999;
  EXPECT_TRUE(TqLock::RefreshFileBasedLock(handle.get()));
  EXPECT_EQ(fake.Find(kLock)->inode, first);
  fake.nowMillis += 1;
  EXPECT_TRUE(TqLock::RefreshFileBasedLock(handle.get()));
  const std::uint64_t second = fake.Find(kLock)->inode;
  EXPECT_NE(second, first);
  EXPECT_EQ(handle->recordedModTime, fake.nowMillis / 1000 * 1000);
  EXPECT_EQ(handle->lastRefresh, fake.nowMillis);
  EXPECT_TRUE(TqLock::RefreshFileBasedLock(handle.get()));
  EXPECT_EQ(fake.Find(kLock)->inode, second);
  EXPECT_EQ(FilesLeft(), 1U);
  EXPECT_FALSE(TqLock::RefreshFileBasedLock(nullptr));
  EXPECT_EQ(LogText(), "");
}

TEST_F(FileLockTest, RefreshTellsHowTheLockWasLost) {
  auto handle = Grab();
  const std::int64_t recorded = handle->recordedModTime;
  fake.nowMillis += 20'000;
  OthersLock(0);
  EXPECT_FALSE(TqLock::RefreshFileBasedLock(handle.get()));
  EXPECT_TRUE(
      Logged("ERROR: processId=12345 failed to refresh lock because file mod time changed: /locks/scan.lcktime was "
             "supposed to be " +
             std::to_string(recorded) + " but instead the fileLastModTime was " + std::to_string(recorded + 20'000) +
             " which is a difference of 20000 millis (20 seconds)\n"));
  TqLock::ReleaseFileBasedLock(std::move(handle));
  EXPECT_TRUE(Logged("ERROR: TqLock::ReleaseFileBasedLock, not our lock: /locks/scan.lck\n"));
  EXPECT_TRUE(fake.Has(kLock));
  fake.Remove(kLock);
  handle = Grab();
  fake.nowMillis += 101'000;
  EXPECT_FALSE(TqLock::RefreshFileBasedLock(handle.get()));
  EXPECT_TRUE(
      Logged("ERROR: processId=12345 failed to refresh lock because file mod time too long ago: /locks/scan.lck\n"));
  fake.Remove(kLock);
  EXPECT_FALSE(TqLock::RefreshFileBasedLock(handle.get()));
  EXPECT_TRUE(Logged("ERROR: processId=12345 failed to refresh lock because file does not exist: /locks/scan.lck\n"));
  EXPECT_EQ(FilesLeft(), 0U);
}

TEST_F(FileLockTest, RefreshThatCannotReplaceTheFileLeavesItAndNothingElse) {
  fake.randoms = {65'535};
  auto handle = Grab();
  fake.nowMillis += 20'000;
  faultOn = [](std::string_view operation, std::string_view) { return operation == "rename"; };
  EXPECT_FALSE(TqLock::RefreshFileBasedLock(handle.get()));
  EXPECT_TRUE(
      Logged("ERROR: processId=12345 failed to refresh lock because could not AtomicMove file: /locks/scan.lck_65535_" +
             std::to_string(fake.nowMillis)));
  EXPECT_EQ(FilesLeft(), 1U);
  faultOn = [](std::string_view operation, std::string_view path) {
    return operation == "open" && path.find("_") != std::string_view::npos;
  };
  EXPECT_FALSE(TqLock::RefreshFileBasedLock(handle.get()));
  EXPECT_TRUE(Logged("failed to refresh lock because could not write out file: /locks/scan.lck_"));
  faultOn = nullptr;
  handle->recordedModTime = 0;  // unknown: not compared
  fake.fileClockAheadSeconds = -301;
  EXPECT_TRUE(TqLock::RefreshFileBasedLock(handle.get()));
  EXPECT_TRUE(Logged("WARNING: processId=12345 file system believes time is more than 5 min off CPU, millis=301000\n"));
}

TEST_F(FileLockTest, ProbeFileCarriesTimeAndHostAndIsDeleted) {
  std::string probe;
  fake.hostName = "A-Very-Long-Host-Name.example.org";
  faultOn = [&](std::string_view operation, std::string_view path) {
    if (operation == "open" && path != kLock && path.starts_with("/locks")) probe = path;
    return false;
  };
  fake.fileClockAheadSeconds = 5;
  EXPECT_EQ(TqLock::FileSystemClock(kLock), fake.nowMillis / 1000 * 1000 + 5'000);
  EXPECT_TRUE(probe.starts_with(std::string(kLock) + std::to_string(fake.nowMillis) + "a-very-long-hos1")) << probe;
  EXPECT_EQ(FilesLeft(), 0U);
  EXPECT_EQ(TqLock::FileSystemClock("/nowhere/x"), fake.nowMillis);
}

}  // namespace
