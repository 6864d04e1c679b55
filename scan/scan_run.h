#pragma once

#include "scan/run_state.h"

/// The scan run, from the self-destruct check to the release of the lock; ends the process with its exit status. At
/// most one runs at a time on a machine (scan lock).
[[noreturn]] void RunScan(TqRunState& run);
