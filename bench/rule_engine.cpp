// Nanoseconds per decision on three kinds of paths, with the default rules and with many of a user's own, beside the
// naive evaluator of the tests. "Walked" paths come directory by directory, as a scan asks; "mixed" ones in random
// order.

#include "selection/rule_engine.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "base/log.h"
#include "selection/rule_texts.h"
#include "tests/selection/naive_rules.h"

namespace {

using Paths = std::vector<std::string>;

enum PathKind : int { kSystemFolders, kHomeFolders, kExternalVolumes };
enum RuleSet : int { kDefaultRules = 0, kTwoThousand = 2'000, kNineThousand = 9'000 };
enum Order : int { kWalked, kMixed };

// Each directory is walked with twenty files.
const Paths kSystemDirs = {"/usr/share/doc/libboost1.74-dev/html/boost_asio/example",
                           "/tree/share/icons/hicolor/48x48/apps",
                           "/tree/lib/python3/dist-packages/setuptools/_vendor",
                           "/opt/local/share/man/man3",
                           "/tree/include/linux/netfilter/ipset",
                           "/private/etc/ssl/certs"};
const Paths kHomeDirs = {"/Users/bob/Documents/Letters/2019",
                         "/Users/bob/Library/Application Support/AddressBook/Metadata",
                         "/Users/bob/Library/Mail/V7/1234/INBOX.mbox/Data/Messages",
                         "/Users/bob/Library/Application Support/Google/Chrome/Default/Extensions/abc/1.0",
                         "/Users/bob/Library/Safari/LocalStorage",
                         "/Users/bob/Library/Containers/com.apple.mail/Data/Library/Preferences",
                         "/Users/bob/Pictures/Photos Library.photoslibrary/Masters/2019/03",
                         "/Users/bob/Music/iTunes/iTunes Media/Music/Artist/Album"};
const Paths kVolumeDirs = {"/Volumes/Photos/2019/Summer/Raw", "/Volumes/Photos/Users/bob/Library/Preferences",
                           "/Volumes/Backup Disk/Archive/Projects/House/Plans", "/Volumes/Media/src/engine/render"};
const Paths kNames = {"IMG_0001.JPG", "letter to the bank.docx", "17623.emlx", "Makefile", "com.apple.finder.plist"};

// The default settings' excluded file types, in part.
const Paths kExcludedTypes = {"vmc",   "vhd",  "vhdx", "vdi",  "iso", "dmg", "sparseimage", "sys",
                              "cab",   "exe",  "msi",  "dll",  "wim", "ost", "o",           "log",
                              "ithmb", "vmdk", "vmem", "vmsd", "vmx", "pva", "pvs",         "hdd"};

Paths PathsOf(PathKind kind, Order order) {
  Paths paths;
  for (const std::string& dir : kind == kSystemFolders ? kSystemDirs : kind == kHomeFolders ? kHomeDirs : kVolumeDirs) {
    for (int i = 0; i < 20; ++i) {
      paths.push_back(dir + "/" + std::to_string(i) + kNames[static_cast<std::size_t>(i) % kNames.size()]);
    }
  }
  if (order == kMixed) std::shuffle(paths.begin(), paths.end(), std::mt19937(20'071'228));
  return paths;
}

std::string RuleLine(const std::string& prefix, const std::string& contains, const std::string& extension) {
  return "<excludefname_rule plat=\"mac\" osVers=\"*\" ruleIsOptional=\"t\" skipFirstCharThenStartsWith=\"" + prefix +
         "\" contains_1=\"" + contains + "\" contains_2=\"*\" doesNotContain=\"*\" endsWith=\"*\" hasFileExtension=\"" +
         extension + "\" />\n";
}

/// Four in five are directory filters below /Users that none of the paths lies in; the others want a text or an
/// extension.
std::string UserRules(int count) {
  std::string rules;
  for (int i = 0; i < count; ++i) {
    const std::string number = std::to_string(10'000 + i);
    if (i % 10 == 8) {
      rules += RuleLine("users/", "/Project " + number + "/build/", "*");
    } else if (i % 10 == 9) {
      rules += RuleLine("*", "*", "x" + number);
    } else {
      rules +=
          RuleLine(i % 2 == 0 ? "users/bob/documents/folder" + number + "/" : "users/person" + number + "/", "*", "*");
    }
  }
  return rules;
}

/// The texts of a load: the built-in rules and, in data sets of their own, the user's.
std::vector<std::string> RuleTexts(int userRules) {
  std::string excludedTypes;
  for (const std::string& type : kExcludedTypes) excludedTypes += RuleLine("*", "*", type);
  std::vector<std::string> texts = {TqInfoManager::MandatoryRulesText().c_str(),
                                    TqInfoManager::EditableRulesText().c_str(), excludedTypes};
  if (userRules > 0) texts.push_back(UserRules(userRules));
  return texts;
}

void Load(int userRules) {
  TqInfoManager::FreeRules(TqInfoManager::tqExcludeFilenameRules, &TqInfoManager::num_tqExcludeFilenameRules);
  for (const std::string& text : RuleTexts(userRules)) {
    const TqString xml(text);
    TqInfoManager::ParseExcludeFileNameRules(&xml, TqInfoManager::tqExcludeFilenameRules,
                                             &TqInfoManager::num_tqExcludeFilenameRules, "bench");
  }
}

void Engine(benchmark::State& state) {
  Load(static_cast<int>(state.range(1)));
  std::vector<TqString> paths;
  for (const std::string& path : PathsOf(static_cast<PathKind>(state.range(0)), static_cast<Order>(state.range(2)))) {
    paths.emplace_back(path);
  }
  std::size_t excluded = 0;
  for (auto _ : state) {
    for (const TqString& path : paths) {
      excluded += TqInfoManager::UserWantsThisFileBackedUpEx(path, 1, 2, TqInfoManager::tqExcludeFilenameRules,
                                                             TqInfoManager::num_tqExcludeFilenameRules)
                      ? 0
                      : 1;
    }
  }
  const auto decisions = static_cast<double>(state.iterations()) * static_cast<double>(paths.size());
  state.counters["perDecision"] =
      benchmark::Counter(decisions, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["excluded"] = static_cast<double>(excluded) / decisions;
}

std::string RuleLinesOf(const std::string& text) {
  std::istringstream in(text);
  std::string lines;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("<excludefname_rule ")) lines += line + "\n";
  }
  return lines;
}

void Naive(benchmark::State& state) {
  NaiveRules rules;
  for (const std::string& text : RuleTexts(static_cast<int>(state.range(1)))) rules.Load(RuleLinesOf(text));
  const Paths paths = PathsOf(static_cast<PathKind>(state.range(0)), kWalked);
  for (auto _ : state) {
    for (const std::string& path : paths) benchmark::DoNotOptimize(rules.Wants(path));
  }
  const auto decisions = static_cast<double>(state.iterations()) * static_cast<double>(paths.size());
  state.counters["perDecision"] =
      benchmark::Counter(decisions, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

BENCHMARK(Engine)
    ->ArgNames({"paths", "userRules", "mixed"})
    ->ArgsProduct({{kSystemFolders, kHomeFolders, kExternalVolumes},
                   {kDefaultRules, kTwoThousand, kNineThousand},
                   {kWalked, kMixed}});
BENCHMARK(Naive)
    ->ArgNames({"paths", "userRules"})
    ->ArgsProduct({{kSystemFolders, kHomeFolders, kExternalVolumes}, {kDefaultRules, kTwoThousand, kNineThousand}});

}  // namespace

int main(int count, char** words) {
  TqLog::CloseLog();
  benchmark::Initialize(&count, words);
  benchmark::RunSpecifiedBenchmarks();
}
