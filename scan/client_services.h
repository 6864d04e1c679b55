#pragma once

// The few reads of the client's other services that a scan run needs, and the two reports it leaves for them.

#include "base/string.h"

namespace TqClientVersionManager {

/// Whether this version has reached its end of life: the first line of <data>/tqreports/tqclient_end_of_life.txt,
/// trimmed, equals the version string.
bool IsEndOfLife();

}  // namespace TqClientVersionManager

namespace TqUiUtil {

/// The most recent finalized version-history retention setting; false when there is none.
bool TqRollback_GetMostCurrentFinalizedHistoryUxeString(TqString& retention);

}  // namespace TqUiUtil

/// The login that the backup service runs as: the first line of <data>/tqreports/tqserv_runs_as.txt, else "tqunknown".
TqString ServiceLoginName();

/// Writes <data>/tqreports/tqstat_progs.txt: "yes_" and the markers of the known programs found on disk, or "no_none".
void CreateInstalledProgramsReport();

/// Writes <data>/tqreports/tqserv_perm_report.txt: whether the service's login can read what it needs to read. False
/// (logged) when it could not be written.
bool CreateServicePermissionReport();
