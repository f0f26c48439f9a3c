#include <fmt/format.h>

#include <chrono>
#include <cmath>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"

namespace ombrix::detail {
namespace {

/// Reads digits at the front of a text and removes them.
std::optional<int> takeDigits(std::string_view& text, std::size_t count) {
  if (text.size() < count) return std::nullopt;
  int value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (text[i] < '0' || text[i] > '9') return std::nullopt;
    value = value * 10 + (text[i] - '0');
  }
  text.remove_prefix(count);
  return value;
}

bool take(std::string_view& text, char character) {
  if (text.empty() || text.front() != character) return false;
  text.remove_prefix(1);
  return true;
}

}  // namespace

std::optional<platform::Date> timeFromText(std::string_view text) {
  const auto year = takeDigits(text, 4);
  if (!year || !take(text, '-')) return std::nullopt;
  const auto month = takeDigits(text, 2);
  if (!month || !take(text, '-')) return std::nullopt;
  const auto day = takeDigits(text, 2);
  if (!day || !(take(text, 'T') || take(text, ' '))) return std::nullopt;
  const auto hour = takeDigits(text, 2);
  if (!hour || !take(text, ':')) return std::nullopt;
  const auto minute = takeDigits(text, 2);
  if (!minute || !take(text, ':')) return std::nullopt;
  const auto second = takeDigits(text, 2);
  const std::chrono::year_month_day date{std::chrono::year{*year},
                                         std::chrono::month{static_cast<unsigned>(*month)},
                                         std::chrono::day{static_cast<unsigned>(*day)}};
  if (!second || !date.ok() || *minute > 59 || *second > (*minute == 59 ? 60 : 59)) {
    return std::nullopt;  // a leap second ends an hour
  }
  if (*hour > 24 || (*hour == 24 && (*minute > 0 || *second > 0))) return std::nullopt;
  double seconds = *hour * 3600.0 + *minute * 60.0 + *second;
  if (!text.empty() && (text.front() == '.' || text.front() == ',')) {
    const std::size_t digits = text.find_first_not_of("0123456789", 1);
    const std::string_view fraction = text.substr(1, digits == text.npos ? digits : digits - 1);
    if (fraction.empty() || fraction.size() > 18) return std::nullopt;
    seconds += platform::doubleFromText("0." + std::string(fraction)).value_or(0);
    text.remove_prefix(fraction.size() + 1);
  }
  constexpr int kMostOffsetMinutes = 14 * 60;  // of any place
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    const double sign = text.front() == '+' ? -1 : 1;
    text.remove_prefix(1);
    const auto hours = takeDigits(text, 2);
    take(text, ':');
    const auto minutes = takeDigits(text, 2);
    if (!hours || !minutes || *minutes > 59 || *hours * 60 + *minutes > kMostOffsetMinutes) {
      return std::nullopt;
    }
    seconds += sign * (*hours * 3600.0 + *minutes * 60.0);
  } else {
    take(text, 'Z');
  }
  if (!text.empty()) return std::nullopt;
  const auto days = std::chrono::sys_days(date).time_since_epoch().count();
  return platform::dateSince1970(static_cast<double>(days) * 86'400 + seconds);
}

bool hasTimeText(platform::Date time) {
  constexpr double kYear0 = -62'167'219'200, kYear10000 = 253'402'300'800;
  const double exact = platform::timeIntervalSince1970(time);
  return exact >= kYear0 && exact < kYear10000 - 1;
}

std::string timeText(platform::Date time) {
  if (!hasTimeText(time)) return {};
  const double exact = platform::timeIntervalSince1970(time);
  const auto micros = static_cast<std::int64_t>(std::llround(exact * 1e6));
  const std::chrono::sys_time<std::chrono::microseconds> at{std::chrono::microseconds(micros)};
  const auto day = std::chrono::floor<std::chrono::days>(at);
  const std::chrono::year_month_day date{day};
  const auto rest = (at - day).count();
  std::string text =
      fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  rest / 3'600'000'000, rest / 60'000'000 % 60, rest / 1'000'000 % 60);
  if (const auto fraction = rest % 1'000'000; fraction % 1000 != 0) {
    text += fmt::format(".{:06}", fraction);
  } else if (fraction != 0) {
    text += fmt::format(".{:03}", fraction / 1000);
  }
  return text + 'Z';
}

std::string decimalText(double value, int decimals) {
  std::string text = fmt::format("{:.{}f}", value, decimals);
  if (text.find('.') != text.npos) {
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
  }
  return text == "-0" ? "0" : text;
}

}  // namespace ombrix::detail
