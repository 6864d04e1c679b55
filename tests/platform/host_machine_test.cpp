// The host's own clock, children, accounts and volumes.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <set>
#include <tuple>

#include "platform/platform.h"

using namespace platform;

class HostMachineTest : public ::testing::Test {
 protected:
  ChildStatus WaitFor(int pid) {
    ChildStatus child = machine.PollChild(pid);
    for (int i = 0; i < 10'000 && !child.ended; ++i) {
      machine.SleepMicros(500);
      child = machine.PollChild(pid);
    }
    return child;
  }
  Machine& machine = *HostPlatform().machine;
  Volumes& volumes = *HostPlatform().volumes;
};

TEST_F(HostMachineTest, ClockAndZoneAgreeWithTheSystem) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const std::int64_t millis = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  EXPECT_NEAR(static_cast<double>(machine.NowMillis()), static_cast<double>(millis), 5000);
  const std::tuple<const char*, std::int64_t, int> offsets[] = {{"XST-5:30", 1'700'000'000, 19'800},
                                                                {"EST5EDT,M3.2.0,M11.1.0", 1'700'000'000, -18'000},
                                                                {"EST5EDT,M3.2.0,M11.1.0", 1'690'000'000, -14'400}};
  for (const auto& [zone, seconds, offset] : offsets) {
    setenv("TZ", zone, 1);
    tzset();
    EXPECT_EQ(machine.LocalOffsetSeconds(seconds), offset) << zone;
  }
  unsetenv("TZ");
  tzset();
}

TEST_F(HostMachineTest, TellsWhatTheProcessIs) {
  EXPECT_EQ(machine.ProcessId(), getpid());
  const MemoryFigures memory = machine.ProcessMemory();
  EXPECT_TRUE(memory.residentBytes > 100'000 && memory.virtualBytes >= memory.residentBytes);
  EXPECT_TRUE(machine.HardwareMemoryBytes() > memory.residentBytes && !machine.MachineName().empty());
  char name[300] = "";
  gethostname(name, sizeof name - 1);
  std::string told;
  EXPECT_TRUE(machine.HostName(told));
  EXPECT_EQ(told, name);
  LoginFacts login;
  EXPECT_FALSE(machine.FindLogin("no such login", login));
  ASSERT_TRUE(machine.FindLogin("root", login));
  EXPECT_EQ(login.userId, 0U);
  EXPECT_EQ(login.groupIds.size(), login.groupNames.size());
  EXPECT_EQ(std::ranges::count(login.groupNames, "root"), 1);
  std::set<std::uint32_t> randoms;
  for (int i = 0; i < 1000; ++i) randoms.insert(machine.RandomBelow(9));
  EXPECT_EQ(randoms, (std::set<std::uint32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(machine.RandomBelow(1), 0U);
}

TEST_F(HostMachineTest, RunsAndKillsShellsWithAllTheirChildren) {
  int error = -1;
  EXPECT_EQ(WEXITSTATUS(machine.RunShellAndWait("exit 3", error)), 3);
  EXPECT_EQ(error, 0);
  const int quick = machine.StartShell("exit 5", error);
  ASSERT_GT(quick, 0);
  const ChildStatus ended = WaitFor(quick);
  EXPECT_EQ(std::tuple(ended.pid, WEXITSTATUS(ended.status), machine.PollChild(quick).pid), std::tuple(quick, 5, -1));

  int ends[2];  // the shell and its children hold the writing end: it stays open until the last of them is gone
  ASSERT_EQ(pipe(ends), 0);
  const int slow = machine.StartShell("trap '' TERM; sleep 1000 & sleep 1000; true", error);
  close(ends[1]);
  ASSERT_GT(slow, 0);
  EXPECT_EQ(getpgid(slow), slow);
  const ChildStatus running = machine.PollChild(slow);
  EXPECT_EQ(std::tuple(running.ended, running.pid, machine.KillChildGroup(slow)), std::tuple(false, 0, 0));
  EXPECT_EQ(WTERMSIG(WaitFor(slow).status), SIGKILL);
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), 0);
  close(ends[0]);
}

TEST_F(HostMachineTest, ExitKeepsWhatWasPrinted) {
  const auto print = [&] {
    dup2(2, 1);
    std::printf("held back");
    machine.Exit(7);
  };
  EXPECT_EXIT(print(), ::testing::ExitedWithCode(7), "held back");
}

TEST_F(HostMachineTest, TheRootIsAVolumeAndAPlainFolderIsNone) {
  std::vector<MountedVolume> mounted;
  ASSERT_TRUE(volumes.ListMountedVolumes(mounted) == 0 && !mounted.empty());
  EXPECT_EQ(mounted[0].path, "/");
  EXPECT_TRUE(mounted[0].isLocal && mounted[0].isBrowsable && !mounted[0].error);
  VolumeAttributes attributes;
  ASSERT_EQ(volumes.QueryVolume("/", attributes), 0);
  struct statvfs figures {};
  ASSERT_EQ(statvfs("/", &figures), 0);
  EXPECT_EQ(attributes.totalBytes, figures.f_blocks * figures.f_frsize);
  EXPECT_GE(attributes.freeBytes, attributes.availableBytes);
  const MediaWalk walk = volumes.WalkMedia("/", attributes.deviceName);
  ASSERT_EQ(walk.objects.size(), 1U);
  EXPECT_TRUE(walk.objects[0].isMedia && walk.objects[0].isWhole && !walk.objects[0].isOptical);
  EXPECT_EQ(volumes.QueryVolume("/usr/bin/", attributes), EINVAL);
  EXPECT_EQ(volumes.QueryVolume("/no/such/folder", attributes), ENOENT);
  EXPECT_TRUE(volumes.WalkMedia("/usr/bin", "").objects.empty());

  std::vector<MountTableRow> skipped;
  ASSERT_EQ(volumes.ReadSkippedMounts(skipped), 0);
  EXPECT_TRUE(std::ranges::any_of(skipped, [](auto& row) { return row.mountPoint == "/proc" && row.type == "proc"; }));
}

TEST_F(HostMachineTest, SortsPropertyListsByWhatIsWrong) {
  const std::string path = "/tmp/tqplatform" + std::to_string(getpid()) + ".plist";
  std::string version;
  const auto statusOf = [&](const std::string& text) {
    std::ofstream(path, std::ios::trunc) << text;
    return machine.ReadProductVersion(path.c_str(), version);
  };
  EXPECT_EQ(machine.ReadProductVersion(path.c_str(), version), PropertyListStatus::kMissing);
  EXPECT_EQ(statusOf(""), PropertyListStatus::kUnsuitable);
  EXPECT_EQ(statusOf("bplist00"), PropertyListStatus::kInvalid);
  EXPECT_EQ(statusOf("<plist><array/></plist>"), PropertyListStatus::kWrongType);
  const char* good = "<plist><dict><key>ProductVersion</key><string>14.2</string></dict></plist>";
  EXPECT_EQ(statusOf(good), PropertyListStatus::kOk);
  EXPECT_EQ(version, "14.2");
  std::vector<DestinationValue> values;
  EXPECT_TRUE(volumes.ReadBackupDestinations(path.c_str(), values) == PropertyListStatus::kOk && values.empty());
  ASSERT_EQ(truncate(path.c_str(), 104'857'601), 0);
  EXPECT_EQ(volumes.ReadBackupDestinations(path.c_str(), values), PropertyListStatus::kUnsuitable);
  EXPECT_EQ(volumes.ReadBackupDestinations("/tmp", values), PropertyListStatus::kUnsuitable);
  unlink(path.c_str());
}
