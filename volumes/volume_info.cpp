#include "volumes/volume_info.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "base/install_record.h"
#include "base/text_codec.h"

namespace {

/// Copies at most `room` - 1 bytes and terminates.
void CopyFixed(char* field, std::size_t room, std::string_view text) {
  const std::size_t length = text.copy(field, room - 1);
  std::memset(field + length, 0, room - length);
}

std::int32_t SlotsFor(std::int32_t need) {
  return need < 6 ? 5 : (need - 5) / 10 * 10 + 15;
}

bool ComesBefore(const TqVolumeInfo* a, const TqVolumeInfo* b) {
  const int order = CompareBytes(a->mountPointPath, b->mountPointPath);
  return order != 0 ? order < 0 : CompareBytes(a->vguid, b->vguid) < 0;
}

}  // namespace

void TqVolumeInfo::Reset() {
  *this = TqVolumeInfo();
}

void TqVolumeInfo::CopyTo(TqVolumeInfo& destination) const {
  destination = *this;
}

void TqVolumeInfo::ToJson(TqString& json) const {
  json.Clear();
  AppendAll(json, "{\"mountPointPath\":\"", mountPointPath, "\"");
  AppendAll(json, ",\"numBytesFreeOnVolume\":", numBytesFreeOnVolume);
  AppendAll(json, ",\"numBytesUsedOnVolume\":", numBytesUsedOnVolume);
  AppendAll(json, ",\"numBytesTotalOnVolume\":", numBytesTotalOnVolume);
  AppendAll(json, ",\"volumeIsCurrentlyConnected\":", volumeIsCurrentlyConnected);
  AppendAll(json, ",\"volumeIsSelectedForBackup\":", volumeIsSelectedForBackup);
  AppendAll(json, ",\"isSystemVolume\":", isSystemVolume);
  AppendAll(json, ",\"isWritable\":", isWritable);
  AppendAll(json, ",\"isCaseSensitive\":", isCaseSensitive);
  AppendAll(json, ",\"isCasePreserving\":", isCasePreserving, "}");
}

void TqVolumeInfo::SetType(std::string_view type) {
  CopyFixed(volumeType, sizeof volumeType, type);
}

void TqVolumeInfo::SetVguid(std::string_view text) {
  CopyFixed(vguid, sizeof vguid, IsVguid(text) ? text : std::string_view());
}

void TqVolumeInfo::SetAssociatedHguid(std::string_view text) {
  CopyFixed(associatedHguid, sizeof associatedHguid, text.size() == kHguidLength ? text : std::string_view());
}

TqString TqVolumeInfo::UuidText() const {
  TqString text;
  if (std::ranges::all_of(volumeUuid, [](std::uint8_t byte) { return byte == 0; })) return text;
  for (std::size_t i = 0; i < volumeUuid.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.AppendChar('-');
    text.AppendChar("0123456789ABCDEF"[volumeUuid[i] >> 4]);
    text.AppendChar("0123456789ABCDEF"[volumeUuid[i] & 15]);
  }
  return text;
}

TqVolumeInfoList::~TqVolumeInfoList() {
  for (std::int32_t i = 0; i < capacity_; ++i) delete slots_[i];
  delete[] slots_;
}

bool TqVolumeInfoList::EnsureSlots(std::int32_t need) {
  if (need <= capacity_) return true;
  const std::int32_t wanted = SlotsFor(need);
  auto** grown = new (std::nothrow) TqVolumeInfo*[static_cast<std::size_t>(wanted)];
  if (grown == nullptr) return false;
  std::copy_n(slots_, capacity_, grown);
  delete[] slots_;
  slots_ = grown;
  while (capacity_ < wanted) {
    TqVolumeInfo* record = new (std::nothrow) TqVolumeInfo;
    if (record == nullptr) break;
    slots_[capacity_++] = record;
  }
  return need <= capacity_;
}

TqVolumeInfo* TqVolumeInfoList::AddNew() {
  return EnsureSlots(count_ + 1) ? slots_[count_++] : nullptr;
}

bool TqVolumeInfoList::AppendCopy(const TqVolumeInfo& record) {
  TqVolumeInfo* added = AddNew();
  if (added == nullptr) return false;
  record.CopyTo(*added);
  return true;
}

void TqVolumeInfoList::RemoveAt(std::int32_t index) {
  if (Get(index) == nullptr) return;
  slots_[index]->Reset();
  std::rotate(slots_ + index, slots_ + index + 1, slots_ + count_);
  --count_;
}

bool TqVolumeInfoList::ContainsMountPoint(std::string_view path) const {
  const TqString mountPoint = TqFile::GetVolumePathOfDir(path);
  return std::any_of(begin(), end(), [&](const TqVolumeInfo* record) { return record->mountPointPath == mountPoint; });
}

TqVolumeInfo* TqVolumeInfoList::FindVguid(std::string_view vguid) const {
  const auto found = std::find_if(begin(), end(), [&](const TqVolumeInfo* record) { return vguid == record->vguid; });
  return found != end() ? *found : nullptr;
}

void TqVolumeInfoList::SortForDisplay() {
  std::stable_sort(slots_, slots_ + count_, ComesBefore);
}

namespace TqFile {

TqString GetVolumePathOfDir(std::string_view path) {
  constexpr std::string_view kVolumes = "/Volumes/";
  if (!StartsWithIgnoreCase(path, kVolumes) || path.size() == kVolumes.size()) return "/";
  return WithTrailingSlash(path.substr(0, path.find('/', kVolumes.size())));
}

bool IsSystemVolume(std::string_view path) {
  return path == "/";
}

TqString WithTrailingSlash(std::string_view path) {
  return Joined(path, path.ends_with('/') ? "" : "/");
}

TqString ListNameTag(std::string_view directory) {
  if (directory.empty()) return "c___";
  const TqString mountPoint = GetVolumePathOfDir(directory);
  if (IsSystemVolume(mountPoint)) return "root";
  const std::string_view withoutSlash = mountPoint.Slice(0, mountPoint.Length() - 1);
  TqString tag = Joined(LowerCased(withoutSlash.substr(withoutSlash.rfind('/') + 1)), "______");
  tag.Truncate(4);
  const bool keepHighBytes = IsValidUtf8(tag);
  for (std::int32_t i = 0; i < tag.Length(); ++i) {
    const char c = tag.CharAt(i);
    // A character that the cut left half would make the list's name unusable on file systems that insist on UTF-8.
    const bool isHighByte = (static_cast<unsigned char>(c) & 0x80U) != 0;
    if (std::string_view("\\:,").find(c) != std::string_view::npos || (isHighByte && !keepHighBytes))
      tag.SetCharAt(i, '_');
  }
  return tag;
}

TqString PerVolumeListPath(std::string_view vguid, std::string_view directory) {
  return Joined(TqInstall::ListsFolder(), vguid, "_", ListNameTag(directory), "_filelist.dat");
}

}  // namespace TqFile
