#include "base/fast_file_reader.h"

#include <cerrno>

#include "tests/platform_fixture.h"

namespace {

class FastFileReaderTest : public PlatformTest {
 protected:
  /// All lines, each followed by "|", read with a cache of the smallest size.
  std::string Lines(const std::string& content) {
    fake.WriteFile("/t/f", content);
    std::string all;
    EXPECT_TRUE(reader.TqSetRamCacheSize(10'000, &error));
    EXPECT_TRUE(reader.TqOpenFileReadOnly("/t/f", &error));
    while (reader.TqReadNextLine(&line, &error)) all += std::string(line.View()) + "|";
    EXPECT_TRUE(error.IsEmpty());
    EXPECT_TRUE(line.IsEmpty());
    reader.TqCloseFile();
    return all;
  }

  TqFastFileReader reader;
  TqString line;
  TqString error;
};

TEST_F(FastFileReaderTest, LinesLoseTheirLineEndAndNothingElse) {
  EXPECT_EQ(Lines("one\r\n\r\nt\rwo\r\r\nlast\r"), "one||t\rwo\r|last\r|");
  EXPECT_EQ(Lines("\n"), "|");
  EXPECT_EQ(Lines(std::string("a\0b\nc", 5)), std::string("a\0b|c|", 6));
}

TEST_F(FastFileReaderTest, LinesAcrossCacheEndsStayWhole) {
  // The CR is the cache's last byte, its LF the next one's first; the second line spans three caches.
  const std::string first(9'999, 'x');
  const std::string second(25'000, 'y');
  EXPECT_EQ(Lines(first + "\r\n" + second + "\nend\n"), first + "|" + second + "|end|");
}

TEST_F(FastFileReaderTest, SeeksAndReadsBytesThroughTheSameCache) {
  std::string content;
  for (int i = 0; i < 3'000; ++i) content += std::to_string(10'000 + i);  // 15,000 bytes
  fake.WriteFile("/t/f", content);
  TqString bytes;
  std::int32_t got = 0;
  EXPECT_FALSE(reader.TqReadNumBytes(5, bytes, got, &error));
  EXPECT_EQ(error, "ERROR: no file is currently open, try TqOpenFileReadOnly first");
  ASSERT_TRUE(reader.TqSetRamCacheSize(10'000, &error) && reader.TqOpenFileReadOnly("/t/f", &error));
  EXPECT_TRUE(reader.TqReadNumBytes(12'000, bytes, got, &error));
  EXPECT_EQ(bytes, std::string_view(content).substr(0, 12'000));
  for (const int offset : {11'000, 500, 14'995, 10'000, 0}) {
    EXPECT_TRUE(reader.TqSeekToOffset(offset, &error)) << offset;
    EXPECT_TRUE(reader.TqReadNumBytes(5, bytes, got, &error)) << offset;
    EXPECT_EQ(bytes, std::string_view(content).substr(static_cast<std::size_t>(offset), 5)) << offset;
  }
  EXPECT_TRUE(reader.TqSeekToOffset(14'997, &error));
  EXPECT_TRUE(reader.TqReadNumBytes(5, bytes, got, &error));
  EXPECT_EQ(got, 3);
  EXPECT_FALSE(reader.TqReadNumBytes(5, bytes, got, &error));
  EXPECT_TRUE(error.IsEmpty());
  EXPECT_TRUE(reader.TqSeekToOffset(15'000, &error));
  EXPECT_FALSE(reader.TqSeekToOffset(15'001, &error));
  EXPECT_FALSE(reader.TqSeekToOffset(-1, &error));
}

TEST_F(FastFileReaderTest, RefusalsTellWhy) {
  EXPECT_FALSE(reader.TqSetRamCacheSize(9'999, &error));
  EXPECT_EQ(error, "ERROR: number of bytes is out of range: 9999");
  EXPECT_FALSE(reader.TqSetRamCacheSize(250'000'001, &error));
  EXPECT_FALSE(reader.TqOpenFileReadOnly("/t/none", &error));
  EXPECT_EQ(error, "ERROR: no file exists with name: /t/none");
  fake.WriteFile("/t/empty", "");
  EXPECT_FALSE(reader.TqOpenFileReadOnly("/t/empty", &error));
  EXPECT_EQ(error, "ERROR: file exists, but is not readable or is zero length: /t/empty");
  fake.MakeSpecial("/t/fifo", platform::EntryKind::kFifo).fakeSize = 10;
  EXPECT_FALSE(reader.TqOpenFileReadOnly("/t/fifo", &error));
  fake.WriteFile("/t/locked", "x").openErrno = EACCES;
  EXPECT_FALSE(reader.TqOpenFileReadOnly("/t/locked", &error));
  EXPECT_EQ(error, "ERROR: open to read failed with errno=13, on file: /t/locked");
  EXPECT_FALSE(reader.IsOpen());
  fake.WriteFile("/t/f", "ab\ncd\n").readErrno = EIO;
  fake.Find("/t/f")->readErrnoAfter = 4;
  EXPECT_TRUE(reader.TqOpenFileReadOnly("/t/f", &error));
  EXPECT_FALSE(reader.TqReadNextLine(nullptr, &error));
  EXPECT_EQ(error, "ERROR: NULL passed in for retLine which is not allowed");
  EXPECT_FALSE(reader.TqSetRamCacheSize(20'000, &error));
  EXPECT_EQ(error, "ERROR: you cannot call TqSetRamCacheSize when you have a file open. The open file is: /t/f");
  EXPECT_FALSE(reader.TqOpenFileReadOnly("/t/f", &error));
  EXPECT_EQ(error, "ERROR: a file is already open with name: /t/f");
  EXPECT_TRUE(reader.TqReadNextLine(&line, &error));
  EXPECT_FALSE(reader.TqReadNextLine(&line, &error));
  EXPECT_EQ(error, "ERROR: read failed with errno=5, on file: /t/f");
}

TEST_F(FastFileReaderTest, ExclusiveOpenFailsWhileAnotherHolderHasTheFile) {
  fake.WriteFile("/t/f", "x");
  EXPECT_TRUE(reader.TqOpenFileReadOnlyExclusive("/t/f", &error));
  reader.TqCloseFile();
  fake.fault = [](std::string_view operation, std::string_view) { return operation == "lock" ? EWOULDBLOCK : 0; };
  EXPECT_FALSE(reader.TqOpenFileReadOnlyExclusive("/t/f", &error));
  EXPECT_FALSE(error.IsEmpty());
  EXPECT_FALSE(reader.IsOpen());
}

TEST_F(FastFileReaderTest, GrepStopsAtItsLimitAndCountsFromOne) {
  fake.WriteFile("/t/f", "apple\nBanana\nan apple\nAPPLE\n");
  TqStringVector numbers;
  TqStringVector lines;
  const auto grep = [&](const char* needle, bool ignoreCase, std::int32_t limit) {
    EXPECT_TRUE(TqFile::TqGrepFile("/t/f", needle, ignoreCase, limit, numbers, lines, &error));
    std::string hits;
    for (std::int32_t i = 0; i < lines.Count(); ++i) {
      hits += std::string(numbers.At(i).View()) + ":" + std::string(lines.At(i).View()) + " ";
    }
    return hits;
  };
  EXPECT_EQ(grep("apple", false, 10'000), "1:apple 3:an apple ");
  EXPECT_EQ(grep("aPPle", true, 10'000), "1:apple 3:an apple 4:APPLE ");
  EXPECT_EQ(grep("apple", true, 2), "1:apple 3:an apple ");
  EXPECT_EQ(grep("apple", true, 0), "1:apple ");
  EXPECT_EQ(grep("", true, 10'000), "");
  EXPECT_FALSE(TqFile::TqGrepFile("/t/none", "x", false, 1, numbers, lines, &error));
  EXPECT_EQ(error, "ERROR:could_not_open_file");
  EXPECT_TRUE(
      Logged("ERROR: TqFastFileReader::TqGrepFile,  could not TqOpenFileReadOnly, err=ERROR: no file exists with "
             "name: /t/none, filename=/t/none\n"));
  EXPECT_EQ(TqFile::CountLinesInFile("/t/f"), 4);
  EXPECT_EQ(TqFile::CountLinesInFile("/t/none"), -1);
  EXPECT_TRUE(TqFile::TqReadFileIntoStringVector("/t/f", lines));
  EXPECT_EQ(lines.Count(), 4);
  EXPECT_EQ(lines.At(1), "Banana");
}

}  // namespace
