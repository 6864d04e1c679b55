#include "platform/posix/posix_accounts.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace platform {
namespace {

constexpr std::size_t kFirstBufferBytes = 4096;
constexpr std::size_t kMostBufferBytes = 16 * 1024 * 1024;  // a group can have very many members
constexpr std::size_t kMostGroups = 65536;

/// Calls one of the "_r" look-ups with a larger and larger buffer until its answer fits. `buffer` holds the answer's
/// texts.
template <typename Record, typename LookUp>
bool FindRecord(LookUp lookUp, Record& record, std::vector<char>& buffer) {
  for (std::size_t bytes = kFirstBufferBytes; bytes <= kMostBufferBytes; bytes *= 2) {
    buffer.resize(bytes);
    Record* found = nullptr;
    const int error = lookUp(&record, buffer.data(), buffer.size(), &found);
    if (error != ERANGE) return error == 0 && found != nullptr;
  }
  return false;
}

std::string GroupName(gid_t id) {
  group record;
  std::vector<char> buffer;
  const auto lookUp = [id](group* out, char* texts, std::size_t bytes, group** found) {
    return getgrgid_r(id, out, texts, bytes, found);
  };
  return FindRecord(lookUp, record, buffer) ? record.gr_name : "";
}

/// getgrouplist, whose group type is gid_t on one system and int on another. Only some systems tell how many there are,
/// so the array grows until they fit.
template <typename Group>
std::vector<unsigned> GroupsOf(const passwd& account, int (*list)(const char*, Group, Group*, int*)) {
  for (std::size_t capacity = 64; capacity <= kMostGroups; capacity *= 2) {
    std::vector<Group> groups(capacity);
    int count = static_cast<int>(capacity);
    if (list(account.pw_name, static_cast<Group>(account.pw_gid), groups.data(), &count) < 0) continue;
    return {groups.begin(), groups.begin() + count};
  }
  return {account.pw_gid};
}

void FillLogin(const passwd& account, LoginFacts& login) {
  login.name = account.pw_name;
  login.userId = account.pw_uid;
  login.groupIds = GroupsOf(account, getgrouplist);
  login.groupNames.clear();
  for (const unsigned id : login.groupIds) login.groupNames.push_back(GroupName(static_cast<gid_t>(id)));
}

template <typename LookUp>
bool FindAccount(LookUp lookUp, LoginFacts& login) {
  passwd account;
  std::vector<char> buffer;
  if (!FindRecord(lookUp, account, buffer)) return false;
  FillLogin(account, login);
  return true;
}

}  // namespace

bool FindAccountByName(const std::string& name, LoginFacts& login) {
  const auto lookUp = [&name](passwd* out, char* texts, std::size_t bytes, passwd** found) {
    return getpwnam_r(name.c_str(), out, texts, bytes, found);
  };
  return FindAccount(lookUp, login);
}

bool FindAccountById(unsigned userId, LoginFacts& login) {
  const auto lookUp = [userId](passwd* out, char* texts, std::size_t bytes, passwd** found) {
    return getpwuid_r(static_cast<uid_t>(userId), out, texts, bytes, found);
  };
  return FindAccount(lookUp, login);
}

}  // namespace platform
