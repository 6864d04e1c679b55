#include "scan/walker.h"

#include <cstdio>
#include <vector>

#include "base/file_lock.h"
#include "tests/scan/scan_fixture.h"

namespace {

constexpr std::int64_t kSeconds = 1'700'000'000;  // the fake clock's, for files without a time of their own

std::string Line(char kind, std::int64_t seconds, std::int64_t size, const std::string& path) {
  char fields[64];
  std::snprintf(fields, sizeof fields, "%c\t%016llx\t%lld\t", kind, static_cast<unsigned long long>(seconds * 1000),
                static_cast<long long>(size));
  return fields + path + "\n";
}
std::string Block(const std::string& dir, int files, const std::string& lines = "") {
  return "#\n# Dir: " + dir + "\n# Files: " + std::to_string(files) + "\n" + lines;
}

class WalkerTest : public ScanTest {
 protected:
  WalkerTest() {
    Attach("/Volumes/Data", kDataGuid);
    run.maxFileSizeBytes = 600'000'000;
    run.lastLockRefreshMillis = fake.nowMillis;
    PrepareScanPaths(run);
    walk.largeFileListPath = Data("tqfilelists/bigfilelist.dat.future");
    walk.listFilePath = Data("tqfilelists/") + kDataGuid + "_data_filelist.dat.future";
    walk.volumePath = "/Volumes/Data/";
    output.NoteMount(walk.volumePath);
    ForgetVerificationTime();
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
    std::string lines = Text(output.Buffer());
    output.Buffer().Clear();
    return lines;
  }
  /// `count` directories in /many, beside itself.
  void MakeManyFolders(int count) {
    for (int i = 0; i < count; ++i) fake.MakeFolders("/many/" + std::to_string(i));
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
  FakePlatform::Node& forks = fake.WriteFile("/t/sub/forks", "abc");
  forks.rsrcSize = 40;
  fake.MakeLink("/t/to_dir", "/t/sub");
  fake.MakeLink("/t/dangling", "/nowhere");
  fake.MakeSpecial("/t/pipe", platform::EntryKind::kFifo);
  fake.MakeFolders("/t/share/inside");
  fake.skippedMounts = {{"/t/share", "//nas/share", "smbfs"}};

  const std::string top = Line('f', 1'700'000'001, 5, "/t/zeta") + "f\tfffffffffffffc18\t0\t/t/alpha\n" +
                          Line('s', kSeconds, 6, "/t/to_dir") + Line('s', kSeconds, 8, "/t/dangling") +
                          Line('s', kSeconds, 0, "/t/pipe");
  EXPECT_EQ(Walk("/t"), Block("/t", 5, top) + Block("/t/empty", 0) + Block("/t/empty/inner", 0) +
                            Block("/t/sub", 1, Line('f', kSeconds, 43, "/t/sub/forks")));
  EXPECT_EQ(totals.num[kEverythingCategory], 6);
  EXPECT_EQ(totals.totbytes[kEverythingCategory], 5 + 43 + 6 + 8);
  EXPECT_EQ(run.maxRecursDepthSeen, 3);
  EXPECT_EQ(run.dirCounter, 4);

  EXPECT_EQ(OneLevel("/t"), Block("/t", 5, top));
  EXPECT_EQ(run.dirCounter, 4) << "the run counts the directories of this form";
  fake.WriteFile("/at_root", "");
  EXPECT_NE(OneLevel("/").find("#\n# Dir: /\n# Files: 1\nf\t"), std::string::npos);
}

TEST_F(WalkerTest, HostileNamesNeverForgeALine) {
  for (const char* name : {"line\nf\t0", "re\rturn", "back\\slash", "\xFF\xFE", "tab\there", ".hidden", "..x"}) {
    fake.WriteFile(std::string("/h/") + name, "x");
  }
  fake.WriteFile("/h/b\\d/deep\\er/file", "x");
  fake.WriteFile("/h/ends\\/file", "x");
  fake.WriteFile("/h/new\nline/file", "x");
  fake.WriteFile("/h/lit_-backslash-_eral/file", "x");

  const auto x = [](const std::string& path) { return Line('f', kSeconds, 1, path); };
  EXPECT_EQ(
      Walk("/h"),
      Block("/h", 7,
            x("/h/back_-backslash-_slash") + x("/h/\xFF\xFE") + x("/h/tab\there") + x("/h/.hidden") + x("/h/..x")) +
          Block("/h/b_-backslash-_d", 0) +
          Block("/h/b_-backslash-_d/deep_-backslash-_er", 1, x("/h/b_-backslash-_d/deep_-backslash-_er/file")) +
          Block("/h/new___-backslash-_n__line", 1) +
          Block("/h/lit_-backslash-_eral", 1, x("/h/lit_-backslash-_eral/file")));
  EXPECT_TRUE(Logged("WARNING: skipping filename with embedded <CR> or <LF>: /h/line__\\n__f\t0"));
  EXPECT_TRUE(Logged("WARNING: skipping filename with embedded <CR> or <LF>: /h/re__\\r__turn"));
  EXPECT_TRUE(Logged("WARNING: skipping dirname with illegal trailing sep: /h/ends\\"));
  EXPECT_TRUE(Logged("ERROR: RecursivelyAddFilenamesToList processId=12345 - BB_GtLstOfFleIS suc f:/h/b\\d/deep\\er"));

  // A top directory may end in a backslash: it is not for the walk to skip.
  EXPECT_EQ(Walk("/h/ends_-backslash-_"), Block("/h/ends_-backslash-_", 1, x("/h/ends_-backslash-_/file")));
  EXPECT_EQ(OneLevel("/h/ends_-backslash-_"), Block("/h/ends_-backslash-_", 1, x("/h/ends_-backslash-_/file")));
}

TEST_F(WalkerTest, KeepsOutStrayFilesAndBackupFolders) {
  fake.WriteFile("/Users/Shared/.stray", "");
  fake.WriteFile("/Users/Shared/sub/.kept", "");
  for (const char* folder : {"Backups.backupdb", "backups.BACKUPDB", "WDSmartWare.swstor", "WDSmartWare.SWSTOR",
                             "x.MobileBackups", "other.swstor"}) {
    fake.MakeFolders(std::string("/Users/Shared/") + folder);
  }
  EXPECT_EQ(Walk("/Users/Shared"),
            Block("/Users/Shared", 1) +
                Block("/Users/Shared/sub", 1, Line('f', kSeconds, 0, "/Users/Shared/sub/.kept")) +
                Block("/Users/Shared/backups.BACKUPDB", 0) + Block("/Users/Shared/WDSmartWare.SWSTOR", 0) +
                Block("/Users/Shared/other.swstor", 0));
  EXPECT_TRUE(
      Logged("WARNING: skipping single or double-period Mac anomalie file: "
             "/Users/Shared/.stray|end_anomalie"));
  EXPECT_TRUE(Logged("WARNING: skipping dirname with TimeMachine in it: /Users/Shared/Backups.backupdb"));
  EXPECT_TRUE(Logged("WARNING: skipping dirname with WesternDigitalBackup in it: /Users/Shared/WDSmartWare.swstor"));
  EXPECT_TRUE(Logged("WARNING: skipping dirname with Mobile TimeMachine in it: /Users/Shared/x.MobileBackups"));
  EXPECT_EQ(OneLevel("/Users/Shared"), Block("/Users/Shared", 1, Line('f', kSeconds, 0, "/Users/Shared/.stray")));
}

TEST_F(WalkerTest, WalksAThousandLevelsAndNotOneMore) {
  std::string path = "/d";
  std::string expected;
  for (int depth = 1; depth <= 1000; ++depth) {
    expected += Block(path, 0);
    path += "/d";
  }
  fake.WriteFile(path + "/too_deep", "x");
  EXPECT_EQ(Walk("/d"), expected);
  EXPECT_EQ(run.maxRecursDepthSeen, 1000);
  EXPECT_EQ(CountLogged("ERROR: RecursivelyAddFilenamesToList recursion limit hit for: \n"), 1);
  EXPECT_EQ(CountLogged(" - " + path + "\n"), 1);
}

TEST_F(WalkerTest, PausesAfter101ListedDirectories) {
  MakeManyFolders(99);
  Walk("/many");
  EXPECT_EQ(run.dirCounter, 100);
  EXPECT_TRUE(fake.sleepsMicros.empty());

  run.dirCounter = 0;
  MakeManyFolders(100);
  run.lock = TqLock::GrabFileBasedLock(run.lockPath, 10'800, 3);
  run.lastLockRefreshMillis = fake.nowMillis - 400'000;
  Walk("/many");
  EXPECT_EQ(run.dirCounter, 0);
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>{3'000'000});
  EXPECT_EQ(run.lastLockRefreshMillis, fake.nowMillis);

  fake.onSleep = [&](std::int64_t) { fake.WriteFile(Text(run.stopFilePath), ""); };
  EXPECT_THROW(Walk("/many"), ExitCalled);
  EXPECT_FALSE(fake.Has(Text(run.stopFilePath)) || fake.Has(Text(run.lockPath)));
}

TEST_F(WalkerTest, UrgentWalksOnlyLookAfter501ListedDirectories) {
  run.fresh = true;
  fake.WriteFile(Text(run.stopFilePath), "");
  MakeManyFolders(499);
  EXPECT_NO_THROW(Walk("/many"));
  run.dirCounter = 0;
  MakeManyFolders(500);
  EXPECT_THROW(Walk("/many"), ExitCalled);
  EXPECT_TRUE(fake.sleepsMicros.empty());
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
  walk.rules = &rule;
  walk.ruleCount = 1;
  run.useBackupExcludes = true;
  Walk("/big");
  EXPECT_EQ(fake.ReadFile(Text(walk.largeFileListPath)),
            "f\t524288000\t/big/edge.mov\nt\t524288000\t/big/back_-backslash-_slash\nf\t600000001\t/big/unwanted\n");
  EXPECT_EQ(totals.num[kEverythingCategory], 2);
  EXPECT_EQ(rule.hitCount, 1);
}

TEST_F(WalkerTest, UnreadableDirectoriesGetNoBlock) {
  fake.WriteFile("/Volumes/Data/u/first", "");
  fake.MakeFolders("/Volumes/Data/u/closed").openErrno = EACCES;
  fake.MakeFolders("/Volumes/Data/u/b\\d").openErrno = EACCES;
  fake.WriteFile("/Volumes/Data/u/cut/one", "");
  fake.WriteFile("/Volumes/Data/u/cut/two", "");
  fake.Find("/Volumes/Data/u/cut")->readErrno = EIO;
  fake.Find("/Volumes/Data/u/cut")->readErrnoAfter = 1;
  EXPECT_EQ(Walk("/Volumes/Data/u"),
            Block("/Volumes/Data/u", 1, Line('f', kSeconds, 0, "/Volumes/Data/u/first")) +
                Block("/Volumes/Data/u/cut", 1, Line('f', kSeconds, 0, "/Volumes/Data/u/cut/one")));
  const std::string prefix = "RecursivelyAddFilenamesToList processId=12345";
  EXPECT_TRUE(Logged("ERROR: " + prefix +
                     ", GetListOfFileInfosInDir failed, so VerifyingMountPoints_A for dir: "
                     "/Volumes/Data/u/closed\n"));
  EXPECT_TRUE(Logged(prefix + ", VerifyMountPointsAndCorrectTopDirs no change. dir: /Volumes/Data/u/closed\n"));
  EXPECT_TRUE(Logged("ERROR: " + prefix + " - AA_GtLstOfFleIS fld f=/Volumes/Data/u/b\\d\n"));
  EXPECT_FALSE(output.IsInterrupted("/Volumes/Data/")) << "the volume is still the same";

  EXPECT_EQ(OneLevel("/Volumes/Data/u/b_-backslash-_d"), "");
  EXPECT_TRUE(Logged("ERROR: AddFilenamesFromThisDirToList -GtListOfFileIS fld f:\n"));
  EXPECT_EQ(CountLogged(" - /Volumes/Data/u/b\\d\n"), 1);
  EXPECT_TRUE(
      Logged("ERROR: AddFilenamesFromThisDirToList GetListOfFileI fld, processId=12345, so "
             "VerifyingMountPoints_B for dir: /Volumes/Data/u/b_-backslash-_d\n"));
  EXPECT_TRUE(Logged(" - VerifyMountPointsAndCorrectTopDirs no change\n"));
}

TEST_F(WalkerTest, AVolumeThatVanishesMidWalkIsMarked) {
  for (const char* name : {"a", "b", "c"}) fake.WriteFile(std::string("/Volumes/Data/v/") + name + "/file", "x");
  topDirs.dirs.Add("2/Volumes/Data/v/");
  topDirs.vguids.Add(kDataGuid);
  topDirs.count = 1;
  fake.WriteFile(Text(walk.listFilePath), "half");
  fake.fault = [&](std::string_view operation, std::string_view path) {
    if (operation == "list" && path == "/Volumes/Data/v/b") fake.Unmount("/Volumes/Data");
    return 0;
  };
  EXPECT_EQ(
      Walk("/Volumes/Data/v"),
      Block("/Volumes/Data/v", 0) + Block("/Volumes/Data/v/a", 1, Line('f', kSeconds, 1, "/Volumes/Data/v/a/file")));
  EXPECT_TRUE(output.IsInterrupted("/Volumes/Data/"));
  EXPECT_TRUE(topDirs.IsActive(0)) << "only a top directory that cannot be listed corrects the plan";

  EXPECT_EQ(Walk("/Volumes/Data/v"), "");
  EXPECT_TRUE(Logged("VerifyMountPointsAndCorrectTopDirs changed! dir: /Volumes/Data/v"));
  EXPECT_FALSE(topDirs.IsActive(0));
  EXPECT_FALSE(fake.Has(Text(walk.listFilePath)));
}

TEST_F(WalkerTest, WithoutBufferingEveryLineGoesToDiskAtOnce) {
  TqListOutput unbuffered(/*bufferingOff=*/true);
  TqWalk verbose{run, topDirs, unbuffered, tables, totals};
  verbose.listFilePath = walk.listFilePath;
  run.bufferingOff = true;
  fake.WriteFile("/u/one", "");
  fake.WriteFile("/u/two", "");
  std::vector<std::size_t> sizes;
  fake.fault = [&](std::string_view operation, std::string_view path) {
    if (operation == "write" && path == walk.listFilePath.View()) sizes.push_back(fake.ReadFile(path).size());
    return 0;
  };
  RecursivelyAddFilenamesToList(verbose, "/u", 1);
  const std::string header = Block("/u", 2);
  const std::string first = Line('f', kSeconds, 0, "/u/one");
  EXPECT_EQ(sizes, (std::vector<std::size_t>{0, header.size(), header.size() + first.size()}));
  EXPECT_EQ(fake.ReadFile(Text(walk.listFilePath)), header + first + Line('f', kSeconds, 0, "/u/two"));
  EXPECT_TRUE(
      Logged("Entering RecursivelyAddFilenamesToList processId=12345, maxRecursDepthSeen=1, curRecursDepth=1, "
             "startDir=/u, numMBytesCurrentVirtualMemSize=1000, numMBytesCurrentResidentMemSize=100, "
             "numMBytesCurrentHardwareRamMemSize=16384, numMBytesStackUsedUp=0"));
}

}  // namespace
