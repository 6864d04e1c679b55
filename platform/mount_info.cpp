#include "platform/mount_info.h"

#include <charconv>
#include <utility>

namespace platform {
namespace {

bool IsOctalByte(std::string_view digits) {
  if (digits.size() < 3 || digits[0] < '0' || digits[0] > '3') return false;
  return digits[1] >= '0' && digits[1] <= '7' && digits[2] >= '0' && digits[2] <= '7';
}

/// Takes the text up to the next `separator` off `rest`, the separator too.
std::string_view TakeField(std::string_view& rest, char separator) {
  const std::size_t at = rest.find(separator);
  const std::string_view field = rest.substr(0, at);
  rest.remove_prefix(at == std::string_view::npos ? rest.size() : at + 1);
  return field;
}

bool ParseId(std::string_view text, std::uint64_t& id) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  return error == std::errc{} && end == text.data() + text.size();
}

/// "36 35 98:0 /root /mount rw,noatime master:1 - ext3 /dev/root rw,errors=continue": the number of optional fields
/// before the lone
/// "-" varies, and an empty source leaves two blanks in a row.
bool ParseRow(std::string_view line, MountRow& row) {
  if (!ParseId(TakeField(line, ' '), row.id) || !ParseId(TakeField(line, ' '), row.parentId)) return false;
  TakeField(line, ' ');  // device numbers
  TakeField(line, ' ');  // the part of the file system that is mounted
  row.mountPoint = DecodeMountText(TakeField(line, ' '));
  if (!row.mountPoint.starts_with('/')) return false;
  while (!line.empty() && TakeField(line, ' ') != "-") {
  }
  row.type = DecodeMountText(TakeField(line, ' '));
  row.source = DecodeMountText(TakeField(line, ' '));
  return !row.type.empty();
}

/// The end of the component of `path` that begins behind the "/" at `from`.
std::size_t EndOfComponent(std::string_view path, std::size_t from) {
  const std::size_t end = path.find('/', from + 1);
  return end == std::string_view::npos ? path.size() : end;
}

}  // namespace

std::string DecodeMountText(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && IsOctalByte(text.substr(i + 1))) {
      decoded.push_back(static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0')));
      i += 3;
    } else {
      decoded.push_back(text[i]);
    }
  }
  return decoded;
}

std::vector<MountRow> ParseMountInfo(std::string_view text) {
  std::vector<MountRow> rows;
  while (!text.empty()) {
    MountRow row;
    if (ParseRow(TakeField(text, '\n'), row)) rows.push_back(std::move(row));
  }
  return rows;
}

MountTable::MountTable(std::vector<MountRow> rows) : rows_(std::move(rows)) {
  for (const MountRow& row : rows_) ids_.insert(row.id);
}

/// The mount on top of what is to be seen at `path` inside the mount `current`. Null stands for the mount that the
/// table does not show: whatever the process's root lies on, so the rows with an unlisted parent are mounted on it.
const MountRow* MountTable::Step(const MountRow* current, std::string_view path) const {
  // A stack on one folder is a chain of parents; its length bounds the loop even in a table that is no tree.
  for (std::size_t steps = 0; steps <= rows_.size(); ++steps) {
    const MountRow* next = nullptr;
    for (const MountRow& row : rows_) {
      if (&row == current || row.mountPoint != path) continue;
      const bool isOnCurrent =
          current == nullptr ? !ids_.contains(row.parentId) || row.parentId == row.id : row.parentId == current->id;
      if (isOnCurrent) next = &row;
    }
    if (next == nullptr) return current;
    current = next;
  }
  return current;
}

const MountRow* MountTable::VisibleAt(std::string_view path) const {
  if (!path.starts_with('/')) return nullptr;
  // As the kernel resolves a path: component by component, entering whatever is mounted there.
  const MountRow* current = Step(nullptr, "/");
  if (path.size() > 1) {
    for (std::size_t end = EndOfComponent(path, 0);; end = EndOfComponent(path, end)) {
      current = Step(current, path.substr(0, end));
      if (end == path.size()) break;
    }
  }
  return current != nullptr && current->mountPoint == path ? current : nullptr;
}

}  // namespace platform
