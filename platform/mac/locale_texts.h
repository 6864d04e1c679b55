#pragma once

#include <cstdint>
#include <string>

#include "platform/machine.h"

namespace platform {

/// The current locale's identifier, the first preferred language and the three samples in the locale's own formats:
/// medium date with short time, short time, medium date. In a process without a user's session these are the system's.
LocaleTexts CurrentLocaleTexts();

/// `number` in the current locale's decimal style; plain digits when the system gives no formatter.
std::string DecimalText(std::int64_t number);

}  // namespace platform
