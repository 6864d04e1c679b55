#include "selection/settings.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/xml_snippets.h"

namespace TqInfoManager {
namespace {

constexpr std::string_view kReader = "ReadControlPanelSettingsFromTqInfoXmlFile";
constexpr std::string_view kNoScratchVguid = "v000000000000000000000000000";
constexpr std::int32_t kUnlimitedFileSizeMb = 1'000'000'000;
constexpr std::int32_t kAutomaticThreads = 8;
constexpr std::int32_t kMaxThreads = 200;
constexpr std::array<std::string_view, 5> kScheduleTypes = {"continuously", "when_files_change", "when_idle",
                                                            "once_per_day", "only_when_click_backup_now"};

TqInfoSettings settings;
TqString settingsText;

/// An attribute anywhere in the file. False leaves `value` empty.
bool Attribute(const TqString& text, std::string_view name, TqString& value) {
  return TqFile::GetUniqueStrAttrFromXmlSnippet(text, name, value);
}

void ReadText(const TqString& text, std::string_view name, TqString& setting) {
  TqString value;
  if (Attribute(text, name, value)) setting = std::move(value);
}

void ReadTextOr(const TqString& text, std::string_view name, std::string_view absent, TqString& setting) {
  if (!Attribute(text, name, setting)) setting = absent;
}

void ReadFlag(const TqString& text, std::string_view name, bool& setting) {
  TqString value;
  if (Attribute(text, name, value)) setting = value.StartsWithIgnoreCase("t");
}

bool IsUnset(const TqString& value) {
  return value.IsEmpty() || value == "none";
}

void ReadDaysToWarn(const TqString& text) {
  TqString value;
  if (!Attribute(text, "numdays_warn_if_no_backup", value)) return;
  settings.numDaysWarnIfNoBackup = std::min(static_cast<std::uint32_t>(ReadableInt(value, 7)), 7U);
}

void ReadPreferences(const TqString& text) {
  ReadDaysToWarn(text);
  ReadFlag(text, "allow_network_tests", settings.allowNetworkTests);
  ReadFlag(text, "use_time_machine_excludes", settings.useTimeMachineExcludes);
  ReadFlag(text, "show_help_tips", settings.showHelpTips);
}

void ReadSchedule(const TqString& text) {
  TqString type;
  if (Attribute(text, "backup_schedule_type", type) && std::ranges::count(kScheduleTypes, type.View()) > 0) {
    settings.scheduleType = std::move(type);
  }
  ReadTextOr(text, "backup_schedule_detail", "none", settings.scheduleDetail);
  ReadTextOr(text, "backup_schedule_end_hour", "none", settings.scheduleEndHour);
}

void ReadIdentity(const TqString& text) {
  ReadText(text, "online_hostname", settings.onlineHostname);
  ReadText(text, "tqlogin", settings.login);
  ReadText(text, "online_hostname_updated", settings.onlineHostnameUpdated);
  ReadText(text, "excludefiletypes", settings.excludedFileTypes);
}

/// Reads an attribute of a blocked network that must have at least `minLength` characters.
bool BlockedNetworkAttribute(const TqString& snippet, std::string_view name, std::int32_t minLength, TqString& value) {
  if (!Attribute(snippet, name, value)) {
    Log("ERROR: ", kReader, " - bad XML with no ", name, "=", snippet);
    return false;
  }
  if (value.Length() >= minLength) return true;
  Log("ERROR: ", kReader, " - bad XML with too short ", name, "=", snippet);
  return false;
}

void ReadBlockedNetworks(const TqString& text) {
  settings.blockedNetworks.clear();
  TqStringVector snippets;
  TqFile::GetAllXmlSnippetsWithTagNameInXml(text, "tqblocked_network", snippets);
  for (const TqString* snippet : snippets) {
    TqBlockedNetwork network;
    if (BlockedNetworkAttribute(*snippet, "blocked_network_mac_addr", 2, network.macAddress) &&
        BlockedNetworkAttribute(*snippet, "blocked_network_name", 1, network.name)) {
      settings.blockedNetworks.push_back(std::move(network));
    }
  }
}

/// What is wrong with one `tqvolume` element; empty when nothing is, `volume` then holds it.
std::string_view VolumeFault(const TqString& snippet, TqSelectedVolume& volume) {
  if (!Attribute(snippet, "tqVolumeGuid", volume.vguid)) return "no vGuid: ";
  if (!IsVguid(volume.vguid)) return "bad vGuid: ";
  if (!Attribute(snippet, "mountPointPath", volume.mountPoint)) return "no mnt: ";
  if (volume.mountPoint.IsEmpty()) return "bad mnt: ";
  return {};
}

void AddSelectedVolume(TqSelectedVolume volume) {
  const bool known = std::ranges::any_of(settings.selectedVolumes,
                                         [&](const TqSelectedVolume& other) { return other.vguid == volume.vguid; });
  if (known) {
    Log("ERROR: TqInfoManager::", kReader, " - removing dup tqvolume tqVolGuid=", volume.vguid,
        ", mountPoint=", volume.mountPoint);
    return;
  }
  settings.selectedVolumes.push_back(std::move(volume));
}

void ReadSelectedVolumes(const TqString& text) {
  settings.selectedVolumes.clear();
  TqStringVector snippets;
  if (!TqFile::GetAllXmlSnippetsWithTagNameInXml(text, "tqvolume", snippets)) {
    Log("ERROR: ReadControlPanelSettingsFromTqInfoXmlF, found no <tqvolume ... /> tags in tqinfo.xml which is bad.");
  }
  for (const TqString* snippet : snippets) {
    TqSelectedVolume volume;
    const std::string_view fault = VolumeFault(*snippet, volume);
    if (fault.empty()) {
      AddSelectedVolume(std::move(volume));
    } else {
      Log("ERROR: TqInfoManager::", kReader, " - bogus <tqvolume ... /> tag in tqinfo.xml ", fault, *snippet);
    }
  }
}

void ReadScratchVolume(const TqString& text) {
  ReadText(text, "scratch_mountpoint", settings.scratchMountPoint);
  ReadText(text, "scratch_vol_guid", settings.scratchVguid);
  if (settings.scratchVguid.Length() != kVguidLength || !settings.scratchVguid.StartsWith("v")) {
    settings.scratchVguid = kNoScratchVguid;
  }
}

void ReadThreads(const TqString& text) {
  TqString value;
  if (Attribute(text, "num_backup_threads", value)) {
    settings.numBackupThreads = IsUnset(value) ? kAutomaticThreads : ReadableInt(value, kAutomaticThreads);
  }
  const bool inRange = settings.numBackupThreads >= 1 && settings.numBackupThreads <= kMaxThreads;
  if (settings.netAutoThrottle || !inRange) settings.numBackupThreads = kAutomaticThreads;
}

void ReadLimits(const TqString& text) {
  TqString value;
  if (Attribute(text, "max_filesize_mb", value)) {
    settings.maxFileSizeMb = IsUnset(value) ? kUnlimitedFileSizeMb : ReadableInt(value, 4000);
  }
  settings.backupOnBattery = !(Attribute(text, "backup_on_battery", value) && value.StartsWithIgnoreCase("f"));
  settings.netAutoThrottle = Attribute(text, "net_auto_throttle", value) && value.StartsWithIgnoreCase("t");
  if (Attribute(text, "net_throttle", value)) {
    settings.netThrottle = IsUnset(value) ? 50 : ReadableInt(value, 50);
  }
  ReadThreads(text);
}

void ReadSmartWatch(const TqString& text) {
  struct Flag {
    std::string_view fileSet;
    bool& setting;
  };
  TqString sets;
  if (!Attribute(text, "smartwatchfilesets", sets)) return;
  const Flag flags[] = {
      {"browserfavorites", settings.smartWatchBrowserFavorites},
      {"docs", settings.smartWatchDocs},
      {"pictures", settings.smartWatchPictures},
      {"music", settings.smartWatchMusic},
      {"video", settings.smartWatchVideo},
      {"financial", settings.smartWatchFinancial},
      {"spreadsheets", settings.smartWatchSpreadsheets},
  };
  for (const Flag& flag : flags) flag.setting = sets.Contains(flag.fileSet);
}

}  // namespace

TqString TqInfoPath() {
  return Joined(TqInstall::DataFolder(), "tqinfo.xml");
}

bool ReadSettingsFile(TqString& text) {
  return TqFile::ReadFileIntoString(TqInfoPath(), text) && !text.IsEmpty();
}

const TqInfoSettings& Settings() {
  return settings;
}

const TqString& SettingsText() {
  return settingsText;
}

bool ReadControlPanelSettingsFromTqInfoXmlFile() {
  const TqString path = TqInfoPath();
  if (!TqFile::Exists(path)) {
    Log("WARNING: tqinfo.xml file does not exist here=", path,
        ", which is normal in the installer, but bad any other time.");
    return false;
  }
  TqString text;
  if (!ReadSettingsFile(text)) {
    Log("ERROR: could not read tqinfo.xml file from disk 1: ", path);
    return false;
  }
  ReadPreferences(text);
  ReadSchedule(text);
  ReadBlockedNetworks(text);
  ReadIdentity(text);
  ReadSelectedVolumes(text);
  ReadScratchVolume(text);
  ReadLimits(text);
  ReadSmartWatch(text);
  settingsText = std::move(text);
  settings.wereRead = true;
  return true;
}

TqString GetTqservLongTermModeOverride() {
  TqString value;
  TqFile::GetUniqueStrAttrFromXmlSnippet(settingsText, "tqserv_long_term_mode_override", value);
  return value;
}

void ForgetSettings() {
  settings = TqInfoSettings();
  settingsText = TqString();
  ForgetFilesToWatch();
}

std::int32_t ReadableInt(std::string_view text, std::int32_t fallback) {
  std::int64_t number = 0;
  if (!ParseInt64(Trimmed(text), number)) return fallback;
  if (number < INT32_MIN || number > INT32_MAX) return fallback;
  return static_cast<std::int32_t>(number);
}

}  // namespace TqInfoManager
