#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// What a fuzz target defines: tries one input and aborts when a promise is broken. The result is always 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Inputs from which the driver starts; libFuzzer finds its own.
std::vector<std::vector<std::uint8_t>> BuiltInInputs();
