#pragma once

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
