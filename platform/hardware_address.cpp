#include "platform/hardware_address.h"

#include "platform/byte_reader.h"

namespace platform {
namespace {

constexpr std::size_t kAddressBytes = 6;

// Offsets in the link-level socket address.
constexpr std::size_t kNameLength = 5;
constexpr std::size_t kAddressLength = 6;
constexpr std::size_t kTexts = 8;  // the interface's name, then its address

}  // namespace

std::string HardwareAddressText(const std::vector<std::uint8_t>& address) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : address) {
    if (!text.empty()) text.push_back('-');
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 15]);
  }
  return text;
}

std::vector<std::uint8_t> AddressInLinkSocket(std::span<const std::byte> socketAddress) {
  const ByteReader reader(socketAddress);
  std::uint8_t nameLength = 0;
  std::uint8_t addressLength = 0;
  std::uint8_t address[kAddressBytes];
  if (!reader.Read(kNameLength, nameLength) || !reader.Read(kAddressLength, addressLength)) return {};
  if (addressLength != kAddressBytes || !reader.Read(kTexts + nameLength, address)) return {};
  return {address, address + kAddressBytes};
}

}  // namespace platform
