#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// Reads the regular file that `path` reaches through links. `content` is emptied first. ENOENT when missing, EINVAL
/// when it is no regular file, EFBIG above `maxBytes`, ENODATA when empty, else the errno of the call that failed. Logs
/// nothing: for the readers that come before logging exists.
int ReadWholeFile(const char* path, std::int64_t maxBytes, std::string& content);

}  // namespace platform
