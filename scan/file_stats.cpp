#include "scan/file_stats.h"

#include "base/clock.h"
#include "base/file_io.h"
#include "base/install_record.h"
#include "base/log.h"
#include "base/system_info.h"
#include "base/xml_snippets.h"
#include "selection/settings.h"

namespace {

constexpr std::int32_t kTableBuckets = 1'000;
constexpr int kMoveTries = 9;
constexpr std::int64_t kMovePauseMillis = 500;
constexpr std::int32_t kLongestWholeName = 30;
constexpr std::int32_t kCutNameLength = 29;

constexpr std::array<TqCategory, kAllCategories> kCategories = {{
    {"docs", "docsnum", "docstotbytes"},
    {"spreadsheets", "spreadsheetsnum", "spreadsheetstotbytes"},
    {"presentations", "presentationsnum", "presentationstotbytes"},
    {"financial", "financialnum", "financialtotbytes"},
    {"pictures", "pictnum", "picttotbytes"},
    {"music", "musicnum", "musictotbytes"},
    {"video", "videonum", "videototbytes"},
    {"email", "emailnum", "emailtotbytes"},
    {"zips", "zipsnum", "zipstotbytes"},
    {"browserfavorites", "browserfavoritesnum", "browserfavoritestotbytes"},
    {"", "othernum", "othertotbytes"},
    {"", "everythingnum", "everythingtotbytes"},
}};

}  // namespace

const TqCategory& CategoryAt(int index) {
  return kCategories[static_cast<std::size_t>(index)];
}

// --- sorting files into categories ---

TqCategoryTables::TqCategoryTables() : categories_(kTableBuckets) {}

void TqCategoryTables::Add(int category, const TqString& extension) {
  last_.Forget();
  std::uint64_t known = kOtherCategory;
  categories_.Lookup(extension.c_str(), known);
  if (static_cast<std::uint64_t>(category) < known) {
    categories_.Insert(extension.c_str(), static_cast<std::uint64_t>(category));
  }
}

int TqCategoryTables::CategoryOf(std::string_view path) const {
  return last_.Of(path, [this](std::string_view extension) {
    std::uint64_t category = kOtherCategory;
    lowerCased_ = extension;
    lowerCased_.LowerCase();
    categories_.Lookup(lowerCased_.c_str(), category);
    return static_cast<int>(category);
  });
}

void ParseTqInfoForFileSetHashes(TqCategoryTables& tables) {
  std::vector<TqInfoManager::FileSetDef> sets;
  TqInfoManager::ReadFileSetDefs(sets);
  for (const TqInfoManager::FileSetDef& set : sets) {
    for (int category = 0; category < kNamedCategories; ++category) {
      if (!set.name.EqualsIgnoreCase(CategoryAt(category).setName)) continue;
      for (const TqString* extension : set.extensions) tables.Add(category, *extension);
    }
  }
}

void AddFileToCategoryTotals(const TqCategoryTables& tables, TqCategoryTotals& totals, std::string_view path,
                             std::int64_t dataSize, std::int64_t rsrcSize) {
  totals.num[kEverythingCategory] += 1;
  totals.totbytes[kEverythingCategory] += dataSize + rsrcSize;

  const auto category = static_cast<std::size_t>(tables.CategoryOf(path));
  totals.num[category] += 1;
  totals.totbytes[category] += dataSize;
  // On purpose: all resource forks are other's bytes, so readers never add the categories up to everything.
  totals.totbytes[kOtherCategory] += rsrcSize;
}

// --- filestats.xml ---

namespace {

/// The value of a hexadecimal digit, or -1.
int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char lower = LowerChar(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

TqString AccountName() {
  const TqInfoSettings& settings = TqInfoManager::Settings();
  TqString name = settings.onlineHostname.IsEmpty() ? settings.login : settings.onlineHostname;
  // On purpose: a name of 30 characters stays whole, a longer one is cut to 29.
  if (name.Length() > kLongestWholeName) name.Truncate(kCutNameLength);
  return name;
}

/// The operating-system text without what follows its second period: "MacOsX-10.15".
std::string_view ShortOsDetail() {
  const TqString& detail = TqSystem::OsDetailText();
  const std::int32_t second = detail.FindChar('.', detail.FindChar('.') + 1);
  return second < 0 ? detail.View() : detail.Slice(0, second);
}

TqString InfoElement(const TqCategoryTotals& totals) {
  const TqString hguid = MyHostGuid();
  const TqString shownHguid = TqFile::XmlEscaped(hguid);
  TqString info = Joined("<info datetime=\"", TqFile::XmlEscaped(TqSystem::NowAsGmtText()), "\" aonlinename=\"",
                         TqFile::XmlEscaped(AccountName()), "\" plat=\"mac\" osdetail=\"",
                         TqFile::XmlEscaped(ShortOsDetail()), "\" hguid=\"", shownHguid, "\" ahguid=\"", shownHguid,
                         "\" ahguidcreated=\"", HostGuidCreationDate(hguid), "\"");
  for (std::size_t i = 0; i < kCategories.size(); ++i) {
    AppendAll(info, " ", kCategories[i].countAttribute, "=\"", totals.num[i], "\" ", kCategories[i].bytesAttribute,
              "=\"", totals.totbytes[i], "\"");
  }
  info.Append(" />");
  return info;
}

TqString FileStatsText(bool isFinal, const TqCategoryTotals& totals) {
  return Joined("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<filestats>\n<progress good_for_installer=\"", isFinal,
                "\" totally_final=\"", isFinal, "\" />\n", InfoElement(totals), "\n</filestats>\n");
}

void MoveIntoPlace(const TqString& temporary, std::string_view path) {
  for (int i = 0; i < kMoveTries; ++i) {
    if (TqFile::AtomicMoveFile(temporary, path)) return;
    TqSystem::SleepMillis(kMovePauseMillis);
  }
  Log("ERROR: WriteFileStatsOut, could not AtomicMove file: ", path);
}

/// The info element as it stands in `text`, or what to log when it cannot be found.
TqString InfoElementIn(const TqString& text) {
  TqStringVector infos;
  if (!TqFile::GetAllXmlSnippetsWithTagNameInXml(text, "info", infos)) return "ERROR, no <info> lines A in XML";
  if (infos.Count() == 0) return "ERROR, no <info> lines Bin XML";
  return infos.At(0);
}

std::int64_t TotalFrom(const TqString& text, std::string_view attribute) {
  TqString value;
  std::int64_t total = 0;
  if (TqFile::GetUniqueStrAttrFromXmlSnippet(text, attribute, value)) ParseInt64(value, total);
  return total;
}

}  // namespace

void WriteFileStatsOut(std::string_view path, bool isFinal, const TqCategoryTotals& totals) {
  const TqString text = FileStatsText(isFinal, totals);
  const TqString temporary = Joined(path, ".tmp");
  if (!TqFile::WriteFileToDiskWithRetry(temporary, text)) {
    Log("ERROR: WriteFileStatsOut, could not write out file: ", temporary);
    return;
  }
  MoveIntoPlace(temporary, path);
  if (path.ends_with(".future")) return;
  Log("Leaving WriteFileStatsXmlOut to final file, stats: ", InfoElementIn(text));
}

bool ReadFileStats(std::string_view path, TqCategoryTotals& totals) {
  TqString text;
  if (!TqFile::ReadFileIntoString(path, text)) return false;
  for (std::size_t i = 0; i < kCategories.size(); ++i) {
    totals.num[i] = TotalFrom(text, kCategories[i].countAttribute);
    totals.totbytes[i] = TotalFrom(text, kCategories[i].bytesAttribute);
  }
  return true;
}

TqString HostGuidCreationDate(std::string_view hguid) {
  constexpr std::string_view kBadDate = "bad_date";
  if (hguid.size() != 24) return kBadDate;
  // The even positions spell six bytes of a little-endian number of milliseconds, two digits a byte.
  std::int64_t millis = 0;
  for (std::size_t byte = 0; byte < 6; ++byte) {
    const int high = HexDigit(hguid[4 * byte]);
    const int low = HexDigit(hguid[4 * byte + 2]);
    if (high < 0 || low < 0) return kBadDate;
    millis |= static_cast<std::int64_t>(high * 16 + low) << (8 * byte);
  }
  TqString date = TqSystem::GmtDateTimeText(millis);
  date.Truncate(8);
  return date.StartsWith("20") ? date : TqString(kBadDate);
}
