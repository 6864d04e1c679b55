#include "base/install_record.h"

#include "tests/platform_fixture.h"

namespace {

constexpr const char* kRecord = "/Library/Kestrune.tqpkg/tqinstall.xml";
constexpr const char* kDefaultData = "/Library/Kestrune.tqpkg/tqdata/";

class InstallRecordTest : public PlatformTest {
 protected:
  void Record(const std::string& content) {
    fake.WriteFile(kRecord, content);
    TqInstall::Forget();
  }
  std::string DataFolderFor(const std::string& content) {
    Record(content);
    return TqInstall::DataFolder().c_str();
  }
};

TEST_F(InstallRecordTest, DataFolderComesFromElementThenAttributeThenDefault) {
  EXPECT_EQ(DataFolderFor("<a>\n<datadir> /Users/Shared/tq </datadir>\n</a>"), "/Users/Shared/tq/");
  EXPECT_EQ(DataFolderFor("<a>\n<datadir>/x/y///</datadir>\n</a>"), "/x/y/");
  EXPECT_EQ(DataFolderFor("<a>\n<c datadir=\"/from/attribute\" />\n</a>"), "/from/attribute/");
  EXPECT_EQ(DataFolderFor("<a>\n<c datadir=\"/attribute\" />\n<datadir>/element</datadir>\n</a>"), "/element/");
  for (const char* unusable : {"", "relative/dir", "/", "///", "  "}) {
    EXPECT_EQ(DataFolderFor(std::string("<a>\n<datadir>") + unusable + "</datadir>\n</a>"), kDefaultData) << unusable;
  }
  fake.Remove(kRecord);
  TqInstall::Forget();
  EXPECT_EQ(TqInstall::DataFolder(), kDefaultData);
}

TEST_F(InstallRecordTest, PlainInstallationFolderWinsWhenItIsADirectoryAndIsCached) {
  fake.WriteFile("/Library/Kestrune", "no folder");
  TqInstall::Forget();
  EXPECT_EQ(TqInstall::InstallFolder(), "/Library/Kestrune.tqpkg/");
  fake.Remove("/Library/Kestrune");
  fake.MakeFolders("/Library/Kestrune");
  EXPECT_EQ(TqInstall::InstallFolder(), "/Library/Kestrune.tqpkg/");
  TqInstall::Forget();
  EXPECT_EQ(TqInstall::InstallFolder(), "/Library/Kestrune/");
  EXPECT_EQ(TqInstall::DataFolder(), "/Library/Kestrune/tqdata/");
}

TEST_F(InstallRecordTest, HostGuidIsLowerCasedAndCountsOnlyWithTwentyFourCharacters) {
  Record("<a>\n<hguid> 0123456789ABCDEF0123ABCD\n</hguid>\n</a>");
  EXPECT_EQ(MyHostGuid(), "0123456789abcdef0123abcd");
  Record("<a>\n<c hguid=\"aaaaaaaaaaaaaaaaaaaaaaaa\" />\n</a>");
  EXPECT_EQ(MyHostGuid(), "aaaaaaaaaaaaaaaaaaaaaaaa");
  Record("<a>\n<hguid>0123456789abcdef0123abc</hguid>\n</a>");
  EXPECT_EQ(MyHostGuid(), "999999999999999999999999");
}

TEST_F(InstallRecordTest, HostGuidFallbackIsCachedUntilTheCacheIsDropped) {
  const char* line =
      "ERROR: TqFile_Internal_Only_GetMyHostGuid - failed to get correct hguid from tqinstall.xml, falling back to "
      "999999999999999999999999\n";
  Record("");
  EXPECT_EQ(MyHostGuid(), "999999999999999999999999");
  fake.WriteFile(kRecord, "<a>\n<hguid>0123456789abcdef0123abcd</hguid>\n</a>");
  EXPECT_EQ(MyHostGuid(), "999999999999999999999999");
  EXPECT_EQ(CountLogged(line), 1);
  TqFile_Internal_Only_GetMyHostGuid(nullptr);
  EXPECT_EQ(MyHostGuid(), "0123456789abcdef0123abcd");
  EXPECT_EQ(CountLogged(line), 1);
}

TEST_F(InstallRecordTest, FoldersAreMadeWithFullModeAndOnlyInsideAnExistingDataFolder) {
  fake.Remove("/Library/Kestrune.tqpkg/tqdata");
  EXPECT_FALSE(TqInstall::CreateSubFolder(TqInstall::ReportsFolder()));
  EXPECT_FALSE(fake.Has(kDefaultData));
  EXPECT_TRUE(TqInstall::CreateDataFolder());
  EXPECT_TRUE(TqInstall::CreateSubFolder(TqInstall::ReportsFolder()));
  EXPECT_EQ(fake.Find("/Library/Kestrune.tqpkg/tqdata")->mode, 0777U);
  EXPECT_EQ(fake.Find("/Library/Kestrune.tqpkg/tqdata/tqreports")->mode, 0777U);
  fake.MakeFolders("/keep").mode = 0700;
  EXPECT_TRUE(TqInstall::MakeFolders("/keep/a/b"));
  EXPECT_EQ(fake.Find("/keep")->mode, 0700U);
  EXPECT_EQ(fake.Find("/keep/a")->mode, 0777U);
  fake.WriteFile("/keep/file", "");
  EXPECT_FALSE(TqInstall::MakeFolders("/keep/file/c/"));
}

}  // namespace
