#include "Examples/HostApp/Days/Seasons.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <utility>

#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix::hostapp {
namespace {

constexpr double kDaySeconds = 86'400;
constexpr double kSummerSeconds = 120 * kDaySeconds, kYearSeconds = 365 * kDaySeconds;

template <class Value>
double sum(const std::vector<RememberedDay>& days, Value valueOf) {
  return std::transform_reduce(days.begin(), days.end(), 0.0, std::plus(), valueOf);
}

/// The years of days, as "2025/26", or with the months of one year, as "2026-01/03".
/// @param days In the order of their dates, not empty.
/// @param pattern Of the date: the years, and the months if they are shown.
std::string nameOf(const std::vector<RememberedDay>& days, const char* pattern) {
  const platform::DateFormatter date(pattern, platform::Locale("en_US_POSIX"));
  const auto dateOf = [&](const RememberedDay& day) {
    return date.stringFrom(platform::dateSince1970(day.startSeconds));
  };
  const std::string first = dateOf(days.front()), last = dateOf(days.back());
  if (first == last) return first;
  return fmt::format("{}/{}", first,
                     last.substr(last.size() - std::min<std::size_t>(2, last.size())));
}

}  // namespace

double Season::descentMeters() const {
  return sum(days, [](const RememberedDay& day) { return day.descentMeters.value_or(0); });
}

double Season::distanceMeters() const {
  return sum(days, [](const RememberedDay& day) { return day.distanceMeters; });
}

std::uint64_t Season::runs() const {
  std::uint64_t runs = 0;
  for (const RememberedDay& day : days) runs += day.runs.value_or(0);
  return runs;
}

double Season::maxSpeedMetersPerSecond() const {
  double most = 0;
  for (const RememberedDay& day : days) {
    most = std::max(most, day.maxSpeedMetersPerSecond.value_or(0));
  }
  return most;
}

std::vector<Season> seasonsOf(std::vector<RememberedDay> days) {
  std::ranges::stable_sort(days, {}, &RememberedDay::startSeconds);
  std::vector<Season> seasons;
  for (RememberedDay& day : days) {
    const bool continues =
        !seasons.empty() &&
        day.startSeconds - seasons.back().days.back().startSeconds < kSummerSeconds &&
        day.startSeconds - seasons.back().days.front().startSeconds < kYearSeconds;
    if (!continues) seasons.emplace_back();
    seasons.back().days.push_back(std::move(day));
  }
  for (Season& season : seasons) season.name = nameOf(season.days, "y");
  // Seasons within one year, as before and after a northern summer.
  for (std::size_t i = 1; i < seasons.size(); ++i) {
    const std::string name = seasons[i].name;
    if (seasons[i - 1].name.substr(0, name.size()) != name) continue;
    for (const std::size_t each : {i - 1, i})
      seasons[each].name = nameOf(seasons[each].days, "y-MM");
  }
  for (Season& season : seasons) std::ranges::reverse(season.days);
  std::ranges::reverse(seasons);
  return seasons;
}

}  // namespace ombrix::hostapp
