#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "base/clock.h"
#include "base/file_info.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/run_command.h"
#include "base/system_info.h"
#include "tests/fake_platform.h"

/// A fake Mac with the client installed: "/Library/Kestrune.tqpkg/tqinstall.xml" names data folder kData and host GUID
/// kHostGuid, the system is 10.15.7, the log is open. Every test starts from fresh process-wide state of the base
/// layer.
class PlatformTest : public ::testing::Test {
 protected:
  static constexpr const char* kData = "/Library/Kestrune.tqpkg/tqdata/";
  static constexpr const char* kHostGuid = "0123456789abcdef01234567";

  PlatformTest() {
    ForgetBaseState();
    fake.MakeFolders(kData);
    fake.WriteFile(
        "/Library/Kestrune.tqpkg/tqinstall.xml",
        std::string("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<datadir>/Library/Kestrune.tqpkg/tqdata"
                    "</datadir>\n<hguid>") +
            kHostGuid + "</hguid>\n</contents>\n");
    SetProductVersion("10.15.7");
    TqLog::OpenLog(Data("tqlogs/tqfilelist"), TqInstall::DataFolder());
  }
  ~PlatformTest() override { ForgetBaseState(); }

  static void ForgetBaseState() {
    TqLog::CloseLog();
    TqInstall::Forget();
    TqSystem::ForgetOsDetailText();
    TqSystem::ForgetTestRoot();
    TqFile::ForgetMountedFolders();
    TqFile::ForgetPrivacyDenials();
  }
  void SetProductVersion(std::string_view version) {
    TqSystem::ForgetOsDetailText();
    fake.WriteFile("/System/Library/CoreServices/SystemVersion.plist",
                   "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
                   "version=\"1.0\">\n<dict>\n<key>ProductVersion</key>\n<string>" +
                       std::string(version) + "</string>\n</dict>\n</plist>\n");
  }
  /// A path in the data folder.
  static std::string Data(std::string_view relative) { return std::string(kData) + std::string(relative); }
  /// All daily logs' text, one behind the other.
  std::string LogText() {
    std::string all;
    for (const std::string& name : fake.Names(Data("tqlogs/tqfilelist"))) {
      all += fake.ReadFile(Data("tqlogs/tqfilelist/") + name);
    }
    return all;
  }
  bool Logged(std::string_view text) { return LogText().find(text) != std::string::npos; }
  /// How many log lines hold `text`.
  int CountLogged(std::string_view text) {
    const std::string all = LogText();
    int count = 0;
    for (std::size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) ++count;
    return count;
  }

  FakePlatform fake;
};
