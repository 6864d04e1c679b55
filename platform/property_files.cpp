#include "platform/property_files.h"

#include <cerrno>
#include <cstdint>

#include "platform/whole_file.h"

namespace platform {
namespace {

constexpr std::int64_t kMostPropertyListBytes = 104'857'600;

}  // namespace

PropertyListStatus ReadPropertyFile(const char* path, std::string& bytes) {
  const int error = ReadWholeFile(path, kMostPropertyListBytes, bytes);
  if (error == ENOENT || error == ENOTDIR) return PropertyListStatus::kMissing;
  if (error == EINVAL || error == ENODATA || error == EFBIG) return PropertyListStatus::kUnsuitable;
  return error == 0 ? PropertyListStatus::kOk : PropertyListStatus::kUnreadable;
}

PropertyListStatus ReadPropertyDictionary(const char* path, PropertyValue& value) {
  std::string text;
  const PropertyListStatus status = ReadPropertyFile(path, text);
  if (status != PropertyListStatus::kOk) return status;
  if (!ParsePropertyList(text, value)) return PropertyListStatus::kInvalid;
  return value.type == PropertyValue::Type::kDictionary ? PropertyListStatus::kOk : PropertyListStatus::kWrongType;
}

std::string ProductVersionIn(const PropertyValue& dictionary) {
  const PropertyValue* version = dictionary.Find("ProductVersion");
  return version == nullptr ? std::string() : version->text;
}

void CollectDestinationValues(const PropertyValue& dictionary, std::vector<DestinationValue>& values) {
  const PropertyValue* destinations = dictionary.Find("Destinations");
  if (destinations == nullptr) return;
  for (const PropertyValue& destination : destinations->items) {
    const PropertyValue* uuids = destination.Find("DestinationUUIDs");
    if (uuids == nullptr) continue;
    const bool isArray = uuids->type == PropertyValue::Type::kArray;
    const PropertyValue* const first = isArray ? uuids->items.data() : uuids;
    const std::size_t count = isArray ? uuids->items.size() : 1;
    for (std::size_t i = 0; i < count; ++i) {
      values.push_back({first[i].type == PropertyValue::Type::kText, first[i].text});
    }
  }
}

}  // namespace platform
