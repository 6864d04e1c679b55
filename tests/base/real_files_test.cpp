// The host's own platform in a temporary folder: what only a real kernel can show.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "base/fast_file_reader.h"
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
    std::error_code ignored;
    fs::permissions(root + "/closed", fs::perms::all, ignored);
    fs::remove_all(root, ignored);
    platform::SetPlatform(former_);
  }

  void Write(const std::string& name, const std::string& content) { std::ofstream(root + "/" + name) << content; }
  std::map<std::string, const TqFileInfo*> Listed(const std::string& dir) {
    const TqString path{std::string_view(dir)};
    std::map<std::string, const TqFileInfo*> byPath;
    EXPECT_TRUE(TqFile::GetListOfFileInfosInDir(&path, &list));
    for (std::int32_t i = 0; i < list.Count(); ++i) byPath[std::string(list.Get(i)->path.View())] = list.Get(i);
    return byPath;
  }
  std::size_t FilesLeft() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(root), fs::directory_iterator()));
  }

  std::string root;
  TqFileInfoList list;

 private:
  platform::Platform former_;
};

TEST_F(RealFilesTest, HostileNamesComeBackByteForByte) {
  const std::vector<std::string> names = {"plain",    " blank ", "new\nline", "back\\slash",         "tab\t",
                                          "\xff\xfe", "-rf",     "a\"b'c<&>", std::string(255, 'n'), "..hidden",
                                          "e\xCC\x81"};
  for (const std::string& name : names) Write(name, name);
  const auto entries = Listed(root + "/");
  EXPECT_EQ(entries.size(), names.size());
  for (const std::string& name : names) {
    const auto found = entries.find(root + "/" + name);
    ASSERT_NE(found, entries.end()) << name;
    EXPECT_EQ(found->second->dataSize, static_cast<std::int64_t>(name.size())) << name;
  }
}

TEST_F(RealFilesTest, KindsSizesAndTimes) {
  Write("file", "12345");
  fs::create_directory(root + "/folder.app");
  fs::create_directory_symlink(root + "/folder.app", root + "/link");
  fs::create_symlink("nowhere", root + "/dangling");
  ASSERT_EQ(mkfifo((root + "/fifo").c_str(), 0600), 0);
  const int socketDescriptor = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  (root + "/socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
  ASSERT_EQ(bind(socketDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  close(socketDescriptor);
  Write("sparse", "");
  fs::resize_file(root + "/sparse", 5'000'000'000);
  const timespec times[2] = {{1'000'000'000, 999'999'999}, {-5, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, (root + "/file").c_str(), times, 0), 0);
  const auto entries = Listed(root);
  ASSERT_EQ(entries.size(), 7U);
  EXPECT_EQ(entries.at(root + "/file")->modTimeMs, -5'000);
  EXPECT_FALSE(entries.at(root + "/file")->isSpecial);
  EXPECT_TRUE(entries.at(root + "/folder.app")->isDir);
  EXPECT_TRUE(entries.at(root + "/folder.app")->isPackage);
  EXPECT_EQ(entries.at(root + "/folder.app")->dataSize, 0);
  for (const char* special : {"/link", "/dangling", "/fifo", "/socket"}) {
    EXPECT_TRUE(entries.at(root + special)->isSpecial) << special;
    EXPECT_FALSE(entries.at(root + special)->isDir) << special;
  }
  EXPECT_EQ(entries.at(root + "/sparse")->dataSize, 5'000'000'000);
  TqString text;
  EXPECT_FALSE(TqFile::ReadFileIntoString(root + "/fifo", text));  // and does not hang
  EXPECT_FALSE(TqFile::ReadFileIntoString(root + "/sparse", text));
}

TEST_F(RealFilesTest, FolderWithoutPermissionCannotBeListed) {
  if (geteuid() == 0) GTEST_SKIP() << "root reads every folder";
  fs::create_directory(root + "/closed");
  fs::permissions(root + "/closed", fs::perms::none);
  const TqString closed{std::string_view(root + "/closed")};
  EXPECT_FALSE(TqFile::GetListOfFileInfosInDir(&closed, &list));
  TqFileInfo info;
  EXPECT_FALSE(TqFile::GetInfoAboutFileOrDir(root + "/closed/x", info));
}

TEST_F(RealFilesTest, WritesReplaceFilesButNeverGoThroughLinks) {
  const mode_t former = umask(077);
  EXPECT_TRUE(TqFile::WriteFileAndSwapIn(root + "/state", "one"));
  EXPECT_TRUE(TqFile::WriteFileAndSwapIn(root + "/state", "two"));
  umask(former);
  EXPECT_EQ(fs::status(root + "/state").permissions(), static_cast<fs::perms>(0666));
  EXPECT_EQ(FilesLeft(), 1U);
  EXPECT_TRUE(TqFile::AppendStringToFile(root + "/state", "\nthree"));
  TqString text;
  EXPECT_TRUE(TqFile::ReadFileIntoString(root + "/state", text));
  EXPECT_EQ(text, "two\nthree");
  fs::create_hard_link(root + "/state", root + "/twin");
  EXPECT_FALSE(TqFile::WriteWholeFile(root + "/state", "x"));
  EXPECT_FALSE(TqFile::AppendStringToFile(root + "/twin", "x"));
  fs::remove(root + "/twin");
  fs::create_symlink(root + "/state", root + "/link");
  EXPECT_FALSE(TqFile::WriteWholeFile(root + "/link", "x"));
  EXPECT_TRUE(TqFile::ReadFileIntoString(root + "/link", text));
  EXPECT_EQ(text, "two\nthree");
  ASSERT_EQ(mkfifo((root + "/fifo").c_str(), 0666), 0);
  EXPECT_FALSE(TqFile::WriteWholeFile(root + "/fifo", "x"));  // and does not wait for a reader
}

TEST_F(RealFilesTest, ExclusiveReadersExcludeEachOther) {
  Write("f", "one\r\ntwo");
  TqFastFileReader first;
  TqFastFileReader second;
  TqString line;
  TqString error;
  ASSERT_TRUE(first.TqOpenFileReadOnlyExclusive(root + "/f", &error)) << error.c_str();
  EXPECT_FALSE(second.TqOpenFileReadOnlyExclusive(root + "/f", &error));
  EXPECT_TRUE(first.TqReadNextLine(&line, &error));
  EXPECT_EQ(line, "one");
  EXPECT_TRUE(first.TqSeekToOffset(6, &error));
  EXPECT_TRUE(first.TqReadNextLine(&line, &error));
  EXPECT_EQ(line, "wo");
  first.TqCloseFile();
  EXPECT_TRUE(second.TqOpenFileReadOnlyExclusive(root + "/f", &error));
}

TEST_F(RealFilesTest, LockIsHeldRefreshedBrokenAndReleased) {
  const std::string path = root + "/lock";
  auto handle = TqLock::GrabFileBasedLock(path, 100, 0);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(fs::status(path).permissions(), static_cast<fs::perms>(0666));
  EXPECT_EQ(TqLock::GrabFileBasedLock(path, 100, 0), nullptr);
  handle->lastRefresh = 0;
  EXPECT_TRUE(TqLock::RefreshFileBasedLock(handle.get()));
  EXPECT_EQ(FilesLeft(), 1U);
  fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::seconds(200));
  handle->lastRefresh = 0;
  EXPECT_FALSE(TqLock::RefreshFileBasedLock(handle.get()));
  auto thief = TqLock::GrabFileBasedLock(path, 100, 0);
  ASSERT_NE(thief, nullptr);
  TqLock::ReleaseFileBasedLock(std::move(thief));
  EXPECT_EQ(FilesLeft(), 0U);
}

TEST_F(RealFilesTest, CommandsReturnTheirOutputAndATimeoutKillsTheWholeGroup) {
  const auto fast = TqSystem::RunCommand("(echo out; echo err 1>&2)", true, 10);
  ASSERT_NE(fast, nullptr);
  EXPECT_EQ(*fast, "out\nerr\n");
  const auto start = std::chrono::steady_clock::now();
  const std::string command =
      "trap '' TERM; echo started; (sleep 30; echo late > " + root + "/late) & echo $! > " + root + "/pid; wait";
  const auto slow = TqSystem::RunCommand(("{ " + command + "; }").c_str(), false, 1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  ASSERT_NE(slow, nullptr);
  EXPECT_EQ(*slow, "started\n");
  int grandchild = 0;
  std::ifstream(root + "/pid") >> grandchild;
  ASSERT_GT(grandchild, 1);
  // The orphan is gone at the latest when its new parent has reaped it; a zombie no longer has a command line.
  std::string commandLine;
  std::ifstream("/proc/" + std::to_string(grandchild) + "/cmdline") >> commandLine;
  EXPECT_EQ(commandLine, "");
}

}  // namespace
