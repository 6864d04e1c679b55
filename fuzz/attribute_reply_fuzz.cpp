// The decoders of macOS's replies with arbitrary bytes: whatever comes, nothing is read outside, and what is accepted
// keeps the promises of the headers. The first byte of an input chooses the decoder, the rest is the reply.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "fuzz/fuzz_target.h"
#include "platform/attribute_reply.h"
#include "platform/hardware_address.h"
#include "platform/volume_reply.h"
#include "tests/platform/mac_replies.h"

namespace {

using namespace platform;
using Reply = std::span<const std::byte>;

void Promise(bool kept, const char* what) {
  if (kept) return;
  std::fprintf(stderr, "broken promise: %s\n", what);
  std::abort();
}

void TryEntry(Reply reply, bool hasReturnedSet) {
  EntryAttributes entry;
  if (!DecodeEntryReply(reply, hasReturnedSet, entry)) return;
  const std::size_t shortest = 80 - (hasReturnedSet ? 0 : kReturnedSetBytes);
  Promise(reply.size() >= shortest, "no reply below the shortest one is accepted");
  Promise(entry.dataSize >= 0 && entry.rsrcSize >= 0, "sizes are never negative");
  const bool isDirectory = entry.kind == EntryKind::kDirectory;
  Promise(!isDirectory || (entry.dataSize == 0 && entry.rsrcSize == 0 && entry.linkCount == 1),
          "directories have no sizes and one link");
}

void TryVolume(Reply reply) {
  VolumeAttributes volume;
  if (!DecodeVolumeReply(reply, volume)) return;
  Promise(reply.size() >= kVolumeReplyFixedBytes, "no reply below the fixed part is accepted");
  Promise(volume.deviceName.size() <= reply.size(), "a name is no longer than the reply");
  Promise(volume.deviceName.find('\0') == std::string::npos, "a name holds no NUL");
}

void Try(std::uint8_t decoder, Reply reply) {
  std::uint16_t finderFlags = 0;
  switch (decoder % 5) {
    case 0:
      return TryEntry(reply, true);
    case 1:
      return TryEntry(reply, false);
    case 2:
      return Promise(!DecodeFinderReply(reply, finderFlags) || reply.size() >= kFinderReplyBytes,
                     "no Finder reply below its size is accepted");
    case 3:
      return TryVolume(reply);
    default:
      const std::size_t bytes = AddressInLinkSocket(reply).size();
      return Promise(bytes == 0 || bytes == 6, "an address has six bytes");
  }
}

}  // namespace

std::vector<std::vector<std::uint8_t>> BuiltInInputs() {
  using namespace mac_replies;
  const std::pair<std::uint8_t, Bytes> all[] = {{0, FileReply()},
                                                {0, DirectoryReply()},
                                                {0, FileReplyWithoutFinderInfo()},
                                                {1, WithoutReturnedSet(FileReply(), 120)},
                                                {2, With(FileReply(), 0, std::uint32_t{40})},
                                                {3, VolumeReply("/dev/disk3s1s1")},
                                                {4, Bytes(20, std::byte{6})}};
  std::vector<std::vector<std::uint8_t>> inputs{{}};
  for (const auto& [decoder, reply] : all) {
    inputs.push_back({decoder});
    for (const std::byte byte : reply) inputs.back().push_back(static_cast<std::uint8_t>(byte));
  }
  return inputs;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // A copy of exactly this size, so that the address sanitizer sees every byte that is read beyond it.
  const auto reply = std::make_unique<std::byte[]>(size - 1);
  if (size > 1) std::memcpy(reply.get(), data + 1, size - 1);
  Try(data[0], Reply(reply.get(), size - 1));
  return 0;
}
