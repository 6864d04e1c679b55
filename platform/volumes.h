#pragma once

// What the program asks about volumes: the mounted ones, one volume's figures, the media behind it, the mount table.
// Facts only; which volume counts and what type it has is decided by the callers. Results are errno values, 0 for
// success.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// A failed property query of one mounted volume, in the system's own words; a missing text could not be had.
struct VolumePropertyError {
  std::optional<std::string> domain;
  std::int64_t code = 0;
  bool hasDescription = false;             ///< the system gave a description
  std::optional<std::string> description;  ///< ... and it could be converted to UTF-8
  bool hasReason = false;
  std::optional<std::string> reason;
};

struct MountedVolume {
  std::string path;  ///< mount point as the system spells it, without trailing "/" (but "/" itself)
  bool isLocal = false;
  bool isBrowsable = false;
  std::optional<VolumePropertyError> error;  ///< set: the other fields say nothing
};

struct VolumeAttributes {
  std::uint64_t totalBytes = 0;
  std::uint64_t freeBytes = 0;       ///< free for all users
  std::uint64_t availableBytes = 0;  ///< free for an ordinary user
  bool isLocal = false;
  bool isCaseSensitive = false;
  bool isCasePreserving = false;
  std::string deviceName;               ///< what is mounted, for example "/dev/disk2s1"
  std::array<std::uint8_t, 16> uuid{};  ///< all zero: the volume has none
};

/// One object on the way from a volume's device up to the root of the device tree.
struct MediaObject {
  bool isMedia = false;    ///< the other fields count only for media
  bool isOptical = false;  ///< CD or DVD media
  bool isWhole = false;
  bool isWritable = false;
};

struct MediaWalk {
  bool foundByDeviceName = false;  ///< looked up by the device's own name: only whole media count then
  std::vector<MediaObject> objects;
};

struct MountTableRow {
  std::string mountPoint;  ///< without trailing "/" (but "/" itself)
  std::string source;
  std::string type;
};

/// How reading a property list ended.
enum class PropertyListStatus : std::uint8_t {
  kOk,
  kMissing,     ///< no such file
  kUnsuitable,  ///< something is there, but it is no regular file, empty or too large
  kUnreadable,  ///< the file is there but cannot be opened or read
  kInvalid,     ///< not a property list
  kWrongType,   ///< a property list whose outermost value is not a dictionary
};

/// One value found under a destination's list of volume UUIDs.
struct DestinationValue {
  bool isText = false;  ///< false: a value of another type, `text` is empty
  std::string text;
};

class Volumes {
 public:
  virtual ~Volumes() = default;

  /// The mounted volumes, "/" first, in the system's order; on failure as many of them as were told.
  virtual int ListMountedVolumes(std::vector<MountedVolume>& volumes) = 0;
  /// Figures of the volume mounted at `mountPoint` (a trailing "/" is allowed). EINVAL when `mountPoint` is not itself
  /// a mounted directory, ENOENT when it is missing; "/" always answers.
  virtual int QueryVolume(const char* mountPoint, VolumeAttributes& attributes) = 0;
  /// The media objects behind a device name given by QueryVolume, nearest first; empty when there are none.
  virtual MediaWalk WalkMedia(const char* mountPoint, const std::string& deviceName) = 0;
  /// Mount points that a walk must not enter, by type: network shares the system shows as "smbfs" and pseudo file
  /// systems.
  virtual int ReadSkippedMounts(std::vector<MountTableRow>& rows) = 0;
  /// The values below "DestinationUUIDs" of every dictionary of the array "Destinations" in the property list at
  /// `path`.
  virtual PropertyListStatus ReadBackupDestinations(const char* path, std::vector<DestinationValue>& values) = 0;
};

}  // namespace platform
