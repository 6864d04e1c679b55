#pragma once

#include <string>
#include <utility>
#include <vector>

#include "selection/settings.h"
#include "tests/platform_fixture.h"
#include "volumes/defcon.h"
#include "volumes/volume_identity.h"
#include "volumes/volume_info.h"
#include "volumes/volume_query.h"
#include "volumes/volume_registry.h"

/// The fake client with fresh process-wide state of the volumes layer, and writers for the files that it reads.
class VolumesTest : public PlatformTest {
 protected:
  static constexpr const char* kRootGuid = "v000rrrrrrrrrrrrrrrrrrrrrrrr";
  static constexpr const char* kDiskGuid = "v001aaaaaaaaaaaaaaaaaaaaaaaa";
  static constexpr const char* kOtherGuid = "v002bbbbbbbbbbbbbbbbbbbbbbbb";
  static constexpr std::int64_t kDay = 86'400'000;

  VolumesTest() { ForgetVolumesState(); }
  ~VolumesTest() override { ForgetVolumesState(); }

  static void ForgetVolumesState() {
    TqInfoManager::ForgetSettings();
    TqUiUtil::ForgetGuidState();
    TqUiUtil::ForgetDefconCache();
  }
  static std::string IdentityText(const std::string& vguid, const std::string& hguid = kHostGuid) {
    return "<contents>\n<tqvolume vguid=\"" + vguid + "\" associated_hguid=\"" + hguid + "\" />\n</contents>\n";
  }
  /// An attached volume with an identity and one visible file.
  FakePlatform::FakeVolume& AddIdentified(const std::string& path, const std::string& vguid,
                                          const std::string& hguid = kHostGuid) {
    FakePlatform::FakeVolume& volume = fake.AddVolume(path);
    fake.WriteFile(path + "/.tqvol/tqvol_id.xml", IdentityText(vguid, hguid));
    fake.WriteFile(path + "/photo.jpg", "x");
    return volume;
  }
  void WriteSettingsFile(const std::vector<std::pair<std::string, std::string>>& selected) {
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<tqinfo>\n<hard_drives_to_backup>\n";
    for (const auto& [vguid, mountPoint] : selected) {
      text += "    <tqvolume tqVolumeGuid=\"" + vguid + "\" mountPointPath=\"" + mountPoint + "\" />\n";
    }
    fake.WriteFile(Data("tqinfo.xml"), text + "</hard_drives_to_backup>\n</tqinfo>\n");
  }
  void Select(const std::vector<std::pair<std::string, std::string>>& selected) {
    WriteSettingsFile(selected);
    ASSERT_TRUE(TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile());
  }
  static void Add(TqVolumeInfoList& list, const char* vguid, const char* mountPoint, std::int64_t lastSeen = 0) {
    TqVolumeInfo volume;
    volume.SetVguid(vguid);
    volume.mountPointPath = mountPoint;
    volume.lastTimeVolumeWasSeenAttachedGmtMillis = lastSeen;
    list.AppendCopy(volume);
  }
  void WriteRegistry(const std::vector<std::pair<const char*, const char*>>& volumes, std::int64_t lastSeen = 0) {
    TqVolumeInfoList list;
    for (const auto& [vguid, mountPoint] : volumes) Add(list, vguid, mountPoint, lastSeen);
    ASSERT_TRUE(TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("000", list));
  }
  /// "<vguid> <mount point>;" of each record.
  static std::string Summary(const TqVolumeInfoList& list) {
    std::string text;
    for (const TqVolumeInfo* volume : list)
      text += std::string(volume->vguid) + " " + volume->mountPointPath.c_str() + ";";
    return text;
  }
  /// The same of the registry on disk; "unreadable" when it cannot be read.
  static std::string RegistrySummary() {
    TqString shortId;
    TqVolumeInfoList list;
    return TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile(shortId, list) ? Summary(list) : "unreadable";
  }
};
