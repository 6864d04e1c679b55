#include "platform/mac/media_lookup.h"

#include <DiskArbitration/DiskArbitration.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/storage/IOCDMedia.h>
#include <IOKit/storage/IODVDMedia.h>
#include <IOKit/storage/IOMedia.h>

#include <optional>
#include <utility>

#include "platform/mac/cf_holder.h"
#include "platform/mac/io_holder.h"
#include "platform/mac_volume_rules.h"
#include "platform/platform.h"

namespace platform {
namespace {

// A registry that changes while it is walked ends the walk early: it is begun again so many times, when the change may
// be over.
constexpr int kWalkTries = 5;
constexpr std::int64_t kWalkPauseMicros = 50'000;

IoHolder FindByDeviceName(const std::string& name) {
  // The dictionary is not ours any more after the call, which takes its reference; null is allowed. MACH_PORT_NULL
  // means the default port and, unlike the constants for it, exists in every version of the system.
  return IoHolder(IOServiceGetMatchingService(MACH_PORT_NULL, IOBSDNameMatching(MACH_PORT_NULL, 0, name.c_str())));
}

IoHolder FindByDiskArbitration(const std::string& name) {
  const CfHolder<DASessionRef> session(DASessionCreate(kCFAllocatorDefault));
  if (!session) return {};
  const CfHolder<DADiskRef> disk(DADiskCreateFromBSDName(kCFAllocatorDefault, session.Get(), name.c_str()));
  return disk ? IoHolder(DADiskCopyIOMedia(disk.Get())) : IoHolder();
}

IoHolder FindMedium(const DeviceLookUp& lookUp) {
  switch (lookUp.way) {
    case DeviceLookUp::Way::kNone:
      return {};
    case DeviceLookUp::Way::kDeviceName:
      return FindByDeviceName(lookUp.name);
    case DeviceLookUp::Way::kDiskArbitration:
      break;
  }
  IoHolder medium = FindByDiskArbitration(lookUp.name);
  return medium ? std::move(medium) : FindByDeviceName(lookUp.fallbackName);
}

/// Nothing when the object lacks the property or has one of another type.
std::optional<bool> FlagOf(io_object_t object, CFStringRef key) {
  const CfHolder<CFTypeRef> value(IORegistryEntryCreateCFProperty(object, key, kCFAllocatorDefault, 0));
  const auto flag = CfCast<CFBooleanRef>(value.Get(), CFBooleanGetTypeID());
  if (flag == nullptr) return std::nullopt;
  return CFBooleanGetValue(flag) != 0;
}

RegistryFacts FactsOf(io_object_t object) {
  RegistryFacts facts;
  facts.isMedia = IOObjectConformsTo(object, kIOMediaClass) != 0;
  if (!facts.isMedia) return facts;
  facts.isCdMedia = IOObjectConformsTo(object, kIOCDMediaClass) != 0;
  facts.isDvdMedia = IOObjectConformsTo(object, kIODVDMediaClass) != 0;
  facts.whole = FlagOf(object, CFSTR(kIOMediaWholeKey));
  facts.writable = FlagOf(object, CFSTR(kIOMediaWritableKey));
  return facts;
}

/// Appends the ancestors of `object`. False when some may be missing: the registry changed meanwhile, or refused.
bool AppendAncestors(io_object_t object, std::vector<MediaObject>& objects) {
  IoHolder iterator;
  const IOOptionBits options = kIORegistryIterateRecursively | kIORegistryIterateParents;
  if (IORegistryEntryCreateIterator(object, kIOServicePlane, options, iterator.Receive()) != KERN_SUCCESS) return false;
  while (const IoHolder ancestor = IoHolder(IOIteratorNext(iterator.Get()))) {
    objects.push_back(MediaObjectOf(FactsOf(ancestor.Get())));
  }
  return IOIteratorIsValid(iterator.Get()) != 0;
}

}  // namespace

MediaWalk WalkMediaOf(const std::string& deviceName) {
  const DeviceLookUp lookUp = LookUpOf(deviceName);
  MediaWalk walk;
  walk.foundByDeviceName = lookUp.way == DeviceLookUp::Way::kDeviceName;
  const IoHolder medium = FindMedium(lookUp);
  if (!medium) return walk;
  for (int i = 0; i < kWalkTries; ++i) {
    std::vector<MediaObject> objects{MediaObjectOf(FactsOf(medium.Get()))};
    const bool isComplete = AppendAncestors(medium.Get(), objects);
    if (isComplete || objects.size() > walk.objects.size()) walk.objects = std::move(objects);
    if (isComplete) break;
    TheMachine().SleepMicros(kWalkPauseMicros);
  }
  return walk;
}

}  // namespace platform
