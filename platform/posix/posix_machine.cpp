#include "platform/posix/posix_machine.h"

#include <signal.h>
#include <spawn.h>
#include <sys/random.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/posix/posix_accounts.h"

extern char** environ;

namespace platform {
namespace {

constexpr std::int64_t kMicrosPerSecond = 1'000'000;

std::uint32_t RandomWord() {
  std::uint32_t word = 0;
  if (getentropy(&word, sizeof word) == 0) return word;
  // A kernel without random numbers: names that only need to differ still do.
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint32_t>(now.tv_nsec) * 2654435761U + static_cast<std::uint32_t>(getpid());
}

/// The system shell in a process group of its own; an errno value. posix_spawn answers only after the shell runs in its
/// group (or could not be started), so a kill of the group can never miss it.
int SpawnShell(const char* line, const posix_spawnattr_t& attributes, pid_t& pid) {
  char shell[] = "sh";
  char option[] = "-c";
  char* arguments[] = {shell, option, const_cast<char*>(line), nullptr};
  return posix_spawn(&pid, "/bin/sh", nullptr, &attributes, arguments, environ);
}

}  // namespace

std::int64_t PosixMachine::NowMillis() {
  timeval now{};
  if (gettimeofday(&now, nullptr) != 0) return 0;
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_usec / 1000;
}

void PosixMachine::SleepMicros(std::int64_t micros) {
  if (micros <= 0) return;
  timespec left{};
  left.tv_sec = static_cast<time_t>(micros / kMicrosPerSecond);
  left.tv_nsec = static_cast<long>(micros % kMicrosPerSecond) * 1000;
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

std::int64_t PosixMachine::LocalOffsetSeconds(std::int64_t gmtSeconds) {
  const time_t when = static_cast<time_t>(gmtSeconds);
  tm local{};
  if (localtime_r(&when, &local) == nullptr) return 0;
  return local.tm_gmtoff;
}

std::string PosixMachine::TimeZoneName(std::int64_t gmtSeconds) {
  const time_t when = static_cast<time_t>(gmtSeconds);
  tm local{};
  return localtime_r(&when, &local) != nullptr && local.tm_zone != nullptr ? local.tm_zone : "";
}

int PosixMachine::ProcessId() {
  return getpid();
}

unsigned PosixMachine::EffectiveUserId() {
  return geteuid();
}

void PosixMachine::Exit(int status) {
  std::fflush(stdout);
  std::exit(status);
}

bool PosixMachine::FindLogin(const std::string& name, LoginFacts& login) {
  return FindAccountByName(name, login);
}

bool PosixMachine::CurrentLogin(LoginFacts& login) {
  return FindAccountById(geteuid(), login);
}

bool PosixMachine::HostName(std::string& name) {
  char buffer[1025] = "";  // longer than any system's limit; the last byte stays NUL whatever the call does
  if (gethostname(buffer, sizeof buffer - 1) != 0) return false;
  name = buffer;
  return true;
}

std::uint32_t PosixMachine::RandomBelow(std::uint32_t bound) {
  if (bound < 2) return 0;
  // The words from here on do not fill a whole round of `bound`: taking them would favour the small results.
  constexpr std::uint64_t kWords = std::uint64_t{1} << 32;
  const std::uint64_t limit = kWords - kWords % bound;
  std::uint32_t word = RandomWord();
  while (word >= limit) word = RandomWord();
  return word % bound;
}

int PosixMachine::RunShellAndWait(const char* line, int& error) {
  const int result = system(line);
  error = result == -1 ? errno : 0;
  return result;
}

int PosixMachine::StartShell(const char* line, int& error) {
  posix_spawnattr_t attributes;
  error = posix_spawnattr_init(&attributes);
  if (error != 0) return -1;
  pid_t pid = -1;
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  error = SpawnShell(line, attributes, pid);
  posix_spawnattr_destroy(&attributes);
  return error == 0 ? pid : -1;
}

ChildStatus PosixMachine::PollChild(int pid) {
  ChildStatus child;
  do {
    child.pid = waitpid(pid, &child.status, WNOHANG);
  } while (child.pid == -1 && errno == EINTR);
  child.ended = child.pid == pid;
  return child;
}

int PosixMachine::KillChildGroup(int pid) {
  return kill(-pid, SIGKILL) == 0 ? 0 : errno;
}

}  // namespace platform
