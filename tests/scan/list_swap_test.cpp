#include "scan/list_swap.h"

#include "tests/scan/scan_fixture.h"

/// A plan of a data volume followed by the system volume, with a `.future` list for each.
class ListSwapTest : public ScanRunTest {
 protected:
  static constexpr const char* kIdentityFile = "/Volumes/Drive/.tqvol/tqvol_id.xml";
  static constexpr const char* kDiskGuidInCapitals = "V001AAAAAAAAAAAAAAAAAAAAAAAA";

  ListSwapTest() {
    for (const char* dir : {"0/Volumes/Drive/", "2/Volumes/Drive/a/b/"}) AddEntry(dir, kDiskGuid);
    for (const char* dir : {"0/", "2/Users/bob/"}) AddEntry(dir, kRootGuid);
    PutLists();
    PutList(kRootList + ".future", "root");
    SetDefcon("/Volumes/Drive/", kDiskGuid, 7);
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
  void PutLists() {
    PutList(kDriveList, "old");
    PutList(kDriveList + ".future", "new");
  }

  TqTopDirsList plan;
  TqListOutput output{false};
  TqListSwapper swapper{plan, output};
  TqVolumeInfo defconVolume;
  TqRunState run;
};

TEST_F(ListSwapTest, SwapsEachVolumeOnce) {
  AddEntry("0/Volumes/Copy/", kDiskGuidInCapitals);
  const std::string copy = std::string(kDiskGuidInCapitals) + "_copy_filelist.dat.future";
  PutList(copy, "copy");
  swapper.SwapInAllLists();
  EXPECT_EQ(List(kDriveList) + List(kRootList) + List(copy), "newrootcopy");
  EXPECT_TRUE(swapper.WasSwappedIn(kDiskGuidInCapitals));
  EXPECT_EQ(plan.vguids.At(0), kDiskGuid) << "the plan keeps its entries";
}

TEST_F(ListSwapTest, RefusesListsThatAreNotTheVolumesOwn) {
  const std::tuple<const char*, bool, std::function<void()>> cases[] = {
      {"volume does not answer", false, [&] { fake.volumes.back().queryErrno = EIO; }},
      {"unplugged, folder left behind", false, [&] { fake.Unmount("/Volumes/Drive"); }},
      {"another volume in its place", false, [&] { AddIdentified("/Volumes/Drive", kOtherGuid); }},
      {"pulled and plugged in again", false,
       [&] {
         fake.Unmount("/Volumes/Drive");
         AddIdentified("/Volumes/Drive", kDiskGuid);
       }},
      {"an append failed", false, [&] { output.NoteBroken(Data("tqfilelists/" + kDriveList + ".future")); }},
      {"another identity", false, [&] { fake.WriteFile(kIdentityFile, IdentityText(kOtherGuid)); }},
      {"letter case does not count", true, [&] { fake.WriteFile(kIdentityFile, IdentityText(kDiskGuidInCapitals)); }},
  };
  for (const auto& [name, isSwapped, spoil] : cases) {
    output = TqListOutput(false);
    fake.Unmount("/Volumes/Drive");
    AddIdentified("/Volumes/Drive", kDiskGuid);
    output.NoteMount("/Volumes/Drive/");
    PutList(kDriveList + ".future", "new");
    spoil();
    TqListSwapper fresh(plan, output);
    fresh.SwapInAllLists();
    EXPECT_EQ(List(kDriveList), isSwapped ? "new" : "old") << name;
    EXPECT_TRUE(!HasList(kDriveList + ".future") && fresh.WasSwappedIn(kDiskGuid) == isSwapped) << name;
  }
}

TEST_F(ListSwapTest, AVolumeWhoseListingsFailedGetsTimeToGoAway) {
  fake.onSleep = [&](std::int64_t micros) {
    if (micros == 5'000'000) fake.Unmount("/Volumes/Drive");
  };
  for (const auto& [error, expected] : {std::pair{EACCES, "new"}, {EIO, "old"}}) {
    PutLists();
    output.NoteMount("/Volumes/Drive/");
    output.NoteFailedListing("/Volumes/Drive/", error);
    TqListSwapper(plan, output).SwapInAllLists();
    EXPECT_EQ(List(kDriveList), expected);
  }
}

TEST_F(ListSwapTest, AnEarlyWaitSparesNoLaterVolumeItsOwn) {
  const std::string lateList = std::string(kOtherGuid) + "_late_filelist.dat";
  AddIdentified("/Volumes/Late", kOtherGuid);
  AddEntry("0/Volumes/Late/", kOtherGuid);
  PutList(lateList, "old");
  PutList(lateList + ".future", "half");
  for (const char* volume : {"/Volumes/Drive/", "/Volumes/Late/"}) output.NoteMount(volume);
  output.NoteFailedListing("/Volumes/Drive/", EIO);
  swapper.SwapInDefconListEarly(run, 1, &defconVolume);
  EXPECT_EQ(List(kDriveList), "new") << "a bad spot, but the volume stayed";
  output.NoteFailedListing("/Volumes/Late/", EIO);
  fake.onSleep = [&](std::int64_t) { fake.Unmount("/Volumes/Late"); };
  swapper.SwapInAllLists();
  EXPECT_EQ(List(lateList), "old");
}

TEST_F(ListSwapTest, RenamesAreTriedTwelveTimes) {
  for (const int failing : {11, 12}) {
    PutLists();
    Fail("rename", kDriveList + ".future\n", EBUSY, failing);
    TqListSwapper(plan, output).SwapInAllLists();
    EXPECT_EQ(List(kDriveList), failing == 11 ? "new" : "old");
  }
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(22, 500'000));
}

TEST_F(ListSwapTest, EarlySwapNeedsTheWholeWalkOfTheDefconVolume) {
  const std::tuple<std::int32_t, const char*, std::function<void()>> cases[] = {
      {3, ", skippingOptimization because we are so close to end anyway", [] {}},
      {0, "", [] {}},                                                // more of the volume follows
      {1, "", [&] { *plan.vguids.Get(3) = kDiskGuidInCapitals; }},   // the same
      {1, "", [&] { SetDefcon("/Volumes/Drive/", kDiskGuid, 6); }},  // listed lately
      {1, "cur_dirToIndexStr->Length() is zero", [&] { plan.vguids.Get(1)->Clear(); }},
      {1, "next_dirToIndexStr->Length() is zero", [&] { plan.vguids.Get(2)->Clear(); }},
      {1, "this is NOT the most interesting DEFCON", [&] { SetDefcon("/Volumes/Else/", kDiskGuid, 7); }},
      {1, "the vguids did not match", [&] { SetDefcon("/Volumes/Drive/", kOtherGuid, 7); }},
  };
  for (const auto& [index, why, change] : cases) {
    const auto vguids = plan.vguids;
    change();
    swapper.SwapInDefconListEarly(run, index, &defconVolume);
    EXPECT_EQ(List(kDriveList), "old") << why;
    EXPECT_TRUE(Logged(why)) << why;
    plan.vguids = vguids;
    SetDefcon("/Volumes/Drive/", kDiskGuid, 7);
  }
  swapper.SwapInDefconListEarly(run, 1, nullptr);
  EXPECT_EQ(List(kDriveList), "old");
  swapper.SwapInDefconListEarly(run, 1, &defconVolume);
  EXPECT_EQ(List(kDriveList) + List(kRootList), std::string("new") + kOldList);
  PutList(kDriveList + ".future", "rest");
  swapper.SwapInAllLists();
  EXPECT_EQ(List(kDriveList) + List(kRootList), "newroot") << "an early swap is final";
}

TEST_F(ListSwapTest, EarlySwapRefreshesTheLockFirst) {
  fake.nowMillis += 20'000;
  fake.WriteFile(run.lockPath, "another run's");
  EXPECT_THROW(swapper.SwapInDefconListEarly(run, 1, &defconVolume), ExitCalled);
  EXPECT_EQ(List(kDriveList), "old");
}
