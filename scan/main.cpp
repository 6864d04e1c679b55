// tqfilelist: lists every file of the volumes that are selected for backup.
//
// The files by layer, each layer built on those above it:
//
//   platform/   what differs between systems, behind three small interfaces
//     files, volumes, machine     the interfaces; platform: the one set of them in force
//     posix, linux/, mac/         their implementations, chosen by the build
//     property_list, whole_file   decoders of the system's own files
//   base/       texts, files and processes
//     string, vector, hash_table, text_codec, json_text, xml_snippets
//     clock, log, system_info, install_record (folders, host GUID)
//     file_info (listing), file_io, fast_file_reader, xml_files, run_command, file_lock,
//     access_check and file_probe (looks at single files for the commands)
//   selection/  what the user wants backed up
//     settings and files_to_watch (reading tqinfo.xml), settings_edit (writing it)
//     rule_texts, mandatory_rules, rule_files and rule_loading (the exclusion rules), rule_index and rule_engine (the
//     decision per file), explain_report (how a list line is judged and worded)
//   volumes/    which volumes there are
//     volume_info, volume_identity (vguids), volume_query, volume_registry, selected_volumes,
//     default_settings (the first tqinfo.xml), drive_summary, defcon (urgency), drive_ping
//   scan/       the lists
//     client_services             reads and reports for the client's other programs
//     run_state                   what a run carries along: stop request, scan lock
//     list_output                 the buffer in front of a list, and what is held against it
//     top_dirs                    the plan: which directories, in which order
//     file_stats                  totals per kind of file
//     skipped_dirs                directories that no walk enters
//     walker                      one directory tree into a list
//     list_swap, list_upkeep      lists into place, stubs, cleaning up
//     top_dir_step                one turn of the main loop
//     scan_run                    the run from lock to unlock
//     command_call, commands      the command table and what each command gets
//     file_reports, volume_reports, system_reports, explain_command   what the commands print
//     main                        start-up only

#include <cstdio>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/system_info.h"
#include "scan/commands.h"
#include "scan/scan_run.h"
#include "selection/settings.h"

namespace {

TqStringVector ArgumentsOf(int argc, char** argv) {
  TqStringVector arguments;
  for (int i = 1; i < argc; ++i) arguments.Add(argv[i]);
  return arguments;
}

void ReadBufferingFlag(TqRunState& run) {
  run.bufferingOff = TqFile::Exists(Joined(TqInstall::ListsFolder(), "tqfilelistdisablebuffering.txt"));
}

void OpenProgramLog() {
  TqLog::OpenLog(Joined(TqInstall::LogsFolder(), "tqfilelist"), TqInstall::DataFolder());
  Log("");
  Log("starting tqfilelist");
}

void LogStartLine(const TqRunState& run, const TqStringVector& arguments) {
  const TqString hostGuid = MyHostGuid();
  const bool is64Bit = sizeof(void*) == 8;
  TqString line =
      Joined("tqfilelist ", ProcessIdText(), " version=", TqVersionString(), ", myhguid=", hostGuid,
             ", myProc64=", is64Bit ? "TRUE" : "FALSE", ", numMBytesStartVirtualMemSize=", run.virtualMegabytes,
             ", numMBytesStartResidentMemSize=", run.residentMegabytes,
             ", numMBytesStartHardwareRamMemSize=", run.hardwareMegabytes,
             run.bufferingOff ? ", BUFFERING_IS_TURNED_OFF" : ", buffering_is_on", ", called with args: ");
  for (std::int32_t i = 0; i < arguments.Count(); ++i) AppendAll(line, "arg", i + 1, "=", arguments.At(i), " ");
  Log(line);
}

void LoadSettings() {
  if (TqFile::Exists(TqInfoManager::TqInfoPath())) {
    TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile();
  } else {
    Log("ERROR: tqfilelist could not find a tqinfo.xml file");
  }
}

}  // namespace

int main(int argc, char** argv) {
  TqRunState run;
  run.stackBase = static_cast<const char*>(__builtin_frame_address(0));
  run.processStartMillis = TqSystem::NowGmtMillis();
  const TqStringVector arguments = ArgumentsOf(argc, argv);

  ReadBufferingFlag(run);
  OpenProgramLog();
  run.UpdateMemoryFigures();
  LogStartLine(run, arguments);

  TqCommandCall call{argc > 0 ? argv[0] : "", arguments, stdout, stderr, run};
  const TqCommand* command = FindCommand(arguments, TqStage::kBeforeSettings);
  if (command != nullptr) return RunCommandOfTable(*command, call);
  LoadSettings();
  command = FindCommand(arguments, TqStage::kAfterSettings);
  if (command != nullptr) return RunCommandOfTable(*command, call);
  if (arguments.Count() == 0) RunScan(run);
  PrintLine(stdout, Joined("Unknown arg: ", call.Word()));
  return 0;
}
