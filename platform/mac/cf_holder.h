#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace platform {

/// Owner of one reference to a Core Foundation object: what a function with "Create" or "Copy" in its name gives. What
/// one with "Get" gives is borrowed and never put in here.
template <typename Ref>
class CfHolder {
 public:
  CfHolder() = default;
  explicit CfHolder(Ref owned) : object_(owned) {}
  CfHolder(CfHolder&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  CfHolder& operator=(CfHolder&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~CfHolder() { Reset(); }

  Ref Get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }
  /// For a call that gives an owned object through a parameter; what was held before is released first.
  Ref* Receive() {
    Reset();
    return &object_;
  }

 private:
  void Reset() {
    if (object_ != nullptr) CFRelease(object_);  // CFRelease of null ends the process
    object_ = nullptr;
  }

  Ref object_ = nullptr;
};

/// `value` as the type whose id is given, or null when it is of another. Borrowed as `value` is.
template <typename Ref>
Ref CfCast(CFTypeRef value, CFTypeID type) {
  return value != nullptr && CFGetTypeID(value) == type ? static_cast<Ref>(value) : nullptr;
}

}  // namespace platform
