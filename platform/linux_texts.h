#pragma once

// Short texts and facts that the Linux kernel gives about the machine. Plain functions, so that they can be tested on
// every system.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine.h"

namespace platform {

/// "/proc/self/statm" of proc(5): the first two numbers are the total and the resident size in pages. Zeros for any
/// other text.
MemoryFigures ParseStatm(std::string_view text, std::uint64_t pageBytes);

/// One number as sysfs writes it, "1\n"; nothing for any other text.
std::optional<std::uint64_t> ParseKernelNumber(std::string_view text);

/// uname's machine name in the words of the architecture table: "arm64", "x86_64", "x86_32"; any other name stays as it
/// is.
std::string ArchitectureWord(std::string_view machine);

/// Decimal digits with "," between groups of three.
std::string GroupedInThrees(std::int64_t number);

/// One network interface.
struct InterfaceFacts {
  std::string name;
  std::uint32_t index = 0;
  std::vector<std::uint8_t> address;
  bool isEthernet = false;       ///< ARPHRD_ETHER; wireless interfaces count as such
  bool hasDevice = false;        ///< hardware stands behind it
  bool isRandomAddress = false;  ///< the kernel made the address up
};

/// The interface whose address identifies the machine: "en0" when there is one, else the first (by index) with hardware
/// behind it, else the first whose address was not made up. Only Ethernet addresses of six bytes that are not all zero
/// count. Null when none is left.
const InterfaceFacts* ChooseInterface(const std::vector<InterfaceFacts>& interfaces);

}  // namespace platform
