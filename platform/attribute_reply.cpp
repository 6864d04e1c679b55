#include "platform/attribute_reply.h"

#include "platform/byte_reader.h"

namespace platform {
namespace {

// The attributes lie back to back in this order, aligned to 4 bytes only; a time is two 8-byte words.
constexpr std::size_t kTypeBytes = 4;
constexpr std::size_t kTimeBytes = 16;
constexpr std::size_t kFinderInfoBytes = 32;
constexpr std::size_t kFlagsBytes = 4;
constexpr std::size_t kFlagsInFinderInfo = 8;  // file and folder info both have their flags word there

/// Where the fields of an entry's reply lie.
struct EntryLayout {
  std::size_t type;
  std::size_t createTime;
  std::size_t modTime;
  std::size_t finderInfo;
  std::size_t flags;
  std::size_t linkCount;
  std::size_t dataLength;
  std::size_t rsrcLength;
  std::size_t endOfCommon;
};

constexpr EntryLayout LayoutOf(bool hasReturnedSet, bool hasFinderInfo) {
  EntryLayout layout{};
  layout.type = kReplyLengthBytes + (hasReturnedSet ? kReturnedSetBytes : 0);
  layout.createTime = layout.type + kTypeBytes;
  layout.modTime = layout.createTime + kTimeBytes;
  layout.finderInfo = layout.modTime + 2 * kTimeBytes;  // the change time lies between
  layout.flags = layout.finderInfo + (hasFinderInfo ? kFinderInfoBytes : 0);
  layout.endOfCommon = layout.flags + kFlagsBytes;
  layout.linkCount = layout.endOfCommon;
  layout.dataLength = layout.linkCount + 4 + 8;  // the total size lies between
  layout.rsrcLength = layout.dataLength + 8;
  return layout;
}
static_assert(LayoutOf(true, true).endOfCommon == kDirectoryReplyBytes);
static_assert(LayoutOf(true, true).rsrcLength + 8 == kFileReplyBytes);

bool KindOf(std::uint32_t type, EntryKind& kind) {
  switch (static_cast<ObjectType>(type)) {
    case ObjectType::kRegular:
      kind = EntryKind::kRegular;
      return true;
    case ObjectType::kDirectory:
      kind = EntryKind::kDirectory;
      return true;
    case ObjectType::kBlockDevice:
      kind = EntryKind::kBlockDevice;
      return true;
    case ObjectType::kCharacterDevice:
      kind = EntryKind::kCharacterDevice;
      return true;
    case ObjectType::kSymbolicLink:
      kind = EntryKind::kSymbolicLink;
      return true;
    case ObjectType::kSocket:
      kind = EntryKind::kSocket;
      return true;
    case ObjectType::kFifo:
      kind = EntryKind::kFifo;
      return true;
  }
  return false;
}

/// The flags word is big-endian on every machine: it comes from the disk as it is.
bool ReadFinderFlags(const ByteReader& reply, std::size_t finderInfo, std::uint16_t& flags) {
  std::uint8_t high = 0;
  std::uint8_t low = 0;
  const std::size_t at = finderInfo + kFlagsInFinderInfo;
  if (!reply.Read(at, high) || !reply.Read(at + 1, low)) return false;
  flags = static_cast<std::uint16_t>(high << 8 | low);
  return true;
}

bool ReadCommon(const ByteReader& reply, const EntryLayout& layout, bool hasFinderInfo, EntryAttributes& attributes) {
  std::uint32_t type = 0;
  if (reply.Size() < layout.endOfCommon) return false;
  return reply.Read(layout.type, type) && KindOf(type, attributes.kind) &&
         reply.Read(layout.createTime, attributes.createTimeSec) &&
         reply.Read(layout.createTime + 8, attributes.createTimeNsec) &&
         reply.Read(layout.modTime, attributes.modTimeSec) &&
         (!hasFinderInfo || ReadFinderFlags(reply, layout.finderInfo, attributes.finderFlags));
}

bool ReadFilePart(const ByteReader& reply, const EntryLayout& layout, EntryAttributes& attributes) {
  return reply.Read(layout.linkCount, attributes.linkCount) && reply.Read(layout.dataLength, attributes.dataSize) &&
         reply.Read(layout.rsrcLength, attributes.rsrcSize) && attributes.dataSize >= 0 && attributes.rsrcSize >= 0;
}

}  // namespace

std::span<const std::byte> ReportedReply(std::span<const std::byte> buffer) {
  std::uint32_t length = 0;
  if (!ByteReader(buffer).Read(0, length) || length > buffer.size()) return {};
  return buffer.first(length);
}

bool DecodeEntryReply(std::span<const std::byte> buffer, bool hasReturnedSet, EntryAttributes& attributes) {
  const ByteReader reply(ReportedReply(buffer));
  attributes = EntryAttributes{};
  std::uint32_t commonSet = kCommonFinderInfo;
  if (hasReturnedSet && !reply.Read(kReplyLengthBytes, commonSet)) return false;
  // The kernel packs zeros for what an entry lacks, with one exception: Finder info that it failed to read (an
  // unreadable companion file, for example) is left out, and what follows moves up. The length word does not tell.
  const bool hasFinderInfo = (commonSet & kCommonFinderInfo) != 0;
  const EntryLayout layout = LayoutOf(hasReturnedSet, hasFinderInfo);
  if (!ReadCommon(reply, layout, hasFinderInfo, attributes)) return false;
  return attributes.kind == EntryKind::kDirectory || ReadFilePart(reply, layout, attributes);
}

bool DecodeFinderReply(std::span<const std::byte> buffer, std::uint16_t& finderFlags) {
  const ByteReader reply(ReportedReply(buffer));
  return reply.Size() >= kFinderReplyBytes && ReadFinderFlags(reply, kReplyLengthBytes + kTypeBytes, finderFlags);
}

}  // namespace platform
