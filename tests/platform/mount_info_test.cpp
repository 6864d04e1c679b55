#include "platform/mount_info.h"

#include <gtest/gtest.h>

#include "platform/linux_volume_rules.h"

using namespace platform;
using Texts = std::vector<std::string>;

static const std::string kRoot = "20 1 254:0 / / rw - ext4 /dev/vda rw\n";

static MountTable TableOf(const std::string& text) {
  return MountTable(ParseMountInfo(text));
}

/// A line for each row that is read: its numbers, mount point, source and type.
static Texts Rows(const std::string& text) {
  Texts shown;
  for (const MountRow& row : ParseMountInfo(text)) {
    const std::string numbers = std::to_string(row.id) + " " + std::to_string(row.parentId);
    shown.push_back(numbers + " " + row.mountPoint + " " + row.source + " " + row.type);
  }
  return shown;
}

TEST(MountInfoTest, ReadsRowsWithAnyNumberOfOptionalFields) {
  EXPECT_EQ(Rows("36 35 98:0 /mnt1 /mnt\\0402 rw,noatime master:1 propagate_from:2 - ext3 /dev/ro\\134ot\\011\\012 "
                 "rw,errors=continue\n37 36 0:5 / /a rw - tmpfs  rw\n38 36 0:6 / /b rw - fuse.sshfs host:/x rw"),
            (Texts{"36 35 /mnt 2 /dev/ro\\ot\t\n ext3", "37 36 /a  tmpfs", "38 36 /b host:/x fuse.sshfs"}));
  EXPECT_EQ(Rows("\n\n- - -\nx 1 0:1 / /a rw - ext4 d rw\n1\n1 2 0:1 / relative rw - ext4 d rw\n"
                 "1 2 0:1 / /no-dash rw ext4 d rw\n99999999999999999999999 2 0:1 / /a rw - ext4 d rw\n"
                 "5 2 0:1 / /good rw - ext4 d rw\n6 2 0:1 / /cut rw -"),
            Texts{"5 2 /good d ext4"});
  const std::pair<const char*, const char*> escapes[] = {
      {"\\04", "\\04"}, {"\\400\\389\\", "\\400\\389\\"}, {"\\377\\1010", "\xFF\x41\x30"}};
  for (const auto& [escaped, text] : escapes) EXPECT_EQ(DecodeMountText(escaped), text);
}

TEST(MountInfoTest, SeesOnlyTheTopmostMountOfAPath) {
  const auto sources = [](const MountTable& table, const Texts& paths) {
    Texts seen;
    for (const std::string& path : paths) {
      const MountRow* row = table.VisibleAt(path);
      seen.push_back(row != nullptr ? row->source : "none");
    }
    return seen;
  };
  const MountTable table = TableOf(kRoot +
                                   "21 20 0:1 / /a rw - tmpfs low rw\n"
                                   "23 22 0:3 / /a/in rw - tmpfs seen rw\n"
                                   "22 21 0:2 / /a rw - tmpfs top rw\n"           // on 21, listed behind its own child
                                   "24 21 0:4 / /a/hid rw - tmpfs hidden rw\n");  // in 21, which 22 covers
  EXPECT_EQ(sources(table, {"/", "/a", "/a/in", "/a/hid", "/a/in/deeper", "a"}),
            (Texts{"/dev/vda", "top", "seen", "none", "none", "none"}));
  // A process whose root is a plain folder sees no row for it, and rows whose parents are not listed.
  EXPECT_EQ(sources(TableOf("30 7 0:1 / /Volumes/A rw - tmpfs a rw\n"), {"/", "/Volumes/A"}), (Texts{"none", "a"}));
  // A table that is no tree must not hang it.
  const char* circle = "1 9 0:1 / /a rw - t a rw\n2 1 0:1 / /a rw - t b rw\n1 2 0:1 / /a rw - t c rw\n";
  EXPECT_NE(TableOf(circle).VisibleAt("/a"), nullptr);
}

TEST(MountInfoTest, VolumesAreTheVisibleLocalMountsOfVolumesFolder) {
  const auto volumes = [](const std::string& text) { return SelectVolumeMountPoints(TableOf(text)); };
  EXPECT_EQ(
      volumes(kRoot +
              "21 20 8:1 / /Volumes/B rw - ext4 /dev/sda1 rw\n22 20 8:2 /home /Volumes/A\\040bind rw - ext4 /s rw\n"
              "23 20 0:3 / /Volumes/Ram rw - tmpfs ram rw\n24 20 0:4 / /Volumes/.hidden rw - tmpfs x rw\n"
              "25 21 0:5 / /Volumes/B/sub rw - tmpfs x rw\n26 20 0:6 / /Volumes/nfs rw - nfs4 h:/x rw\n"
              "27 20 0:7 / /Volumes/ssh rw - fuse.sshfs h:/x rw\n28 20 0:8 / /Volumes/proc rw - proc proc rw\n"
              "29 20 0:9 / /volumes/lower rw - tmpfs x rw\n30 20 0:10 / /mnt rw - tmpfs x rw\n"
              "31 20 8:3 / /Volumes/ntfs rw - fuseblk /dev/sdb1 rw\n32 20 0:11 / /Volumes/auto rw - autofs 1 rw\n"
              "33 32 8:4 / /Volumes/auto rw - ext4 /dev/sdc1 rw\n34 20 8:5 / /Volumes/covered rw - ext4 /d rw\n"
              "35 34 0:12 / /Volumes/covered rw - nfs h:/y rw\n"),
      (Texts{"/", "/Volumes/B", "/Volumes/A bind", "/Volumes/Ram", "/Volumes/ntfs", "/Volumes/auto"}));
  // Something mounted over the whole folder hides what was mounted in it.
  EXPECT_EQ(volumes(kRoot + "21 20 8:1 / /Volumes/B rw - ext4 d rw\n22 20 0:1 / /Volumes rw - tmpfs v rw\n"),
            Texts{"/"});
  EXPECT_EQ(volumes(""), Texts{"/"});
}

TEST(MountInfoTest, SkipsWindowsSharesAndPseudoFileSystemsOnly) {
  Texts skipped;
  for (const MountTableRow& row : SelectSkippedMounts(
           TableOf(kRoot + "21 20 0:1 / /proc rw - proc proc rw\n22 20 0:2 / /dev/shm rw - tmpfs tmpfs rw\n"
                           "23 20 0:3 / /mnt/s\\040hare rw - cifs //host/share rw\n24 20 0:4 / /nfs rw - nfs h:/x rw\n"
                           "25 20 0:5 / /s3 rw - smb3 //h/s rw\n26 20 0:6 / /home/u rw - autofs map rw\n"
                           "27 26 0:7 / /home/u rw - nfs h:/u rw\n"))) {
    skipped.push_back(row.mountPoint + " " + row.source + " " + row.type);
  }
  EXPECT_EQ(skipped, (Texts{"/proc proc proc", "/mnt/s hare //host/share smbfs", "/s3 //h/s smbfs"}));
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
  EXPECT_EQ(std::string(uuid.begin(), uuid.end()),
            std::string("\x01\x23\x45\x67\x89\xAB\xCD\xEF\x00\x11\x22\x33\x44\x55\x66\xFF", 16));
  for (const char* bad : {"", "ABCD-1234", "01234567-89ab-cdef-0011-2233445566f",
                          "0123456789ab-cdef-0011-2233445566ff-", "0123456g-89ab-cdef-0011-2233445566ff"}) {
    EXPECT_FALSE(ParseUuidText(bad, uuid)) << bad;
  }
}
