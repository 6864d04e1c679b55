#pragma once

#include <IOKit/IOKitLib.h>

#include <utility>

namespace platform {

/// Owner of one reference to an object of the I/O registry (a Mach port, which Core Foundation knows nothing of).
class IoHolder {
 public:
  IoHolder() = default;
  explicit IoHolder(io_object_t owned) : object_(owned) {}
  IoHolder(IoHolder&& other) noexcept : object_(std::exchange(other.object_, IO_OBJECT_NULL)) {}
  IoHolder& operator=(IoHolder&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~IoHolder() { Reset(); }

  io_object_t Get() const { return object_; }
  explicit operator bool() const { return object_ != IO_OBJECT_NULL; }
  /// For a call that gives an owned object through a parameter; what was held before is released first.
  io_object_t* Receive() {
    Reset();
    return &object_;
  }

 private:
  void Reset() {
    if (object_ != IO_OBJECT_NULL) IOObjectRelease(object_);
    object_ = IO_OBJECT_NULL;
  }

  io_object_t object_ = IO_OBJECT_NULL;
};

}  // namespace platform
