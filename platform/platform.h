#pragma once

// The one process-wide set of platform objects. main sets the host's own at start-up; tests set a fake or a wrapper
// that forwards to another set and overrides one call.

#include "platform/files.h"
#include "platform/machine.h"
#include "platform/volumes.h"

namespace platform {

struct Platform {
  Files* files = nullptr;
  Volumes* volumes = nullptr;
  Machine* machine = nullptr;
};

/// The objects in force. Before SetPlatform these are the host's own.
Files& TheFiles();
Volumes& TheVolumes();
Machine& TheMachine();

/// Puts `next` in force and returns what was. Objects are borrowed: they must outlive their use. A null member keeps
/// the present object.
Platform SetPlatform(const Platform& next);

/// The host system's own objects (one implementation per system, chosen by the build); they live until the process
/// ends.
Platform HostPlatform();

}  // namespace platform
