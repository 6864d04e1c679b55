#pragma once

#include <cstdio>
#include <string_view>

#include "base/log.h"
#include "base/string.h"
#include "base/vector.h"
#include "scan/run_state.h"

/// Prints `text`, with exactly one line end behind it.
void PrintLine(std::FILE* out, std::string_view text);

/// What a command works with: its operands, where it prints, and the run state for those that lead into the scan run.
struct TqCommandCall {
  std::string_view programFile;     ///< as the process was started
  const TqStringVector& arguments;  ///< all arguments, the command's word at index 0
  std::FILE* out;                   ///< standard output
  std::FILE* err;                   ///< standard error (usage text alone)
  TqRunState& run;

  std::string_view Word() const { return arguments.At(0); }
  /// An operand is present by word count alone; an empty text is one.
  std::int32_t OperandCount() const { return arguments.Count() - 1; }
  /// Operand `number`, from 1 on; empty when it is missing.
  const TqString& Operand(std::int32_t number) const { return arguments.At(number); }

  /// Prints the joined pieces as one text, with exactly one line end behind it.
  template <typename... Pieces>
  void Print(const Pieces&... pieces) const {
    PrintLine(out, Joined(pieces...));
  }
  /// The same, and logs the text (without the added line end).
  template <typename... Pieces>
  void LogAndPrint(const Pieces&... pieces) const {
    const TqString text = Joined(pieces...);
    TqLog::LogLine(text);
    PrintLine(out, text);
  }
};
