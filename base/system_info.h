#pragma once

#include <cstdint>
#include <string_view>

#include "base/string.h"

/// The program's version: one constant from the build.
const char* TqVersionString();

namespace TqSystem {

/// 2: this system. (0 would mean drive-letter paths; no code path for it is kept.)
inline constexpr int kPlatformMac = 2;
int PlatformCode();

/// "MacOsX-" + product version, or "Macintosh_UNKNOWN_A" (file missing, no regular file, empty or too large), "..._B"
/// (not a property list), "..._C" (no, empty or non-text ProductVersion). Computed once per process, also when it
/// failed; logs nothing.
const TqString& OsDetailText();
/// Whether the system's version is at least `dottedVersion` ("10.9"), numerically; an unknown text answers true, so
/// that nothing is ever written through a link because the version could not be told.
bool OsVersionIsAtLeast(std::string_view dottedVersion);
/// Drops the cached text (tests).
void ForgetOsDetailText();

int ProcessId();
unsigned EffectiveUserId();
bool IsRoot();

/// 0 unknown, 1 x86_64, 2 x86_32, 3 arm64.
int MachineArchitecture();
bool IsTranslatedProcess();
/// Computed once; a failure to tell is logged and counts as false.
bool Is64BitHardware();

/// Bytes; 0 when unknown.
std::int64_t VirtualMemoryBytes();
std::int64_t ResidentMemoryBytes();
std::int64_t HardwareMemoryBytes();
/// bytes / 1,048,576, truncated.
std::int64_t Megabytes(std::int64_t bytes);

/// A whole number grouped with "," plus " " and the unit. Modes: 1 automatic, 2 "Bytes", 3 "KB", 5 "GB", any other
/// "MB".
TqString HumanReadableSize(std::int64_t bytes, int unitMode);

/// Lower-cased, cut at its first "."; "unknown" when it cannot be read.
TqString HostName();
/// Uniform in 0 ... bound-1.
std::int32_t RandomBelow(std::int32_t bound);

}  // namespace TqSystem
