#include "base/file_info.h"

#include <cerrno>

#include "tests/platform_fixture.h"

namespace {

using platform::EntryKind;

class FileInfoTest : public PlatformTest {
 protected:
  /// The listed paths below `dir`, one behind the other.
  std::string Listed(const char* dir) {
    const TqString path(dir);
    std::string all;
    EXPECT_TRUE(TqFile::GetListOfFileInfosInDir(&path, &list));
    for (std::int32_t i = 0; i < list.Count(); ++i) all += std::string(list.Get(i)->path.c_str()) + "\n";
    return all;
  }
  /// Fails the given operations on every path that ends in `name`.
  void FailOn(const char* name, const char* operations, int error) {
    fake.fault = [=](std::string_view operation, std::string_view path) {
      return path.ends_with(name) && std::string_view(operations).find(operation) != std::string_view::npos ? error : 0;
    };
  }
  bool IsPackage(const std::string& path) {
    fake.MakeFolders(path);
    TqFileInfo info;
    EXPECT_TRUE(TqFile::GetInfoAboutFileOrDir(path, info));
    return info.isPackage;
  }

  TqFileInfoList list;
};

TEST_F(FileInfoTest, ListsEveryKindInTheSystemsOrder) {
  auto& file = fake.WriteFile("/d/zeta", "12345");
  file.rsrcSize = 7;
  file.modTimeSec = 100;
  file.createTimeSec = 50;
  file.finderFlags = 0x8000;
  file.linkCount = 3;
  fake.MakeLink("/d/link", "/d/folder");
  fake.MakeFolders("/d/folder").finderFlags = 0x8000;
  fake.MakeSpecial("/d/fifo", EntryKind::kFifo).rsrcSize = 9;
  fake.MakeSpecial("/d/socket", EntryKind::kSocket);
  EXPECT_EQ(Listed("/d/"), "/d/zeta\n/d/link\n/d/folder\n/d/fifo\n/d/socket\n");
  const TqFileInfo& zeta = *list.Get(0);
  EXPECT_EQ(zeta.dataSize, 5);
  EXPECT_EQ(zeta.rsrcSize, 7);
  EXPECT_EQ(zeta.TotalSize(), 12);
  EXPECT_EQ(zeta.modTimeMs, 100'000);
  EXPECT_EQ(zeta.createTimeMs, 50'000);
  EXPECT_TRUE(zeta.isAlias);
  EXPECT_EQ(zeta.linkCount, 1U);
  const TqFileInfo& link = *list.Get(1);
  EXPECT_TRUE(link.isSpecial);
  EXPECT_FALSE(link.isDir);
  EXPECT_EQ(link.createTimeMs, link.modTimeMs);  // the fake reports no creation time
  EXPECT_TRUE(list.Get(2)->isDir);
  EXPECT_FALSE(list.Get(2)->isAlias);
  EXPECT_FALSE(list.Get(2)->isSpecial);
  EXPECT_EQ(list.Get(2)->dataSize, 0);
  EXPECT_TRUE(list.Get(3)->isSpecial);
  EXPECT_EQ(list.Get(3)->rsrcSize, 0);
  EXPECT_TRUE(list.Get(4)->isSpecial);
}

TEST_F(FileInfoTest, RootStaysASlashAndRecycledRecordsForgetTheirFormerEntry) {
  fake.MakeFolders("/only.app");
  EXPECT_NE(Listed("/").find("/only.app\n"), std::string::npos);
  fake.WriteFile("/d/x", "").finderFlags = 0x2000;
  EXPECT_EQ(Listed("/d"), "/d/x\n");
  EXPECT_FALSE(list.Get(0)->isDir);
  EXPECT_FALSE(list.Get(0)->isPackage);
  fake.MakeFolders("/empty");
  EXPECT_EQ(Listed("/empty"), "");
}

TEST_F(FileInfoTest, PackagesAreFoldersWithTheBundleFlagOrTheSuffixLetters) {
  EXPECT_TRUE(IsPackage("/p/Mail.app"));
  EXPECT_TRUE(IsPackage("/p/Backup.PKG"));
  EXPECT_TRUE(IsPackage("/p/Snapp"));
  EXPECT_TRUE(IsPackage("/p/Turkey"));
  EXPECT_TRUE(IsPackage("/p/x.PREFpane"));
  EXPECT_FALSE(IsPackage("/p/application"));
  EXPECT_FALSE(IsPackage("/p/pk/g"));
  fake.MakeFolders("/p/flagged").finderFlags = 0x2000;
  EXPECT_TRUE(IsPackage("/p/flagged"));
  fake.WriteFile("/p/file.app", "").finderFlags = 0x2000;
  TqFileInfo info;
  EXPECT_TRUE(TqFile::GetInfoAboutFileOrDir("/p/file.app", info));
  EXPECT_FALSE(info.isPackage);
}

TEST_F(FileInfoTest, EntryThatVanishedIsSilentAndOneThatCannotBeQueriedFallsBack) {
  fake.WriteFile("/d/a", "aa");
  auto& b = fake.WriteFile("/d/b", "bbb");
  b.createTimeSec = 1;
  b.finderFlags = 0x8000;
  fake.WriteFile("/d/c", "c");
  FailOn("/b", "query", ENOENT);
  EXPECT_EQ(Listed("/d"), "/d/a\n/d/c\n");
  EXPECT_EQ(LogText(), "");
  FailOn("/b", "query", EIO);
  EXPECT_EQ(Listed("/d"), "/d/a\n/d/b\n/d/c\n");
  EXPECT_EQ(list.Get(1)->dataSize, 3);
  EXPECT_TRUE(list.Get(1)->isAlias);
  EXPECT_EQ(list.Get(1)->createTimeMs, list.Get(1)->modTimeMs);
  FailOn("/b", "query lstat", EACCES);
  EXPECT_EQ(Listed("/d"), "/d/a\n/d/c\n");
  EXPECT_TRUE(
      Logged("ERROR: GetListOfFileInfosInDir (processId=12345) - fell back to stat file /d/b got errno EACESS on "
             "MacOsX-10.15.7\n"));
  FailOn("/b", "query finder", ENOTDIR);
  EXPECT_EQ(Listed("/d"), "/d/a\n/d/c\n");
  EXPECT_TRUE(
      Logged("ERROR: GetListOfFilesInDir (processId=12345) - failed to get  get finder info for file /d/b got "
             "errno  errno=20 on MacOsX-10.15.7\n"));
}

TEST_F(FileInfoTest, OnlyADirectoryThatCannotBeOpenedFailsTheListing) {
  const TqString missing("/nowhere/");
  EXPECT_FALSE(TqFile::GetListOfFileInfosInDir(&missing, &list));
  EXPECT_TRUE(
      Logged("WARNING: GetListOfFilesInfosInDir - opendir failed for dirName=\"/nowhere\", errno 2 (No such file "
             "or directory)\n"));
  EXPECT_FALSE(TqFile::GetListOfFileInfosInDir(nullptr, &list));
  EXPECT_FALSE(TqFile::GetListOfFileInfosInDir(&missing, nullptr));
  auto& folder = fake.MakeFolders("/cut");
  fake.WriteFile("/cut/1", "");
  fake.WriteFile("/cut/2", "");
  const TqString cut("/cut");
  bool cutShort = true;
  EXPECT_TRUE(TqFile::GetListOfFileInfosInDir(&cut, &list, &cutShort));
  EXPECT_FALSE(cutShort);
  folder.readErrno = EIO;
  folder.readErrnoAfter = 1;
  EXPECT_TRUE(TqFile::GetListOfFileInfosInDir(&cut, &list, &cutShort));
  EXPECT_TRUE(cutShort);
  EXPECT_EQ(list.Count(), 1);
  EXPECT_TRUE(
      Logged("WARNING: GetListOfFileInfosInDir - readdir failed for dirName=\"/cut\", errno 5 (Input/output "
             "error)\n"));
}

TEST_F(FileInfoTest, SingleQueryFillsLinkCountAndConsultsTheExclusionMarkOnlyOnItsFallback) {
  auto& file = fake.WriteFile("/f", "abc");
  file.linkCount = 2;
  file.backupExcluded = true;
  TqFileInfo info;
  const TqString path("/f/");
  EXPECT_TRUE(TqFile::GetInfoAboutFileOrDir(&path, &info));
  EXPECT_EQ(info.path, "/f");
  EXPECT_EQ(info.linkCount, 2U);
  EXPECT_FALSE(info.backupExcluded);
  FailOn("/f", "query", EROFS);
  EXPECT_TRUE(TqFile::GetInfoAboutFileOrDir(info.path, info));
  EXPECT_TRUE(info.backupExcluded);
  EXPECT_EQ(info.dataSize, 3);
  EXPECT_TRUE(
      Logged("ERROR: getattrlist returned the following error the volume is read-only but must be modified in "
             "order to return this attribute for file /f\n"));
  FailOn("/f", "query lstat", ESTALE);
  EXPECT_FALSE(TqFile::GetInfoAboutFileOrDir("/f", info));
  EXPECT_TRUE(info.path.IsEmpty());
  EXPECT_EQ(info.dataSize, 0);
  EXPECT_TRUE(Logged("ERROR: getattrlist returned the following error errno=116 for file /f\n"));
  EXPECT_TRUE(Logged("ERROR: GetInfoAboutFileOrDir, fell back to stat file /f got errno  errno=116 on "));
  fake.fault = nullptr;
  const std::string before = LogText();
  EXPECT_FALSE(TqFile::GetInfoAboutFileOrDir("/missing", info));
  EXPECT_FALSE(TqFile::GetInfoAboutFileOrDir("", info));
  EXPECT_FALSE(TqFile::GetInfoAboutFileOrDir(nullptr, &info));
  EXPECT_EQ(LogText(), before);
}

TEST_F(FileInfoTest, ExistenceSeesDanglingLinksAndFoldersAreNeverReachedThroughThem) {
  fake.MakeFolders("/real");
  fake.MakeLink("/toReal", "/real");
  fake.MakeLink("/dangling", "/gone");
  EXPECT_TRUE(TqFile::Exists("/dangling"));
  EXPECT_FALSE(TqFile::Exists("/gone"));
  EXPECT_TRUE(TqFile::IsDirectory("/real/"));
  EXPECT_FALSE(TqFile::IsDirectory("/toReal"));
  EXPECT_FALSE(TqFile::IsDirectory("/toReal/"));
}

TEST(FileInfoList, GrowsInItsStepsAndOnlyUsedSlotsHoldRecords) {
  TqFileInfoList list;
  std::string capacities;
  for (const std::int64_t need : {1, 5, 6, 55, 3'955, 4'005, 100'005, 200'005}) {
    EXPECT_TRUE(list.Grow(need));
    capacities += std::to_string(list.Capacity()) + " ";
  }
  EXPECT_EQ(capacities, "5 5 55 105 4005 100005 200005 5000005 ");
  ASSERT_NE(list.Add(), nullptr);
  EXPECT_EQ(list.Count(), 1);
  EXPECT_FALSE(list.Grow(std::int64_t{1} << 40));
  EXPECT_EQ(list.Count(), 0);
  EXPECT_EQ(list.Capacity(), 5'000'005);
}

TEST_F(FileInfoTest, MountedFoldersAreTakenOutByATableReadOnce) {
  fake.skippedMounts = {{"/d/share", "//server/x", "smbfs"}, {"/d/proc", "proc", "proc"}};
  for (const char* name : {"/d/a", "/d/share", "/d/proc", "/d/shareX", "/d/SHARE"}) fake.MakeFolders(name);
  Listed("/d");
  TqFile::RemoveMountedFoldersFromList(list);
  ASSERT_EQ(list.Count(), 3);
  EXPECT_EQ(list.Get(0)->path, "/d/a");
  EXPECT_EQ(list.Get(1)->path, "/d/shareX");
  EXPECT_EQ(list.Get(2)->path, "/d/SHARE");
  TqFileInfo* reused = list.Add();
  EXPECT_TRUE(reused->path.IsEmpty());
  EXPECT_FALSE(reused->isDir);
  fake.skippedMounts.clear();
  Listed("/d");
  TqFile::RemoveMountedFoldersFromList(list);
  EXPECT_EQ(list.Count(), 3);
  EXPECT_EQ(CountLogged("Updating the list of currently network mounted file systems\n"), 1);
  EXPECT_EQ(CountLogged("Found mounted path: '/d/share' from: '//server/x' of type: 'smbfs'.\n"), 1);
  EXPECT_EQ(CountLogged("WARNING: skipping mounted folder: /d/proc\n"), 2);
}

}  // namespace
