#include "platform/mac/cf_values.h"

#include <cstring>
#include <vector>

#include "platform/property_files.h"

namespace platform {
namespace {

// Lists that the program reads are four levels deep and have a few values; the limits keep a hostile one from using up
// the stack or, by values that stand in many places, the memory.
constexpr int kMostLevels = 16;
constexpr int kMostValues = 100'000;

/// Copies what is under `keys` out of a property list.
class ValueReader {
 public:
  explicit ValueReader(std::span<const char* const> keys) : keys_(keys) {}
  /// `object` is borrowed. Values beyond the limits count as of another type.
  PropertyValue Read(CFTypeRef object, int level = 0) {
    PropertyValue value;
    if (level > kMostLevels || IsTooMuch() || ++values_ > kMostValues) return value;
    if (const auto string = CfCast<CFStringRef>(object, CFStringGetTypeID())) {
      value.type = PropertyValue::Type::kText;
      value.text = TextOf(string).value_or("");
    } else if (const auto array = CfCast<CFArrayRef>(object, CFArrayGetTypeID())) {
      FillItems(array, level, value);
    } else if (const auto dictionary = CfCast<CFDictionaryRef>(object, CFDictionaryGetTypeID())) {
      FillFields(dictionary, level, value);
    }
    return value;
  }
  bool IsTooMuch() const { return values_ > kMostValues; }

 private:
  void FillItems(CFArrayRef array, int level, PropertyValue& value) {
    value.type = PropertyValue::Type::kArray;
    const CFIndex count = CFArrayGetCount(array);
    for (CFIndex i = 0; i < count && !IsTooMuch(); ++i) {
      value.items.push_back(Read(CFArrayGetValueAtIndex(array, i), level + 1));
    }
  }
  void FillFields(CFDictionaryRef dictionary, int level, PropertyValue& value) {
    value.type = PropertyValue::Type::kDictionary;
    for (const char* key : keys_) {
      const CfHolder<CFStringRef> name(CFStringCreateWithCString(kCFAllocatorDefault, key, kCFStringEncodingUTF8));
      const void* field = name ? CFDictionaryGetValue(dictionary, name.Get()) : nullptr;
      if (field != nullptr) value.fields.push_back({key, Read(field, level + 1)});
    }
  }

  std::span<const char* const> keys_;
  int values_ = 0;
};

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
  ValueReader reader(keys);
  value = reader.Read(list.Get());
  if (reader.IsTooMuch()) return PropertyListStatus::kInvalid;
  return value.type == PropertyValue::Type::kDictionary ? PropertyListStatus::kOk : PropertyListStatus::kWrongType;
}

}  // namespace platform
