#include "platform/mac/mac_files.h"
#include "platform/mac/mac_machine.h"
#include "platform/mac/mac_volumes.h"
#include "platform/platform.h"

namespace platform {

Platform HostPlatform() {
  // Never destroyed: whatever still runs while the process ends may go on asking.
  static MacFiles* const files = new MacFiles;
  static MacVolumes* const volumes = new MacVolumes;
  static MacMachine* const machine = new MacMachine;
  return {files, volumes, machine};
}

}  // namespace platform
