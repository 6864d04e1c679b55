// Whether reading the state files costs in proportion to their size: each reading is timed (processor time) at a size
// and at four times that size, the least of several rounds each. The status is 1 when the larger one costs over a
// quarter more per unit.   state_files [SCRATCH_FOLDER [LIST_MEBIBYTES]]   (default /tmp, 2048)

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>

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

constexpr double kTolerated = 1.25;
bool allLinear = true;

double ProcessorSeconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

double Least(int rounds, const std::function<bool()>& read) {
  double least = 1e9;
  for (int i = 0; i < rounds; ++i) {
    const double began = ProcessorSeconds();
    if (!read()) {
      std::fprintf(stderr, "a state file could not be read\n");
      std::exit(2);
    }
    least = std::min(least, ProcessorSeconds() - began);
  }
  return least;
}

/// Times what `prepare(size)` answers at a quarter of `size` and at `size`.
void Compare(const char* what, long size, int rounds, const std::function<std::function<bool()>(long size)>& prepare) {
  const long quarter = size / 4;
  const double small = Least(rounds, prepare(quarter));
  const double large = Least(rounds, prepare(size));
  const double growth = large / small / (static_cast<double>(size) / static_cast<double>(quarter));
  allLinear &= growth <= kTolerated;
  std::printf("  %-52s %9ld %10.2f ms %10.1f ns each   x%.2f per unit  %s\n", what, size, large * 1e3,
              large * 1e9 / static_cast<double>(size), growth, growth <= kTolerated ? "ok" : "NOT LINEAR");
  std::fflush(stdout);
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

std::function<bool()> SettingsFilters(long count) {
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

/// What the explain report does with a list: counts its lines, then searches it for a path.
std::function<bool()> ListSearch(const std::string& path, long mebibytes) {
  std::string piece;
  for (long i = 0; piece.size() < 1'048'576; ++i) {
    piece += Numbered("f\t0000018c2d7a5e00\t12345\t/Users/bob/Documents/Projects/House/Plan %08ld.pages\n", i);
  }
  std::FILE* file = std::fopen(path.c_str(), "w");
  for (long i = 0; file != nullptr && i < mebibytes; ++i) std::fwrite(piece.data(), 1, piece.size(), file);
  if (file == nullptr || std::fclose(file) != 0) std::exit(2);
  return [path] {
    TqStringVector numbers;
    TqStringVector lines;
    return TqFile::CountLinesInFile(path) > 0 &&
           TqFile::TqGrepFile(path, "/Users/bob/Missing.pages", false, 1000, numbers, lines, nullptr);
  };
}

}  // namespace

int main(int count, char** words) {
  const std::string scratch = count > 1 ? words[1] : "/tmp";
  const long mebibytes = count > 2 ? std::atol(words[2]) : 2048;
  TqLog::CloseLog();
  std::printf("\nReading state files: cost at the size, and per unit against a quarter of it\n");
  {
    FakePlatform fake;
    Compare("settings: filters found, one attribute each", 9'999, 5, SettingsFilters);
    Compare("registry: volumes read", 1'000, 5, [&](long size) { return Registry(fake, size); });
    Compare("topdirs.xml: entries read", 100'000, 3, [&](long size) { return TopDirs(fake, size); });
  }
  const std::string list = scratch + "/tq_bench_filelist.dat";
  Compare("explain: lines counted and searched, MiB of list", mebibytes, 1,
          [&](long size) { return ListSearch(list, size); });
  std::remove(list.c_str());
  return allLinear ? 0 : 1;
}
