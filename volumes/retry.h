#pragma once

#include <cstdint>

#include "base/clock.h"

/// Calls `attempt(number)`, numbers from 1, until it answers true, at most `tries` times with a pause between two
/// calls. The answer of the last call.
template <typename Attempt>
bool Retry(int tries, std::int64_t pauseMillis, Attempt attempt) {
  for (int number = 1;; ++number) {
    if (attempt(number)) return true;
    if (number >= tries) return false;
    TqSystem::SleepMillis(pauseMillis);
  }
}
