#include <gtest/gtest.h>

#include <array>

#include "platform/hardware_address.h"
#include "platform/mac_volume_rules.h"
#include "platform/volume_reply.h"
#include "tests/platform/mac_replies.h"

namespace {

using namespace platform;
using namespace mac_replies;
using Way = DeviceLookUp::Way;

TEST(VolumeReplyTest, ReadsAWholeReply) {
  VolumeAttributes volume;
  ASSERT_TRUE(DecodeVolumeReply(VolumeReply("/dev/disk3s1s1"), volume));
  EXPECT_EQ(volume.totalBytes, 1'000'000U);
  EXPECT_EQ(volume.freeBytes, 600'000U);
  EXPECT_EQ(volume.availableBytes, 500'000U);
  EXPECT_TRUE(volume.isLocal);
  EXPECT_TRUE(volume.isCaseSensitive);
  EXPECT_TRUE(volume.isCasePreserving);
  EXPECT_EQ(volume.deviceName, "/dev/disk3s1s1");
  EXPECT_EQ(volume.uuid[0], 1);
  EXPECT_EQ(volume.uuid[15], 16);
}

TEST(VolumeReplyTest, ACapabilityCountsOnlyWhereItIsValid) {
  Bytes reply = VolumeReply("/dev/disk1");
  Put(reply, 76, std::uint32_t{0x200});
  VolumeAttributes volume;
  ASSERT_TRUE(DecodeVolumeReply(reply, volume));
  EXPECT_FALSE(volume.isCaseSensitive);
  EXPECT_TRUE(volume.isCasePreserving);
}

TEST(VolumeReplyTest, WhatTheReturnedSetLacksCountsAsNothing) {
  Bytes reply = VolumeReply("/dev/disk1");
  Put(reply, 8, std::uint32_t{0});
  Put(reply, 52, std::int32_t{-4000});  // a reference that is not meant
  VolumeAttributes volume;
  ASSERT_TRUE(DecodeVolumeReply(reply, volume));
  EXPECT_EQ(volume.totalBytes + volume.freeBytes + volume.availableBytes, 0U);
  EXPECT_FALSE(volume.isLocal || volume.isCaseSensitive || volume.isCasePreserving);
  EXPECT_EQ(volume.deviceName, "");
  EXPECT_EQ(volume.uuid, (std::array<std::uint8_t, 16>{}));
}

TEST(VolumeReplyTest, RefusesShortRepliesAndReferencesThatPointOutside) {
  const Bytes whole = VolumeReply("/dev/disk1");  // 120 bytes
  VolumeAttributes volume;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    Bytes cut = whole;
    cut.resize(size);
    EXPECT_FALSE(DecodeVolumeReply(cut, volume)) << size;
  }
  struct Case {
    std::int32_t offset;
    std::uint32_t length;
    bool isInside;
  };
  for (const Case& one : std::initializer_list<Case>{{56, 12, true},
                                                     {56, 13, false},
                                                     {57, 12, false},
                                                     {68, 0, true},
                                                     {69, 0, false},
                                                     {-53, 1, false},
                                                     {0x7FFFFFFF, 0xFFFFFFFF, false},
                                                     {56, 0xFFFFFFFF, false},
                                                     {-0x7FFFFFFF - 1, 0x80000000, false}}) {
    Bytes reply = whole;
    Put(reply, 52, one.offset);
    Put(reply, 56, one.length);
    EXPECT_EQ(DecodeVolumeReply(reply, volume), one.isInside) << one.offset << " + " << one.length;
  }
  // The bounds are those of the reply, not of the buffer behind it.
  Bytes roomy = whole;
  roomy.resize(2048, std::byte{'x'});
  Put(roomy, 56, std::uint32_t{13});
  EXPECT_FALSE(DecodeVolumeReply(roomy, volume));
}

TEST(VolumeReplyTest, ANameWithoutNulEndsWithItsReference) {
  Bytes reply = VolumeReply("/dev/disk1");
  Put(reply, 56, std::uint32_t{9});
  VolumeAttributes volume;
  ASSERT_TRUE(DecodeVolumeReply(reply, volume));
  EXPECT_EQ(volume.deviceName, "/dev/disk");
}

TEST(MacVolumeRulesTest, DeviceNamesTellHowTheMediumIsFound) {
  const DeviceLookUp device = LookUpOf("/dev/disk3s1s1");
  EXPECT_EQ(device.way, Way::kDeviceName);
  EXPECT_EQ(device.name, "disk3s1s1");

  const DeviceLookUp userSpace = LookUpOf("msdos://disk4s1/NO NAME");
  EXPECT_EQ(userSpace.way, Way::kDiskArbitration);
  EXPECT_EQ(userSpace.name, "msdos://disk4s1/NO NAME");
  EXPECT_EQ(userSpace.fallbackName, "disk4s1");

  const DeviceLookUp bare = LookUpOf("exfat://disk4s1");
  EXPECT_EQ(bare.name, "exfat://disk4s1/");
  EXPECT_EQ(bare.fallbackName, "disk4s1");

  for (const char* none : {"", "//guest@server/share", "devfs", "ntfs://disk4s1/", "map auto_home", "/devices/disk1"}) {
    EXPECT_EQ(LookUpOf(none).way, Way::kNone) << none;
  }
  std::string name = "/dev/";
  while (name.size() < 1024) name.push_back('d');
  EXPECT_EQ(LookUpOf(name).way, Way::kDeviceName);
  name.push_back('d');
  EXPECT_EQ(LookUpOf(name).way, Way::kNone);
}

TEST(MacVolumeRulesTest, RegistryFactsBecomeMedia) {
  RegistryFacts facts;
  facts.whole = true;
  facts.writable = true;
  EXPECT_FALSE(MediaObjectOf(facts).isMedia);
  EXPECT_FALSE(MediaObjectOf(facts).isWhole);

  facts.isMedia = true;
  facts.writable = std::nullopt;
  MediaObject object = MediaObjectOf(facts);
  EXPECT_TRUE(object.isMedia && object.isWhole);
  EXPECT_FALSE(object.isWritable || object.isOptical);

  facts.isDvdMedia = true;
  EXPECT_TRUE(MediaObjectOf(facts).isOptical);
}

TEST(MacVolumeRulesTest, MountTableRows) {
  const char full[4] = {'h', 'f', 's', '2'};
  const char ended[8] = {'s', 'm', 'b', '\0', 'x'};
  EXPECT_EQ(FieldText(full), "hfs2");
  EXPECT_EQ(FieldText(ended), "smb");

  const auto skipped = SelectSmbMounts({{"/", "/dev/disk1", "apfs"},
                                        {"/Volumes/share", "//bob@server/share", "smbfs"},
                                        {"/Volumes/nfs", "server:/x", "nfs"}});
  ASSERT_EQ(skipped.size(), 1U);
  EXPECT_EQ(skipped[0].mountPoint, "/Volumes/share");

  EXPECT_EQ(WithoutTrailingSlashes("/Volumes/Disk//"), "/Volumes/Disk");
  EXPECT_EQ(WithoutTrailingSlashes("//"), "/");
  EXPECT_TRUE(IsSameMountPoint("/VOLUMES/disk", "/Volumes/Disk"));
  EXPECT_TRUE(IsSameMountPoint("/", "/"));
  EXPECT_FALSE(IsSameMountPoint("/Volumes/Disk", "/"));
  EXPECT_FALSE(IsSameMountPoint("/Volumes/Disk", "/Volumes/Disk 1"));
  EXPECT_FALSE(HasOtherSpellings("/Volumes/Disk"));
  EXPECT_TRUE(HasOtherSpellings("/Volumes/Zo\xC3\xAB"));
}

TEST(MacVolumeRulesTest, TheBootVolumeComesFirst) {
  std::vector<MountedVolume> volumes(3);
  for (std::size_t i = 0; i < 3; ++i)
    volumes[i].path = std::array<std::string_view, 3>{"/Volumes/b", "/Volumes/a", "/"}[i];
  PutRootFirst(volumes);
  EXPECT_EQ(volumes[0].path, "/");
  EXPECT_EQ(volumes[1].path, "/Volumes/b");
  EXPECT_EQ(volumes[2].path, "/Volumes/a");
}

TEST(HardwareAddressTest, ReadsTheAddressBehindTheInterfacesName) {
  const auto socketOf = [](std::string_view name, std::uint8_t addressBytes) {
    Bytes bytes(8 + name.size() + addressBytes);
    Put(bytes, 5, static_cast<std::uint8_t>(name.size()));
    Put(bytes, 6, addressBytes);
    for (std::uint8_t i = 0; i < addressBytes; ++i)
      Put(bytes, 8 + name.size() + i, static_cast<std::uint8_t>(0xFA + i));
    return bytes;
  };
  EXPECT_EQ(HardwareAddressText(AddressInLinkSocket(socketOf("en0", 6))), "fa-fb-fc-fd-fe-ff");
  EXPECT_EQ(HardwareAddressText(AddressInLinkSocket(socketOf("a long name", 6))), "fa-fb-fc-fd-fe-ff");
  EXPECT_TRUE(AddressInLinkSocket(socketOf("en0", 8)).empty());
  EXPECT_TRUE(AddressInLinkSocket(socketOf("lo0", 0)).empty());
  Bytes cut = socketOf("en0", 6);
  while (!cut.empty()) {
    cut.pop_back();
    EXPECT_TRUE(AddressInLinkSocket(cut).empty()) << cut.size();
  }
}

}  // namespace
