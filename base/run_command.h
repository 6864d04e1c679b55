#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "base/string.h"

namespace TqSystem {

/// Runs a shell command and gives its standard output (with standard error merged in when asked), or null when it could
/// not be had. A timeout of 0 seconds waits for ever; above 0 the child's whole process group is killed when it runs
/// out, and what it wrote until then is still returned. Blocks the caller.
std::unique_ptr<TqString> RunCommand(const char* command, bool mergeStdErr, std::int32_t timeoutSeconds);

/// From now on RunCommand reads canned results below `root`. Ends the process with status 1 when `root` does not begin
/// with "/" or a command has already run.
void SetTestRoot(std::string_view root);
/// Back to a fresh process (tests).
void ForgetTestRoot();

}  // namespace TqSystem
