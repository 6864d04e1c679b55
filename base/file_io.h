#pragma once

// How every state file is written and read. Writers answer false and leave the previous file in place; only the
// retrying forms log. A temporary file counts as written only when its size on disk equals the text's length, so a full
// disk never replaces a good file.

#include <cstdint>
#include <string_view>

#include "base/string.h"
#include "base/vector.h"

namespace TqFile {

/// Whether `path` may be written: it does not exist, or is no directory and (on a system of 10.9 or later) neither
/// special, nor a Finder alias, nor hard-linked. Keeps the program from writing through links.
bool IsAppropriateToModifyFile(std::string_view path);

/// Truncates and writes; sets mode 0666. False when the overwrite check or the open fails, or on null arguments; a
/// failed write is not told here (see WriteWholeFile).
bool WriteFileToDisk(const char* path, const char* buffer, std::int64_t size);
/// WriteFileToDisk, and the size on disk is then compared with `text`: a file that is not whole is deleted and counts
/// as failed.
bool WriteWholeFile(std::string_view path, std::string_view text);
/// Appends and sets mode 0666; an empty text only makes the overwrite check. True only when open, whole write and close
/// succeeded.
bool AppendStringToFile(std::string_view path, std::string_view text);

/// Up to 10 attempts of WriteWholeFile, 100 ms apart.
bool WriteFileToDiskWithRetry(std::string_view path, std::string_view text);
/// `rename`; false if either path is empty.
bool AtomicMoveFile(std::string_view from, std::string_view to);
/// Up to 10 attempts, 100 ms apart.
bool AtomicMoveFileWithRetry(std::string_view from, std::string_view to);
/// The atomic swap in: writes path + ".tmp", then renames it onto `path`; both with retry.
bool WriteFileAndSwapIn(std::string_view path, std::string_view text);
/// Writes path + ".tmp" in up to `writeTries` attempts and renames it in up to `moveTries`, pausing `pauseMillis` after
/// each failed one; silent. A temporary file that could not be written is deleted, before the next attempt, too.
enum class SwapResult { kDone, kWriteFailed, kMoveFailed };
SwapResult SwapInQuietly(std::string_view path, std::string_view text, int writeTries, int moveTries,
                         std::int64_t pauseMillis);

/// Creates an empty file "/tmp/<prefix>XXXXXX<suffix>" of mode 0600 under a name nobody has; its path, empty on
/// failure.
TqString MakeTempFile(std::string_view prefix, std::string_view suffix);

/// Unlinks; true when the name is gone afterwards.
bool DeleteFile(std::string_view path);

/// The file's bytes and a terminating NUL in a buffer from the C allocator that the caller frees, or null (logged).
char* ReadLargeFileIntoBuf(const char* fileName, std::int64_t* numBytesReturned);
/// The file's bytes as a text (files above 2,147,483,622 bytes fail). An existing empty file gives "" and true.
/// `content` is emptied on failure.
bool ReadFileIntoString(std::string_view path, TqString& content);
/// The file's first line, without line end, trimmed; false when it cannot be read or is empty.
bool ReadFirstLine(std::string_view path, TqString& line);

}  // namespace TqFile
