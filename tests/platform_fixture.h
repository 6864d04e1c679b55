#pragma once

#include <gtest/gtest.h>

#include <cerrno>
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
    fake.WriteFile("/Library/Kestrune.tqpkg/tqinstall.xml",
                   "<?xml?>\n<contents>\n<datadir>/Library/Kestrune.tqpkg/tqdata</datadir>\n<hguid>" +
                       std::string(kHostGuid) + "</hguid>\n</contents>\n");
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
    fake.WriteFile(
        "/System/Library/CoreServices/SystemVersion.plist",
        "<plist><dict><key>ProductVersion</key><string>" + std::string(version) + "</string></dict></plist>\n");
  }
  /// Fails the named operations (blanks between them) on paths that hold `part`, the first `times` times.
  void Fail(std::string_view operations, std::string part, int error = EIO, int times = 1'000'000) {
    fake.fault = [=, left = times](std::string_view operation, std::string_view path) mutable {
      const bool hit = operations.find(operation) != operations.npos && path.find(part) != path.npos && left > 0;
      return hit ? (--left, error) : 0;
    };
  }
  /// A path in the data folder.
  static std::string Data(std::string_view relative) { return std::string(kData) + std::string(relative); }
  /// All daily logs' text, one behind the other.
  std::string LogText() {
    std::string all;
    const std::string folder = Data("tqlogs/tqfilelist/");
    for (const std::string& name : fake.Names(folder)) all += fake.ReadFile(folder + name);
    return all;
  }
  bool Logged(std::string_view text) { return LogText().find(text) != std::string::npos; }
  /// How many times `part` is in `text`.
  static int Count(const std::string& text, std::string_view part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
  }
  int CountLogged(std::string_view text) { return Count(LogText(), text); }

  FakePlatform fake;
};
