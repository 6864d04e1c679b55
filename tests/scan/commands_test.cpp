#include "scan/commands.h"

#include "tests/scan/scan_fixture.h"

class CommandsTest : public ScanTest {
 protected:
  /// Calls a command; gives its status, what it printed is in `out`.
  int Call(std::initializer_list<const char*> words) {
    TqStringVector arguments;
    for (const char* word : words) arguments.Add(word);
    char* text = nullptr;
    std::size_t size = 0;
    TqRunState run;
    TqCommandCall call{"tqfilelist", arguments, open_memstream(&text, &size), stderr, run};
    const int status = RunCommandOfTable(*FindCommand(arguments, TqStage::kAfterSettings), call);
    std::fclose(call.out);
    out = text;
    std::free(text);
    return status;
  }
  std::string out;
};

TEST_F(CommandsTest, ForksAndSignaturesOfTheMac) {
  FakePlatform::Node& source = fake.WriteFile("/tmp/source", "");
  source.rsrcSize = 4;
  Call({"-copy_rsrc_fork", "/tmp/source", "/tmp/fork"});
  EXPECT_EQ(out, "FileInfo for: /tmp/source\nERROR: Something went wrong reading resource fork.\n");
  source.resourceFork = std::string("a\0bc", 4);
  Call({"-copy_rsrc_fork", "/tmp/source", "/tmp/fork"});
  EXPECT_EQ(out, "FileInfo for: /tmp/source\nSUCCESS: Wrote 4 bytes to file: /tmp/fork\n");
  EXPECT_EQ(fake.ReadFile("/tmp/fork"), source.resourceFork);
  source.isSigned = true;
  EXPECT_EQ(Call({"-checkcodesignature", "/tmp/source"}), 0);
  EXPECT_TRUE(out.starts_with("PASS:/tmp/source has a valid code signature.\nFAIL:tqfilelist does not have a "));
}

TEST_F(CommandsTest, ExclusiveFileIsHeldToItsEnd) {
  const std::string opening = "Opening this file exclusively: /tmp/file\n";
  fake.WriteFile("/tmp/file", "x");
  std::size_t pausesUntilClosed = 0;
  fake.fault = [&](std::string_view operation, std::string_view path) {
    if (operation == "close" && path == "/tmp/file") pausesUntilClosed = fake.sleepsMicros.size();
    return 0;
  };
  EXPECT_EQ(Call({"-open_file_exclusive", "/tmp/file"}), 0);
  EXPECT_EQ(pausesUntilClosed, 1000U);
  EXPECT_TRUE(out.starts_with(opening + "Holding file exclusively seconds=0 ...\n"));
  EXPECT_TRUE(out.ends_with("Holding file exclusively seconds=4995 ...\nReleased file: /tmp/file\n"));
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(1000, 5'000'000));
  Fail("lock", "/tmp/file", EAGAIN);
  EXPECT_EQ(Call({"-open_file_exclusive", "/tmp/file"}), 0);
  EXPECT_EQ(out, opening +
                     "File exists but TqOpenFileReadOnlyExclusive Failed on: /tmp/file, errStr=ERROR: exclusive "
                     "lock failed with errno=11, on file: /tmp/file\n");
}

TEST_F(CommandsTest, NoVolumeAtAllWritesNoList) {
  fake.volumes[0].isBrowsable = false;
  EXPECT_EQ(Call({"-listvolumestofile"}), 1);
  EXPECT_FALSE(fake.Has(Data("tqflags")));
}

TEST_F(CommandsTest, BackslashAtTheEndBelongsToTheName) {
  fake.WriteFile("/Users/x/other", "");
  fake.WriteFile("/Users/x\\/a", "1");
  Call({"-dirlist", "/Users/x\\"});
  EXPECT_EQ(out, "DirList of 1 items for: /Users/x\\\n\n Item   0 - file: a\nEnd.\n");
  Call({"-dirlist", "/Users/x\\/"});
  EXPECT_EQ(out, "DirList of 1 items for: /Users/x\\\n\n Item   0 - file: a\nEnd.\n");
  Call({"-dirlist", "/Users/x\\/a\\"});
  EXPECT_EQ(out, "Directory does not exist: /Users/x\\/a\\\n");
  Call({"-fileinfo", "/Users/x\\/a\\"});
  EXPECT_EQ(out, "FileInfo for: /Users/x\\/a\\\nFile does not exist.\n");
  Call({"-copy_rsrc_fork", "/Users/x\\/a\\", "/tmp/fork"});
  EXPECT_EQ(out, "FileInfo for: /Users/x\\/a\\\nFile does not exist.\n");
}

TEST_F(CommandsTest, OnlyTheDirectoryListingsRestrictSideEffects) {
  for (const auto& [word, count] : {std::pair{"-fileinfo", 0}, {"-dirlist", 1}, {"-dirlistdetail", 2}}) {
    Call({word, "/Users"});
    EXPECT_EQ(fake.sideEffectRestrictions, count);
  }
}
