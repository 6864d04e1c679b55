#include "base/file_probe.h"

#include "tests/platform_fixture.h"

class FileProbeTest : public PlatformTest {
 protected:
  std::string Diagnosis(const char* path) {
    TqString reason;
    const int code = TqFile::DiagnoseFileReadProblem(path, reason);
    return Joined(code, " ", reason).c_str();
  }
  /// The head of a 64-bit library whose PE header lies at `at`.
  static std::string Head(std::size_t at = 0x80) {
    std::string head(std::max<std::size_t>(at + 26, 0x40), '\0');
    head.replace(0, 2, "MZ");
    for (std::size_t i = 0; i < 4; ++i) head[0x3C + i] = static_cast<char>(at >> (8 * i));
    head.replace(at, 2, "PE");
    head.replace(at + 23, 3, "\x20\x0b\x02");
    return head;
  }
  bool IsLibrary(const std::string& head) {
    fake.WriteFile("/library", head);
    return TqFile::Is64BitWindowsLibrary("/library");
  }
};

TEST_F(FileProbeTest, DiagnosesTellWhatStandsAgainstReading) {
  FakePlatform::Node& file = fake.WriteFile("/folder/file", std::string(3'000'000, 'x'));
  fake.MakeLink("/link", "/folder/file");
  fake.MakeSpecial("/fifo", platform::EntryKind::kFifo);
  EXPECT_EQ(Diagnosis("/link"), "0 readable");
  EXPECT_EQ(Diagnosis("/nowhere"), "1 file_does_not_exist");
  EXPECT_EQ(Diagnosis("/folder"), "2 is_a_directory");
  EXPECT_EQ(Diagnosis("/fifo"), "4 not_a_regular_file");
  file.readErrno = EIO;
  file.readErrnoAfter = 2'000'000;
  EXPECT_EQ(Diagnosis("/folder/file"), "6 read_failed_errno=5");
  TqString out("before");
  EXPECT_FALSE(TqFile::ReadFirstNbytesIntoBuf("/folder/file", 3'000'000, out) || !out.IsEmpty());
  EXPECT_TRUE(TqFile::ReadFirstNbytesIntoBuf("/folder/file", 1'500'000, out) && out.Length() == 1'500'000);
  file.openErrno = EPERM;
  EXPECT_EQ(Diagnosis("/folder/file"), "3 permission_denied");
  file.openErrno = EMFILE;
  EXPECT_EQ(Diagnosis("/folder/file"), "5 open_failed_errno=24");
  Fail("stat", "", ENOTDIR);
  EXPECT_EQ(Diagnosis("/folder/file"), "1 file_does_not_exist");
}

TEST_F(FileProbeTest, WindowsLibrariesAndHeadersThatLie) {
  EXPECT_TRUE(IsLibrary(Head()) && IsLibrary(Head(999'974))) << "the last place that is looked at";
  EXPECT_FALSE(IsLibrary(Head(999'975)));
  // No program at all, no PE header, a program, 32 bit; then places of the header that lie.
  const std::pair<std::size_t, std::string_view> spoilt[] = {{1, "z"},
                                                             {0x82, "\1"},
                                                             {0x80 + 23, "\2"},
                                                             {0x80 + 25, "\1"},
                                                             {0x3C, "\xff\xff\xff\xff"},
                                                             {0x3C, "\xff\xff\xff\x7f"},
                                                             {0x3C, "\x9a"},
                                                             {0x3C, "\xf0\xff\xff\xff"}};
  for (const auto& [at, bytes] : spoilt) EXPECT_FALSE(IsLibrary(Head().replace(at, bytes.size(), bytes))) << at;
  for (const std::size_t size : {0, 1, 2, 0x3F, 0x40, 0x80 + 25})
    EXPECT_FALSE(IsLibrary(Head().substr(0, size))) << size;
}

TEST_F(FileProbeTest, ResourceForkOfTheSizeThatWasTold) {
  FakePlatform::Node& file = fake.WriteFile("/file", "data");
  file.resourceFork = "fork";
  std::int64_t size = 7;
  EXPECT_TRUE(TqFile::ReadResourceForkIntoBuf("/file", size) == nullptr && size == 0) << "no fork";
  file.rsrcSize = std::int64_t{INT32_MAX} + 1;
  EXPECT_EQ(TqFile::ReadResourceForkIntoBuf("/file", size), nullptr);
  file.rsrcSize = 4;
  const std::unique_ptr<char, decltype(&std::free)> bytes(TqFile::ReadResourceForkIntoBuf("/file", size), std::free);
  EXPECT_EQ(std::string(bytes.get(), static_cast<std::size_t>(size)), "fork");
}
