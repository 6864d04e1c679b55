#include "scan/list_output.h"

#include "tests/platform_fixture.h"

class ListOutputTest : public PlatformTest {
 protected:
  ListOutputTest() { fake.MakeFolders("/lists"); }
  TqListOutput output{/*bufferingOff=*/false};
};

TEST_F(ListOutputTest, FlushesOnlyAboveTheThresholdAndKeepsTheCapacity) {
  output.ReserveBuffer();
  const std::int32_t reserved = output.Buffer().Capacity();
  const std::string full(20'971'520, 'x');
  output.Buffer().Append(full);
  output.FlushIfLarge("/lists/a.future");
  EXPECT_FALSE(fake.Has("/lists/a.future"));
  output.Buffer().AppendChar('y');
  output.FlushIfLarge("/lists/a.future");
  EXPECT_EQ(fake.ReadFile("/lists/a.future"), full + "y");
  EXPECT_TRUE(output.Buffer().IsEmpty());
  EXPECT_EQ(output.Buffer().Capacity(), reserved);
}

TEST_F(ListOutputTest, AListWithALostLineIsBrokenForGood) {
  output.AppendDirectly("/lists/whole.future", "start\n");
  Fail("write", "/lists/full.future", ENOSPC);
  output.Buffer().Append("line\n");
  output.FlushListBuffer("/lists/full.future");
  EXPECT_TRUE(output.Buffer().IsEmpty());
  fake.fault = nullptr;
  output.AppendDirectly("/lists/full.future", "there is room again\n");
  EXPECT_FALSE(output.IsWhole("/lists/full.future"));
  EXPECT_TRUE(output.IsWhole("/lists/whole.future"));
}

TEST_F(ListOutputTest, AListThatAnotherRunTouchedIsBroken) {
  for (const char* list : {"/lists/gone.future", "/lists/longer.future", "/lists/late.future"}) {
    output.AppendDirectly(list, "start\n");
  }
  fake.Remove("/lists/gone.future");
  fake.Find("/lists/longer.future")->content += "another run's line\n";
  for (const char* list : {"/lists/gone.future", "/lists/longer.future"}) {
    output.AppendDirectly(list, "more\n");
    EXPECT_FALSE(output.IsWhole(list)) << list;
  }
  EXPECT_FALSE(fake.Has("/lists/gone.future")) << "the rest alone must never pass for the list";
  EXPECT_TRUE(output.IsWhole("/lists/late.future"));
  fake.Remove("/lists/late.future");
  EXPECT_FALSE(output.IsWhole("/lists/late.future"));
}

TEST_F(ListOutputTest, AVolumeThatIsNotTheSameIsInterruptedForGood) {
  const char* const paths[] = {"/Volumes/Stays/", "/Volumes/Swapped/", "/Volumes/Away/"};
  for (const char* path : paths) fake.AddVolume(path);
  for (const char* path : paths) output.NoteMount(path);
  const std::uint64_t awayId = fake.volumes.back().mountId;
  fake.Unmount("/Volumes/Away");
  fake.Unmount("/Volumes/Swapped");
  fake.AddVolume("/Volumes/Swapped");
  EXPECT_FALSE(output.IsInterrupted("/Volumes/Away/")) << "nobody looked yet";
  for (const char* path : paths) output.RecheckMount(path);
  fake.AddVolume("/Volumes/Away").mountId = awayId;
  output.NoteMount("/Volumes/Away/");
  output.RecheckMount("/Volumes/Away/");
  for (const char* path : paths) EXPECT_EQ(output.IsInterrupted(path), path != paths[0]) << path;
}
