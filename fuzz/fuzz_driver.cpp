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

/// Changes one thing: a byte, a run of bytes, or the length.
void Vary(Input& input, std::mt19937& random) {
  const auto below = [&random](std::size_t bound) { return bound == 0 ? 0 : random() % bound; };
  const std::size_t at = below(input.size());
  const auto from = input.begin() + static_cast<std::ptrdiff_t>(at);
  switch (random() % 5) {
    case 0:
      if (!input.empty()) input[at] = static_cast<std::uint8_t>(random());
      break;
    case 1:
      if (!input.empty()) input[at] = kEdgeBytes[below(std::size(kEdgeBytes))];
      break;
    case 2:
      std::fill_n(from, std::min<std::size_t>(below(9), input.size() - at), kEdgeBytes[below(std::size(kEdgeBytes))]);
      break;
    case 3:
      input.resize(at);
      break;
    default:
      input.resize(std::min(kLongestInput, input.size() + below(64)), static_cast<std::uint8_t>(random()));
      break;
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
