#include "scan/command_call.h"

void PrintLine(std::FILE* out, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), out);
  if (!text.ends_with('\n')) std::fputc('\n', out);
}
