#include "scan/commands.h"

#include "scan/file_reports.h"
#include "scan/scan_run.h"
#include "scan/system_reports.h"
#include "scan/volume_reports.h"

namespace {

int ScanAtFirstInstall(TqCommandCall& call) {
  call.run.firstInstall = true;
  call.run.urgent = true;
  RunScan(call.run);
}

int ScanUrgently(TqCommandCall& call) {
  call.run.urgent = true;
  RunScan(call.run);
}

/// On purpose no way into the scan: the word is known, its flag is read by nobody, and scripts rely on this answer.
int RefuseTimeMachineExcludes(TqCommandCall& call) {
  call.Print("Unknown arg: ", call.Word());
  return 0;
}

constexpr TqStage kBefore = TqStage::kBeforeSettings;
constexpr TqStage kAfter = TqStage::kAfterSettings;
constexpr TqTooFew kTold = TqTooFew::kIsTold;
constexpr TqTooFew kFalls = TqTooFew::kFallsThrough;

constexpr TqCommand kCommands[] = {
    {"-h", UsageCommand, kBefore, 0, kTold, true},
    {"-version", VersionCommand, kBefore},
    {"-oswithdetail", OsWithDetailCommand, kBefore},
    {"-is64bit", Is64BitCommand},
    {"-merge_exclude_rules", MergeExcludeRulesCommand},
    {"-attempt_run_tqtransmit64", AttemptRunTransmitCommand},
    {"-log_install_event", LogInstallEventCommand, kAfter, 2},
    {"-create_tqserv_perm_report", CreateServicePermissionReportCommand},
    {"-diagnose_read_problem", DiagnoseReadProblemCommand, kAfter, 1},
    {"-open_file_exclusive", OpenFileExclusiveCommand, kAfter, 1},
    {"-fileinfo", FileInfoCommand, kAfter, 1},
    {"-time", TimeCommand},
    {"-dllinfo", DllInfoCommand, kAfter, 1},
    {"-dirlist", DirListCommand, kAfter, 1},
    {"-dirlistdetail", DirListDetailCommand, kAfter, 1},
    {"-volumeinfo", VolumeInfoCommand, kAfter, 1},
    {"-getvolumeinfofromfilename", VolumeInfoFromFilenameCommand, kAfter, 1},
    {"-clone_tqvol_to_datadir", CloneTqVolCommand},
    {"-assignvolumeguid", AssignVolumeGuidCommand},
    {"-assignvolumeguid_hex", AssignVolumeGuidHexCommand},
    {"-copy_rsrc_fork", CopyResourceForkCommand, kAfter, 2, kFalls},
    {"-grep", GrepCommand, kAfter, 2, kFalls},
    {"-igrep", IgrepCommand, kAfter, 2, kFalls},
    {"-explainfile", ExplainFileCommand, kAfter, 2, kFalls},
    {"-update_tqvolumes_xml", UpdateTqVolumesXmlCommand},
    {"-update_tqdefcon_xml", UpdateTqDefconXmlCommand},
    {"-pingdrives_thatare_selectedforbackup", PingDrivesCommand},
    {"-queryattachedvolumes", QueryAttachedVolumesCommand},
    {"-listvolumes", ListVolumesCommand},
    {"-listvolumestofile", ListVolumesToFileCommand},
    {"-printMemUsage", PrintMemUsageCommand},
    {"-printRam", PrintRamCommand},
    {"-first_install_time_urgent", ScanAtFirstInstall},
    {"-urgent_refresh_all", ScanUrgently},
    {"-listvolumesdetail", ListVolumesDetailCommand},
    {"-retentioninfo", RetentionInfoCommand},
    {"-fixpermissions", FixPermissionsCommand},
    {"-checkcodesignature", CheckCodeSignatureCommand},
    {"-usetimemachineexcludes", RefuseTimeMachineExcludes},
    {"-listtimemachineuuids", ListTimeMachineUuidsCommand},
    {"-istranslatedprocess", IsTranslatedProcessCommand},
    {"-archstring", ArchStringCommand},
    {"-localeinfo", LocaleInfoCommand},
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
  call.Print("Must have additional arg for: ", call.Word());
  return 0;
}
