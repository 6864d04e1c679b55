#include "volumes/registry_lock.h"

#include <cerrno>
#include <cstdint>

#include "base/install_record.h"
#include "base/log.h"
#include "volumes/retry.h"

namespace TqUiUtil {
namespace {

constexpr std::int64_t kWaitMillis = 5'000;
constexpr std::int64_t kPauseMillis = 20;

}  // namespace

RegistryLock::RegistryLock() {
  if (depth_++ > 0 || folder_.Open(TqInstall::DataFolder().c_str(), platform::OpenMode::kRead) != 0) return;
  const bool isMine = Retry(kWaitMillis / kPauseMillis, kPauseMillis, [this](int) {
    return platform::TheFiles().TryLockExclusive(folder_.Get()) != EWOULDBLOCK;
  });
  if (!isMine) Log("WARNING: another process has been changing the volume registry for long, not waiting any more");
}

}  // namespace TqUiUtil
