#include <cerrno>

#include "base/run_command.h"
#include "base/system_info.h"
#include "tests/platform_fixture.h"

namespace {

class SystemTest : public PlatformTest {
 protected:
  /// A shell whose commands write `output` into the file behind " > ".
  void ShellWrites(const std::string& output) {
    fake.shell = [this, output](const std::string& line) {
      const std::size_t at = line.find(" > ") + 3;
      outputPath = line.substr(at, line.find(".txt", at) + 4 - at);
      fake.WriteFile(outputPath, output);
      return 0;
    };
  }
  std::string Size(std::int64_t bytes, int mode) { return TqSystem::HumanReadableSize(bytes, mode).c_str(); }

  std::string outputPath;
};

constexpr const char* kVersionFile = "/System/Library/CoreServices/SystemVersion.plist";

TEST_F(SystemTest, OsTextNamesWhatIsWrongWithTheVersionFileAndIsCached) {
  EXPECT_EQ(TqSystem::OsDetailText(), "MacOsX-10.15.7");
  fake.Remove(kVersionFile);
  EXPECT_EQ(TqSystem::OsDetailText(), "MacOsX-10.15.7");
  const auto textWith = [this](const char* content) {
    TqSystem::ForgetOsDetailText();
    if (content != nullptr) fake.WriteFile(kVersionFile, content);
    return std::string(TqSystem::OsDetailText().c_str());
  };
  EXPECT_EQ(textWith(nullptr), "Macintosh_UNKNOWN_A");
  EXPECT_EQ(textWith(""), "Macintosh_UNKNOWN_A");
  EXPECT_EQ(textWith("bplist00"), "Macintosh_UNKNOWN_B");
  EXPECT_EQ(textWith("<plist><dict><key>X</key><string>1</string></dict></plist>"), "Macintosh_UNKNOWN_C");
  EXPECT_EQ(textWith("<plist><dict><key>ProductVersion</key><array/></dict></plist>"), "Macintosh_UNKNOWN_C");
  EXPECT_EQ(textWith("<plist><dict><key>ProductVersion</key><string> 14.2</string></dict></plist>"), "MacOsX- 14.2");
  EXPECT_EQ(LogText(), "");
}

TEST_F(SystemTest, VersionsCompareAsNumbersAndAnUnknownOneIsNew) {
  const auto isAtLeast = [this](const char* present, const char* wanted) {
    SetProductVersion(present);
    return TqSystem::OsVersionIsAtLeast(wanted);
  };
  EXPECT_FALSE(isAtLeast("10.8.5", "10.9"));
  EXPECT_TRUE(isAtLeast("10.9", "10.9"));
  EXPECT_TRUE(isAtLeast("10.10", "10.9"));
  EXPECT_TRUE(isAtLeast("11.0", "10.9"));
  EXPECT_FALSE(isAtLeast("9.99", "10.9"));
  EXPECT_TRUE(isAtLeast("14", "14.0"));
  fake.WriteFile(kVersionFile, "");
  TqSystem::ForgetOsDetailText();
  EXPECT_TRUE(TqSystem::OsVersionIsAtLeast("10.9"));
}

TEST_F(SystemTest, SizesAreGroupedAndTruncated) {
  EXPECT_EQ(Size(1'023, 1), "1,023 Bytes");
  EXPECT_EQ(Size(1'024, 1), "1 KB");
  EXPECT_EQ(Size(1'048'575, 1), "1,023 KB");
  EXPECT_EQ(Size(1'048'576, 1), "1 MB");
  EXPECT_EQ(Size(1'073'741'824, 1), "1 GB");
  EXPECT_EQ(Size(1'234'567, 2), "1,234,567 Bytes");
  EXPECT_EQ(Size(1'234'567'890, 3), "1,205,632 KB");
  EXPECT_EQ(Size(123, 5), "0 GB");
  for (const int mode : {0, 4, -1, 6}) EXPECT_EQ(Size(1'610'612'736, mode), "1,536 MB");
}

TEST_F(SystemTest, HostAndProcessorNames) {
  EXPECT_EQ(TqSystem::HostName(), "testhost");
  fake.hostName.reset();
  EXPECT_EQ(TqSystem::HostName(), "unknown");
  EXPECT_EQ(TqSystem::MachineArchitecture(), 3);
  fake.machineName = "x86_64";
  EXPECT_EQ(TqSystem::MachineArchitecture(), 1);
  fake.machineName = "x86_32";
  EXPECT_EQ(TqSystem::MachineArchitecture(), 2);
  fake.machineName = "riscv64";
  EXPECT_EQ(TqSystem::MachineArchitecture(), 0);
}

TEST_F(SystemTest, UntimedCommandKeepsItsTemporaryFile) {
  ShellWrites("");
  const auto output = TqSystem::RunCommand("ls", false, 0);
  ASSERT_NE(output, nullptr);
  EXPECT_TRUE(output->IsEmpty());
  EXPECT_EQ(fake.shellLines.back(), "ls > " + outputPath);
  EXPECT_TRUE(outputPath.starts_with("/tmp/tqr"));
  EXPECT_TRUE(fake.Has(outputPath));
  EXPECT_EQ(TqSystem::RunCommand("", false, 0), nullptr);
  EXPECT_EQ(TqSystem::RunCommand(nullptr, false, 5), nullptr);
}

TEST_F(SystemTest, TimedCommandIsPolledAndItsTemporaryFileDeleted) {
  ShellWrites("text\n");
  fake.childPollsUntilEnd = 3;
  const auto output = TqSystem::RunCommand("ls", true, 60);
  ASSERT_NE(output, nullptr);
  EXPECT_EQ(*output, "text\n");
  EXPECT_EQ(fake.shellLines.back(), "ls > " + outputPath + " 2>&1");
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(3, 500'000));
  EXPECT_FALSE(fake.Has(outputPath));
  EXPECT_TRUE(fake.killedChildren.empty());
  EXPECT_TRUE(Logged("returnpid:777 childpid:777 timeout:60 status:0\n"));
}

TEST_F(SystemTest, TimeoutKillsTheChildAndKeepsWhatItWrote) {
  ShellWrites("partial");
  fake.childPollsUntilEnd = 1'000'000;
  const auto output = TqSystem::RunCommand("sleep", false, 2);
  ASSERT_NE(output, nullptr);
  EXPECT_EQ(*output, "partial");
  EXPECT_EQ(fake.killedChildren, std::vector<int>{777});
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(4, 500'000));
  EXPECT_TRUE(Logged("About to kill childpid_a, info:" + outputPath + "\n"));
  EXPECT_TRUE(Logged("After kill childpid(777) returnpid(777status:0\n"));
  EXPECT_FALSE(Logged("could not be killed"));
}

TEST_F(SystemTest, ChildThatCannotBeKilledIsGivenUpAfterTwentySeconds) {
  ShellWrites("");
  fake.childPollsUntilEnd = 1'000'000;
  fake.killErrno = EPERM;
  EXPECT_NE(TqSystem::RunCommand("sleep", false, 1), nullptr);
  EXPECT_EQ(fake.sleepsMicros.size(), 2U + 40'000U);
  EXPECT_TRUE(Logged("ERROR: RunCommand unable to kill child proc(777) errno = 1\n"));
  EXPECT_TRUE(Logged("Child process could not be killed. defunct process likely to occur.  Look for pid(777).\n"));
}

TEST_F(SystemTest, TestRootAnswersFromStubFiles) {
  TqSystem::SetTestRoot("/stubs");
  fake.WriteFile("/stubs/tqstubs/ls+-l+%2FUsers%2Fa.b_c~%C3.txt", "canned");
  const auto output = TqSystem::RunCommand("ls -l /Users/a.b_c~\xC3", true, 5);
  ASSERT_NE(output, nullptr);
  EXPECT_EQ(*output, "canned");
  EXPECT_TRUE(Logged("WARNING: TqSystem::RunCommand, Running in Test Mode\n"));
  EXPECT_EQ(TqSystem::RunCommand("other", false, 0), nullptr);
  EXPECT_TRUE(Logged("ERROR: command 'other' could not read test results from: /stubs/tqstubs/other.txt\n"));
  EXPECT_TRUE(fake.shellLines.empty());
  EXPECT_THROW(TqSystem::SetTestRoot("/stubs2"), ExitCalled);
  TqSystem::ForgetTestRoot();
  EXPECT_THROW(TqSystem::SetTestRoot("stubs"), ExitCalled);
}

}  // namespace
