#include "platform/linux_texts.h"

#include <algorithm>
#include <charconv>

namespace platform {
namespace {

bool TakeNumber(std::string_view& text, std::uint64_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{}) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

bool HasAddress(const InterfaceFacts& interface) {
  const std::vector<std::uint8_t>& address = interface.address;
  return interface.isEthernet && address.size() == 6 &&
         std::any_of(address.begin(), address.end(), [](std::uint8_t byte) { return byte != 0; });
}

/// The usable interface with the lowest index among those that `isWanted` accepts.
template <typename Wanted>
const InterfaceFacts* Lowest(const std::vector<InterfaceFacts>& interfaces, Wanted isWanted) {
  const InterfaceFacts* lowest = nullptr;
  for (const InterfaceFacts& interface : interfaces) {
    if (!HasAddress(interface) || !isWanted(interface)) continue;
    if (lowest == nullptr || interface.index < lowest->index) lowest = &interface;
  }
  return lowest;
}

}  // namespace

MemoryFigures ParseStatm(std::string_view text, std::uint64_t pageBytes) {
  std::uint64_t total = 0;
  std::uint64_t resident = 0;
  if (!TakeNumber(text, total) || !text.starts_with(' ')) return {};
  text.remove_prefix(1);
  if (!TakeNumber(text, resident)) return {};
  return {total * pageBytes, resident * pageBytes};
}

std::optional<std::uint64_t> ParseKernelNumber(std::string_view text) {
  std::uint64_t number = 0;
  if (!TakeNumber(text, number)) return std::nullopt;
  if (!text.empty() && text != "\n") return std::nullopt;
  return number;
}

std::string ArchitectureWord(std::string_view machine) {
  if (machine == "aarch64" || machine == "arm64") return "arm64";
  const bool isIntel32 =
      machine.size() == 4 && machine[0] == 'i' && machine[1] >= '3' && machine[1] <= '6' && machine.substr(2) == "86";
  return isIntel32 ? "x86_32" : std::string(machine);
}

std::string GroupedInThrees(std::int64_t number) {
  std::string text = std::to_string(number);
  const std::size_t firstDigit = number < 0 ? 1 : 0;
  std::size_t groupAt = text.size();
  while (groupAt > firstDigit + 3) {
    groupAt -= 3;
    text.insert(groupAt, 1, ',');
  }
  return text;
}

const InterfaceFacts* ChooseInterface(const std::vector<InterfaceFacts>& interfaces) {
  const InterfaceFacts* chosen = Lowest(interfaces, [](const InterfaceFacts& one) { return one.name == "en0"; });
  if (chosen == nullptr) chosen = Lowest(interfaces, [](const InterfaceFacts& one) { return one.hasDevice; });
  if (chosen == nullptr) chosen = Lowest(interfaces, [](const InterfaceFacts& one) { return !one.isRandomAddress; });
  return chosen;
}

}  // namespace platform
