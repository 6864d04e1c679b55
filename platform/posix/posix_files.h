#pragma once

// The file operations that every POSIX system does alike. Listing, attribute queries and mount identities are each
// system's own.

#include <sys/types.h>

#include "platform/files.h"

namespace platform {

/// Kind behind the type bits of a mode; unknown bits count as a regular file.
EntryKind EntryKindOfMode(mode_t mode);

/// What it means that reading the open directory `path` failed with `error`: 0, its end, when ENOENT tells that the
/// directory was removed meanwhile (so it was empty). ENOENT about one that is still there is an error as any other:
/// not all of its names were told.
int ReadErrnoOf(const char* path, int error);

class PosixFiles : public Files {
 public:
  int Lstat(const char* path, StatFacts& facts) override;
  int StatThroughLinks(const char* path, FileFacts& facts) override;
  int QueryAccess(const char* path, AccessFacts& facts) override;

  int Open(const char* path, OpenMode openMode, unsigned mode, int& descriptor) override;
  int Close(int descriptor) override;
  int Read(int descriptor, void* buffer, std::size_t bytes, std::size_t& got) override;
  int Write(int descriptor, const void* buffer, std::size_t bytes, std::size_t& written) override;
  int Seek(int descriptor, std::int64_t offset) override;
  int Empty(int descriptor) override;
  int StatDescriptor(int descriptor, FileFacts& facts) override;
  int ChangeDescriptorMode(int descriptor, unsigned mode) override;
  int TryLockExclusive(int descriptor) override;

  int Rename(const char* from, const char* to) override;
  int Unlink(const char* path) override;
  int MakeDirectory(const char* path, unsigned mode) override;
  int MakeHiddenDirectory(const char* path, unsigned mode) override { return MakeDirectory(path, mode); }
  int ChangeMode(const char* path, unsigned mode) override;
  int MakeTemporaryFile(std::string_view directory, std::string_view prefix, std::string_view suffix,
                        std::string& path) override;
};

}  // namespace platform
