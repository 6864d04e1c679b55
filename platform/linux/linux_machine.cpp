#include "platform/linux/linux_machine.h"

#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if_arp.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "platform/hardware_address.h"
#include "platform/linux/kernel_text.h"
#include "platform/linux_texts.h"
#include "platform/property_files.h"

namespace platform {
namespace {

// "addr_assign_type" of an interface whose address the kernel made up: NET_ADDR_RANDOM.
constexpr std::uint64_t kRandomAddress = 1;

std::uint64_t PageBytes() {
  return static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

/// `entry` is of the packet family: the interface itself instead of one of its network addresses.
InterfaceFacts FactsOf(const ifaddrs& entry) {
  sockaddr_ll link;
  std::memcpy(&link, entry.ifa_addr, sizeof link);
  InterfaceFacts facts;
  facts.name = entry.ifa_name;
  facts.index = static_cast<std::uint32_t>(link.sll_ifindex);
  facts.isEthernet = link.sll_hatype == ARPHRD_ETHER;
  if (link.sll_halen <= sizeof link.sll_addr) facts.address.assign(link.sll_addr, link.sll_addr + link.sll_halen);
  const std::string folder = "/sys/class/net/" + facts.name;
  facts.hasDevice = access((folder + "/device").c_str(), F_OK) == 0;
  std::string text;
  ReadKernelText((folder + "/addr_assign_type").c_str(), text);
  facts.isRandomAddress = ParseKernelNumber(text) == kRandomAddress;
  return facts;
}

}  // namespace

/// One locale on every Linux host, whatever its settings, so that texts read alike everywhere.
LocaleTexts LinuxMachine::DescribeLocale() {
  return {"en_US", "en_US", "May 27, 2021 at 12:34 PM", "12:34 PM", "May 27, 2021"};
}

/// In that locale, too.
std::string LinuxMachine::GroupedNumber(std::int64_t number) {
  return GroupedInThrees(number);
}

MemoryFigures LinuxMachine::ProcessMemory() {
  std::string text;
  ReadKernelText("/proc/self/statm", text);
  return ParseStatm(text, PageBytes());
}

std::uint64_t LinuxMachine::HardwareMemoryBytes() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  return pages > 0 ? static_cast<std::uint64_t>(pages) * PageBytes() : 0;
}

std::string LinuxMachine::MachineName() {
  utsname names;
  return uname(&names) == 0 ? ArchitectureWord(names.machine) : std::string();
}

bool LinuxMachine::Query64BitHardware(bool& is64Bit) {
  const std::string machine = MachineName();
  is64Bit = machine == "x86_64";
  return !machine.empty();
}

HardwareAddressStatus LinuxMachine::HardwareAddress(std::string& address) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return HardwareAddressStatus::kUnreadable;
  std::vector<InterfaceFacts> interfaces;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_PACKET) interfaces.push_back(FactsOf(*entry));
  }
  freeifaddrs(list);
  const InterfaceFacts* chosen = ChooseInterface(interfaces);
  if (chosen == nullptr) return HardwareAddressStatus::kNone;
  address = HardwareAddressText(chosen->address);
  return HardwareAddressStatus::kFound;
}

PropertyListStatus LinuxMachine::ReadProductVersion(const char* path, std::string& version) {
  PropertyValue list;
  const PropertyListStatus status = ReadPropertyDictionary(path, list);
  if (status == PropertyListStatus::kOk) version = ProductVersionIn(list);
  return status;
}

}  // namespace platform
