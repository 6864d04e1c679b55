#include "scan/file_reports.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "base/access_check.h"
#include "base/clock.h"
#include "base/fast_file_reader.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/file_probe.h"
#include "base/system_info.h"
#include "platform/platform.h"
#include "scan/client_services.h"
#include "scan/explain_command.h"

namespace {

constexpr std::int32_t kExclusiveCacheSize = 1'000'000;
constexpr int kExclusiveRepetitions = 1000;
constexpr std::int64_t kExclusivePauseMillis = 5000;
constexpr std::int32_t kGrepLimit = 10'000;
constexpr std::int32_t kShortestExplainName = 3;
constexpr std::int32_t kDllBytes = 1'000'000;
constexpr std::int32_t kFewestDllBytes = 2000;
constexpr bool kIs64BitProcess = sizeof(void*) == 8;

struct FreeBuffer {
  void operator()(char* buffer) const { std::free(buffer); }
};
using OwnedBuffer = std::unique_ptr<char, FreeBuffer>;

void PrintEntryFacts(const TqCommandCall& call, const TqFileInfo& info, bool withLinkCount) {
  call.Print("  fileSizeInBytes: ", info.dataSize);
  call.Print("  rsrcForkInBytes: ", info.rsrcSize);
  call.Print("  isDirectory: ", info.isDir);
  call.Print("  isSymLinkOrReparsePoint: ", info.isSpecial);
  if (withLinkCount) call.Print("  linked file count: ", info.linkCount);
  call.Print("  isBundlePackageDir: ", info.isPackage);
  call.Print("  isAliasFile: ", info.isAlias);
}

void PrintEntryTimes(const TqCommandCall& call, const TqFileInfo& info) {
  call.Print("  creationTime (GMT): ", TqSystem::GmtDateTimeText(info.createTimeMs));
  call.Print("  lastModifiedTime (GMT): ", TqSystem::GmtDateTimeText(info.modTimeMs));
}

void PrintLogins(const TqCommandCall& call) {
  call.Print(TqSystem::CurrentLoginIsAdministrator() ? "  yes_have_admin_rights_login_name: "
                                                     : "  no_admin_rights_login_name: ",
             TqSystem::CurrentLoginName());
  call.Print("  tqserv_login_name: ", ServiceLoginName());
}

void PrintWholeRead(const TqCommandCall& call, const TqString& path) {
  std::int64_t numBytes = 0;
  const OwnedBuffer content(TqFile::ReadLargeFileIntoBuf(path.c_str(), &numBytes));
  if (content != nullptr) {
    call.Print("  successfully_read_in_file: ", numBytes, " bytes");
    return;
  }
  TqString reason;
  if (TqFile::DiagnoseFileReadProblem(path, reason) == 0) reason = "not_readable_into_memory";
  call.Print("  failed_to_read_file, detail=", reason);
}

void PrintReadRights(const TqCommandCall& call, const TqString& path) {
  TqString detail;
  const bool iCan = TqSystem::CurrentLoginCanRead(path, detail);
  call.Print("  my_current_login_has_rights_to_read_file: ", iCan, ", detail=", detail);
  const bool serviceCan = TqSystem::LoginCanRead(ServiceLoginName(), path, detail);
  call.Print("  tqserv_login_has_rights_to_read_file: ", serviceCan, ", detail=", detail);
}

/// The operand without its trailing separator, unless it is exactly "/". A backslash there belongs to the name.
TqString DirOperand(const TqCommandCall& call) {
  TqString dir = call.Operand(1);
  if (!dir.Equals("/") && dir.EndsWith("/")) dir.Truncate(dir.Length() - 1);
  return dir;
}

/// The answer that ends the command before anything is listed, or an empty text. The link is tested before the kind.
std::string_view WhyNotListable(const TqString& dir) {
  TqFileInfo info;
  if (!TqFile::GetInfoAboutFileOrDir(TqFile::WithLastBackslashKept(dir), info)) return "Directory does not exist: ";
  platform::StatFacts facts;
  const bool isLink =
      platform::TheFiles().Lstat(dir.c_str(), facts) == 0 && facts.kind == platform::EntryKind::kSymbolicLink;
  if (isLink) return "This is a symlink or reparse point: ";
  if (!info.isDir) return "This is not a directory: ";
  return {};
}

int ListDirectory(TqCommandCall& call, bool withDetail) {
  platform::TheMachine().RestrictSideEffects();  // as in a scan, so that the answers agree
  const TqString dir = DirOperand(call);
  if (const std::string_view why = WhyNotListable(dir); !why.empty()) {
    call.Print(why, dir);
    return 0;
  }
  TqFileInfoList entries;
  const TqString listed = TqFile::WithLastBackslashKept(dir);
  if (!TqFile::GetListOfFileInfosInDir(&listed, &entries)) {
    call.Print("ERROR: TqFile::GetListOfFileInfosInDir failed for: ", dir);
    return 0;
  }
  if (entries.Count() == 0) {
    call.Print("Directory contained zero files: ", dir);
    return 0;
  }
  call.Print("DirList of ", entries.Count(), " items for: ", dir, "\n\n");
  for (std::int32_t i = 0; i < entries.Count(); ++i) {
    const TqFileInfo& info = *entries.Get(i);
    const std::string_view name = info.path.Slice(info.path.FindLastChar('/') + 1);
    const std::string_view padding = i < 10 ? "  " : i < 100 ? " " : "";
    call.Print(" Item ", padding, i, " - ", info.isDir ? " dir" : "file", ": ", name);
    if (!withDetail) continue;
    PrintEntryFacts(call, info, false);
    PrintEntryTimes(call, info);
  }
  call.Print("End.");
  return 0;
}

int Grep(TqCommandCall& call, bool ignoreCase) {
  const TqString& path = call.Operand(2);
  if (!TqFile::Exists(path)) {
    call.Print("File does not exist: ", path);
    return 0;
  }
  call.Print("Grep returned the following for file: ", path);
  TqStringVector numbers;
  TqStringVector lines;
  TqString error;
  if (TqFile::TqGrepFile(path, call.Operand(1), ignoreCase, kGrepLimit, numbers, lines, &error)) {
    for (std::int32_t i = 0; i < lines.Count(); ++i) call.Print("Line ", numbers.At(i), ": ", lines.At(i), "\n");
  } else {
    call.Print("An error occurred, is the file readable?, errStr=", error);
  }
  call.Print("Done.");
  return 0;
}

}  // namespace

int DiagnoseReadProblemCommand(TqCommandCall& call) {
  const TqString& path = call.Operand(1);
  call.Print("Diagnosing this file for ability to read: ", path);
  TqString reason;
  const int code = TqFile::DiagnoseFileReadProblem(path, reason);
  if (code == 1) {
    call.Print("TqFile::DiagnoseFileReadProblem failed - file does not exist: ", path, ", errStr=", reason);
  } else if (code == 0) {
    call.Print("File exists, and there was no problem reading the file.");
  } else {
    call.Print("File exists, could not read for intReason=", code, ", strReason=", reason);
  }
  return 0;
}

int OpenFileExclusiveCommand(TqCommandCall& call) {
  const TqString& path = call.Operand(1);
  call.Print("Opening this file exclusively: ", path);
  if (!TqFile::Exists(path)) {
    call.Print("File does not exist - not valid to use this command.");
    return 0;
  }
  TqFastFileReader reader;
  TqString error;
  if (!reader.TqSetRamCacheSize(kExclusiveCacheSize, &error) || !reader.TqOpenFileReadOnlyExclusive(path, &error)) {
    call.Print("File exists but TqOpenFileReadOnlyExclusive Failed on: ", path, ", errStr=", error);
    return 0;
  }
  for (int i = 0; i < kExclusiveRepetitions; ++i) {
    call.Print("Holding file exclusively seconds=", i * 5, " ...");
    TqSystem::SleepMillis(kExclusivePauseMillis);
  }
  reader.TqCloseFile();
  call.Print("Released file: ", path);
  return 0;
}

int FileInfoCommand(TqCommandCall& call) {
  const TqString& path = call.Operand(1);
  call.Print("FileInfo for: ", path);
  TqFileInfo info;
  if (!TqFile::GetInfoAboutFileOrDir(TqFile::WithLastBackslashKept(path), info)) {
    call.Print("File does not exist.");
    return 0;
  }
  PrintEntryFacts(call, info, true);
  call.Print("  isAppropriateToModifyFile: ", TqFile::IsAppropriateToModifyFile(path));
  PrintEntryTimes(call, info);
  call.Print("");
  PrintLogins(call);
  PrintWholeRead(call, path);
  PrintReadRights(call, path);
  return 0;
}

int DllInfoCommand(TqCommandCall& call) {
  const TqString& path = call.Operand(1);
  const std::string_view test = kIs64BitProcess ? "Test A" : "Test C";
  call.Print("DllInfo from a ", kIs64BitProcess ? 64 : 32, " bit process for: ", path);
  call.Print(test, TqFile::Is64BitWindowsLibrary(path) ? ": This file is a 64 bit Windows DLL."
                                                       : ": This file is NOT a 64 bit Windows DLL.");
  TqString head;
  if (!TqFile::Exists(path)) {
    call.Print("File does not exist.");
  } else if (!TqFile::ReadFirstNbytesIntoBuf(path, kDllBytes, head)) {
    call.Print("File could not be read by ReadFirstNbytesIntoBuf");
  } else if (head.Length() < kFewestDllBytes) {
    call.Print("ReadFirstNbytesIntoBuf read less than 2000 bytes");
  } else {
    call.Print("Not implemented on this platform, run windows");
  }
  return 0;
}

int DirListCommand(TqCommandCall& call) {
  return ListDirectory(call, false);
}
int DirListDetailCommand(TqCommandCall& call) {
  return ListDirectory(call, true);
}

int CopyResourceForkCommand(TqCommandCall& call) {
  const TqString& source = call.Operand(1);
  const TqString& destination = call.Operand(2);
  call.Print("FileInfo for: ", source);
  TqFileInfo info;
  if (!TqFile::GetInfoAboutFileOrDir(TqFile::WithLastBackslashKept(source), info)) {
    call.Print("File does not exist.");
    return 0;
  }
  if (info.rsrcSize < 1) {
    call.Print("File has no resource fork.");
    return 0;
  }
  std::int64_t numBytes = 0;
  const OwnedBuffer bytes(TqFile::ReadResourceForkIntoBuf(source, numBytes));
  if (bytes == nullptr || numBytes < 1) {
    call.Print("ERROR: Something went wrong reading resource fork.");
  } else if (TqFile::WriteFileToDiskWithRetry(destination, {bytes.get(), static_cast<std::size_t>(numBytes)})) {
    call.Print("SUCCESS: Wrote ", numBytes, " bytes to file: ", destination);
  } else {
    call.Print("ERROR: Something went wrong writing to file: ", destination);
  }
  return 0;
}

int GrepCommand(TqCommandCall& call) {
  return Grep(call, false);
}
int IgrepCommand(TqCommandCall& call) {
  return Grep(call, true);
}

int ExplainFileCommand(TqCommandCall& call) {
  const TqString& file = call.Operand(1);
  const TqString& report = call.Operand(2);
  if (file.Length() < kShortestExplainName) {
    call.Print("\nERROR: file to explain must be at least 3 characters: ", file);
    return 0;
  }
  TqString diagnosis;
  if (!TqExplainFile(file, report, diagnosis)) {
    call.Print("\nERROR: could not produce a report, is file writeable:\n", report, "\n");
    return 0;
  }
  call.Print("\nDone.  Please email Kestrune support this file:\n", report, "\n\n");
  call.Print("\nPrimaryDiagnosis:\n", diagnosis, "\n\n");
  return 0;
}

int CheckCodeSignatureCommand(TqCommandCall& call) {
  if (call.OperandCount() < 1) {
    call.Print("FAIL:Please specify a path to a file.");
    return 1;
  }
  const TqString& path = call.Operand(1);
  if (!TqFile::Exists(path)) {
    call.Print("FAIL:File \"", path, "\" does not exist.");
    return 1;
  }
  const bool isValid = platform::TheFiles().HasValidCodeSignature(path.c_str());
  call.Print(isValid ? "PASS:" : "FAIL:", path,
             isValid ? " has a valid code signature." : " does not have a valid code signature.");
  const TqString self(call.programFile);
  if (!platform::TheFiles().HasValidCodeSignature(self.c_str())) {
    call.Print("FAIL:", self, " does not have a valid code signature (self test).");
  }
  return 0;
}
