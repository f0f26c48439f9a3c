#include "Examples/HostApp/RecentDays.hpp"

#include <fmt/format.h>

#include "Examples/HostApp/Commands.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"

namespace ombrix::hostapp {
namespace {

constexpr const char* kOrderFile = "recent-days.plist";

}  // namespace

RecentDays::RecentDays()
    : folder_(FileManager::defaultManager().applicationSupport()),
      order_(folder_.appendingPathComponent(kOrderFile, false)),
      days_(InMemoryKeyedStore<RememberedDay>(kMostDays, true),
            PlistKeyedItemStore<RememberedDay>(folder_.appendingPathComponent("Days", true))) {}

void RecentDays::remember(const DaySummary& day, const std::string& title) {
  if (!day.startTime) return;
  const double start = platform::timeIntervalSince1970(*day.startTime);
  const std::string key = fmt::format("{:.0f}", start);
  days_.store(RememberedDay{title, start, day.distanceMeters, day.descentMeters}, key).get();

  auto order = this->order();
  std::erase(order, key);
  order.insert(order.begin(), key);
  for (; order.size() > kMostDays; order.pop_back()) days_.purge(order.back()).get();
  order_.setValue(order);
  if (this->order() != order) throw CommandFailure("could not keep the day; see ombrix log");
}

/// Before the first day there is no file, which is no failure to be logged.
std::vector<std::string> RecentDays::order() const {
  if (!order_.exists()) return {};
  return order_.value().value_or(std::vector<std::string>());
}

std::vector<RememberedDay> RecentDays::days() const {
  std::vector<RememberedDay> days;
  for (const std::string& key : order()) {
    if (auto day = days_.value(key).get()) days.push_back(std::move(*day));
  }
  return days;
}

}  // namespace ombrix::hostapp
