#include "scan/file_stats.h"

#include <utility>

#include "tests/scan/scan_fixture.h"

namespace {

class FileStatsTest : public ScanTest {
 protected:
  void SetUp() override {
    Select({}, "<myidentity online_hostname=\"Anna &amp; Bo\" tqlogin=\"anna\" />\n"
               "<filesetdef filesetname=\"Docs\" extensions=\"TXT, wma\" />\n"
               "<filesetdef filesetname=\"pictures\" extensions=\"jpg\" />\n"
               "<filesetdef filesetname=\"music\" extensions=\"wma,mp3\" />\n"
               "<filesetdef filesetname=\"zips\" extensions=\" sit \" />\n"
               "<filesetdef filesetname=\"email\" extensions=\"\" />\n"
               "<filesetdef filesetname=\"usercustom01\" extensions=\"xyz\" />\n");
    ParseTqInfoForFileSetHashes(tables);
  }
  /// The list of settings' names with the category each path falls into.
  std::string NameOfCategory(const char* path) {
    const int category = tables.CategoryOf(path);
    return category == kOtherCategory ? "other" : Text(CategoryAt(category).setName);
  }

  TqCategoryTables tables;
  TqCategoryTotals totals;
};

TEST_F(FileStatsTest, SortsByTheExtensionOfTheLastComponent) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a/Letter.TXT", "docs"}, {"/a/song.wma", "docs"},   {"/a/song.mp3", "music"},  {"/a/x.tar.jpg", "pictures"},
      {"/a/README", "other"},    {"/a/notes.", "other"},    {"/photos.jpg/file", "other"}, {"/a/.jpg", "pictures"},
      {"/a/x.xyz", "other"},     {"/a/x.sit", "other"},     {"/a.jpg\\b", "other"},    {"/a/x.\xC3\x84", "other"}};
  for (const auto& [path, name] : cases) EXPECT_EQ(NameOfCategory(path), name) << path;
}

TEST_F(FileStatsTest, ResourceForksCountAsOtherBytesWhateverTheCategory) {
  AddFileToCategoryTotals(tables, totals, "/p/cat.jpg", 10, 5);
  AddFileToCategoryTotals(tables, totals, "/p/README", 100, 7);
  WriteFileStatsOut(Data("tqfilelists/filestats.xml.future"), false, totals);
  const std::string text = fake.ReadFile(Data("tqfilelists/filestats.xml.future"));
  for (const char* piece : {" pictnum=\"1\" picttotbytes=\"10\"", " othernum=\"1\" othertotbytes=\"112\"",
                            " everythingnum=\"2\" everythingtotbytes=\"122\"", " docsnum=\"0\" docstotbytes=\"0\""}) {
    EXPECT_NE(text.find(piece), std::string::npos) << piece << " in " << text;
  }

  TqCategoryTotals read;
  ASSERT_TRUE(ReadFileStats(Data("tqfilelists/filestats.xml.future"), read));
  EXPECT_EQ(read.num, totals.num);
  EXPECT_EQ(read.totbytes, totals.totbytes);
  EXPECT_FALSE(ReadFileStats(Data("tqfilelists/missing.xml"), read));
  EXPECT_FALSE(Logged("Leaving WriteFileStatsXmlOut"));
}

TEST_F(FileStatsTest, WritesTheFinalFileInItsStatedForm) {
  // Host GUID digits at even positions 00 68 e5 cf 8b 01, least significant byte first: 2023-11-14.
  fake.WriteFile("/Library/Kestrune.tqpkg/tqinstall.xml",
                 "\n<contents>\n<datadir>/Library/Kestrune.tqpkg/tqdata</datadir>\n"
                 "<hguid>0x0x6x8xex5xcxfx8xbx0x1x</hguid>\n</contents>\n");
  TqFile_Internal_Only_GetMyHostGuid(nullptr);
  WriteFileStatsOut(Data("tqfilelists/filestats.xml"), true, totals);

  std::string info =
      "<info datetime=\"20231114221320\" aonlinename=\"Anna &amp; Bo\" plat=\"mac\" osdetail=\"MacOsX-10.15\" "
      "hguid=\"0x0x6x8xex5xcxfx8xbx0x1x\" ahguid=\"0x0x6x8xex5xcxfx8xbx0x1x\" ahguidcreated=\"20231114\"";
  for (const char* name : {"docs", "spreadsheets", "presentations", "financial", "pict", "music", "video", "email",
                           "zips", "browserfavorites", "other", "everything"}) {
    info += std::string(" ") + name + "num=\"0\" " + name + "totbytes=\"0\"";
  }
  info += " />";
  EXPECT_EQ(fake.ReadFile(Data("tqfilelists/filestats.xml")),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<filestats>\n<progress good_for_installer=\"true\" "
            "totally_final=\"true\" />\n" +
                info + "\n</filestats>\n");
  EXPECT_TRUE(Logged("Leaving WriteFileStatsXmlOut to final file, stats: " + info));

  EXPECT_EQ(Text(HostGuidCreationDate("0x0x6x8xex5xcxfx8xbx0x1")), "bad_date");
  EXPECT_EQ(Text(HostGuidCreationDate("gx0x6x8xex5xcxfx8xbx0x1x")), "bad_date");
  EXPECT_EQ(Text(HostGuidCreationDate("000000000000000000000000")), "bad_date") << "1970";
}

TEST_F(FileStatsTest, KeepsTheOldFileWhenTheNewOneCannotBeMoved) {
  fake.WriteFile(Data("tqfilelists/filestats.xml"), "old");
  fake.fault = [](std::string_view operation, std::string_view) { return operation == "rename" ? EACCES : 0; };
  WriteFileStatsOut(Data("tqfilelists/filestats.xml"), true, totals);
  EXPECT_EQ(fake.sleepsMicros, std::vector<std::int64_t>(9, 500'000));
  EXPECT_EQ(fake.ReadFile(Data("tqfilelists/filestats.xml")), "old");
  EXPECT_EQ(CountLogged("ERROR: WriteFileStatsOut, could not AtomicMove file: " + Data("tqfilelists/filestats.xml")), 1);
}

TEST_F(FileStatsTest, CutsLongAccountNamesTo29) {
  for (const auto& [length, kept] : {std::pair{30, 30}, {31, 29}}) {
    Select({}, "<myidentity online_hostname=\"" + std::string(static_cast<std::size_t>(length), 'n') + "\" />\n");
    WriteFileStatsOut(Data("tqfilelists/f.future"), false, totals);
    const std::string name = " aonlinename=\"" + std::string(static_cast<std::size_t>(kept), 'n') + "\"";
    EXPECT_NE(fake.ReadFile(Data("tqfilelists/f.future")).find(name), std::string::npos) << length;
  }
}

}  // namespace
