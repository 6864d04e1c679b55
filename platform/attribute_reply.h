#pragma once

// What macOS answers to an attribute query about one entry, getattrlist(2): bytes in, plain values out. Own constants
// instead of the system's headers, so that every system can test it; the code that makes the call ties them to
// <sys/attr.h> and <sys/vnode.h>.

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/files.h"

namespace platform {

/// The length words of whole replies. A directory's reply has no file attributes, whatever was asked for.
inline constexpr std::size_t kFileReplyBytes = 140;
inline constexpr std::size_t kDirectoryReplyBytes = 112;
inline constexpr std::size_t kFinderReplyBytes = 40;
/// Every reply begins with its length; then, if asked for, the set of attributes that it really holds.
inline constexpr std::size_t kReplyLengthBytes = 4;
inline constexpr std::size_t kReturnedSetBytes = 20;

/// Bit of the common attributes in the returned set: ATTR_CMN_FNDRINFO.
inline constexpr std::uint32_t kCommonFinderInfo = 0x4000;

/// The object types that have a meaning here, <sys/vnode.h>.
enum class ObjectType : std::uint32_t {
  kRegular = 1,
  kDirectory = 2,
  kBlockDevice = 3,
  kCharacterDevice = 4,
  kSymbolicLink = 5,
  kSocket = 6,
  kFifo = 7,
};

/// A reply as far as its own length word says. Empty when that word is missing or tells of more than there is.
std::span<const std::byte> ReportedReply(std::span<const std::byte> buffer);

/// The reply to the query for object type, creation, modification and change time, Finder info, flags, link count,
/// total size, data length and resource length. `hasReturnedSet`: the set was asked for and stands in front; without
/// it (systems that lack it) everything lies 20 bytes earlier. Directories get sizes 0 and link count 1. False when
/// the reply is too short for its object type, the type is none of the seven or a size is negative; `attributes` is
/// unspecified then.
bool DecodeEntryReply(std::span<const std::byte> buffer, bool hasReturnedSet, EntryAttributes& attributes);

/// The reply to the query for object type and Finder info alone, without a returned set. False when too short.
bool DecodeFinderReply(std::span<const std::byte> buffer, std::uint16_t& finderFlags);

}  // namespace platform
