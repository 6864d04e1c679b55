#include "base/install_record.h"

#include "tests/platform_fixture.h"

class InstallRecordTest : public PlatformTest {
 protected:
  void Record(const std::string& content) {
    fake.WriteFile("/Library/Kestrune.tqpkg/tqinstall.xml", "<contents>\n" + content + "\n</contents>\n");
    TqInstall::Forget();
  }
};

TEST_F(InstallRecordTest, DataFolderComesFromElementThenAttributeThenDefault) {
  const std::pair<const char*, const char*> cases[] = {
      {"<datadir> /Users/Shared/tq/// </datadir>", "/Users/Shared/tq/"},
      {"<c datadir=\"/attribute\" />\n<datadir>/element</datadir>", "/element/"},
      {"<datadir></datadir>", kData},
      {"<datadir>relative/dir</datadir>", kData},
      {"<datadir>///</datadir>", kData},  // "/" must never become the data folder
      {"", kData}};
  for (const auto& [content, expected] : cases) {
    Record(content);
    EXPECT_EQ(TqInstall::DataFolder(), expected) << content;
  }
}

TEST_F(InstallRecordTest, PlainInstallationFolderWinsWhenItIsADirectory) {
  fake.WriteFile("/Library/Kestrune", "no folder");
  EXPECT_EQ(TqInstall::InstallFolder(), "/Library/Kestrune.tqpkg/");
  TqInstall::Forget();
  fake.Find("/Library/Kestrune")->kind = platform::EntryKind::kDirectory;
  EXPECT_EQ(TqInstall::DataFolder(), "/Library/Kestrune/tqdata/");
}

TEST_F(InstallRecordTest, HostGuidCountsOnlyWithTwentyFourCharactersAndIsCachedEvenAsAFallback) {
  Record("<hguid> 0123456789ABCDEF0123ABCD\n</hguid>");
  EXPECT_EQ(MyHostGuid(), "0123456789abcdef0123abcd");
  Record("<hguid>0123456789abcdef0123abc</hguid>");
  EXPECT_EQ(MyHostGuid(), "999999999999999999999999");
  fake.WriteFile("/Library/Kestrune.tqpkg/tqinstall.xml", "<a>\n<hguid>0123456789abcdef0123abcd</hguid>\n</a>");
  EXPECT_EQ(MyHostGuid(), "999999999999999999999999");
  EXPECT_EQ(CountLogged("correct hguid from tqinstall.xml, falling back to 999999999999999999999999\n"), 1);
  TqFile_Internal_Only_GetMyHostGuid(nullptr);
  EXPECT_EQ(MyHostGuid(), "0123456789abcdef0123abcd");
}

TEST_F(InstallRecordTest, FoldersGetFullModeAndSubFoldersNeedADataFolder) {
  fake.Remove("/Library/Kestrune.tqpkg/tqdata");
  EXPECT_FALSE(TqInstall::CreateSubFolder(TqInstall::ReportsFolder()) || fake.Has(kData));
  fake.Find("/Library")->mode = 0700;
  EXPECT_TRUE(TqInstall::CreateDataFolder() && TqInstall::CreateSubFolder(TqInstall::ReportsFolder()));
  EXPECT_EQ(fake.Find("/Library")->mode, 0700U);
  EXPECT_TRUE(fake.Find(kData)->mode == 0777 && fake.Find(Data("tqreports"))->mode == 0777);
}
