#include "base/fast_file_reader.h"

#include "tests/platform_fixture.h"

class FastFileReaderTest : public PlatformTest {
 protected:
  bool OpenSmall(const std::string& content) {
    fake.WriteFile("/t/f", content);
    return reader.TqSetRamCacheSize(10'000, &error) && reader.TqOpenFileReadOnly("/t/f", &error);
  }
  /// All lines, each followed by "|", read with a cache of the smallest size.
  std::string Lines(const std::string& content) {
    std::string all;
    EXPECT_TRUE(OpenSmall(content));
    while (reader.TqReadNextLine(&line, &error)) all += std::string(line.View()) + "|";
    EXPECT_TRUE(error.IsEmpty() && line.IsEmpty());
    reader.TqCloseFile();
    return all;
  }

  TqFastFileReader reader;
  TqString line, error;
};

TEST_F(FastFileReaderTest, LinesLoseTheirLineEndAndNothingElse) {
  EXPECT_EQ(Lines("one\r\n\r\nt\rwo\r\r\nlast\r"), "one||t\rwo\r|last\r|");
  EXPECT_EQ(Lines(std::string("a\0b\n\nc", 6)), std::string("a\0b||c|", 7));
  // The CR is the cache's last byte, its LF the next one's first; the second line spans three caches.
  const std::string first(9'999, 'x');
  const std::string second(25'000, 'y');
  EXPECT_EQ(Lines(first + "\r\n" + second + "\nend\n"), first + "|" + second + "|end|");
}

TEST_F(FastFileReaderTest, SeeksAndReadsBytesThroughTheSameCache) {
  const std::string content = std::string(11'000, 'x') + "tail";
  std::int32_t got = 0;
  ASSERT_TRUE(OpenSmall(content));
  for (const int offset : {10'990, 500, 11'000}) {
    EXPECT_TRUE(reader.TqSeekToOffset(offset, &error) && reader.TqReadNumBytes(10'502, line, got, &error)) << offset;
    EXPECT_EQ(line, std::string_view(content).substr(static_cast<std::size_t>(offset), 10'502)) << offset;
  }
  EXPECT_FALSE(reader.TqReadNumBytes(5, line, got, &error) || reader.TqSeekToOffset(11'005, &error));
}

TEST_F(FastFileReaderTest, RefusalsTellWhy) {
  fake.WriteFile("/t/empty", "");
  fake.MakeSpecial("/t/fifo", platform::EntryKind::kFifo).fakeSize = 10;
  fake.WriteFile("/t/locked", "x").openErrno = EACCES;
  const std::pair<const char*, const char*> refusals[] = {
      {"no file exists with name: ", "/t/none"},
      {"file exists, but is not readable or is zero length: ", "/t/empty"},
      {"file exists, but is not readable or is zero length: ", "/t/fifo"},
      {"open to read failed with errno=13, on file: ", "/t/locked"}};
  for (const auto& [message, path] : refusals) {
    EXPECT_TRUE(!reader.TqOpenFileReadOnly(path, &error) && error == Joined("ERROR: ", message, path)) << path;
  }
  EXPECT_TRUE(OpenSmall("ab\ncd\n"));
  fake.Find("/t/f")->readErrno = EIO;
  fake.Find("/t/f")->readErrnoAfter = 4;
  EXPECT_TRUE(reader.TqReadNextLine(&line, &error) && !reader.TqReadNextLine(&line, &error));
  EXPECT_EQ(error, "ERROR: read failed with errno=5, on file: /t/f");
}

TEST_F(FastFileReaderTest, GrepStopsAtItsLimitAndCountsFromOne) {
  fake.WriteFile("/t/f", "apple\nBanana\nan apple\nAPPLE\n");
  TqStringVector numbers, lines;
  const auto grep = [&](const char* needle, bool ignoreCase, std::int32_t limit) {
    EXPECT_TRUE(TqFile::TqGrepFile("/t/f", needle, ignoreCase, limit, numbers, lines, &error));
    TqString hits;
    for (std::int32_t i = 0; i < lines.Count(); ++i) AppendAll(hits, numbers.At(i), ":", lines.At(i), " ");
    return hits;
  };
  EXPECT_EQ(grep("apple", false, 10'000), "1:apple 3:an apple ");
  EXPECT_EQ(grep("aPPle", true, 10'000), "1:apple 3:an apple 4:APPLE ");
  EXPECT_EQ(grep("apple", true, 2), "1:apple 3:an apple ");
  EXPECT_EQ(grep("apple", true, 0), "1:apple ");
  EXPECT_EQ(grep("", true, 10'000), "");
  EXPECT_FALSE(TqFile::TqGrepFile("/t/none", "x", false, 1, numbers, lines, &error));
  EXPECT_EQ(error, "ERROR:could_not_open_file");
  EXPECT_TRUE(TqFile::CountLinesInFile("/t/f") == 4 && TqFile::CountLinesInFile("/t/none") == -1);
}
