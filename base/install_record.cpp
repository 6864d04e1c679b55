#include "base/install_record.h"

#include <algorithm>
#include <memory>
#include <string>

#include "base/log.h"
#include "base/xml_snippets.h"
#include "platform/platform.h"
#include "platform/whole_file.h"

namespace {

constexpr std::string_view kPlainInstallFolder = "/Library/Kestrune/";
constexpr std::string_view kPackageInstallFolder = "/Library/Kestrune.tqpkg/";
constexpr std::int64_t kMaxRecordBytes = 104'857'600;
constexpr std::int32_t kHostGuidLength = 24;
constexpr unsigned kFolderMode = 0777;

struct Cache {
  std::unique_ptr<TqString> installFolder;
  std::unique_ptr<TqString> dataFolder;
  std::unique_ptr<TqString> hostGuid;
};

Cache& TheCache() {
  static Cache cache;
  return cache;
}

bool IsFolder(const char* path) {
  platform::FileFacts facts;
  return platform::TheFiles().StatThroughLinks(path, facts) == 0 && facts.kind == platform::EntryKind::kDirectory;
}

/// The text of the first element of that name, or of the first attribute when there is no such element; trimmed.
TqString RecordValue(const char* name) {
  std::string content;
  const TqString path = Joined(TqInstall::InstallFolder(), "tqinstall.xml");
  TqString value;
  if (platform::ReadWholeFile(path.c_str(), kMaxRecordBytes, content) != 0) return value;
  const std::string_view text(content);
  if (!TqFile::GetXmlElementText(text, name, value)) TqFile::GetUniqueStrAttrFromXmlSnippet(text, name, value);
  value.Trim();
  return value;
}

bool IsSeparator(char c) {
  return c == '/' || c == '\\';
}

/// The recorded data folder with exactly one "/" behind it; empty when the record names no usable one. A value of
/// separators alone is refused: "/" must never become the data folder.
TqString RecordedDataFolder() {
  TqString folder = RecordValue("datadir");
  if (folder.CharAt(0) != '/') return TqString();
  while (IsSeparator(folder.CharAt(folder.Length() - 1))) folder.Truncate(folder.Length() - 1);
  if (!folder.IsEmpty()) folder.AppendChar('/');
  return folder;
}

TqString SubFolder(std::string_view name) {
  return Joined(TqInstall::DataFolder(), name, "/");
}

TqString ReadHostGuid() {
  TqString guid = RecordValue("hguid");
  guid.LowerCase();
  if (guid.Length() == kHostGuidLength) return guid;
  Log("ERROR: TqFile_Internal_Only_GetMyHostGuid - failed to get correct hguid from tqinstall.xml, ",
      "falling back to ", TqInstall::kUnknownHostGuid);
  return TqInstall::kUnknownHostGuid;
}

}  // namespace

namespace TqInstall {

const TqString& InstallFolder() {
  std::unique_ptr<TqString>& cached = TheCache().installFolder;
  if (!cached) {
    const TqString plain(kPlainInstallFolder);
    cached = std::make_unique<TqString>(IsFolder(plain.c_str()) ? kPlainInstallFolder : kPackageInstallFolder);
  }
  return *cached;
}

const TqString& DataFolder() {
  std::unique_ptr<TqString>& cached = TheCache().dataFolder;
  if (!cached) {
    TqString recorded = RecordedDataFolder();
    cached = std::make_unique<TqString>(recorded.IsEmpty() ? Joined(InstallFolder(), "tqdata/") : recorded);
  }
  return *cached;
}

bool DataFolderExists() {
  return IsFolder(DataFolder().c_str());
}

bool CreateDataFolder() {
  return MakeFolders(DataFolder());
}

TqString ListsFolder() {
  return SubFolder("tqfilelists");
}
TqString ReportsFolder() {
  return SubFolder("tqreports");
}
TqString FlagsFolder() {
  return SubFolder("tqflags");
}
TqString LogsFolder() {
  return SubFolder("tqlogs");
}
TqString UpdatesFolder() {
  return SubFolder("tqupdates");
}

bool CreateSubFolder(const TqString& folder) {
  if (IsFolder(folder.c_str())) return true;
  return DataFolderExists() && MakeFolders(folder);
}

bool MakeFolders(std::string_view folder) {
  const TqString whole(folder);
  if (IsFolder(whole.c_str())) return true;
  for (std::size_t end = folder.find('/', 1); end != std::string_view::npos; end = folder.find('/', end + 1)) {
    const TqString parent(folder.substr(0, end));
    if (!IsFolder(parent.c_str())) platform::TheFiles().MakeDirectory(parent.c_str(), kFolderMode);
  }
  if (!folder.ends_with('/')) platform::TheFiles().MakeDirectory(whole.c_str(), kFolderMode);
  return IsFolder(whole.c_str());
}

void Forget() {
  TheCache() = Cache();
}

}  // namespace TqInstall

bool IsVguid(std::string_view text) {
  return text.size() == kVguidLength && std::ranges::all_of(text, [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
         });
}

void TqFile_Internal_Only_GetMyHostGuid(TqString* hguid) {
  std::unique_ptr<TqString>& cached = TheCache().hostGuid;
  if (hguid == nullptr) {
    cached.reset();
    return;
  }
  if (!cached) cached = std::make_unique<TqString>(ReadHostGuid());
  *hguid = *cached;
}

TqString MyHostGuid() {
  TqString guid;
  TqFile_Internal_Only_GetMyHostGuid(&guid);
  return guid;
}
