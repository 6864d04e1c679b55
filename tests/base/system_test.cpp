#include <cerrno>
#include <tuple>

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
  const std::pair<const char*, bool> versions[] = {{"10.8.5", false}, {"10.9", true}, {"10.10", true}, {"11", true},
                                                   {"9.99", false},   {"", true},     {"Big", true}};
  for (const auto& [version, expected] : versions) {
    SetProductVersion(version);
    EXPECT_EQ(TqSystem::OsVersionIsAtLeast("10.9"), expected) << version;
  }
}

TEST_F(SystemTest, SizesAreGroupedAndTruncated) {
  const std::tuple<std::int64_t, int, const char*> sizes[] = {
      {1'023, 1, "1,023 Bytes"},
      {1'024, 1, "1 KB"},
      {1'048'575, 1, "1,023 KB"},
      {1'048'576, 1, "1 MB"},
      {1'073'741'824, 1, "1 GB"},
      {1'234'567, 2, "1,234,567 Bytes"},
      {123, 5, "0 GB"},
      {1'610'612'736, 0, "1,536 MB"},
      {1'610'612'736, 6, "1,536 MB"},
      {1'234'567'890, 3, "1,205,632 KB"},
  };
  for (const auto& [bytes, mode, expected] : sizes) EXPECT_EQ(TqSystem::HumanReadableSize(bytes, mode), expected);
}

TEST_F(SystemTest, HostAndProcessorNames) {
  EXPECT_EQ(TqSystem::HostName(), "testhost");
  fake.hostName.reset();
  EXPECT_EQ(TqSystem::HostName(), "unknown");
  const std::pair<const char*, int> machines[] = {{"x86_64", 1}, {"x86_32", 2}, {"arm64", 3}, {"riscv64", 0}, {"", 0}};
  for (const auto& [name, expected] : machines) {
    fake.machineName = name;
    EXPECT_EQ(TqSystem::MachineArchitecture(), expected) << name;
  }
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

TEST_F(SystemTest, TimeoutKillsTheChildAndOneThatLivesOnIsGivenUpAfterTwentySeconds) {
  ShellWrites("partial");
  fake.childPollsUntilEnd = 1'000'000;
  fake.killErrno = EPERM;
  EXPECT_NE(TqSystem::RunCommand("sleep", false, 1), nullptr);
  EXPECT_EQ(fake.sleepsMicros.size(), 2U + 40'000U);
  EXPECT_TRUE(Logged("ERROR: RunCommand unable to kill child proc(777) errno = 1\n"));
  EXPECT_EQ(CountLogged("Child process could not be killed. defunct process likely to occur.  Look for pid(777).\n"),
            1);
  fake.killErrno = 0;
  fake.sleepsMicros.clear();
  const auto output = TqSystem::RunCommand("sleep", false, 2);
  ASSERT_NE(output, nullptr);
  EXPECT_EQ(*output, "partial");
  EXPECT_EQ(fake.killedChildren, std::vector<int>{777});
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(4, 500'000));
  EXPECT_TRUE(Logged("About to kill childpid_a, info:" + outputPath + "\n"));
  EXPECT_TRUE(Logged("After kill childpid(777) returnpid(777status:0\n"));
  EXPECT_EQ(CountLogged("could not be killed"), 1);
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
