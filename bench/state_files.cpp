// Reads one kind of state file of a given size and prints the least processor seconds of several readings.
//   state_files KIND SIZE READINGS     KIND is one of kKinds; without a reading only the file is prepared

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>

#include "base/fast_file_reader.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/xml_snippets.h"
#include "platform/platform.h"
#include "scan/top_dirs.h"
#include "tests/fake_platform.h"
#include "volumes/volume_registry.h"

namespace {

constexpr const char* kList = "/tmp/tq_bench_filelist.dat";

double ProcessorSeconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

double Least(long readings, const std::function<bool()>& read) {
  double least = readings > 0 ? 1e9 : 0;
  for (long i = 0; i < readings; ++i) {
    const double began = ProcessorSeconds();
    if (!read()) {
      std::fprintf(stderr, "a state file could not be read\n");
      std::exit(2);
    }
    least = std::min(least, ProcessorSeconds() - began);
  }
  return least;
}

std::string Repeated(long count, const std::function<std::string(long)>& line, const std::string& begin,
                     const std::string& end) {
  std::string text = begin;
  for (long i = 0; i < count; ++i) text += line(i);
  return text + end;
}

std::string Numbered(const char* format, long number) {
  char text[400];
  std::snprintf(text, sizeof text, format, number, number);
  return text;
}

const std::string kContents = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n";

std::function<bool()> SettingsFilters(FakePlatform&, long count) {
  const std::string text = Repeated(
      count,
      [](long i) { return Numbered("    <tqdirfilter dir=\"/users/person%06ld/\" whichfiles=\"none\" /> \n", i); },
      kContents, "</contents>\n");
  return [text] {
    TqStringVector snippets;
    TqString value;
    bool found = TqFile::GetAllXmlSnippetsWithTagNameInXml(text, "tqdirfilter", snippets);
    for (const TqString* snippet : snippets) found &= TqFile::GetUniqueStrAttrFromXmlSnippet(*snippet, "dir", value);
    return found;
  };
}

std::function<bool()> Registry(FakePlatform& fake, long count) {
  const auto line = [](long i) {
    return Numbered(
        "<tqvolume tqVolumeGuid=\"v%03lxaa11bb22cc33dd44ee55ff66\" mountPointPathHex=\"2f566f6c756d65732f%08lx2f\" "
        "typeOfVolumeTwoCharCode=\"gm\" lastTimeVolumeWasSeenAttachedGmtMillis=\"1700000000000\" "
        "numBytesFreeOnVolume=\"1\" numBytesUsedOnVolume=\"2\" numBytesTotalOnVolume=\"3\" />\n",
        i);
  };
  fake.MakeFolders(TqInstall::DataFolder());
  fake.WriteFile(
      TqUiUtil::TqVolumesXmlPath(),
      Repeated(count, line,
               kContents +
                   "\n<tqvol_metadata lastAssignedTqVolShortId=\"0ff\" "
                   "gmtMillisThisFileWasWritten=\"1700000000000\" gmtDateTimeFileWasWritten=\"20231114221320\" />\n\n",
               "\n</contents>\n"));
  return [] {
    TqString shortId;
    TqVolumeInfoList volumes;
    return TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile(shortId, volumes);
  };
}

std::function<bool()> TopDirs(FakePlatform& fake, long count) {
  const auto line = [](long i) {
    return Numbered("<dir path=\"2/Users/person%06ld/\" vguid=\"v0001a2b3c4d5e6f708192a3b4c5\" secs_to_scan=\"1\" />\n",
                    i);
  };
  fake.WriteFile("/topdirs.xml",
                 Repeated(count, line,
                          kContents + "<topdirstats millis_to_produce=\"1\" gmt_millis=\"0000018c2d7a5e00\" "
                                      "next_to_index=\"0\" num_times_mount_points_verified=\"0\" />\n",
                          "</contents>\n"));
  return [] {
    TqTopDirsList list;
    return ReadTopDirsXmlFile("/topdirs.xml", list);
  };
}

/// What the explain report does with a list: counts its lines, then searches it for a path. The list is a real file.
std::function<bool()> ListSearch(FakePlatform&, long mebibytes) {
  std::string piece;
  for (long i = 0; piece.size() < 1'048'576; ++i) {
    piece += Numbered("f\t0000018c2d7a5e00\t12345\t/Users/bob/Documents/Projects/House/Plan %08ld.pages\n", i);
  }
  std::FILE* file = std::fopen(kList, "w");
  for (long i = 0; file != nullptr && i < mebibytes; ++i) std::fwrite(piece.data(), 1, piece.size(), file);
  if (file == nullptr || std::fclose(file) != 0) std::exit(2);
  return [] {
    TqStringVector numbers;
    TqStringVector lines;
    return TqFile::CountLinesInFile(kList) > 0 &&
           TqFile::TqGrepFile(kList, "/Users/bob/Missing.pages", false, 1000, numbers, lines, nullptr);
  };
}

struct Kind {
  std::string_view name;
  bool isOnDisk;
  std::function<bool()> (*prepare)(FakePlatform& fake, long size);
};

constexpr Kind kKinds[] = {{"settings", false, SettingsFilters},
                           {"registry", false, Registry},
                           {"topdirs", false, TopDirs},
                           {"explain", true, ListSearch}};

}  // namespace

int main(int count, char** words) {
  TqLog::CloseLog();
  for (const Kind& kind : kKinds) {
    if (count != 4 || words[1] != kind.name) continue;
    FakePlatform fake;
    if (kind.isOnDisk) platform::SetPlatform(platform::HostPlatform());
    std::printf("%.9f\n", Least(std::atol(words[3]), kind.prepare(fake, std::atol(words[2]))));
    std::remove(kList);
    return 0;
  }
  return 2;
}
