#include "volumes/volume_identity.h"

#include <algorithm>
#include <cstring>

#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/system_info.h"
#include "base/vector.h"
#include "base/xml_snippets.h"
#include "platform/platform.h"
#include "selection/explain_report.h"
#include "volumes/retry.h"

namespace TqFile {
namespace {

constexpr std::string_view kDotFolder = ".tqvol";
constexpr std::string_view kSystemFolder = "tqvol_system_volume";
constexpr std::string_view kReadmeFileName = "README.txt";
constexpr unsigned kFolderMode = 0777;

// --- The texts written ---

TqString IdentityText(std::string_view warning, std::string_view vguid, std::string_view hguid) {
  return Joined("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<readme txt=\"", XmlEscaped(warning),
                "\" />\n<tqvolume vguid=\"", XmlEscaped(vguid), "\" associated_hguid=\"", XmlEscaped(hguid),
                "\" />\n</contents>\n");
}

TqString IdentityWarning(std::string_view mountPoint) {
  constexpr std::string_view kWarning = "WARNING: deleting this file will stop Kestrune from backing up ";
  return IsSystemVolume(mountPoint) ? Joined(kWarning, "the System Volume (", mountPoint, ")")
                                    : Joined(kWarning, "this drive volume");
}

TqString ReadmeText(std::string_view mountPoint) {
  const TqString volume =
      IsSystemVolume(mountPoint) ? Joined("the System Drive Volume (", mountPoint, ")") : TqString("this drive volume");
  return Joined("WARNING: do not delete this directory or these files.  If you do,\nKestrune will stop backing up ",
                volume,
                " and also remove \nany previously backed up files from the Kestrune datacenter.  More\n"
                "information can be found at ",
                TqInfoManager::kHelpAddress, "\n");
}

// --- Writing ---

/// The code of the first argument that is wrong; empty when all are right.
TqString ArgumentError(const char* mountPoint, const char* vguid, const char* hguid) {
  if (mountPoint == nullptr) return "ERR_NullMountPointIn";
  if (vguid == nullptr) return "ERR_NullVguid";
  if (std::strlen(vguid) != kVguidLength) return Joined("ERR_Vguid_wrong_length=", std::strlen(vguid));
  if (hguid == nullptr) return "ERR_NullAssociatedHguid";
  if (std::strlen(hguid) != kHguidLength) return Joined("ERR_AssociatedHguid_wrong_length=", std::strlen(hguid));
  return "";
}

/// A real directory afterwards; a link that leads to one is refused. Parents are never made: the volume may just have
/// gone.
bool EnsureFolder(const TqString& folder, bool hidden) {
  if (IsDirectory(folder)) return true;
  platform::Files& files = platform::TheFiles();
  if (hidden) {
    files.MakeHiddenDirectory(folder.c_str(), kFolderMode);
  } else {
    files.MakeDirectory(folder.c_str(), kFolderMode);
  }
  return IsDirectory(folder);
}

/// The code of the first folder that could not be had; empty when all are there.
std::string_view FolderError(std::string_view mountPoint) {
  if (IsSystemVolume(mountPoint)) {
    const bool made = EnsureFolder(Joined(TqInstall::DataFolder(), kSystemFolder), false);
    return made ? "" : "could_not_create_tqdata_tqvol_dir";
  }
  // An empty or relative mount point must not put an identity into whatever folder the process stands in.
  const TqString top = Joined(WithTrailingSlash(mountPoint), kDotFolder);
  if (!mountPoint.starts_with('/') || !EnsureFolder(top, true)) return "could_not_create_hidden_tqvol_top_dir";
  if (!EnsureFolder(Joined(top, "/tqscratch"), false)) return "could_not_create_hidden_tqscratch_dir";
  const bool made = EnsureFolder(Joined(top, "/tqscratch/tqcurrentlargefile"), false);
  return made ? "" : "could_not_create_hidden_tqcurrentlargefile_dir";
}

constexpr std::string_view kAsideMark = ".aside";

bool MoveAside(const TqString& file, TqString& aside) {
  return Retry(10, 50, [&](int) {
    aside = Joined(file, kAsideMark, TqSystem::RandomBelow(10'000), ".xml");
    return AtomicMoveFile(file, aside);
  });
}

/// Deletes what replacing `file` moved aside, now or in a process that was killed before it came to this.
void DeleteAsideFiles(const TqString& file) {
  const TqString folder(file.Slice(0, file.FindLastChar('/') + 1));
  const TqString beginning = Joined(file, kAsideMark);
  TqFileInfoList entries;
  GetListOfFileInfosInDir(&folder, &entries);
  for (std::int32_t i = 0; i < entries.Count(); ++i) {
    const TqFileInfo& entry = *entries.Get(i);
    if (!entry.isDir && entry.path.StartsWith(beginning)) DeleteFile(entry.path);
  }
}

/// Replaces `file`; the code of the step that failed, and the former file is then in place again.
std::string_view ReplaceIdentityFile(const TqString& file, const TqString& text) {
  TqString aside;
  const bool hadOne = Exists(file);
  if (hadOne && !MoveAside(file, aside)) return "could_not_move_aside_prev_tqvol_id_file";
  if (!Retry(10, 100, [&](int) { return WriteWholeFile(file, text); })) {
    if (hadOne && !AtomicMoveFileWithRetry(aside, file)) {
      Log("ERROR: TqFile::WriteVolumeGuidIntoDotTqVolDirOnVolume - could not put back the previous file from: ", aside);
    }
    return "could_not_write_out_tqvol_id_file";
  }
  DeleteAsideFiles(file);
  return "";
}

// --- Changing one attribute in place ---

/// Replaces the value of the attribute that GetUniqueStrAttrFromXmlSnippet would read; every other byte stays.
bool ReplaceAttribute(TqString& text, std::string_view name, std::string_view value) {
  for (const char separator : {' ', '\n', '\t'}) {
    const TqString opener = Joined(separator, name, "=\"");
    const std::int32_t start = text.Find(opener);
    if (start < 0) continue;
    const std::int32_t valueStart = start + opener.Length();
    const std::int32_t valueEnd = text.FindChar('"', valueStart);
    if (valueEnd < 0) return false;
    text.Erase(valueStart, valueEnd - valueStart);
    return text.Insert(valueStart, XmlEscaped(value));
  }
  return false;
}

// --- Repairing the system volume's host GUID ---

constexpr std::string_view kRepair = "TqMyInternalAttemptRepairBad_assocHguid_in_tqvol_system_volume_folder ";

/// The settings beside the identity file; empty (logged) when the file does not lie where a data folder would have it.
TqString SettingsBesideIdentityFile(const TqString& identityFile) {
  const std::int32_t tailLength = static_cast<std::int32_t>(kSystemFolder.size() + 1 + kIdentityFileName.size());
  std::string_view folder = identityFile.Slice(0, std::max(identityFile.Length() - tailLength, 0));
  if (folder.ends_with('/')) folder.remove_suffix(1);
  if (folder.ends_with("tqdata")) return Joined(folder, "/tqinfo.xml");
  Log("ERROR: ", kRepair,
      "impossible situation, the trimmed fileName does not end in tqdata, trimmedFileName=", folder);
  return "";
}

/// The vguid that settings text names for the system volume; empty when there is none.
TqString SystemVguidOfSettings(const TqString& settings) {
  TqStringVector snippets;
  GetAllXmlSnippetsWithTagNameInXml(settings, "tqvolume", snippets);
  for (const TqString* snippet : snippets) {
    TqString mountPoint;
    TqString vguid;
    if (GetUniqueStrAttrFromXmlSnippet(*snippet, "mountPointPath", mountPoint) && IsSystemVolume(mountPoint) &&
        GetUniqueStrAttrFromXmlSnippet(*snippet, "tqVolumeGuid", vguid) && IsVguid(vguid) && vguid.StartsWith("v")) {
      return vguid;
    }
  }
  return "";
}

/// The vguid that the repaired file shall have: the settings' one, for that is what the lists and the registry go by,
/// else the file's own. False (logged) when neither is usable.
bool ChooseRepairedVguid(const TqString& file, const TqString& fileVguid, TqString& vguid) {
  const TqString settingsPath = SettingsBesideIdentityFile(file);
  if (settingsPath.IsEmpty()) return false;
  TqString settings;
  if (!ReadFileIntoString(settingsPath, settings)) {
    Log("ERROR: ", kRepair, "could not read tqinfo.xml, fileName=", settingsPath);
    return false;
  }
  vguid = SystemVguidOfSettings(settings);
  if (!vguid.IsEmpty()) {
    Log("INFO: ", kRepair, "very good situation, tqinfo.xml names the system volume, vguid=", vguid);
    return true;
  }
  vguid = fileVguid;
  if (!IsVguid(vguid)) {
    Log("ERROR: ", kRepair, "fallback vguid from tqvol_id.xml is wrong length, vguid=", vguid);
    return false;
  }
  Log("using fallback vguid from tqvol_id.xml, vguid=", vguid);
  return true;
}

/// Writes the file anew with this host's GUID; `volume` then carries what was written.
void RepairHostGuid(const TqString& file, TqString contents, const TqString& myHguid, TqVolumeInfo& volume) {
  TqString fileVguid;
  TqString vguid;
  GetUniqueStrAttrFromXmlSnippet(contents, "vguid", fileVguid);
  if (!ChooseRepairedVguid(file, fileVguid, vguid)) return;
  if (!ReplaceAttribute(contents, "associated_hguid", myHguid) || !ReplaceAttribute(contents, "vguid", vguid)) {
    Log("ERROR: ", kRepair, "could not put the new values into the contents, fileName=", file);
  } else if (!WriteFileAndSwapIn(file, contents)) {
    Log("ERROR: ", kRepair, "could not write or swap in, fileName=", file);
  } else {
    volume.SetVguid(vguid);
    volume.SetAssociatedHguid(myHguid);
  }
}

/// A data folder that came from another machine (a restored or cloned system disk) names that machine as its host.
void RepairHostGuidIfNeeded(const TqString& file, const TqString& contents, TqVolumeInfo& volume) {
  const TqString fileHguid(volume.associatedHguid);
  const TqString firstHguid = MyHostGuid();
  if (fileHguid.IsEmpty() || firstHguid == TqInstall::kUnknownHostGuid || EqualsIgnoreCase(firstHguid, fileHguid))
    return;
  TqFile_Internal_Only_GetMyHostGuid(nullptr);
  const TqString freshHguid = MyHostGuid();
  if (!EqualsIgnoreCase(freshHguid, firstHguid)) {
    Log("IMPORTANT: TqFile::GetInfoAboutAttachedVolume, on the SystemBootVolume myHguid=", firstHguid,
        ", changedToTheMoreRecent=", freshHguid, ", so NOT attempting repair.");
    return;
  }
  Log("ERROR: TqFile::GetInfoAboutAttachedVolume, on the SystemBootVolume myHguid=", firstHguid,
      ", which doesn't match assocHguid=", fileHguid, ", so attempting repair.");
  RepairHostGuid(file, contents, freshHguid, volume);
}

// --- Reading ---

/// Where the volume's identity file is, or would be.
TqString FindIdentityFile(const TqString& mountPoint) {
  const TqString folder = IdentityFolder(mountPoint);
  if (!IsSystemVolume(mountPoint)) return Joined(folder, kIdentityFileName);
  // Looking at a volume never makes a missing data folder, which the clone would do.
  if (!IdentityFileExists(folder) && TqInstall::DataFolderExists())
    CloneTqVolFolderOfSystemVolumeIntoDataDir_IfNeeded();
  return Joined(IdentityFileExists(folder) ? folder : Joined("/", kDotFolder, "/"), kIdentityFileName);
}

void LogReaderNote(std::string_view note, const TqString& file) {
  Log("WARNING: TqFile::GetInfoAboutAttachedVolume, ", note, ", fileName=", file);
}

/// The identity text; false when the volume has none.
bool ReadIdentityText(const TqString& mountPoint, const TqString& file, TqString& contents) {
  const std::string_view folder = file.Slice(0, file.FindLastChar('/') + 1);
  if (IdentityFileExists(folder)) {
    if (ReadIdentityFile(file, contents)) return true;
    LogReaderNote("tqvol_id_file_exists_but_not_readable", file);
  }
  return IsSystemVolume(mountPoint) && GetSimulatedRootVolumeContents_tqvol_id_xml(contents);
}

void ParseIdentity(const TqString& contents, const TqString& file, TqVolumeInfo& volume) {
  if (contents.Length() < 10) {
    LogReaderNote(Joined("read_tqvol_id_file_but_too_few_bytes=", contents.Length()), file);
    return;
  }
  TqString value;
  if (!GetUniqueStrAttrFromXmlSnippet(contents, "vguid", value)) {
    LogReaderNote("no_vguid_in_tqvol_id_file", file);
  } else {
    volume.SetVguid(value);
    if (volume.vguid[0] == '\0') LogReaderNote(Joined("bad_format_vguid_in_tqvol_id_file_", value), file);
  }
  if (!GetUniqueStrAttrFromXmlSnippet(contents, "associated_hguid", value)) {
    LogReaderNote("no_associated_hguid_in_tqvol_id_file", file);
  } else {
    volume.SetAssociatedHguid(value);
    if (volume.associatedHguid[0] == '\0') LogReaderNote(Joined("bad_format_hguid_in_tqvol_id_file_", value), file);
  }
}

// --- Cloning ---

/// The first folder that holds an identity of the system volume, ending in "/"; empty when there is none.
TqString CloneSource() {
  for (const std::string_view folder : {"/.tqvol", "/System/Volumes/Data/.tqvol"}) {
    if (IsDirectory(folder)) return WithTrailingSlash(folder);
  }
  return "";
}

/// One step's line in the log: "<severity>TqFile::Clone... (processId=<pid>), <what> <source> to <target>".
void LogCloneStep(std::string_view severity, std::string_view what, std::string_view source, std::string_view target) {
  Log(severity, "TqFile::CloneTqVolFolderOfSystemVolumeIntoDataDir_IfNeeded (processId=", TqSystem::ProcessId(), "), ",
      what, " ", source, " to ", target);
}

bool CopySmallFile(const TqString& from, const TqString& to) {
  TqString text;
  const bool copied = ReadIdentityFile(from, text) && WriteFileAndSwapIn(to, text);
  LogCloneStep(copied ? "SUCCESS: " : "ERROR: ", copied ? "copied" : "could not copy", from, to);
  return copied;
}

}  // namespace

TqString IdentityFolder(std::string_view mountPoint) {
  return IsSystemVolume(mountPoint) ? Joined(TqInstall::DataFolder(), kSystemFolder, "/")
                                    : Joined(WithTrailingSlash(mountPoint), kDotFolder, "/");
}

bool IdentityFileExists(std::string_view folder) {
  return IsDirectory(folder.substr(0, folder.size() - 1)) && Exists(Joined(folder, kIdentityFileName));
}

bool ReadIdentityFile(std::string_view file, TqString& contents) {
  // A file that a stranger's drive brings along, and whose content goes into the log where it is wrong.
  constexpr std::int64_t kMostBytes = 64 * 1024;
  TqFileInfo info;
  contents.Clear();
  return GetInfoAboutFileOrDir(file, info) && !info.isDir && !info.isSpecial && info.dataSize <= kMostBytes &&
         ReadFileIntoString(file, contents);
}

bool WriteVolumeGuidIntoDotTqVolDirOnVolume(const char* mountPoint, const char* vguid, const char* associatedHguid,
                                            TqString* error) {
  TqString code = ArgumentError(mountPoint, vguid, associatedHguid);
  if (code.IsEmpty()) code = FolderError(mountPoint);
  if (code.IsEmpty()) {
    const TqString folder = IdentityFolder(mountPoint);
    code = ReplaceIdentityFile(Joined(folder, kIdentityFileName),
                               IdentityText(IdentityWarning(mountPoint), vguid, associatedHguid));
    if (code.IsEmpty()) WriteWholeFile(Joined(folder, kReadmeFileName), ReadmeText(mountPoint));
  }
  if (error != nullptr) *error = code;
  return code.IsEmpty();
}

bool GetSimulatedRootVolumeContents_tqvol_id_xml(TqString& contents) {
  constexpr std::string_view kFunction = "TqFile::GetSimulatedRootVolumeContents_tqvol_id_xml";
  contents.Clear();
  const TqString path = Joined(TqInstall::DataFolder(), "tqinfo.xml");
  if (!Exists(path)) {
    Log("WARNING: ", kFunction, " tqinfo.xml file does not exist here=", path,
        ", which is normal in the installer, but bad any other time.");
    return false;
  }
  TqString settings;
  const bool read = Retry(20, 200, [&](int number) {
    if (ReadFileIntoString(path, settings)) return true;
    if (number >= 10) {
      Log("WARNING: ", kFunction, " tqinfo.xml file exists but having trouble reading it iteration=", number,
          ", fileName=", path);
    }
    return false;
  });
  if (!read) {
    Log("ERROR: ", kFunction, " could not read tqinfo.xml file from disk 1: ", path);
    return false;
  }
  const TqString vguid = SystemVguidOfSettings(settings);
  if (vguid.IsEmpty()) {
    Log("ERROR: ", kFunction, " - no tqvolume of the system volume with a good tqVolumeGuid in: ", path);
    return false;
  }
  // The full stop at the end tells a rebuilt file from a written one.
  contents = IdentityText(Joined(IdentityWarning(""), "."), vguid, MyHostGuid());
  return true;
}

void CloneTqVolFolderOfSystemVolumeIntoDataDir_IfNeeded() {
  const TqString folder = IdentityFolder("/");
  const TqString target = Joined(folder, kIdentityFileName);
  if (IdentityFileExists(folder)) return;
  const TqString source = CloneSource();
  LogCloneStep("NOTE: ", "about to clone", source.IsEmpty() ? std::string_view("simulated contents") : source.View(),
               folder);
  TqString simulated;
  if (source.IsEmpty() && !GetSimulatedRootVolumeContents_tqvol_id_xml(simulated)) {
    Log("ERROR: TqFile::CloneTqVolFolderOfSystemVolumeIntoDataDir_IfNeeded (processId=", TqSystem::ProcessId(),
        "), bailing because no srcFolder Exists to copy from srcFolder=", Joined("/", kDotFolder));
    return;
  }
  if (!TqInstall::CreateDataFolder() || !EnsureFolder(Joined(TqInstall::DataFolder(), kSystemFolder), false)) {
    LogCloneStep("ERROR: ", "could not create the folder to clone", source, folder);
  } else if (source.IsEmpty()) {
    const bool written = WriteFileAndSwapIn(target, simulated);
    LogCloneStep(written ? "SUCCESS: " : "ERROR: ", written ? "wrote" : "could not write", "simulated contents",
                 target);
  } else if (CopySmallFile(Joined(source, kIdentityFileName), target)) {
    CopySmallFile(Joined(source, kReadmeFileName), Joined(folder, kReadmeFileName));
  }
}

bool HasIdentityOfThisHost(const TqVolumeInfo& volume) {
  return volume.vguid[0] != '\0' && EqualsIgnoreCase(volume.associatedHguid, MyHostGuid());
}

void ReadVolumeIdentity(TqVolumeInfo& volume) {
  const TqString file = FindIdentityFile(volume.mountPointPath);
  TqString contents;
  if (!ReadIdentityText(volume.mountPointPath, file, contents)) return;
  ParseIdentity(contents, file, volume);
  if (IsSystemVolume(volume.mountPointPath)) RepairHostGuidIfNeeded(file, contents, volume);
}

}  // namespace TqFile
