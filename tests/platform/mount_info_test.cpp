#include "platform/mount_info.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/linux_volume_rules.h"

namespace {

using namespace platform;

using Texts = std::vector<std::string>;

constexpr const char* kRoot = "20 1 254:0 / / rw - ext4 /dev/vda rw\n";

MountTable TableOf(const std::string& text) {
  return MountTable(ParseMountInfo(text));
}

Texts Volumes(const std::string& text) {
  return SelectVolumeMountPoints(TableOf(text));
}

TEST(MountInfoTest, ReadsRowsWithAnyNumberOfOptionalFields) {
  const std::vector<MountRow> rows = ParseMountInfo(
      "36 35 98:0 /mnt1 /mnt\\0402 rw,noatime master:1 propagate_from:2 - ext3 /dev/ro\\134ot\\011\\012 "
      "rw,errors=continue\n"
      "37 36 0:5 / /a rw - tmpfs  rw\n"
      "38 36 0:6 / /b rw - fuse.sshfs host:/x rw");
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].id, 36U);
  EXPECT_EQ(rows[0].parentId, 35U);
  EXPECT_EQ(rows[0].mountPoint, "/mnt 2");
  EXPECT_EQ(rows[0].type, "ext3");
  EXPECT_EQ(rows[0].source, "/dev/ro\\ot\t\n");
  EXPECT_EQ(rows[1].source, "");
  EXPECT_EQ(rows[2].type, "fuse.sshfs");
}

TEST(MountInfoTest, LeavesOutWhatIsNoRowAndKeepsWhatIsNoEscape) {
  const std::vector<MountRow> rows = ParseMountInfo(
      "\n\n- - -\nx 1 0:1 / /a rw - ext4 d rw\n1\n1 2 0:1 / relative rw - ext4 d rw\n1 2 0:1 / /no-dash rw ext4 d rw\n"
      "99999999999999999999999 2 0:1 / /a rw - ext4 d rw\n5 2 0:1 / /good rw - ext4 d rw\n6 2 0:1 / /cut rw -");
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].mountPoint, "/good");
  EXPECT_EQ(DecodeMountText("\\04"), "\\04");
  EXPECT_EQ(DecodeMountText("\\400\\389\\"), "\\400\\389\\");
  EXPECT_EQ(DecodeMountText("\\377\\1010"),
            "\xFF"
            "A0");
}

TEST(MountInfoTest, SeesOnlyTheTopmostMountOfAPath) {
  const MountTable table = TableOf(std::string(kRoot) +
                                   "21 20 0:1 / /a rw - tmpfs low rw\n"
                                   "23 22 0:3 / /a/in rw - tmpfs seen rw\n"
                                   "22 21 0:2 / /a rw - tmpfs top rw\n"           // on 21, listed behind its own child
                                   "24 21 0:4 / /a/hid rw - tmpfs hidden rw\n");  // in 21, which 22 covers
  EXPECT_EQ(table.VisibleAt("/")->source, "/dev/vda");
  EXPECT_EQ(table.VisibleAt("/a")->source, "top");
  EXPECT_EQ(table.VisibleAt("/a/in")->source, "seen");
  EXPECT_EQ(table.VisibleAt("/a/hid"), nullptr);
  EXPECT_EQ(table.VisibleAt("/a/in/deeper"), nullptr);
  EXPECT_EQ(table.VisibleAt("a"), nullptr);
  // A process whose root is a plain folder sees no row for it, and rows whose parents are not listed.
  const MountTable inner = TableOf("30 7 0:1 / /Volumes/A rw - tmpfs a rw\n");
  EXPECT_EQ(inner.VisibleAt("/"), nullptr);
  EXPECT_EQ(inner.VisibleAt("/Volumes/A")->source, "a");
  // A table that is no tree must not hang it.
  const char* circle = "1 9 0:1 / /a rw - t a rw\n2 1 0:1 / /a rw - t b rw\n1 2 0:1 / /a rw - t c rw\n";
  EXPECT_NE(TableOf(circle).VisibleAt("/a"), nullptr);
}

TEST(MountInfoTest, VolumesAreTheVisibleLocalMountsOfVolumesFolder) {
  EXPECT_EQ(Volumes(std::string(kRoot) + "21 20 8:1 / /Volumes/B rw - ext4 /dev/sda1 rw\n"
                                         "22 20 8:2 /home /Volumes/A\\040bind rw - ext4 /dev/sda2 rw\n"
                                         "23 20 0:3 / /Volumes/Ram rw - tmpfs ram rw\n"
                                         "24 20 0:4 / /Volumes/.hidden rw - tmpfs x rw\n"
                                         "25 21 0:5 / /Volumes/B/sub rw - tmpfs x rw\n"
                                         "26 20 0:6 / /Volumes/nfs rw - nfs4 h:/x rw\n"
                                         "27 20 0:7 / /Volumes/ssh rw - fuse.sshfs h:/x rw\n"
                                         "28 20 0:8 / /Volumes/proc rw - proc proc rw\n"
                                         "29 20 0:9 / /volumes/lower rw - tmpfs x rw\n"
                                         "30 20 0:10 / /mnt rw - tmpfs x rw\n"
                                         "31 20 8:3 / /Volumes/ntfs rw - fuseblk /dev/sdb1 rw\n"
                                         "32 20 0:11 / /Volumes/auto rw - autofs systemd-1 rw\n"
                                         "33 32 8:4 / /Volumes/auto rw - ext4 /dev/sdc1 rw\n"
                                         "34 20 8:5 / /Volumes/covered rw - ext4 /dev/sdd1 rw\n"
                                         "35 34 0:12 / /Volumes/covered rw - nfs h:/y rw\n"),
            (Texts{"/", "/Volumes/B", "/Volumes/A bind", "/Volumes/Ram", "/Volumes/ntfs", "/Volumes/auto"}));
  // Something mounted over the whole folder hides what was mounted in it.
  EXPECT_EQ(
      Volumes(std::string(kRoot) + "21 20 8:1 / /Volumes/B rw - ext4 d rw\n22 20 0:1 / /Volumes rw - tmpfs v rw\n"),
      Texts{"/"});
  EXPECT_EQ(Volumes(""), Texts{"/"});
}

TEST(MountInfoTest, SkipsWindowsSharesAndPseudoFileSystemsOnly) {
  const std::vector<MountTableRow> rows = SelectSkippedMounts(
      TableOf(std::string(kRoot) +
              "21 20 0:1 / /proc rw - proc proc rw\n22 20 0:2 / /dev/shm rw - tmpfs tmpfs rw\n"
              "23 20 0:3 / /mnt/s\\040hare rw - cifs //host/share rw\n24 20 0:4 / /nfs rw - nfs h:/x rw\n"
              "25 20 0:5 / /s3 rw - smb3 //h/s rw\n26 20 0:6 / /home/u rw - autofs map rw\n"
              "27 26 0:7 / /home/u rw - nfs h:/u rw\n"));
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].mountPoint + rows[0].type, "/procproc");
  EXPECT_EQ(rows[1].mountPoint + rows[1].source + rows[1].type, "/mnt/s hare//host/sharesmbfs");
  EXPECT_EQ(rows[2].mountPoint + rows[2].type, "/s3smbfs");
}

TEST(MountInfoTest, TellsTypesMediaAndUuids) {
  EXPECT_TRUE(IsNetworkType("ceph") && IsNetworkType("fuse.rclone") && !IsNetworkType("fuse.ntfs-3g"));
  EXPECT_TRUE(!IsNetworkType("fuse.") && !IsNetworkType("tmpfs") && !IsNetworkType(""));
  EXPECT_TRUE(IsCasePreservingType("vfat") && !IsCasePreservingType("msdos") && IsCaseSensitiveType("ext4"));
  EXPECT_FALSE(IsCaseSensitiveType("hfsplus"));

  EXPECT_TRUE(MediumOf("tmpfs", "", std::nullopt, false).isWritable);
  EXPECT_FALSE(MediumOf("tmpfs", "", std::nullopt, true).isWritable);
  EXPECT_TRUE(MediumOf("ext4", "sda1", false, true).isWritable);  // the device's word counts before the mount's
  EXPECT_FALSE(MediumOf("ext4", "sda1", true, false).isWritable);
  EXPECT_TRUE(MediumOf("iso9660", "loop0", true, true).isOptical && MediumOf("udf", "sr0", true, true).isOptical);
  EXPECT_FALSE(MediumOf("udf", "sda", true, true).isOptical);

  std::array<std::uint8_t, 16> uuid{};
  ASSERT_TRUE(ParseUuidText("01234567-89aB-cDef-0011-2233445566ff", uuid));
  EXPECT_EQ(uuid, (std::array<std::uint8_t, 16>{1, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0, 0x11, 0x22, 0x33, 0x44,
                                                0x55, 0x66, 0xFF}));
  for (const char* bad : {"", "ABCD-1234", "01234567-89ab-cdef-0011-2233445566f",
                          "0123456789ab-cdef-0011-2233445566ff-", "0123456g-89ab-cdef-0011-2233445566ff"}) {
    EXPECT_FALSE(ParseUuidText(bad, uuid)) << bad;
  }
}

}  // namespace
