#include "base/fast_file_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/file_info.h"
#include "base/log.h"
#include "platform/platform.h"

namespace {

constexpr std::int32_t kSmallestCache = 10'000;
constexpr std::int32_t kLargestCache = 250'000'000;
constexpr std::int32_t kCacheReserve = 10;
constexpr std::int32_t kMillion = 1'000'000;

/// Puts the reason where the caller asked for it and answers false.
template <typename... Pieces>
bool Fail(TqString* errorText, const Pieces&... pieces) {
  if (errorText != nullptr) *errorText = Joined(pieces...);
  return false;
}

void ClearText(TqString* errorText) {
  if (errorText != nullptr) errorText->Clear();
}

constexpr std::string_view kNoFileOpen = "ERROR: no file is currently open, try TqOpenFileReadOnly first";

}  // namespace

TqFastFileReader::~TqFastFileReader() {
  TqCloseFile();
  std::free(cache_);
}

bool TqFastFileReader::TqSetRamCacheSize(std::int32_t numBytes, TqString* errorText) {
  ClearText(errorText);
  if (isOpen_) {
    return Fail(errorText,
                "ERROR: you cannot call TqSetRamCacheSize when you have a file open. The open file is: ", fileName_);
  }
  if (numBytes < kSmallestCache || numBytes > kLargestCache) {
    return Fail(errorText, "ERROR: number of bytes is out of range: ", numBytes);
  }
  if (numBytes != cacheSize_) {
    std::free(cache_);
    cache_ = nullptr;
  }
  cacheSize_ = numBytes;
  return true;
}

bool TqFastFileReader::AllocateCache(TqString* errorText) {
  if (cache_ == nullptr) cache_ = static_cast<char*>(std::malloc(static_cast<std::size_t>(cacheSize_ + kCacheReserve)));
  if (cache_ != nullptr) return true;
  if (cacheSize_ > kMillion)
    return Fail(errorText, "ERROR: malloc of ", cacheSize_ / kMillion, " MBytes  buffer failed");
  return Fail(errorText, "ERROR: malloc of ", cacheSize_, " bytes  buffer failed");
}

bool TqFastFileReader::TqOpenFileReadOnly(std::string_view path, TqString* errorText) {
  ClearText(errorText);
  if (isOpen_) return Fail(errorText, "ERROR: a file is already open with name: ", fileName_);
  const TqString name(path);
  platform::FileFacts facts;
  const bool isFile = platform::TheFiles().StatThroughLinks(name.c_str(), facts) == 0 &&
                      facts.kind == platform::EntryKind::kRegular && facts.size > 0;
  if (!isFile) {
    return TqFile::Exists(name) ? Fail(errorText, "ERROR: file exists, but is not readable or is zero length: ", name)
                                : Fail(errorText, "ERROR: no file exists with name: ", name);
  }
  if (!AllocateCache(errorText)) return false;
  if (const int error = platform::TheFiles().Open(name.c_str(), platform::OpenMode::kRead, 0, descriptor_);
      error != 0) {
    descriptor_ = -1;
    return Fail(errorText, "ERROR: open to read failed with errno=", error, ", on file: ", name);
  }
  isOpen_ = true;
  fileName_ = name;
  fileSize_ = facts.size;
  return true;
}

bool TqFastFileReader::TqOpenFileReadOnlyExclusive(std::string_view path, TqString* errorText) {
  if (!TqOpenFileReadOnly(path, errorText)) return false;
  const int error = platform::TheFiles().TryLockExclusive(descriptor_);
  if (error == 0) return true;
  TqCloseFile();
  return Fail(errorText, "ERROR: exclusive lock failed with errno=", error, ", on file: ", path);
}

void TqFastFileReader::TqCloseFile() {
  if (isOpen_) platform::TheFiles().Close(descriptor_);
  isOpen_ = false;
  fileName_.Clear();
  descriptor_ = -1;
  consumed_ = 0;
  fileSize_ = 0;
  cached_ = 0;
  next_ = 0;
}

/// Fills the used-up cache with one read. True at the end of the file too, with nothing cached then.
bool TqFastFileReader::Refill(TqString* errorText) {
  std::size_t got = 0;
  next_ = 0;
  cached_ = 0;
  const int error = platform::TheFiles().Read(descriptor_, cache_, static_cast<std::size_t>(cacheSize_), got);
  if (error != 0) return Fail(errorText, "ERROR: read failed with errno=", error, ", on file: ", fileName_);
  cached_ = static_cast<std::int32_t>(got);
  return true;
}

std::string_view TqFastFileReader::TakeCached(std::int32_t count) {
  const std::string_view piece(cache_ + next_, static_cast<std::size_t>(count));
  next_ += count;
  consumed_ += count;
  return piece;
}

bool TqFastFileReader::TqReadNextLine(TqString* line, TqString* errorText) {
  ClearText(errorText);
  if (line == nullptr) return Fail(errorText, "ERROR: NULL passed in for retLine which is not allowed");
  line->Clear();
  if (!isOpen_) return Fail(errorText, kNoFileOpen);
  bool hasBytes = false;
  while (true) {
    if (next_ == cached_ && !Refill(errorText)) return false;
    if (cached_ == 0) return hasBytes;
    hasBytes = true;
    const std::int32_t available = cached_ - next_;
    const char* start = cache_ + next_;
    const void* lineFeed = std::memchr(start, '\n', static_cast<std::size_t>(available));
    const auto length =
        lineFeed == nullptr ? available : static_cast<std::int32_t>(static_cast<const char*>(lineFeed) - start);
    if (!line->Append(TakeCached(length))) {
      line->Clear();
      return Fail(errorText, "ERROR: line too long, on file: ", fileName_);
    }
    if (lineFeed == nullptr) continue;
    TakeCached(1);
    if (line->EndsWith("\r")) line->Truncate(line->Length() - 1);
    return true;
  }
}

bool TqFastFileReader::TqReadNumBytes(std::int32_t numBytes, TqString& out, std::int32_t& numRead,
                                      TqString* errorText) {
  ClearText(errorText);
  out.Clear();
  numRead = 0;
  if (!isOpen_) return Fail(errorText, kNoFileOpen);
  if (numBytes < 1) return Fail(errorText, "ERROR: number of bytes is out of range: ", numBytes);
  while (out.Length() < numBytes) {
    if (next_ == cached_ && !Refill(errorText)) return false;
    if (cached_ == 0) break;
    if (!out.Append(TakeCached(std::min(cached_ - next_, numBytes - out.Length())))) {
      return Fail(errorText, "ERROR: out of memory, on file: ", fileName_);
    }
  }
  numRead = out.Length();
  return numRead > 0;
}

bool TqFastFileReader::TqSeekToOffset(std::int64_t offset, TqString* errorText) {
  ClearText(errorText);
  if (!isOpen_) return Fail(errorText, kNoFileOpen);
  if (offset < 0 || offset > fileSize_) return Fail(errorText, "ERROR: offset is out of range: ", offset);
  const std::int64_t cacheStart = consumed_ - next_;
  if (offset >= cacheStart && offset <= cacheStart + cached_) {
    next_ = static_cast<std::int32_t>(offset - cacheStart);
  } else {
    if (const int error = platform::TheFiles().Seek(descriptor_, offset); error != 0) {
      return Fail(errorText, "ERROR: seek failed with errno=", error, ", on file: ", fileName_);
    }
    next_ = 0;
    cached_ = 0;
  }
  consumed_ = offset;
  return true;
}

namespace TqFile {
namespace {

/// Opens `path` for one of the whole-file helpers; a failure is logged under the helper's name.
bool OpenForHelper(TqFastFileReader& reader, std::string_view helper, std::string_view path) {
  TqString error;
  reader.TqSetRamCacheSize(TqFastFileReader::kHelperCacheSize, nullptr);
  if (reader.TqOpenFileReadOnly(path, &error)) return true;
  Log("ERROR: TqFastFileReader::", helper, ",  could not TqOpenFileReadOnly, err=", error, ", filename=", path);
  return false;
}

}  // namespace

std::int64_t CountLinesInFile(std::string_view path) {
  TqFastFileReader reader;
  if (!OpenForHelper(reader, "CountLinesInFile", path)) return -1;
  TqString line;
  std::int64_t count = 0;
  while (reader.TqReadNextLine(&line, nullptr)) ++count;
  return count;
}

bool TqGrepFile(std::string_view path, std::string_view needle, bool ignoreCase, std::int32_t maxMatches,
                TqStringVector& lineNumbers, TqStringVector& lines, TqString* errorText) {
  lineNumbers.Clear();
  lines.Clear();
  TqFastFileReader reader;
  if (!OpenForHelper(reader, "TqGrepFile", path)) return Fail(errorText, "ERROR:could_not_open_file");
  TqString line;
  TqString readError;
  for (std::int64_t number = 1; reader.TqReadNextLine(&line, &readError); ++number) {
    const std::int32_t at = ignoreCase ? line.FindIgnoreCase(needle) : line.Find(needle);
    if (at < 0) continue;
    lines.Add(line);
    lineNumbers.Add(Joined(number));
    if (lines.Count() >= maxMatches) break;
  }
  if (errorText != nullptr) *errorText = readError;
  return readError.IsEmpty();
}

bool TqReadFileIntoStringVector(std::string_view path, TqStringVector& lines) {
  lines.Clear();
  TqFastFileReader reader;
  if (!OpenForHelper(reader, "TqReadFileIntoStringVector", path)) return false;
  TqString line;
  TqString readError;
  while (reader.TqReadNextLine(&line, &readError)) {
    if (!lines.Add(line)) return false;
  }
  return readError.IsEmpty();
}

}  // namespace TqFile
