#pragma once

#include "platform/descriptor.h"

namespace TqUiUtil {

/// Keeps other processes from changing the volume registry while one of these lives: two assignments at once would give
/// one short id, or even one vguid, to two volumes, and one would write over the other's line. May be nested. It is the
/// system's lock on the data folder itself, so that no file is left and a killed process holds nothing. Whoever does
/// not get it within five seconds goes on without (logged); so does, silently, who has no data folder.
class RegistryLock {
 public:
  RegistryLock();
  ~RegistryLock() { --depth_; }
  RegistryLock(const RegistryLock&) = delete;
  RegistryLock& operator=(const RegistryLock&) = delete;

 private:
  static inline int depth_ = 0;
  platform::Descriptor folder_;
};

}  // namespace TqUiUtil
