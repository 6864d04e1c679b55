#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "base/xml_snippets.h"
#include "selection/rule_engine.h"
#include "selection/settings.h"
#include "tests/platform_fixture.h"

/// Starts every test from fresh settings and an empty rule index.
class SelectionTest : public PlatformTest {
 protected:
  SelectionTest() { Forget(); }
  ~SelectionTest() override { Forget(); }

  /// One rule element as a user might write it.
  static std::string Rule(std::string_view prefix, std::string_view contains1 = "*", std::string_view contains2 = "*",
                          std::string_view doesNotContain = "*", std::string_view endsWith = "*",
                          std::string_view extension = "*", std::string_view osVers = "*") {
    std::string line = "<excludefname_rule plat=\"mac\"";
    const auto add = [&](const char* name, std::string_view value) {
      line += std::string(" ") + name + "=\"" + TqFile::XmlEscaped(value).c_str() + "\"";
    };
    add("osVers", osVers);
    add("skipFirstCharThenStartsWith", prefix);
    add("contains_1", contains1);
    add("contains_2", contains2);
    add("doesNotContain", doesNotContain);
    add("endsWith", endsWith);
    add("hasFileExtension", extension);
    return line + " />\n";
  }
  static bool Parse(const std::string& rules, std::string_view dataSet = "set", bool allowEmpty = false) {
    const TqString text("<tqexclusions>\n" + rules + "</tqexclusions>\n");
    return TqInfoManager::ParseExcludeFileNameRules(&text, tqRules, &count, dataSet, allowEmpty);
  }
  static bool Wanted(const std::string& path) {
    return TqInfoManager::UserWantsThisFileBackedUpEx(TqString(path), 1, 1'000'000, tqRules, count);
  }
  void WriteSettings(const std::string& elements) {
    fake.WriteFile(Data("tqinfo.xml"),
                   "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<tqinfo>\n" + elements + "</tqinfo>\n");
  }

  static constexpr TqExcludeFilenameRule* tqRules = TqInfoManager::tqExcludeFilenameRules;
  static constexpr std::int32_t& count = TqInfoManager::num_tqExcludeFilenameRules;

 private:
  static void Forget() {
    TqInfoManager::FreeRules(tqRules, &count);
    TqInfoManager::ForgetSettings();
  }
};
