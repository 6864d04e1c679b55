#include "selection/settings_edit.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/clock.h"
#include "base/file_io.h"
#include "base/log.h"
#include "base/xml_snippets.h"
#include "selection/settings_text.h"

namespace TqInfoManager {

namespace {

/// Half-open range of bytes in a text.
struct Span {
  std::int32_t begin = -1;
  std::int32_t end = -1;
  bool IsFound() const { return begin >= 0; }
};

bool IsNameEnd(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '>' || c == '/';
}

/// "<element" up to and including the ">" that ends the opening tag (a ">" inside quotes does not), at or behind
/// `from`.
Span FindOpeningTag(const TqString& text, std::string_view element, std::int32_t from = 0) {
  const TqString opener = Joined('<', element);
  for (std::int32_t at = text.Find(opener, from); at >= 0; at = text.Find(opener, at + 1)) {
    if (!IsNameEnd(text.CharAt(at + opener.Length()))) continue;
    bool quoted = false;
    for (std::int32_t i = at; i < text.Length(); ++i) {
      if (text.CharAt(i) == '"') quoted = !quoted;
      if (text.CharAt(i) == '>' && !quoted) return {at, i + 1};
    }
  }
  return {};
}

bool ClosesItself(const TqString& text, Span tag) {
  return text.CharAt(tag.end - 2) == '/';
}

/// Index behind what an opening tag holds, so that an attribute or the tag's end can follow there.
std::int32_t EndOfAttributes(const TqString& text, Span tag) {
  std::int32_t at = tag.end - (ClosesItself(text, tag) ? 2 : 1);
  while (text.CharAt(at - 1) == ' ') --at;
  return at;
}

/// The value between the quotes of `attribute` inside `tag`; the same separators count as for readers.
Span FindAttributeValue(const TqString& text, Span tag, std::string_view attribute) {
  for (const char separator : {' ', '\n', '\t'}) {
    const TqString opener = Joined(separator, attribute, "=\"");
    const std::int32_t at = text.Find(opener, tag.begin);
    if (at < 0 || at >= tag.end) continue;
    const std::int32_t begin = at + opener.Length();
    const std::int32_t end = text.FindChar('"', begin);
    if (end >= 0 && end < tag.end) return {begin, end};
  }
  return {};
}

void ReplaceSpan(TqString& text, Span span, std::string_view by) {
  text.Erase(span.begin, span.end - span.begin);
  text.Insert(span.begin, by);
}

/// Puts `value` between the quotes of the attribute, or adds the attribute at the end of the opening tag.
void SetAttribute(TqString& text, Span tag, std::string_view attribute, std::string_view value) {
  const TqString escaped = TqFile::XmlEscaped(value);
  if (const Span old = FindAttributeValue(text, tag, attribute); old.IsFound()) {
    ReplaceSpan(text, old, escaped);
  } else {
    text.Insert(EndOfAttributes(text, tag), Joined(' ', attribute, "=\"", escaped, '"'));
  }
}

/// One setter's work on the file: reads it, lets the setter change the text, writes and swaps it in.
class SettingsEdit {
 public:
  explicit SettingsEdit(std::string_view setter) : setter_(setter), path_(TqInfoPath()) {
    isReadable_ = TqFile::ReadFileIntoString(path_, text_);
    if (!isReadable_) Log("ERROR: TqInfoManager::", setter_, " - could not read tqinfo.xml file from disk: ", path_);
  }
  bool IsReadable() const { return isReadable_; }
  TqString& Text() { return text_; }

  /// Sets one attribute; logs when the element is missing.
  bool Set(std::string_view element, std::string_view attribute, std::string_view value) {
    const Span tag = FindOpeningTag(text_, element);
    if (!tag.IsFound()) return NotFound(Joined('<', element));
    SetAttribute(text_, tag, attribute, value);
    return true;
  }
  bool NotFound(std::string_view what) const {
    Log("ERROR: TqInfoManager::", setter_, " - could not find ", what, " in: ", path_);
    return false;
  }
  bool Save() const {
    switch (TqFile::SwapInQuietly(path_, text_, 10, 10, 100)) {
      case TqFile::SwapResult::kWriteFailed:
        Log("ERROR: ", setter_, ", could not writeout tmp tqinfo.xml file: ", path_, ".tmp");
        return false;
      case TqFile::SwapResult::kMoveFailed:
        Log("ERROR: TqInfoManager::", setter_, " - could not atomic swap in tqinfo.xml from file: ", path_, ".tmp");
        TqFile::DeleteFile(Joined(path_, ".tmp"));
        return false;
      case TqFile::SwapResult::kDone:
        break;
    }
    return true;
  }

 private:
  std::string_view setter_;
  TqString path_;
  TqString text_;
  bool isReadable_ = false;
};

struct AttributeValue {
  std::string_view attribute;
  TqString value;
};

bool SetAttributes(std::string_view setter, std::string_view element, const std::vector<AttributeValue>& values) {
  SettingsEdit edit(setter);
  if (!edit.IsReadable()) return false;
  for (const AttributeValue& pair : values) {
    if (!edit.Set(element, pair.attribute, pair.value)) return false;
  }
  return edit.Save();
}

std::string_view BoolText(bool value) {
  return value ? "true" : "false";
}

// --- blocked networks ---

constexpr std::string_view kNetworkList = "network_block_list";

TqString NetworkLines(const std::vector<TqBlockedNetwork>& networks) {
  TqString lines("\n");
  for (const TqBlockedNetwork& network : networks) {
    AppendAll(lines, "    <tqblocked_network blocked_network_name=\"", TqFile::XmlEscaped(network.name),
              "\" blocked_network_mac_addr=\"", TqFile::XmlEscaped(network.macAddress), "\" />\n");
  }
  return lines;
}

/// Makes `lines` the content of the list element whose opening tag is `tag`. False when its end tag is missing.
bool ReplaceNetworkLines(TqString& text, Span tag, const TqString& lines) {
  const TqString endTag = Joined("</", kNetworkList, '>');
  if (ClosesItself(text, tag)) {
    ReplaceSpan(text, {EndOfAttributes(text, tag), tag.end}, Joined('>', lines, endTag));
    return true;
  }
  const std::int32_t end = text.Find(endTag, tag.end);
  if (end >= 0) ReplaceSpan(text, {tag.end, end}, lines);
  return end >= 0;
}

// --- directory filters ---

constexpr std::string_view kFilterTag = "tqdirfilter";

/// The bytes between the opening tag of `do_backup` and "</do_backup>".
Span FindDoBackupContent(const TqString& text) {
  const Span tag = FindOpeningTag(text, "do_backup");
  if (!tag.IsFound()) return {};
  const std::int32_t end = text.Find("</do_backup>", tag.end);
  return end >= 0 ? Span{tag.end, end} : Span{};
}

/// The `tqdirfilter` elements inside `within`, each alone, delimited as the readers do it.
std::vector<Span> FindFilters(const TqString& text, Span within) {
  // With the ">" in front of them, because that search passes over an element at the very start of its text.
  const std::string_view searched = text.Slice(within.begin - 1, within.end - within.begin + 1);
  TqStringVector snippets;
  TqFile::GetAllXmlSnippetsWithTagNameInXml(searched, kFilterTag, snippets);
  const TqString opener = Joined('<', kFilterTag, ' ');
  std::vector<Span> filters;
  std::int32_t from = within.begin;
  for (const TqString* snippet : snippets) {
    if (!snippet->StartsWith(opener)) break;  // elements without attributes come last and are no filters
    const std::int32_t begin = text.Find(*snippet, from);
    from = begin + snippet->Length();
    filters.push_back({begin, from});
  }
  return filters;
}

/// Gives the filter element `old` another `whichfiles` and leaves the rest of it alone. One that lacks a quote, so that
/// its attributes cannot be told apart, is written anew.
void ReplaceFilter(TqString& text, Span old, const TqDirFilter& filter) {
  const Span tag = FindOpeningTag(text, kFilterTag, old.begin);
  if (tag.IsFound() && tag.end <= old.end) {
    SetAttribute(text, tag, "whichfiles", filter.whichFiles);
  } else {
    ReplaceSpan(text, old, Trimmed(FilterLine(filter)));
  }
}

TqString DirOfFilter(const TqString& text, Span filter) {
  TqString dir;
  TqFile::GetUniqueStrAttrFromXmlSnippet(text.Slice(filter.begin, filter.end - filter.begin), "dir", dir);
  return dir;
}

/// Puts whole lines in front of "</do_backup>", which then begins a line of its own.
void AppendFilterLines(TqString& text, const TqString& lines) {
  const std::int32_t end = FindDoBackupContent(text).end;
  const bool startsLine = text.CharAt(end - 1) == '\n';
  text.Insert(end, startsLine ? lines : Joined('\n', lines));
}

bool RefuseTooManyFilters(std::string_view setter) {
  Log("ERROR: ", setter, ", adding more than TQ_INFO_MAX_NUM_DIR_FILTERS=", TQ_INFO_MAX_NUM_DIR_FILTERS,
      " tqdirfilters, so ignoring the rest - location C");
  return false;
}

// --- selected volumes ---

/// Whether a filter's folder lies on the volume; both are lower-cased and end in "/". Everything lies below "/", so
/// what is mounted elsewhere is told apart by its prefix.
bool LiesOn(const TqString& dir, const TqString& mountPoint) {
  if (mountPoint == "/" && dir.StartsWith("/volumes/")) return false;
  return dir.StartsWith(mountPoint);
}

std::size_t CountFilters(const TqString& text) {
  return FindFilters(text, FindDoBackupContent(text)).size();
}

bool HasFilterOn(const TqString& text, const TqString& foldedMountPoint) {
  const std::vector<Span> filters = FindFilters(text, FindDoBackupContent(text));
  return std::any_of(filters.begin(), filters.end(), [&](Span filter) {
    return LiesOn(FoldedMountPoint(DirOfFilter(text, filter)), foldedMountPoint);
  });
}

}  // namespace

bool SetNumDaysWarnWhenNotBackedUp(std::int32_t days) {
  return SetAttributes("SetNumDaysWarnWhenNotBackedUp", "myprefs", {{"numdays_warn_if_no_backup", Joined(days)}});
}

bool SetShowAnimatedHelpTips(bool show) {
  return SetAttributes("SetShowAnimatedHelpTips", "myprefs", {{"show_help_tips", BoolText(show)}});
}

bool SetAllowNetworkTests(bool allow) {
  return SetAttributes("SetAllowNetworkTests", "myprefs", {{"allow_network_tests", BoolText(allow)}});
}

bool SetUseTimeMachineExcludes(bool use) {
  return SetAttributes("SetUseTimeMachineExcludes", "myprefs", {{"use_time_machine_excludes", BoolText(use)}});
}

bool SetScratchVolume(std::string_view vguid, std::string_view mountPoint) {
  SettingsEdit edit("SetScratchVolume");
  if (!edit.IsReadable()) return false;
  if (!FindOpeningTag(edit.Text(), "scratch_drive").IsFound()) {
    const std::int32_t at = edit.Text().Find("<hard_drives_to_backup>");
    if (at < 0) return edit.NotFound("<hard_drives_to_backup>");
    edit.Text().Insert(at, "<scratch_drive />\n\n");
  }
  return edit.Set("scratch_drive", "scratch_vol_guid", vguid) &&
         edit.Set("scratch_drive", "scratch_mountpoint", mountPoint) && edit.Save();
}

bool SetBlockedNetworkList(const std::vector<TqBlockedNetwork>& networks) {
  SettingsEdit edit("SetBlockedNetworkList");
  if (!edit.IsReadable()) return false;
  const TqString lines = NetworkLines(networks);
  if (const Span tag = FindOpeningTag(edit.Text(), kNetworkList); tag.IsFound()) {
    if (!ReplaceNetworkLines(edit.Text(), tag, lines)) return edit.NotFound(Joined("</", kNetworkList, '>'));
    return edit.Save();
  }
  const std::int32_t at = edit.Text().Find("</tqinfo>");
  if (at < 0) return edit.NotFound("</tqinfo>");
  edit.Text().Insert(at, Joined('<', kNetworkList, '>', lines, "</", kNetworkList, ">\n\n"));
  return edit.Save();
}

bool SetOnlineNameForThisComputer(std::string_view name) {
  return SetAttributes("SetOnlineNameForThisComputer", "myidentity",
                       {{"online_hostname", name}, {"online_hostname_updated", TqSystem::NowAsGmtText()}});
}

bool SetFileTypesToExcludeStr(std::string_view extensions) {
  return SetAttributes("SetFileTypesToExcludeStr", "globalexcludes", {{"excludefiletypes", extensions}});
}

bool SetOneTqDirFilter(std::string_view dir, std::string_view whichFiles) {
  SettingsEdit edit("SetOneTqDirFilter");
  if (!edit.IsReadable()) return false;
  const Span content = FindDoBackupContent(edit.Text());
  if (!content.IsFound()) return edit.NotFound("<do_backup");
  const std::vector<Span> filters = FindFilters(edit.Text(), content);
  const TqDirFilter filter{dir, whichFiles};
  for (const Span& old : filters) {
    if (!DirOfFilter(edit.Text(), old).EqualsIgnoreCase(dir)) continue;
    ReplaceFilter(edit.Text(), old, filter);
    return edit.Save();
  }
  if (filters.size() >= TQ_INFO_MAX_NUM_DIR_FILTERS) return RefuseTooManyFilters("SetOneTqDirFilter");
  AppendFilterLines(edit.Text(), FilterLine(filter));
  return edit.Save();
}

bool SaveTqDirFiltersToDisk(const std::vector<TqDirFilter>& filters) {
  SettingsEdit edit("SaveTqDirFiltersToDisk");
  if (!edit.IsReadable()) return false;
  const Span content = FindDoBackupContent(edit.Text());
  if (!content.IsFound()) return edit.NotFound("<do_backup");
  if (filters.size() > TQ_INFO_MAX_NUM_DIR_FILTERS) RefuseTooManyFilters("SaveTqDirFiltersToDisk");
  TqString lines("\n");
  for (std::size_t i = 0; i < std::min<std::size_t>(filters.size(), TQ_INFO_MAX_NUM_DIR_FILTERS); ++i) {
    lines.Append(FilterLine(filters[i]));
  }
  ReplaceSpan(edit.Text(), content, lines);
  return edit.Save();
}

bool SaveSmartWatchCheckboxesLineToDisk(std::string_view fileSets) {
  return SetAttributes("SaveSmartWatchCheckboxesLineToDisk", "smartwatch", {{"smartwatchfilesets", fileSets}});
}

bool SetBackupSchedule(std::string_view type, std::string_view detail, std::string_view endHour) {
  return SetAttributes(
      "SetBackupSchedule", "do_backup",
      {{"backup_schedule_type", type}, {"backup_schedule_detail", detail}, {"backup_schedule_end_hour", endHour}});
}

bool SaveDoBackupLineToDisk(const TqInfoSettings& settings) {
  return SetAttributes("SaveDoBackupLineToDisk", "do_backup",
                       {{"max_filesize_mb", Joined(settings.maxFileSizeMb)},
                        {"backup_on_battery", BoolText(settings.backupOnBattery)},
                        {"net_auto_throttle", BoolText(settings.netAutoThrottle)},
                        {"net_throttle", Joined(settings.netThrottle)},
                        {"num_backup_threads", Joined(settings.numBackupThreads)},
                        {"backup_schedule_type", settings.scheduleType},
                        {"backup_schedule_detail", settings.scheduleDetail},
                        {"backup_schedule_end_hour", settings.scheduleEndHour}});
}

bool SaveUsernamePasswordIntoTqInfoXml(std::string_view login, std::string_view /*password*/) {
  return SetAttributes("SaveUsernamePasswordIntoTqInfoXml", "myidentity", {{"tqlogin", login}});
}

bool WriteSelectedVolumes(const std::vector<TqSelectedVolume>& volumes) {
  if (volumes.empty()) {
    Log("ERROR: TqInfoManager::SetVolumesSelectedForBackup - no volume given, so leaving as it is: ", TqInfoPath());
    return false;
  }
  SettingsEdit edit("SetVolumesSelectedForBackup");
  if (!edit.IsReadable() || !edit.Set("mountpoints", "mountpoints_to_watch", MountPointsText(volumes))) return false;
  const Span tag = FindOpeningTag(edit.Text(), "hard_drives_to_backup");
  const std::int32_t end = tag.IsFound() ? edit.Text().Find("</hard_drives_to_backup>", tag.end) : -1;
  if (end < 0) return edit.NotFound("<hard_drives_to_backup");
  TqString lines("\n");
  for (const TqSelectedVolume& volume : volumes) lines.Append(VolumeLine(volume));
  ReplaceSpan(edit.Text(), {tag.end, end}, lines);
  if (!FindDoBackupContent(edit.Text()).IsFound()) return edit.NotFound("<do_backup");
  for (const TqSelectedVolume& volume : volumes) {
    if (HasFilterOn(edit.Text(), FoldedMountPoint(volume.mountPoint))) continue;
    const std::vector<TqDirFilter> filters = DefaultDirFilters(volume.mountPoint);
    // Readers ignore what goes beyond; "all" without the folders that are left out would be worse than nothing.
    if (CountFilters(edit.Text()) + filters.size() > TQ_INFO_MAX_NUM_DIR_FILTERS) {
      return RefuseTooManyFilters("SetVolumesSelectedForBackup");
    }
    TqString filterLines;
    for (const TqDirFilter& filter : filters) filterLines.Append(FilterLine(filter));
    AppendFilterLines(edit.Text(), filterLines);
  }
  return edit.Save();
}

}  // namespace TqInfoManager
