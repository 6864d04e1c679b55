#pragma once

#include <string>

namespace platform {

/// Reads a file of /proc or /sys, whose size is told as 0 or 4096 whatever it holds. An errno value.
int ReadKernelText(const char* path, std::string& text);

}  // namespace platform
