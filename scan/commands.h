#pragma once

// The command table: what the first argument means. Only the first argument selects; the second and third are its
// operands, further ones are ignored.

#include <span>

#include "base/vector.h"
#include "scan/command_call.h"

/// When a command is tested.
enum class TqStage { kBeforeSettings, kAfterSettings };

/// What becomes of a command with too few operands.
enum class TqTooFew {
  kIsTold,        ///< "Must have additional arg for: " + word, status 0
  kFallsThrough,  ///< it does not match, testing goes on
};

struct TqCommand {
  std::string_view word;
  int (*run)(TqCommandCall& call);  ///< gives the exit status
  TqStage stage = TqStage::kAfterSettings;
  std::int32_t operandsNeeded = 0;
  TqTooFew tooFew = TqTooFew::kIsTold;
  bool matchesByPrefix = false;  ///< any word that begins so
};

/// In the order of testing.
std::span<const TqCommand> Commands();
/// The command that the arguments select in that stage, or null.
const TqCommand* FindCommand(const TqStringVector& arguments, TqStage stage);
/// Runs it, or tells that operands are missing; gives the exit status.
int RunCommandOfTable(const TqCommand& command, TqCommandCall& call);
