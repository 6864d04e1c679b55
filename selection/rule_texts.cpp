#include "selection/rule_texts.h"

#include <cstddef>
#include <iterator>

#include "base/vector.h"
#include "base/xml_snippets.h"

namespace TqInfoManager {
namespace {

constexpr TqBuiltInRule kEditableRules[] = {
    {.prefix = "users/", .contains1 = "/itunes/", .contains2 = "/itunes/itunes music/podcasts/", .optional = true},
    {.prefix = "users/", .contains1 = "/itunes/", .contains2 = "/itunes/itunes media/podcasts/", .optional = true},
    {.prefix = "users/",
     .contains1 = "/library/application support/google/chrome/",
     .contains2 = "/safe browsing",
     .optional = true},
    {.prefix = "users/",
     .contains1 = "/library/application support/google/chrome/default",
     .contains2 = "/history",
     .optional = true},
    {.prefix = "users/",
     .contains1 = "/library/application support/google/chrome/default",
     .contains2 = "/thumbnails",
     .optional = true},
    {.prefix = "users/",
     .contains1 = "/library/application support/google/chrome/default",
     .contains2 = "/archived history",
     .optional = true},
    {.prefix = "users/",
     .contains1 = "/firefox/",
     .contains2 = "/library/caches/firefox/profiles/",
     .doesNotContain = "bookmark",
     .optional = true},
};

// Blocks 003 and 004 belong to another system. A block's rows stand together.
constexpr TqMergeRule kMergeRules[] = {
    {.block = "001",
     .comment = "Dropbox cache files",
     .rule = {.prefix = "users/", .contains1 = "/.dropbox/.dropbox", .extension = "cache", .optional = true}},
    {.block = "002",
     .comment = "Spotify",
     .rule = {.prefix = "users/", .contains1 = "/library/application support/spotify", .optional = true}},
    {.block = "005",
     .comment = "Slack",
     .rule = {.prefix = "users/", .contains1 = "/library/application support/slack", .optional = true}},
    {.block = "006",
     .comment = "loginhelper applications",
     .rule = {.prefix = "users/", .contains1 = "loginhelper", .extension = "app", .optional = true}},
    {.block = "007",
     .comment = "Safari icon caches",
     .rule =
         {.prefix = "users/", .contains1 = "/library/Safari/", .contains2 = "/touch icons cache", .optional = true}},
    {.block = "007",
     .comment = "Safari icon caches",
     .rule = {.prefix = "users/", .contains1 = "/library/Safari/", .contains2 = "/favicon cache", .optional = true}},
    {.block = "008",
     .comment = "Docker",
     .rule = {.prefix = "users/", .contains1 = "/library/containers/com.docker.docker/", .optional = true}},
};

// The comments below must hold no two dashes in a row, no end tag of the file and no beginning of a rule element: the
// readers work on plain text, and the merge looks for the end tag.
constexpr std::string_view kFileStart = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?> \n\n<tqexclusions>\n";
constexpr std::string_view kFileEnd = "</tqexclusions>\n";

constexpr std::string_view kMandatoryOpening =
    "<!--\n"
    "Mandatory Exclusions: editing this file DOES NOT DO ANYTHING.\n"
    "Look at tqexcluderules_editable.xml in the same folder for the rules that you may change.\n"
    "\n";

constexpr std::string_view kEditableOpening =
    "<!--\n"
    "Editable Exclusions: You may edit this file.  WARNING: ONLY FOR ADVANCED USERS!\n"
    "To restore the defaults, remove this file (it will return).\n"
    "\n";

constexpr std::string_view kRulesExplained =
    "Rule 1: All the excludefname_rule below are case insensitive.\n"
    "Rule 2: a file must match ALL criteria on the line to be excluded from backup.\n"
    "Rule 3: every excludefname_rule must give all criteria; \"*\" skips a criterion.\n"
    "Rule 4: skipFirstCharThenStartsWith must be \"*\" or at least 4 characters long.\n"
    "Rule 5: All rules apply to all attached volumes.\n"
    "\n"
    "Valid osVers for plat=\"mac\": \"*\", \"10.5\", \"10.6\", \"10.7\" and so on.\n"
    "Valid osVers for plat=\"win\": \"*\", \"xp\", \"seven\", \"eight\", \"ten\", \"eleven\".\n"
    "\n"
    "Performance: give a skipFirstCharThenStartsWith whenever possible.\n"
    "Performance: give a hasFileExtension rather than an endsWith.\n"
    "Performance: contains_1 and contains_2 are the slowest criteria.\n"
    "-->\n";

void AppendAttribute(TqString& line, std::string_view name, std::string_view value) {
  AppendAll(line, " ", name, "=\"", TqFile::XmlEscaped(value), "\"");
}

/// One line per rule that `row` stands for.
void AppendRuleLines(TqString& text, const TqBuiltInRule& row, std::string_view attributesInFront) {
  if (!row.extension.starts_with('{')) {
    AppendAll(text, RuleLine(row, attributesInFront), '\n');
    return;
  }
  TqStringVector extensions;
  extensions.Split(row.extension.substr(1, row.extension.size() - 2), ',', false);
  for (const TqString* extension : extensions) {
    TqBuiltInRule rule = row;
    rule.extension = *extension;
    AppendAll(text, RuleLine(rule, attributesInFront), '\n');
  }
}

TqString RuleFileText(std::string_view opening, std::span<const TqBuiltInRule> rows) {
  TqString text = Joined(kFileStart, opening, kRulesExplained);
  for (const TqBuiltInRule& row : rows) AppendRuleLines(text, row, "");
  text.Append(kFileEnd);
  return text;
}

}  // namespace

std::span<const TqBuiltInRule> EditableRules() {
  return kEditableRules;
}

std::span<const TqMergeRule> MergeRules() {
  return kMergeRules;
}

TqString RuleLine(const TqBuiltInRule& rule, std::string_view attributesInFront) {
  TqString line = Joined("<excludefname_rule ", attributesInFront, "plat=\"mac\"");
  AppendAttribute(line, "osVers", rule.osVers);
  line.AppendChar(' ');  // a second blank, as in every rule file in the field
  AppendAttribute(line, "ruleIsOptional", rule.optional ? "t" : "f");
  AppendAttribute(line, "skipFirstCharThenStartsWith", rule.prefix);
  AppendAttribute(line, "contains_1", rule.contains1);
  AppendAttribute(line, "contains_2", rule.contains2);
  AppendAttribute(line, "doesNotContain", rule.doesNotContain);
  AppendAttribute(line, "endsWith", rule.endsWith);
  AppendAttribute(line, "hasFileExtension", rule.extension);
  line.Append(" />");
  return line;
}

TqString MandatoryRulesText() {
  return RuleFileText(kMandatoryOpening, MandatoryRules());
}

TqString EditableRulesText() {
  return RuleFileText(kEditableOpening, EditableRules());
}

TqString MergeBlocksText() {
  TqString text;
  for (std::size_t i = 0; i < std::size(kMergeRules); ++i) {
    const TqMergeRule& row = kMergeRules[i];
    const bool opensBlock = i == 0 || kMergeRules[i - 1].block != row.block;
    const bool closesBlock = i + 1 == std::size(kMergeRules) || kMergeRules[i + 1].block != row.block;
    if (opensBlock) AppendAll(text, "<!-- merge block ", row.block, ": ", row.comment, " -->\n");
    AppendRuleLines(text, row.rule, Joined("tqmergeblock=\"", row.block, "\" "));
    if (closesBlock) AppendAll(text, "<!-- end of merge block ", row.block, " -->\n");
  }
  return text;
}

}  // namespace TqInfoManager
