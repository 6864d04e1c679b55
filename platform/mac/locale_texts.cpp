#include "platform/mac/locale_texts.h"

#include <string>

#include "platform/mac/cf_holder.h"
#include "platform/mac/cf_values.h"

namespace platform {
namespace {

constexpr double kSampleSeconds = 1'622'118'896;  // 2021-05-27 12:34:56 GMT, since 1970

/// Core Foundation counts from 2001.
CFAbsoluteTime SampleTime() {
  return kSampleSeconds - kCFAbsoluteTimeIntervalSince1970;
}

/// The sample moment in GMT; an empty text when the system gives no formatter.
std::string SampleText(CFLocaleRef locale, CFDateFormatterStyle dateStyle, CFDateFormatterStyle timeStyle) {
  const CfHolder<CFDateFormatterRef> formatter(
      CFDateFormatterCreate(kCFAllocatorDefault, locale, dateStyle, timeStyle));
  const CfHolder<CFTimeZoneRef> gmt(CFTimeZoneCreateWithTimeIntervalFromGMT(kCFAllocatorDefault, 0));
  if (!formatter || !gmt) return {};
  CFDateFormatterSetProperty(formatter.Get(), kCFDateFormatterTimeZone, gmt.Get());
  const CfHolder<CFStringRef> text(
      CFDateFormatterCreateStringWithAbsoluteTime(kCFAllocatorDefault, formatter.Get(), SampleTime()));
  return TextOf(text.Get()).value_or("");
}

std::string FirstPreferredLanguage() {
  const CfHolder<CFArrayRef> languages(CFLocaleCopyPreferredLanguages());
  if (!languages || CFArrayGetCount(languages.Get()) == 0) return {};
  const auto first = CfCast<CFStringRef>(CFArrayGetValueAtIndex(languages.Get(), 0), CFStringGetTypeID());
  return TextOf(first).value_or("");
}

}  // namespace

LocaleTexts CurrentLocaleTexts() {
  const CfHolder<CFLocaleRef> locale(CFLocaleCopyCurrent());
  LocaleTexts texts;
  texts.preferredLocale = FirstPreferredLanguage();
  if (!locale) return texts;
  texts.systemLocale = TextOf(CFLocaleGetIdentifier(locale.Get())).value_or("");
  texts.dateTimeSample = SampleText(locale.Get(), kCFDateFormatterMediumStyle, kCFDateFormatterShortStyle);
  texts.timeSample = SampleText(locale.Get(), kCFDateFormatterNoStyle, kCFDateFormatterShortStyle);
  texts.dateSample = SampleText(locale.Get(), kCFDateFormatterMediumStyle, kCFDateFormatterNoStyle);
  return texts;
}

std::string DecimalText(std::int64_t number) {
  const CfHolder<CFLocaleRef> locale(CFLocaleCopyCurrent());
  if (!locale) return std::to_string(number);
  const CfHolder<CFNumberFormatterRef> formatter(
      CFNumberFormatterCreate(kCFAllocatorDefault, locale.Get(), kCFNumberFormatterDecimalStyle));
  if (!formatter) return std::to_string(number);
  const CfHolder<CFStringRef> text(
      CFNumberFormatterCreateStringWithValue(kCFAllocatorDefault, formatter.Get(), kCFNumberSInt64Type, &number));
  return TextOf(text.Get()).value_or(std::to_string(number));
}

}  // namespace platform
