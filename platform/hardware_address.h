#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace platform {

/// "xx-xx-xx-xx-xx-xx" in lower case.
std::string HardwareAddressText(const std::vector<std::uint8_t>& address);

/// The address in a BSD link-level socket address, "struct sockaddr_dl" of <net/if_dl.h>, whose texts lie behind each
/// other in a part of any length. Empty unless it has six bytes that lie within the bytes given.
std::vector<std::uint8_t> AddressInLinkSocket(std::span<const std::byte> socketAddress);

}  // namespace platform
