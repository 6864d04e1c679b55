// The least that a walk of a tree can cost: reads every directory and queries every entry with the calls and masks that
// the scan uses, and forgets the answers.   bare_loop DIRECTORY   prints "entries directories".

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t kListingBytes = 256 * 1024;
constexpr unsigned kMask = STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_MTIME | STATX_BTIME | STATX_SIZE;

long entries = 0;
long directories = 0;
char listing[kListingBytes];

bool IsDotOrDotDot(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

/// Queries the entries of one filled buffer; the names of directories go to `subdirectories`.
void QueryEntries(int directory, const char* end, std::vector<std::string>& subdirectories) {
  const dirent64* record = nullptr;
  for (const char* at = listing; at < end; at += record->d_reclen) {
    record = reinterpret_cast<const dirent64*>(at);
    if (IsDotOrDotDot(record->d_name)) continue;
    struct statx answer;
    if (statx(directory, record->d_name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, kMask, &answer) != 0) continue;
    ++entries;
    if (S_ISDIR(answer.stx_mode)) subdirectories.emplace_back(record->d_name);
  }
}

void Walk(std::string& path) {
  const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return;
  ++directories;
  std::vector<std::string> subdirectories;
  for (ssize_t bytes = 0; (bytes = getdents64(directory, listing, sizeof listing)) > 0;) {
    QueryEntries(directory, listing + bytes, subdirectories);
  }
  close(directory);
  for (const std::string& name : subdirectories) {
    const std::size_t length = path.size();
    path.append("/").append(name);
    Walk(path);
    path.resize(length);
  }
}

}  // namespace

int main(int count, char** words) {
  if (count != 2) return 2;
  std::string path = words[1];
  Walk(path);
  std::printf("%ld %ld\n", entries, directories);
}
