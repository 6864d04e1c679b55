#pragma once

#include "platform/platform.h"

namespace platform {

/// Owner of an open descriptor: closes it through the platform in force.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Close(); }

  /// Opens `path`; whatever was open before is closed first. An errno value, 0 for success.
  int Open(const char* path, OpenMode openMode, unsigned mode = 0666) {
    Close();
    int opened = -1;
    const int error = TheFiles().Open(path, openMode, mode, opened);
    if (error == 0) descriptor_ = opened;
    return error;
  }
  /// An error tells that earlier writes may not have reached the file; 0 when nothing was open.
  int Close() {
    const int error = descriptor_ >= 0 ? TheFiles().Close(descriptor_) : 0;
    descriptor_ = -1;
    return error;
  }
  int Get() const { return descriptor_; }
  bool IsOpen() const { return descriptor_ >= 0; }

 private:
  int descriptor_ = -1;
};

}  // namespace platform
