#include "volumes/default_settings.h"

#include "tests/volumes/volumes_fixture.h"

class DefaultSettingsTest : public VolumesTest {
 protected:
  DefaultSettingsTest() {
    fake.WriteFile(Data("tqvol_system_volume/tqvol_id.xml"), IdentityText(kRootGuid));
    fake.WriteFile("/Users/bob/a.txt", "x");
    AddIdentified("/Volumes/Mine", kDiskGuid);
    AddIdentified("/Volumes/Foreign", kOtherGuid, kOldHost);
    fake.AddVolume("/Volumes/Empty");
  }
  bool Create(const TqStringVector& only = {}) {
    return TqInfoManager::CreateDefault_tqinfo_xml(Data("tqinfo.xml"), only);
  }
  /// "<first 4 of the vguid> <mount point>;" of each selected volume.
  static std::string Selected() {
    EXPECT_TRUE(TqInfoManager::ReadControlPanelSettingsFromTqInfoXmlFile());
    std::string text;
    for (const TqSelectedVolume& volume : TqInfoManager::Settings().selectedVolumes) {
      text += Joined(volume.vguid.Slice(0, 4), " ", volume.mountPoint, ";").c_str();
    }
    return text;
  }
};

TEST_F(DefaultSettingsTest, OrdinaryVolumesAreSelectedWithAnIdentityOfThisHost) {
  ASSERT_TRUE(Create());
  EXPECT_EQ(Selected(), "v000 /;v001 /Volumes/Mine/;v001 /Volumes/Foreign/;") << "the registry knew none of them";
  EXPECT_EQ(RegistrySummary(), "001 v001 /Volumes/Foreign/;v000 /;v001 /Volumes/Mine/;");
  EXPECT_TRUE(Logged("ERROR: Not backing up volume because not gm. Volume named /Volumes/Empty/"));
  EXPECT_FALSE(fake.Has("/Volumes/Empty/.tqvol"));
  const TqInfoSettings& settings = TqInfoManager::Settings();
  EXPECT_TRUE(settings.onlineHostname == "TestHost.local" && settings.scratchVguid == kRootGuid);
  const std::string text = fake.ReadFile(Data("tqinfo.xml"));
  EXPECT_TRUE(!Create() && fake.ReadFile(Data("tqinfo.xml")) == text);
  EXPECT_TRUE(Logged("ERROR: CreateDefault_tqinfo_xml, file already exists: "));
}

TEST_F(DefaultSettingsTest, RegistryKeepsWhatItKnows) {
  WriteRegistry({{"v00fdddddddddddddddddddddddd", "/Volumes/Away/"}, {kDiskGuid, "/Volumes/OldPlace/"}}, 5);
  ASSERT_TRUE(Create());
  EXPECT_EQ(Selected(), "v000 /;v001 /Volumes/Mine/;v010 /Volumes/Foreign/;");
  EXPECT_EQ(RegistrySummary(), "010 v00f /Volumes/Away/;v001 /Volumes/Mine/;v010 /Volumes/Foreign/;v000 /;");
}

TEST_F(DefaultSettingsTest, DamagedRegistryIsSetAside) {
  fake.Unmount("/Volumes/Foreign");
  fake.WriteFile(Data("tqvolumes.xml"), "<contents><tqvol");
  ASSERT_TRUE(Create());
  EXPECT_EQ(fake.ReadFile(Data("tqvolumes.xml.damaged")), "<contents><tqvol");
  EXPECT_EQ(RegistrySummary(), "001 v000 /;v001 /Volumes/Mine/;");
}

TEST_F(DefaultSettingsTest, OthersThanTheChosenOneAreLeftAlone) {
  TqStringVector only;
  only.Add("/Volumes/Mine/");
  ASSERT_TRUE(Create(only));
  EXPECT_EQ(Selected(), "v001 /Volumes/Mine/;");
  EXPECT_EQ(fake.ReadFile("/Volumes/Foreign/.tqvol/tqvol_id.xml"), IdentityText(kOtherGuid, kOldHost));
  EXPECT_EQ(TqInfoManager::Settings().scratchVguid, kRootGuid) << "the boot volume, though not selected";
}

TEST_F(DefaultSettingsTest, SelectionByMountPointNeedsAttachedVolumesWithIdentity) {
  ASSERT_TRUE(Create());
  const std::string text = fake.ReadFile(Data("tqinfo.xml"));
  TqStringVector mountPoints;
  mountPoints.Add("/Volumes/Mine");
  EXPECT_FALSE(TqInfoManager::SetVolumesSelectedForBackup(nullptr));
  for (const char* unusable : {"/Volumes/Empty", "/Volumes/Nowhere/"}) {
    TqStringVector both(mountPoints);
    both.Add(unusable);
    EXPECT_FALSE(TqInfoManager::SetVolumesSelectedForBackupEX(both)) << unusable;
  }
  EXPECT_EQ(fake.ReadFile(Data("tqinfo.xml")), text);
  EXPECT_TRUE(TqInfoManager::SetVolumesSelectedForBackupEX(mountPoints) && Selected() == "v001 /Volumes/Mine/;");
}
