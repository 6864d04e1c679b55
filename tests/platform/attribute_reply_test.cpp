#include "platform/attribute_reply.h"

#include <gtest/gtest.h>

#include "tests/platform/mac_replies.h"

namespace {

using namespace platform;
using namespace mac_replies;

TEST(AttributeReplyTest, ReadsAWholeReply) {
  EntryAttributes entry;
  ASSERT_TRUE(DecodeEntryReply(FileReply(), true, entry));
  EXPECT_EQ(entry.kind, EntryKind::kRegular);
  EXPECT_EQ(entry.createTimeSec, 1'600'000'001);
  EXPECT_EQ(entry.createTimeNsec, 5);
  EXPECT_EQ(entry.modTimeSec, 1'700'000'002);
  EXPECT_EQ(entry.finderFlags, 0xA004);
  EXPECT_EQ(entry.linkCount, 3U);
  EXPECT_EQ(entry.dataSize, 5'000'000'000);  // the real size, although nothing is on this disk
  EXPECT_EQ(entry.rsrcSize, 77);
}

TEST(AttributeReplyTest, NamesEveryKindAndNoOther) {
  const EntryKind kinds[] = {
      EntryKind::kRegular,      EntryKind::kDirectory, EntryKind::kBlockDevice, EntryKind::kCharacterDevice,
      EntryKind::kSymbolicLink, EntryKind::kSocket,    EntryKind::kFifo};
  EntryAttributes entry;
  for (std::uint32_t type = 1; type <= 7; ++type) {
    ASSERT_TRUE(DecodeEntryReply(FileReply(type), true, entry)) << type;
    EXPECT_EQ(entry.kind, kinds[type - 1]);
  }
  for (const std::uint32_t type : {0U, 8U, 10U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(DecodeEntryReply(FileReply(type), true, entry)) << type;
  }
}

TEST(AttributeReplyTest, ADirectoryHasNoFileAttributesWhateverTheBufferHolds) {
  EntryAttributes entry;
  ASSERT_TRUE(DecodeEntryReply(DirectoryReply(), true, entry));
  EXPECT_EQ(entry.kind, EntryKind::kDirectory);
  EXPECT_EQ(entry.finderFlags, 0xA004);
  EXPECT_EQ(entry.dataSize, 0);
  EXPECT_EQ(entry.rsrcSize, 0);
  EXPECT_EQ(entry.linkCount, 1U);
}

// The kernel leaves Finder info that it failed to read out, and its length word does not tell.
TEST(AttributeReplyTest, FinderInfoThatIsLeftOutMovesTheRestForward) {
  Bytes reply = Without(FileReply(), 76, 32);
  Put(reply, 4, std::uint32_t{0x80040E08});
  EntryAttributes entry;
  ASSERT_TRUE(DecodeEntryReply(reply, true, entry));
  EXPECT_EQ(entry.finderFlags, 0);
  EXPECT_EQ(entry.modTimeSec, 1'700'000'002);
  EXPECT_EQ(entry.linkCount, 3U);
  EXPECT_EQ(entry.dataSize, 5'000'000'000);
  EXPECT_EQ(entry.rsrcSize, 77);
}

TEST(AttributeReplyTest, WithoutReturnedSetEverythingLiesTwentyBytesEarlier) {
  Bytes file = Without(FileReply(), 4, 20);
  Put(file, 0, std::uint32_t{120});
  EntryAttributes entry;
  ASSERT_TRUE(DecodeEntryReply(file, false, entry));
  EXPECT_EQ(entry.finderFlags, 0xA004);
  EXPECT_EQ(entry.dataSize, 5'000'000'000);
  EXPECT_EQ(entry.rsrcSize, 77);

  Bytes directory = Without(DirectoryReply(), 4, 20);
  Put(directory, 0, std::uint32_t{92});
  ASSERT_TRUE(DecodeEntryReply(directory, false, entry));
  EXPECT_EQ(entry.kind, EntryKind::kDirectory);
  Put(directory, 0, std::uint32_t{91});
  EXPECT_FALSE(DecodeEntryReply(directory, false, entry));
}

TEST(AttributeReplyTest, RefusesShortRepliesAndLyingLengths) {
  EntryAttributes entry;
  for (std::size_t size = 0; size < 140; ++size) {
    Bytes cut = FileReply();
    cut.resize(size);
    EXPECT_FALSE(DecodeEntryReply(cut, true, entry)) << "buffer of " << size;
    Bytes lying = FileReply();
    Put(lying, 0, static_cast<std::uint32_t>(size));
    EXPECT_FALSE(DecodeEntryReply(lying, true, entry)) << "length word " << size;
  }
  for (const std::uint32_t length : {257U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    Bytes lying = FileReply();
    Put(lying, 0, length);
    EXPECT_FALSE(DecodeEntryReply(lying, true, entry)) << "length word " << length;
  }
  Bytes directory = DirectoryReply();
  Put(directory, 0, std::uint32_t{111});
  EXPECT_FALSE(DecodeEntryReply(directory, true, entry));
  for (const std::size_t size : {124U, 132U}) {
    Bytes negative = FileReply();
    Put(negative, size, std::int64_t{-1});
    EXPECT_FALSE(DecodeEntryReply(negative, true, entry)) << "size at " << size;
  }
}

TEST(AttributeReplyTest, ReadsTheFinderFlagsAlone) {
  Bytes reply(40);
  Put(reply, 0, std::uint32_t{40});
  Put(reply, 4, std::uint32_t{2});
  Put(reply, 16, std::uint8_t{0x20});
  std::uint16_t flags = 1;
  ASSERT_TRUE(DecodeFinderReply(reply, flags));
  EXPECT_EQ(flags, 0x2000);
  Put(reply, 0, std::uint32_t{39});
  EXPECT_FALSE(DecodeFinderReply(reply, flags));
}

}  // namespace
