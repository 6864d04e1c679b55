#include "base/file_io.h"

#include "base/xml_files.h"
#include "tests/platform_fixture.h"

class FileIoTest : public PlatformTest {
 protected:
  FileIoTest() { fake.MakeFolders("/t"); }
};

TEST_F(FileIoTest, NeverWritesThroughLinksAliasesOrHardLinks) {
  auto& target = fake.WriteFile("/t/target", "old");
  fake.MakeLink("/t/link", "/t/target");
  fake.MakeLink("/t/dangling", "/t/new");
  fake.MakeSpecial("/t/fifo", platform::EntryKind::kFifo);
  for (const char* path : {"/t/link", "/t/dangling", "/t/fifo", "/t"}) {
    EXPECT_FALSE(TqFile::WriteFileToDisk(path, "new", 3)) << path;
    EXPECT_FALSE(TqFile::AppendStringToFile(path, "new") || TqFile::AppendStringToFile(path, "")) << path;
  }
  const auto isAppropriate = [] { return TqFile::IsAppropriateToModifyFile("/t/target"); };
  EXPECT_TRUE(target.content == "old" && !fake.Has("/t/new") && isAppropriate());
  target.linkCount = 2;
  EXPECT_FALSE(isAppropriate());
  SetProductVersion("10.8.5");
  EXPECT_TRUE(isAppropriate());
  SetProductVersion("11.0");
  target.linkCount = 1;
  target.finderFlags = 0x8000;
  EXPECT_FALSE(isAppropriate());
  Fail("query finder", "/t/target");  // it is there, but nobody can say what it is
  EXPECT_FALSE(isAppropriate());
}

TEST_F(FileIoTest, ALinkThatTakesTheNameMeanwhileIsLeftAlone) {
  const std::pair<std::function<void()>, const char*> takers[] = {
      {[&] { fake.MakeLink("/t/state", "/t/secret"); }, "<missing>"},
      {[&] { fake.Find("/t/state")->linkCount = 2; }, "secret"},
      {[&] { fake.MakeSpecial("/t/state", platform::EntryKind::kFifo); }, "<missing>"}};
  for (const auto& [takeName, left] : takers) {
    FakePlatform::Node& secret = fake.WriteFile("/t/secret", "secret");
    secret.mode = 0600;
    fake.fault = [&](std::string_view operation, std::string_view path) {
      if (operation == "open" && path == "/t/state") takeName();
      return 0;
    };
    fake.WriteFile("/t/state", "secret").mode = 0600;
    EXPECT_FALSE(TqFile::WriteFileToDisk("/t/state", "new", 3));
    fake.WriteFile("/t/state", "secret").mode = 0600;
    EXPECT_FALSE(TqFile::AppendStringToFile("/t/state", "new"));
    EXPECT_EQ(fake.ReadFile("/t/state"), left);
    EXPECT_TRUE(secret.content == "secret" && secret.mode == 0600U);
  }
}

TEST_F(FileIoTest, AFullDiskNeverReplacesAGoodFile) {
  fake.WriteFile("/t/state", "an older one").mode = 0600;
  EXPECT_TRUE(TqFile::WriteFileToDisk("/t/state", "go", 2) && TqFile::AppendStringToFile("/t/state", "od"));
  EXPECT_EQ(fake.Find("/t/state")->mode, 0666U);
  TqLog::CloseLog();  // its lines would use up the disk, too
  fake.diskBytesLeft = 3;
  EXPECT_FALSE(TqFile::WriteFileAndSwapIn("/t/state", "much longer"));
  fake.diskBytesLeft = 3;
  EXPECT_EQ(TqFile::SwapInQuietly("/t/state", "much longer", 2, 2, 10), TqFile::SwapResult::kWriteFailed);
  EXPECT_TRUE(fake.ReadFile("/t/state") == "good" && !fake.Has("/t/state.tmp"));
  fake.diskBytesLeft = 2;
  EXPECT_FALSE(TqFile::AppendStringToFile("/t/state", "two\n"));
  fake.diskBytesLeft = -1;
  Fail("close", "/t/state");
  EXPECT_FALSE(TqFile::AppendStringToFile("/t/state", "a network share tells of a failed write only at the close"));
}

TEST_F(FileIoTest, RetriesTenTimesWithAPauseAfterEachFailure) {
  Fail("rename", "/t/state", EIO, 9);
  EXPECT_TRUE(TqFile::WriteFileAndSwapIn("/t/state", "new"));
  EXPECT_TRUE(fake.ReadFile("/t/state") == "new" && !fake.Has("/t/state.tmp"));
  EXPECT_EQ(CountLogged("INFO: AtomicMoveFileWithRetry attempt failed: /t/state.tmp /t/state\n"), 9);
  Fail("open", "/t/state.tmp", EIO, 10);
  EXPECT_FALSE(TqFile::WriteFileAndSwapIn("/t/state", "newer"));
  EXPECT_EQ(CountLogged("INFO: WriteFileToDiskWithRetry attempt failed: /t/state.tmp\n"), 10);
  EXPECT_TRUE(Logged("ERROR: WriteFileToDiskWithRetry failed after 10 retries: /t/state.tmp\n"));
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(19, 100'000));
  Fail("rename", "/t/state");
  EXPECT_TRUE(!TqFile::WriteFileAndSwapIn("/t/state", "newest") && fake.ReadFile("/t/state") == "new");
}

TEST_F(FileIoTest, QuietFormsUseTheirOwnAttemptsAndLogNothing) {
  Fail("rename", "/t/state", EIO, 3);
  EXPECT_EQ(TqFile::SwapInQuietly("/t/state", "x", 1, 3, 50), TqFile::SwapResult::kMoveFailed);
  EXPECT_EQ(TqFile::SwapInQuietly("/t/state", "x", 1, 3, 50), TqFile::SwapResult::kDone);
  fake.WriteFile("/t/state.tmp", "left over, and not to be modified").linkCount = 2;
  EXPECT_EQ(TqFile::SwapInQuietly("/t/state", "y", 2, 1, 50), TqFile::SwapResult::kDone);
  Fail("unlink", "/t/state", EIO, 1);
  EXPECT_FALSE(TqFile::DeleteFile("/t/state"));
  EXPECT_TRUE(TqFile::DeleteFile("/t/state") && TqFile::DeleteFile("/t/state"));  // gone is gone
  EXPECT_EQ(LogText(), "");
}

TEST_F(FileIoTest, ReadsWholeFilesAndSaysWhyItCannot) {
  TqString text;
  const std::string bytes("a\0b\n", 4);
  fake.WriteFile("/t/f", bytes);
  fake.MakeLink("/t/link", "/t/f");
  EXPECT_TRUE(TqFile::ReadFileIntoString("/t/link", text) && text == std::string_view(bytes));
  fake.WriteFile("/t/grown", "told as empty").fakeSize = 0;
  EXPECT_TRUE(TqFile::ReadFileIntoString("/t/grown", text) && text == "told as empty");
  fake.WriteFile("/t/x.xml", "<r>\n<v id=\"1\" />\n</r>\n");
  EXPECT_TRUE(TqFile::GetUniqueStrAttrFromXmlFile("/t/x.xml", "id", text) && text == "1");
  fake.WriteFile("/t/shrunk", "abc").fakeSize = 5;
  fake.WriteFile("/t/huge", "").fakeSize = 20'480'000'001;
  fake.WriteFile("/t/locked", "abc").openErrno = EACCES;
  const std::pair<const char*, const char*> refusals[] = {
      {"/t/none", "file does not exist fileName=/t/none\n"},
      {"/t/shrunk", "- Mac Path readResult != numBytesToReadThisCall returning NULL\n"},
      {"/t/huge", "file larger than twenty_GByte on 64 bit system, numBytes=20480000001, fileName=/t/huge\n"},
      {"/t/locked", "Macintosh open call failed, numBytes=3, fileName=/t/locked\n"}};
  for (const auto& [path, message] : refusals) {
    std::int64_t numBytes = -1;
    EXPECT_TRUE(TqFile::ReadLargeFileIntoBuf(path, &numBytes) == nullptr && numBytes == 0);
    EXPECT_TRUE(Logged(std::string("ERROR: TqFile::ReadLargeFileIntoBuf ") + message)) << message;
  }
}
