#pragma once

#include <cstddef>
#include <cstring>
#include <span>

namespace platform {

/// Fields of a system call's reply, in host byte order and without regard to alignment. Nothing outside the bytes given
/// is ever read.
class ByteReader {
 public:
  explicit ByteReader(std::span<const std::byte> bytes) : bytes_(bytes) {}

  std::size_t Size() const { return bytes_.size(); }
  /// False, with `value` unchanged, when the field does not lie wholly within the bytes.
  template <typename Field>
  bool Read(std::size_t offset, Field& value) const {
    if (offset > bytes_.size() || bytes_.size() - offset < sizeof(Field)) return false;
    std::memcpy(&value, bytes_.data() + offset, sizeof(Field));
    return true;
  }

 private:
  std::span<const std::byte> bytes_;
};

}  // namespace platform
