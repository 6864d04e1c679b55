#include "platform/linux/linux_files.h"
#include "platform/linux/linux_machine.h"
#include "platform/linux/linux_volumes.h"
#include "platform/platform.h"

namespace platform {

Platform HostPlatform() {
  // Never destroyed: whatever still runs while the process ends may go on asking.
  static LinuxFiles* const files = new LinuxFiles;
  static LinuxVolumes* const volumes = new LinuxVolumes;
  static LinuxMachine* const machine = new LinuxMachine;
  return {files, volumes, machine};
}

}  // namespace platform
