#include "platform/mac/mac_machine.h"

#include <ifaddrs.h>
#include <mach/mach.h>
#include <net/if_dl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/sysctl.h>
#include <sys/utsname.h>

#include <cstring>
#include <memory>
#include <span>

#include "platform/hardware_address.h"
#include "platform/mac/cf_values.h"
#include "platform/mac/locale_texts.h"
#include "platform/property_files.h"

namespace platform {
namespace {

constexpr const char* kVersionKeys[] = {"ProductVersion"};
/// The interface whose address identifies the machine.
constexpr const char* kMainInterface = "en0";

/// An integer of the kernel's state; false when this kernel has none of that name.
bool ReadKernelInteger(const char* name, int& number) {
  std::size_t bytes = sizeof number;
  return sysctlbyname(name, &number, &bytes, nullptr, 0) == 0 && bytes == sizeof number;
}

bool IsMainInterface(const ifaddrs& entry) {
  return entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == AF_LINK && entry.ifa_name != nullptr &&
         std::strcmp(entry.ifa_name, kMainInterface) == 0;
}

std::vector<std::uint8_t> AddressOf(const ifaddrs& entry) {
  static_assert(offsetof(sockaddr_dl, sdl_nlen) == 5 && offsetof(sockaddr_dl, sdl_data) == 8);
  // The address tells its own length, which exceeds that of the declared type when the name is long.
  return AddressInLinkSocket({reinterpret_cast<const std::byte*>(entry.ifa_addr), entry.ifa_addr->sa_len});
}

}  // namespace

LocaleTexts MacMachine::DescribeLocale() {
  return CurrentLocaleTexts();
}

std::string MacMachine::GroupedNumber(std::int64_t number) {
  return DecimalText(number);
}

void MacMachine::RestrictSideEffects() {
  // The policies are inherited from whoever started the process, so they are set whatever the system's default is. A
  // kernel that does not know one has no such effect to restrict: failures mean nothing.
  setiopolicy_np(IOPOL_TYPE_VFS_MATERIALIZE_DATALESS_FILES, IOPOL_SCOPE_PROCESS, IOPOL_MATERIALIZE_DATALESS_FILES_OFF);
  setiopolicy_np(IOPOL_TYPE_VFS_TRIGGER_RESOLVE, IOPOL_SCOPE_PROCESS, IOPOL_VFS_TRIGGER_RESOLVE_OFF);
}

MemoryFigures MacMachine::ProcessMemory() {
  mach_task_basic_info info{};
  mach_msg_type_number_t count = MACH_TASK_BASIC_INFO_COUNT;
  const kern_return_t result =
      task_info(mach_task_self(), MACH_TASK_BASIC_INFO, reinterpret_cast<task_info_t>(&info), &count);
  if (result != KERN_SUCCESS) return {};
  return {info.virtual_size, info.resident_size};
}

std::uint64_t MacMachine::HardwareMemoryBytes() {
  int name[] = {CTL_HW, HW_MEMSIZE};
  std::uint64_t memory = 0;
  std::size_t bytes = sizeof memory;
  return sysctl(name, std::size(name), &memory, &bytes, nullptr, 0) == 0 && bytes == sizeof memory ? memory : 0;
}

std::string MacMachine::MachineName() {
  utsname names;
  return uname(&names) == 0 ? names.machine : std::string();
}

bool MacMachine::IsTranslatedProcess() {
  int isTranslated = 0;
  return ReadKernelInteger("sysctl.proc_translated", isTranslated) && isTranslated == 1;
}

bool MacMachine::Query64BitHardware(bool& is64Bit) {
  int has64Bit = 0;
  if (!ReadKernelInteger("hw.optional.x86_64", has64Bit)) return false;
  is64Bit = has64Bit == 1;
  return true;
}

HardwareAddressStatus MacMachine::HardwareAddress(std::string& address) {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) return HardwareAddressStatus::kUnreadable;
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> list(first, freeifaddrs);
  for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    if (!IsMainInterface(*entry)) continue;
    const std::vector<std::uint8_t> bytes = AddressOf(*entry);
    if (bytes.empty()) continue;
    address = HardwareAddressText(bytes);
    return HardwareAddressStatus::kFound;
  }
  return HardwareAddressStatus::kNone;
}

PropertyListStatus MacMachine::ReadProductVersion(const char* path, std::string& version) {
  PropertyValue list;
  const PropertyListStatus status = ReadPropertyDictionary(path, kVersionKeys, list);
  if (status == PropertyListStatus::kOk) version = ProductVersionIn(list);
  return status;
}

}  // namespace platform
