#include "volumes/volume_identity.h"

#include "tests/volumes/volumes_fixture.h"

class VolumeIdentityTest : public VolumesTest {
 protected:
  /// The error code, empty for success.
  std::string Write(const char* mountPoint, const char* vguid, const char* hguid = kHostGuid) {
    TqString error("not set");
    const bool written = TqFile::WriteVolumeGuidIntoDotTqVolDirOnVolume(mountPoint, vguid, hguid, &error);
    EXPECT_EQ(written, error.IsEmpty());
    return error.c_str();
  }
  /// "<vguid> <host GUID>" as read for the volume.
  std::string Read(const char* mountPoint) {
    TqVolumeInfo volume;
    volume.mountPointPath = mountPoint;
    TqFile::ReadVolumeIdentity(volume);
    return std::string(volume.vguid) + " " + volume.associatedHguid;
  }
  const std::string systemFile = Data("tqvol_system_volume/tqvol_id.xml");
  const std::string diskFile = "/Volumes/Disk/.tqvol/tqvol_id.xml";
  static std::string Told(const std::string& vguid, const char* hguid = kHostGuid) { return vguid + " " + hguid; }
};

TEST_F(VolumeIdentityTest, WritesTheExactFiles) {
  fake.AddVolume("/Volumes/Disk");
  ASSERT_EQ(Write("/Volumes/Disk", kDiskGuid), "");
  EXPECT_EQ(
      fake.ReadFile(diskFile),
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<readme txt=\"WARNING: deleting this file will stop "
      "Kestrune from backing up this drive volume\" />\n<tqvolume vguid=\"v001aaaaaaaaaaaaaaaaaaaaaaaa\" "
      "associated_hguid=\"0123456789abcdef01234567\" />\n</contents>\n");
  EXPECT_EQ(fake.Find("/Volumes/Disk/.tqvol/tqscratch/tqcurrentlargefile")->mode, 0777U);
  ASSERT_EQ(Write("/", kRootGuid), "");
  EXPECT_EQ(Count(fake.ReadFile(systemFile), "backing up the System Volume (/)\" />\n"), 1);
  EXPECT_EQ(
      fake.ReadFile(Data("tqvol_system_volume/README.txt")),
      "WARNING: do not delete this directory or these files.  If you do,\nKestrune will stop backing up the System "
      "Drive Volume (/) and also remove \nany previously backed up files from the Kestrune datacenter.  More\n"
      "information can be found at https://help.kestrune.example/tqvol\n");
}

TEST_F(VolumeIdentityTest, RefusesBeforeAnythingIsMade) {
  fake.AddVolume("/Volumes/Disk");
  EXPECT_EQ(Write(nullptr, nullptr), "ERR_NullMountPointIn");
  EXPECT_EQ(Write("/Volumes/Disk", "v001", nullptr), "ERR_Vguid_wrong_length=4");
  EXPECT_EQ(Write("/Volumes/Disk", kDiskGuid, "0123456789abcdef0123456"), "ERR_AssociatedHguid_wrong_length=23");
  for (const char* nowhere : {"", "/Volumes/Gone"}) {
    EXPECT_EQ(Write(nowhere, kDiskGuid), "could_not_create_hidden_tqvol_top_dir");
  }
  EXPECT_FALSE(fake.Names("/Volumes/Disk").size() > 0 || fake.Has("/Volumes/Gone") || fake.Has("/.tqvol"));
  AddIdentified("/Volumes/Disk", kDiskGuid);
  fake.MakeLink("/Volumes/Thief/.tqvol", "/Volumes/Disk/.tqvol");
  EXPECT_EQ(Write("/Volumes/Thief/", kOtherGuid), "could_not_create_hidden_tqvol_top_dir");
  EXPECT_EQ(Read("/Volumes/Thief/") + Read("/Volumes/Disk/"), " " + Told(kDiskGuid))
      << "a linked folder is no identity";
}

TEST_F(VolumeIdentityTest, ReplacingKeepsTheOldFileUntilTheNewOneIsWhole) {
  AddIdentified("/Volumes/Disk", kDiskGuid);
  fake.WriteFile(diskFile + ".aside17.xml", "left by a process that was killed");
  Fail("rename", ".aside");
  EXPECT_EQ(Write("/Volumes/Disk", kOtherGuid), "could_not_move_aside_prev_tqvol_id_file");
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(9, 50'000));
  fake.fault = nullptr;
  fake.diskBytesLeft = 20;  // the new file is cut short
  EXPECT_EQ(Write("/Volumes/Disk", kOtherGuid), "could_not_write_out_tqvol_id_file");
  EXPECT_EQ(fake.ReadFile(diskFile), IdentityText(kDiskGuid));
  fake.diskBytesLeft = -1;
  EXPECT_EQ(Write("/Volumes/Disk", kOtherGuid), "");
  EXPECT_EQ(fake.Names("/Volumes/Disk/.tqvol"), (std::vector<std::string>{"tqscratch", "tqvol_id.xml", "README.txt"}));
}

TEST_F(VolumeIdentityTest, BadFilesFillWhatIsValidInThem) {
  EXPECT_TRUE(Read("/Volumes/Disk/") == " " && !Logged("WARNING"));
  const std::pair<std::string, std::string> cases[] = {
      {"<contents", "read_tqvol_id_file_but_too_few_bytes=9"},
      {"<t associated=\"\" />", "no_vguid_in_tqvol_id_file"},
      {IdentityText("v001short"), "bad_format_vguid_in_tqvol_id_file_v001short"},
      {IdentityText("v001/../../../../tmp/aaaaaaa"), "bad_format_vguid_in_tqvol_id_file_v001/../../../../tmp/aaaaaaa"},
      {IdentityText(kDiskGuid) + std::string(65'536, ' '), "tqvol_id_file_exists_but_not_readable"},
      {IdentityText(kDiskGuid, "abc"), "bad_format_hguid_in_tqvol_id_file_abc"}};
  for (const auto& [text, note] : cases) {
    fake.WriteFile(diskFile, text);
    Read("/Volumes/Disk/");
    EXPECT_TRUE(Logged("WARNING: TqFile::GetInfoAboutAttachedVolume, " + note + ", fileName=" + diskFile)) << note;
  }
  EXPECT_EQ(Read("/Volumes/Disk/"), Told(kDiskGuid, ""));
  fake.WriteFile("/Volumes/Other/id", IdentityText(kOtherGuid));
  fake.MakeLink(diskFile, "/Volumes/Other/id");
  EXPECT_EQ(Read("/Volumes/Disk/"), " ");
  EXPECT_EQ(CountLogged("tqvol_id_file_exists_but_not_readable"), 2);
}

TEST_F(VolumeIdentityTest, TheSystemVolumesForeignHostIsRepaired) {
  const std::string foreign = IdentityText(kOtherGuid, kOldHost);
  fake.WriteFile(systemFile, foreign);
  EXPECT_EQ(Read("/"), Told(kOtherGuid, kOldHost)) << "no settings yet";
  WriteSettingsFile({{kDiskGuid, "/Volumes/Disk/"}, {kRootGuid, "/"}});
  Fail("rename", "tqvol_id.xml.tmp");
  EXPECT_EQ(Read("/"), Told(kOtherGuid, kOldHost));
  fake.fault = nullptr;
  EXPECT_TRUE(Read("/") == Told(kRootGuid) &&
              fake.ReadFile(systemFile) == IdentityText(kRootGuid));  // the settings' vguid wins

  WriteSettingsFile({{kDiskGuid, "/Volumes/Disk/"}});
  fake.WriteFile(systemFile, IdentityText("v001short", kOldHost));
  Read("/");
  EXPECT_EQ(fake.ReadFile(systemFile), IdentityText("v001short", kOldHost));
  fake.WriteFile(systemFile, foreign);
  EXPECT_EQ(Read("/"), Told(kOtherGuid));
  AddIdentified("/Volumes/Disk", kDiskGuid, kOldHost);  // another volume's host is never changed
  EXPECT_EQ(Read("/Volumes/Disk/"), Told(kDiskGuid, kOldHost));
}

TEST_F(VolumeIdentityTest, NoRepairWhileTheHostGuidIsUnsure) {
  WriteSettingsFile({{kRootGuid, "/"}});
  fake.WriteFile(systemFile, IdentityText(kRootGuid, kOldHost));
  MyHostGuid();  // cached; then the install record changes below the process
  const std::string record = "/Library/Kestrune.tqpkg/tqinstall.xml";
  fake.WriteFile(record, "<c>\n<hguid>eeeeeeeeeeeeeeeeeeeeeeee</hguid>\n</c>\n");
  Read("/");
  EXPECT_TRUE(Logged("changedToTheMoreRecent=eeeeeeeeeeeeeeeeeeeeeeee, so NOT attempting repair."));
  fake.Remove(record);
  TqFile_Internal_Only_GetMyHostGuid(nullptr);
  Read("/");
  EXPECT_EQ(fake.ReadFile(systemFile), IdentityText(kRootGuid, kOldHost));
}

TEST_F(VolumeIdentityTest, TheSystemVolumesIdentityIsClonedOnce) {
  fake.WriteFile("/System/Volumes/Data/.tqvol/tqvol_id.xml", IdentityText(kDiskGuid));
  fake.WriteFile("/System/Volumes/Data/.tqvol/README.txt", "read me");
  EXPECT_TRUE(Read("/") == Told(kDiskGuid) && fake.ReadFile(Data("tqvol_system_volume/README.txt")) == "read me");
  fake.WriteFile("/.tqvol/tqvol_id.xml", IdentityText(kOtherGuid));
  EXPECT_EQ(Read("/"), Told(kDiskGuid));
  fake.Remove(systemFile);
  EXPECT_EQ(Read("/"), Told(kOtherGuid));  // "/.tqvol" comes first
  fake.Remove(kData);
  EXPECT_TRUE(Read("/").starts_with(kOtherGuid) && !fake.Has(kData)) << "looking makes no data folder";
}

TEST_F(VolumeIdentityTest, TheSystemVolumesIdentityIsRebuiltFromTheSettings) {
  TqFile::CloneTqVolFolderOfSystemVolumeIntoDataDir_IfNeeded();
  EXPECT_FALSE(fake.Has(Data("tqvol_system_volume")));
  WriteSettingsFile({{kDiskGuid, "/Volumes/Disk/"}, {kRootGuid, "/"}});
  EXPECT_EQ(Read("/"), Told(kRootGuid));
  EXPECT_NE(fake.ReadFile(systemFile).find("drive volume.\" />\n<tqvolume vguid=\"v000r"), std::string::npos);
  fake.Find(Data("tqinfo.xml"))->openErrno = EACCES;
  TqString contents;
  EXPECT_FALSE(TqFile::GetSimulatedRootVolumeContents_tqvol_id_xml(contents));
  EXPECT_EQ(CountLogged("having trouble reading it iteration="), 11);
}
