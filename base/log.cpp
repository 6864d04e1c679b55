#include "base/log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <mutex>
#include <vector>

#include "platform/platform.h"

namespace {

constexpr unsigned kFileMode = 0666;
constexpr unsigned kFolderMode = 0777;
constexpr std::int64_t kCleanUpPauseMillis = 600'000;

// The ring: the files two to six days ahead of today are about a month old. Towards the end of a month the days after
// its last one are the first days of the next.
constexpr int kFirstOldDay = 2;
constexpr int kLastOldDay = 6;
constexpr int kWrapFromDay = 26;
constexpr int kLastWrappedDay = 5;

struct LogState {
  std::recursive_mutex mutex;
  TqString base;  ///< log folder with its trailing "/"; empty while logging is off
  TqString stem;  ///< the folder's last component, the beginning of every daily name
  std::int64_t lastCleanUpMillis = 0;
};

LogState& State() {
  static LogState state;
  return state;
}

bool IsDirectory(const TqString& path) {
  platform::FileFacts facts;
  return platform::TheFiles().StatThroughLinks(path.c_str(), facts) == 0 &&
         facts.kind == platform::EntryKind::kDirectory;
}

// A failure is found again when the first line cannot be written.
void MakeFolderWithParents(const TqString& folder) {
  if (IsDirectory(folder)) return;
  for (std::int32_t end = folder.FindChar('/', 1); end > 0; end = folder.FindChar('/', end + 1)) {
    platform::TheFiles().MakeDirectory(TqString(folder.Slice(0, end)).c_str(), kFolderMode);
  }
  platform::TheFiles().MakeDirectory(folder.c_str(), kFolderMode);
}

// The log is written by a process that may be root in a folder that others may write: a link in place of the daily file
// must not lead the line into another file.
void AppendLine(const TqString& path, const TqString& line) {
  platform::Files& files = platform::TheFiles();
  int descriptor = -1;
  if (files.Open(path.c_str(), platform::OpenMode::kAppend, kFileMode, descriptor) != 0) return;
  platform::FileFacts facts;
  if (files.StatDescriptor(descriptor, facts) == 0 && facts.kind == platform::EntryKind::kRegular &&
      facts.linkCount == 1) {
    std::size_t written = 0;
    files.Write(descriptor, line.c_str(), static_cast<std::size_t>(line.Length()), written);
    files.ChangeDescriptorMode(descriptor, kFileMode);
  }
  files.Close(descriptor);
}

TqString DailyPath(int day, std::string_view extension) {
  const LogState& state = State();
  return Joined(state.base, state.stem, day < 10 ? "0" : "", day, extension);
}

void DeleteDays(int first, int last) {
  for (int day = first; day <= last; ++day) {
    platform::TheFiles().Unlink(DailyPath(day, ".log").c_str());
    platform::TheFiles().Unlink(DailyPath(day, ".zip").c_str());
  }
}

void CleanUpWhenDue(std::int64_t nowMillis, int today) {
  LogState& state = State();
  if (std::llabs(nowMillis - state.lastCleanUpMillis) <= kCleanUpPauseMillis) return;
  state.lastCleanUpMillis = nowMillis;
  DeleteDays(today + kFirstOldDay, today + kLastOldDay);
  if (today >= kWrapFromDay) DeleteDays(0, kLastWrappedDay);
}

TqString FormattedText(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length < 0) return {};
  std::vector<char> text(static_cast<std::size_t>(length) + 1);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  return std::string_view(text.data(), static_cast<std::size_t>(length));
}

// "static bool TqFile::IsThere(const char *)" gives "TqFile::IsThere()".
TqString FunctionName(std::string_view signature) {
  const std::string_view name = signature.substr(0, signature.rfind('('));
  const std::size_t blank = name.rfind(' ');
  return Joined(blank == std::string_view::npos ? name : name.substr(blank + 1), "()");
}

std::string_view BaseName(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

std::string_view SeverityWord(int severity) {
  if (severity >= TqLog::kSeverityPlain) return "";
  if (severity == TqLog::kSeverityNote) return " NOTE";
  return severity == TqLog::kSeverityWarning ? " WARNING" : " ERROR";
}

}  // namespace

namespace TqLog {

void OpenLog(std::string_view folder, std::string_view dataFolder) {
  const std::lock_guard lock(State().mutex);
  LogState& state = State();
  state.base.Clear();
  const bool isInData = !dataFolder.empty() && folder.starts_with(dataFolder);
  if (folder.empty() || (isInData && !IsDirectory(dataFolder))) return;
  while (folder.ends_with('/')) folder.remove_suffix(1);
  MakeFolderWithParents(folder);
  state.base = Joined(folder, '/');
  state.stem = BaseName(folder);
}

void CloseLog() {
  const std::lock_guard lock(State().mutex);
  State().base.Clear();
  State().lastCleanUpMillis = 0;
}

bool IsOpen() {
  return !State().base.IsEmpty();
}

void LogLine(std::string_view text) {
  const std::int64_t now = TqSystem::NowGmtMillis();
  const int pid = platform::TheMachine().ProcessId();
  const std::lock_guard lock(State().mutex);
  if (!IsOpen()) return;
  const TqString time = TqSystem::GmtDateTimeText(now, "%Y-%m-%d %H:%M:%S");
  char prefix[16];
  std::snprintf(prefix, sizeof prefix, " %010d", pid);
  const TqString line = Joined(time, prefix, " - ", text, text.ends_with('\n') ? "" : "\n");
  std::int64_t today = 0;
  ParseInt64(time.Slice(8, 2), today);
  AppendLine(DailyPath(static_cast<int>(today), ".log"), line);
  CleanUpWhenDue(now, static_cast<int>(today));
}

void LogFormatted(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const TqString text = FormattedText(format, arguments);
  va_end(arguments);
  LogLine(text);
}

void LogWithLocation(int severity, const char* file, unsigned line, const char* signature, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const TqString message = FormattedText(format, arguments);
  va_end(arguments);
  Log(BaseName(file), ':', line, " [", FunctionName(signature), ']', SeverityWord(severity), ":\t", message);
}

TqString DailyFileName(int dayOfMonth) {
  const std::lock_guard lock(State().mutex);
  return IsOpen() ? DailyPath(dayOfMonth, ".log") : TqString();
}

}  // namespace TqLog
