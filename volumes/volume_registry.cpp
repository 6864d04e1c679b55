#include "volumes/volume_registry.h"

#include <algorithm>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/text_codec.h"
#include "base/xml_snippets.h"
#include "volumes/retry.h"

namespace TqUiUtil {
namespace {

using TqFile::GetAllXmlSnippetsWithTagNameInXml;
using TqFile::GetUniqueStrAttrFromXmlSnippet;

constexpr std::string_view kReader = "ERROR: TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile - ";
constexpr std::string_view kStagingMark = " first_tqinfo_staging=\"true\"";

// --- Reading ---

/// A file that another process is just replacing, or that was cut off, lacks its end.
bool IsWholeRegistry(const TqString& contents) {
  constexpr std::int32_t kShortest = 26;
  constexpr std::int32_t kTail = 23;
  return contents.Length() >= kShortest &&
         contents.Slice(contents.Length() - kTail).find("</contents>") != std::string_view::npos;
}

bool ReadWholeRegistry(const TqString& path, TqString& contents) {
  const bool whole =
      Retry(9, 100, [&](int) { return TqFile::ReadFileIntoString(path, contents) && IsWholeRegistry(contents); });
  if (whole) return true;
  if (!TqFile::Exists(path)) {
    Log(kReader, "file did not exist: ", path);
  } else if (contents.Length() < 6) {
    Log(kReader, "file exists but was not readable or no contents: ", path);
  } else {
    Log(kReader, "file exists but was corrupted: ", contents);
  }
  return false;
}

/// An attribute's number; 0 when it is missing or none.
std::int64_t NumberAttribute(const TqString& snippet, std::string_view name) {
  TqString text;
  std::int64_t number = 0;
  if (GetUniqueStrAttrFromXmlSnippet(snippet, name, text)) ParseInt64(Trimmed(text), number);
  return number;
}

std::uint64_t ByteCountAttribute(const TqString& snippet, std::string_view name) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(0, NumberAttribute(snippet, name)));
}

bool ParseVguid(const TqString& snippet, TqVolumeInfo& volume) {
  TqString vguid;
  if (!GetUniqueStrAttrFromXmlSnippet(snippet, "tqVolumeGuid", vguid)) {
    Log(kReader, "could not find tqVolumeGuid in line: ", snippet);
    return false;
  }
  volume.SetVguid(vguid);
  if (IsVguid(vguid)) return true;
  Log(kReader, "badly_5 formed tqVolumeGuid in line: ", snippet);
  return false;
}

bool ParseMountPoint(const TqString& snippet, TqVolumeInfo& volume) {
  TqString hex;
  TqString& mountPoint = volume.mountPointPath;
  if (GetUniqueStrAttrFromXmlSnippet(snippet, "mountPointPathHex", hex)) {
    HexDecode(hex, mountPoint);
  } else {
    Log(kReader, "could not find mountPointPathHex HEX so attempting fallback in line: ", snippet);
    if (!GetUniqueStrAttrFromXmlSnippet(snippet, "mountPointPath", mountPoint)) {
      Log(kReader, "badly_78 formed mountPointPath_OR_BADLY_HEX in line: ", snippet);
      return false;
    }
  }
  volume.isSystemVolume = TqFile::IsSystemVolume(mountPoint);
  if (!mountPoint.IsEmpty()) return true;
  Log(kReader, "badly_56 formed mountPointPath_OR_BADLY_HEX in line: ", snippet);
  return false;
}

/// Fills `volume` from one line of the registry; false (logged) when the line names no volume.
bool ParseVolume(const TqString& snippet, TqVolumeInfo& volume) {
  volume.Reset();
  if (!ParseVguid(snippet, volume) || !ParseMountPoint(snippet, volume)) return false;
  TqString type;
  if (GetUniqueStrAttrFromXmlSnippet(snippet, "typeOfVolumeTwoCharCode", type)) volume.SetType(type);
  volume.lastTimeVolumeWasSeenAttachedGmtMillis = NumberAttribute(snippet, "lastTimeVolumeWasSeenAttachedGmtMillis");
  volume.numBytesFreeOnVolume = ByteCountAttribute(snippet, "numBytesFreeOnVolume");
  volume.numBytesUsedOnVolume = ByteCountAttribute(snippet, "numBytesUsedOnVolume");
  volume.numBytesTotalOnVolume = ByteCountAttribute(snippet, "numBytesTotalOnVolume");
  volume.SetAssociatedHguid(MyHostGuid());
  return true;
}

// --- Writing ---

TqString VolumeLine(const TqVolumeInfo& volume) {
  TqString mountPoint = volume.mountPointPath;
  if (!mountPoint.EndsWith("\\")) mountPoint = TqFile::WithTrailingSlash(mountPoint);
  return Joined("<tqvolume tqVolumeGuid=\"", TqFile::XmlEscaped(volume.vguid), "\" mountPointPathHex=\"",
                HexEncode(mountPoint), "\" typeOfVolumeTwoCharCode=\"", TqFile::XmlEscaped(volume.volumeType),
                "\" lastTimeVolumeWasSeenAttachedGmtMillis=\"", volume.lastTimeVolumeWasSeenAttachedGmtMillis,
                "\" numBytesFreeOnVolume=\"", volume.numBytesFreeOnVolume, "\" numBytesUsedOnVolume=\"",
                volume.numBytesUsedOnVolume, "\" numBytesTotalOnVolume=\"", volume.numBytesTotalOnVolume, "\" />\n");
}

TqString LargestShortId(std::string_view shortId, const TqVolumeInfoList& list) {
  for (const TqVolumeInfo* volume : list) {
    const std::string_view other = ShortIdOf(volume->vguid);
    if (CompareBytes(other, shortId) > 0) shortId = other;
  }
  return shortId;
}

}  // namespace

TqString TqVolumesXmlPath() {
  return Joined(TqInstall::DataFolder(), "tqvolumes.xml");
}

bool TqVolumesXml_ReadTqVolumesXmlFile(TqString& shortId, TqVolumeInfoList& list) {
  list.Clear();
  shortId = kNoShortId;
  TqString contents;
  if (!ReadWholeRegistry(TqVolumesXmlPath(), contents)) return false;
  if (!GetUniqueStrAttrFromXmlSnippet(contents, "lastAssignedTqVolShortId", shortId)) {
    Log(kReader, "could not find lastAssignedTqVolShortId, default to 0");
    shortId = kNoShortId;
  }
  TqStringVector snippets;
  if (!GetAllXmlSnippetsWithTagNameInXml(contents, "tqvolume", snippets) &&
      !contents.Contains(kStagingMark.substr(1))) {
    Log(kReader, "could not find any <tqvolume ...> snippets in: ", TqVolumesXmlPath());
  }
  TqVolumeInfo volume;
  for (const TqString* snippet : snippets) {
    if (ParseVolume(*snippet, volume)) list.AppendCopy(volume);
  }
  return true;
}

bool TqVolumesXml_WriteTqVolumesXmlFile(std::string_view shortId, const TqVolumeInfoList& list, bool staging) {
  constexpr std::string_view kWriter = "ERROR: TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile ";
  if (shortId.size() != kShortIdLength) {
    Log(kWriter, "bad len arg: ", shortId);
    shortId = kNoShortId;
  }
  const std::int64_t now = TqSystem::NowGmtMillis();
  TqString text = Joined(
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n\n<tqvol_metadata lastAssignedTqVolShortId=\"",
      TqFile::XmlEscaped(LargestShortId(shortId, list)), "\" gmtMillisThisFileWasWritten=\"", now,
      "\" gmtDateTimeFileWasWritten=\"", TqSystem::GmtDateTimeText(now), "\"", staging ? kStagingMark : "", " />\n\n");
  for (const TqVolumeInfo* volume : list) text.Append(VolumeLine(*volume));
  text.Append("\n</contents>\n");
  const TqString path = TqVolumesXmlPath();
  const TqFile::SwapResult result = TqFile::SwapInQuietly(path, text, 10, 20, 100);
  if (result == TqFile::SwapResult::kWriteFailed)
    Log(kWriter, "- could not write out temporary file, bailing: ", path, ".tmp");
  if (result == TqFile::SwapResult::kMoveFailed)
    Log(kWriter, "- could not swap in temporary file, bailing: ", path, ".tmp");
  return result == TqFile::SwapResult::kDone;
}

}  // namespace TqUiUtil
