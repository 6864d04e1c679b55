#include "scan/client_services.h"

#include "tests/scan/scan_fixture.h"

class ClientServicesTest : public ScanTest {};

TEST_F(ClientServicesTest, FirstLinesDecide) {
  TqString retention;
  EXPECT_FALSE(TqUiUtil::TqRollback_GetMostCurrentFinalizedHistoryUxeString(retention));
  EXPECT_EQ(ServiceLoginName(), "tqunknown");
  fake.WriteFile(Data("tqreports/tqclient_end_of_life.txt"), Joined(" ", TqVersionString(), "\r\n").c_str());
  fake.WriteFile(Data("tqreports/tqserv_runs_as.txt"), "bob \nroot\n");
  fake.WriteFile(Data("tqreports/tqrollback_current_uxe.txt"), " \nuxe_rb365d\n");
  EXPECT_TRUE(TqClientVersionManager::IsEndOfLife() && ServiceLoginName() == "bob");
  EXPECT_FALSE(TqUiUtil::TqRollback_GetMostCurrentFinalizedHistoryUxeString(retention)) << "an empty first line";
  fake.WriteFile(Data("tqreports/tqclient_end_of_life.txt"), Joined(TqVersionString(), "1").c_str());
  EXPECT_FALSE(TqClientVersionManager::IsEndOfLife());
}

TEST_F(ClientServicesTest, InstalledPrograms) {
  const std::string path = Data("tqreports/tqstat_progs.txt");
  for (const char* program : {"/Applications/Safari.app", "/System/Applications/Mail.app"}) fake.MakeFolders(program);
  for (const auto& [operation, tries] : {std::pair{"open", 6}, {"rename", 12}}) {
    for (const int failures : {tries - 1, tries}) {
      fake.WriteFile(path, "old");
      Fail(operation, path + ".tmp", EIO, failures);
      CreateInstalledProgramsReport();
      EXPECT_EQ(fake.ReadFile(path), failures < tries ? "yes_ms" : "old") << operation;
    }
  }
}

TEST_F(ClientServicesTest, ServicePermissions) {
  AddIdentified("/Volumes/Drive", kDiskGuid);
  Select({{kDiskGuid, "/Volumes/Drive/"}, {kOtherGuid, "/Volumes/Unplugged/"}});
  fake.Find("/Volumes/Drive")->mode = 0700;
  fake.Find("/Volumes/Drive")->userId = 0;
  fake.WriteFile(Data("tqreports/tqserv_runs_as.txt"), "bob");
  EXPECT_TRUE(CreateServicePermissionReport());
  const std::string allowed = "can_read=true, detail=mode_bits_allow, path=";
  EXPECT_EQ(fake.ReadFile(Data("tqreports/tqserv_perm_report.txt")),
            "tqserv_login_name: bob\n" + allowed + "/Library/Kestrune.tqpkg/\n" + allowed + Data("\n") + allowed +
                Data("tqinfo.xml\n") +
                "can_read=false, detail=mode_bits_deny_at=/Volumes/Drive, path=/Volumes/Drive/\n");
}
