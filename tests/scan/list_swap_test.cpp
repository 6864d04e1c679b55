#include "scan/list_swap.h"

#include <cerrno>
#include <functional>

#include "tests/scan/scan_fixture.h"

/// A plan of a data volume followed by the system volume, with a `.future` list for each.
class ListSwapTest : public ScanTest {
 protected:
  const std::string kDataList = Data("tqfilelists/") + kDataGuid + "_driv_filelist.dat";
  const std::string kRootList = Data("tqfilelists/") + kSystemGuid + "_root_filelist.dat";

  ListSwapTest() {
    AttachSystemVolume();
    Attach("/Volumes/Drive", kDataGuid);
    for (const char* dir : {"0/Volumes/Drive/", "2/Volumes/Drive/a/b/"}) AddEntry(dir, kDataGuid);
    for (const char* dir : {"0/", "2/Users/bob/"}) AddEntry(dir, kSystemGuid);
    fake.WriteFile(kDataList, "old");
    fake.WriteFile(kDataList + ".future", "new");
    fake.WriteFile(kRootList + ".future", "root");
    defconVolume.mountPointPath = "/Volumes/Drive/";
    defconVolume.SetVguid(kDataGuid);
    defconVolume.lastFileListedInDays = 7;
    run.lockPath = Data("tqfilelists/lock").c_str();
    run.lock = TqLock::GrabFileBasedLock(run.lockPath, 10'800, 0);
    run.bufferingOff = true;
  }
  void AddEntry(const char* dir, const char* vguid) {
    plan.dirs.Add(dir);
    plan.vguids.Add(vguid);
    ++plan.count;
  }
  void Replace(TqStringVector& texts, std::int32_t index, const char* text) { *texts.Get(index) = text; }

  TqTopDirsList plan;
  TqListOutput output{false};
  TqListSwapper swapper{plan, output};
  TqVolumeInfo defconVolume;
  TqRunState run;
};

TEST_F(ListSwapTest, SwapsEachVolumeOnce) {
  AddEntry("0/Volumes/Copy/", "V001BBBBBBBBBBBBBBBBBBBBBBBB");  // a copied drive
  const std::string copyList = Data("tqfilelists/") + "V001BBBBBBBBBBBBBBBBBBBBBBBB_copy_filelist.dat";
  fake.WriteFile(copyList + ".future", "copy");
  swapper.SwapInAllLists();
  EXPECT_EQ(fake.ReadFile(kDataList), "new");
  EXPECT_EQ(fake.ReadFile(kRootList), "root");
  EXPECT_FALSE(fake.Has(kDataList + ".future"));
  EXPECT_TRUE(fake.Has(copyList + ".future"));
  EXPECT_TRUE(swapper.WasSwappedIn("V001BBBBBBBBBBBBBBBBBBBBBBBB"));
  EXPECT_TRUE(Logged("Swapped in AtomicMove per-Vol filelist: " + kDataList + ", numBytes=3 (0 MB)"));
  EXPECT_EQ(plan.vguids.At(0), kDataGuid) << "the plan keeps its entries";
}

TEST_F(ListSwapTest, RefusesListsThatAreNotTheVolumesOwn) {
  const std::string gone = "NOT SWAPPING IN in AtomicMove per-Vol filelist: " + kDataList +
                           ", numBytes=3 (0 MB) because it is no longer mounted!";
  struct Case {
    const char* name;
    std::function<void()> spoil;
    std::string message;
  };
  const Case cases[] = {
      {"volume does not answer", [&] { fake.volumes.back().queryErrno = EIO; }, gone},
      {"unplugged, folder left behind", [&] { fake.Unmount("/Volumes/Drive"); }, gone},
      {"another volume in its place", [&] { Attach("/Volumes/Drive", kOtherGuid); }, gone},
      {"it was another one meanwhile",
       [&] {
         fake.Unmount("/Volumes/Drive");
         output.RecheckMount("/Volumes/Drive/");
         Attach("/Volumes/Drive", kDataGuid);
       },
       gone},
      {"an append failed", [&] { output.NoteBroken(kDataList + ".future"); },
       "NOT SWAPPING IN in AtomicMove per-Vol filelist: " + kDataList +
           ", because it could not be written completely!"},
  };
  for (const Case& oneCase : cases) {
    fake.Unmount("/Volumes/Drive");
    Attach("/Volumes/Drive", kDataGuid);
    fake.WriteFile(kDataList + ".future", "new");
    output = TqListOutput(false);
    output.NoteMount("/Volumes/Drive/");
    oneCase.spoil();
    const int before = CountLogged(oneCase.message);
    TqListSwapper fresh(plan, output);
    fresh.SwapInAllLists();
    EXPECT_EQ(fake.ReadFile(kDataList), "old") << oneCase.name;
    EXPECT_FALSE(fake.Has(kDataList + ".future")) << oneCase.name;
    EXPECT_FALSE(fresh.WasSwappedIn(kDataGuid)) << oneCase.name;
    EXPECT_EQ(CountLogged(oneCase.message), before + 1) << oneCase.name;
  }
}

TEST_F(ListSwapTest, VolumeIdentityIgnoresLetterCase) {
  Attach("/Volumes/Drive", "V001BBBBBBBBBBBBBBBBBBBBBBBB");
  swapper.SwapInAllLists();
  EXPECT_EQ(fake.ReadFile(kDataList), "new");
}

TEST_F(ListSwapTest, RenamesAreTriedTwelveTimes) {
  int failures = 11;
  fake.fault = [&](std::string_view operation, std::string_view path) {
    return operation == "rename" && path.starts_with(kDataList + ".future\n") && failures-- > 0 ? EBUSY : 0;
  };
  swapper.SwapInAllLists();
  EXPECT_EQ(fake.ReadFile(kDataList), "new");
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(11, 500'000));
  EXPECT_EQ(CountLogged(" - ERROR: failures AtomicMove per-Vol filelist: " + kDataList), 1);

  fake.WriteFile(kDataList + ".future", "newer");
  failures = 12;
  TqListSwapper(plan, output).SwapInAllLists();
  EXPECT_EQ(fake.ReadFile(kDataList), "new");
  EXPECT_EQ(CountLogged("ERROR: failures AtomicMove per-Vol filelist: "), 3);
  EXPECT_EQ(fake.sleepsMicros.size(), 22U) << "no pause behind the last attempt";
}

TEST_F(ListSwapTest, EarlySwapNeedsTheWholeWalkOfTheDefconVolume) {
  struct Case {
    const char* name;
    std::function<void()> spoil;
    std::int32_t index;
    const char* message;
  };
  const std::string detail = "tqfilelist processId=12345, skippingOptimization because ";
  const Case cases[] = {
      {"last entry", [] {}, 3, "we are so close to end anyway"},
      {"more of the volume follows", [] {}, 0, ""},
      {"list is young", [&] { defconVolume.lastFileListedInDays = 6; }, 1, ""},
      {"entry was cleared", [&] { Replace(plan.vguids, 1, ""); }, 1, "cur_dirToIndexStr->Length() is zero"},
      {"next entry was cleared", [&] { Replace(plan.vguids, 2, ""); }, 1, "next_dirToIndexStr->Length() is zero"},
      {"another drive", [&] { defconVolume.mountPointPath = "/Volumes/Else/"; }, 1,
       "this is NOT the most interesting DEFCON mounted drive, mostInteresting=/Volumes/Else/, "
       "cur_TopLevelMountPoint=/Volumes/Drive/"},
      {"another GUID", [&] { defconVolume.SetVguid(kOtherGuid); }, 1,
       "while a close_call, the vguids did not match, mostInterestingVguid=v002cccccccccccccccccccccccc, "
       "cur_vGuidToIndexStr=v001bbbbbbbbbbbbbbbbbbbbbbbb"},
      {"the GUID comes again later", [&] { Replace(plan.vguids, 3, "V001BBBBBBBBBBBBBBBBBBBBBBBB"); }, 1, ""},
  };
  for (const Case& oneCase : cases) {
    const TqStringVector vguids = plan.vguids;
    defconVolume.mountPointPath = "/Volumes/Drive/";
    defconVolume.SetVguid(kDataGuid);
    defconVolume.lastFileListedInDays = 7;
    oneCase.spoil();
    swapper.SwapInDefconListEarly(run, oneCase.index, &defconVolume);
    plan.vguids = vguids;
    EXPECT_EQ(fake.ReadFile(kDataList), "old") << oneCase.name;
    if (*oneCase.message == '\0') continue;
    EXPECT_TRUE(Logged(detail + oneCase.message + "\n")) << oneCase.name;
  }
  swapper.SwapInDefconListEarly(run, 1, nullptr);
  EXPECT_EQ(fake.ReadFile(kDataList), "old");
}

TEST_F(ListSwapTest, EarlySwapIsFinal) {
  swapper.SwapInDefconListEarly(run, 1, &defconVolume);
  EXPECT_EQ(fake.ReadFile(kDataList), "new");
  EXPECT_FALSE(fake.Has(kRootList));
  EXPECT_TRUE(Logged("DEFCON_Swapped in AtomicMove per-Vol filelist: " + kDataList));
  fake.WriteFile(kDataList + ".future", "rest");
  swapper.SwapInAllLists();
  EXPECT_EQ(fake.ReadFile(kDataList), "new");
  EXPECT_EQ(fake.ReadFile(kRootList), "root");
}

TEST_F(ListSwapTest, EarlySwapRefreshesTheLockFirst) {
  fake.nowMillis += 20'000;
  fake.WriteFile(run.lockPath, "another run's");
  EXPECT_THROW(swapper.SwapInDefconListEarly(run, 1, &defconVolume), ExitCalled);
  EXPECT_EQ(fake.ReadFile(kDataList), "old");
}

TEST_F(ListSwapTest, EarlySwapWithoutAListIsLogged) {
  fake.Remove(kDataList + ".future");
  swapper.SwapInDefconListEarly(run, 1, &defconVolume);
  EXPECT_TRUE(Logged("ERROR: OPTIMIZATION_for_DEFCON future file did not exist, fileName=" + kDataList));
  EXPECT_EQ(fake.ReadFile(kDataList), "old");
}
