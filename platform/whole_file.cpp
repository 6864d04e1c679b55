#include "platform/whole_file.h"

#include <cerrno>

#include "platform/descriptor.h"

namespace platform {
namespace {

constexpr std::size_t kPieceBytes = 64 * 1024;

/// Appends to `content` until the end of the file, which may lie elsewhere than its size said: the file may be growing.
int ReadToEnd(int descriptor, std::int64_t maxBytes, std::string& content) {
  char piece[kPieceBytes];
  for (;;) {
    std::size_t got = 0;
    const int error = TheFiles().Read(descriptor, piece, sizeof piece, got);
    if (error != 0) return error;
    if (got == 0) return content.empty() ? ENODATA : 0;
    content.append(piece, got);
    if (static_cast<std::int64_t>(content.size()) > maxBytes) return EFBIG;
  }
}

}  // namespace

int ReadWholeFile(const char* path, std::int64_t maxBytes, std::string& content) {
  content.clear();
  Descriptor file;
  int error = file.Open(path, OpenMode::kRead);
  if (error != 0) return error;
  FileFacts facts;
  error = TheFiles().StatDescriptor(file.Get(), facts);
  if (error != 0) return error;
  if (facts.kind != EntryKind::kRegular) return EINVAL;
  if (facts.size > maxBytes) return EFBIG;
  return ReadToEnd(file.Get(), maxBytes, content);
}

}  // namespace platform
