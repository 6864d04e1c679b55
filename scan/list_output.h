#pragma once

// Where list lines go: the large buffer in front of a `.future` list, and what is known against a list - an append that
// failed, or a volume that was not the same throughout - so that a list that is not whole is never swapped in.

#include <cstdint>
#include <string_view>
#include <vector>

#include "base/string.h"
#include "base/vector.h"
#include "platform/files.h"

class TqListOutput {
 public:
  static constexpr std::int64_t kReservedBytes = 41'943'040;
  static constexpr std::int32_t kFlushAbove = 20'971'520;
  static constexpr std::int64_t kLargeFileBytes = 524'288'000;

  explicit TqListOutput(bool bufferingOff) : bufferingOff_(bufferingOff) {}

  /// Reserves (without touching) the buffer's memory.
  void ReserveBuffer() { buffer_.Reserve(kReservedBytes); }
  TqString& Buffer() { return buffer_; }

  /// Appends the buffer to `listPath` and empties it, keeping its capacity. A failed append is noted against the list
  /// and logged once per list.
  void FlushListBuffer(std::string_view listPath);
  /// After each line or header: flushes at once when buffering is off.
  void FlushIfUnbuffered(std::string_view listPath) {
    if (bufferingOff_ && buffer_.Length() > 1) FlushListBuffer(listPath);
  }
  /// After a directory's file pass: flushes a buffer above kFlushAbove, and any when buffering is off.
  void FlushIfLarge(std::string_view listPath);
  /// Appends `text` directly (start line, lines of the large-file list); a failure counts as above.
  void AppendDirectly(std::string_view listPath, std::string_view text);
  /// Notes that lines of the list were lost; logs it once per list.
  void NoteBroken(std::string_view listPath);
  /// Whether every append to `listPath` (a `.future` path) succeeded and the file still holds just what this run wrote
  /// (and found there): a run that has lost its lock shares the name with another one for a while.
  bool IsWhole(std::string_view listPath) const;

  /// Notes device, inode and mount of a volume path when its first entry is walked; later calls for the same path do
  /// nothing.
  void NoteMount(std::string_view volumePath);
  /// Looks at the volume again; a difference marks it interrupted for good.
  void RecheckMount(std::string_view volumePath);
  bool IsInterrupted(std::string_view volumePath) const;
  /// After a listing inside the volume that failed or was not whole, with its errno: looks at the volume again.
  void NoteFailedListing(std::string_view volumePath, int error);
  /// Whether listings failed as they do when a drive was pulled: until the system takes it down, which may last
  /// seconds, the volume seems to be the same.
  bool MayBeGoing(std::string_view volumePath) const;
  /// After a wait for that: no volume may be going any more because of what failed so far.
  void NoteUnmountWait();

 private:
  struct NotedMount {
    TqString volumePath;
    bool isKnown = false;
    platform::MountIdentity identity;
    bool interrupted = false;
    bool mayBeGoing = false;
  };
  /// A list and its size on disk as this run left it.
  struct WrittenList {
    TqString path;
    std::int64_t bytes = 0;
  };
  const NotedMount* FindMount(std::string_view volumePath) const;
  /// The list's record; made with the present size on its first use.
  WrittenList& RecordOf(std::string_view listPath);

  bool bufferingOff_;
  TqString buffer_;
  TqStringVector brokenLists_;
  std::vector<WrittenList> written_;
  std::vector<NotedMount> mounts_;
};
