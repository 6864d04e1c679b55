#include "volumes/volume_identity.h"

#include <cerrno>

#include "base/install_record.h"
#include "tests/volumes/volumes_fixture.h"

namespace {

constexpr const char* kOldHost = "ffffffffffffffffffffffff";

class VolumeIdentityTest : public VolumesTest {
 protected:
  VolumeIdentityTest() { systemFile = Data("tqvol_system_volume/tqvol_id.xml"); }

  bool Write(const char* mountPoint, const char* vguid, const char* hguid = kHostGuid) {
    return TqFile::WriteVolumeGuidIntoDotTqVolDirOnVolume(mountPoint, vguid, hguid, &error);
  }
  /// "<vguid> <host GUID>" as read for the volume.
  std::string Read(const char* mountPoint) {
    TqVolumeInfo volume;
    volume.mountPointPath = mountPoint;
    TqFile::ReadVolumeIdentity(volume);
    return std::string(volume.vguid) + " " + volume.associatedHguid;
  }
  void Fail(const char* operationName, const char* part) {
    fake.fault = [=](std::string_view operation, std::string_view path) {
      return operation == operationName && path.find(part) != std::string_view::npos ? EIO : 0;
    };
  }
  bool FailsAt(const char* part, const char* code) {
    Fail("mkdir", part);
    return !Write("/Volumes/Disk/", kDiskGuid) && error == code;
  }
  std::string systemFile;
  TqString error;
};

TEST_F(VolumeIdentityTest, WritesTheExactFiles) {
  fake.AddVolume("/Volumes/Disk");
  ASSERT_TRUE(Write("/Volumes/Disk/", kDiskGuid)) << error.c_str();
  EXPECT_EQ(
      fake.ReadFile("/Volumes/Disk/.tqvol/tqvol_id.xml"),
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<readme txt=\"WARNING: deleting this file will stop "
      "Kestrune from backing up this drive volume\" />\n<tqvolume vguid=\"v001aaaaaaaaaaaaaaaaaaaaaaaa\" "
      "associated_hguid=\"0123456789abcdef01234567\" />\n</contents>\n");
  EXPECT_EQ(
      fake.ReadFile("/Volumes/Disk/.tqvol/README.txt"),
      "WARNING: do not delete this directory or these files.  If you do,\nKestrune will stop backing up this drive "
      "volume and also remove \nany previously backed up files from the Kestrune datacenter.  More\ninformation can "
      "be found at https://help.kestrune.example/tqvol\n");
  EXPECT_EQ(fake.Find("/Volumes/Disk/.tqvol/tqscratch/tqcurrentlargefile")->mode, 0777U);
  ASSERT_TRUE(Write("/", kRootGuid));
  EXPECT_NE(fake.ReadFile(systemFile).find("backing up the System Volume (/)\" />\n"), std::string::npos);
  EXPECT_NE(fake.ReadFile(Data("tqvol_system_volume/README.txt")).find("the System Drive Volume (/) and also"),
            std::string::npos);
  EXPECT_EQ(fake.Names(Data("tqvol_system_volume")).size(), 2U);
}

TEST_F(VolumeIdentityTest, WrongArgumentsAreToldBeforeAnythingIsMade) {
  fake.AddVolume("/Volumes/Disk");
  const struct {
    const char *mountPoint, *vguid, *hguid, *code;
  } cases[] = {{nullptr, nullptr, nullptr, "ERR_NullMountPointIn"},
               {"/Volumes/Disk", nullptr, nullptr, "ERR_NullVguid"},
               {"/Volumes/Disk", "v001", nullptr, "ERR_Vguid_wrong_length=4"},
               {"/Volumes/Disk", kDiskGuid, nullptr, "ERR_NullAssociatedHguid"},
               {"/Volumes/Disk", kDiskGuid, "0123456789abcdef0123456", "ERR_AssociatedHguid_wrong_length=23"},
               {"", kDiskGuid, kHostGuid, "could_not_create_hidden_tqvol_top_dir"},
               {"/Volumes/Gone", kDiskGuid, kHostGuid, "could_not_create_hidden_tqvol_top_dir"}};
  for (const auto& c : cases) {
    EXPECT_FALSE(Write(c.mountPoint, c.vguid, c.hguid));
    EXPECT_STREQ(error.c_str(), c.code);
  }
  EXPECT_TRUE(fake.Names("/Volumes/Disk").empty());
  EXPECT_FALSE(fake.Has("/Volumes/Gone"));
  EXPECT_FALSE(fake.Has("/.tqvol"));
  EXPECT_TRUE(FailsAt("/.tqvol", "could_not_create_hidden_tqvol_top_dir"));
  EXPECT_TRUE(FailsAt("/tqscratch", "could_not_create_hidden_tqscratch_dir"));
  EXPECT_TRUE(FailsAt("/tqcurrentlargefile", "could_not_create_hidden_tqcurrentlargefile_dir"));
}

TEST_F(VolumeIdentityTest, ReplacingKeepsTheOldFileUntilTheNewOneIsWhole) {
  AddIdentified("/Volumes/Disk", kDiskGuid);
  const std::string file = "/Volumes/Disk/.tqvol/tqvol_id.xml";
  const std::string old = fake.ReadFile(file);
  Fail("rename", ".aside");
  EXPECT_FALSE(Write("/Volumes/Disk", kOtherGuid));
  EXPECT_STREQ(error.c_str(), "could_not_move_aside_prev_tqvol_id_file");
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(9, 50'000));
  EXPECT_EQ(fake.ReadFile(file), old);
  fake.fault = nullptr;
  fake.diskBytesLeft = 20;  // the new file is cut short
  EXPECT_FALSE(Write("/Volumes/Disk", kOtherGuid));
  EXPECT_STREQ(error.c_str(), "could_not_write_out_tqvol_id_file");
  EXPECT_EQ(fake.ReadFile(file), old);
  fake.diskBytesLeft = -1;
  EXPECT_TRUE(Write("/Volumes/Disk", kOtherGuid));
  EXPECT_EQ(Read("/Volumes/Disk/"), std::string(kOtherGuid) + " " + kHostGuid);
  EXPECT_EQ(fake.Names("/Volumes/Disk/.tqvol"), (std::vector<std::string>{"tqscratch", "tqvol_id.xml", "README.txt"}));
}

TEST_F(VolumeIdentityTest, ALinkedFolderIsNoIdentity) {
  AddIdentified("/Volumes/Disk", kDiskGuid);
  fake.AddVolume("/Volumes/Thief");
  fake.MakeLink("/Volumes/Thief/.tqvol", "/Volumes/Disk/.tqvol");
  EXPECT_EQ(Read("/Volumes/Thief/"), " ");
  EXPECT_FALSE(Write("/Volumes/Thief/", kOtherGuid));
  EXPECT_STREQ(error.c_str(), "could_not_create_hidden_tqvol_top_dir");
  EXPECT_EQ(Read("/Volumes/Disk/"), std::string(kDiskGuid) + " " + kHostGuid);
}

TEST_F(VolumeIdentityTest, BadFilesFillWhatIsValidInThem) {
  fake.AddVolume("/Volumes/Disk");
  const std::string file = "/Volumes/Disk/.tqvol/tqvol_id.xml";
  EXPECT_EQ(Read("/Volumes/Disk/"), " ");
  EXPECT_FALSE(Logged("WARNING"));
  const struct {
    std::string text, identity, note;
  } cases[] = {
      {"<contents", " ", "read_tqvol_id_file_but_too_few_bytes=9"},
      {"<t associated_hguid=\"" + std::string(kOldHost) + "\" />", std::string(" ") + kOldHost,
       "no_vguid_in_tqvol_id_file"},
      {"<t vguid=\"" + std::string(kDiskGuid) + "\" />", kDiskGuid + std::string(" "),
       "no_associated_hguid_in_tqvol_id_file"},
      {IdentityText("v001short"), std::string(" ") + kHostGuid, "bad_format_vguid_in_tqvol_id_file_v001short"},
      {IdentityText(kDiskGuid, "abc"), kDiskGuid + std::string(" "), "bad_format_hguid_in_tqvol_id_file_abc"},
  };
  for (const auto& c : cases) {
    fake.WriteFile(file, c.text);
    EXPECT_EQ(Read("/Volumes/Disk/"), c.identity) << c.text;
    EXPECT_TRUE(Logged("WARNING: TqFile::GetInfoAboutAttachedVolume, " + c.note + ", fileName=" + file + "\n"))
        << c.note;
  }
  fake.Find(file)->openErrno = EACCES;
  EXPECT_EQ(Read("/Volumes/Disk/"), " ");
  EXPECT_TRUE(Logged("tqvol_id_file_exists_but_not_readable"));
}

TEST_F(VolumeIdentityTest, TheSystemVolumesForeignHostIsRepaired) {
  fake.WriteFile(systemFile, IdentityText(kOtherGuid, kOldHost));
  EXPECT_EQ(Read("/"), std::string(kOtherGuid) + " " + kOldHost);  // no settings: left as it was
  EXPECT_EQ(fake.ReadFile(systemFile), IdentityText(kOtherGuid, kOldHost));
  WriteSettingsFile({{kDiskGuid, "/Volumes/Disk/"}, {kRootGuid, "/"}});
  Fail("rename", "tqvol_id.xml.tmp");
  EXPECT_EQ(Read("/"), std::string(kOtherGuid) + " " + kOldHost);
  EXPECT_EQ(fake.ReadFile(systemFile), IdentityText(kOtherGuid, kOldHost));
  fake.fault = nullptr;
  EXPECT_EQ(Read("/"), std::string(kRootGuid) + " " + kHostGuid);  // the settings' vguid wins
  EXPECT_EQ(fake.ReadFile(systemFile), IdentityText(kRootGuid));
  EXPECT_TRUE(
      Logged("on the SystemBootVolume myHguid=0123456789abcdef01234567, which doesn't match "
             "assocHguid=ffffffffffffffffffffffff, so attempting repair."));

  WriteSettingsFile({{kDiskGuid, "/Volumes/Disk/"}});
  fake.WriteFile(systemFile, IdentityText("v001short", kOldHost));
  Read("/");
  EXPECT_EQ(fake.ReadFile(systemFile), IdentityText("v001short", kOldHost));
  EXPECT_TRUE(Logged("fallback vguid from tqvol_id.xml is wrong length, vguid=v001short"));
  fake.WriteFile(systemFile, IdentityText(kOtherGuid, kOldHost));
  EXPECT_EQ(Read("/"), std::string(kOtherGuid) + " " + kHostGuid);

  AddIdentified("/Volumes/Disk", kDiskGuid, kOldHost);  // another volume's host is never changed
  EXPECT_EQ(Read("/Volumes/Disk/"), std::string(kDiskGuid) + " " + kOldHost);
}

TEST_F(VolumeIdentityTest, NoRepairWhileTheHostGuidIsUnsure) {
  WriteSettingsFile({{kRootGuid, "/"}});
  fake.WriteFile(systemFile, IdentityText(kRootGuid, kOldHost));
  MyHostGuid();  // cached; then the install record changes below the process
  const std::string record = "/Library/Kestrune.tqpkg/tqinstall.xml";
  fake.WriteFile(record, "<contents>\n<hguid>eeeeeeeeeeeeeeeeeeeeeeee</hguid>\n</contents>\n");
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
  EXPECT_EQ(Read("/"), std::string(kDiskGuid) + " " + kHostGuid);
  EXPECT_EQ(fake.ReadFile(systemFile), IdentityText(kDiskGuid));
  EXPECT_EQ(fake.ReadFile(Data("tqvol_system_volume/README.txt")), "read me");
  fake.WriteFile("/.tqvol/tqvol_id.xml", IdentityText(kOtherGuid));
  const std::string before = LogText();
  TqFile::CloneTqVolFolderOfSystemVolumeIntoDataDir_IfNeeded();
  EXPECT_EQ(LogText(), before);
  EXPECT_EQ(fake.ReadFile(systemFile), IdentityText(kDiskGuid));
  fake.Remove(systemFile);
  EXPECT_EQ(Read("/"), std::string(kOtherGuid) + " " + kHostGuid);  // "/.tqvol" comes first
}

TEST_F(VolumeIdentityTest, TheSystemVolumesIdentityIsRebuiltFromTheSettings) {
  TqFile::CloneTqVolFolderOfSystemVolumeIntoDataDir_IfNeeded();
  EXPECT_TRUE(Logged("), bailing because no srcFolder Exists to copy from srcFolder="));
  EXPECT_FALSE(fake.Has(Data("tqvol_system_volume")));
  EXPECT_TRUE(Logged(", which is normal in the installer, but bad any other time."));
  WriteSettingsFile({{kDiskGuid, "/Volumes/Disk/"}, {kRootGuid, "/"}});
  EXPECT_EQ(Read("/"), std::string(kRootGuid) + " " + kHostGuid);
  EXPECT_NE(fake.ReadFile(systemFile).find("backing up this drive volume.\" />\n<tqvolume vguid=\"v000r"),
            std::string::npos);
  WriteSettingsFile({{"x000rrrrrrrrrrrrrrrrrrrrrrrr", "/"}, {kDiskGuid, "/Volumes/Disk/"}});
  TqString contents("old");
  EXPECT_FALSE(TqFile::GetSimulatedRootVolumeContents_tqvol_id_xml(contents));
  EXPECT_TRUE(contents.IsEmpty());
  fake.Find(Data("tqinfo.xml"))->openErrno = EACCES;
  EXPECT_FALSE(TqFile::GetSimulatedRootVolumeContents_tqvol_id_xml(contents));
  EXPECT_EQ(CountLogged("having trouble reading it iteration="), 11);
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(19, 200'000));
}

}  // namespace
