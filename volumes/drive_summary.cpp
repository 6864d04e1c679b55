#include "volumes/drive_summary.h"

#include <cstdint>

#include "base/file_info.h"
#include "base/install_record.h"
#include "base/xml_files.h"
#include "base/xml_snippets.h"
#include "volumes/selected_volumes.h"
#include "volumes/volume_info.h"

namespace TqUiUtil {
namespace {

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

struct Step {
  std::uint64_t belowGiB;
  std::string_view text;
};

/// Letters "A" and "I" are not used and "J" stands twice: other programs know the letters as they are.
constexpr Step kSizeLetters[] = {{51, "0"},   {150, "1"},  {250, "2"},  {350, "3"},  {450, "4"},
                                 {550, "5"},  {650, "6"},  {750, "7"},  {850, "8"},  {950, "9"},
                                 {1500, "B"}, {2500, "C"}, {3500, "D"}, {4500, "E"}, {5500, "F"},
                                 {6500, "G"}, {7500, "H"}, {8500, "J"}, {9500, "J"}};
constexpr Step kBuckets[] = {{2000, "1_"},  {4000, "2_"},  {6000, "3_"},  {8000, "4_"},
                             {10000, "5_"}, {15000, "6_"}, {20000, "7_"}, {50000, "8_"}};

template <std::size_t N>
std::string_view FirstAbove(const Step (&steps)[N], std::uint64_t bytes, std::string_view beyond) {
  for (const Step& step : steps) {
    if (bytes < step.belowGiB * kGiB) return step.text;
  }
  return beyond;
}

TqString Piece(const TqVolumeInfo& volume) {
  return Joined(volume.volumeIsCurrentlyConnected ? "con," : "xxx,", volume.volumeType, ",t",
                FirstAbove(kSizeLetters, volume.numBytesTotalOnVolume, "Z"), "u",
                FirstAbove(kSizeLetters, volume.numBytesUsedOnVolume, "Z"), ",", volume.mountPointPath, "__");
}

/// Bytes in the last backup as the uploader reports them; 0 when unknown.
std::uint64_t BytesInBackup() {
  const TqString path = Joined(TqInstall::ReportsFolder(), "tqstat_totalbackup.xml");
  TqString text;
  std::int64_t bytes = 0;
  if (TqFile::Exists(path) && TqFile::GetUniqueStrAttrFromXmlFile(path, "totnumbytesforbackup", text)) {
    ParseInt64(Trimmed(text), bytes);
  }
  return bytes > 0 ? static_cast<std::uint64_t>(bytes) : 0;
}

}  // namespace

void GetHardDriveSummary(TqString& summary, TqString& abbreviation) {
  TqVolumeInfoList volumes;
  TqVolumesXml_GetListOfHardDrivesToDisplayInGui(volumes);
  TqString selected;
  TqString others;
  std::uint64_t selectedBytes = 0;
  for (const TqVolumeInfo* volume : volumes) {
    (volume->volumeIsSelectedForBackup ? selected : others).Append(Piece(*volume));
    if (volume->volumeIsSelectedForBackup) selectedBytes += volume->numBytesTotalOnVolume;
  }
  if (selected.IsEmpty()) selected = "none__";
  others.Truncate(others.IsEmpty() ? 0 : others.Length() - 2);
  if (others.IsEmpty()) others = "none";
  summary = TqFile::XmlEscaped(Joined("YesBackedUp_", selected, "NotBackedUp_", others));

  const std::uint64_t backupBytes = BytesInBackup();
  abbreviation = Joined(backupBytes > selectedBytes ? "yes_" : "no_", FirstAbove(kBuckets, backupBytes, "9_"), "s",
                        backupBytes, "_v", selectedBytes);
}

}  // namespace TqUiUtil
