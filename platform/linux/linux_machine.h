#pragma once

#include "platform/posix/posix_machine.h"

namespace platform {

class LinuxMachine final : public PosixMachine {
 public:
  LocaleTexts DescribeLocale() override;
  std::string GroupedNumber(std::int64_t number) override;
  /// Nothing to do: each query and listing already says that it wants no automount.
  void RestrictSideEffects() override {}
  MemoryFigures ProcessMemory() override;
  std::uint64_t HardwareMemoryBytes() override;
  std::string MachineName() override;
  bool IsTranslatedProcess() override { return false; }
  bool Query64BitHardware(bool& is64Bit) override;
  HardwareAddressStatus HardwareAddress(std::string& address) override;
  PropertyListStatus ReadProductVersion(const char* path, std::string& version) override;
};

}  // namespace platform
