#pragma once

// The command table: what the first argument means. Only the first argument selects; the second and third are its
// operands.

#include <cstdio>
#include <span>
#include <string_view>

#include "base/vector.h"

/// What a command works with: its operands and where it prints.
struct TqCommandCall {
  std::string_view word;            ///< as typed
  const TqStringVector& arguments;  ///< all arguments, the word at index 0
  std::FILE* out;                   ///< standard output
  std::FILE* err;                   ///< standard error (usage text alone)
};

struct TqCommand {
  std::string_view word;
  int operandsNeeded;               ///< with fewer the command does not match and testing goes on
  bool beforeSettings;              ///< tested before the settings are loaded
  bool matchesByPrefix;             ///< any word that begins so (-h)
  int (*run)(TqCommandCall& call);  ///< gives the exit status
};

/// In the order of testing.
std::span<const TqCommand> Commands();
/// The command that the call selects among those before or after the loading of the settings, or null.
const TqCommand* FindCommand(const TqStringVector& arguments, bool beforeSettings);

/// Prints `text`, with exactly one line end behind it.
void PrintLine(std::FILE* out, std::string_view text);
