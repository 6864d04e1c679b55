#pragma once

#include <string>
#include <utility>
#include <vector>

#include "selection/settings.h"
#include "tests/platform_fixture.h"

/// Volumes with identities, and settings that select them.
class ScanTest : public PlatformTest {
 protected:
  static constexpr const char* kSystemGuid = "v000aaaaaaaaaaaaaaaaaaaaaaaa";
  static constexpr const char* kDataGuid = "v001bbbbbbbbbbbbbbbbbbbbbbbb";
  static constexpr const char* kOtherGuid = "v002cccccccccccccccccccccccc";

  ScanTest() { fake.MakeFolders(Data("tqfilelists")); }
  ~ScanTest() override { TqInfoManager::ForgetSettings(); }

  /// Mounts a volume below /Volumes that holds a file and the identity `vguid`.
  void Attach(const std::string& mountPoint, const std::string& vguid) {
    fake.AddVolume(mountPoint);
    fake.WriteFile(mountPoint + "/file.txt", "x");
    WriteIdentity(mountPoint + "/.tqvol", vguid);
  }
  void AttachSystemVolume() { WriteIdentity(Data("tqvol_system_volume"), kSystemGuid); }

  /// Writes and reads settings that select these (mount point, GUID) pairs; `more` goes in front of them.
  void Select(const std::vector<std::pair<std::string, std::string>>& volumes, const std::string& more = "") {
    std::string text = "<tqinfo>\n" + more + "<hard_drives_to_backup>\n";
    for (const auto& [mountPoint, vguid] : volumes) {
      text += "    <tqvolume tqVolumeGuid=\"" + vguid + "\" mountPointPath=\"" + mountPoint + "\" />\n";
    }
    fake.WriteFile(Data("tqinfo.xml"), text + "</hard_drives_to_backup>\n</tqinfo>\n");
    ASSERT_TRUE(TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile());
  }
  static std::string Text(std::string_view text) { return std::string(text); }

 private:
  void WriteIdentity(const std::string& folder, const std::string& vguid) {
    fake.WriteFile(folder + "/tqvol_id.xml", "<contents>\n<tqvolume vguid=\"" + vguid + "\" associated_hguid=\"" +
                                                 kHostGuid + "\" />\n</contents>\n");
  }
};
