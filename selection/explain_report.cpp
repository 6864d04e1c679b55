#include "selection/explain_report.h"

namespace TqInfoManager {

namespace {

// A file line is kind, tab, 16 hex digits, tab, size, tab, path: the size begins at index 19.
constexpr std::int32_t kSizeColumn = 19;
constexpr std::int32_t kShortestLine = 21;
constexpr std::int32_t kShortestPath = 2;
constexpr std::string_view kListedBackslash = "_-backslash-_";

struct SizeClass {
  std::int64_t below;  ///< bytes
  std::string_view text;
  std::string_view listedText;  ///< behind the listed gigabytes when the sizes differ; empty: not compared
};

// "in in" in the largest class is part of the text.
constexpr SizeClass kSizeClasses[] = {
    {10'485'760, "LessThan10Mb - ", ""},
    {31'457'280, "LessThan30Mb - ", ""},
    {1'048'576'000, "LessThan1Gb - ", ""},
    {4'194'304'000, "LessThan4_Gb - ", " Gbytes in perVolFileList, onDisk="},
    {9'437'184'000, "LessThan9_Gb - ", " Gbytes in perVolFileList, onDisk="},
    {INT64_MAX, "LargerThan9Gb - ", " Gbytes in in perVolFileList, onDisk="},
};

/// Mebibytes, then rounded up to thousands of them.
std::int64_t WholeGigabytes(std::int64_t bytes) {
  return (bytes / 1'048'576 + 999) / 1000;
}

TqListHit WholeLineHit(TqHitClass hitClass, std::string_view className, std::string_view line) {
  TqListHit hit;
  hit.hitClass = hitClass;
  hit.wording = Joined(className, line);
  return hit;
}

TqListHit FoundHit(std::string_view listedPath, const TqString& path, const TqFileInfo& info, std::int64_t listedSize,
                   bool isIntended) {
  TqListHit hit;
  hit.hitClass = TqHitClass::kFileFound;
  hit.isIntended = isIntended;
  hit.listedSize = listedSize;
  hit.path = path;
  hit.wording = Joined("file_found - ", SizeClassText(listedSize, info.TotalSize()),
                       isIntended ? "IntentIsToBackup - " : "NOT_intended_for_Backup - ", listedPath);
  return hit;
}

}  // namespace

bool FindOnDisk(std::string_view listed, TqString& path, TqFileInfo& info) {
  path = listed;
  if (TqFile::GetInfoAboutFileOrDir(TqFile::WithLastBackslashKept(path), info)) return true;
  if (!path.Contains(kListedBackslash)) return false;
  path.ReplaceAll(kListedBackslash, "\\");
  return TqFile::GetInfoAboutFileOrDir(TqFile::WithLastBackslashKept(path), info);
}

TqString SizeClassText(std::int64_t listedSize, std::int64_t onDiskSize) {
  const SizeClass* sizeClass = kSizeClasses;
  while (listedSize >= sizeClass->below && sizeClass->below != INT64_MAX) ++sizeClass;
  TqString text(sizeClass->text);
  const std::int64_t listed = WholeGigabytes(listedSize);
  const std::int64_t onDisk = WholeGigabytes(onDiskSize);
  if (!sizeClass->listedText.empty() && listed != onDisk) {
    AppendAll(text, listed, sizeClass->listedText, onDisk, " Gbytes - ");
  }
  return text;
}

TqListHit ClassifyListLine(std::string_view line, std::int64_t sizeLimit, TqExcludeFilenameRule* rules,
                           std::int32_t ruleCount) {
  if (line.starts_with('#')) return WholeLineHit(TqHitClass::kCommentLine, "comment_line - ", line);
  if (line.size() < kShortestLine) return WholeLineHit(TqHitClass::kLineTooShort, "line_too_short - ", line);
  const std::size_t tab = line.find('\t', kSizeColumn);
  const std::string_view listedPath = tab == std::string_view::npos ? std::string_view() : line.substr(tab + 1);
  if (listedPath.size() < kShortestPath) return WholeLineHit(TqHitClass::kNotUseful, "not_useful - ", line);
  if (!line.starts_with('f')) return WholeLineHit(TqHitClass::kNotAFileLine, "not_a_file_line - ", line);
  TqString path;
  TqFileInfo info;
  if (!FindOnDisk(listedPath, path, info)) {
    return WholeLineHit(TqHitClass::kFileDoesNotExist, "file_does_not_exist - ", listedPath);
  }
  std::int64_t listedSize = 0;
  ParseInt64(line.substr(kSizeColumn, tab - kSizeColumn), listedSize);
  const bool isIntended = UserWantsThisFileBackedUpEx(TqString(listedPath), listedSize, sizeLimit, rules, ruleCount);
  return FoundHit(listedPath, path, info, listedSize, isIntended);
}

TqString NoMatchReasons(std::string_view name) {
  return Joined(
      "There are several possible explanations:\n"
      "  1. User mis-typed the filename, check closely.  Uppercase/Lowercase matters!\n"
      "     Filename: ",
      name,
      "\n"
      "  2. User must wait at least 3 hours after adding new files for Kestrune\n"
      "     to find them.  Kestrune only passes over drives once every 3 hours!\n"
      "  3. User has not selected this particular hard drive for backup.  Change\n"
      "     \"Settings...\" panel then wait 3 more hours.\n"
      "  4. This file is an Operating System file or Application not indexed for\n"
      "     backup.\n"
      "  5. This file is part of an Encrypted folder or disk that Kestrune can not\n"
      "     read.\n\n"
      "Try reading: ",
      kHelpAddress, "\n");
}

std::string_view NotIntendedReasons() {
  return "  1. The file(s) might be in an excluded directory.\n"
         "  2. The file(s) might be of an excluded file type.\n"
         "  3. The file(s) might be part of the Operating System or Applications.\n"
         "  4. The file(s) might be too large.\n"
         "  5. Other...\n\n";
}

}  // namespace TqInfoManager
