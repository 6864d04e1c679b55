#pragma once

#include "selection/settings.h"
#include "tests/platform_fixture.h"
#include "volumes/defcon.h"
#include "volumes/volume_info.h"
#include "volumes/volume_registry.h"

/// The fake client with fresh process-wide state of the volumes layer, and writers for the files that it reads.
class VolumesTest : public PlatformTest {
 protected:
  using Pairs = std::vector<std::pair<std::string, std::string>>;  ///< vguid, mount point
  static constexpr const char* kRootGuid = "v000rrrrrrrrrrrrrrrrrrrrrrrr";
  static constexpr const char* kDiskGuid = "v001aaaaaaaaaaaaaaaaaaaaaaaa";
  static constexpr const char* kOtherGuid = "v002bbbbbbbbbbbbbbbbbbbbbbbb";
  static constexpr const char* kOldHost = "ffffffffffffffffffffffff";
  static constexpr std::int64_t kDay = 86'400'000;

  VolumesTest() {
    TqInfoManager::ForgetSettings();
    TqUiUtil::ForgetGuidState();
    TqUiUtil::ForgetDefconCache();
  }
  static std::string ListPath(const std::string& name) { return Data("tqfilelists/" + name + "_filelist.dat"); }
  static std::string IdentityText(const std::string& vguid, const std::string& hguid = kHostGuid) {
    return "<contents>\n<tqvolume vguid=\"" + vguid + "\" associated_hguid=\"" + hguid + "\" />\n</contents>\n";
  }
  /// An attached volume with an identity and one visible file.
  FakePlatform::FakeVolume& AddIdentified(const std::string& path, const char* vguid, const char* hguid = kHostGuid) {
    fake.WriteFile(path + "/.tqvol/tqvol_id.xml", IdentityText(vguid, hguid));
    fake.WriteFile(path + "/photo.jpg", "x");
    return fake.AddVolume(path);
  }
  /// Settings that select these volumes; `more` goes in front of them.
  void WriteSettingsFile(const Pairs& selected, const std::string& more = "") {
    std::string text = "<tqinfo>\n" + more + "<hard_drives_to_backup>\n";
    for (const auto& [vguid, mountPoint] : selected) {
      text += "    <tqvolume tqVolumeGuid=\"" + vguid + "\" mountPointPath=\"" + mountPoint + "\" />\n";
    }
    fake.WriteFile(Data("tqinfo.xml"), text + "</hard_drives_to_backup>\n</tqinfo>\n");
  }
  void Select(const Pairs& selected, const std::string& more = "") {
    WriteSettingsFile(selected, more);
    ASSERT_TRUE(TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile());
  }
  static TqVolumeInfo& Add(TqVolumeInfoList& list, const char* vguid, const char* mountPoint, std::int64_t seen = 0) {
    TqVolumeInfo& volume = *list.AddNew();
    volume.SetVguid(vguid);
    volume.mountPointPath = mountPoint;
    volume.lastTimeVolumeWasSeenAttachedGmtMillis = seen;
    return volume;
  }
  void WriteRegistry(const Pairs& volumes, std::int64_t seen = 0) {
    TqVolumeInfoList list;
    for (const auto& [vguid, mountPoint] : volumes) Add(list, vguid.c_str(), mountPoint.c_str(), seen);
    ASSERT_TRUE(TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("000", list));
  }
  /// "<first 4 of the vguid> <mount point>;" of each record.
  static std::string Summary(const TqVolumeInfoList& list) {
    TqString text;
    for (const TqVolumeInfo* volume : list) {
      AppendAll(text, std::string_view(volume->vguid).substr(0, 4), " ", volume->mountPointPath, ";");
    }
    return text.c_str();
  }
  /// The short id, a blank and the same of the registry on disk; "unreadable" when it cannot be read.
  static std::string RegistrySummary() {
    TqString shortId;
    TqVolumeInfoList list;
    const bool read = TqUiUtil::TqVolumesXml_ReadTqVolumesXmlFile(shortId, list);
    return read ? shortId.c_str() + (" " + Summary(list)) : "unreadable";
  }
};
