#pragma once

// The two property lists that the program reads, from a parsed list to the plain values wanted of it. A system with a
// reader of its own for property lists uses it between the file and the values.

#include <string>
#include <vector>

#include "platform/property_list.h"
#include "platform/volumes.h"

namespace platform {

/// Reads the bytes of the property list at `path`, at most 104,857,600; kOk says nothing about what they hold. `bytes`
/// counts only for kOk.
PropertyListStatus ReadPropertyFile(const char* path, std::string& bytes);

/// Reads the XML property list at `path`, whose outermost value must be a dictionary. `value` counts only for kOk.
PropertyListStatus ReadPropertyDictionary(const char* path, PropertyValue& value);

/// `ProductVersion` of the system version list; empty when missing or no text. Neither trimmed nor checked.
std::string ProductVersionIn(const PropertyValue& dictionary);

/// The values below "DestinationUUIDs" of every dictionary of the array "Destinations" in the backup tool's
/// preferences: an array of values, or one text. Appended in document order.
void CollectDestinationValues(const PropertyValue& dictionary, std::vector<DestinationValue>& values);

}  // namespace platform
