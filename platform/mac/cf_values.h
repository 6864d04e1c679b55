#pragma once

// Between Core Foundation's values and plain ones.

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "platform/mac/cf_holder.h"
#include "platform/property_list.h"
#include "platform/volumes.h"

namespace platform {

/// UTF-8 text of a string (null gives none). Nothing when it has no such form or, its NUL included, needs more than
/// `mostBytes`; 0 means no limit.
std::optional<std::string> TextOf(CFStringRef string, std::size_t mostBytes = 0);

/// File URL of a path, or an empty holder. `path` may be relative.
CfHolder<CFURLRef> FileUrlOf(const char* path);

/// Reads the property list at `path` in any of its formats; its outermost value must be a dictionary. Of dictionaries
/// only the fields named in `keys` are kept, whatever their depth. `value` counts only for kOk.
PropertyListStatus ReadPropertyDictionary(const char* path, std::span<const char* const> keys, PropertyValue& value);

}  // namespace platform
