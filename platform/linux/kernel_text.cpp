#include "platform/linux/kernel_text.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace platform {
namespace {

// Big, because the mount table is consistent only within one read.
constexpr std::size_t kPieceBytes = 256 * 1024;
// Kept and never cleared: only what the kernel writes is touched.
char piece[kPieceBytes];

}  // namespace

int ReadKernelText(const char* path, std::string& text) {
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return errno;
  text.clear();
  int error = 0;
  for (;;) {
    const ssize_t got = read(descriptor, piece, kPieceBytes);
    error = got < 0 ? errno : 0;
    if (got > 0) text.append(piece, static_cast<std::size_t>(got));
    if (got == 0 || (got < 0 && error != EINTR)) break;
  }
  close(descriptor);
  return error;
}

}  // namespace platform
