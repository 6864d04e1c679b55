#include "volumes/volume_query.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/log.h"
#include "platform/platform.h"
#include "volumes/volume_identity.h"

namespace TqFile {
namespace {

constexpr std::string_view kInfoPrefix = "ERROR: TqFile::GetInfoAboutAttachedVolume, ";
constexpr const char* kBackupPreferences = "/Library/Preferences/com.apple.TimeMachine.plist";
constexpr std::size_t kUuidTextLength = 36;

/// Stops at the first name that a user put there.
class EmptyRootVisitor : public platform::EntryVisitor {
 public:
  bool OnEntry(std::string_view name, int /*queryErrno*/, const platform::EntryAttributes& /*attributes*/) override {
    static constexpr std::string_view kIgnored[] = {"autorun.inf", "system volume information", "$recycle.bin",
                                                    "$recycler", "recycled"};
    const bool ignored = name.starts_with('.') ||
                         std::ranges::any_of(kIgnored, [&](auto other) { return EqualsIgnoreCase(name, other); });
    isEmpty = isEmpty && ignored;
    return ignored;
  }
  bool isEmpty = true;
};

/// Also true for a root that cannot be opened, but not when privacy protection is what keeps its names back, nor when
/// reading it stopped midway: nothing is known of the rest.
bool RootHoldsNothing(const TqString& mountPoint) {
  EmptyRootVisitor visitor;
  const platform::ListResult result = platform::TheFiles().ListDirectory(mountPoint.c_str(), visitor);
  const int error = result.openErrno != 0 ? result.openErrno : result.readErrno;
  NotePrivacyDenial(error, mountPoint);
  return visitor.isEmpty && result.readErrno == 0 && !platform::TheFiles().IsPrivacyDenial(error);
}

TqString UpperCased(std::string_view text) {
  TqString upper(text);
  for (std::int32_t i = 0; i < upper.Length(); ++i) {
    const char c = upper.CharAt(i);
    if (c >= 'a' && c <= 'z') upper.SetCharAt(i, static_cast<char>(c - 'a' + 'A'));
  }
  return upper;
}

bool IsAutomountPath(std::string_view path) {
  // Plain prefixes on purpose: everything below the automounter's folders is left alone, whatever it is called.
  return EqualsIgnoreCase(path, "/volumes") || StartsWithIgnoreCase(path, "/net") ||
         StartsWithIgnoreCase(path, "/home");
}

void FillFromAttributes(const platform::VolumeAttributes& attributes, TqVolumeInfo& volume) {
  volume.numBytesTotalOnVolume = attributes.totalBytes;
  volume.numBytesFreeOnVolume = attributes.availableBytes;
  volume.numBytesUsedOnVolume = attributes.totalBytes - std::min(attributes.freeBytes, attributes.totalBytes);
  volume.isCaseSensitive = attributes.isCaseSensitive;
  volume.isCasePreserving = attributes.isCasePreserving;
  volume.volumeUuid = attributes.uuid;
  volume.isLocalMount = attributes.isLocal;
  volume.lastTimeVolumeWasSeenAttachedGmtMillis = TqSystem::NowGmtMillis();
  volume.volumeIsCurrentlyConnected = true;
}

bool IsBackupVolume(const TqVolumeInfo& volume) {
  TqStringVector uuids;
  GetBackupVolumeUuids(uuids);
  if (uuids.Count() == 0) {
    return !IsSystemVolume(volume.mountPointPath) && IsDirectory(Joined(volume.mountPointPath, "Backups.backupdb"));
  }
  return uuids.Find(volume.UuidText()) >= 0;
}

void DecideType(const platform::VolumeAttributes& attributes, TqVolumeInfo& volume) {
  if (volume.isLocalMount) {
    const platform::MediaWalk walk =
        platform::TheVolumes().WalkMedia(volume.mountPointPath.c_str(), attributes.deviceName);
    TakeTypeFromMedia(walk, IsDirectory(Joined(volume.mountPointPath, "Windows/System32")), volume);
  }
  if (IsBackupVolume(volume)) volume.SetType("tm");
  if (volume.IsType("gm") && RootHoldsNothing(volume.mountPointPath)) volume.SetType("em");
}

}  // namespace

void TakeTypeFromMedia(const platform::MediaWalk& walk, bool holdsWindows, TqVolumeInfo& volume) {
  for (const platform::MediaObject& object : walk.objects) {
    if (!object.isMedia || object.isOptical || (walk.foundByDeviceName && !object.isWhole)) continue;
    if (volume.IsType("un")) volume.SetType(holdsWindows ? "bc" : "gm");
    volume.isWritable = object.isWritable;  // the outermost medium has the last word
  }
}

bool GetInfoAboutAttachedVolume(TqString* path, TqVolumeInfo* volume) {
  if (path == nullptr || volume == nullptr) {
    Log(kInfoPrefix, "NULL argument");
    return false;
  }
  volume->Reset();
  if (path->Length() > 4 && (path->EndsWith("/") || path->EndsWith("\\"))) path->Truncate(path->Length() - 1);
  if (!path->StartsWith("/")) {
    Log(kInfoPrefix, "Invalid mount point ", *path);
    if (!path->IsEmpty()) *path = WithTrailingSlash(*path);  // an empty text must never become "/"
    return false;
  }
  if (IsAutomountPath(*path)) return true;
  *path = GetVolumePathOfDir(*path);
  platform::VolumeAttributes attributes;
  const int error = platform::TheVolumes().QueryVolume(path->c_str(), attributes);
  if (error != 0) {
    Log(kInfoPrefix, "getattrlist returned errno=", error);
    return false;
  }
  volume->mountPointPath = *path;
  FillFromAttributes(attributes, *volume);
  DecideType(attributes, *volume);
  volume->isSystemVolume = IsSystemVolume(*path);
  ReadVolumeIdentity(*volume);
  return true;
}

bool GetBackupVolumeUuids(TqStringVector& uuids) {
  using platform::PropertyListStatus;
  uuids.Clear();
  std::vector<platform::DestinationValue> values;
  switch (platform::TheVolumes().ReadBackupDestinations(kBackupPreferences, values)) {
    case PropertyListStatus::kOk:
      break;
    case PropertyListStatus::kMissing:
      return true;
    case PropertyListStatus::kUnsuitable:
    case PropertyListStatus::kUnreadable:
      Log("ERROR: Could not create Core Foundation data object.");
      return false;
    case PropertyListStatus::kInvalid:
      Log("ERROR: GetBackupVolumeUuids() - Invalid property list detected.");
      return false;
    case PropertyListStatus::kWrongType:
      Log("ERROR: GetBackupVolumeUuids() - Expected a dictionary but got something else.");
      return false;
  }
  for (const platform::DestinationValue& value : values) {
    if (!value.isText) {
      Log("INFO: GetBackupVolumeUuids() - Unexpected CFType found.");
    } else if (value.text.size() != kUuidTextLength) {
      Log("ERROR: GetBackupVolumeUuids() - Failed to copy c string representation of UUID.");
    } else {
      uuids.Add(UpperCased(value.text));
    }
  }
  return true;
}

}  // namespace TqFile

namespace TqUiUtil {
namespace {

std::string_view TextOr(const std::optional<std::string>& text, std::string_view replacement) {
  return text ? std::string_view(*text) : replacement;
}

void LogPropertyError(const platform::VolumePropertyError& error) {
  Log("Error: CFURLCopyResourcePropertiesForKeys() returned an error:");
  Log("Error domain: ", TextOr(error.domain, " unknown because query returned null. A"));
  Log("Error code: ", error.code);
  Log("Error description: ", error.hasDescription ? TextOr(error.description, " unknown because query returned null. C")
                                                  : " unknown because query returned null. B");
  Log("Error reason: ", error.hasReason ? TextOr(error.reason, " unknown because query returned null. E")
                                        : " unknown because query returned null. D");
}

}  // namespace

bool QueryAllAttachedVolumesForVolumeInfo(TqVolumeInfoList* list) {
  if (list == nullptr) return false;
  list->Clear();
  std::vector<platform::MountedVolume> mounted;
  const int error = platform::TheVolumes().ListMountedVolumes(mounted);
  if (error != 0)
    Log("ERROR: TqUiUtil::QueryAllAttachedVolumesForVolumeInfo - could not list the mounted volumes, errno=", error);
  TqVolumeInfo volume;
  for (const platform::MountedVolume& candidate : mounted) {
    if (candidate.error) LogPropertyError(*candidate.error);
    if (candidate.error || !candidate.isLocal || !candidate.isBrowsable) continue;
    // With the "/" that the query takes off: a name's own backslash at the end would go for one.
    TqString path = TqFile::WithTrailingSlash(candidate.path);
    if (!TqFile::GetInfoAboutAttachedVolume(&path, &volume)) {
      Log("WARNING: R9File::QueryAllAttachedVolumesForVolumeInfo - could not get any info about mac volume: ",
          candidate.path);
    } else if (!list->ContainsMountPoint(volume.mountPointPath)) {
      list->AppendCopy(volume);
    }
  }
  return true;
}

}  // namespace TqUiUtil
