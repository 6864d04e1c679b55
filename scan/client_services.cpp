#include "scan/client_services.h"

#include "base/access_check.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/system_info.h"
#include "selection/settings.h"
#include "volumes/selected_volumes.h"
#include "volumes/volume_info.h"

namespace {

constexpr int kReportWriteTries = 6;
constexpr int kReportMoveTries = 12;
constexpr std::int64_t kReportPauseMillis = 500;

/// Where a program bundled with the system lies, and the character that stands for it in the report.
struct KnownProgram {
  std::string_view location;
  char marker;
};

constexpr KnownProgram kKnownPrograms[] = {
    {"/System/Applications/Mail.app", 'm'},   {"/Applications/Mail.app", 'M'},
    {"/System/Applications/Photos.app", 'p'}, {"/Applications/Photos.app", 'P'},
    {"/System/Applications/Music.app", 'u'},  {"/Applications/iTunes.app", 'i'},
    {"/Applications/Safari.app", 's'},        {"/System/Applications/Time Machine.app", 't'},
    {"/Applications/Time Machine.app", 'T'},
};

TqString InstalledProgramsText() {
  TqString markers;
  for (const KnownProgram& program : kKnownPrograms) {
    if (TqFile::Exists(program.location)) markers.AppendChar(program.marker);
  }
  return markers.IsEmpty() ? TqString("no_none") : Joined("yes_", markers);
}

void AppendReadability(TqString& report, std::string_view login, std::string_view path) {
  TqString detail;
  const bool canRead = TqSystem::LoginCanRead(login, path, detail);
  AppendAll(report, "can_read=", canRead, ", detail=", detail, ", path=", path, "\n");
}

TqString ServicePermissionText() {
  const TqString login = ServiceLoginName();
  TqString report = Joined("tqserv_login_name: ", login, "\n");
  AppendReadability(report, login, TqInstall::InstallFolder());
  AppendReadability(report, login, TqInstall::DataFolder());
  AppendReadability(report, login, TqInfoManager::TqInfoPath());
  TqVolumeInfoList selected;
  TqInfoManager::GetVolumesSelectedForBackup(selected);
  for (const TqVolumeInfo* volume : selected) {
    if (volume->volumeIsCurrentlyConnected) AppendReadability(report, login, volume->mountPointPath);
  }
  return report;
}

/// The path of a report, with its folder made when it is missing.
TqString ReportPath(std::string_view name) {
  const TqString folder = TqInstall::ReportsFolder();
  TqInstall::CreateSubFolder(folder);
  return Joined(folder, name);
}

}  // namespace

bool TqClientVersionManager::IsEndOfLife() {
  TqString version;
  return TqFile::ReadFirstLine(Joined(TqInstall::ReportsFolder(), "tqclient_end_of_life.txt"), version) &&
         version == TqVersionString();
}

bool TqUiUtil::TqRollback_GetMostCurrentFinalizedHistoryUxeString(TqString& retention) {
  return TqFile::ReadFirstLine(Joined(TqInstall::ReportsFolder(), "tqrollback_current_uxe.txt"), retention) &&
         !retention.IsEmpty();
}

TqString ServiceLoginName() {
  TqString login;
  const bool isKnown = TqFile::ReadFirstLine(Joined(TqInstall::ReportsFolder(), "tqserv_runs_as.txt"), login);
  return isKnown && !login.IsEmpty() ? login : TqString("tqunknown");
}

void CreateInstalledProgramsReport() {
  const TqString path = ReportPath("tqstat_progs.txt");
  const TqString temporary = Joined(path, ".tmp");
  const auto result =
      TqFile::SwapInQuietly(path, InstalledProgramsText(), kReportWriteTries, kReportMoveTries, kReportPauseMillis);
  switch (result) {
    case TqFile::SwapResult::kDone:
      Log("Successfully wrote out install report");
      break;
    case TqFile::SwapResult::kWriteFailed:
      Log("ERROR: CreateInstalledProgramsReport - could not write out tmpFileName=", temporary);
      break;
    case TqFile::SwapResult::kMoveFailed:
      Log("ERROR: CreateInstalledProgramsReport - could not AtomicSwapIn tmpFileName=", temporary);
      break;
  }
}

bool CreateServicePermissionReport() {
  const TqString path = ReportPath("tqserv_perm_report.txt");
  if (TqFile::WriteFileAndSwapIn(path, ServicePermissionText())) return true;
  Log("ERROR: CreateServicePermissionReport - could not write out fileName=", path);
  return false;
}
