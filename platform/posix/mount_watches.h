#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/files.h"

namespace platform {

/// Tells the mounts that paths lie on from later ones in their place, for a system that gives mounts no number of their
/// own. Device and inode come back when a drive is plugged in again, so a descriptor stays open on each path asked
/// about: it sees only what was mounted when it was opened.
class MountWatches {
 public:
  /// `openFlags` are those of open(2), the descriptors close on exec besides. They must be such as keep no volume from
  /// being unmounted.
  explicit MountWatches(int openFlags) : openFlags_(openFlags) {}
  MountWatches(const MountWatches&) = delete;
  MountWatches& operator=(const MountWatches&) = delete;
  ~MountWatches();

  /// Device and inode of `path`, and as the mount's id a number, from 1, that changes whenever something else is found
  /// at the path than the time before. An errno value, 0 for success; each path asked about keeps one descriptor.
  int Identify(const char* path, MountIdentity& identity);

 private:
  struct Watch {
    std::string path;
    int descriptor = -1;
    std::uint64_t number = 0;
  };
  Watch& WatchOf(const char* path);
  /// Opens the watch anew under a new number.
  int Renew(Watch& watch);

  int openFlags_;
  std::uint64_t lastNumber_ = 0;
  std::vector<Watch> watches_;
};

}  // namespace platform
