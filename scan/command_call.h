#pragma once

#include <cstdio>
#include <string_view>

#include "base/log.h"
#include "base/string.h"
#include "base/vector.h"

/// What a command works with: its words and where it prints.
struct TqCommandCall {
  const TqStringVector& arguments;  ///< the command word at index 0, operands behind it; more are ignored
  std::string_view programPath;     ///< the process's own first command-line word
  std::FILE* out = stdout;
  std::FILE* err = stderr;  ///< usage text alone

  std::string_view Word() const { return arguments.At(0); }
  /// Operand `number`, from 1; an empty text when missing. Presence is by word count alone: an empty word is an
  /// operand.
  const TqString& Operand(std::int32_t number) const { return arguments.At(number); }
  bool HasOperand(std::int32_t number) const { return arguments.Count() > number; }

  /// Prints the joined pieces, with exactly one line end behind them.
  template <typename... Pieces>
  void Print(const Pieces&... pieces) const {
    PrintText(out, Joined(pieces...));
  }
  /// The same, and logs the text (without the added line end).
  template <typename... Pieces>
  void LogAndPrint(const Pieces&... pieces) const {
    const TqString text = Joined(pieces...);
    TqLog::LogLine(text);
    PrintText(out, text);
  }
  static void PrintText(std::FILE* stream, std::string_view text);
};
