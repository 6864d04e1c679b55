#pragma once

#include <initializer_list>

#include "base/xml_snippets.h"
#include "selection/rule_engine.h"
#include "selection/settings.h"
#include "tests/platform_fixture.h"

/// Starts every test from fresh settings and an empty rule index.
class SelectionTest : public PlatformTest {
 protected:
  SelectionTest() {
    TqInfoManager::FreeRules(tqRules, &count);
    TqInfoManager::ForgetSettings();
  }

  /// One rule element as a user might write it.
  static std::string Rule(std::string_view prefix, std::string_view contains1 = "*", std::string_view contains2 = "*",
                          std::string_view doesNotContain = "*", std::string_view endsWith = "*",
                          std::string_view extension = "*", std::string_view osVers = "*") {
    const auto value = [](const char* name, std::string_view text) {
      return Joined(" ", name, "=\"", TqFile::XmlEscaped(text), "\"");
    };
    return Joined("<excludefname_rule plat=\"mac\"", value("osVers", osVers),
                  value("skipFirstCharThenStartsWith", prefix), value("contains_1", contains1),
                  value("contains_2", contains2), value("doesNotContain", doesNotContain), value("endsWith", endsWith),
                  value("hasFileExtension", extension), " />\n")
        .c_str();
  }
  static bool Parse(const std::string& rules, std::string_view dataSet = "set") {
    const TqString text("<tqexclusions>\n" + rules + "</tqexclusions>\n");
    return TqInfoManager::ParseExcludeFileNameRules(&text, tqRules, &count, dataSet);
  }
  static bool Wanted(const std::string& path) {
    return TqInfoManager::UserWantsThisFileBackedUpEx(TqString(path), 1, 1'000'000, tqRules, count);
  }
  void WriteSettings(const std::string& elements) {
    fake.WriteFile(Data("tqinfo.xml"), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n" + elements);
  }
  /// Calls `take` with every rule in the order in which they are tried, and with the number of its group.
  template <class Take>
  static void ForEachRule(Take take) {
    for (std::int32_t i = 0; i < count; ++i) {
      for (const auto* sub = &tqRules[i]; sub != nullptr; sub = sub->nextExtensionGroup) {
        for (const auto* rule = sub; rule != nullptr; rule = rule->nextSameExtension) take(*rule, i);
      }
    }
  }
  static std::string Shown(const char* criterion) { return criterion != nullptr ? criterion : "*"; }

  void ExpectLogged(std::initializer_list<std::string> texts) {
    for (const std::string& text : texts) EXPECT_TRUE(Logged(text)) << text;
  }

  static constexpr TqExcludeFilenameRule* tqRules = TqInfoManager::tqExcludeFilenameRules;
  static constexpr std::int32_t& count = TqInfoManager::num_tqExcludeFilenameRules;
};
