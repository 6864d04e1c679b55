#pragma once

#include <string_view>

#include "base/string.h"

namespace TqSystem {

/// Whether the process can open `path` for reading: "open_succeeded" or "errno=<n> (<text>)" goes to `detail`. FIFOs,
/// sockets and devices are never opened: "not_a_regular_file".
bool CurrentLoginCanRead(std::string_view path, TqString& detail);
/// The account name of the effective user id; its decimal number when it has none.
TqString CurrentLoginName();
/// User id 0, or a member of one of the administrators' groups (admin, sudo, wheel).
bool CurrentLoginIsAdministrator();
/// Whether the login named could read `path` by the mode bits of every component: "mode_bits_allow",
/// "mode_bits_deny_at=<path>" or "unknown_login".
bool LoginCanRead(std::string_view login, std::string_view path, TqString& detail);

}  // namespace TqSystem
