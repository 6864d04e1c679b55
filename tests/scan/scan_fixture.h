#pragma once

#include <algorithm>
#include <functional>
#include <tuple>

#include "scan/scan_run.h"
#include "scan/top_dirs.h"
#include "selection/rule_engine.h"
#include "tests/volumes/volumes_fixture.h"

/// Volumes with identities, settings that select them, and the folder of the lists.
class ScanTest : public VolumesTest {
 protected:
  ScanTest() {
    TqInfoManager::FreeRules(TqInfoManager::tqExcludeFilenameRules, &TqInfoManager::num_tqExcludeFilenameRules);
    ForgetVerificationTime();
    fake.MakeFolders(Data("tqfilelists"));
  }
  void AttachSystemVolume() { fake.WriteFile(Data("tqvol_system_volume/tqvol_id.xml"), IdentityText(kRootGuid)); }
};

/// Whole scan runs: the system volume and one drive are attached and selected.
class ScanRunTest : public ScanTest {
 protected:
  static constexpr const char* kOldList = "# GmtMillisThisListWasStarted: 0000018bcfe50000, x\nold\n";
  const std::string kRootList = std::string(kRootGuid) + "_root_filelist.dat";
  const std::string kDriveList = std::string(kDiskGuid) + "_driv_filelist.dat";

  ScanRunTest() {
    AttachSystemVolume();
    AddIdentified("/Volumes/Drive", kDiskGuid);
    fake.WriteFile("/Users/bob/letter.doc", "12345");
    fake.WriteFile("/Volumes/Drive/photos/2020/a.jpg", "123");
    fake.WriteFile("/Volumes/Drive/photos/2021/b.jpg", "1234");
    PutList(kRootList, kOldList);
    PutList(kDriveList, kOldList);
    SelectBoth();
  }
  void SelectBoth() { Select({{kRootGuid, "/"}, {kDiskGuid, "/Volumes/Drive/"}}); }
  /// One run; its exit status.
  int Run(void (*change)(TqRunState&) = nullptr) try {
    TqRunState run;
    run.processStartMillis = fake.nowMillis;
    if (change != nullptr) change(run);
    RunScan(run);
  } catch (const ExitCalled& exit) {
    return exit.status;
  }
  std::string List(const std::string& name) { return fake.ReadFile(Data("tqfilelists/") + name); }
  bool HasList(const std::string& name) { return fake.Has(Data("tqfilelists/") + name); }
  void PutList(const std::string& name, const std::string& text) { fake.WriteFile(Data("tqfilelists/") + name, text); }
  void RemoveList(const std::string& name) { fake.Remove(Data("tqfilelists/") + name); }
  /// Names in the lists folder, sorted.
  std::vector<std::string> Folder() {
    std::vector<std::string> names = fake.Names(Data("tqfilelists"));
    std::sort(names.begin(), names.end());
    return names;
  }
  /// A registry that knows the drive as often as there are numbers of days since it was seen.
  void PutRegistry(const std::vector<int>& daysSinceSeen) {
    TqVolumeInfoList list;
    for (const int days : daysSinceSeen) Add(list, kDiskGuid, "/Volumes/Drive/", fake.nowMillis - days * kDay);
    ASSERT_TRUE(TqUiUtil::TqVolumesXml_WriteTqVolumesXmlFile("000", list));
  }
};
