#include "base/run_command.h"

#include <cstdio>

#include "base/clock.h"
#include "base/file_io.h"
#include "base/log.h"
#include "platform/platform.h"

namespace {

constexpr std::int64_t kPollMillis = 500;
constexpr std::int64_t kReapPollMicros = 500;
constexpr std::int64_t kReapLimitMicros = 20'000'000;

struct RunState {
  TqString testRoot;  ///< empty: commands really run
  bool hasRun = false;
};

RunState& TheState() {
  static RunState state;
  return state;
}

void EndWithMessage(const char* message) {
  std::puts(message);
  platform::TheMachine().Exit(1);
}

bool IsUnreserved(char c) {
  const char lower = LowerChar(c);
  return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') ||
         std::string_view("-._~").find(c) != std::string_view::npos;
}

/// The command as one flat file name.
TqString FormEncoded(std::string_view text) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  TqString out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (IsUnreserved(c)) {
      out.AppendChar(c);
    } else if (c == ' ') {
      out.AppendChar('+');
    } else {
      AppendAll(out, '%', kHexDigits[byte >> 4], kHexDigits[byte & 15]);
    }
  }
  return out;
}

std::unique_ptr<TqString> ReadOutput(std::string_view path) {
  auto output = std::make_unique<TqString>();
  if (!TqFile::ReadFileIntoString(path, *output)) return nullptr;
  return output;
}

std::unique_ptr<TqString> ReadCannedResult(std::string_view root, const char* command) {
  Log("WARNING: TqSystem::RunCommand, Running in Test Mode");
  const TqString path = Joined(root, root.ends_with('/') ? "" : "/", "tqstubs/", FormEncoded(command), ".txt");
  std::unique_ptr<TqString> result = ReadOutput(path);
  if (result) {
    Log("command '", command, "' read test results from: ", path);
  } else {
    Log("ERROR: command '", command, "' could not read test results from: ", path);
  }
  return result;
}

/// The temporary file stays behind after a successful read, on purpose: support staff look into it.
std::unique_ptr<TqString> RunAndWait(const TqString& line, const TqString& outputPath) {
  int error = 0;
  if (platform::TheMachine().RunShellAndWait(line.c_str(), error) == -1) {
    Log("ERROR: RunCommand, system() call failed with errorno ", error);
    TqFile::DeleteFile(outputPath);
    return nullptr;
  }
  return ReadOutput(outputPath);
}

/// Neither ended nor unknown to the system (then there is nothing left to wait for).
bool IsRunning(const platform::ChildStatus& status) {
  return !status.ended && status.pid != -1;
}

platform::ChildStatus WaitForChild(int child, std::int64_t timeoutMillis) {
  platform::ChildStatus status = platform::TheMachine().PollChild(child);
  for (std::int64_t waited = 0; IsRunning(status) && waited < timeoutMillis; waited += kPollMillis) {
    TqSystem::SleepMillis(kPollMillis);
    status = platform::TheMachine().PollChild(child);
  }
  return status;
}

void KillAndReap(int child, std::string_view outputPath) {
  Log("About to kill childpid_a, info:", outputPath);
  Log("About to kill childpid(", child, ")");
  if (const int error = platform::TheMachine().KillChildGroup(child); error != 0) {
    Log("ERROR: RunCommand unable to kill child proc(", child, ") errno = ", error);
  }
  platform::ChildStatus status = platform::TheMachine().PollChild(child);
  for (std::int64_t waited = 0; IsRunning(status) && waited < kReapLimitMicros; waited += kReapPollMicros) {
    TqSystem::SleepMicros(kReapPollMicros);
    status = platform::TheMachine().PollChild(child);
  }
  if (IsRunning(status)) {
    Log("Child process could not be killed. defunct process likely to occur.  Look for pid(", child, ").");
  }
  Log("After kill childpid(", child, ") returnpid(", status.pid, "status:", status.status);
}

std::unique_ptr<TqString> RunWithTimeout(const TqString& line, const TqString& outputPath,
                                         std::int32_t timeoutSeconds) {
  int error = 0;
  const int child = platform::TheMachine().StartShell(line.c_str(), error);
  if (child == -1) {
    Log("ERROR: TqSystem::RunCommand, execl() call failed");
    TqFile::DeleteFile(outputPath);
    return nullptr;
  }
  const platform::ChildStatus status = WaitForChild(child, std::int64_t{timeoutSeconds} * 1000);
  Log("returnpid:", status.pid, " childpid:", child, " timeout:", timeoutSeconds, " status:", status.status);
  if (IsRunning(status)) KillAndReap(child, outputPath);
  std::unique_ptr<TqString> output = ReadOutput(outputPath);
  TqFile::DeleteFile(outputPath);
  return output;
}

}  // namespace

namespace TqSystem {

std::unique_ptr<TqString> RunCommand(const char* command, bool mergeStdErr, std::int32_t timeoutSeconds) {
  if (command == nullptr || *command == '\0') return nullptr;
  RunState& state = TheState();
  state.hasRun = true;
  if (!state.testRoot.IsEmpty()) return ReadCannedResult(state.testRoot, command);
  const TqString outputPath = TqFile::MakeTempFile("tqr", ".txt");
  if (outputPath.IsEmpty()) {
    Log("ERROR: TqSystem::RunCommand - could not make a temporary file for command ", command);
    return nullptr;
  }
  const std::string_view quote = outputPath.Contains(" ") ? "\"" : "";
  const TqString line = Joined(command, " > ", quote, outputPath, quote, mergeStdErr ? " 2>&1" : "");
  return timeoutSeconds > 0 ? RunWithTimeout(line, outputPath, timeoutSeconds) : RunAndWait(line, outputPath);
}

void SetTestRoot(std::string_view root) {
  if (!root.starts_with('/')) EndWithMessage("Test root path must start with '/'");
  if (TheState().hasRun) EndWithMessage("Attempt to set TqSystem test root after running a command");
  TheState().testRoot = root;
}

void ForgetTestRoot() {
  TheState() = RunState();
}

}  // namespace TqSystem
