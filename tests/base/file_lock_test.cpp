#include "base/file_lock.h"

#include "tests/platform_fixture.h"

constexpr const char* kLock = "/locks/scan.lck";

class FileLockTest : public PlatformTest {
 protected:
  FileLockTest() {
    fake.MakeFolders("/locks");
    fake.fault = [this](std::string_view operation, std::string_view path) {
      if (operation == "open" && path == kLock) ++lockOpens;
      return onOperation && onOperation(operation, path) ? EIO : 0;
    };
  }
  std::unique_ptr<TqLockHandle> Grab(std::int64_t waitSeconds = 0) {
    return TqLock::GrabFileBasedLock(kLock, 100, waitSeconds);
  }
  bool Refresh(TqLockHandle* handle) { return TqLock::RefreshFileBasedLock(handle); }
  /// Whether the refresh failed, and said so.
  bool RefreshFails(TqLockHandle* handle, const std::string& reason) {
    return !Refresh(handle) && Logged("ERROR: processId=12345 failed to refresh lock because " + reason);
  }
  /// Another holder's file of that age.
  void OthersLock(std::int64_t ageSeconds) {
    fake.WriteFile(kLock, "").modTimeSec = fake.nowMillis / 1000 - ageSeconds;
  }
  std::size_t FilesLeft() { return fake.Names("/locks").size(); }

  int lockOpens = 0;
  std::function<bool(std::string_view, std::string_view)> onOperation;  ///< true: the operation fails
};

TEST_F(FileLockTest, WaitOfThreeSecondsIsSixteenAttemptsAndNoWaitIsOne) {
  OthersLock(0);
  EXPECT_TRUE(Grab(3) == nullptr && lockOpens == 16);
  std::vector<std::int64_t> expected = {5'000, 10'000, 20'000, 40'000, 80'000, 160'000};
  expected.resize(15, 320'000);
  EXPECT_EQ(fake.sleepsMicros, expected);
  EXPECT_TRUE(Grab(0) == nullptr && lockOpens == 17 && fake.sleepsMicros == expected);
  // A long wait never pauses for more than three seconds at a time, and ends when the holder lets go.
  fake.onSleep = [this, end = fake.nowMillis + 60'000](std::int64_t micros) {
    EXPECT_LE(micros, 3'000'000);
    if (fake.nowMillis > end) fake.Remove(kLock);
  };
  EXPECT_NE(TqLock::GrabFileBasedLock(kLock, 3'600, 600), nullptr);
}

TEST_F(FileLockTest, OnlyALockOlderThanItsStalenessByTheFileSystemsClockIsBroken) {
  for (const auto& [age, clockAhead, isBroken] :
       {std::tuple{100, 0, false}, {101, 0, true}, {50, 60, true}, {150, -60, false}}) {
    OthersLock(age);
    fake.fileClockAheadSeconds = clockAhead;
    EXPECT_TRUE((Grab() != nullptr) == isBroken && FilesLeft() == 1) << age;
  }
}

TEST_F(FileLockTest, AFreshLockInPlaceOfTheStaleOneIsLeftAlone) {
  OthersLock(1'000);
  onOperation = [this](std::string_view operation, std::string_view path) {
    if (operation == "unlink" && path != kLock) OthersLock(0);  // another process breaks it during the clock probe
    return false;
  };
  EXPECT_TRUE(Grab() == nullptr && fake.Has(kLock));
  OthersLock(1'000);
  onOperation = [](std::string_view operation, std::string_view path) {
    return path == kLock && (operation == "query" || operation == "finder");
  };
  EXPECT_TRUE(Grab() == nullptr && fake.Has(kLock));  // a time that cannot be read proves nothing
  onOperation = [this](std::string_view operation, std::string_view) {
    if (operation == "query") fake.Remove(kLock);  // released right after the last attempt
    return false;
  };
  EXPECT_NE(Grab(), nullptr);
}

TEST_F(FileLockTest, RefreshReplacesTheFileAtMostOncePerFifteenSeconds) {
  fake.fileClockAheadSeconds = 7;  // it is the file's own time that is recorded
  auto handle = Grab();
  ASSERT_TRUE(handle != nullptr && handle->recordedModTime == fake.nowMillis + 7'000);
  EXPECT_EQ(fake.Find(kLock)->mode, 0666U);
  const std::uint64_t first = fake.Find(kLock)->inode;
  fake.nowMillis += 14'999;
  EXPECT_TRUE(Refresh(handle.get()) && fake.Find(kLock)->inode == first);
  fake.nowMillis += 1;
  EXPECT_TRUE(Refresh(handle.get()) && fake.Find(kLock)->inode != first);
  EXPECT_TRUE(handle->recordedModTime == fake.nowMillis + 7'000 && handle->lastRefresh == fake.nowMillis);
  EXPECT_EQ(FilesLeft(), 1U);
  TqLock::ReleaseFileBasedLock(std::move(handle));
  EXPECT_TRUE(FilesLeft() == 0 && LogText().empty());
}

TEST_F(FileLockTest, RefreshTellsHowTheLockWasLost) {
  auto handle = Grab();
  const std::int64_t recorded = handle->recordedModTime;
  fake.nowMillis += 20'000;
  OthersLock(0);
  EXPECT_TRUE(RefreshFails(handle.get(), "file mod time changed: /locks/scan.lcktime was supposed to be " +
                                             std::to_string(recorded) + " but instead the fileLastModTime was " +
                                             std::to_string(recorded + 20'000) +
                                             " which is a difference of 20000 millis (20 seconds)\n"));
  TqLock::ReleaseFileBasedLock(std::move(handle));
  EXPECT_TRUE(Logged("ERROR: TqLock::ReleaseFileBasedLock, not our lock: /locks/scan.lck\n"));
  EXPECT_TRUE(fake.Remove(kLock));
  handle = Grab();
  fake.nowMillis += 101'000;
  EXPECT_TRUE(RefreshFails(handle.get(), "file mod time too long ago: /locks/scan.lck\n"));
  fake.Remove(kLock);
  EXPECT_TRUE(RefreshFails(handle.get(), "file does not exist: /locks/scan.lck\n"));
  EXPECT_EQ(FilesLeft(), 0U);
}

TEST_F(FileLockTest, RefreshThatCannotReplaceTheFileLeavesItAndNothingElse) {
  fake.randoms = {65'535};
  auto handle = Grab();
  fake.nowMillis += 20'000;
  onOperation = [](std::string_view operation, std::string_view) { return operation == "rename"; };
  const std::string reason = "could not AtomicMove file: /locks/scan.lck_65535_" + std::to_string(fake.nowMillis);
  EXPECT_TRUE(RefreshFails(handle.get(), reason) && FilesLeft() == 1);
  onOperation = nullptr;
  handle->recordedModTime = 0;  // unknown: not compared
  fake.fileClockAheadSeconds = -301;
  EXPECT_TRUE(Refresh(handle.get()));
  EXPECT_TRUE(Logged("WARNING: processId=12345 file system believes time is more than 5 min off CPU, millis=301000\n"));
}
