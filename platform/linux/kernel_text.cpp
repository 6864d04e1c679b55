#include "platform/linux/kernel_text.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace platform {
namespace {

// Big, because the mount table is consistent only within one read.
constexpr std::size_t kPieceBytes = 256 * 1024;

}  // namespace

int ReadKernelText(const char* path, std::string& text) {
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return errno;
  text.clear();
  int error = 0;
  for (;;) {
    const std::size_t before = text.size();
    text.resize(before + kPieceBytes);
    const ssize_t got = read(descriptor, text.data() + before, kPieceBytes);
    error = got < 0 ? errno : 0;
    text.resize(before + (got > 0 ? static_cast<std::size_t>(got) : 0));
    if (got == 0 || (got < 0 && error != EINTR)) break;
  }
  close(descriptor);
  return error;
}

}  // namespace platform
