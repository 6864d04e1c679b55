#include "base/system_info.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/log.h"
#include "platform/platform.h"

const char* TqVersionString() {
  return TQ_VERSION;
}

namespace {

constexpr const char* kVersionPropertyList = "/System/Library/CoreServices/SystemVersion.plist";
constexpr std::string_view kOsTextPrefix = "MacOsX-";

std::unique_ptr<TqString>& CachedOsText() {
  static std::unique_ptr<TqString> text;
  return text;
}

TqString ReadOsText() {
  using platform::PropertyListStatus;
  std::string version;
  switch (platform::TheMachine().ReadProductVersion(kVersionPropertyList, version)) {
    case PropertyListStatus::kMissing:
    case PropertyListStatus::kUnsuitable:
      return "Macintosh_UNKNOWN_A";
    case PropertyListStatus::kUnreadable:
    case PropertyListStatus::kInvalid:
      return "Macintosh_UNKNOWN_B";
    case PropertyListStatus::kWrongType:
      return "Macintosh_UNKNOWN_C";
    case PropertyListStatus::kOk:
      break;
  }
  return version.empty() ? TqString("Macintosh_UNKNOWN_C") : Joined(kOsTextPrefix, version);
}

/// The numbers between the periods. False when a piece is no plain number.
bool ParseDottedVersion(std::string_view text, std::vector<std::int64_t>& numbers) {
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find('.', start), text.size());
    std::int64_t number = 0;
    if (!ParseInt64(text.substr(start, end - start), number) || number < 0) return false;
    numbers.push_back(number);
    start = end + 1;
  }
  return true;
}

constexpr std::int64_t kKilobyte = 1'024;
constexpr std::int64_t kMegabyte = 1'048'576;
constexpr std::int64_t kGigabyte = 1'073'741'824;

struct SizeUnit {
  std::int64_t bytes;
  std::string_view name;
};

constexpr SizeUnit kUnitBytes = {1, "Bytes"};
constexpr SizeUnit kUnitKilobytes = {kKilobyte, "KB"};
constexpr SizeUnit kUnitMegabytes = {kMegabyte, "MB"};
constexpr SizeUnit kUnitGigabytes = {kGigabyte, "GB"};

SizeUnit AutomaticUnit(std::int64_t bytes) {
  if (bytes >= kGigabyte) return kUnitGigabytes;
  if (bytes >= kMegabyte) return kUnitMegabytes;
  if (bytes >= kKilobyte) return kUnitKilobytes;
  return kUnitBytes;
}

SizeUnit UnitForMode(int unitMode, std::int64_t bytes) {
  switch (unitMode) {
    case 1:
      return AutomaticUnit(bytes);
    case 2:
      return kUnitBytes;
    case 3:
      return kUnitKilobytes;
    case 5:
      return kUnitGigabytes;
    default:
      return kUnitMegabytes;
  }
}

bool Query64BitHardware() {
  bool is64Bit = false;
  if (platform::TheMachine().Query64BitHardware(is64Bit)) return is64Bit;
  Log("Error getting hw.optional.x86_64 value");
  return false;
}

}  // namespace

namespace TqSystem {

int PlatformCode() {
  return kPlatformMac;
}

const TqString& OsDetailText() {
  std::unique_ptr<TqString>& cached = CachedOsText();
  if (!cached) cached = std::make_unique<TqString>(ReadOsText());
  return *cached;
}

bool OsVersionIsAtLeast(std::string_view dottedVersion) {
  const TqString& text = OsDetailText();
  std::vector<std::int64_t> present;
  std::vector<std::int64_t> wanted;
  if (!text.StartsWith(kOsTextPrefix)) return true;
  if (!ParseDottedVersion(text.View().substr(kOsTextPrefix.size()), present)) return true;
  if (!ParseDottedVersion(dottedVersion, wanted)) return true;
  present.resize(std::max(present.size(), wanted.size()), 0);
  wanted.resize(present.size(), 0);
  return present >= wanted;
}

void ForgetOsDetailText() {
  CachedOsText().reset();
}

int ProcessId() {
  return platform::TheMachine().ProcessId();
}

unsigned EffectiveUserId() {
  return platform::TheMachine().EffectiveUserId();
}

bool IsRoot() {
  return EffectiveUserId() == 0;
}

int MachineArchitecture() {
  const std::string name = platform::TheMachine().MachineName();
  if (name == "x86_64") return 1;
  if (name == "x86_32") return 2;
  if (name == "arm64") return 3;
  return 0;
}

bool IsTranslatedProcess() {
  return platform::TheMachine().IsTranslatedProcess();
}

bool Is64BitHardware() {
  static const bool answer = Query64BitHardware();
  return answer;
}

std::int64_t VirtualMemoryBytes() {
  return static_cast<std::int64_t>(platform::TheMachine().ProcessMemory().virtualBytes);
}

std::int64_t ResidentMemoryBytes() {
  return static_cast<std::int64_t>(platform::TheMachine().ProcessMemory().residentBytes);
}

std::int64_t HardwareMemoryBytes() {
  return static_cast<std::int64_t>(platform::TheMachine().HardwareMemoryBytes());
}

std::int64_t Megabytes(std::int64_t bytes) {
  return bytes / kMegabyte;
}

TqString HumanReadableSize(std::int64_t bytes, int unitMode) {
  const SizeUnit unit = UnitForMode(unitMode, bytes);
  return Joined(platform::TheMachine().GroupedNumber(bytes / unit.bytes), " ", unit.name);
}

TqString HostName() {
  std::string name;
  if (!platform::TheMachine().HostName(name)) return "unknown";
  const TqString host = LowerCased(std::string_view(name).substr(0, name.find('.')));
  return host.IsEmpty() ? TqString("unknown") : host;
}

std::int32_t RandomBelow(std::int32_t bound) {
  return static_cast<std::int32_t>(platform::TheMachine().RandomBelow(static_cast<std::uint32_t>(bound)));
}

}  // namespace TqSystem
