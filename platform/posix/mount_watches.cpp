#include "platform/posix/mount_watches.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace platform {
namespace {

/// Whether `descriptor` still sees what `facts` describe. One into a volume that is gone answers with an error.
bool Sees(int descriptor, const struct stat& facts) {
  struct stat seen;
  return descriptor >= 0 && fstat(descriptor, &seen) == 0 && seen.st_dev == facts.st_dev && seen.st_ino == facts.st_ino;
}

}  // namespace

MountWatches::~MountWatches() {
  for (const Watch& watch : watches_) {
    if (watch.descriptor >= 0) close(watch.descriptor);
  }
}

MountWatches::Watch& MountWatches::WatchOf(const char* path) {
  const auto known = std::find_if(watches_.begin(), watches_.end(), [&](const Watch& one) { return one.path == path; });
  return known != watches_.end() ? *known : watches_.emplace_back(Watch{path});
}

int MountWatches::Renew(Watch& watch) {
  if (watch.descriptor >= 0) close(watch.descriptor);
  do {
    watch.descriptor = open(watch.path.c_str(), openFlags_ | O_CLOEXEC);
  } while (watch.descriptor < 0 && errno == EINTR);
  watch.number = ++lastNumber_;
  return watch.descriptor >= 0 ? 0 : errno;
}

int MountWatches::Identify(const char* path, MountIdentity& identity) {
  Watch& watch = WatchOf(path);
  struct stat facts;
  if (stat(path, &facts) != 0) return errno;
  if (!Sees(watch.descriptor, facts)) {
    if (const int error = Renew(watch)) return error;
    if (fstat(watch.descriptor, &facts) != 0) return errno;
  }
  identity.device = static_cast<std::uint64_t>(facts.st_dev);
  identity.inode = facts.st_ino;
  identity.mountId = watch.number;
  return 0;
}

}  // namespace platform
