#include "scan/walker.h"

#include "base/file_lock.h"
#include "tests/scan/scan_fixture.h"

/// A line of a file whose time is `seconds`, by default the fake clock's.
static std::string Line(std::string_view kind, std::int64_t size, const std::string& path,
                        std::int64_t seconds = 1'700'000'000) {
  return Joined(kind, "\t", Hex16(seconds * 1000), "\t", size, "\t", path, "\n").c_str();
}
static std::string Block(const std::string& dir, int files, const std::string& lines = "") {
  return "#\n# Dir: " + dir + "\n# Files: " + std::to_string(files) + "\n" + lines;
}

class WalkerTest : public ScanTest {
 protected:
  WalkerTest() {
    AddIdentified("/Volumes/Data", kDiskGuid);
    run.maxFileSizeBytes = 600'000'000;
    run.lastLockRefreshMillis = fake.nowMillis;
    PrepareScanPaths(run);
    walk.largeFileListPath = Data("tqfilelists/bigfilelist.dat.future");
    walk.listFilePath = Data("tqfilelists/") + kDiskGuid + "_data_filelist.dat.future";
    walk.volumePath = "/Volumes/Data/";
    output.NoteMount(walk.volumePath);
  }

  /// The lines of a walk of the whole tree, or of one level.
  std::string Walk(const char* dir) {
    RecursivelyAddFilenamesToList(walk, dir, 1);
    return Taken();
  }
  std::string OneLevel(const char* dir) {
    AddFilenamesFromThisDirToList(walk, dir);
    return Taken();
  }
  std::string Taken() {
    const std::string lines = std::string(output.Buffer());
    output.Buffer().Clear();
    return lines;
  }
  void UseOnly(TqExcludeFilenameRule& rule) {
    walk.rules = &rule;
    walk.ruleCount = 1;
  }
  /// `count` directories in /many, beside itself.
  void MakeManyFolders(int count) {
    for (int i = 0; i < count; ++i) fake.MakeFolders("/many/" + std::to_string(i));
    run.dirCounter = 0;
  }
  /// The listing of `folder` breaks off behind its first entries.
  void CutListing(const char* folder, int entries = 1) {
    fake.Find(folder)->readErrno = EIO;
    fake.Find(folder)->readErrnoAfter = entries;
  }
  void UnmountAt(const std::string& operation, const std::string& path) {
    fake.fault = [=, this](std::string_view doing, std::string_view on) {
      if (doing == operation && on == path) fake.Unmount("/Volumes/Data");
      return 0;
    };
  }

  TqRunState run;
  TqTopDirsList topDirs;
  TqListOutput output{/*bufferingOff=*/false};
  TqCategoryTables tables;
  TqCategoryTotals totals;
  TqWalk walk{run, topDirs, output, tables, totals};
};

TEST_F(WalkerTest, ListsATreeInPreOrderInTheOrderOfTheListing) {
  fake.WriteFile("/t/zeta", "12345").modTimeSec = 1'700'000'001;
  fake.MakeFolders("/t/empty/inner");
  fake.WriteFile("/t/alpha", "").modTimeSec = -1;
  fake.WriteFile("/t/sub/forks", "abc").rsrcSize = 40;
  fake.MakeLink("/t/to_dir", "/t/sub");
  fake.MakeSpecial("/t/pipe", platform::EntryKind::kFifo);
  fake.MakeFolders("/t/share/inside");
  fake.skippedMounts = {{"/t/share", "//nas/share", "smbfs"}};

  const std::string top = Block("/t", 4,
                                Line("f", 5, "/t/zeta", 1'700'000'001) + "f\tfffffffffffffc18\t0\t/t/alpha\n" +
                                    Line("s", 6, "/t/to_dir") + Line("s", 0, "/t/pipe"));
  EXPECT_EQ(Walk("/t"), top + Block("/t/empty", 0) + Block("/t/empty/inner", 0) +
                            Block("/t/sub", 1, Line("f", 43, "/t/sub/forks")));
  EXPECT_EQ(totals.num[kEverythingCategory], 5);
  EXPECT_EQ(totals.totbytes[kEverythingCategory], 5 + 43 + 6);
  EXPECT_EQ(run.maxRecursDepthSeen, 3);
  EXPECT_EQ(run.dirCounter, 4);

  EXPECT_EQ(OneLevel("/t"), top);
  EXPECT_EQ(run.dirCounter, 4) << "the run counts the directories of this form";
  fake.WriteFile("/at_root", "");
  EXPECT_EQ(OneLevel("/"), Block("/", 1, Line("f", 0, "/at_root")));
}

TEST_F(WalkerTest, HostileNamesNeverForgeALine) {
  for (const char* name : {"line\nf\t0", "re\rturn", "back\\slash", "\xFF\xFE", "tab\there", ".hidden",
                           "b\\d/deep\\er/x", "\\begins/x", "ends\\/x", "new\nline/x", "lit_-backslash-_eral/x"}) {
    fake.WriteFile(std::string("/h/") + name, "x");
  }
  const auto f = [](const std::string& path) { return Line("f", 1, path); };
  const std::string deep = "/h/b_-backslash-_d/deep_-backslash-_er";
  EXPECT_EQ(Walk("/h"),
            Block("/h", 6, f("/h/back_-backslash-_slash") + f("/h/\xFF\xFE") + f("/h/tab\there") + f("/h/.hidden")) +
                Block("/h/b_-backslash-_d", 0) + Block(deep, 1, f(deep + "/x")) +
                Block("/h/new___-backslash-_n__line", 1) +
                Block("/h/lit_-backslash-_eral", 1, f("/h/lit_-backslash-_eral/x")));
  // A top directory may end in a backslash: it is not for the walk to skip.
  const std::string ends = Block("/h/ends_-backslash-_", 1, f("/h/ends_-backslash-_/x"));
  EXPECT_EQ(Walk("/h/ends_-backslash-_"), ends);
  EXPECT_EQ(OneLevel("/h/ends_-backslash-_"), ends);
}

TEST_F(WalkerTest, LineBreaksAndBackslashesAreSeenAtEveryPlaceOfNamesOfAnyLength) {
  for (const std::string dir : {"/n", "/a folder of/quite an/ordinary/length"}) {
    std::string lines;
    int files = 0;
    for (const std::size_t length : {1, 2, 7, 13, 14, 15, 16, 17, 18, 31, 32, 33, 48}) {
      for (std::size_t at = 0; at < length; ++at) {
        std::string name(length, '[');  // next to the backslash, as 0x1F is to the blank
        for (const char mark : {'\r', '\n', '\\', '\x1F', '\x7F', '\xDC'}) {
          name[at] = mark;
          fake.WriteFile(dir + "/" + name, "");
          ++files;
          if (mark == '\r' || mark == '\n') continue;
          lines += Line("f", 0, dir + "/" + (mark == '\\' ? name.replace(at, 1, "_-backslash-_") : name));
          name.assign(length, '[');
        }
      }
    }
    EXPECT_EQ(Walk(dir.c_str()), Block(dir, files, lines));
  }
}

TEST_F(WalkerTest, KeepsOutStrayFilesAndBackupFolders) {
  for (const char* file : {".stray", "sub/.kept", "Backups.backupdb/x", "backups.BACKUPDB/x", "WDSmartWare.swstor/x",
                           "WDSmartWare.SWSTOR/x", "x.MobileBackups/x"}) {
    fake.WriteFile(std::string("/Users/Shared/") + file, "");
  }
  const auto sub = [](const std::string& dir, const std::string& name) {
    return Block("/Users/Shared/" + dir, 1, Line("f", 0, "/Users/Shared/" + dir + "/" + name));
  };
  EXPECT_EQ(Walk("/Users/Shared"), Block("/Users/Shared", 1) + sub("sub", ".kept") + sub("backups.BACKUPDB", "x") +
                                       sub("WDSmartWare.SWSTOR", "x"));
  EXPECT_EQ(OneLevel("/Users/Shared"), Block("/Users/Shared", 1, Line("f", 0, "/Users/Shared/.stray")));
}

TEST_F(WalkerTest, WalksAThousandLevelsAndNotOneMore) {
  std::string path = "/d", expected;
  for (int depth = 1; depth <= 1000; ++depth, path += "/d") expected += Block(path, 0);
  fake.WriteFile(path + "/too_deep", "x");
  EXPECT_EQ(Walk("/d"), expected);
  EXPECT_EQ(run.maxRecursDepthSeen, 1000);
  EXPECT_EQ(CountLogged(" - " + path + "\n"), 1);
}

TEST_F(WalkerTest, PausesAfter101ListedDirectoriesAndUrgentOnesOnlyLookAfter501) {
  MakeManyFolders(99);
  Walk("/many");
  EXPECT_TRUE(fake.sleepsMicros.empty());
  MakeManyFolders(100);
  run.lock = TqLock::GrabFileBasedLock(run.lockPath, 10'800, 3);
  run.lastLockRefreshMillis = fake.nowMillis - 400'000;
  Walk("/many");
  EXPECT_EQ(run.dirCounter, 0);
  EXPECT_EQ(run.lastLockRefreshMillis, fake.nowMillis);
  fake.onSleep = [&](std::int64_t) { fake.WriteFile(run.stopFilePath, ""); };
  EXPECT_THROW(Walk("/many"), ExitCalled);

  run.fresh = true;
  fake.WriteFile(run.stopFilePath, "");
  MakeManyFolders(499);
  EXPECT_NO_THROW(Walk("/many"));
  MakeManyFolders(500);
  EXPECT_THROW(Walk("/many"), ExitCalled);
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(2, 3'000'000)) << "none of the urgent walks";
}

TEST_F(WalkerTest, LargeFilesAreListedAsideWithTheRulesAnswer) {
  fake.WriteFile("/big/edge.mov", "").fakeSize = 524'288'000;
  fake.WriteFile("/big/below", "").fakeSize = 524'287'999;
  FakePlatform::Node& forks = fake.WriteFile("/big/back\\slash", "");
  forks.fakeSize = 524'287'999;
  forks.rsrcSize = 1;
  fake.WriteFile("/big/unwanted", "").fakeSize = 600'000'001;
  TqExcludeFilenameRule rule;
  char extension[] = "mov";
  rule.hasFileExtension = extension;
  UseOnly(rule);
  Walk("/big");
  EXPECT_EQ(fake.ReadFile(walk.largeFileListPath),
            "f\t524288000\t/big/edge.mov\nt\t524288000\t/big/back_-backslash-_slash\nf\t600000001\t/big/unwanted\n");
  EXPECT_EQ(totals.num[kEverythingCategory], 2);
}

TEST_F(WalkerTest, ABackslashInAVolumesNameHidesNoRule) {
  fake.WriteFile("/Volumes/a\\b/music.mov", "x");
  TqExcludeFilenameRule rule;
  char prefix[] = "music";
  rule.skipFirstCharThenStartsWith = prefix;
  UseOnly(rule);
  OneLevel("/Volumes/a_-backslash-_b");
  EXPECT_EQ(totals.num[kEverythingCategory], 0);
  EXPECT_FALSE(Logged("unknown external volume situation"));
}

TEST_F(WalkerTest, UnreadableDirectoriesGetNoBlock) {
  for (const char* closed : {"/u/closed", "/u/b\\d"}) fake.MakeFolders(closed).openErrno = EACCES;
  for (const char* file : {"/u/cut/one", "/u/cut/two"}) fake.WriteFile(file, "");
  CutListing("/u/cut");
  EXPECT_EQ(Walk("/u"), Block("/u", 0) + Block("/u/cut", 1, Line("f", 0, "/u/cut/one")));
  EXPECT_EQ(OneLevel("/u/b_-backslash-_d"), "");
  EXPECT_FALSE(output.IsInterrupted("/Volumes/Data/")) << "the volume is still the same";
}

TEST_F(WalkerTest, AListThatLacksWhatTheMachineHadNoMeansForIsNotWhole) {
  for (const char* file : {"/u/one", "/u/two"}) fake.WriteFile(file, "");
  FakePlatform::Node& folder = *fake.Find("/u");
  folder.readErrnoAfter = 1;
  for (const auto& [error, isWhole] :
       {std::pair{EACCES, true}, {EIO, true}, {ENOMEM, false}, {ENFILE, false}, {EMFILE, false}}) {
    for (int* failing : {&folder.openErrno, &folder.readErrno}) {
      *failing = error;
      output = TqListOutput(/*bufferingOff=*/false);
      Walk("/u");
      EXPECT_EQ(output.IsWhole(walk.listFilePath), isWhole) << error;
      *failing = 0;
    }
  }
}

TEST_F(WalkerTest, AVolumeThatVanishesMidWalkIsMarked) {
  for (const char* name : {"a", "b", "c"}) fake.WriteFile(std::string("/Volumes/Data/v/") + name + "/x", "x");
  topDirs.dirs.Add("2/Volumes/Data/v/");
  topDirs.vguids.Add(kDiskGuid);
  topDirs.count = 1;
  fake.WriteFile(walk.listFilePath, "half");
  UnmountAt("list", "/Volumes/Data/v/b");
  EXPECT_EQ(Walk("/Volumes/Data/v"),
            Block("/Volumes/Data/v", 0) + Block("/Volumes/Data/v/a", 1, Line("f", 1, "/Volumes/Data/v/a/x")));
  EXPECT_TRUE(output.IsInterrupted("/Volumes/Data/"));
  EXPECT_TRUE(topDirs.IsActive(0)) << "only a top directory that cannot be listed corrects the plan";

  EXPECT_EQ(Walk("/Volumes/Data/v"), "");
  EXPECT_FALSE(topDirs.IsActive(0) || fake.Has(walk.listFilePath));
}

TEST_F(WalkerTest, AVolumeThatVanishesWithinAListingIsMarked) {
  for (const char* file : {"/Volumes/Data/v/a", "/Volumes/Data/v/b", "/Volumes/Data/v/c"}) fake.WriteFile(file, "x");
  CutListing("/Volumes/Data/v", 2);
  UnmountAt("query", "/Volumes/Data/v/b");
  EXPECT_EQ(OneLevel("/Volumes/Data/v"), Block("/Volumes/Data/v", 1, Line("f", 1, "/Volumes/Data/v/a")))
      << "the listing itself did not fail";
  EXPECT_TRUE(output.IsInterrupted("/Volumes/Data/"));
}

TEST_F(WalkerTest, WithoutBufferingEveryLineGoesToDiskAtOnce) {
  output = TqListOutput(/*bufferingOff=*/true);
  for (const char* file : {"/u/one", "/u/two"}) fake.WriteFile(file, "");
  int writes = 0;
  fake.fault = [&](std::string_view operation, std::string_view path) {
    writes += operation == "write" && path == walk.listFilePath ? 1 : 0;
    return 0;
  };
  EXPECT_EQ(Walk("/u"), "");
  EXPECT_EQ(writes, 3);
  EXPECT_EQ(fake.ReadFile(walk.listFilePath), Block("/u", 2, Line("f", 0, "/u/one") + Line("f", 0, "/u/two")));
}
