#pragma once

#include <string_view>

#include "base/string.h"

/// Appends to `reportPath` a report for support staff that tells why a file is or is not being backed up. `file` is any
/// part of a listed path; case matters. False when the report could not be written; `diagnosis` gets the primary
/// diagnosis in every case.
bool TqExplainFile(const TqString& file, const TqString& reportPath, TqString& diagnosis);
