// tqsetup: what the installer leaves behind, for a machine without one. Writes the install record, the data folder and
// the default settings, and selects volumes for backup. It never overwrites what is there, and looks at everything that
// could refuse before it writes anything.

#include <cstdio>
#include <string_view>

#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/vector.h"
#include "base/xml_snippets.h"
#include "selection/settings.h"
#include "volumes/default_settings.h"
#include "volumes/volume_identity.h"
#include "volumes/volume_info.h"
#include "volumes/volume_query.h"
#include "volumes/volume_registry.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

constexpr std::string_view kUsage =
    "Usage: tqsetup [--data-dir DIR] [--select MOUNT]...\n"
    "\n"
    "Prepares this machine for tqfilelist: writes the install record with a new host GUID when it is\n"
    "missing, creates the data folder and the default settings, and selects volumes for backup.\n"
    "Settings that exist are never overwritten.\n"
    "\n"
    "  --data-dir DIR   keep the client's state in DIR (absolute; default: tqdata in the install folder)\n"
    "  --select MOUNT   back up the volume mounted at MOUNT; may be repeated (default: every ordinary\n"
    "                   volume); other volumes are left alone\n"
    "  --help           show this text\n"
    "\n"
    "Exit status: 0 ready, 1 nothing done or not all (the reason goes to standard error), 2 wrong usage.\n";

struct SetupOptions {
  TqString dataDir;
  TqStringVector mountPoints;  ///< each with its trailing "/"
  bool wantsHelp = false;
};

void Write(std::FILE* out, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), out);
}

template <typename... Pieces>
void Print(const Pieces&... pieces) {
  Write(stdout, Joined(pieces..., "\n"));
}

template <typename... Pieces>
bool Fail(const Pieces&... pieces) {
  Write(stderr, Joined("tqsetup: ", pieces..., "\n"));
  return false;
}

bool IsAbsolute(std::string_view path) {
  return path.starts_with('/');
}

/// More than separators.
bool IsUsableDataDir(std::string_view path) {
  return IsAbsolute(path) && path.find_first_not_of('/') != std::string_view::npos;
}

bool ParseOptions(int argc, char** argv, SetupOptions& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    const bool takesValue = word == "--data-dir" || word == "--select";
    if (word == "--help") {
      options.wantsHelp = true;
    } else if (!takesValue) {
      return Fail("unknown option: ", word);
    } else if (i + 1 == argc) {
      return Fail("option needs a value: ", word);
    } else if (word == "--select") {
      const std::string_view mountPoint = argv[++i];
      // An empty text must never become "/".
      if (!IsAbsolute(mountPoint)) return Fail("no absolute path: ", mountPoint);
      options.mountPoints.Add(TqFile::WithTrailingSlash(mountPoint));
    } else {
      options.dataDir = argv[++i];
      if (!IsUsableDataDir(options.dataDir)) return Fail("no usable absolute path: ", options.dataDir);
    }
  }
  return true;
}

TqString InstallRecordPath() {
  return Joined(TqInstall::InstallFolder(), "tqinstall.xml");
}

/// A host GUID is a vguid's body: time and hardware-address digits interleaved.
TqString NewHostGuid() {
  return TqString(TqUiUtil::CreateNewTqVolumeGuid().Slice(kVguidLength - kHguidLength));
}

// --- what could refuse, before anything is written ---

/// Whether the volume can be given an identity or has one. The boot volume's lies in the data folder.
bool CanBeIdentified(const TqVolumeInfo& volume) {
  return volume.isWritable || volume.isSystemVolume || TqFile::HasIdentityOfThisHost(volume);
}

/// Every volume that was asked for must be attached, of the ordinary kind and with an identity or open to one; without
/// any asked for there must be one such volume.
bool CheckVolumes(const TqStringVector& asked) {
  TqVolumeInfoList attached;
  if (!TqUiUtil::QueryAllAttachedVolumesForVolumeInfo(&attached)) return Fail("could not query the attached volumes");
  TqStringVector usable;
  TqStringVector readOnly;
  TqStringVector others;
  for (const TqVolumeInfo* volume : attached) {
    TqStringVector& kind = !volume->IsType("gm") ? others : CanBeIdentified(*volume) ? usable : readOnly;
    kind.Add(volume->mountPointPath);
  }
  for (const TqString* mountPoint : asked) {
    if (others.Find(*mountPoint) >= 0) return Fail("empty, or no volume for backup: ", *mountPoint);
    if (readOnly.Find(*mountPoint) >= 0) return Fail("read-only, so it cannot be given an identity: ", *mountPoint);
    if (usable.Find(*mountPoint) < 0) return Fail("no volume is mounted at: ", *mountPoint);
  }
  return usable.Count() > 0 || Fail("no volume to back up is attached");
}

/// Where the client's state is to lie; ends in "/".
TqString WantedDataFolder(const SetupOptions& options) {
  return options.dataDir.IsEmpty() ? TqInstall::DataFolder() : TqFile::WithTrailingSlash(options.dataDir);
}

bool CheckDataFolder(const SetupOptions& options) {
  const TqString folder = WantedDataFolder(options);
  if (TqFile::Exists(InstallRecordPath()) && folder != TqInstall::DataFolder()) {
    return Fail("the install record names another data folder, nothing changed: ", TqInstall::DataFolder());
  }
  const TqString settings = Joined(folder, "tqinfo.xml");
  return !TqFile::Exists(settings) || Fail("settings exist already, nothing changed: ", settings);
}

// --- the steps ---

/// Before the install record, which must not name a folder that cannot be.
bool CreateDataFolder(const SetupOptions& options) {
  const TqString folder = WantedDataFolder(options);
  if (!TqInstall::MakeFolders(folder)) return Fail("could not create the data folder (are you allowed to?): ", folder);
  Print("data folder: ", folder);
  return true;
}

/// Writes the install record when it is missing.
bool EnsureInstallRecord(const SetupOptions& options) {
  const TqString path = InstallRecordPath();
  if (TqFile::Exists(path)) {
    Print("install record exists: ", path);
    return true;
  }
  const TqString dataDir = options.dataDir.IsEmpty() ? Joined(TqInstall::InstallFolder(), "tqdata") : options.dataDir;
  const TqString text =
      Joined("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<datadir>", TqFile::XmlEscaped(dataDir),
             "</datadir>\n<hguid>", NewHostGuid(), "</hguid>\n</contents>\n");
  if (!TqInstall::MakeFolders(TqInstall::InstallFolder()) || !TqFile::WriteFileAndSwapIn(path, text)) {
    return Fail("could not write the install record (are you allowed to?): ", path);
  }
  TqInstall::Forget();
  Print("wrote install record: ", path);
  return true;
}

bool CreateSettings(const TqStringVector& mountPoints) {
  TqLog::OpenLog(Joined(TqInstall::LogsFolder(), "tqfilelist"), TqInstall::DataFolder());
  const TqString path = TqInfoManager::TqInfoPath();
  if (!TqInfoManager::CreateDefault_tqinfo_xml(path, mountPoints)) {
    return Fail("could not create the settings (see the log in ", TqInstall::LogsFolder(), "): ", path);
  }
  Print("wrote default settings: ", path);
  return true;
}

/// Tells what is selected now. False when a volume that was asked for is not.
bool ReportSelection(const TqStringVector& asked) {
  if (!TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile()) return Fail("could not read the settings back");
  TqStringVector selected;
  for (const TqSelectedVolume& volume : TqInfoManager::Settings().selectedVolumes) {
    Print("selected for backup: ", volume.mountPoint, " vguid=", volume.vguid);
    selected.Add(volume.mountPoint);
  }
  for (const TqString* mountPoint : asked) {
    if (selected.Find(*mountPoint) < 0) return Fail("could not be given an identity, is it writable?: ", *mountPoint);
  }
  if (selected.Count() == 0) return Fail("no volume could be given an identity, so none is selected");
  Print("ready: tqfilelist lists their files");
  return true;
}

bool SetUp(const SetupOptions& options) {
  return CheckDataFolder(options) && CheckVolumes(options.mountPoints) && CreateDataFolder(options) &&
         EnsureInstallRecord(options) && CreateSettings(options.mountPoints) && ReportSelection(options.mountPoints);
}

}  // namespace

int main(int argc, char** argv) {
  SetupOptions options;
  if (!ParseOptions(argc, argv, options)) {
    Write(stderr, "\n");
    Write(stderr, kUsage);
    return kWrongUsage;
  }
  if (options.wantsHelp) {
    Write(stdout, kUsage);
    return 0;
  }
  return SetUp(options) ? 0 : kFailed;
}
