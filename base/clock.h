#pragma once

#include <cstdint>

#include "base/string.h"

namespace TqSystem {

/// Milliseconds since 1970 GMT; 0 when the clock cannot be read.
std::int64_t NowGmtMillis();
/// The local zone's present offset from GMT in milliseconds.
std::int64_t LocalOffsetMillis();
/// gmtMillis + LocalOffsetMillis().
std::int64_t LocalMillis(std::int64_t gmtMillis);
/// Flushes standard output, then sleeps.
void SleepMillis(std::int64_t millis);
/// The same for pauses below a millisecond.
void SleepMicros(std::int64_t micros);

/// 14 digits YYYYMMDDhhmmss in GMT; milliseconds are rounded down, also before 1970.
TqString GmtDateTimeText(std::int64_t millis);
/// In a strftime format, GMT; a result above 100 characters gives an empty text.
TqString GmtDateTimeText(std::int64_t millis, const char* format);
TqString NowAsGmtText();
TqString NowAsLocalText();

inline constexpr std::int64_t kMillisPerDay = 86'400'000;
inline constexpr std::int32_t kMaxDays = 9001;
/// Whole days between two times: absolute difference, rounded down, without a limit.
std::uint64_t WholeDaysBetween(std::int64_t millisA, std::int64_t millisB);
/// Whole days between two times (absolute difference, rounded down); above 777,772,799,999 ms it is kMaxDays.
std::int32_t DaysBetween(std::int64_t millisA, std::int64_t millisB);

}  // namespace TqSystem
