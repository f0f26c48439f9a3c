#include "OmbrixPlatform/Measure/NSDateComponentsFormatter.hpp"

#include <algorithm>
#include <array>
#include <span>

#include "OmbrixPlatform/Measure/Detail/IcuDurationFormat.hpp"

namespace ombrix::platform {
namespace {

using detail::DurationPart;
using detail::IcuDurationFormat;
using detail::Int128;
using detail::kDurationUnitCount;
using Style = NSDateComponentsFormatterUnitsStyle;
using ZeroFormattingBehavior = NSDateComponentsFormatterZeroFormattingBehavior;

constexpr std::array kUnits{NSCalendarUnit::day, NSCalendarUnit::hour, NSCalendarUnit::minute,
                            NSCalendarUnit::second};
constexpr std::array<std::int64_t, kDurationUnitCount> kSecondsPerUnit{86'400, 3'600, 60, 1};
constexpr std::size_t kDayIndex = 0;

/// The parts of a span, the largest first; at most one for each unit.
struct Parts {
  std::array<DurationPart, kDurationUnitCount> parts;
  std::size_t count = 0;

  void push(DurationPart part) { parts[count++] = part; }
  [[nodiscard]] std::span<DurationPart> all() { return std::span(parts).first(count); }
};

Int128 secondsOf(const NSDateComponents& components) {
  const std::array amounts{components.day, components.hour, components.minute, components.second};
  Int128 seconds = 0;
  for (std::size_t i = 0; i < kDurationUnitCount; ++i) {
    seconds += static_cast<Int128>(amounts[i].value_or(0)) * kSecondsPerUnit[i];
  }
  return seconds;
}

Parts spread(Int128 seconds, NSCalendarUnit allowed) {
  Parts parts;
  for (std::size_t i = 0; i < kDurationUnitCount; ++i) {
    if (!contains(allowed, kUnits[i])) continue;
    parts.push({i, seconds / kSecondsPerUnit[i]});
    seconds %= kSecondsPerUnit[i];
  }
  return parts;
}

bool isZero(const DurationPart& part) { return part.amount == 0; }

Parts withoutZeros(Parts all, Style style, ZeroFormattingBehavior behavior) {
  const bool keepsInnerZeros =
      style == Style::positional || behavior == ZeroFormattingBehavior::dropLeading;
  Parts kept;
  for (const DurationPart& part : all.all()) {
    if (!isZero(part) || (keepsInnerZeros && kept.count > 0)) kept.push(part);
  }
  if (kept.count == 0) kept.push(all.all().back());
  return kept;
}

IcuDurationFormat::Width widthOf(Style style) {
  switch (style) {
    case Style::positional:
    case Style::abbreviated:
      return IcuDurationFormat::Width::narrow;
    case Style::shortStyle:
      return IcuDurationFormat::Width::abbreviated;
    case Style::full:
      return IcuDurationFormat::Width::wide;
  }
  return IcuDurationFormat::Width::narrow;
}

}  // namespace

NSDateComponentsFormatter::NSDateComponentsFormatter()
    : allowedUnits_(NSCalendarUnit::day | NSCalendarUnit::hour | NSCalendarUnit::minute |
                    NSCalendarUnit::second),
      unitsStyle_(Style::positional),
      zeroFormattingBehavior_(ZeroFormattingBehavior::defaultBehavior) {}

NSDateComponentsFormatter::~NSDateComponentsFormatter() = default;

const IcuDurationFormat* NSDateComponentsFormatter::currentFormat() {
  const Locale locale = locale_ ? *locale_ : Locale::current();
  if (formatLocale_ != locale) {
    format_ = IcuDurationFormat::shared(locale);
    formatLocale_ = locale;
  }
  return format_.get();
}

std::optional<std::string> NSDateComponentsFormatter::stringFrom(
    const NSDateComponents& components) {
  const IcuDurationFormat* format = currentFormat();
  const detail::Int128 seconds = secondsOf(components);
  const bool isNegative = seconds < 0;
  Parts all = spread(isNegative ? -seconds : seconds, allowedUnits_);
  if (format == nullptr || all.count == 0) return std::nullopt;

  Parts parts = withoutZeros(all, unitsStyle_, zeroFormattingBehavior_);
  if (isNegative) parts.parts[0].amount = -parts.parts[0].amount;

  const auto shown = parts.all();
  const bool hasClockReading = shown.size() == 1 || shown.front().unit != kDayIndex;
  if (unitsStyle_ == Style::positional && hasClockReading) return format->positional(shown);
  return format->labelled(shown, widthOf(unitsStyle_));
}

std::optional<std::string> NSDateComponentsFormatter::string(const FormatterObject& object) {
  const NSDateComponents* components = object.dateComponents();
  return components == nullptr ? std::nullopt : stringFrom(*components);
}

}  // namespace ombrix::platform
