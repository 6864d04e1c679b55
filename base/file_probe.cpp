#include "base/file_probe.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/file_info.h"
#include "platform/descriptor.h"

namespace TqFile {

namespace {

constexpr std::size_t kPieceBytes = 1'048'576;
constexpr std::int32_t kWindowsHeaderBytes = 1'000'000;
constexpr std::int64_t kMostForkBytes = INT32_MAX;

enum Reason : int { kReadable, kMissing, kDirectory, kDenied, kNotRegular, kOpenFailed, kReadFailed };

Reason WithErrno(std::string_view word, int error, TqString& text, Reason reason) {
  text = Joined(word, "_errno=", error);
  return reason;
}

/// Stats through links, then opens; the descriptor is open only for kReadable.
Reason OpenRegular(const TqString& path, platform::Descriptor& file, TqString& text) {
  platform::FileFacts facts;
  int error = platform::TheFiles().StatThroughLinks(path.c_str(), facts);
  if (error == 0) {
    if (facts.kind == platform::EntryKind::kDirectory) return text = "is_a_directory", kDirectory;
    if (facts.kind != platform::EntryKind::kRegular) return text = "not_a_regular_file", kNotRegular;
    error = file.Open(path.c_str(), platform::OpenMode::kRead);
  }
  if (error == 0) return text = "readable", kReadable;
  if (error == ENOENT || error == ENOTDIR) return text = "file_does_not_exist", kMissing;
  if (error == EACCES || error == EPERM) return text = "permission_denied", kDenied;
  return WithErrno("open_failed", error, text, kOpenFailed);
}

std::uint32_t LittleEndian(std::string_view bytes, std::size_t at, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
  }
  return value;
}

}  // namespace

int DiagnoseFileReadProblem(std::string_view path, TqString& reason) {
  platform::Descriptor file;
  const Reason opened = OpenRegular(TqString(path), file, reason);
  if (opened != kReadable) return opened;
  const auto piece = std::make_unique<char[]>(kPieceBytes);
  std::size_t got = 0;
  do {
    const int error = platform::TheFiles().Read(file.Get(), piece.get(), kPieceBytes, got);
    if (error != 0) return WithErrno("read_failed", error, reason, kReadFailed);
  } while (got > 0);
  return kReadable;
}

bool ReadFirstNbytesIntoBuf(std::string_view path, std::int32_t numBytes, TqString& out) {
  out.Clear();
  platform::Descriptor file;
  TqString reason;
  if (OpenRegular(TqString(path), file, reason) != kReadable) return false;
  const auto piece = std::make_unique<char[]>(kPieceBytes);
  while (out.Length() < numBytes) {
    const auto wanted = std::min(kPieceBytes, static_cast<std::size_t>(numBytes - out.Length()));
    std::size_t got = 0;
    if (platform::TheFiles().Read(file.Get(), piece.get(), wanted, got) != 0) {
      out.Clear();
      return false;
    }
    if (got == 0) break;
    out.Append({piece.get(), got});
  }
  return true;
}

bool Is64BitWindowsLibrary(std::string_view path) {
  TqString head;
  if (!ReadFirstNbytesIntoBuf(path, kWindowsHeaderBytes, head)) return false;
  const std::string_view bytes = head;
  if (bytes.size() < 0x40 || !bytes.starts_with("MZ")) return false;
  const std::size_t at = LittleEndian(bytes, 0x3C, 4);
  // "PE\0\0", the 20-byte file header (characteristics in its last two bytes), then the optional header's magic.
  if (at > bytes.size() || bytes.size() - at < 26 || bytes.substr(at, 4) != std::string_view("PE\0\0", 4)) return false;
  const bool isLibrary = (LittleEndian(bytes, at + 22, 2) & 0x2000U) != 0;
  return isLibrary && LittleEndian(bytes, at + 24, 2) == 0x020B;
}

char* ReadResourceForkIntoBuf(std::string_view path, std::int64_t& numBytes) {
  numBytes = 0;
  TqFileInfo info;
  if (!GetInfoAboutFileOrDir(path, info) || info.rsrcSize < 1 || info.rsrcSize > kMostForkBytes) return nullptr;
  std::string bytes;
  if (platform::TheFiles().ReadResourceFork(TqString(path).c_str(), bytes) != 0) return nullptr;
  const auto size = static_cast<std::int64_t>(bytes.size());
  if (size < 1 || size > kMostForkBytes) return nullptr;  // grown since it was measured
  auto* buffer = static_cast<char*>(std::malloc(bytes.size() + 1));
  if (buffer == nullptr) return nullptr;
  std::memcpy(buffer, bytes.c_str(), bytes.size() + 1);
  numBytes = size;
  return buffer;
}

}  // namespace TqFile
