#include "platform/posix/mount_watches.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

namespace {

/// Folders that are removed and made anew stand for volumes that are unmounted and mounted again: their inodes tell.
TEST(MountWatchesTest, ANumberLastsUntilSomethingElseIsAtThePath) {
  std::string root = "/tmp/tqwatchesXXXXXX";
  ASSERT_NE(mkdtemp(root.data()), nullptr);
  const std::string disk = root + "/disk", other = root + "/other";
  platform::MountWatches watches(O_RDONLY | O_DIRECTORY);
  const auto identify = [&](const std::string& path) {
    platform::MountIdentity identity;
    EXPECT_EQ(watches.Identify(path.c_str(), identity), 0) << path;
    return identity;
  };
  const auto errnoOf = [&](const std::string& path) {
    platform::MountIdentity identity;
    return watches.Identify(path.c_str(), identity);
  };
  std::filesystem::create_directory(disk);
  std::filesystem::create_directory(other);
  const platform::MountIdentity first = identify(disk);
  EXPECT_NE(identify(other).mountId, first.mountId);
  EXPECT_EQ(identify(disk), first);

  std::filesystem::rename(disk, root + "/aside");
  EXPECT_EQ(errnoOf(disk), ENOENT);
  std::filesystem::create_directory(disk);
  const platform::MountIdentity second = identify(disk);
  EXPECT_NE(second.inode, first.inode);
  EXPECT_EQ(identify(disk), second);
  std::filesystem::remove(disk);
  std::filesystem::rename(root + "/aside", disk);  // the first one again, device and inode as before
  const platform::MountIdentity third = identify(disk);
  EXPECT_EQ(third.inode, first.inode);
  EXPECT_FALSE(third == first);

  std::filesystem::remove(disk);
  std::filesystem::create_symlink("/dev/null", disk);  // answers, but cannot be watched
  EXPECT_EQ(errnoOf(disk), ENOTDIR);
  std::filesystem::remove_all(root);
}

}  // namespace
