#include "platform/attribute_reply.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/platform/mac_replies.h"

using namespace platform;
using namespace mac_replies;

/// All that a reply tells, as a text.
static std::string Decoded(const Bytes& reply, bool hasReturnedSet = true) {
  EntryAttributes entry;
  if (!DecodeEntryReply(reply, hasReturnedSet, entry)) return "refused";
  std::ostringstream text;
  text << (entry.kind == EntryKind::kDirectory ? "folder" : "file") << " created=" << entry.createTimeSec << "."
       << entry.createTimeNsec << " modified=" << entry.modTimeSec << " flags=" << std::hex << entry.finderFlags
       << std::dec << " links=" << entry.linkCount << " size=" << entry.dataSize << " fork=" << entry.rsrcSize;
  return text.str();
}

TEST(AttributeReplyTest, ReadsEveryFormOfReply) {
  const std::string times = " created=1600000001.5 modified=1700000002 flags=";
  const std::string file =
      "file" + times + "a004 links=3 size=5000000000 fork=77";                 // the real size, though not on disk
  const std::string folder = "folder" + times + "a004 links=1 size=0 fork=0";  // whatever the buffer holds
  EXPECT_EQ(Decoded(FileReply()), file);
  EXPECT_EQ(Decoded(DirectoryReply()), folder);
  EXPECT_EQ(Decoded(FileReplyWithoutFinderInfo()), "file" + times + "0 links=3 size=5000000000 fork=77");
  EXPECT_EQ(Decoded(WithoutReturnedSet(FileReply(), 120), false), file);
  EXPECT_EQ(Decoded(WithoutReturnedSet(DirectoryReply(), 92), false), folder);
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
  for (const std::uint32_t type : {0U, 8U, 10U, 0xFFFFFFFFU}) EXPECT_EQ(Decoded(FileReply(type)), "refused") << type;
}

TEST(AttributeReplyTest, RefusesShortRepliesAndLyingLengths) {
  for (std::uint32_t size = 0; size < 140; ++size) {
    Bytes cut = FileReply();
    cut.resize(size);
    EXPECT_EQ(Decoded(cut), "refused") << "buffer of " << size;
    EXPECT_EQ(Decoded(With(FileReply(), 0, size)), "refused") << "length word " << size;
  }
  for (const std::uint32_t length : {257U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    EXPECT_EQ(Decoded(With(FileReply(), 0, length)), "refused") << "length word " << length;
  }
  EXPECT_EQ(Decoded(With(DirectoryReply(), 0, std::uint32_t{111})), "refused");
  EXPECT_EQ(Decoded(WithoutReturnedSet(DirectoryReply(), 91), false), "refused");
  for (const std::size_t size : {124U, 132U}) {
    EXPECT_EQ(Decoded(With(FileReply(), size, std::int64_t{-1})), "refused") << "size at " << size;
  }
}

TEST(AttributeReplyTest, ReadsTheFinderFlagsAlone) {
  const Bytes reply = With(With(Bytes(40), 0, std::uint32_t{40}), 16, std::uint8_t{0x20});
  std::uint16_t flags = 1;
  EXPECT_TRUE(DecodeFinderReply(reply, flags) && flags == 0x2000);
  EXPECT_FALSE(DecodeFinderReply(With(reply, 0, std::uint32_t{39}), flags));
}
