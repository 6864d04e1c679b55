#pragma once

// How the explain report judges a line of a per-volume file list, and its fixed wording. The report itself is put
// together by the command.

#include <cstdint>
#include <string_view>

#include "base/file_info.h"
#include "base/string.h"
#include "selection/rule_engine.h"

enum class TqHitClass { kCommentLine, kLineTooShort, kNotUseful, kFileDoesNotExist, kFileFound, kNotAFileLine };

/// One list line that holds the text to explain.
struct TqListHit {
  TqHitClass hitClass = TqHitClass::kNotAFileLine;
  bool isIntended = false;      ///< kFileFound: the rules want the file backed up
  std::int64_t listedSize = 0;  ///< bytes, kFileFound
  TqString path;                ///< on disk, kFileFound (backslashes restored where the listed form does not exist)
  TqString wording;             ///< class, size class, intent and path, or class and whole line
};

namespace TqInfoManager {

/// The entry that `listed` names, whose path on disk is `path`: lists hold "_-backslash-_" in place of a backslash, so
/// what is not there under its listed name is looked for under the restored one. False when neither is there; `path` is
/// the last one tried then, the record reset.
bool FindOnDisk(std::string_view listed, TqString& path, TqFileInfo& info);

/// Classifies a line in the table's order: comment, too short, not useful, missing, found, not a file line.
TqListHit ClassifyListLine(std::string_view line, std::int64_t sizeLimit, TqExcludeFilenameRule* rules,
                           std::int32_t ruleCount);

/// The size class of a listed file; for the three largest classes both sizes in whole gigabytes are added when they
/// differ.
TqString SizeClassText(std::int64_t listedSize, std::int64_t onDiskSize);

inline constexpr std::string_view kHelpAddress = "https://help.kestrune.example/tqvol";

/// The five reasons of a name that no list holds, with the line that names the help page.
TqString NoMatchReasons(std::string_view name);
/// The five reasons of files that are left out on purpose.
std::string_view NotIntendedReasons();

}  // namespace TqInfoManager
