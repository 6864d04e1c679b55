#include "base/run_command.h"
#include "base/system_info.h"
#include "tests/platform_fixture.h"

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

TEST_F(SystemTest, OsTextNamesWhatIsWrongWithTheVersionFileAndIsCached) {
  const std::string head = "<plist><dict><key>ProductVersion</key>";
  const std::pair<std::string, const char*> contents[] = {
      {"", "Macintosh_UNKNOWN_A"},
      {"bplist00", "Macintosh_UNKNOWN_B"},
      {head + "<array/></dict></plist>", "Macintosh_UNKNOWN_C"},
      {head + "<string>14.2</string></dict></plist>", "MacOsX-14.2"}};
  for (const auto& [content, expected] : contents) {
    fake.WriteFile("/System/Library/CoreServices/SystemVersion.plist", content);
    TqSystem::ForgetOsDetailText();
    EXPECT_EQ(TqSystem::OsDetailText(), expected) << content;
  }
  fake.Remove("/System");
  EXPECT_EQ(TqSystem::OsDetailText(), "MacOsX-14.2");
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
  EXPECT_EQ(Joined(TqSystem::HumanReadableSize(1'048'575, 1), "; ", TqSystem::HumanReadableSize(1'073'741'824, 1), "; ",
                   TqSystem::HumanReadableSize(1'234'567, 2), "; ", TqSystem::HumanReadableSize(1'610'612'736, 4)),
            "1,023 KB; 1 GB; 1,234,567 Bytes; 1,536 MB");
}

TEST_F(SystemTest, OnlyATimedCommandDeletesItsTemporaryFile) {
  ShellWrites("");
  auto output = TqSystem::RunCommand("ls", false, 0);
  ASSERT_TRUE(output != nullptr && output->IsEmpty());
  EXPECT_TRUE(fake.shellLines.back() == "ls > " + outputPath && fake.Has(outputPath));
  ShellWrites("text\n");
  fake.childPollsUntilEnd = 3;
  output = TqSystem::RunCommand("ls", true, 60);
  ASSERT_TRUE(output != nullptr && *output == "text\n");
  EXPECT_EQ(fake.shellLines.back(), "ls > " + outputPath + " 2>&1");
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(3, 500'000));
  EXPECT_TRUE(!fake.Has(outputPath) && fake.killedChildren.empty());
}

TEST_F(SystemTest, TimeoutKillsTheChildAndOneThatLivesOnIsGivenUpAfterTwentySeconds) {
  ShellWrites("partial");
  fake.childPollsUntilEnd = 1'000'000;
  fake.killErrno = EPERM;
  EXPECT_NE(TqSystem::RunCommand("sleep", false, 1), nullptr);
  EXPECT_EQ(fake.sleepsMicros.size(), 2U + 40'000U);
  EXPECT_TRUE(Logged("Child process could not be killed. defunct process likely to occur.  Look for pid(777).\n"));
  fake.killErrno = 0;
  fake.sleepsMicros.clear();
  const auto output = TqSystem::RunCommand("sleep", false, 2);
  ASSERT_TRUE(output != nullptr && *output == "partial");
  EXPECT_EQ(fake.killedChildren, std::vector<int>{777});
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(4, 500'000));
  EXPECT_TRUE(Logged("After kill childpid(777) returnpid(777status:0\n"));
  EXPECT_EQ(CountLogged("could not be killed"), 1);
}

TEST_F(SystemTest, TestRootAnswersFromStubFiles) {
  TqSystem::SetTestRoot("/stubs");
  fake.WriteFile("/stubs/tqstubs/ls+-l+%2FUsers%2Fa.b_c~%C3.txt", "canned");
  const auto output = TqSystem::RunCommand("ls -l /Users/a.b_c~\xC3", true, 5);
  ASSERT_TRUE(output != nullptr && *output == "canned");
  EXPECT_TRUE(TqSystem::RunCommand("other", false, 0) == nullptr && fake.shellLines.empty());
  EXPECT_THROW(TqSystem::SetTestRoot("/stubs2"), ExitCalled);
  TqSystem::ForgetTestRoot();
  EXPECT_THROW(TqSystem::SetTestRoot("stubs"), ExitCalled);
}
