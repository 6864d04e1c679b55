#include "scan/commands.h"

#include "tests/scan/scan_fixture.h"

class CommandsTest : public ScanTest {
 protected:
  CommandsTest() { fake.MakeFolders("/tmp"); }
  static TqStringVector Words(std::initializer_list<const char*> words) {
    TqStringVector arguments;
    for (const char* word : words) arguments.Add(word);
    return arguments;
  }
  /// Runs `command`; gives its status, what it printed is in `out` and `err`.
  int Call(const TqCommand& command, const TqStringVector& arguments) {
    char* texts[2] = {};
    std::size_t sizes[2] = {};
    TqCommandCall call{"tqfilelist", arguments, open_memstream(&texts[0], &sizes[0]),
                       open_memstream(&texts[1], &sizes[1]), run};
    int status = -1;
    try {
      status = RunCommandOfTable(command, call);
    } catch (const ExitCalled& exit) {
      status = exit.status;
    }
    out = Closed(call.out, texts[0]);
    err = Closed(call.err, texts[1]);
    return status;
  }
  int Call(const TqStringVector& arguments, TqStage stage) { return Call(*FindCommand(arguments, stage), arguments); }
  static std::string Closed(std::FILE* file, char*& text) {
    std::fclose(file);
    const std::string copy = text;
    std::free(text);
    return copy;
  }
  TqRunState run;
  std::string out;
  std::string err;
};

TEST_F(CommandsTest, WordsAreExactAndHaveTheirStage) {
  EXPECT_EQ(Call(Words({"-version", "ignored"}), TqStage::kBeforeSettings), 0);
  EXPECT_EQ(out, Joined("VERSION: ", TqVersionString(), "\n"));
  EXPECT_EQ(FindCommand(Words({"-version"}), TqStage::kAfterSettings), nullptr);
  for (const char* word : {"-Version", "-versions", "version", ""}) {
    EXPECT_EQ(FindCommand(Words({word}), TqStage::kBeforeSettings), nullptr) << word;
    EXPECT_EQ(FindCommand(Words({word}), TqStage::kAfterSettings), nullptr) << word;
  }
  EXPECT_EQ(FindCommand(Words({}), TqStage::kAfterSettings), nullptr);
}

TEST_F(CommandsTest, MissingOperandsAreTold) {
  const TqCommand command{"-two", [](TqCommandCall& call) { return call.Operand(2).IsEmpty() ? 5 : 6; },
                          TqStage::kAfterSettings, 2};
  EXPECT_EQ(Call(command, Words({"-two", "a"})), 0);
  EXPECT_EQ(out, "Must have additional arg for: -two\n");
  EXPECT_EQ(Call(command, Words({"-two", "a", ""})), 5) << "an empty word is an operand";
  EXPECT_EQ(Call(command, Words({"-two", "a", "b"})), 6);
}

TEST_F(CommandsTest, ForksAndSignaturesOfTheMac) {
  FakePlatform::Node& source = fake.WriteFile("/tmp/source", "");
  source.rsrcSize = 4;
  const auto copy = [&](const char* destination) {
    Call(Words({"-copy_rsrc_fork", "/tmp/source", destination}), TqStage::kAfterSettings);
    return out;
  };
  EXPECT_EQ(copy("/tmp/fork"), "FileInfo for: /tmp/source\nERROR: Something went wrong reading resource fork.\n");
  source.resourceFork = std::string("a\0bc", 4);
  EXPECT_EQ(copy("/tmp/fork"), "FileInfo for: /tmp/source\nSUCCESS: Wrote 4 bytes to file: /tmp/fork\n");
  EXPECT_EQ(fake.ReadFile("/tmp/fork"), source.resourceFork);
  EXPECT_EQ(copy("/no/fork"), "FileInfo for: /tmp/source\nERROR: Something went wrong writing to file: /no/fork\n");
  source.isSigned = true;
  const TqStringVector check = Words({"-checkcodesignature", "/tmp/source"});
  EXPECT_EQ(Call(check, TqStage::kAfterSettings), 0);
  EXPECT_EQ(out,
            "PASS:/tmp/source has a valid code signature.\n"
            "FAIL:tqfilelist does not have a valid code signature (self test).\n");
}

TEST_F(CommandsTest, ExclusiveFileIsHeldToItsEnd) {
  fake.WriteFile("/tmp/file", "x");
  EXPECT_EQ(Call(Words({"-open_file_exclusive", "/tmp/file"}), TqStage::kAfterSettings), 0);
  EXPECT_TRUE(out.starts_with("Opening this file exclusively: /tmp/file\nHolding file exclusively seconds=0 ...\n"));
  EXPECT_TRUE(out.ends_with("Holding file exclusively seconds=4995 ...\nReleased file: /tmp/file\n"));
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(1000, 5'000'000));
}

TEST_F(CommandsTest, NoVolumeAtAll) {
  fake.volumes[0].isBrowsable = false;
  EXPECT_EQ(Call(Words({"-listvolumestofile"}), TqStage::kAfterSettings), 1);
  EXPECT_EQ(out, "ERROR: No volumes found.\n");
  EXPECT_TRUE(Logged(" - ERROR: listvolumetofile - No volumes found.\n"));
  EXPECT_FALSE(fake.Has(Data("tqflags")));
  EXPECT_EQ(Call(Words({"-queryattachedvolumes"}), TqStage::kAfterSettings), 0);
  EXPECT_EQ(out, "\nThe following hard drives are attached:\n\nALL DONE\n");
  EXPECT_EQ(Call(Words({"-listvolumes"}), TqStage::kAfterSettings), 0);
  EXPECT_TRUE(out.starts_with("\nSummaryLine: YesBackedUp_none__NotBackedUp_none\nabstr: no_1_s0_v0\n")) << out;
}

TEST_F(CommandsTest, TwoWaysIntoTheScanRun) {
  EXPECT_EQ(Call(Words({"-urgent_refresh_all"}), TqStage::kAfterSettings), 0);
  EXPECT_TRUE(run.urgent);
  EXPECT_FALSE(run.firstInstall);
  run = TqRunState();
  EXPECT_EQ(Call(Words({"-first_install_time_urgent"}), TqStage::kAfterSettings), 0);
  EXPECT_TRUE(run.urgent);
  EXPECT_TRUE(run.firstInstall);
  EXPECT_EQ(CountLogged("got three hour lock, starting scan...."), 2);
}

TEST_F(CommandsTest, OnlyTheDirectoryListingsRestrictSideEffects) {
  fake.MakeFolders("/folder");
  Call(Words({"-fileinfo", "/folder"}), TqStage::kAfterSettings);
  EXPECT_EQ(fake.sideEffectRestrictions, 0);
  Call(Words({"-dirlist", "/folder"}), TqStage::kAfterSettings);
  EXPECT_EQ(fake.sideEffectRestrictions, 1);
  Call(Words({"-dirlistdetail", "/folder"}), TqStage::kAfterSettings);
  EXPECT_EQ(fake.sideEffectRestrictions, 2);
}
