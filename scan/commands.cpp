#include "scan/commands.h"

#include "base/system_info.h"
#include "scan/scan_run.h"

namespace {

/// On purpose without several commands that are meant for the client's own programs only.
constexpr std::string_view kUsageLines[] = {
    "Usage: tqfilelist [-h] [-<other options described below>]",
    "",
    " -h generates this message",
    " -version prints out the version",
    " -oswithdetail prints out the Operating System information",
    " -first_install_time_urgent flag that is exclusively for the installer",
    " -urgent_refresh_all as fast as possible produce filelists starting fresh",
    " -is64bit tells you whether this process is 64 bit or not",
    " -merge_exclude_rules makes sure the tqmergeblock have been merged",
    " -attempt_run_tqtransmit64 executes tqtransmit64 with useful output",
    " -log_install_event records that an install or auto-update happened",
    " -diagnose_read_problem <filename> explains why this file cannot be read",
    " -create_tqserv_perm_report see if tqserv can read what it needs to read",
    " -open_file_exclusive <filename> open file and hold exclusively (deny others)",
    " -fileinfo <filename> prints out some information about the file",
    " -dllinfo <filename> prints out some information about the dll file",
    " -dirlist <dirname> prints out contents of directory",
    " -dirlistdetail <dirname> prints out contents of directory",
    " -copy_rsrc_fork <orig_fname> <dst_filename> copies resource fork out of file",
    " -listvolumes prints a list of interesting top level hard drive partitions",
    " -queryattachedvolumes queries currently attached hard drive partitions",
    " -pingdrives_thatare_selectedforbackup touches all drives that are in backup",
    " -volumeinfo <mountpoint> prints out some information about the volume",
    " -getvolumeinfofromfilename <absFileName> prints cached vol info based on fname",
    " -assignvolumeguid <mountpoint> creates the .tqvol directory on the volume",
    " -assignvolumeguid_hex <mountpointEncodedAsHex> same functionality as above",
    " -clone_tqvol_to_datadir copies the .tqvol directory on the root volume",
    " -update_tqvolumes_xml queries attached drives and updates tqvolumes.xml",
    " -update_tqdefcon_xml updates tqreports/tqdefcon.xml",
    " -checkcodesignature <fileNameOfFileToCheck> verifies signature",
    " -usetimemachineexcludes exludes files in list also excluded by Time Machine",
    " -printMemUsage exercises Kestrune cross platform memory usage function",
    "",
    " -grep <string> <fileName> looks through this file",
    " -igrep <string> <fileName> ignore case while looking",
    "",
    " -explainfile <fileThatShouldBeBackedUp> <generatedReportFileName> explains all",
    " -retentioninfo",
    "",
};

int PrintUsage(TqCommandCall& call) {
  for (const std::string_view line : kUsageLines) PrintLine(call.err, line);
  return 1;
}

int PrintVersion(TqCommandCall& call) {
  PrintLine(call.out, Joined("VERSION: ", TqVersionString()));
  return 0;
}

int PrintOsWithDetail(TqCommandCall& call) {
  PrintLine(call.out, Joined("OSwithDetail: ", TqSystem::OsDetailText()));
  return 0;
}

int ScanAtFirstInstall(TqCommandCall& call) {
  call.run.firstInstall = true;
  call.run.urgent = true;
  RunScan(call.run);
}

int ScanUrgently(TqCommandCall& call) {
  call.run.urgent = true;
  RunScan(call.run);
}

constexpr TqStage kBefore = TqStage::kBeforeSettings;

constexpr TqCommand kCommands[] = {
    {"-h", PrintUsage, kBefore, 0, TqTooFew::kIsTold, true},
    {"-version", PrintVersion, kBefore},
    {"-oswithdetail", PrintOsWithDetail, kBefore},
    {"-first_install_time_urgent", ScanAtFirstInstall},
    {"-urgent_refresh_all", ScanUrgently},
};

bool Matches(const TqCommand& command, const TqStringVector& arguments) {
  const TqString& word = arguments.At(0);
  const bool isNamed = command.matchesByPrefix ? word.StartsWith(command.word) : word == command.word;
  const bool isServed = command.tooFew == TqTooFew::kIsTold || arguments.Count() > command.operandsNeeded;
  return isNamed && isServed;
}

}  // namespace

std::span<const TqCommand> Commands() {
  return kCommands;
}

const TqCommand* FindCommand(const TqStringVector& arguments, TqStage stage) {
  if (arguments.Count() == 0) return nullptr;
  for (const TqCommand& command : Commands()) {
    if (command.stage == stage && Matches(command, arguments)) return &command;
  }
  return nullptr;
}

int RunCommandOfTable(const TqCommand& command, TqCommandCall& call) {
  if (call.OperandCount() >= command.operandsNeeded) return command.run(call);
  PrintLine(call.out, Joined("Must have additional arg for: ", call.Word()));
  return 0;
}
