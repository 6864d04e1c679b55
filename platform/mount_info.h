#pragma once

// The kernel's mount table in its text form, "/proc/self/mountinfo" of proc(5), and what path look-up makes of it.

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace platform {

struct MountRow {
  std::uint64_t id = 0;
  std::uint64_t parentId = 0;
  std::string mountPoint;  ///< relative to the process's root, without trailing "/" (but "/" itself)
  std::string type;        ///< for example "ext4" or "fuse.sshfs"
  std::string source;      ///< what is mounted, in the mounter's words; may be empty
};

/// Undoes the kernel's escapes: a backslash and three octal digits of at most 377 stand for one byte. Anything else
/// stays.
std::string DecodeMountText(std::string_view text);

/// The rows in the kernel's order. Lines that are no row are left out.
std::vector<MountRow> ParseMountInfo(std::string_view text);

/// Answers which mount is to be seen at a path. The table also holds mounts that are hidden, below another on the same
/// folder or in a folder that something was mounted over.
class MountTable {
 public:
  explicit MountTable(std::vector<MountRow> rows);

  const std::vector<MountRow>& Rows() const { return rows_; }
  /// The mount whose root is `path` (spelled as in the rows), or null when nothing visible is mounted just there.
  const MountRow* VisibleAt(std::string_view path) const;

 private:
  const MountRow* Step(const MountRow* current, std::string_view path) const;

  std::vector<MountRow> rows_;
  std::unordered_set<std::uint64_t> ids_;
};

}  // namespace platform
