#pragma once

// The clock, process and shell operations that every POSIX system does alike. Memory, hardware and the interface list
// are each system's own.

#include "platform/machine.h"

namespace platform {

class PosixMachine : public Machine {
 public:
  std::int64_t NowMillis() override;
  void SleepMicros(std::int64_t micros) override;
  std::int64_t LocalOffsetSeconds(std::int64_t gmtSeconds) override;
  std::string TimeZoneName(std::int64_t gmtSeconds) override;

  int ProcessId() override;
  unsigned EffectiveUserId() override;
  [[noreturn]] void Exit(int status) override;

  bool FindLogin(const std::string& name, LoginFacts& login) override;
  bool CurrentLogin(LoginFacts& login) override;

  bool HostName(std::string& name) override;
  std::uint32_t RandomBelow(std::uint32_t bound) override;

  int RunShellAndWait(const char* line, int& error) override;
  int StartShell(const char* line, int& error) override;
  ChildStatus PollChild(int pid) override;
  int KillChildGroup(int pid) override;
};

}  // namespace platform
