#pragma once

// The built-in exclusion rules, one table each, and the rule files' texts made from them.

#include <span>
#include <string_view>

#include "base/string.h"

/// One built-in row. A criterion of "*" is not used. An extension in braces ("{blob,log}") stands for one rule per
/// extension.
struct TqBuiltInRule {
  std::string_view prefix;  ///< skipFirstCharThenStartsWith
  std::string_view contains1 = "*";
  std::string_view contains2 = "*";
  std::string_view doesNotContain = "*";
  std::string_view endsWith = "*";
  std::string_view extension = "*";
  std::string_view osVers = "*";
  bool optional = false;
};

/// A row that reaches the editable file only through merging.
struct TqMergeRule {
  std::string_view block;    ///< three digits
  std::string_view comment;  ///< what the block adds
  TqBuiltInRule rule;
};

namespace TqInfoManager {

std::span<const TqBuiltInRule> MandatoryRules();
std::span<const TqBuiltInRule> EditableRules();
std::span<const TqMergeRule> MergeRules();

/// The whole built-in file texts.
TqString MandatoryRulesText();
TqString EditableRulesText();
/// The merge blocks' texts one behind the other, in block order: opening comment, rows, closing comment.
TqString MergeBlocksText();

/// One rule element on one line without line end. `attributesInFront` is put before `plat` ("" or `tqmergeblock="001"
/// `). Values are escaped. `rule.extension` must be a single one.
TqString RuleLine(const TqBuiltInRule& rule, std::string_view attributesInFront);

}  // namespace TqInfoManager
