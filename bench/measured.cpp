// Runs a command, optionally in another root directory, and tells what the kernel charged it with:
//   measured RESULT ROOT COMMAND...     ROOT "/" stays in this one
// RESULT gets "userMicroseconds systemMicroseconds peakKilobytes"; the status is the command's. A small program of its
// own, because a process's peak memory counts from its parent's at the time of the fork.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

long Microseconds(const timeval& time) {
  return time.tv_sec * 1'000'000 + time.tv_usec;
}

[[noreturn]] void Become(const char* root, char** command) {
  if (std::strcmp(root, "/") != 0 && (chroot(root) != 0 || chdir("/") != 0)) _exit(126);
  execvp(command[0], command);
  _exit(127);
}

}  // namespace

int main(int count, char** words) {
  if (count < 4) return 2;
  std::FILE* result = std::fopen(words[1], "we");
  if (result == nullptr) return 2;
  const pid_t child = fork();
  if (child < 0) return 2;
  if (child == 0) Become(words[2], words + 3);
  int status = 0;
  rusage usage{};
  if (wait4(child, &status, 0, &usage) != child) return 2;
  std::fprintf(result, "%ld %ld %ld\n", Microseconds(usage.ru_utime), Microseconds(usage.ru_stime), usage.ru_maxrss);
  std::fclose(result);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
