#include "platform/platform.h"

namespace platform {
namespace {

Platform& InForce() {
  static Platform current = HostPlatform();
  return current;
}

}  // namespace

Files& TheFiles() {
  return *InForce().files;
}
Volumes& TheVolumes() {
  return *InForce().volumes;
}
Machine& TheMachine() {
  return *InForce().machine;
}

Platform SetPlatform(const Platform& next) {
  Platform& current = InForce();
  const Platform former = current;
  if (next.files != nullptr) current.files = next.files;
  if (next.volumes != nullptr) current.volumes = next.volumes;
  if (next.machine != nullptr) current.machine = next.machine;
  return former;
}

}  // namespace platform
