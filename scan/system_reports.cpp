#include "scan/system_reports.h"

#include <iterator>
#include <memory>
#include <string>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/run_command.h"
#include "base/system_info.h"
#include "platform/platform.h"
#include "scan/client_services.h"
#include "selection/rule_files.h"

namespace {

constexpr bool kIs64BitProcess = sizeof(void*) == 8;
constexpr std::int32_t kTransmitTimeoutSeconds = 60;
constexpr unsigned kInstallFolderMode = 0755;
constexpr unsigned kSharedFolderMode = 0777;
constexpr int kAutomaticUnit = 1;

/// "mac64" and its like: platform and process width.
TqString Descriptor() {
  const std::string_view system = TqSystem::PlatformCode() == TqSystem::kPlatformMac ? "mac" : "unk";
  return Joined(system, kIs64BitProcess ? "64" : "32");
}

std::string_view FirstLine(std::string_view text) {
  return Trimmed(text.substr(0, text.find('\n')));
}

/// Sets the mode of a real directory. A link in its place is not followed: everybody may write to the data folder, and
/// whoever puts one there must not have the mode of another folder changed. A missing folder has nothing to repair.
bool RepairFolder(const TqString& folder, unsigned mode) {
  if (!TqFile::Exists(folder)) return true;
  const TqString path(folder.Slice(0, folder.Length() - 1));  // a trailing "/" would follow the link
  return TqFile::IsDirectory(path) && platform::TheFiles().ChangeMode(path.c_str(), mode) == 0;
}

bool FixPermissions() {
  bool isFixed =
      TqFile::IsDirectory(TqInstall::InstallFolder()) && RepairFolder(TqInstall::InstallFolder(), kInstallFolderMode);
  for (const TqString& folder : {TqInstall::DataFolder(), TqInstall::ListsFolder(), TqInstall::ReportsFolder(),
                                 TqInstall::LogsFolder(), TqInstall::FlagsFolder(), TqInstall::UpdatesFolder()}) {
    if (!RepairFolder(folder, kSharedFolderMode)) isFixed = false;
  }
  return isFixed;
}

bool LogInstallEvent(bool isInstall, bool isAutoUpdate) {
  if (!TqInstall::CreateSubFolder(TqInstall::ReportsFolder())) return false;
  return TqFile::AppendStringToFile(Joined(TqInstall::ReportsFolder(), "install_history.txt"),
                                    Joined("gmt_datetime=", TqSystem::NowAsGmtText(), ", version=", TqVersionString(),
                                           ", install=", isInstall, ", autoupdate=", isAutoUpdate, "\n"));
}

constexpr std::string_view kUsage =
    "Usage: tqfilelist [-h] [-<other options described below>]\n"
    "\n"
    " -h generates this message\n"
    " -version prints out the version\n"
    " -oswithdetail prints out the Operating System information\n"
    " -first_install_time_urgent flag that is exclusively for the installer\n"
    " -urgent_refresh_all as fast as possible produce filelists starting fresh\n"
    " -is64bit tells you whether this process is 64 bit or not\n"
    " -merge_exclude_rules makes sure the tqmergeblock have been merged\n"
    " -attempt_run_tqtransmit64 executes tqtransmit64 with useful output\n"
    " -log_install_event records that an install or auto-update happened\n"
    " -diagnose_read_problem <filename> explains why this file cannot be read\n"
    " -create_tqserv_perm_report see if tqserv can read what it needs to read\n"
    " -open_file_exclusive <filename> open file and hold exclusively (deny others)\n"
    " -fileinfo <filename> prints out some information about the file\n"
    " -dllinfo <filename> prints out some information about the dll file\n"
    " -dirlist <dirname> prints out contents of directory\n"
    " -dirlistdetail <dirname> prints out contents of directory\n"
    " -copy_rsrc_fork <orig_fname> <dst_filename> copies resource fork out of file\n"
    " -listvolumes prints a list of interesting top level hard drive partitions\n"
    " -queryattachedvolumes queries currently attached hard drive partitions\n"
    " -pingdrives_thatare_selectedforbackup touches all drives that are in backup\n"
    " -volumeinfo <mountpoint> prints out some information about the volume\n"
    " -getvolumeinfofromfilename <absFileName> prints cached vol info based on fname\n"
    " -assignvolumeguid <mountpoint> creates the .tqvol directory on the volume\n"
    " -assignvolumeguid_hex <mountpointEncodedAsHex> same functionality as above\n"
    " -clone_tqvol_to_datadir copies the .tqvol directory on the root volume\n"
    " -update_tqvolumes_xml queries attached drives and updates tqvolumes.xml\n"
    " -update_tqdefcon_xml updates tqreports/tqdefcon.xml\n"
    " -checkcodesignature <fileNameOfFileToCheck> verifies signature\n"
    " -usetimemachineexcludes exludes files in list also excluded by Time Machine\n"
    " -printMemUsage exercises Kestrune cross platform memory usage function\n"
    "\n"
    " -grep <string> <fileName> looks through this file\n"
    " -igrep <string> <fileName> ignore case while looking\n"
    "\n"
    " -explainfile <fileThatShouldBeBackedUp> <generatedReportFileName> explains all\n"
    " -retentioninfo\n"
    "\n";

}  // namespace

int UsageCommand(TqCommandCall& call) {
  PrintLine(call.err, kUsage);
  return 1;
}

int VersionCommand(TqCommandCall& call) {
  call.Print("VERSION: ", TqVersionString());
  return 0;
}

int OsWithDetailCommand(TqCommandCall& call) {
  call.Print("OSwithDetail: ", TqSystem::OsDetailText());
  return 0;
}

int Is64BitCommand(TqCommandCall& call) {
  call.Print(kIs64BitProcess ? "I am a 64 bit process." : "I am NOT a 64 bit process.");
  return 0;
}

int MergeExcludeRulesCommand(TqCommandCall& call) {
  if (TqInfoManager::MakeSureAllEditableExcludeRuleBlocksAreMerged()) {
    call.LogAndPrint("tqfilelist -merge_exclude_rules - Some new blocks were merged!");
  } else {
    Log("tqfilelist -merge_exclude_rules - nothing changed, nothing needed to be merged.");
    call.Print("Nothing changed.");
  }
  return 0;
}

int AttemptRunTransmitCommand(TqCommandCall& call) {
  const TqString target = Joined(TqInstall::InstallFolder(), "tqtransmit");
  const TqString descriptor = Descriptor();
  if (!TqFile::Exists(target)) {
    call.Print("err_", descriptor, ": failed to find file to run: ", target);
    return 0;
  }
  // Never run bare: that would start an upload.
  const TqString command = Joined("\"", target, "\" -version");
  const std::unique_ptr<TqString> output = TqSystem::RunCommand(command.c_str(), true, kTransmitTimeoutSeconds);
  const TqString outcome =
      output != nullptr ? Joined("ok_", descriptor, "_", FirstLine(*output)) : Joined("err_", descriptor);
  call.Print(outcome, ": ran file: ", target);
  return 0;
}

int LogInstallEventCommand(TqCommandCall& call) {
  const bool isLogged = LogInstallEvent(call.Operand(1) == "t", call.Operand(2) == "t");
  call.Print(isLogged ? "Successfully Logged Install Event." : "ERROR: did not log Install Event.");
  return 0;
}

int CreateServicePermissionReportCommand(TqCommandCall&) {
  CreateServicePermissionReport();
  return 0;
}

int TimeCommand(TqCommandCall& call) {
  const std::int64_t now = TqSystem::NowGmtMillis();
  call.Print("gmtMillis=", now, ", GMT=", TqSystem::GmtDateTimeText(now),
             ", local=", TqSystem::GmtDateTimeText(TqSystem::LocalMillis(now)),
             ", timezone=", platform::TheMachine().TimeZoneName(now / 1000),
             ", offsetSeconds=", TqSystem::LocalOffsetMillis() / 1000);
  return 0;
}

int PrintMemUsageCommand(TqCommandCall& call) {
  const std::int64_t resident = TqSystem::ResidentMemoryBytes();
  const std::int64_t virtualBytes = TqSystem::VirtualMemoryBytes();
  call.Print("ResidentMem: ", TqSystem::HumanReadableSize(resident, kAutomaticUnit), " (", resident, ")\n",
             "VirtualMem: ", TqSystem::HumanReadableSize(virtualBytes, kAutomaticUnit), " (", virtualBytes, ")\n");
  return 0;
}

int PrintRamCommand(TqCommandCall& call) {
  const std::int64_t bytes = TqSystem::HardwareMemoryBytes();
  call.Print("Hardware RAM in Bytes: ", TqSystem::HumanReadableSize(bytes, kAutomaticUnit), " (", bytes, ")\n");
  return 0;
}

int RetentionInfoCommand(TqCommandCall& call) {
  TqString retention;
  call.Print(TqUiUtil::TqRollback_GetMostCurrentFinalizedHistoryUxeString(retention) ? retention.View() : "none");
  return 0;
}

int FixPermissionsCommand(TqCommandCall& call) {
  const bool isFixed = FixPermissions();
  call.Print(isFixed ? "Succeeded fixing permissions on the install dir."
                     : "Failed to fix permissions on the install dir.");
  return isFixed ? 0 : 1;
}

int IsTranslatedProcessCommand(TqCommandCall& call) {
  call.Print(TqSystem::IsTranslatedProcess() ? "translated" : "not translated");
  return 0;
}

int ArchStringCommand(TqCommandCall& call) {
  constexpr std::string_view kNames[] = {"UNKNOWN", "x86_64", "x86_32", "arm64"};
  const int index = TqSystem::MachineArchitecture();
  call.Print(index >= 0 && index < static_cast<int>(std::size(kNames)) ? kNames[index] : kNames[0]);
  return 0;
}

int LocaleInfoCommand(TqCommandCall& call) {
  const platform::LocaleTexts texts = platform::TheMachine().DescribeLocale();
  call.Print("System Locale (translated into Kestrune locale): ", texts.systemLocale);
  call.Print("User's Preferred Locale: ", texts.preferredLocale);
  call.Print("Local Date Time: ", texts.dateTimeSample);
  call.Print("Locale Time: ", texts.timeSample);
  call.Print("Date: ", texts.dateSample);
  return 0;
}
