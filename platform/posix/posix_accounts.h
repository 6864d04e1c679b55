#pragma once

#include <string>

#include "platform/machine.h"

namespace platform {

/// Look-ups in the system's user database, with all groups of the account. False when it knows no such account.
bool FindAccountByName(const std::string& name, LoginFacts& login);
bool FindAccountById(unsigned userId, LoginFacts& login);

}  // namespace platform
