#pragma once

namespace TqUiUtil {

/// Touches every external volume that is selected for backup, so that sleeping drives spin up, and keeps a small
/// per-day ping log in its identity folder. Creates no folder, touches regular files only. Nothing stops it; the
/// outcome is in three log lines.
void PingDrivesThatAreSelectedForBackup();

}  // namespace TqUiUtil
