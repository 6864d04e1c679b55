#pragma once

// Directories that a walk never enters, whatever the user's rules say: paths that no other program could use, and other
// backups.

#include "base/string.h"

/// Whether the directory is kept out; logs why.
bool IsSkippedDir(const TqString& path);
