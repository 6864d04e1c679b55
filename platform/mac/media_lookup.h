#pragma once

// The I/O registry's objects behind a volume: its medium, and what the medium lies on.

#include <string>
#include <vector>

#include "platform/volumes.h"

namespace platform {

/// The object behind a device name as a volume query gives it, then its ancestors in the service plane, nearest first.
/// No objects when there is none.
MediaWalk WalkMediaOf(const std::string& deviceName);

}  // namespace platform
