#pragma once

// The two rule files in the data folder, the merge of newly shipped blocks into the user's editable file, and the rules
// that follow from the settings.

#include <string_view>

#include "base/string.h"

namespace TqInfoManager {

TqString MandatoryRulesPath();  ///< <data>/tqexcluderules_mandatory.xml
TqString EditableRulesPath();   ///< <data>/tqexcluderules_editable.xml
TqString MergeLogPath();        ///< <data>/tqreports/tqexcluderules_editable_mergelog.txt

/// Writes each rule file that is missing. A newly created editable file has its merge log set aside and every block
/// merged again.
bool MakeSureExcludeRulesFilesExistIn_tqdata_Folder();

/// Inserts the rules of blocks that the merge log does not name into the editable file. True when at least one block
/// was merged; on false the editable file is as it was.
bool MakeSureAllEditableExcludeRuleBlocksAreMerged();

/// The rules made from `excludefiletypes` and the "none" directory filters of tqinfo.xml on disk (17 tries). False when
/// the file is missing or unreadable; `text` then holds a rule text without rules.
bool ParseTqInfo_MakeIntoExcludeFileNameRulesXml(TqString& text);

/// Copies the directory filters of one settings text into the `do_backup` block of another: a filter with the same dir
/// (ignoring case) is replaced, others are added up to TQ_INFO_MAX_NUM_DIR_FILTERS (more are logged and left out), the
/// rest stays. False (logged) leaves `to` as it was.
bool MergeTqInfoTqDirFilter(std::string_view from, TqString& to);

}  // namespace TqInfoManager
