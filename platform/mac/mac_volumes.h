#pragma once

#include "platform/volumes.h"

namespace platform {

/// macOS's volumes, as the mounted-volume enumerator, getattrlist(2), the I/O registry and the mount table tell at each
/// call.
class MacVolumes final : public Volumes {
 public:
  int ListMountedVolumes(std::vector<MountedVolume>& volumes) override;
  int QueryVolume(const char* mountPoint, VolumeAttributes& attributes) override;
  MediaWalk WalkMedia(const char* mountPoint, const std::string& deviceName) override;
  int ReadSkippedMounts(std::vector<MountTableRow>& rows) override;
  PropertyListStatus ReadBackupDestinations(const char* path, std::vector<DestinationValue>& values) override;
};

}  // namespace platform
