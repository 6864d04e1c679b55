#pragma once

#include "platform/volumes.h"

namespace platform {

/// Linux's volumes: "/" and what is mounted on "/Volumes/<name>", as "/proc/self/mountinfo" tells at each call.
class LinuxVolumes final : public Volumes {
 public:
  int ListMountedVolumes(std::vector<MountedVolume>& volumes) override;
  int QueryVolume(const char* mountPoint, VolumeAttributes& attributes) override;
  MediaWalk WalkMedia(const char* mountPoint, const std::string& deviceName) override;
  int ReadSkippedMounts(std::vector<MountTableRow>& rows) override;
  PropertyListStatus ReadBackupDestinations(const char* path, std::vector<DestinationValue>& values) override;
};

}  // namespace platform
