#include "Examples/HostApp/RecentDays.hpp"

#include <fmt/format.h>

#include <chrono>
#include <thread>

#include "Examples/HostApp/Commands.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"

namespace ombrix::hostapp {
namespace {

constexpr const char* kOrderFile = "recent-days.plist";

/// The order is written in the background; a program that ends at once waits for it here.
void waitUntilWritten(const platform::URL& file, const std::vector<std::string>& order) {
  const PlistFileStore<std::vector<std::string>> written(file);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (written.value() != order) {
    if (std::chrono::steady_clock::now() > deadline) {
      throw CommandFailure("could not keep the day; see ombrix log");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace

RecentDays::RecentDays()
    : folder_(FileManager::defaultManager().applicationSupport()),
      order_({}, folder_, kOrderFile),
      days_(InMemoryKeyedStore<RememberedDay>(kMostDays, true),
            PlistKeyedItemStore<RememberedDay>(folder_.appendingPathComponent("Days", true))) {}

void RecentDays::remember(const DaySummary& day, const std::string& title) {
  if (!day.startTime) return;
  const double start = platform::timeIntervalSince1970(*day.startTime);
  const std::string key = fmt::format("{:.0f}", start);
  days_.store(RememberedDay{title, start, day.distanceMeters, day.descentMeters}, key).get();

  auto order = order_.wrappedValue();
  std::erase(order, key);
  order.insert(order.begin(), key);
  for (; order.size() > kMostDays; order.pop_back()) days_.purge(order.back()).get();
  order_.setWrappedValue(order);
  waitUntilWritten(folder_.appendingPathComponent(kOrderFile, false), order);
}

std::vector<RememberedDay> RecentDays::days() const {
  std::vector<RememberedDay> days;
  for (const std::string& key : order_.wrappedValue()) {
    if (auto day = days_.value(key).get()) days.push_back(std::move(*day));
  }
  return days;
}

}  // namespace ombrix::hostapp
