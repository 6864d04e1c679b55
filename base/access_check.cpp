#include "base/access_check.h"

#include <algorithm>
#include <cstring>

#include "platform/descriptor.h"
#include "platform/platform.h"

namespace {

constexpr unsigned kReadBit = 4;
constexpr unsigned kSearchBit = 1;

/// The three permission bits that apply to the login: those of the first class it belongs to, on purpose also where a
/// later class would grant more.
unsigned BitsFor(const platform::LoginFacts& login, const platform::AccessFacts& facts) {
  if (facts.userId == login.userId) return facts.mode >> 6 & 7;
  const auto& groups = login.groupIds;
  const bool inGroup = std::find(groups.begin(), groups.end(), facts.groupId) != groups.end();
  return inGroup ? facts.mode >> 3 & 7 : facts.mode & 7;
}

bool Allows(const platform::LoginFacts& login, const TqString& path, unsigned neededBit) {
  platform::AccessFacts facts;
  if (platform::TheFiles().QueryAccess(path.c_str(), facts) != 0) return false;
  return login.userId == 0 || (BitsFor(login, facts) & neededBit) != 0;
}

/// Folders must be searchable, the path itself readable. False with the first refusing component in `deniedAt`.
bool EveryComponentAllows(const platform::LoginFacts& login, std::string_view path, TqString& deniedAt) {
  for (std::size_t end = path.find('/'); end != std::string_view::npos; end = path.find('/', end + 1)) {
    deniedAt = path.substr(0, end == 0 ? 1 : end);
    const bool isLast = end + 1 == path.size();
    if (!Allows(login, deniedAt, isLast ? kReadBit : kSearchBit)) return false;
    if (isLast) return true;
  }
  deniedAt = path;
  return Allows(login, deniedAt, kReadBit);
}

}  // namespace

bool TqSystem::CurrentLoginCanRead(std::string_view path, TqString& detail) {
  const TqString name(path);
  platform::FileFacts facts;
  int error = platform::TheFiles().StatThroughLinks(name.c_str(), facts);
  // Opening a device or FIFO is heard at its other end; a question must not be.
  const bool isOpenable = facts.kind == platform::EntryKind::kRegular || facts.kind == platform::EntryKind::kDirectory;
  if (error == 0 && !isOpenable) {
    detail = "not_a_regular_file";
    return false;
  }
  platform::Descriptor file;
  if (error == 0) error = file.Open(name.c_str(), platform::OpenMode::kRead);
  detail = error == 0 ? TqString("open_succeeded") : Joined("errno=", error, " (", std::strerror(error), ")");
  return error == 0;
}

bool TqSystem::LoginCanRead(std::string_view login, std::string_view path, TqString& detail) {
  platform::LoginFacts facts;
  if (!platform::TheMachine().FindLogin(std::string(login), facts)) {
    detail = "unknown_login";
    return false;
  }
  TqString deniedAt;
  const bool allowed = EveryComponentAllows(facts, path, deniedAt);
  detail = allowed ? TqString("mode_bits_allow") : Joined("mode_bits_deny_at=", deniedAt);
  return allowed;
}

TqString TqSystem::CurrentLoginName() {
  platform::LoginFacts login;
  return platform::TheMachine().CurrentLogin(login) ? TqString(login.name)
                                                    : Joined(platform::TheMachine().EffectiveUserId());
}

bool TqSystem::CurrentLoginIsAdministrator() {
  if (platform::TheMachine().EffectiveUserId() == 0) return true;
  platform::LoginFacts login;
  if (!platform::TheMachine().CurrentLogin(login)) return false;
  return std::any_of(login.groupNames.begin(), login.groupNames.end(),
                     [](const std::string& group) { return group == "admin" || group == "sudo" || group == "wheel"; });
}
