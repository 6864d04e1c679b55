#include "scan/explain_command.h"

#include <cerrno>

#include "selection/explain_report.h"
#include "selection/rule_engine.h"
#include "tests/scan/scan_fixture.h"

namespace {

class ExplainTest : public ScanTest {
 protected:
  ExplainTest() {
    fake.MakeFolders("/tmp");
    AttachSystemVolume();
    Attach("/Volumes/Photos", kDataGuid);
    Select({{"/", kSystemGuid}, {"/Volumes/Photos/", kDataGuid}},
           "<myidentity online_hostname=\"Bobs Mac\" tqlogin=\"bob@kestrune.example\" />\n"
           "<globalexcludes excludefiletypes=\"iso\" />\n"
           "<do_backup max_filesize_mb=\"20000\"><tqdirfilter dir=\"/\" whichfiles=\"all\" /></do_backup>\n");
    fake.WriteFile(kSystemList, "# Dir: /Users/bob\n");
    fake.WriteFile(kPhotoList, "# Dir: /Volumes/Photos\n");
  }
  ~ExplainTest() override {
    TqInfoManager::FreeRules(TqInfoManager::tqExcludeFilenameRules, &TqInfoManager::num_tqExcludeFilenameRules);
  }
  /// A file on disk and its line in the system volume's list.
  FakePlatform::Node& Plant(const std::string& path, std::int64_t listedSize = 1) {
    Append(kSystemList, Line(path, listedSize));
    return fake.WriteFile(path, "x");
  }
  static std::string Line(const std::string& path, std::int64_t size) {
    return "f\t0000018c2d7a5c78\t" + std::to_string(size) + "\t" + path + "\n";
  }
  void Append(const std::string& path, const std::string& text) {
    fake.WriteFile(path, (fake.Has(path) ? fake.ReadFile(path) : "") + text);
  }
  /// The diagnosis; the report's text is in `report`.
  std::string Explain(const char* file) {
    fake.Remove(kReport);
    TqString diagnosis;
    isWritten = TqExplainFile(file, TqString(kReport), diagnosis);
    report = fake.ReadFile(kReport);
    return diagnosis.c_str();
  }
  void ExpectReported(std::initializer_list<std::string> texts) {
    std::size_t at = 0;  // in this order
    for (const std::string& text : texts) {
      const std::size_t found = report.find(text, at);
      EXPECT_NE(found, std::string::npos) << text << "\nin:\n" << report.substr(at);
      if (found != std::string::npos) at = found + text.size();
    }
  }

  static constexpr const char* kReport = "/tmp/report.txt";
  const std::string kSystemList = Data("tqfilelists/v000aaaaaaaaaaaaaaaaaaaaaaaa_root_filelist.dat");
  const std::string kPhotoList = Data("tqfilelists/v001bbbbbbbbbbbbbbbbbbbbbbbb_phot_filelist.dat");
  std::string report;
  bool isWritten = false;
};

TEST_F(ExplainTest, NobodyKnowsTheFile) {
  Plant("/Users/bob/Thesis.txt");
  EXPECT_EQ(Explain("thesis"), "no_matching_file_found_in_completefilelist");
  ExpectReported(
      {"Kestrune Explanation for file: thesis\n  Report was generated at datetime: 20231114221320, in GMT: "
       "20231114221320\n  Version tqfilelist: ",
       "\n\nInstallation Information\n  OperatingSystem: MacOsX-10.15.7\n  InstallDir: /Library/Kestrune.tqpkg/\n  "
       "DataDir: " +
           Text(kData) + "\n  hGuid: " + kHostGuid + " (created: ",
       ")\n  MyEmailAddr: bob@kestrune.example\n  ComputerName: Bobs Mac\n  drives: "
       "/___abstr=Selected_1__Remaining_unknown, "
       "/Volumes/Photos/___abstr=Selected_1__Remaining_unknown\n  BackupSummary: YesBackedUp_con,",
       "___abstr=no_1_s0_v",
       "\n  BackupStage: steady_state\n  GOOD: no completefilelist.dat exists at: ", " - perVol 0 filelist.dat has: ",
       " bytes, fname: " + kSystemList + " (2 lines)\n\n - perVol 1 filelist.dat has: 23 bytes",
       "(1 lines)\n\n-----end_pervol_info----------------------------------------\nFound NO MATCHING FILES in the per "
       "vol "
       "filelists for: thesis\nThere are several possible explanations:\n  1. User mis-typed the filename, check "
       "closely.  "
       "Uppercase/Lowercase matters!\n     Filename: thesis\n  2. ",
       "     read.\n\nTry reading: https://help.kestrune.example/tqvol\n\nNot an absolute path, so cannot get on-disk "
       "local "
       "FileInfo for file.\n\n\nPRIMARY_DIAGNOSIS: no_matching_file_found_in_completefilelist\n"});
  fake.WriteFile("/Users/bob/new.txt", "12345");
  fake.WriteFile(Data("tqfilelists/completefilelist.dat"), "");
  fake.Remove(kPhotoList);
  EXPECT_EQ(Explain("/Users/bob/new.txt"), "no_matching_file_found_in_completefilelist");
  ExpectReported(
      {"  BackupStage: initial_backup\n  ERROR_BAD: completefilelist.dat still exists at: ",
       "ERROR: TqUiUtil::GetVecOf_SelForBackup_PerVol failed\n",
       "\nIs absolute path, so on-disk local FileInfo for: /Users/bob/new.txt\n  fileSizeInBytes: 5\n  "
       "rsrcForkInBytes: 0\n  lastModifiedTime (GMT): 20231114221320\n  my_current_login_has_rights_to_read_file: "
       "true, detail=open_succeeded\n  tqserv_login_has_rights_to_read_file: false, detail=unknown_login\n"});
}

TEST_F(ExplainTest, EveryClassOfLine) {
  fake.WriteFile("/Users/bob/odd\\", "1");
  Append(kSystemList, "# Dir: /needle\nf\tneedle\nf\t0000018c2d7a5c78needle\nf\t0000018c2d7a5c78\t1needle\tx\n");
  Append(kSystemList,
         "s\t0000018c2d7a5c78\t6\t/needle link\n" + Line("/gone needle", 7) + Line("/Users/bob/odd_-backslash-_", 1));
  fake.Find(kSystemList)->content += "f\t0000018c2d7a5c78\t1\tneedle_-backslash-_";  // cut short
  EXPECT_EQ(Explain("needle"), "no_matching_file_found_in_completefilelist");
  ExpectReported({"  - line 2 - comment_line - # Dir: /needle\n", "  - line 3 - line_too_short - f\tneedle\n",
                  "  - line 4 - not_useful - f\t0000018c2d7a5c78needle\n",
                  "  - line 5 - not_useful - f\t0000018c2d7a5c78\t1needle\tx\n",
                  "  - line 6 - not_a_file_line - s\t0000018c2d7a5c78\t6\t/needle link\n",
                  "  - line 7 - file_does_not_exist - /gone needle\n"});
  EXPECT_EQ(Explain("/odd"), "not_found_in_tq_done") << "a backslash is listed in another form";
  ExpectReported({"  - line 8 - file_found - LessThan10Mb - IntentIsToBackup - /Users/bob/odd_-backslash-_\n"});
}

TEST_F(ExplainTest, SizeClassesAndGigabytes) {
  const auto text = [](std::int64_t listed, std::int64_t onDisk) {
    return std::string(TqInfoManager::SizeClassText(listed, onDisk).View());
  };
  constexpr std::int64_t kMiB = 1'048'576;
  EXPECT_EQ(text(10 * kMiB - 1, 0) + text(10 * kMiB, 0) + text(30 * kMiB, 0),
            "LessThan10Mb - LessThan30Mb - LessThan1Gb - ");
  EXPECT_EQ(text(1000 * kMiB - 1, 9000 * kMiB), "LessThan1Gb - ") << "small files are not compared";
  EXPECT_EQ(text(1000 * kMiB, 1000 * kMiB), "LessThan4_Gb - ");
  EXPECT_EQ(text(1000 * kMiB, 1001 * kMiB), "LessThan4_Gb - 1 Gbytes in perVolFileList, onDisk=2 Gbytes - ");
  EXPECT_EQ(text(9000 * kMiB, 0), "LargerThan9Gb - 9 Gbytes in in perVolFileList, onDisk=0 Gbytes - ");
  Plant("/Users/bob/film.mov", 5000 * kMiB).fakeSize = 6000 * kMiB;
  Explain("film.mov");
  ExpectReported(
      {"file_found - LessThan9_Gb - 5 Gbytes in perVolFileList, onDisk=6 Gbytes - IntentIsToBackup - "
       "/Users/bob/film.mov\n"});
}

TEST_F(ExplainTest, LeftOutOnPurpose) {
  Plant("/Users/bob/disk.iso");
  EXPECT_EQ(Explain("disk.iso"), "file_purposely_not_scheduled_for_backup");
  ExpectReported(
      {"file_found - LessThan10Mb - NOT_intended_for_Backup - /Users/bob/disk.iso\n",
       "Found Zero matches in the per vol filelists that are intended for backup, see tqinfo.xml:\n"
       "-------------------tqinfo.xml start--------------------------\n<?xml ",
       "</tqinfo>\n-------------------tqinfo.xml end----------------------------\nFound this one matching file in "
       "the per vol filelists:\n  /Users/bob/disk.iso\nbut Kestrune will not try to back this file up.  This is on "
       "purpose.\n  1. The file(s) might be in an excluded directory.\n",
       "  5. Other...\n\n\n\nPRIMARY_DIAGNOSIS: file_purposely_not_scheduled_for_backup\n"});
  Plant("/Users/bob/other disk.iso");
  EXPECT_EQ(Explain("disk.iso"), "ambiguous_query_2_files_in_completefilelist_all_purposely_not_sched_for_backup");
  ExpectReported(
      {"Found several matching files in the per vol filelists:\n  /Users/bob/disk.iso\n  /Users/bob/other "
       "disk.iso\nbut "
       "Kestrune will not try to back any of these up.  This is on purpose.\n"});
  int opened = 0;
  int limit = 1000;  // the settings vanish between their last look-up and the report
  fake.fault = [&](std::string_view operation, std::string_view path) {
    return operation == "open" && path == Data("tqinfo.xml") && ++opened > limit ? ENOENT : 0;
  };
  Explain("disk.iso");
  limit = opened - 1;
  opened = 0;
  EXPECT_EQ(Explain("disk.iso"), "file_purposely_not_scheduled_for_backup_tqinfo_missing");
  ExpectReported({"Could not read in tqinfo.xml from this location: " + Data("tqinfo.xml") + "\n"});
}

TEST_F(ExplainTest, SeveralAndTooMany) {
  Plant("/Users/bob/a.txt");
  Plant("/Users/bob/b.txt");
  Plant("/Users/bob/a.iso");
  EXPECT_EQ(Explain("/bob/"), "ambiguous_query_2_different_files_match_in_completefilelist");
  ExpectReported(
      {"MORE THAN ONE FILE MATCHED that Kestrune will attempt to back up, refine\nyour search to one of these files to "
       "get much more detailed information.\nFound 2 different likely files in the per vol filelists that all "
       "match:\n  /Users/bob/a.txt\n  /Users/bob/b.txt\n\n\nPRIMARY_DIAGNOSIS: "});
  std::string many;
  for (int i = 0; i < 500; ++i) many += Line("/gone common", i);
  Append(kSystemList, many);
  Append(kPhotoList, many);
  EXPECT_EQ(Explain("common"), "no_matching_file_found_in_completefilelist") << "1000 hits over both lists";
  Append(kPhotoList, "# common\n");
  EXPECT_EQ(Explain("common"), "ambiguous_query_THOUSANDS_OF_different_files_match_in_completefilelist");
  ExpectReported(
      {"  - line 501 - file_does_not_exist - /gone common\nERROR: filename is too common in the "
       "perVolumeFileLists\n\n\n"
       "PRIMARY_DIAGNOSIS: ambiguous_query_THOUSANDS"});
}

TEST_F(ExplainTest, PipelineBehindTheLists) {
  Plant("/Users/bob/a.txt");
  EXPECT_EQ(Explain("a.txt"), "not_found_in_tq_done");
  ExpectReported(
      {"BEST_CASE - Found 1 matching file in the per vol filelists intended for backup:\n  /Users/bob/a.txt\nFileInfo "
       "for "
       "file: /Users/bob/a.txt\n  fileSizeInBytes: 1\n",
       "  ERROR: could not read " + Data("tqbackup/tqfileids.dat\n"),
       "  No references to our file found in tqfileids.dat\nNo PerVOLUME tq_todo_ file found on system.\nNo tq_done_ "
       "files found on system.\nFound no tqtransmit log files at all\n\n\nPRIMARY_DIAGNOSIS: not_found_in_tq_done\n"});

  const std::string ids = Data("tqbackup/tqfileids.dat"), stage = Data("tqdatacenter/"),
                    logs = Data("tqlogs/tqtransmit/");
  fake.WriteFile(ids, "id7\t/Users/bob/a.txt\nid8\t/else\n");
  fake.WriteFile(stage + "tq_todo_" + kSystemGuid + ".dat", "/Users/bob/a.txt\n");
  fake.WriteFile(stage + "tq_todo_" + kDataGuid + ".dat", "/Users/bob/a.txt\n");
  fake.WriteFile(stage + "tq_done_20071228_0.dat", "id8\n");
  fake.WriteFile(logs + "1.log", "sent /else\n");
  fake.WriteFile(logs + "0.zip", "/Users/bob/a.txt");
  EXPECT_EQ(Explain("a.txt"), "not_found_in_tq_done");
  ExpectReported(
      {"  GOOD_TQFILEID - Found 1 matching reference to our file in tqfileids.dat:\n  id7\t/Users/bob/a.txt\n  "
       "INTERESTING: "
       "Found these 1 refs to our fileID of id7 in 2nd grep of tqfileids.dat:\n",
       "Examining PerVOLUME tq_todo_ file found on system:\n  " + stage + "tq_todo_" + kSystemGuid +
           ".dat\n  Found these references to our file found in tq_todo_:\n  /Users/bob/a.txt\nOne tq_done_ file found "
           "on "
           "system:\n  " +
           stage +
           "tq_done_20071228_0.dat\n  - no references to the tqfileid id7 were found in tq_done_ "
           "files\nLooking through 2 tqtransmit log files for mentions of this file\n  - not searched, compressed: "
           "0.zip\n  - no references to the file were found\n"});

  for (int i = 0; i < 30; ++i) Append(ids, "id7\t/Users/bob/a.txt\t" + std::to_string(i) + "\n");
  fake.WriteFile(stage + "tq_todo_" + kSystemGuid + ".dat", "/else\n");
  fake.WriteFile(stage + "tq_done_20080101_0.dat", "x id7\n");
  fake.WriteFile(logs + "1.log", "sent /Users/bob/a.txt\n");
  EXPECT_EQ(Explain("a.txt"), "healthy_and_found_in_tq_done");
  ExpectReported({"  WARNING: Small file but found these 31 references to our file in tqfileids.dat:\n",
                  "\t23\n  ... more matches not "
                  "shown ...\n",
                  "  No references to our file found in tq_todo_\nSeveral (2) tq_done_ files found on system:\n",
                  "Found these references in tq_done_ files to to tqfileid: id7\n  x id7\n",
                  "  sent /Users/bob/a.txt\n\n\n"});
  Plant("/Users/bob/large", 31'457'280);
  Append(ids, "\t/Users/bob/large\n\t/Users/bob/large\n");
  EXPECT_EQ(Explain("bob/large"), "not_found_in_tq_done");
  ExpectReported({"  LARGE_FILE: found these 2 references to our large file in tqfileids.dat:\n",
                  "  ERROR: No ref to our fileId of  found in 2nd TqGrep of tqfileids.dat\n"});
}

TEST_F(ExplainTest, WhatCannotBeReadOrWritten) {
  Plant("/Users/bob/a.txt");
  fake.Find(kSystemList)->readErrno = EIO;
  EXPECT_EQ(Explain("a.txt"), "completefilelist_does_not_grep");
  ExpectReported(
      {"ERROR: could not TqGrepFile per_vol_filelist.dat, errStr=ERROR: read failed with errno=5, on file: " +
       kSystemList + "\n\n\nPRIMARY_DIAGNOSIS: completefilelist_does_not_grep\n"});
  fake.Find(kSystemList)->readErrno = 0;
  int appends = 0;
  fake.fault = [&](std::string_view operation, std::string_view path) {
    return operation == "write" && path == kReport && ++appends > 2 ? ENOSPC : 0;
  };
  EXPECT_EQ(Explain("a.txt"), "could_not_append_to_output_file");
  EXPECT_FALSE(isWritten);
  EXPECT_EQ(appends, 3) << "nothing is written behind a failed block";
  fake.fault = nullptr;
  fake.Remove(Data("tqinfo.xml"));
  EXPECT_EQ(Explain("a.txt"), "could_not_parse_tqinfo_for_files_to_watch");
  EXPECT_TRUE(isWritten && report.ends_with("\n\nPRIMARY_DIAGNOSIS: could_not_parse_tqinfo_for_files_to_watch\n"));
  ExpectReported({"ERROR: TqExplainFile - TqInfoManager::LoadAllExcludeFilenameRulesProperly returned false\n"});
}

}  // namespace
