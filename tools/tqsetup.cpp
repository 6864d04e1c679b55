// tqsetup: what the installer leaves behind, for a machine without one. Writes the install record, the data folder and
// the default settings, and selects volumes for backup. It never overwrites what is there.

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
#include "volumes/volume_info.h"
#include "volumes/volume_registry.h"

namespace {

constexpr std::string_view kUsage =
    "Usage: tqsetup [--data-dir DIR] [--select MOUNT]...\n"
    "\n"
    "Prepares this machine for tqfilelist: writes the install record with a new host GUID when it is\n"
    "missing, creates the data folder and the default settings, and selects volumes for backup.\n"
    "Settings that exist are never overwritten.\n"
    "\n"
    "  --data-dir DIR   keep the client's state in DIR (absolute; default: tqdata in the install folder)\n"
    "  --select MOUNT   back up the volume mounted at MOUNT; may be repeated (default: every ordinary volume)\n"
    "  --help           show this text\n";

struct SetupOptions {
  TqString dataDir;
  TqStringVector mountPoints;
  bool wantsHelp = false;
};

template <typename... Pieces>
void Print(const Pieces&... pieces) {
  const TqString text = Joined(pieces..., "\n");
  std::fwrite(text.c_str(), 1, static_cast<std::size_t>(text.Length()), stdout);
}

template <typename... Pieces>
int Fail(const Pieces&... pieces) {
  const TqString text = Joined("tqsetup: ", pieces..., "\n");
  std::fwrite(text.c_str(), 1, static_cast<std::size_t>(text.Length()), stderr);
  return 1;
}

bool ParseOptions(int argc, char** argv, SetupOptions& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    const bool hasValue = i + 1 < argc;
    if (word == "--help") {
      options.wantsHelp = true;
    } else if (word == "--data-dir" && hasValue) {
      options.dataDir = argv[++i];
    } else if (word == "--select" && hasValue) {
      options.mountPoints.Add(argv[++i]);
    } else {
      return false;
    }
  }
  return options.dataDir.IsEmpty() || options.dataDir.StartsWith("/");
}

TqString InstallRecordPath() {
  return Joined(TqInstall::InstallFolder(), "tqinstall.xml");
}

/// A host GUID is a vguid's body: time and hardware-address digits interleaved.
TqString NewHostGuid() {
  return TqString(TqUiUtil::CreateNewTqVolumeGuid().Slice(kVguidLength - kHguidLength));
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
  if (!TqInstall::MakeFolders(TqInstall::InstallFolder()) || !TqFile::WriteFileAndSwapIn(path, text)) return false;
  TqInstall::Forget();
  Print("wrote install record: ", path);
  return true;
}

bool SelectVolumes(const TqStringVector& mountPoints) {
  if (mountPoints.Count() > 0 && !TqInfoManager::SetVolumesSelectedForBackupEX(mountPoints)) return false;
  if (!TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile()) return false;
  for (const TqSelectedVolume& volume : TqInfoManager::Settings().selectedVolumes) {
    Print("selected for backup: ", volume.mountPoint, " vguid=", volume.vguid);
  }
  return true;
}

int SetUp(const SetupOptions& options) {
  if (!EnsureInstallRecord(options)) return Fail("could not write the install record: ", InstallRecordPath());
  if (!options.dataDir.IsEmpty() && TqFile::WithTrailingSlash(options.dataDir) != TqInstall::DataFolder()) {
    return Fail("the install record names another data folder, nothing changed: ", TqInstall::DataFolder());
  }
  if (TqFile::Exists(TqInfoManager::TqInfoPath())) {
    return Fail("settings exist already, nothing changed: ", TqInfoManager::TqInfoPath());
  }
  if (!TqInstall::CreateDataFolder()) return Fail("could not create the data folder: ", TqInstall::DataFolder());
  Print("data folder: ", TqInstall::DataFolder());
  TqLog::OpenLog(Joined(TqInstall::LogsFolder(), "tqfilelist"), TqInstall::DataFolder());
  if (!TqInfoManager::CreateDefault_tqinfo_xml(TqInfoManager::TqInfoPath())) {
    return Fail("could not create the settings (see the log in ", TqInstall::LogsFolder(),
                "): ", TqInfoManager::TqInfoPath());
  }
  Print("wrote default settings: ", TqInfoManager::TqInfoPath());
  if (!SelectVolumes(options.mountPoints)) {
    return Fail("could not select the volumes: every MOUNT must be an attached volume (see the log in ",
                TqInstall::LogsFolder(), ")");
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  SetupOptions options;
  if (!ParseOptions(argc, argv, options)) {
    std::fwrite(kUsage.data(), 1, kUsage.size(), stderr);
    return 2;
  }
  if (options.wantsHelp) {
    std::fwrite(kUsage.data(), 1, kUsage.size(), stdout);
    return 0;
  }
  return SetUp(options);
}
