#pragma once

// The process-wide text log: a ring of daily files covering about a month, "<folder's last component><DD>.log". No
// handle is kept open, so the log survives its file being moved at any time, and lines of several processes interleave
// whole. Neither the writer nor its clean-up calls anything that logs. A line that cannot be written is dropped.

#include <string_view>

#include "base/clock.h"
#include "base/string.h"

namespace TqLog {

/// Sets the log folder, replacing any earlier one, and creates it with missing parents (0777). When `folder` lies
/// inside `dataFolder` (ends in "/"; empty: none) and the data folder does not exist, logging is off. A failed creation
/// still sets it.
void OpenLog(std::string_view folder, std::string_view dataFolder);
/// Logging off: later writes are dropped.
void CloseLog();
bool IsOpen();

/// "<GMT time> <pid, ten digits> - <text>\n", appended in one write. Then, at most once per ten minutes, deletes old
/// daily files.
void LogLine(std::string_view text);

/// printf forms.
void LogFormatted(const char* format, ...) __attribute__((format(printf, 1, 2)));

inline constexpr int kSeverityError = -3;
inline constexpr int kSeverityWarning = -2;
inline constexpr int kSeverityNote = -1;
inline constexpr int kSeverityPlain = 0;
/// "<file>:<line> [<function>()] <SEVERITY>:\t<message>"; `signature` is the compiler's full signature text of the
/// caller (std::source_location's function_name), `file` is reduced to its base name.
void LogWithLocation(int severity, const char* file, unsigned line, const char* signature, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

/// Log base + folder's last component + two-digit day + ".log"; empty when logging is off.
TqString DailyFileName(int dayOfMonth);

}  // namespace TqLog

/// Joins the pieces (texts, characters, integers, booleans) into one log line.
template <typename... Pieces>
void Log(const Pieces&... pieces) {
  TqLog::LogLine(Joined(pieces...));
}
