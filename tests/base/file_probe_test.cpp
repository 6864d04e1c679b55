#include "base/file_probe.h"

#include <cerrno>

#include "tests/platform_fixture.h"

class FileProbeTest : public PlatformTest {
 protected:
  std::string Diagnosis(const char* path) {
    TqString reason;
    const int code = TqFile::DiagnoseFileReadProblem(path, reason);
    return Joined(code, " ", reason).c_str();
  }
  /// The head of a 64-bit library whose header lies at `at`; `change` may spoil it.
  bool IsLibrary(std::size_t at, const std::function<void(std::string&)>& change = {}) {
    std::string head(std::max<std::size_t>(at + 26, 0x40), '\0');
    head.replace(0, 2, "MZ");
    for (std::size_t i = 0; i < 4; ++i) head[0x3C + i] = static_cast<char>(at >> (8 * i));
    head.replace(at, 4, std::string("PE\0\0", 4));
    head[at + 23] = 0x20;
    head.replace(at + 24, 2, "\x0b\x02");
    if (change) change(head);
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
  fake.fault = [](std::string_view operation, std::string_view) { return operation == "stat" ? ENOTDIR : 0; };
  EXPECT_EQ(Diagnosis("/folder/file"), "1 file_does_not_exist");
}

TEST_F(FileProbeTest, WindowsLibrariesAndHeadersThatLie) {
  EXPECT_TRUE(IsLibrary(0x80));
  EXPECT_TRUE(IsLibrary(999'974)) << "the last place that is looked at";
  EXPECT_FALSE(IsLibrary(999'975));
  EXPECT_FALSE(IsLibrary(0x80, [](std::string& head) { head[1] = 'z'; }));
  EXPECT_FALSE(IsLibrary(0x80, [](std::string& head) { head[0x82] = 1; })) << "no PE header";
  EXPECT_FALSE(IsLibrary(0x80, [](std::string& head) { head[0x80 + 23] = 0x02; })) << "a program";
  EXPECT_FALSE(IsLibrary(0x80, [](std::string& head) { head[0x80 + 25] = 0x01; })) << "32 bit";
  EXPECT_FALSE(IsLibrary(0x80, [](std::string& head) { head.pop_back(); })) << "cut short";
  for (const char* offset : {"\xff\xff\xff\xff", "\xff\xff\xff\x7f", "\x9a\x00\x00\x00", "\xf0\xff\xff\xff"}) {
    EXPECT_FALSE(IsLibrary(0x80, [&](std::string& head) { head.replace(0x3C, 4, std::string(offset, 4)); }));
  }
  for (const std::size_t size : {0U, 1U, 2U, 0x3FU, 0x40U}) {
    EXPECT_FALSE(IsLibrary(0x80, [&](std::string& head) { head.resize(size); })) << size;
  }
}

TEST_F(FileProbeTest, ResourceForkOfTheSizeThatWasTold) {
  FakePlatform::Node& file = fake.WriteFile("/file", "data");
  file.resourceFork = "fork";
  std::int64_t size = 7;
  EXPECT_EQ(TqFile::ReadResourceForkIntoBuf("/file", size), nullptr) << "no fork";
  EXPECT_EQ(size, 0);
  file.rsrcSize = std::int64_t{INT32_MAX} + 1;
  EXPECT_EQ(TqFile::ReadResourceForkIntoBuf("/file", size), nullptr);
  file.rsrcSize = 4;
  char* bytes = TqFile::ReadResourceForkIntoBuf("/file", size);
  EXPECT_EQ(size, 4);
  EXPECT_STREQ(bytes, "fork");
  std::free(bytes);
}
