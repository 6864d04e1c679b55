#include "base/file_info.h"

#include "tests/platform_fixture.h"

class FileInfoTest : public PlatformTest {
 protected:
  /// The listed paths, each followed by a blank.
  std::string Listed(const char* dir, bool withoutMounts = false) {
    const TqString path(dir);
    EXPECT_TRUE(TqFile::GetListOfFileInfosInDir(&path, &list, &error));
    if (withoutMounts) TqFile::RemoveMountedFoldersFromList(list);
    TqString all;
    for (std::int32_t i = 0; i < list.Count(); ++i) AppendAll(all, list.Get(i)->path, " ");
    return all.c_str();
  }
  TqFileInfoList list;
  int error = -1;
};

TEST_F(FileInfoTest, ListsEveryKindInTheSystemsOrder) {
  auto& file = fake.WriteFile("/d/zeta", "12345");
  file.rsrcSize = 7;
  file.modTimeSec = 100;
  file.createTimeSec = 50;
  fake.WriteFile("/extreme", "").modTimeSec = INT64_MAX;
  TqFileInfo extreme;
  EXPECT_TRUE(TqFile::GetInfoAboutFileOrDir("/extreme", extreme) && extreme.modTimeMs == INT64_MAX / 1000 * 1000);
  file.finderFlags = 0xA000;
  file.linkCount = 3;
  fake.MakeLink("/d/link", "/d/folder");
  fake.MakeFolders("/d/folder").finderFlags = 0xA000;
  fake.MakeSpecial("/d/fifo", platform::EntryKind::kFifo).rsrcSize = 9;
  EXPECT_EQ(Listed("/d/"), "/d/zeta /d/link /d/folder /d/fifo ");
  const TqFileInfo& zeta = *list.Get(0);
  EXPECT_TRUE(zeta.TotalSize() == 12 && zeta.modTimeMs == 100'000 && zeta.createTimeMs == 50'000);
  EXPECT_TRUE(zeta.linkCount == 1 && zeta.isAlias && !zeta.isPackage);
  const TqFileInfo& link = *list.Get(1);  // the fake reports no creation time
  EXPECT_TRUE(link.isSpecial && !link.isDir && link.createTimeMs == link.modTimeMs);
  const TqFileInfo& folder = *list.Get(2);
  EXPECT_TRUE(folder.isDir && folder.isPackage && !folder.isSpecial && !folder.isAlias);
  EXPECT_TRUE(list.Get(3)->isSpecial && list.Get(3)->rsrcSize == 0);

  // The next listing uses the records again: nothing may be left of their former entries.
  fake.MakeLink("/other/link", "/d");
  fake.MakeFolders("/other/folder");
  fake.WriteFile("/other/small", "1");
  EXPECT_EQ(Listed("/other"), "/other/link /other/folder /other/small ");
  EXPECT_TRUE(zeta.isSpecial && !zeta.isAlias && zeta.TotalSize() == 2);
  EXPECT_TRUE(link.isDir && !link.isSpecial && link.TotalSize() == 0);
  EXPECT_FALSE(folder.isDir || folder.isPackage);
}

TEST_F(FileInfoTest, PackagesAreFoldersWithTheBundleFlagOrTheSuffixLetters) {
  fake.MakeFolders("/p/flagged").finderFlags = 0x2000;
  const std::pair<const char*, bool> cases[] = {
      {"/p/Mail.app", true}, {"/p/Backup.PKG", true},   {"/p/Snapp", true}, {"/p/Turkey", true},
      {"/p/flagged", true},  {"/p/application", false}, {"/p/pk/g", false}};
  for (const auto& [path, expected] : cases) {
    if (!fake.Has(path)) fake.MakeFolders(path);
    TqFileInfo info;
    EXPECT_TRUE(TqFile::GetInfoAboutFileOrDir(path, info));
    EXPECT_EQ(info.isPackage, expected) << path;
  }
}

TEST_F(FileInfoTest, EntryThatVanishedIsSilentAndOneThatCannotBeQueriedFallsBack) {
  fake.WriteFile("/d/a", "aa");
  fake.WriteFile("/d/b", "bbb").finderFlags = 0x8000;
  Fail("query", "/b", ENOENT);
  EXPECT_TRUE(Listed("/d") == "/d/a " && LogText().empty() && error == 0);
  Fail("query", "/b");
  EXPECT_EQ(Listed("/d"), "/d/a /d/b ");
  EXPECT_TRUE(list.Get(1)->dataSize == 3 && list.Get(1)->isAlias);
  Fail("query lstat", "/b", EACCES);
  EXPECT_TRUE(Listed("/d") == "/d/a " && error == EACCES);
  Fail("query finder", "/b", ENOTDIR);
  EXPECT_EQ(Listed("/d"), "/d/a ");
  EXPECT_TRUE(Logged(" (processId=12345) - fell back to stat file /d/b got errno EACESS on MacOsX-10.15.7\n"));
  EXPECT_TRUE(Logged(" - failed to get  get finder info for file /d/b got errno  errno=20 on MacOsX-10.15.7\n"));
}

TEST_F(FileInfoTest, ADirectoryThatCannotBeOpenedOrReadFailsTheListing) {
  const TqString missing("/nowhere/"), cut("/cut");
  EXPECT_TRUE(!TqFile::GetListOfFileInfosInDir(&missing, &list, &error) && error == ENOENT);
  EXPECT_TRUE(Logged(" opendir failed for dirName=\"/nowhere\", errno 2 (No such file or directory)\n"));
  fake.MakeFolders("/cut");
  EXPECT_TRUE(Listed("/cut").empty() && error == 0);
  for (const char* path : {"/cut/1", "/cut/2"}) fake.WriteFile(path, "");
  fake.Find("/cut")->readErrno = EIO;
  fake.Find("/cut")->readErrnoAfter = 1;
  EXPECT_TRUE(Listed("/cut") == "/cut/1 " && error == EIO);
  EXPECT_TRUE(Logged(" readdir failed for dirName=\"/cut\", errno 5 (Input/output error)\n"));
  fake.Find("/cut")->readErrnoAfter = 0;  // nothing is known of it: no empty directory
  EXPECT_TRUE(!TqFile::GetListOfFileInfosInDir(&cut, &list, &error) && error == EIO && list.Count() == 0);
}

TEST_F(FileInfoTest, PrivacyDenialsAreToldOnceAndNeverPassForEmptyFolders) {
  for (const char* folder : {"/Mail", "/Safari"}) fake.MakeFolders(folder);
  Fail("list", "/Mail", EPERM);
  TqString mail("/Mail");
  EXPECT_FALSE(TqFile::GetListOfFileInfosInDir(&mail, &list));
  EXPECT_FALSE(Logged("Full Disk Access"));  // where nothing of the kind exists, EPERM means something else

  fake.privacyErrno = EPERM;
  EXPECT_FALSE(TqFile::GetListOfFileInfosInDir(&mail, &list));
  EXPECT_TRUE(Logged("look at \"/Mail\": it lacks Full Disk Access"));
  fake.WriteFile("/vault", "");
  Fail("query lstat", "/vault", EPERM);
  TqFileInfo info;
  EXPECT_FALSE(TqFile::GetInfoAboutFileOrDir("/vault", info));
  EXPECT_EQ(CountLogged("Full Disk Access"), 1);
}

TEST_F(FileInfoTest, SingleQueryConsultsTheExclusionMarkOnlyOnItsFallback) {
  auto& file = fake.WriteFile("/f", "abc");
  file.linkCount = 2;
  file.backupExcluded = true;
  TqFileInfo info;
  EXPECT_TRUE(TqFile::GetInfoAboutFileOrDir("/f/", info));
  EXPECT_TRUE(info.path == "/f" && info.linkCount == 2 && !info.backupExcluded);
  EXPECT_FALSE(TqFile::GetInfoAboutFileOrDir("/missing", info) || !LogText().empty());
  Fail("query", "/f", EROFS);
  EXPECT_TRUE(TqFile::GetInfoAboutFileOrDir("/f", info) && info.backupExcluded);
  Fail("query lstat", "/f", ESTALE);
  EXPECT_FALSE(TqFile::GetInfoAboutFileOrDir(&info.path, &info));  // a record may be asked about its own path
  EXPECT_TRUE(info.path.IsEmpty() && !info.backupExcluded);
  EXPECT_TRUE(Logged("ERROR: getattrlist returned the following error errno=116 for file /f\n"));
}

TEST_F(FileInfoTest, MountedFoldersAreTakenOutByATableReadOnce) {
  fake.skippedMounts = {{"/d/share", "//server/x", "smbfs"}, {"/d/proc", "proc", "proc"}};
  for (const char* name : {"/d/a", "/d/share", "/d/proc", "/d/shareX", "/d/SHARE"}) fake.MakeFolders(name);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Listed("/d", true), "/d/a /d/shareX /d/SHARE ");
    fake.skippedMounts.clear();
  }
  EXPECT_EQ(CountLogged("Found mounted path: '/d/share' from: '//server/x' of type: 'smbfs'.\n"), 1);
}

TEST(FileInfoList, GrowsInItsStepsAndAnImpossibleNeedEmptiesIt) {
  TqFileInfoList list;
  std::string capacities;
  for (const std::int64_t need : {1, 5, 6, 55, 3'955, 4'005, 100'005, 200'005}) {
    EXPECT_TRUE(list.Grow(need));
    capacities += std::to_string(list.Capacity()) + " ";
  }
  EXPECT_EQ(capacities, "5 5 55 105 4005 100005 200005 5000005 ");
  EXPECT_TRUE(list.Add() != nullptr && !list.Grow(std::int64_t{1} << 40) && list.Count() == 0);
}
