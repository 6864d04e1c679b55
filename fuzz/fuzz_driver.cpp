// Runs a fuzz target without libFuzzer: its built-in inputs, then variations of them that are the same in every run.

#include <algorithm>
#include <cstdio>
#include <random>

#include "fuzz/fuzz_target.h"

namespace {

using Input = std::vector<std::uint8_t>;

constexpr int kVariations = 20'000;
constexpr std::size_t kLongestInput = 512;

/// Bytes that are likely to upset arithmetic.
constexpr std::uint8_t kEdgeBytes[] = {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF};

/// Changes one thing: a run of bytes, or the length.
void Vary(Input& input, std::mt19937& random) {
  const bool isEdge = random() % 2 == 0;
  const auto byte = isEdge ? kEdgeBytes[random() % std::size(kEdgeBytes)] : static_cast<std::uint8_t>(random());
  const std::size_t at = random() % (input.size() + 1);
  const std::size_t run = std::min(isEdge ? random() % 9 : 1, input.size() - at);
  const auto length = random() % 2 == 0 ? at : std::min(kLongestInput, input.size() + random() % 64);
  if (random() % 5 < 3) {
    std::fill_n(input.begin() + static_cast<std::ptrdiff_t>(at), run, byte);
  } else {
    input.resize(length, byte);
  }
}

}  // namespace

int main() {
  const std::vector<Input> inputs = BuiltInInputs();
  for (const Input& input : inputs) LLVMFuzzerTestOneInput(input.data(), input.size());
  std::mt19937 random(1);
  for (int i = 0; i < kVariations; ++i) {
    Input input = inputs[random() % inputs.size()];
    for (std::size_t changes = 1 + random() % 4; changes > 0; --changes) Vary(input, random);
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::printf("%zu inputs and %d variations of them tried\n", inputs.size(), kVariations);
}
