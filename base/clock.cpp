#include "base/clock.h"

#include <cstdio>
#include <ctime>

#include "platform/platform.h"

namespace {

constexpr std::int64_t kMillisPerSecond = 1000;
constexpr std::size_t kMaxFormattedLength = 100;

// Rounds towards the past, so that times before 1970 keep their second.
std::int64_t WholeSeconds(std::int64_t millis) {
  const std::int64_t seconds = millis / kMillisPerSecond;
  return millis % kMillisPerSecond < 0 ? seconds - 1 : seconds;
}

bool CalendarTime(std::int64_t millis, std::tm& calendar) {
  const auto seconds = static_cast<std::time_t>(WholeSeconds(millis));
  return gmtime_r(&seconds, &calendar) != nullptr;
}

}  // namespace

namespace TqSystem {

std::int64_t NowGmtMillis() {
  return platform::TheMachine().NowMillis();
}

std::int64_t LocalOffsetMillis() {
  platform::Machine& machine = platform::TheMachine();
  return machine.LocalOffsetSeconds(WholeSeconds(machine.NowMillis())) * kMillisPerSecond;
}

std::int64_t LocalMillis(std::int64_t gmtMillis) {
  return gmtMillis + LocalOffsetMillis();
}

void SleepMillis(std::int64_t millis) {
  SleepMicros(millis * 1000);
}

void SleepMicros(std::int64_t micros) {
  std::fflush(stdout);
  if (micros > 0) platform::TheMachine().SleepMicros(micros);
}

TqString GmtDateTimeText(std::int64_t millis) {
  std::tm calendar = {};
  if (!CalendarTime(millis, calendar)) return {};
  char text[kMaxFormattedLength + 1];
  std::snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02d", calendar.tm_year + 1900, calendar.tm_mon + 1,
                calendar.tm_mday, calendar.tm_hour, calendar.tm_min, calendar.tm_sec);
  return text;
}

TqString GmtDateTimeText(std::int64_t millis, const char* format) {
  std::tm calendar = {};
  if (!CalendarTime(millis, calendar)) return {};
  char text[kMaxFormattedLength + 1];
  return std::string_view(text, std::strftime(text, sizeof text, format, &calendar));
}

TqString NowAsGmtText() {
  return GmtDateTimeText(NowGmtMillis());
}

TqString NowAsLocalText() {
  return GmtDateTimeText(LocalMillis(NowGmtMillis()));
}

std::uint64_t WholeDaysBetween(std::int64_t millisA, std::int64_t millisB) {
  const auto a = static_cast<std::uint64_t>(millisA);
  const auto b = static_cast<std::uint64_t>(millisB);
  return (millisA > millisB ? a - b : b - a) / std::uint64_t{kMillisPerDay};
}

std::int32_t DaysBetween(std::int64_t millisA, std::int64_t millisB) {
  const std::uint64_t days = WholeDaysBetween(millisA, millisB);
  return days > std::uint64_t{kMaxDays} ? kMaxDays : static_cast<std::int32_t>(days);
}

}  // namespace TqSystem
