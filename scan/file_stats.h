#pragma once

// Totals per file category, the tables that sort a file into one by its extension, and filestats.xml.

#include <array>
#include <cstdint>
#include <string_view>

#include "base/hash_table.h"
#include "base/remembered_extension.h"
#include "base/string.h"

/// The ten named categories in the order of their tables, then other and everything.
inline constexpr int kNamedCategories = 10;
inline constexpr int kOtherCategory = 10;
inline constexpr int kEverythingCategory = 11;
inline constexpr int kAllCategories = 12;

struct TqCategory {
  std::string_view setName;  ///< in the settings; empty for other and everything
  std::string_view countAttribute;
  std::string_view bytesAttribute;
};
const TqCategory& CategoryAt(int index);

/// Files and bytes per category.
struct TqCategoryTotals {
  std::array<std::int64_t, kAllCategories> num{};
  std::array<std::int64_t, kAllCategories> totbytes{};
};

/// Extension (lower-case, without the period) to category.
class TqCategoryTables {
 public:
  TqCategoryTables();
  /// Puts an extension (lower-case) into a category's table. One that stands in several counts for the first category.
  void Add(int category, const TqString& extension);
  /// The category of a file by its path: one of the ten, or kOtherCategory.
  int CategoryOf(std::string_view path) const;

 private:
  TqHashTable categories_;  ///< the ten tables in one: a file costs one look-up
  mutable TqRememberedExtension<int> last_{kOtherCategory};
  mutable TqString lowerCased_;  ///< scratch, so that a file costs no allocation
};

/// Fills the ten tables from the settings file's `filesetdef` elements (problems are logged; tables stay empty then).
void ParseTqInfoForFileSetHashes(TqCategoryTables& tables);

/// Counts one wanted file: everything gets both forks, the category the data fork, other every resource fork (on
/// purpose).
void AddFileToCategoryTotals(const TqCategoryTables& tables, TqCategoryTotals& totals, std::string_view path,
                             std::int64_t dataSize, std::int64_t rsrcSize);

/// Writes the totals as XML by temporary file and rename; failures are logged, the previous file stays.
void WriteFileStatsOut(std::string_view path, bool isFinal, const TqCategoryTotals& totals);
/// Takes each total from its attribute, missing ones count 0; false when the file cannot be read.
bool ReadFileStats(std::string_view path, TqCategoryTotals& totals);

/// "YYYYMMDD" from a host GUID's time digits, or "bad_date".
TqString HostGuidCreationDate(std::string_view hguid);
