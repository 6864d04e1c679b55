#include "scan/file_stats.h"

#include "tests/scan/scan_fixture.h"

class FileStatsTest : public ScanTest {
 protected:
  void SetUp() override {
    Select({},
           "<myidentity online_hostname=\"&amp;23456789.123456789.123456789CU\" />\n"
           "<filesetdef filesetname=\"Docs\" extensions=\"TXT, wma\" />\n"
           "<filesetdef filesetname=\"pictures\" extensions=\"jpg\" />\n"
           "<filesetdef filesetname=\"music\" extensions=\"wma,mp3\" />\n"
           "<filesetdef filesetname=\"zips\" extensions=\" sit \" />\n"
           "<filesetdef filesetname=\"usercustom01\" extensions=\"xyz\" />\n");
    ParseTqInfoForFileSetHashes(tables);
  }

  TqCategoryTables tables;
  TqCategoryTotals totals;
  const std::string path = Data("tqfilelists/filestats.xml");
};

TEST_F(FileStatsTest, SortsByTheExtensionOfTheLastComponent) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a/Letter.TXT", "docs"}, {"/a/song.wma", "docs"}, {"/a/song.mp3", "music"}, {"/a/x.tar.jpg", "pictures"},
      {"/a/.jpg", "pictures"},   {"/a/README", ""},       {"/a/notes.", ""},        {"/photos.jpg/file", ""},
      {"/a/x.xyz", ""},          {"/a/x.sit", ""},        {"/a.jpg\\b", ""},        {"/a/x.\xC3\x84", ""}};
  for (const auto& [file, name] : cases) EXPECT_EQ(CategoryAt(tables.CategoryOf(file)).setName, name) << file;
  tables.Add(2, "\xC3\x84");  // just asked about
  EXPECT_EQ(tables.CategoryOf("/a/x.\xC3\x84"), 2);
}

TEST_F(FileStatsTest, ResourceForksCountAsOtherBytesWhateverTheCategory) {
  AddFileToCategoryTotals(tables, totals, "/p/cat.jpg", 10, 5);
  AddFileToCategoryTotals(tables, totals, "/p/README", 100, 7);
  WriteFileStatsOut(path + ".future", false, totals);
  for (const char* piece : {" pictnum=\"1\" picttotbytes=\"10\"", " othernum=\"1\" othertotbytes=\"112\"",
                            " everythingnum=\"2\" everythingtotbytes=\"122\"", " docsnum=\"0\" docstotbytes=\"0\""}) {
    EXPECT_EQ(Count(fake.ReadFile(path + ".future"), piece), 1) << piece;
  }
  TqCategoryTotals read;
  ASSERT_TRUE(ReadFileStats(path + ".future", read));
  EXPECT_TRUE(read.num == totals.num && read.totbytes == totals.totbytes);
  EXPECT_FALSE(ReadFileStats("/missing.xml", read));
}

TEST_F(FileStatsTest, WritesTheFinalFileInItsStatedForm) {
  // Digits at even positions 00 68 e5 cf 8b 01, least significant byte first: 2023-11-14.
  const std::pair<const char*, const char*> guids[] = {{"0x0x6x8xex5xcxfx8xbx0x1x", "20231114"},
                                                       {"0x0x6x8xex5xcxfx8xbx0x1", "bad_date"},
                                                       {"gx0x6x8xex5xcxfx8xbx0x1x", "bad_date"},
                                                       {"000000000000000000000000", "bad_date"}};
  for (const auto& [hguid, date] : guids) EXPECT_EQ(HostGuidCreationDate(hguid), date) << hguid;
  std::string figures;
  for (const std::string name : {"docs", "spreadsheets", "presentations", "financial", "pict", "music", "video",
                                 "email", "zips", "browserfavorites", "other", "everything"}) {
    figures += " " + name + "num=\"0\" " + name + "totbytes=\"0\"";
  }
  WriteFileStatsOut(path, true, totals);
  const std::string text = fake.ReadFile(path);
  EXPECT_EQ(Count(text, "<progress good_for_installer=\"true\" totally_final=\"true\" />\n<info datetime=\"20231114"),
            1);
  EXPECT_EQ(Count(text, " aonlinename=\"&amp;23456789.123456789.123456789\" plat=\"mac\""), 1);
  EXPECT_TRUE(text.ends_with("\" ahguidcreated=\"bad_date\"" + figures + " />\n</filestats>\n")) << text;
}

TEST_F(FileStatsTest, KeepsTheOldFileWhenTheNewOneCannotBeMoved) {
  fake.WriteFile(path, "old");
  Fail("rename", "");
  WriteFileStatsOut(path, true, totals);
  EXPECT_TRUE(fake.sleepsMicros == std::vector<std::int64_t>(9, 500'000) && fake.ReadFile(path) == "old");
}
