#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "base/string.h"
#include "base/vector.h"

/// One volume: mount point, sizes, capabilities, type, identity and urgency. A new or reset record has the values given
/// here.
class TqVolumeInfo {
 public:
  TqVolumeInfo() = default;
  TqVolumeInfo(const TqVolumeInfo&) = delete;
  virtual ~TqVolumeInfo() = default;

  std::uint64_t numBytesFreeOnVolume = 0;  ///< available to an ordinary user
  std::uint64_t numBytesUsedOnVolume = 0;  ///< size less the bytes free for all users
  std::uint64_t numBytesTotalOnVolume = 0;
  std::int64_t lastTimeVolumeWasSeenAttachedGmtMillis = 0;
  bool volumeIsCurrentlyConnected = false;  ///< the attached-volume query filled the record
  bool volumeIsSelectedForBackup = false;
  char volumeType[3] = "un";  ///< "un" unknown, "gm" ordinary, "bc" holds Windows, "tm" Time Machine, "em" empty
  char vguid[29] = "";
  char associatedHguid[25] = "";
  TqString mountPointPath;
  bool isSystemVolume = false;
  bool isWritable = false;
  bool isCaseSensitive = false;
  bool isCasePreserving = false;
  std::array<std::uint8_t, 16> volumeUuid{};
  bool isLocalMount = false;
  std::int32_t defconLevel = -1;
  std::int32_t lastSeenInDays = -1;
  std::int32_t lastFileListedInDays = -1;
  std::int32_t lastFilePushedInDays = -1;
  std::int32_t reserved32[3] = {0, 0, 0};  ///< copied, read by nobody
  std::int64_t reserved64[3] = {0, 0, 0};

  void Reset();
  void CopyTo(TqVolumeInfo& destination) const;
  /// One object without blanks; the mount point goes in unescaped.
  void ToJson(TqString& json) const;

  bool IsType(std::string_view type) const { return type == volumeType; }
  void SetType(std::string_view type);             ///< cut to 2 characters
  void SetVguid(std::string_view text);            ///< kept only when it is one (IsVguid), else emptied
  void SetAssociatedHguid(std::string_view text);  ///< kept only at exactly 24 characters, else emptied
  /// Upper-case 8-4-4-4-12; empty for an all-zero UUID.
  TqString UuidText() const;

 private:
  TqVolumeInfo& operator=(const TqVolumeInfo&) = default;  // copies are asked for by name
};

/// Owning array of volume records; every slot below the capacity holds a constructed record that adding hands out
/// again.
class TqVolumeInfoList {
 public:
  TqVolumeInfoList() = default;
  TqVolumeInfoList(const TqVolumeInfoList&) = delete;
  TqVolumeInfoList& operator=(const TqVolumeInfoList&) = delete;
  virtual ~TqVolumeInfoList();

  std::int32_t Count() const { return count_; }
  std::int32_t Capacity() const { return capacity_; }
  /// Null when out of range.
  TqVolumeInfo* Get(std::int32_t index) const { return index >= 0 && index < count_ ? slots_[index] : nullptr; }
  /// The next record as it was left (overwrite or reset it); null when memory runs out.
  TqVolumeInfo* AddNew();
  bool AppendCopy(const TqVolumeInfo& record);
  void RemoveAt(std::int32_t index);
  void Clear() { count_ = 0; }
  /// `path` is reduced to its mount point and compared exactly.
  bool ContainsMountPoint(std::string_view path) const;
  /// The first record with that vguid (exact), or null.
  TqVolumeInfo* FindVguid(std::string_view vguid) const;
  /// Ascending by mount point (signed bytes), then vguid, then former position.
  void SortForDisplay();

  TqVolumeInfo* const* begin() const { return slots_; }
  TqVolumeInfo* const* end() const { return slots_ + count_; }

 private:
  bool EnsureSlots(std::int32_t need);

  std::int32_t count_ = 0;
  std::int32_t capacity_ = 0;
  TqVolumeInfo** slots_ = nullptr;
};

inline constexpr std::int32_t kHguidLength = 24;
/// Length of a per-volume list's file name: a vguid, "_", the tag's four characters, "_filelist.dat".
inline constexpr std::int32_t kListNameLength = 46;

namespace TqFile {

/// The mount point a path lies on: "/Volumes/" (any case) plus the next component plus "/", else "/". Always ends in
/// "/". The mount point of exactly "/Volumes/" is "/".
TqString GetVolumePathOfDir(std::string_view path);
/// "/" alone.
bool IsSystemVolume(std::string_view path);
/// `path` with a "/" at its end.
TqString WithTrailingSlash(std::string_view path);

/// The four characters that name a volume in its list's file name, from any directory on it: "root" for "/", else the
/// mount point's last component, folded and padded. Bytes of a name that is no valid UTF-8 once cut become "_".
TqString ListNameTag(std::string_view directory);
/// <data>/tqfilelists/<vguid>_<tag>_filelist.dat
TqString PerVolumeListPath(std::string_view vguid, std::string_view directory);

}  // namespace TqFile
