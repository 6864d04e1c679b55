#include "scan/list_swap.h"

#include <cerrno>
#include <functional>

#include "tests/scan/scan_fixture.h"

/// A plan of a data volume followed by the system volume, with a `.future` list for each.
class ListSwapTest : public ScanTest {
 protected:
  static constexpr const char* kDataGuidInCapitals = "V001BBBBBBBBBBBBBBBBBBBBBBBB";
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
    SetDefcon("/Volumes/Drive/", kDataGuid, 7);
    run.lockPath = Data("tqfilelists/lock").c_str();
    run.lock = TqLock::GrabFileBasedLock(run.lockPath, 10'800, 0);
    run.bufferingOff = true;
  }
  void AddEntry(const char* dir, const char* vguid) {
    plan.dirs.Add(dir);
    plan.vguids.Add(vguid);
    ++plan.count;
  }
  void SetDefcon(const char* mountPoint, const char* vguid, std::int32_t days) {
    defconVolume.mountPointPath = mountPoint;
    defconVolume.SetVguid(vguid);
    defconVolume.lastFileListedInDays = days;
  }

  TqTopDirsList plan;
  TqListOutput output{false};
  TqListSwapper swapper{plan, output};
  TqVolumeInfo defconVolume;
  TqRunState run;
};

TEST_F(ListSwapTest, SwapsEachVolumeOnce) {
  AddEntry("0/Volumes/Copy/", kDataGuidInCapitals);
  const std::string copy = Data("tqfilelists/") + kDataGuidInCapitals + "_copy_filelist.dat.future";
  fake.WriteFile(copy, "copy");
  swapper.SwapInAllLists();
  EXPECT_EQ(fake.ReadFile(kDataList), "new");
  EXPECT_EQ(fake.ReadFile(kRootList), "root");
  EXPECT_TRUE(fake.Has(copy));
  EXPECT_TRUE(swapper.WasSwappedIn(kDataGuidInCapitals));
  EXPECT_TRUE(Logged(" - Swapped in AtomicMove per-Vol filelist: " + kDataList + ", numBytes=3 (0 MB)"));
  EXPECT_EQ(plan.vguids.At(0), kDataGuid) << "the plan keeps its entries";
}

TEST_F(ListSwapTest, RefusesListsThatAreNotTheVolumesOwn) {
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"volume does not answer", [&] { fake.volumes.back().queryErrno = EIO; }},
      {"unplugged, folder left behind", [&] { fake.Unmount("/Volumes/Drive"); }},
      {"another volume in its place", [&] { Attach("/Volumes/Drive", kOtherGuid); }},
      {"was another one when looked at", [&] { output.RecheckMount("/Volumes/Drive/"); }},
      {"an append failed", [&] { output.NoteBroken(kDataList + ".future"); }},
  };
  for (const auto& [name, spoil] : cases) {
    output = TqListOutput(false);
    output.NoteMount("/Volumes/Drive/");
    fake.Unmount("/Volumes/Drive");
    Attach("/Volumes/Drive", kDataGuid);
    fake.WriteFile(kDataList + ".future", "new");
    spoil();
    TqListSwapper fresh(plan, output);
    fresh.SwapInAllLists();
    EXPECT_EQ(fake.ReadFile(kDataList), "old") << name;
    EXPECT_FALSE(fake.Has(kDataList + ".future") || fresh.WasSwappedIn(kDataGuid)) << name;
  }
  const std::string refusal = " - NOT SWAPPING IN in AtomicMove per-Vol filelist: " + kDataList;
  EXPECT_EQ(CountLogged(refusal + ", numBytes=3 (0 MB) because it is no longer mounted!\n"), 4);
  EXPECT_EQ(CountLogged(refusal + ", because it could not be written completely!\n"), 1);
  Attach("/Volumes/Drive", kDataGuidInCapitals);
  fake.WriteFile(kDataList + ".future", "new");
  const TqListOutput unspoilt(false);
  TqListSwapper(plan, unspoilt).SwapInAllLists();
  EXPECT_EQ(fake.ReadFile(kDataList), "new") << "letter case does not count";
}

TEST_F(ListSwapTest, RenamesAreTriedTwelveTimes) {
  for (const int failing : {11, 12}) {
    fake.WriteFile(kDataList, "old");
    fake.WriteFile(kDataList + ".future", "new");
    fake.fault = [&, left = failing](std::string_view operation, std::string_view path) mutable {
      return operation == "rename" && path.starts_with(kDataList + ".future\n") && left-- > 0 ? EBUSY : 0;
    };
    TqListSwapper(plan, output).SwapInAllLists();
    EXPECT_EQ(fake.ReadFile(kDataList), failing == 11 ? "new" : "old");
  }
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(22, 500'000));
  EXPECT_EQ(CountLogged(" - ERROR: failures AtomicMove per-Vol filelist: " + kDataList), 1 + 2);
}

TEST_F(ListSwapTest, EarlySwapNeedsTheWholeWalkOfTheDefconVolume) {
  const auto refuses = [&, vguids = plan.vguids](std::int32_t index, const char* why) {
    swapper.SwapInDefconListEarly(run, index, &defconVolume);
    EXPECT_EQ(fake.ReadFile(kDataList), "old") << why;
    EXPECT_TRUE(Logged(why)) << why;
    plan.vguids = vguids;
    SetDefcon("/Volumes/Drive/", kDataGuid, 7);
  };
  refuses(3, ", skippingOptimization because we are so close to end anyway");
  refuses(0, "");  // more of the volume follows
  *plan.vguids.Get(3) = kDataGuidInCapitals;
  refuses(1, "");
  SetDefcon("/Volumes/Drive/", kDataGuid, 6);
  refuses(1, "");
  plan.vguids.Get(1)->Clear();
  refuses(1, "skippingOptimization because cur_dirToIndexStr->Length() is zero");
  plan.vguids.Get(2)->Clear();
  refuses(1, "skippingOptimization because next_dirToIndexStr->Length() is zero");
  SetDefcon("/Volumes/Else/", kDataGuid, 7);
  refuses(1, "this is NOT the most interesting DEFCON mounted drive, mostInteresting=/Volumes/Else/, cur_TopLevel");
  SetDefcon("/Volumes/Drive/", kOtherGuid, 7);
  refuses(1, "the vguids did not match, mostInterestingVguid=v002cccccccccccccccccccccccc, cur_vGuidToIndexStr=v001");
}

TEST_F(ListSwapTest, EarlySwapIsFinal) {
  swapper.SwapInDefconListEarly(run, 1, nullptr);
  EXPECT_EQ(fake.ReadFile(kDataList), "old");
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
