#pragma once

#include <string_view>

#include "base/string.h"

/// Where the client is installed and keeps its state. All folder texts end in "/". The folders are computed once per
/// process.
namespace TqInstall {

inline constexpr std::string_view kUnknownHostGuid = "999999999999999999999999";

/// "/Library/Kestrune/" when that is a directory, else "/Library/Kestrune.tqpkg/".
const TqString& InstallFolder();
/// `datadir` of tqinstall.xml, else the installation folder + "tqdata/". Nothing is created.
const TqString& DataFolder();
bool DataFolderExists();
/// Creates the data folder (0777, missing parents too) when it is missing. False when it is not there afterwards.
bool CreateDataFolder();

/// DataFolder() + one of the client's sub-folders + "/"; nothing is created.
TqString ListsFolder();    ///< tqfilelists
TqString ReportsFolder();  ///< tqreports
TqString FlagsFolder();    ///< tqflags
TqString LogsFolder();     ///< tqlogs
TqString UpdatesFolder();  ///< tqupdates
/// Creates `folder` (one of the above) when it is missing and the data folder exists. False when it is not there
/// afterwards.
bool CreateSubFolder(const TqString& folder);

/// Creates `folder` and its missing parents, each with mode 0777 whatever the umask. True when it is a directory
/// afterwards.
bool MakeFolders(std::string_view folder);

/// Drops everything cached here, the host GUID included (tests).
void Forget();

}  // namespace TqInstall

/// Length of a volume's GUID ("vguid").
inline constexpr std::int32_t kVguidLength = 28;
/// Whether `text` is a vguid by its length and its characters, ASCII letters and digits: it becomes part of file names.
bool IsVguid(std::string_view text);

/// Copies the cached host GUID, 24 lower-case characters, into `hguid`; read from tqinstall.xml on first use, with a
/// logged fallback to kUnknownHostGuid. Null drops the cache, so that the next call reads the file again.
void TqFile_Internal_Only_GetMyHostGuid(TqString* hguid);
/// The same as an expression.
TqString MyHostGuid();
