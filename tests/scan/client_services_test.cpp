#include "scan/client_services.h"

#include <cerrno>

#include "tests/scan/scan_fixture.h"

class ClientServicesTest : public ScanTest {
 protected:
  std::string Report(const char* name) { return fake.ReadFile(Data("tqreports/") + name); }
};

TEST_F(ClientServicesTest, FirstLinesDecide) {
  EXPECT_FALSE(TqClientVersionManager::IsEndOfLife());
  EXPECT_EQ(ServiceLoginName(), "tqunknown");
  TqString retention;
  EXPECT_FALSE(TqUiUtil::TqRollback_GetMostCurrentFinalizedHistoryUxeString(retention));
  fake.WriteFile(Data("tqreports/tqclient_end_of_life.txt"), Joined(" ", TqVersionString(), "\r\n").c_str());
  fake.WriteFile(Data("tqreports/tqserv_runs_as.txt"), "bob \nroot\n");
  fake.WriteFile(Data("tqreports/tqrollback_current_uxe.txt"), " \nuxe_rb365d\n");
  EXPECT_TRUE(TqClientVersionManager::IsEndOfLife());
  EXPECT_EQ(ServiceLoginName(), "bob");
  EXPECT_FALSE(TqUiUtil::TqRollback_GetMostCurrentFinalizedHistoryUxeString(retention)) << "an empty first line";
  fake.WriteFile(Data("tqreports/tqrollback_current_uxe.txt"), "uxe_rb365d \n");
  EXPECT_TRUE(TqUiUtil::TqRollback_GetMostCurrentFinalizedHistoryUxeString(retention));
  EXPECT_EQ(retention, "uxe_rb365d");
  fake.WriteFile(Data("tqreports/tqclient_end_of_life.txt"), Joined(TqVersionString(), "1").c_str());
  EXPECT_FALSE(TqClientVersionManager::IsEndOfLife());
}

TEST_F(ClientServicesTest, InstalledPrograms) {
  CreateInstalledProgramsReport();
  EXPECT_EQ(Report("tqstat_progs.txt"), "no_none");
  fake.MakeFolders("/Applications/Safari.app");
  fake.MakeFolders("/System/Applications/Mail.app");
  CreateInstalledProgramsReport();
  EXPECT_EQ(Report("tqstat_progs.txt"), "yes_ms");
  EXPECT_EQ(CountLogged("Successfully wrote out install report"), 2);
}

TEST_F(ClientServicesTest, InstalledProgramsReportIsTriedAndGivenUp) {
  const std::string temporary = Data("tqreports/tqstat_progs.txt.tmp");
  std::string failing = "open";
  int failures = 0;
  fake.fault = [&](std::string_view operation, std::string_view path) {
    const bool fails = operation == failing && path.starts_with(temporary);
    failures += fails ? 1 : 0;
    return fails ? EIO : 0;
  };
  CreateInstalledProgramsReport();
  EXPECT_EQ(failures, 6);
  EXPECT_TRUE(Logged("ERROR: CreateInstalledProgramsReport - could not write out tmpFileName=" + temporary));
  failing = "rename";
  failures = 0;
  CreateInstalledProgramsReport();
  EXPECT_EQ(failures, 12);
  EXPECT_TRUE(Logged("ERROR: CreateInstalledProgramsReport - could not AtomicSwapIn tmpFileName=" + temporary));
}

TEST_F(ClientServicesTest, ServicePermissions) {
  AttachSystemVolume();
  Attach("/Volumes/Drive", kDataGuid);
  Attach("/Volumes/Gone", kOtherGuid);
  fake.Unmount("/Volumes/Gone");
  Select({{"/", kSystemGuid}, {"/Volumes/Drive/", kDataGuid}, {"/Volumes/Gone/", kOtherGuid}});
  fake.Find("/Volumes/Drive")->mode = 0700;
  fake.Find("/Volumes/Drive")->userId = 0;
  fake.WriteFile(Data("tqreports/tqserv_runs_as.txt"), "bob");
  EXPECT_TRUE(CreateServicePermissionReport());
  EXPECT_EQ(Report("tqserv_perm_report.txt"),
            "tqserv_login_name: bob\n"
            "can_read=true, detail=mode_bits_allow, path=/Library/Kestrune.tqpkg/\n"
            "can_read=true, detail=mode_bits_allow, path=" +
                Data("\n") + "can_read=true, detail=mode_bits_allow, path=" + Data("tqinfo.xml\n") +
                "can_read=true, detail=mode_bits_allow, path=/\n"
                "can_read=false, detail=mode_bits_deny_at=/Volumes/Drive, path=/Volumes/Drive/\n");
}
