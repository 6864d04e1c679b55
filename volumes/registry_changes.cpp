// Changes to the registry: new vguids, volumes added, the refresh from the attached volumes.

#include <algorithm>
#include <charconv>
#include <string>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/system_info.h"
#include "base/text_codec.h"
#include "base/xml_snippets.h"
#include "platform/platform.h"
#include "volumes/registry_lock.h"
#include "volumes/retry.h"
#include "volumes/volume_identity.h"
#include "volumes/volume_query.h"
#include "volumes/volume_registry.h"

namespace TqUiUtil {
namespace {

using TqFile::GetAllXmlSnippetsWithTagNameInXml;
using TqFile::GetUniqueStrAttrFromXmlSnippet;

constexpr std::string_view kAdder = "ERROR: TqUiUtil::TqVolumesXml_AddNewTqVolumeGuid - ";
constexpr std::string_view kAssigner = "ERROR: TqUiUtil::TqVolumesXml_AssignNewTqVolumeGuidToVolume - ";
constexpr std::string_view kRefresher = "ERROR: TqUiUtil::TqVolumesXml_QueryAttachDrives_UpdateTqVolXml - ";
constexpr std::string_view kFirstShortId = "001";

/// Puts a registry that cannot be read aside, so that writing a new one destroys nothing. True when the name is free.
bool SetDamagedRegistryAside() {
  const TqString path = TqVolumesXmlPath();
  return !TqFile::Exists(path) || TqFile::AtomicMoveFile(path, Joined(path, ".damaged"));
}

// --- New vguids ---

TqString machineDigits;  ///< 12 hex digits of the hardware address; empty until first needed
std::int64_t lastGuidMillis = 0;

TqString RandomMachineDigits() {
  constexpr std::int32_t kBound = 100'000'000;
  TqString digits;
  for (int i = 0; i < 3; ++i) digits.AppendInt32(TqSystem::RandomBelow(kBound));
  digits.Append("1234567890");
  digits.Truncate(12);
  return digits;
}

const TqString& MachineDigits() {
  if (!machineDigits.IsEmpty()) return machineDigits;
  std::string address;
  const platform::HardwareAddressStatus status = platform::TheMachine().HardwareAddress(address);
  if (status == platform::HardwareAddressStatus::kNone) address = "00-00-00-00-00-00";
  if (status == platform::HardwareAddressStatus::kUnreadable) address.clear();
  machineDigits = LowerCased(address);
  machineDigits.ReplaceAll("-", "");
  if (machineDigits.Length() != 12) machineDigits = RandomMachineDigits();
  return machineDigits;
}

/// Twelve hex digits of the time, least significant byte first; another value on every call.
TqString TimeDigits() {
  std::int64_t now = TqSystem::NowGmtMillis();
  if (now == lastGuidMillis) {
    TqSystem::SleepMillis(2);
    now = TqSystem::NowGmtMillis();
  }
  lastGuidMillis = now;
  TqString digits;
  for (int shift = 0; shift < 48; shift += 8) digits.AppendHex(static_cast<std::uint64_t>(now >> shift) & 0xFF, 2);
  return digits;
}

TqString NewGuidBody() {
  const TqString& machine = MachineDigits();
  const TqString time = TimeDigits();
  TqString body;
  for (std::int32_t i = 0; i < 12; ++i) AppendAll(body, time.CharAt(i), machine.CharAt(i));
  // A body that begins with "99" would look like the unknown host's GUID.
  if (body.StartsWith("99")) body.SetCharAt(1, static_cast<char>('0' + TqSystem::RandomBelow(9)));
  return body;
}

/// -1 for anything but three hex digits.
std::int32_t ShortIdNumber(std::string_view shortId) {
  std::int32_t number = -1;
  const char* end = shortId.data() + shortId.size();
  const bool isNumber = shortId.size() == kShortIdLength && std::from_chars(shortId.data(), end, number, 16).ptr == end;
  return isNumber ? number : -1;
}

TqString NextShortId() {
  if (!TqFile::Exists(TqVolumesXmlPath())) return kFirstShortId;
  TqString last;
  TqVolumeInfoList known;
  if (!TqVolumesXml_ReadTqVolumesXmlFile(last, known)) {
    Log("ERROR: TqUiUtil::TqVolumesXml_CreateNewTqVolumeGuid - TqVolumesXml_ReadTqVolumesXmlFile failed");
    return kNoShortId;
  }
  std::int32_t highest = std::max(0, ShortIdNumber(last));
  for (const TqVolumeInfo* volume : known) highest = std::max(highest, ShortIdNumber(ShortIdOf(volume->vguid)));
  std::int32_t next = highest + 1;
  if (next == 0x999) next = 0x99a;  // "999" marks a GUID that could not be had
  if (next > 0xff9) {
    Log("ERROR: TqUiUtil::CreateNewTqVolumeGuid high, wrapping to 1");
    next = 1;
  }
  TqString text;
  text.AppendHex(static_cast<std::uint64_t>(next), kShortIdLength);
  return text;
}

/// "000" marks the system volume alone.
void FixShortId(std::string_view mountPoint, TqString& vguid) {
  const bool isSystem = TqFile::IsSystemVolume(mountPoint);
  if (!isSystem && ShortIdOf(vguid) != kNoShortId) return;
  vguid.Erase(1, kShortIdLength);
  vguid.Insert(1, isSystem ? kNoShortId : kFirstShortId);
}

// --- Adding ---

/// The registry as it is, or an empty one when it is missing or damaged. False (logged) when a damaged one cannot be
/// set aside.
bool OpenRegistryForAdding(std::string_view mountPoint, TqString& shortId, TqVolumeInfoList& known) {
  shortId = kNoShortId;
  if (!TqFile::Exists(TqVolumesXmlPath())) {
    Log("tqvolumes.xml file did not exist, so freshly creating for mount: ", mountPoint);
    return true;
  }
  if (TqVolumesXml_ReadTqVolumesXmlFile(shortId, known)) return true;
  Log(kAdder, "TqVolumesXml_ReadTqVolumesXmlFile failed");
  if (SetDamagedRegistryAside()) return true;
  Log(kAdder, "could not set the damaged file aside, so leaving it as it is: ", TqVolumesXmlPath());
  return false;
}

// --- Refreshing ---

/// Lets the registry learn the attached volumes' present mount points, types, sizes and last-seen times.
void UpdateFromAttached(const TqVolumeInfoList& attached, TqVolumeInfoList& known) {
  const TqString myHguid = MyHostGuid();
  for (const TqVolumeInfo* volume : attached) {
    if (volume->vguid[0] == '\0') continue;
    if (!EqualsIgnoreCase(volume->associatedHguid, myHguid)) {
      Log("ERROR: TqUiUtil::TqVolumesXml_QueryAttachDrives_UpdateTqVolXml - hGuid mis-match on drive ",
          volume->mountPointPath, ", myHguid=", myHguid, ", driveAssociatedHguid=", volume->associatedHguid);
      continue;
    }
    for (TqVolumeInfo* entry : known) {
      if (std::string_view(entry->vguid) == volume->vguid) volume->CopyTo(*entry);
    }
  }
}

/// Adds the volumes that the settings select and the registry does not know.
void RepairFromSettings(TqVolumeInfoList& known) {
  const TqString path = Joined(TqInstall::DataFolder(), "tqinfo.xml");
  TqString settings;
  TqStringVector snippets;
  Retry(10, 50, [&](int) { return TqFile::ReadFileIntoString(path, settings) && settings.Length() >= 20; });
  if (settings.Length() < 20 || !GetAllXmlSnippetsWithTagNameInXml(settings, "tqvolume", snippets)) {
    Log(kRefresher, "could not read any selected volume from: ", path);
    return;
  }
  for (const TqString* snippet : snippets) {
    TqString vguid;
    TqString mountPoint;
    const bool named = GetUniqueStrAttrFromXmlSnippet(*snippet, "tqVolumeGuid", vguid) && IsVguid(vguid) &&
                       GetUniqueStrAttrFromXmlSnippet(*snippet, "mountPointPath", mountPoint) && !mountPoint.IsEmpty();
    if (!named || known.FindVguid(vguid) != nullptr) continue;
    Log("ERROR: TqUiUtil::TqVolumesXml_QueryAttachDrives_UpdateTqVolXml - self repairing sel for backup mountPoint: ",
        mountPoint, ", volumeId: ", vguid);
    TqVolumeInfo* entry = known.AddNew();
    if (entry == nullptr) return;
    entry->Reset();
    entry->SetVguid(vguid);
    entry->mountPointPath = mountPoint;
  }
}

}  // namespace

TqString CreateNewTqVolumeGuid() {
  return Joined("v", NextShortId(), NewGuidBody());
}

bool TqVolumesXml_AddNewTqVolumeGuid(std::string_view mountPoint, std::string_view vguid) {
  const RegistryLock lock;
  if (!IsVguid(vguid)) {
    Log(kAdder, "the28CharVguidIn bad format, wrong length: ", vguid);
    return false;
  }
  if (mountPoint.empty()) {  // would be written as "/", the system volume's
    Log(kAdder, "no mount point given for: ", vguid);
    return false;
  }
  Log("Entering TqUiUtil_internal_TqVolumesXml_AddNewTqVolumeGuid - volMountPoint: ", mountPoint,
      ", valid volumeGuidIn=", vguid);
  TqString shortId;
  TqVolumeInfoList known;
  if (!OpenRegistryForAdding(mountPoint, shortId, known)) return false;
  TqVolumeInfo volume;
  TqString path(mountPoint);
  if (!TqFile::GetInfoAboutAttachedVolume(&path, &volume)) {
    Log("WARNING: TqUiUtil::TqVolumesXml_AddNewTqVolumeGuid - could not get any info about volume: ", mountPoint);
  }
  volume.SetVguid(vguid);
  volume.SetAssociatedHguid(MyHostGuid());
  if (volume.mountPointPath.IsEmpty()) volume.mountPointPath = TqFile::WithTrailingSlash(mountPoint);
  if (!known.AppendCopy(volume) || !TqVolumesXml_WriteTqVolumesXmlFile(shortId, known)) {
    Log(kAdder, "TqVolumesXml_WriteTqVolumesXmlFile failed");
    return false;
  }
  Log("successfully added vGuid=", vguid, ", for mountPoint=", mountPoint);
  return true;
}

bool TqVolumesXml_AssignNewTqVolumeGuidToVolume(std::string_view mountPoint) {
  const TqString mount(mountPoint);
  TqInstall::CreateDataFolder();  // its failure shows in the writes below
  const RegistryLock lock;
  TqString vguid = CreateNewTqVolumeGuid();
  FixShortId(mount, vguid);
  TqString code;
  if (!TqFile::WriteVolumeGuidIntoDotTqVolDirOnVolume(mount.c_str(), vguid.c_str(), MyHostGuid().c_str(), &code)) {
    Log(kAssigner, "TqFile::WriteVolumeGuidIntoDotTqVolDirOnVolume failed for volume ", mount, " with err: ", code);
    return false;
  }
  if (!TqVolumesXml_AddNewTqVolumeGuid(mount, vguid)) {
    Log(kAssigner, "TqFile::TqVolumesXml_AddNewTqVolumeGuid failed for mount: ", mount);
    return false;
  }
  return true;
}

void TqVolumesXml_QueryAttachDrives_UpdateTqVolXml() {
  const RegistryLock lock;
  TqString shortId;
  TqVolumeInfoList known;
  const bool wasRead = TqVolumesXml_ReadTqVolumesXmlFile(shortId, known);
  if (!wasRead) {
    Log(kRefresher,
        "TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile failed, so will regenerate tqvolumes.xml from scratch "
        "self-repair");
  }
  TqVolumeInfoList attached;
  if (!QueryAllAttachedVolumesForVolumeInfo(&attached)) {
    Log(kRefresher, "TqUiUtil::QueryAllAttachedVolumesForVolumeInfo failed");
    return;
  }
  UpdateFromAttached(attached, known);
  RepairFromSettings(known);
  if (!wasRead && !SetDamagedRegistryAside()) return;
  TqVolumesXml_WriteTqVolumesXmlFile(shortId, known);
}

void TqVolumesXml_SpawnAsyncTqFilelistAsRootToAssignVolumeGuid(std::string_view mountPoint) {
  constexpr std::string_view kPrefix =
      "ERROR: TqUiUtil::TqVolumesXml_SpawnAsyncTqFilelistAsRootToAssignVolumeGuid - AssignVolumeGuid - ";
  const TqString path = Joined(TqInstall::DataFolder(), "starttqfilelist_assignvolumeguid.xml");
  const TqString text =
      Joined("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<tqfilelistrequest gmtMillisOfRequest=\"",
             TqSystem::NowGmtMillis(), "\" mountPointPathHex=\"", HexEncode(mountPoint), "\" />\n</contents>\n");
  const TqFile::SwapResult result = TqFile::SwapInQuietly(path, text, 10, 10, 50);
  if (result == TqFile::SwapResult::kWriteFailed) Log(kPrefix, "failed to write temp file: ", path, ".tmp");
  if (result == TqFile::SwapResult::kMoveFailed) Log(kPrefix, "failed to atomicswap in file: ", path);
}

bool DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids(TqString& mountA, TqString& mountB) {
  TqVolumeInfoList attached;
  QueryAllAttachedVolumesForVolumeInfo(&attached);
  for (std::int32_t a = 0; a < attached.Count(); ++a) {
    const std::string_view vguid = attached.Get(a)->vguid;
    for (std::int32_t b = a + 1; b < attached.Count() && !vguid.empty(); ++b) {
      if (vguid != attached.Get(b)->vguid) continue;
      mountA = attached.Get(a)->mountPointPath;
      mountB = attached.Get(b)->mountPointPath;
      Log("ERROR: TqUiUtil::DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids FOUND_DUPLICATE_VOL_ID: Vol_A_",
          mountA, "__Vol_B_", mountB);
      return true;
    }
  }
  return false;
}

void ForgetGuidState() {
  machineDigits.Clear();
  lastGuidMillis = 0;
}

}  // namespace TqUiUtil
