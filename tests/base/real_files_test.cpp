// The host's own platform in a temporary folder: what only a real kernel can show.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "base/file_info.h"
#include "base/file_io.h"
#include "base/file_lock.h"
#include "base/run_command.h"
#include "base/system_info.h"
#include "platform/platform.h"

namespace {

namespace fs = std::filesystem;

class RealFilesTest : public ::testing::Test {
 protected:
  RealFilesTest() : former_(platform::SetPlatform(platform::HostPlatform())) {
    TqSystem::ForgetOsDetailText();
    TqSystem::ForgetTestRoot();
    char folder[] = "/tmp/tq_real_XXXXXX";
    root = mkdtemp(folder);
  }
  ~RealFilesTest() override {
    fs::remove_all(root);
    platform::SetPlatform(former_);
  }
  std::string Path(const std::string& name) const { return root + "/" + name; }
  void Write(const std::string& name, const std::string& content) { std::ofstream(Path(name)) << content; }
  std::size_t FilesLeft() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(root), fs::directory_iterator()));
  }

  std::string root;

 private:
  platform::Platform former_;
};

TEST_F(RealFilesTest, HostileNamesAndEveryKindComeBackAsTheyAre) {
  const std::vector<std::string> names = {" blank ", "new\nline",           "back\\slash", "\xff\xfe", "-rf",
                                          "<&>'\"",  std::string(255, 'n'), "..hidden",    "e\xCC\x81"};
  for (const std::string& name : names) Write(name, name);
  Write("sparse", "");
  fs::resize_file(Path("sparse"), 5'000'000'000);
  fs::create_directory(Path("folder.app"));
  fs::create_directory_symlink(Path("folder.app"), Path("link"));
  fs::create_symlink("nowhere", Path("dangling"));
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
  TqFileInfoList list;
  const TqString dir(std::string_view(root + "/"));
  ASSERT_TRUE(TqFile::GetListOfFileInfosInDir(&dir, &list));
  std::map<std::string, const TqFileInfo*> entries;
  for (std::int32_t i = 0; i < list.Count(); ++i) entries[std::string(list.Get(i)->path.View())] = list.Get(i);
  ASSERT_EQ(entries.size(), names.size() + 5);
  for (const std::string& name : names) {
    ASSERT_TRUE(entries.contains(Path(name))) << name;
    EXPECT_EQ(entries[Path(name)]->dataSize, static_cast<std::int64_t>(name.size())) << name;
  }
  EXPECT_EQ(entries[Path("sparse")]->dataSize, 5'000'000'000);
  EXPECT_TRUE(entries[Path("folder.app")]->isDir && entries[Path("folder.app")]->isPackage);
  for (const char* name : {"link", "dangling", "fifo"}) {
    EXPECT_TRUE(entries[Path(name)]->isSpecial && !entries[Path(name)]->isDir) << name;
  }
  TqString text;
  EXPECT_FALSE(TqFile::ReadFileIntoString(Path("fifo"), text));  // and does not hang
}

TEST_F(RealFilesTest, FolderWithoutPermissionCannotBeListed) {
  fs::permissions(root, fs::perms::all);
  fs::create_directory(Path("closed"));
  fs::permissions(Path("closed"), fs::perms::none);
  const uid_t former = geteuid();
  if (former == 0 && seteuid(65'534) != 0) GTEST_SKIP() << "root reads every folder and cannot step down here";
  TqFileInfoList list;
  TqFileInfo info;
  const TqString closed(std::string_view(Path("closed")));
  EXPECT_FALSE(TqFile::GetListOfFileInfosInDir(&closed, &list));
  EXPECT_TRUE(TqFile::GetInfoAboutFileOrDir(closed, info));
  ASSERT_EQ(seteuid(former), 0);
}

TEST_F(RealFilesTest, WritesReplaceFilesButNeverGoThroughLinks) {
  const mode_t former = umask(077);
  EXPECT_TRUE(TqFile::WriteFileAndSwapIn(Path("state"), "one"));
  EXPECT_TRUE(TqFile::WriteFileAndSwapIn(Path("state"), "two"));
  umask(former);
  EXPECT_EQ(fs::status(Path("state")).permissions(), static_cast<fs::perms>(0666));
  EXPECT_EQ(FilesLeft(), 1U);
  EXPECT_TRUE(TqFile::AppendStringToFile(Path("state"), "\nthree"));
  fs::create_hard_link(Path("state"), Path("twin"));
  EXPECT_FALSE(TqFile::WriteWholeFile(Path("state"), "x"));
  fs::remove(Path("twin"));
  fs::create_symlink(Path("state"), Path("link"));
  EXPECT_FALSE(TqFile::WriteWholeFile(Path("link"), "x"));
  TqString text;
  EXPECT_TRUE(TqFile::ReadFileIntoString(Path("link"), text));
  EXPECT_EQ(text, "two\nthree");
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0666), 0);
  EXPECT_FALSE(TqFile::WriteWholeFile(Path("fifo"), "x"));  // and does not wait for a reader
}

TEST_F(RealFilesTest, LockIsHeldRefreshedBrokenAndReleased) {
  const std::string lock = Path("lock");
  auto handle = TqLock::GrabFileBasedLock(lock, 100, 0);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(TqLock::GrabFileBasedLock(lock, 100, 0), nullptr);
  handle->lastRefresh = 0;
  EXPECT_TRUE(TqLock::RefreshFileBasedLock(handle.get()));
  EXPECT_EQ(FilesLeft(), 1U);
  fs::last_write_time(lock, fs::file_time_type::clock::now() - std::chrono::seconds(200));
  handle->lastRefresh = 0;
  EXPECT_FALSE(TqLock::RefreshFileBasedLock(handle.get()));
  TqLock::ReleaseFileBasedLock(TqLock::GrabFileBasedLock(lock, 100, 0));
  EXPECT_EQ(FilesLeft(), 0U);
}

TEST_F(RealFilesTest, ATimeoutKillsTheWholeGroupAndKeepsItsOutput) {
  const auto start = std::chrono::steady_clock::now();
  const std::string command =
      "{ trap '' TERM; echo started; echo err 1>&2; sleep 30 & echo $! > " + Path("pid") + "; wait; }";
  const auto slow = TqSystem::RunCommand(command.c_str(), true, 2);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  ASSERT_NE(slow, nullptr);
  EXPECT_EQ(*slow, "started\nerr\n");
  int grandchild = 0;
  std::ifstream(Path("pid")) >> grandchild;
  ASSERT_GT(grandchild, 1);
  // Gone, or a zombie that nobody reaped yet: that has no command line any more. Dying may take a moment.
  std::string commandLine = "unread";
  for (int look = 0; look < 100 && !commandLine.empty(); ++look) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    commandLine.clear();
    std::ifstream("/proc/" + std::to_string(grandchild) + "/cmdline") >> commandLine;
  }
  EXPECT_EQ(commandLine, "");
}

}  // namespace
