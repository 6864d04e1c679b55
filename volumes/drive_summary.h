#pragma once

#include "base/string.h"

namespace TqUiUtil {

/// The one text behind listing, scan run and ping: which drives are in the backup and which are not (XML-escaped), and
/// its abbreviation.
void GetHardDriveSummary(TqString& summary, TqString& abbreviation);

}  // namespace TqUiUtil
