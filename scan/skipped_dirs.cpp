#include "scan/skipped_dirs.h"

#include <string_view>

#include "base/log.h"

namespace {

struct DirSkipRule {
  std::string_view message;
  bool needsPeriod;  ///< applies to paths with a period alone; most have none
  bool (*applies)(const TqString& path);
};

/// In the order of testing; the first that applies keeps the directory out.
constexpr DirSkipRule kDirSkipRules[] = {
    {"WARNING: skipping dirname with illegal double-dir sep: ", false,
     [](const TqString& path) { return path.ContainsTwoConsecutiveSeparators(); }},
    {"WARNING: skipping dirname with illegal trailing sep: ", false,
     [](const TqString& path) { return path.EndsWith("/") || path.EndsWith("\\"); }},
    {"WARNING: skipping dirname with TimeMachine in it: ", true,
     [](const TqString& path) { return path.Contains("Backups.backupdb"); }},
    {"WARNING: skipping dirname with WesternDigitalBackup in it: ", true,
     [](const TqString& path) {
       return path.Contains(".swstor") &&
              (path.ContainsIgnoreCase("wd smartware.swstor") || path.ContainsIgnoreCase("wdsmartware.swstor") ||
               path.ContainsIgnoreCase("wdbackup.swstor"));
     }},
    {"WARNING: skipping dirname with Mobile TimeMachine in it: ", true,
     [](const TqString& path) { return path.Contains(".MobileBackups"); }},
};

}  // namespace

bool IsSkippedDir(const TqString& path) {
  const bool holdsPeriod = path.View().find('.') != std::string_view::npos;
  for (const DirSkipRule& rule : kDirSkipRules) {
    if ((rule.needsPeriod && !holdsPeriod) || !rule.applies(path)) continue;
    Log(rule.message, path);
    return true;
  }
  return false;
}
