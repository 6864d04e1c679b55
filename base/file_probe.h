#pragma once

// Looks at single files for the diagnostic commands. Nothing here blocks on a FIFO or device: only regular files are
// read.

#include <cstdint>
#include <string_view>

#include "base/string.h"

namespace TqFile {

/// 0 "readable", 1 "file_does_not_exist", 2 "is_a_directory", 3 "permission_denied", 4 "not_a_regular_file", 5
/// "open_failed_errno=<n>", 6 "read_failed_errno=<n>". Links are followed; the file is read to its end.
int DiagnoseFileReadProblem(std::string_view path, TqString& reason);

/// Up to `numBytes` from the start; fewer only when the file is shorter. False when it cannot be read; `out` is empty
/// then.
bool ReadFirstNbytesIntoBuf(std::string_view path, std::int32_t numBytes, TqString& out);

/// "MZ", the offset at 0x3C leads to "PE\0\0", characteristics carry 0x2000 (library), the optional header's magic is
/// 0x020B.
bool Is64BitWindowsLibrary(std::string_view path);

/// The whole resource fork in a buffer from the C allocator that the caller frees, or null (`numBytes` 0): no fork, one
/// above 2,147,483,647 bytes, or unreadable.
char* ReadResourceForkIntoBuf(std::string_view path, std::int64_t& numBytes);

}  // namespace TqFile
