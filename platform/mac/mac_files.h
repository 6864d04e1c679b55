#pragma once

#include <fcntl.h>

#include "platform/posix/mount_watches.h"
#include "platform/posix/posix_files.h"

namespace platform {

/// macOS's file system: readdir, and getattrlistat per entry relative to the open directory.
class MacFiles final : public PosixFiles {
 public:
  ListResult ListDirectory(const char* path, EntryVisitor& visitor) override;
  bool IsPrivacyDenial(int error) override;
  int QueryEntry(const char* path, EntryAttributes& attributes) override;
  int QueryFinderFlags(const char* path, std::uint16_t& finderFlags) override;
  int QueryBackupExclusion(const char* path, bool& excluded) override;
  int QueryMountIdentity(const char* path, MountIdentity& identity) override;
  int ReadResourceFork(const char* path, std::string& bytes) override;
  bool HasValidCodeSignature(const char* path) override;
  int MakeHiddenDirectory(const char* path, unsigned mode) override;

 private:
  // O_EVTONLY: the descriptor does not keep the volume from being unmounted (open(2)).
  MountWatches mounts_{O_EVTONLY | O_DIRECTORY};
};

}  // namespace platform
