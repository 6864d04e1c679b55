#include "scan/explain_command.h"

#include "selection/explain_report.h"
#include "tests/scan/scan_fixture.h"

class ExplainTest : public ScanTest {
 protected:
  ExplainTest() {
    fake.MakeFolders("/tmp");
    AttachSystemVolume();
    AddIdentified("/Volumes/Photos", kDiskGuid);
    Select({{kRootGuid, "/"}, {kDiskGuid, "/Volumes/Photos/"}},
           "<globalexcludes excludefiletypes=\"iso\" />\n"
           "<do_backup max_filesize_mb=\"20000\"><tqdirfilter dir=\"/\" whichfiles=\"all\" /></do_backup>\n");
    fake.WriteFile(kSystemList, "# Dir: /Users/bob\n");
    fake.WriteFile(kPhotoList, "# Dir: /Volumes/Photos\n");
  }
  /// A file on disk and its line in the system volume's list.
  void Plant(const std::string& path, std::int64_t listedSize = 1) {
    Append(kSystemList, Line(path, listedSize));
    fake.WriteFile(path, "x");
  }
  static std::string Line(const std::string& path, std::int64_t size) {
    return "f\t0000018c2d7a5c78\t" + std::to_string(size) + "\t" + path + "\n";
  }
  void Append(const std::string& path, const std::string& text) { fake.WriteFile(path, fake.ReadFile(path) + text); }
  /// Explains `file`: the diagnosis, and texts in the report in this order.
  void Expect(const char* file, std::string_view expected, std::initializer_list<std::string> texts = {}) {
    fake.Remove(kReport);
    TqString diagnosis;
    isWritten = TqExplainFile(file, TqString(kReport), diagnosis);
    EXPECT_EQ(diagnosis.View(), expected);
    const std::string report = fake.ReadFile(kReport);
    std::size_t at = 0;
    for (const std::string& text : texts) {
      at = report.find(text, at);
      ASSERT_NE(at, std::string::npos) << text << "\nin:\n" << report;
    }
  }

  static constexpr const char* kReport = "/tmp/report.txt";
  const std::string kSystemList = Data("tqfilelists/v000rrrrrrrrrrrrrrrrrrrrrrrr_root_filelist.dat");
  const std::string kPhotoList = Data("tqfilelists/v001aaaaaaaaaaaaaaaaaaaaaaaa_phot_filelist.dat");
  bool isWritten = false;
};

TEST_F(ExplainTest, NobodyKnowsTheFile) {
  Plant("/Users/bob/Thesis.txt");
  Expect("thesis", "no_matching_file_found_in_completefilelist",
         {"\n  BackupStage: steady_state\n  GOOD: no completefilelist.dat exists at: ",
          " bytes, fname: " + kSystemList + " (2 lines)\n\n - perVol 1 filelist.dat has: 23 bytes",
          "\n\nNot an absolute path, so cannot get on-disk local FileInfo for file.\n\n\nPRIMARY_DIAGNOSIS: no_"});
  fake.WriteFile("/Users/bob/new.txt", "12345");
  fake.WriteFile(Data("tqfilelists/completefilelist.dat"), "");
  fake.Remove(kPhotoList);
  Expect("/Users/bob/new.txt", "no_matching_file_found_in_completefilelist",
         {"  BackupStage: initial_backup\n  ERROR_BAD: completefilelist.dat still exists at: ",
          "ERROR: TqUiUtil::GetVecOf_SelForBackup_PerVol failed\n", "\n  fileSizeInBytes: 5\n  rsrcForkInBytes: 0\n",
          ": true, detail=open_succeeded\n", ": false, detail=unknown_login\n"});
}

TEST_F(ExplainTest, EveryClassOfLine) {
  fake.WriteFile("/Users/bob/odd\\", "1");
  Append(kSystemList, "# Dir: /needle\nf\tneedle\nf\t0000018c2d7a5c78needle\nf\t0000018c2d7a5c78\t1needle\tx\n");
  Append(kSystemList, "s\t0000018c2d7a5c78\t6\t/needle link\n" + Line("/gone needle", 7));
  Append(kSystemList, Line("/Users/bob/odd_-backslash-_", 1) + "f\t0000018c2d7a5c78\t1\tneedle_-backslash-_");
  Expect("needle", "no_matching_file_found_in_completefilelist",
         {"  - line 2 - comment_line - # Dir: /needle\n", "  - line 3 - line_too_short - f\tneedle\n",
          "  - line 4 - not_useful - f\t0000018c2d7a5c78needle\n",
          "  - line 5 - not_useful - f\t0000018c2d7a5c78\t1needle\tx\n",
          "  - line 6 - not_a_file_line - s\t0000018c2d7a5c78\t6\t/needle link\n",
          "  - line 7 - file_does_not_exist - /gone needle\n"});
  Expect("/odd", "not_found_in_tq_done",
         {"  - line 8 - file_found - LessThan10Mb - IntentIsToBackup - /Users/bob/odd_-backslash-_\n",
          "\nFileInfo for file: /Users/bob/odd\\\n  fileSizeInBytes: 1\n"});
  // As it is called on disk the lists do not know it; its neighbour without the backslash is another file.
  fake.WriteFile("/Users/bob/odd", "12345");
  Expect("/Users/bob/odd\\", "no_matching_file_found_in_completefilelist",
         {"local FileInfo for: /Users/bob/odd\\\n  fileSizeInBytes: 1\n"});
}

TEST_F(ExplainTest, SizeClassesAndGigabytes) {
  constexpr std::int64_t kMiB = 1'048'576;
  const std::tuple<std::int64_t, std::int64_t, const char*> cases[] = {
      {10 * kMiB - 1, 0, "LessThan10Mb - "},
      {10 * kMiB, 0, "LessThan30Mb - "},
      {30 * kMiB, 0, "LessThan1Gb - "},
      {1000 * kMiB - 1, 9000 * kMiB, "LessThan1Gb - "},
      {1000 * kMiB, 1000 * kMiB, "LessThan4_Gb - "},
      {1000 * kMiB, 1001 * kMiB, "LessThan4_Gb - 1 Gbytes in perVolFileList, onDisk=2 Gbytes - "},
      {5000 * kMiB, 6000 * kMiB, "LessThan9_Gb - 5 Gbytes in perVolFileList, onDisk=6 Gbytes - "},
      {9000 * kMiB, 0, "LargerThan9Gb - 9 Gbytes in in perVolFileList, onDisk=0 Gbytes - "}};
  for (const auto& [listed, onDisk, text] : cases) EXPECT_EQ(TqInfoManager::SizeClassText(listed, onDisk), text);
}

TEST_F(ExplainTest, LeftOutOnPurpose) {
  Plant("/Users/bob/disk.iso");
  int opened = 0;
  int limit = 1000;  // the settings vanish between their last look-up and the report
  fake.fault = [&](std::string_view operation, std::string_view path) {
    return operation == "open" && path == Data("tqinfo.xml") && ++opened > limit ? ENOENT : 0;
  };
  Expect("disk.iso", "file_purposely_not_scheduled_for_backup",
         {"file_found - LessThan10Mb - NOT_intended_for_Backup - /Users/bob/disk.iso\n", "xml start----", "\n<tqinfo>",
          "xml end----", "Found this one matching file in the per vol filelists:\n  /Users/bob/disk.iso\n"});
  limit = opened - 1;
  opened = 0;
  Expect("disk.iso", "file_purposely_not_scheduled_for_backup_tqinfo_missing");
  fake.fault = nullptr;
  Plant("/Users/bob/other disk.iso");
  Expect("disk.iso", "ambiguous_query_2_files_in_completefilelist_all_purposely_not_sched_for_backup",
         {"per vol filelists:\n  /Users/bob/disk.iso\n  /Users/bob/other disk.iso\nbut Kestrune will not try"});
}

TEST_F(ExplainTest, SeveralAndTooMany) {
  for (const char* path : {"/Users/bob/a.txt", "/Users/bob/b.txt", "/Users/bob/a.iso"}) Plant(path);
  Expect("/bob/", "ambiguous_query_2_different_files_match_in_completefilelist",
         {"that all match:\n  /Users/bob/a.txt\n  /Users/bob/b.txt\n\n\nPRIMARY_DIAGNOSIS: "});
  std::string many;
  for (int i = 0; i < 500; ++i) many += Line("/gone common", i);
  Append(kSystemList, many);
  Append(kPhotoList, many);
  Expect("common", "no_matching_file_found_in_completefilelist");  // 1000 hits over both lists
  Append(kPhotoList, "# common\n");
  Expect("common", "ambiguous_query_THOUSANDS_OF_different_files_match_in_completefilelist",
         {"  - line 501 - file_does_not_exist - /gone common\nERROR: filename is too common in the "});
}

TEST_F(ExplainTest, PipelineBehindTheLists) {
  const std::string ids = Data("tqbackup/tqfileids.dat"), stage = Data("tqdatacenter/tq_"),
                    logs = Data("tqlogs/tqtransmit/"), todo = stage + "todo_" + kRootGuid + ".dat";
  Plant("/Users/bob/a.txt");
  Expect(
      "a.txt", "not_found_in_tq_done",
      {"  ERROR: could not read " + ids, "\nNo PerVOLUME tq_todo_ ", "No tq_done_ files", "Found no tqtransmit log"});
  const std::pair<std::string, const char*> files[] = {{ids, "id7\t/Users/bob/a.txt\nid8\t/else\n"},
                                                       {todo, "/Users/bob/a.txt\n"},
                                                       {stage + "done_20071228_0.dat", "id8\n"},
                                                       {logs + "1.log", "sent /else\n"},
                                                       {logs + "0.zip", "/Users/bob/a.txt"}};
  for (const auto& [path, content] : files) fake.WriteFile(path, content);
  Expect("a.txt", "not_found_in_tq_done",
         {"refs to our fileID of id7 in 2nd grep", todo + "\n  Found these references ", "\n  /Users/bob/a.txt\nOne ",
          "  - no references to the tqfileid id7 were found in tq_done_ files\nLooking through 2 tqtransmit log files",
          "\n  - not searched, compressed: 0.zip\n  - no references to the file were found\n"});
  for (int i = 0; i < 30; ++i) Append(ids, "id7\t/Users/bob/a.txt\t" + std::to_string(i) + "\n");
  fake.WriteFile(stage + "done_20080101_0.dat", "x id7\n");
  fake.WriteFile(logs + "1.log", "sent /Users/bob/a.txt\n");
  Expect(
      "a.txt", "healthy_and_found_in_tq_done",
      {"  WARNING: Small file but found these 31 ref", "\t23\n  ... more matches not shown ...\n", "\nSeveral (2) tq_",
       "Found these references in tq_done_ files to to tqfileid: id7\n  x id7\n", "  sent /Users/bob/a.txt\n\n\n"});
  Plant("/Users/bob/large", 31'457'280);
  Append(ids, "\t/Users/bob/large\n\t/Users/bob/large\n");
  Expect("bob/large", "not_found_in_tq_done", {"  LARGE_FILE: found these 2 ref", "  ERROR: No ref to our fileId"});
}

TEST_F(ExplainTest, WhatCannotBeReadOrWritten) {
  Plant("/Users/bob/a.txt");
  fake.Find(kSystemList)->readErrno = EIO;
  Expect("a.txt", "completefilelist_does_not_grep", {"ERROR: could not TqGrepFile per_vol_filelist.dat, errStr=ERROR"});
  fake.Find(kSystemList)->readErrno = 0;
  int appends = 0;
  fake.fault = [&](std::string_view operation, std::string_view path) {
    return operation == "write" && path == kReport && ++appends > 2 ? ENOSPC : 0;
  };
  Expect("a.txt", "could_not_append_to_output_file");
  EXPECT_TRUE(!isWritten && appends == 3) << "nothing is written behind a failed block";
  fake.fault = nullptr;
  fake.Remove(Data("tqinfo.xml"));
  Expect("a.txt", "could_not_parse_tqinfo_for_files_to_watch",
         {"ERROR: TqExplainFile - TqInfoManager::LoadAll", "\n\nPRIMARY_DIAGNOSIS: could_not_parse_tqinfo_for_"});
  EXPECT_TRUE(isWritten);
}
