#include "base/file_io.h"

#include <cerrno>
#include <cstdlib>
#include <numeric>

#include "base/xml_files.h"
#include "tests/platform_fixture.h"

namespace {

class FileIoTest : public PlatformTest {
 protected:
  FileIoTest() { fake.MakeFolders("/t"); }
  /// Lets one operation fail `times` times on paths that hold `part`.
  void FailTimes(std::string_view name, const char* part, int times) {
    fake.fault = [=, left = times](std::string_view operation, std::string_view path) mutable {
      const bool hit = operation == name && path.find(part) != std::string_view::npos && left > 0;
      return hit ? (--left, EIO) : 0;
    };
  }
  std::int64_t SleptMillis() const {
    return std::accumulate(fake.sleepsMicros.begin(), fake.sleepsMicros.end(), std::int64_t{0}) / 1000;
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
  SetProductVersion("11.0");
  target.linkCount = 1;
  target.finderFlags = 0x8000;
  EXPECT_FALSE(TqFile::IsAppropriateToModifyFile("/t/target"));
  target.queryErrno = EIO;
  target.finderErrno = EIO;  // it is there, but nobody can say what it is
  EXPECT_FALSE(TqFile::IsAppropriateToModifyFile("/t/target"));
}

TEST_F(FileIoTest, AFullDiskNeverReplacesAGoodFile) {
  fake.WriteFile("/t/state", "an older one").mode = 0600;
  EXPECT_TRUE(TqFile::WriteFileToDisk("/t/state", "go", 2));
  EXPECT_TRUE(TqFile::AppendStringToFile("/t/state", "od"));
  EXPECT_EQ(fake.Find("/t/state")->mode, 0666U);
  TqLog::CloseLog();  // its lines would use up the disk, too
  fake.diskBytesLeft = 3;
  EXPECT_FALSE(TqFile::WriteFileAndSwapIn("/t/state", "much longer"));
  fake.diskBytesLeft = 3;
  EXPECT_EQ(TqFile::SwapInQuietly("/t/state", "much longer", 2, 2, 10), TqFile::SwapResult::kWriteFailed);
  EXPECT_EQ(fake.ReadFile("/t/state"), "good");
  EXPECT_FALSE(fake.Has("/t/state.tmp"));
  fake.diskBytesLeft = 2;
  EXPECT_FALSE(TqFile::AppendStringToFile("/t/state", "two\n"));
  fake.diskBytesLeft = -1;
  fake.fault = [](std::string_view operation, std::string_view) { return operation == "close" ? EIO : 0; };
  EXPECT_FALSE(TqFile::AppendStringToFile("/t/state", "a network share tells of a failed write only at the close"));
}

TEST_F(FileIoTest, RetriesTenTimesWithAPauseAfterEachFailure) {
  FailTimes("rename", "/t/state", 9);
  EXPECT_TRUE(TqFile::WriteFileAndSwapIn("/t/state", "new"));
  EXPECT_EQ(fake.ReadFile("/t/state"), "new");
  EXPECT_FALSE(fake.Has("/t/state.tmp"));
  EXPECT_EQ(CountLogged("INFO: AtomicMoveFileWithRetry attempt failed: /t/state.tmp /t/state\n"), 9);
  FailTimes("open", "/t/state.tmp", 10);
  EXPECT_FALSE(TqFile::WriteFileAndSwapIn("/t/state", "newer"));
  EXPECT_EQ(CountLogged("INFO: WriteFileToDiskWithRetry attempt failed: /t/state.tmp\n"), 10);
  EXPECT_TRUE(Logged("ERROR: WriteFileToDiskWithRetry failed after 10 retries: /t/state.tmp\n"));
  EXPECT_EQ(SleptMillis(), 1'900);
  FailTimes("rename", "/t/state", 99);
  EXPECT_FALSE(TqFile::WriteFileAndSwapIn("/t/state", "newest"));
  EXPECT_EQ(fake.ReadFile("/t/state"), "new");
}

TEST_F(FileIoTest, QuietFormsUseTheirOwnAttemptsAndLogNothing) {
  FailTimes("rename", "/t/state", 3);
  EXPECT_EQ(TqFile::SwapInQuietly("/t/state", "x", 1, 3, 50), TqFile::SwapResult::kMoveFailed);
  EXPECT_EQ(TqFile::SwapInQuietly("/t/state", "x", 1, 3, 50), TqFile::SwapResult::kDone);
  FailTimes("unlink", "/t/state", 1);
  EXPECT_FALSE(TqFile::DeleteFile("/t/state"));
  EXPECT_TRUE(TqFile::DeleteFile("/t/state"));
  EXPECT_TRUE(TqFile::DeleteFile("/t/state"));  // gone is gone
  EXPECT_EQ(LogText(), "");
}

TEST_F(FileIoTest, ReadsWholeFilesAndSaysWhyItCannot) {
  TqString text;
  const std::string bytes("a\0b\n", 4);
  fake.WriteFile("/t/f", bytes);
  fake.MakeLink("/t/link", "/t/f");
  EXPECT_TRUE(TqFile::ReadFileIntoString("/t/link", text));
  EXPECT_EQ(text, std::string_view(bytes));
  fake.WriteFile("/t/grown", "told as empty").fakeSize = 0;
  EXPECT_TRUE(TqFile::ReadFileIntoString("/t/grown", text));
  EXPECT_EQ(text, "told as empty");
  fake.WriteFile("/t/shrunk", "abc").fakeSize = 5;
  fake.WriteFile("/t/huge", "").fakeSize = 20'480'000'001;
  fake.WriteFile("/t/locked", "abc").openErrno = EACCES;
  const std::pair<const char*, const char*> refusals[] = {
      {"/t/none", "file does not exist fileName=/t/none\n"},
      {"/t/shrunk", "- Mac Path readResult != numBytesToReadThisCall returning NULL\n"},
      {"/t/huge", "file larger than twenty_GByte on 64 bit system, numBytes=20480000001, fileName=/t/huge\n"},
      {"/t/locked", "Macintosh open call failed, numBytes=3, fileName=/t/locked\n"},
  };
  for (const auto& [path, message] : refusals) {
    std::int64_t numBytes = -1;
    EXPECT_EQ(TqFile::ReadLargeFileIntoBuf(path, &numBytes), nullptr);
    EXPECT_EQ(numBytes, 0);
    EXPECT_TRUE(Logged(std::string("ERROR: TqFile::ReadLargeFileIntoBuf ") + message)) << message;
  }
}

TEST_F(FileIoTest, XmlFormsReadTheWholeFileAndClearTheirOutputs) {
  fake.WriteFile("/t/x.xml", "<r>\n<v id=\"1\" />\n<v id=\"2\">two</v>\n<w>a &amp; b</w></r>\n");
  TqString text;
  EXPECT_TRUE(TqFile::GetUniqueStrAttrFromXmlFile("/t/x.xml", "id", text));
  EXPECT_EQ(text, "1");
  EXPECT_TRUE(TqFile::GetXmlSnippetWithAttrValueFromFile("/t/x.xml", "v", "id", "2", text));
  EXPECT_EQ(text, "<v id=\"2\">two</v>");
  EXPECT_TRUE(TqFile::GetXmlElementTextFromFile("/t/x.xml", "w", text));
  EXPECT_EQ(text, "a & b");
  EXPECT_FALSE(TqFile::GetXmlElementTextFromFile("/t/none", "w", text));
  EXPECT_TRUE(text.IsEmpty());
}

}  // namespace
