#pragma once

// What the program asks of the machine: clock and sleep, the process, memory, names, child processes.

#include <cstdint>
#include <string>
#include <vector>

#include "platform/volumes.h"

namespace platform {

enum class HardwareAddressStatus : std::uint8_t {
  kFound,
  kNone,        ///< the interface list was read, no interface has an address
  kUnreadable,  ///< the interface list could not be read
};

struct MemoryFigures {
  std::uint64_t virtualBytes = 0;  ///< 0 when unknown, as the others
  std::uint64_t residentBytes = 0;
};

struct ChildStatus {
  bool ended = false;
  int pid = 0;     ///< what the poll returned: 0 while the child runs, its process id once it ended, -1 on error
  int status = 0;  ///< raw wait status
};

/// An account of the system's user database.
struct LoginFacts {
  std::string name;
  unsigned userId = 0;
  std::vector<unsigned> groupIds;       ///< every group it belongs to
  std::vector<std::string> groupNames;  ///< parallel; empty texts for groups without a name
};

/// How the system and its user write dates; the samples are 2021-05-27 12:34:56, 12:34 and 2021-05-27 formatted as GMT.
struct LocaleTexts {
  std::string systemLocale;
  std::string preferredLocale;  ///< empty when there is none
  std::string dateTimeSample;
  std::string timeSample;
  std::string dateSample;
};

class Machine {
 public:
  virtual ~Machine() = default;

  /// Milliseconds since 1970 GMT from the system clock; 0 when it cannot be read.
  virtual std::int64_t NowMillis() = 0;
  /// Suspends the thread; fractions of a millisecond are given in microseconds.
  virtual void SleepMicros(std::int64_t micros) = 0;
  /// Seconds that local time is ahead of GMT at `gmtSeconds` since 1970.
  virtual std::int64_t LocalOffsetSeconds(std::int64_t gmtSeconds) = 0;

  /// The local zone's abbreviation at `gmtSeconds` since 1970.
  virtual std::string TimeZoneName(std::int64_t gmtSeconds) = 0;
  virtual LocaleTexts DescribeLocale() = 0;
  /// A whole number as the current locale writes it, with its grouping separators.
  virtual std::string GroupedNumber(std::int64_t number) = 0;

  virtual int ProcessId() = 0;
  virtual unsigned EffectiveUserId() = 0;
  /// Ends the process with `status` after flushing standard output. A test's platform may throw instead.
  [[noreturn]] virtual void Exit(int status) = 0;

  /// From here on looking at files has no effect on them: content that lies on a server only is not fetched, and
  /// folders that mount something when entered do not. What needs such an effect fails instead or looks empty. Holds
  /// for the process and the children it starts. Nothing to do on systems without such effects.
  virtual void RestrictSideEffects() = 0;

  /// The account with that name; false when the system knows none.
  virtual bool FindLogin(const std::string& name, LoginFacts& login) = 0;
  /// The account of the effective user id; false when it has none.
  virtual bool CurrentLogin(LoginFacts& login) = 0;

  virtual MemoryFigures ProcessMemory() = 0;
  /// Physical memory in bytes; 0 when unknown.
  virtual std::uint64_t HardwareMemoryBytes() = 0;
  /// The kernel's machine name ("arm64", "x86_64", ...), already in the words that the architecture table knows; empty
  /// when it cannot be read.
  virtual std::string MachineName() = 0;
  /// Whether the process runs under instruction translation.
  virtual bool IsTranslatedProcess() = 0;
  /// Whether the hardware runs 64-bit x86 code; false as a result means that the question could not be answered.
  virtual bool Query64BitHardware(bool& is64Bit) = 0;
  /// As `gethostname` gives it; false when it cannot be read.
  virtual bool HostName(std::string& name) = 0;
  /// The main network interface's address as "xx-xx-xx-xx-xx-xx"; `address` counts only for kFound.
  virtual HardwareAddressStatus HardwareAddress(std::string& address) = 0;
  /// Uniform in 0 ... bound-1; bound at least 1.
  virtual std::uint32_t RandomBelow(std::uint32_t bound) = 0;

  /// `ProductVersion` of the system version property list at `path`; `version` is empty when the key is missing, empty
  /// or no text.
  virtual PropertyListStatus ReadProductVersion(const char* path, std::string& version) = 0;

  /// Runs `line` with the system shell and waits. The result is `system`'s, -1 for a failed start (`error` gets the
  /// errno).
  virtual int RunShellAndWait(const char* line, int& error) = 0;
  /// Starts "/bin/sh -c line" in a process group of its own. The result is the child's id, or -1 with `error` set (also
  /// when there is no such shell to run).
  virtual int StartShell(const char* line, int& error) = 0;
  /// Non-blocking look at a child started by StartShell.
  virtual ChildStatus PollChild(int pid) = 0;
  /// Kills the child's whole group with signal 9; an errno value, 0 for success.
  virtual int KillChildGroup(int pid) = 0;
};

}  // namespace platform
