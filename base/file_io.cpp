#include "base/file_io.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/log.h"
#include "base/system_info.h"
#include "platform/descriptor.h"
#include "platform/platform.h"

using platform::Descriptor;
using platform::EntryKind;
using platform::OpenMode;

namespace {

constexpr unsigned kFileMode = 0666;
constexpr int kRetries = 10;
constexpr std::int64_t kRetryPauseMillis = 100;

constexpr std::int64_t kAssumedSizeOfEmptyFile = 1'048'576;
constexpr std::int64_t kMaxBytes32 = 1'024'000'000;
constexpr std::int64_t kMaxBytes64 = 20'480'000'000;
constexpr std::int64_t kMaxPiece = 1'024'000'000;  ///< a single read of more is refused by some systems

using Buffer = std::unique_ptr<char, decltype(&std::free)>;

Buffer Allocate(std::int64_t bytes) {
  return {static_cast<char*>(std::malloc(static_cast<std::size_t>(bytes))), &std::free};
}

/// Bytes of the file that `path` reaches through links; -1 when that is no readable regular file.
std::int64_t SizeThroughLinks(const char* path) {
  platform::FileFacts facts;
  const bool isFile = platform::TheFiles().StatThroughLinks(path, facts) == 0 && facts.kind == EntryKind::kRegular;
  return isFile ? facts.size : -1;
}

/// Whether hard links, aliases and special files are left alone; symbolic links are on every system.
bool MustHaveOneLink() {
  return TqSystem::OsVersionIsAtLeast("10.9");
}

/// Opens for writing and gives the file its mode, whatever the umask and whoever created it. What was opened is judged
/// once more before anything is changed: where others may write, too, a link may have taken the name meanwhile.
bool OpenForWriting(const char* path, OpenMode openMode, Descriptor& file) {
  if (!TqFile::IsAppropriateToModifyFile(path) || file.Open(path, openMode, kFileMode) != 0) return false;
  platform::Files& files = platform::TheFiles();
  platform::FileFacts facts;
  if (files.StatDescriptor(file.Get(), facts) != 0 || facts.kind != EntryKind::kRegular) return false;
  if (facts.linkCount != 1 && MustHaveOneLink()) return false;
  if (openMode == OpenMode::kWrite && files.Empty(file.Get()) != 0) return false;
  files.ChangeDescriptorMode(file.Get(), kFileMode);
  return true;
}

/// Reads up to `bytes`; `got` tells how many there were. False on a read error.
bool ReadUpTo(int descriptor, char* buffer, std::int64_t bytes, std::int64_t& got) {
  got = 0;
  while (got < bytes) {
    std::size_t piece = 0;
    const auto wanted = static_cast<std::size_t>(std::min(bytes - got, kMaxPiece));
    if (platform::TheFiles().Read(descriptor, buffer + got, wanted, piece) != 0) return false;
    if (piece == 0) return true;
    got += static_cast<std::int64_t>(piece);
  }
  return true;
}

template <typename... Pieces>
char* ReadFailed(const Pieces&... pieces) {
  Log("ERROR: TqFile::ReadLargeFileIntoBuf ", pieces...);
  return nullptr;
}

bool IsTooLarge(std::int64_t size, std::string_view tail) {
  if constexpr (sizeof(void*) == 4) {
    if (size > kMaxBytes32) ReadFailed("file larger than one_GByte on 32 bit system, ", tail);
    return size > kMaxBytes32;
  }
  if (size > kMaxBytes64) ReadFailed("file larger than twenty_GByte on 64 bit system, ", tail);
  return size > kMaxBytes64;
}

/// Steps 3 and 4 of reading a whole file of a known size. `mayBeShorter`: the size is only a guess.
char* ReadWholeBuffer(const char* fileName, std::int64_t size, bool mayBeShorter, std::int64_t& numBytes) {
  const TqString tail = Joined("numBytes=", size, ", fileName=", fileName);
  if (IsTooLarge(size, tail)) return nullptr;
  Buffer buffer = Allocate(size + 10);
  if (!buffer) return ReadFailed("failed to malloc ", tail);
  Descriptor file;
  if (file.Open(fileName, OpenMode::kRead) != 0) return ReadFailed("Macintosh open call failed, ", tail);
  std::int64_t got = 0;
  if (!ReadUpTo(file.Get(), buffer.get(), size, got) || (got < size && !mayBeShorter)) {
    return ReadFailed("- Mac Path readResult != numBytesToReadThisCall returning NULL");
  }
  buffer.get()[got] = '\0';
  numBytes = got;
  return buffer.release();
}

/// Up to `tries` attempts with a pause after each failed one; `onFailure` hears of each.
template <typename Attempt, typename OnFailure>
bool TryRepeatedly(int tries, std::int64_t pauseMillis, const Attempt& attempt, const OnFailure& onFailure) {
  for (int i = 0; i < tries; ++i) {
    if (attempt()) return true;
    onFailure();
    TqSystem::SleepMillis(pauseMillis);
  }
  return false;
}

template <typename Attempt>
bool WithRetry(std::string_view function, std::string_view paths, const Attempt& attempt) {
  const auto logFailure = [&] { Log("INFO: ", function, " attempt failed: ", paths); };
  if (TryRepeatedly(kRetries, kRetryPauseMillis, attempt, logFailure)) return true;
  Log("ERROR: ", function, " failed after ", kRetries, " retries: ", paths);
  return false;
}

}  // namespace

namespace TqFile {

bool IsAppropriateToModifyFile(std::string_view path) {
  TqFileInfo info;
  // A file that is there but cannot be judged is left alone.
  if (!GetInfoAboutFileOrDir(path, info)) return !Exists(path);
  if (info.isDir) return false;
  return !MustHaveOneLink() || (!info.isSpecial && !info.isAlias && info.linkCount == 1);
}

bool WriteFileToDisk(const char* path, const char* buffer, std::int64_t size) {
  if (path == nullptr || *path == '\0' || buffer == nullptr) return false;
  Descriptor file;
  if (!OpenForWriting(path, OpenMode::kWrite, file)) return false;
  std::size_t written = 0;
  if (size > 0) platform::TheFiles().Write(file.Get(), buffer, static_cast<std::size_t>(size), written);
  return true;
}

bool WriteWholeFile(std::string_view path, std::string_view text) {
  const TqString name(path);
  const char* bytes = text.empty() ? "" : text.data();
  if (!WriteFileToDisk(name.c_str(), bytes, static_cast<std::int64_t>(text.size()))) return false;
  if (SizeThroughLinks(name.c_str()) == static_cast<std::int64_t>(text.size())) return true;
  platform::TheFiles().Unlink(name.c_str());
  return false;
}

bool AppendStringToFile(std::string_view path, std::string_view text) {
  if (path.empty()) return false;
  if (text.empty()) return IsAppropriateToModifyFile(path);
  Descriptor file;
  if (!OpenForWriting(TqString(path).c_str(), OpenMode::kAppend, file)) return false;
  std::size_t written = 0;
  const int error = platform::TheFiles().Write(file.Get(), text.data(), text.size(), written);
  return file.Close() == 0 && error == 0 && written == text.size();
}

bool WriteFileToDiskWithRetry(std::string_view path, std::string_view text) {
  return WithRetry("WriteFileToDiskWithRetry", path, [&] { return WriteWholeFile(path, text); });
}

bool AtomicMoveFile(std::string_view from, std::string_view to) {
  if (from.empty() || to.empty()) return false;
  return platform::TheFiles().Rename(TqString(from).c_str(), TqString(to).c_str()) == 0;
}

bool AtomicMoveFileWithRetry(std::string_view from, std::string_view to) {
  return WithRetry("AtomicMoveFileWithRetry", Joined(from, " ", to), [&] { return AtomicMoveFile(from, to); });
}

bool WriteFileAndSwapIn(std::string_view path, std::string_view text) {
  if (path.empty()) return false;
  const TqString temporary = Joined(path, ".tmp");
  return WriteFileToDiskWithRetry(temporary, text) && AtomicMoveFileWithRetry(temporary, path);
}

SwapResult SwapInQuietly(std::string_view path, std::string_view text, int writeTries, int moveTries,
                         std::int64_t pauseMillis) {
  if (path.empty()) return SwapResult::kWriteFailed;
  const TqString temporary = Joined(path, ".tmp");
  // Another one's left-over that may not be modified is out of the way for the next try.
  const auto deleteTemporary = [&] { DeleteFile(temporary); };
  if (!TryRepeatedly(
          writeTries, pauseMillis, [&] { return WriteWholeFile(temporary, text); }, deleteTemporary)) {
    return SwapResult::kWriteFailed;
  }
  const bool moved = TryRepeatedly(
      moveTries, pauseMillis, [&] { return AtomicMoveFile(temporary, path); }, [] {});
  return moved ? SwapResult::kDone : SwapResult::kMoveFailed;
}

bool DeleteFile(std::string_view path) {
  if (path.empty()) return false;
  return platform::TheFiles().Unlink(TqString(path).c_str()) == 0 || !Exists(path);
}

TqString MakeTempFile(std::string_view prefix, std::string_view suffix) {
  std::string path;
  if (platform::TheFiles().MakeTemporaryFile("/tmp", prefix, suffix, path) != 0) return TqString();
  return std::string_view(path);
}

char* ReadLargeFileIntoBuf(const char* fileName, std::int64_t* numBytesReturned) {
  if (numBytesReturned == nullptr) return ReadFailed("bad NULL arg NumBytesReturned");
  *numBytesReturned = 0;
  if (fileName == nullptr) return ReadFailed("bad NULL arg fileName");
  platform::FileFacts facts;
  const bool isKnown = platform::TheFiles().StatThroughLinks(fileName, facts) == 0;
  if (!isKnown && !Exists(fileName)) return ReadFailed("file does not exist fileName=", fileName);
  if (isKnown &&
      facts.kind != EntryKind::kRegular) {  // a FIFO or device would hand out bytes that are not the file's own
    return ReadFailed("Macintosh open call failed, numBytes=", facts.size, ", fileName=", fileName);
  }
  if (facts.size > 0) return ReadWholeBuffer(fileName, facts.size, false, *numBytesReturned);
  if (std::string_view(fileName).starts_with("/proc/")) {
    Buffer empty = Allocate(10);
    if (empty) *empty = '\0';
    return empty.release();
  }
  return ReadWholeBuffer(fileName, kAssumedSizeOfEmptyFile, true, *numBytesReturned);
}

bool ReadFileIntoString(std::string_view path, TqString& content) {
  const TqString name(path);
  content.Clear();
  if (const std::int64_t size = SizeThroughLinks(name.c_str()); size > TqString::kMaxNeed) {
    Log("ERROR: TqFile::ReadFileIntoString - file too large for a text, numBytes=", size, ", fileName=", name);
    return false;
  }
  std::int64_t numBytes = 0;
  const Buffer buffer(ReadLargeFileIntoBuf(name.c_str(), &numBytes), &std::free);
  return buffer && content.Assign({buffer.get(), static_cast<std::size_t>(numBytes)});
}

bool ReadFirstLine(std::string_view path, TqString& line) {
  line.Clear();
  TqString content;
  if (!Exists(path) || !ReadFileIntoString(path, content)) return false;
  line = Trimmed(content.View().substr(0, content.View().find('\n')));
  return !line.IsEmpty();
}

}  // namespace TqFile
