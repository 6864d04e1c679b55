#pragma once

#include <cstdint>
#include <string_view>

#include "base/string.h"
#include "base/vector.h"

/// Reads one file at a time through a large cache that is allocated on first open and kept across files. Error texts
/// may be null; they are emptied first.
class TqFastFileReader {
 public:
  static constexpr std::int32_t kDefaultCacheSize = 40'000'000;
  static constexpr std::int32_t kHelperCacheSize = 5'000'000;

  TqFastFileReader() = default;
  TqFastFileReader(const TqFastFileReader&) = delete;
  TqFastFileReader& operator=(const TqFastFileReader&) = delete;
  virtual ~TqFastFileReader();

  /// 10,000 ... 250,000,000 bytes, only while no file is open; an existing cache of another size is freed.
  bool TqSetRamCacheSize(std::int32_t numBytes, TqString* errorText);
  /// Fails for a missing, empty or irregular file (FIFOs, sockets and devices are refused without blocking).
  bool TqOpenFileReadOnly(std::string_view path, TqString* errorText);
  /// The same plus a non-blocking exclusive lock.
  bool TqOpenFileReadOnlyExclusive(std::string_view path, TqString* errorText);
  /// The next line without its LF and without a CR directly before the LF; also a last line without LF. At the end:
  /// false with an empty line and an empty error text.
  bool TqReadNextLine(TqString* line, TqString* errorText);
  /// Up to `numBytes` into `out`; fewer only at the end of the file; false when nothing is left.
  bool TqReadNumBytes(std::int32_t numBytes, TqString& out, std::int32_t& numRead, TqString* errorText);
  /// 0 ... size.
  bool TqSeekToOffset(std::int64_t offset, TqString* errorText);
  void TqCloseFile();
  bool IsOpen() const { return isOpen_; }
  /// Bytes at open time.
  std::int64_t FileSize() const { return fileSize_; }

 private:
  bool AllocateCache(TqString* errorText);
  bool Refill(TqString* errorText);
  std::string_view TakeCached(std::int32_t count);

  bool isOpen_ = false;
  TqString fileName_;
  int descriptor_ = -1;
  std::int64_t consumed_ = 0;
  std::int64_t fileSize_ = 0;
  char* cache_ = nullptr;
  std::int32_t cacheSize_ = kDefaultCacheSize;
  std::int32_t cached_ = 0;
  std::int32_t next_ = 0;
};

namespace TqFile {

/// -1 when the file cannot be opened or is empty.
std::int64_t CountLinesInFile(std::string_view path);
/// Collects lines that hold `needle` with their numbers (from 1, decimal), up to `maxMatches` (0 and 1 stop after the
/// first).
bool TqGrepFile(std::string_view path, std::string_view needle, bool ignoreCase, std::int32_t maxMatches,
                TqStringVector& lineNumbers, TqStringVector& lines, TqString* errorText);
bool TqReadFileIntoStringVector(std::string_view path, TqStringVector& lines);

}  // namespace TqFile
