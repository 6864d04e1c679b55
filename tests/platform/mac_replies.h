#pragma once

// Replies as macOS's kernel packs them, from the offsets that getattrlist(2) and the kernel's sources give for 64-bit
// processes. Written down apart from the decoders' own arithmetic.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace mac_replies {

using Bytes = std::vector<std::byte>;

template <typename Field>
void Put(Bytes& bytes, std::size_t offset, Field value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

template <typename Field>
Bytes With(Bytes bytes, std::size_t offset, Field value) {
  Put(bytes, offset, value);
  return bytes;
}

/// A whole reply about one file in a buffer of 256 bytes; what follows its 140 is filled with ones.
inline Bytes FileReply(std::uint32_t objectType = 1) {
  Bytes reply(256, std::byte{0xFF});
  std::memset(reply.data(), 0, 140);
  Put(reply, 0, std::uint32_t{140});
  Put(reply, 4, std::uint32_t{0x80044E08});  // the returned set's common attributes, Finder info among them
  Put(reply, 24, objectType);
  Put(reply, 28, std::int64_t{1'600'000'001});  // created
  Put(reply, 36, std::int64_t{5});
  Put(reply, 44, std::int64_t{1'700'000'002});  // modified
  Put(reply, 60, std::int64_t{1'800'000'003});  // changed
  Put(reply, 84, std::uint8_t{0xA0});           // Finder flags, big-endian
  Put(reply, 85, std::uint8_t{0x04});
  Put(reply, 108, std::uint32_t{0x40000000});  // flags: content not on this disk
  Put(reply, 112, std::uint32_t{3});           // links
  Put(reply, 116, std::int64_t{999});          // total size
  Put(reply, 124, std::int64_t{5'000'000'000});
  Put(reply, 132, std::int64_t{77});
  return reply;
}

/// A directory's reply ends after the flags; the buffer behind it stays as it was.
inline Bytes DirectoryReply() {
  Bytes reply = FileReply(2);
  Put(reply, 0, std::uint32_t{112});
  std::memset(reply.data() + 112, 0xFF, reply.size() - 112);
  return reply;
}

/// Moves everything behind `at` forward by `count` bytes, as when the kernel packs less in front of it.
inline Bytes Without(Bytes reply, std::size_t at, std::size_t count) {
  const auto first = reply.begin() + static_cast<std::ptrdiff_t>(at);
  reply.erase(first, first + static_cast<std::ptrdiff_t>(count));
  reply.resize(256, std::byte{0});
  return reply;
}
/// The kernel leaves Finder info that it failed to read out, and its length word does not tell.
inline Bytes FileReplyWithoutFinderInfo() {
  return With(Without(FileReply(), 76, 32), 4, std::uint32_t{0x80040E08});
}
inline Bytes WithoutReturnedSet(const Bytes& reply, std::uint32_t length) {
  return With(Without(reply, 4, 20), 0, length);
}

inline Bytes VolumeReply(std::string_view device) {
  const std::size_t length = 108 + (device.size() + 4) / 4 * 4;
  Bytes reply(length, std::byte{0});
  Put(reply, 0, static_cast<std::uint32_t>(length));
  Put(reply, 8, std::uint32_t{0x6C01C});  // all volume attributes that are decoded
  Put(reply, 24, std::uint64_t{1'000'000});
  Put(reply, 32, std::uint64_t{600'000});
  Put(reply, 40, std::uint64_t{500'000});
  Put(reply, 48, std::uint32_t{0x00101000});
  Put(reply, 52, std::int32_t{56});
  Put(reply, 56, static_cast<std::uint32_t>(device.size() + 1));
  Put(reply, 60, std::uint32_t{0x300});
  Put(reply, 76, std::uint32_t{0x300});
  for (std::size_t i = 0; i < 16; ++i) Put(reply, 92 + i, static_cast<std::uint8_t>(i + 1));
  std::memcpy(reply.data() + 108, device.data(), device.size());
  return reply;
}

}  // namespace mac_replies
