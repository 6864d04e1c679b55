#include "scan/command_call.h"

void TqCommandCall::PrintText(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  if (!text.ends_with('\n')) std::fputc('\n', stream);
}
