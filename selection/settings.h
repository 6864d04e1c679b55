#pragma once

// tqinfo.xml as the program reads it: one process-wide set of settings, found by the snippet helpers in the file's
// text. Readers never fail on a bad element: it is logged and skipped, and the setting keeps its earlier value.

#include <cstdint>
#include <string_view>
#include <vector>

#include "base/string.h"
#include "base/vector.h"

/// A volume as the settings name it.
struct TqSelectedVolume {
  TqString vguid;       ///< 28 characters
  TqString mountPoint;  ///< as written in the file
};

struct TqBlockedNetwork {
  TqString name;
  TqString macAddress;
};

/// Before the first read these are the default file's values with empty lists.
struct TqInfoSettings {
  bool wereRead = false;  ///< a settings file was read at least once
  std::uint32_t numDaysWarnIfNoBackup = 7;
  bool allowNetworkTests = true;
  bool useTimeMachineExcludes = false;
  bool showHelpTips = true;
  TqString scheduleType = "continuously";
  TqString scheduleDetail = "none";
  TqString scheduleEndHour = "none";
  TqString onlineHostname;
  TqString onlineHostnameUpdated;
  TqString login = "unspecified";
  TqString excludedFileTypes;
  std::vector<TqSelectedVolume> selectedVolumes;  ///< in file order, no vguid twice
  TqString scratchVguid = "v000000000000000000000000000";
  TqString scratchMountPoint;
  std::int32_t maxFileSizeMb = 1'000'000'000;
  bool backupOnBattery = true;
  bool netAutoThrottle = true;
  std::int32_t netThrottle = 50;
  std::int32_t numBackupThreads = 1;
  bool smartWatchBrowserFavorites = false;
  bool smartWatchDocs = false;
  bool smartWatchPictures = false;
  bool smartWatchMusic = false;
  bool smartWatchVideo = false;
  bool smartWatchFinancial = false;
  bool smartWatchSpreadsheets = false;
  std::vector<TqBlockedNetwork> blockedNetworks;

  /// The size limit of the rule engine in bytes: maxFileSizeMb widened to 64 bits, shifted left by 20.
  std::int64_t MaxFileSizeBytes() const { return static_cast<std::int64_t>(maxFileSizeMb) << 20; }
};

/// What one directory filter of the settings asks to be watched.
struct TqWatchedDir {
  TqString dir;  ///< lower-cased
  bool all = false;
  bool none = false;
  TqStringVector extensions;  ///< of the named file sets, lower-cased
};

/// One `tqdirfilter` element as written.
struct TqDirFilter {
  TqString dir;
  TqString whichFiles;
  TqString snippet = {};  ///< the whole element; empty for one that is yet to be written
};

namespace TqInfoManager {

inline constexpr std::int32_t TQ_INFO_MAX_NUM_DIR_FILTERS = 9999;
inline constexpr std::int32_t kMaxFileSetDefs = 150;

/// <data>/tqinfo.xml
TqString TqInfoPath();
/// That file's text from disk. False when it is missing, unreadable or of no bytes: such a file is one that another
/// program is just writing, not one that selects nothing.
bool ReadSettingsFile(TqString& text);
const TqInfoSettings& Settings();
/// The whole file's text as last read; empty before.
const TqString& SettingsText();

/// Reads the file into the settings. False when it is missing or unreadable (logged); nothing changes then. Lists are
/// rebuilt on each successful read.
bool ReadControlPanelSettingsFromTqInfoXmlFile();

/// Reads the excluded file types, the smart-watch sets and the directory filters. False only for a missing or
/// unreadable file; `watchedDirs` is emptied first. An unknown file set is logged and ignored.
bool ParseTqInfoForFilesToWatch(std::vector<TqWatchedDir>& watchedDirs);

/// The directory filters of one settings text, at most TQ_INFO_MAX_NUM_DIR_FILTERS of them (more are logged and
/// ignored, as are filters that lack an attribute). `filters` is emptied first. False when the text holds no filter
/// element at all.
bool read_tqinfo_tqdirfilter(std::string_view tqInfoText, std::vector<TqDirFilter>& filters);

/// One `filesetdef`: its name and its lower-cased extensions. Pieces between commas are trimmed; a lone extension is
/// not (kept on purpose: with a stray blank it never matches).
struct FileSetDef {
  TqString name;
  TqStringVector extensions;
};

/// The `filesetdef` elements of the file on disk, at most 149 (see the .cpp); a nameless one is logged and skipped.
/// `sets` is emptied first. False when the file holds none or cannot be read. `caller` names the asking function in the
/// logged lines.
bool ReadFileSetDefs(std::vector<FileSetDef>& sets, std::string_view caller = "ParseTqInfoForFileSetHashes");

/// `tqserv_long_term_mode_override`, else empty.
TqString GetTqservLongTermModeOverride();

/// Back to a fresh process (tests).
void ForgetSettings();
void ForgetFilesToWatch();  ///< the part of it that ParseTqInfoForFilesToWatch keeps

/// A settings integer: surrounding blanks ignored, optional sign, decimal digits, fits 32 bits; else `fallback`.
std::int32_t ReadableInt(std::string_view text, std::int32_t fallback);

}  // namespace TqInfoManager
