#include "base/file_io.h"

#include <cerrno>
#include <cstdlib>

#include "base/xml_files.h"
#include "tests/platform_fixture.h"

namespace {

class FileIoTest : public PlatformTest {
 protected:
  /// Lets an operation on paths holding `part` fail `times` times.
  void FailTimes(const char* operationName, const char* part, int times) {
    auto left = std::make_shared<int>(times);
    fake.fault = [=](std::string_view operation, std::string_view path) {
      const bool hit = operation == operationName && path.find(part) != std::string_view::npos && *left > 0;
      return hit ? (--*left, EIO) : 0;
    };
  }
  std::int64_t SleptMillis() const {
    std::int64_t micros = 0;
    for (const std::int64_t sleep : fake.sleepsMicros) micros += sleep;
    return micros / 1000;
  }
};

TEST_F(FileIoTest, NeverWritesThroughLinksAliasesOrHardLinks) {
  auto& target = fake.WriteFile("/t/target", "old");
  fake.MakeLink("/t/link", "/t/target");
  fake.MakeLink("/t/dangling", "/t/new");
  fake.MakeSpecial("/t/fifo", platform::EntryKind::kFifo);
  fake.MakeFolders("/t/folder");
  for (const char* path : {"/t/link", "/t/dangling", "/t/fifo", "/t/folder"}) {
    EXPECT_FALSE(TqFile::WriteFileToDisk(path, "new", 3)) << path;
    EXPECT_FALSE(TqFile::AppendStringToFile(path, "new")) << path;
    EXPECT_FALSE(TqFile::AppendStringToFile(path, "")) << path;
  }
  EXPECT_EQ(target.content, "old");
  EXPECT_FALSE(fake.Has("/t/new"));
  EXPECT_TRUE(TqFile::IsAppropriateToModifyFile("/t/target"));
  target.linkCount = 2;
  EXPECT_FALSE(TqFile::IsAppropriateToModifyFile("/t/target"));
  SetProductVersion("10.8.5");
  EXPECT_TRUE(TqFile::IsAppropriateToModifyFile("/t/target"));
  EXPECT_FALSE(TqFile::IsAppropriateToModifyFile("/t/folder"));
  SetProductVersion("11.0");
  target.linkCount = 1;
  target.finderFlags = 0x8000;
  EXPECT_FALSE(TqFile::IsAppropriateToModifyFile("/t/target"));
  target.finderFlags = 0;
  target.queryErrno = EIO;
  target.finderErrno = EIO;  // there, but nobody can say what it is
  EXPECT_FALSE(TqFile::IsAppropriateToModifyFile("/t/target"));
}

TEST_F(FileIoTest, WritesAndAppendsGiveTheSharedMode) {
  fake.WriteFile("/t/stale", "a longer old content").mode = 0600;
  EXPECT_TRUE(TqFile::WriteFileToDisk("/t/stale", "new", 3));
  EXPECT_TRUE(TqFile::AppendStringToFile("/t/stale", "er"));
  EXPECT_EQ(fake.ReadFile("/t/stale"), "newer");
  EXPECT_EQ(fake.Find("/t/stale")->mode, 0666U);
  EXPECT_TRUE(TqFile::AppendStringToFile("/t/none", ""));
  EXPECT_FALSE(fake.Has("/t/none"));
  EXPECT_TRUE(TqFile::WriteFileToDisk("/t/empty", "", 0));
  EXPECT_EQ(fake.ReadFile("/t/empty"), "");
  EXPECT_FALSE(TqFile::WriteFileToDisk("", "x", 1));
  EXPECT_FALSE(TqFile::WriteFileToDisk(nullptr, "x", 1));
  EXPECT_FALSE(TqFile::WriteFileToDisk("/t/null", nullptr, 1));
  EXPECT_FALSE(TqFile::WriteFileToDisk("/missing/folder/x", "x", 1));
}

TEST_F(FileIoTest, AFullDiskNeverReplacesAGoodFile) {
  fake.WriteFile("/t/state", "good");
  fake.WriteFile("/t/list", "one\n");
  TqLog::CloseLog();  // its lines would use up the disk, too
  fake.diskBytesLeft = 3;
  EXPECT_FALSE(TqFile::WriteFileAndSwapIn("/t/state", "much longer"));
  EXPECT_EQ(fake.ReadFile("/t/state"), "good");
  EXPECT_FALSE(fake.Has("/t/state.tmp"));
  fake.diskBytesLeft = 3;
  EXPECT_EQ(TqFile::SwapInQuietly("/t/state", "much longer", 2, 2, 10), TqFile::SwapResult::kWriteFailed);
  EXPECT_EQ(fake.ReadFile("/t/state"), "good");
  fake.diskBytesLeft = 2;
  EXPECT_FALSE(TqFile::AppendStringToFile("/t/list", "two\n"));
}

TEST_F(FileIoTest, RetriesTenTimesWithAPauseAfterEachFailure) {
  FailTimes("rename", "/t/state", 9);
  fake.MakeFolders("/t");
  EXPECT_TRUE(TqFile::WriteFileAndSwapIn("/t/state", "new"));
  EXPECT_EQ(fake.ReadFile("/t/state"), "new");
  EXPECT_FALSE(fake.Has("/t/state.tmp"));
  EXPECT_EQ(CountLogged("INFO: AtomicMoveFileWithRetry attempt failed: /t/state.tmp /t/state\n"), 9);
  EXPECT_EQ(SleptMillis(), 900);
  FailTimes("open", "/t/other.tmp", 10);
  EXPECT_FALSE(TqFile::WriteFileAndSwapIn("/t/other", "new"));
  EXPECT_EQ(CountLogged("INFO: WriteFileToDiskWithRetry attempt failed: /t/other.tmp\n"), 10);
  EXPECT_TRUE(Logged("ERROR: WriteFileToDiskWithRetry failed after 10 retries: /t/other.tmp\n"));
  EXPECT_EQ(SleptMillis(), 1'900);
  EXPECT_FALSE(fake.Has("/t/other"));
  FailTimes("rename", "/t/state", 99);
  EXPECT_FALSE(TqFile::WriteFileAndSwapIn("/t/state", "newest"));
  EXPECT_TRUE(Logged("ERROR: AtomicMoveFileWithRetry failed after 10 retries: /t/state.tmp /t/state\n"));
  EXPECT_EQ(fake.ReadFile("/t/state"), "new");
}

TEST_F(FileIoTest, QuietSwapUsesItsOwnAttemptsAndLogsNothing) {
  fake.MakeFolders("/t");
  FailTimes("rename", "/t/state", 3);
  EXPECT_EQ(TqFile::SwapInQuietly("/t/state", "x", 1, 3, 50), TqFile::SwapResult::kMoveFailed);
  EXPECT_EQ(SleptMillis(), 150);
  EXPECT_EQ(TqFile::SwapInQuietly("/t/state", "x", 1, 3, 50), TqFile::SwapResult::kDone);
  EXPECT_EQ(fake.ReadFile("/t/state"), "x");
  EXPECT_FALSE(TqFile::AtomicMoveFile("", "/t/a"));
  EXPECT_FALSE(TqFile::AtomicMoveFile("/t/state", ""));
  EXPECT_TRUE(TqFile::DeleteFile("/t/state"));
  EXPECT_TRUE(TqFile::DeleteFile("/t/state"));
  FailTimes("unlink", "/t/kept", 1);
  fake.WriteFile("/t/kept", "");
  EXPECT_FALSE(TqFile::DeleteFile("/t/kept"));
  EXPECT_EQ(LogText(), "");
}

TEST_F(FileIoTest, ReadsWholeFilesThroughLinks) {
  const std::string bytes("a\0b\n", 4);
  fake.WriteFile("/t/f", bytes);
  fake.MakeLink("/t/link", "/t/f");
  std::int64_t numBytes = -1;
  char* buffer = TqFile::ReadLargeFileIntoBuf("/t/link", &numBytes);
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(std::string(buffer, 5), bytes + '\0');
  EXPECT_EQ(numBytes, 4);
  std::free(buffer);
  TqString text("old");
  fake.WriteFile("/t/empty", "");
  EXPECT_TRUE(TqFile::ReadFileIntoString("/t/empty", text));
  EXPECT_TRUE(text.IsEmpty());
  fake.WriteFile("/t/grown", "told as empty").fakeSize = 0;
  EXPECT_TRUE(TqFile::ReadFileIntoString("/t/grown", text));
  EXPECT_EQ(text, "told as empty");
  fake.WriteFile("/proc/x", "never read").fakeSize = 0;
  EXPECT_TRUE(TqFile::ReadFileIntoString("/proc/x", text));
  EXPECT_TRUE(text.IsEmpty());
}

TEST_F(FileIoTest, RefusesWhatCannotBeReadWhole) {
  TqString text("old");
  std::int64_t numBytes = -1;
  EXPECT_FALSE(TqFile::ReadFileIntoString("/t/none", text));
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_TRUE(Logged("ERROR: TqFile::ReadLargeFileIntoBuf file does not exist fileName=/t/none\n"));
  fake.WriteFile("/t/shrunk", "abc").fakeSize = 5;
  EXPECT_FALSE(TqFile::ReadFileIntoString("/t/shrunk", text));
  EXPECT_TRUE(
      Logged("ERROR: TqFile::ReadLargeFileIntoBuf - Mac Path readResult != numBytesToReadThisCall returning NULL\n"));
  fake.WriteFile("/t/huge", "").fakeSize = 20'480'000'001;
  EXPECT_EQ(TqFile::ReadLargeFileIntoBuf("/t/huge", &numBytes), nullptr);
  EXPECT_EQ(numBytes, 0);
  EXPECT_TRUE(
      Logged("ERROR: TqFile::ReadLargeFileIntoBuf file larger than twenty_GByte on 64 bit system, "
             "numBytes=20480000001, fileName=/t/huge\n"));
  fake.WriteFile("/t/locked", "abc").openErrno = EACCES;
  EXPECT_EQ(TqFile::ReadLargeFileIntoBuf("/t/locked", &numBytes), nullptr);
  EXPECT_TRUE(
      Logged("ERROR: TqFile::ReadLargeFileIntoBuf Macintosh open call failed, numBytes=3, fileName=/t/locked\n"));
  EXPECT_EQ(TqFile::ReadLargeFileIntoBuf(nullptr, &numBytes), nullptr);
  EXPECT_TRUE(Logged("ERROR: TqFile::ReadLargeFileIntoBuf bad NULL arg fileName\n"));
  EXPECT_EQ(TqFile::ReadLargeFileIntoBuf("/t/locked", nullptr), nullptr);
  EXPECT_TRUE(Logged("ERROR: TqFile::ReadLargeFileIntoBuf bad NULL arg NumBytesReturned\n"));
  fake.WriteFile("/t/fork", "").rsrcSize = 2'147'483'648;
  EXPECT_EQ(TqFile::ReadResourceForkIntoBuf("/t/fork", numBytes), nullptr);
  EXPECT_FALSE(Logged("rsrc"));
}

TEST_F(FileIoTest, FirstLineIsTrimmedAndMustHoldSomething) {
  TqString line;
  fake.WriteFile("/t/f", " 9.0.1 \r\nsecond\n");
  EXPECT_TRUE(TqFile::ReadFirstLine("/t/f", line));
  EXPECT_EQ(line, "9.0.1");
  fake.WriteFile("/t/f", "\nsecond\n");
  EXPECT_FALSE(TqFile::ReadFirstLine("/t/f", line));
  EXPECT_FALSE(TqFile::ReadFirstLine("/t/none", line));
  EXPECT_EQ(LogText(), "");
}

TEST_F(FileIoTest, XmlFormsReadTheWholeFileAndClearTheirOutputs) {
  fake.WriteFile("/t/x.xml", "<r>\n<v id=\"1\" />\n<v id=\"2\">two &amp; more</v>\n</r>\n");
  TqStringVector snippets;
  TqString text;
  EXPECT_TRUE(TqFile::GetAllXmlSnippetsWithTagNameInXmlFile("/t/x.xml", "v", snippets));
  EXPECT_EQ(snippets.Count(), 2);
  EXPECT_TRUE(TqFile::GetUniqueStrAttrFromXmlFile("/t/x.xml", "id", text));
  EXPECT_EQ(text, "1");
  EXPECT_TRUE(TqFile::GetXmlSnippetWithAttrValueFromFile("/t/x.xml", "v", "id", "2", text));
  EXPECT_EQ(text, "<v id=\"2\">two &amp; more</v>");
  fake.WriteFile("/t/y.xml", "<r>\n<w>a &amp; b</w>\n</r>\n");
  EXPECT_TRUE(TqFile::GetXmlElementTextFromFile("/t/y.xml", "w", text));
  EXPECT_EQ(text, "a & b");
  EXPECT_FALSE(TqFile::GetXmlElementTextFromFile("/t/none", "w", text));
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_FALSE(TqFile::GetAllXmlSnippetsWithTagNameInXmlFile("/t/none", "v", snippets));
  EXPECT_EQ(snippets.Count(), 0);
}

}  // namespace
