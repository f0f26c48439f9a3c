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

/// @param days In the order of their dates, not empty.
std::string nameOf(const std::vector<RememberedDay>& days) {
  const platform::DateFormatter year("y", platform::Locale("en_US_POSIX"));
  const auto yearOf = [&](const RememberedDay& day) {
    return year.stringFrom(platform::dateSince1970(day.startSeconds));
  };
  const std::string first = yearOf(days.front()), last = yearOf(days.back());
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
  for (Season& season : seasons) {
    season.name = nameOf(season.days);
    std::ranges::reverse(season.days);
  }
  std::ranges::reverse(seasons);
  return seasons;
}

}  // namespace ombrix::hostapp
