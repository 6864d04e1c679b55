#include "platform/mac/cf_values.h"

#include <cstring>
#include <vector>

#include "platform/property_files.h"

namespace platform {
namespace {

// Lists that the program reads are four levels deep; the limit keeps a hostile one from using up the stack.
constexpr int kMostLevels = 16;

PropertyValue ValueOf(CFTypeRef object, std::span<const char* const> keys, int level);

void FillItems(CFArrayRef array, std::span<const char* const> keys, int level, PropertyValue& value) {
  value.type = PropertyValue::Type::kArray;
  for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
    value.items.push_back(ValueOf(CFArrayGetValueAtIndex(array, i), keys, level + 1));
  }
}

void FillFields(CFDictionaryRef dictionary, std::span<const char* const> keys, int level, PropertyValue& value) {
  value.type = PropertyValue::Type::kDictionary;
  for (const char* key : keys) {
    const CfHolder<CFStringRef> name(CFStringCreateWithCString(kCFAllocatorDefault, key, kCFStringEncodingUTF8));
    const void* field = name ? CFDictionaryGetValue(dictionary, name.Get()) : nullptr;
    if (field != nullptr) value.fields.push_back({key, ValueOf(field, keys, level + 1)});
  }
}

/// `object` is borrowed. Values below the deepest level count as of another type.
PropertyValue ValueOf(CFTypeRef object, std::span<const char* const> keys, int level) {
  PropertyValue value;
  if (level > kMostLevels) return value;
  if (const auto string = CfCast<CFStringRef>(object, CFStringGetTypeID())) {
    value.type = PropertyValue::Type::kText;
    value.text = TextOf(string).value_or("");
  } else if (const auto array = CfCast<CFArrayRef>(object, CFArrayGetTypeID())) {
    FillItems(array, keys, level, value);
  } else if (const auto dictionary = CfCast<CFDictionaryRef>(object, CFDictionaryGetTypeID())) {
    FillFields(dictionary, keys, level, value);
  }
  return value;
}

}  // namespace

std::optional<std::string> TextOf(CFStringRef string, std::size_t mostBytes) {
  if (string == nullptr) return std::nullopt;
  CFIndex bytes = static_cast<CFIndex>(mostBytes);
  if (mostBytes == 0) bytes = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
  if (bytes <= 0) return std::nullopt;  // kCFNotFound for a text of absurd length
  std::vector<char> buffer(static_cast<std::size_t>(bytes));
  if (!CFStringGetCString(string, buffer.data(), bytes, kCFStringEncodingUTF8)) return std::nullopt;
  return std::string(buffer.data());
}

CfHolder<CFURLRef> FileUrlOf(const char* path) {
  const auto* bytes = reinterpret_cast<const UInt8*>(path);
  const auto length = static_cast<CFIndex>(std::strlen(path));
  return CfHolder<CFURLRef>(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, bytes, length, false));
}

PropertyListStatus ReadPropertyDictionary(const char* path, std::span<const char* const> keys, PropertyValue& value) {
  std::string bytes;
  const PropertyListStatus status = ReadPropertyFile(path, bytes);
  if (status != PropertyListStatus::kOk) return status;
  const auto* content = reinterpret_cast<const UInt8*>(bytes.data());
  const CfHolder<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, content, static_cast<CFIndex>(bytes.size())));
  if (!data) return PropertyListStatus::kUnreadable;
  // No error is asked for: it would be ours to release, and there is nothing to tell beyond "invalid".
  const CfHolder<CFPropertyListRef> list(
      CFPropertyListCreateWithData(kCFAllocatorDefault, data.Get(), kCFPropertyListImmutable, nullptr, nullptr));
  if (!list) return PropertyListStatus::kInvalid;
  value = ValueOf(list.Get(), keys, 0);
  return value.type == PropertyValue::Type::kDictionary ? PropertyListStatus::kOk : PropertyListStatus::kWrongType;
}

}  // namespace platform
