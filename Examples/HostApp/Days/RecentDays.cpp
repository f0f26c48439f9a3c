#include "Examples/HostApp/Days/RecentDays.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixPlatform/Logging/DDLogHold.hpp"

namespace ombrix::hostapp {
namespace {

constexpr const char* kOrderFile = "recent-days.plist";

const FileManager& files() { return FileManager::defaultManager(); }

platform::URL sharedFolder() {
  return files().groupContainerApplicationSupport().value_or(files().applicationSupport());
}

double startOf(const std::string& key) { return std::strtod(key.c_str(), nullptr); }

/// Whether one of two days of the same start is only the beginning of the other one. Days of an
/// older build know no end; it may also have measured the same way a little longer.
bool isPartOf(const RememberedDay& day, const RememberedDay& other) {
  if (day.endSeconds && other.endSeconds) return day.endSeconds < other.endSeconds;
  constexpr double kSameWay = 0.99;
  return day.distanceMeters < kSameWay * other.distanceMeters;
}

}  // namespace

RecentDays::Shelf::Shelf(const platform::URL& url)
    : folder(url),
      daysFolder(folder.appendingPathComponent("Days", true)),
      order(folder.appendingPathComponent(kOrderFile, false)),
      days(daysFolder) {}

/// The keys of the files that are there, in their order; files that the order does not name come
/// last, the latest day first. Before the first day there is no file, which is not a failure to be
/// logged.
std::vector<std::string> RecentDays::Shelf::keys() const {
  std::vector<std::string> names = days.keys().get();
  std::vector<std::string> keys;
  if (order.exists()) keys = order.value().value_or(std::vector<std::string>());
  std::erase_if(keys, [&](const auto& key) { return std::erase(names, key) == 0; });
  std::ranges::sort(names, std::ranges::greater(), startOf);
  keys.insert(keys.end(), names.begin(), names.end());
  return keys;
}

std::optional<RememberedDay> RecentDays::Shelf::day(const std::string& key) const {
  if (!days.exists(key).get()) return std::nullopt;  // not a failure to be logged
  return days.value(key).get();
}

/// Removes a day. A file that cannot be read stays: it may not be a day, or may be readable the
/// next time.
void RecentDays::Shelf::remove(const std::string& key) const {
  if (days.value(key).get()) days.purge(key).get();
}

RecentDays::RecentDays()
    : shelf_(sharedFolder()),
      coordinator_(nullptr, files().groupContainer().value_or(shelf_.folder)) {}

/// Runs the body while no other program uses the days.
platform::FileResult<void> RecentDays::alone(const std::function<void()>& body) const {
  const platform::DDLogHold untilOthersMayGoOn;
  return coordinator_.coordinateWritingItemAtURL(shelf_.daysFolder,
                                                 platform::NSFileCoordinator::WritingOptions::none,
                                                 [&](const platform::URL&) { body(); });
}

void RecentDays::remember(const RecordedDay& recorded) {
  const DayTotals& totals = recorded.day.totals;
  if (!totals.begin) return;
  const double start = platform::timeIntervalSince1970(*totals.begin);
  const std::string key = fmt::format("{:.0f}", start);
  RememberedDay kept{.title = recorded.title,
                     .startSeconds = start,
                     .distanceMeters = totals.all.distanceMeters,
                     .descentMeters = {},
                     .runs = totals.runs,
                     .maxSpeedMetersPerSecond = totals.all.maxSpeedMetersPerSecond,
                     .endSeconds = {}};
  if (totals.minAltitude) kept.descentMeters = totals.all.descentMeters;
  if (totals.end) kept.endSeconds = platform::timeIntervalSince1970(*totals.end);
  bool isKept = false, isPart = false, isTooEarly = false;
  const auto access = alone([&] {
    adoptOlder();
    if (const auto older = shelf_.day(key)) {
      // A part of a day does not replace it. Nor does a day that may be a part without anyone
      // knowing: a file may be cut between two rows.
      isKept = !recorded.fault.empty();
      isPart = !isKept && isPartOf(kept, *older);
      if (isKept || isPart) return;
    }
    shelf_.days.store(kept, key).get();
    if (!shelf_.days.exists(key).get() || shelf_.days.value(key).get() != kept) return;
    auto keys = shelf_.keys();
    std::erase(keys, key);
    keys.insert(keys.begin(), key);
    tidy(keys);
    isTooEarly = !shelf_.days.exists(key).get();
    keys = shelf_.keys();
    isKept = !keys.empty() && keys.front() == key;
  });
  if (!access) throw CommandFailure(fmt::format("the day is not kept: {}", access.error().what()));
  if (isPart) throw CommandFailure("the day is not kept: more of it is kept already");
  if (isTooEarly) {
    throw CommandFailure(fmt::format("the day is not kept: there are {} later ones", kMostDays));
  }
  if (!isKept) throw CommandFailure("the day is not kept; see ombrix log");
}

/// Makes files and order match the keys; beyond the limit the earliest days are removed.
void RecentDays::tidy(std::vector<std::string> keys) {
  while (keys.size() > kMostDays) {
    const auto earliest = std::ranges::min_element(keys, {}, startOf);
    shelf_.remove(*earliest);
    keys.erase(earliest);
  }
  shelf_.order.setValue(keys);
}

/// Moves the days from the application's own folder, where they were kept before there was a
/// container.
void RecentDays::adoptOlder() {
  if (shelf_.folder == files().applicationSupport()) return;
  const Shelf older(files().applicationSupport());
  const auto keys = older.keys();
  if (keys.empty()) return;
  auto order = shelf_.keys();
  bool isComplete = true;
  for (const std::string& key : keys) {
    const auto day = older.days.value(key).get();
    // Of two days with the same start the longer one stays: the other is a part of it.
    const auto here = day ? shelf_.day(key) : std::nullopt;
    if (day && (!here || isPartOf(*here, *day))) {
      shelf_.days.store(*day, key).get();
      if (!here) order.push_back(key);
    }
    // A day that did not arrive here, for whatever reason, stays there; the log says so each time.
    if (day && shelf_.days.value(key).get()) {
      older.days.purge(key).get();
    } else {
      isComplete = false;
    }
  }
  tidy(order);
  if (!isComplete) return;
  older.order.purge();
  std::error_code stays;
  std::filesystem::remove(older.daysFolder.path(), stays);
}

std::vector<RememberedDay> RecentDays::days() {
  std::vector<RememberedDay> days;
  unreadable_ = 0;
  // To a store a folder that it cannot read looks empty.
  std::error_code fault;
  const std::filesystem::directory_iterator folder(shelf_.daysFolder.path(), fault);
  if (fault && fault != std::errc::no_such_file_or_directory) {
    throw CommandFailure(fmt::format("the kept days in {} cannot be read: {}",
                                     shelf_.daysFolder.path(), fault.message()));
  }
  const auto read = [&] {
    for (const std::string& key : shelf_.keys()) {
      if (auto day = shelf_.days.value(key).get()) {
        days.push_back(std::move(*day));
      } else {
        ++unreadable_;
      }
    }
  };
  const auto access = alone([&] {
    adoptOlder();
    const auto keys = shelf_.keys();
    const auto order = shelf_.order.exists() ? shelf_.order.value() : keys;
    if (keys.size() > kMostDays || (order && order != keys)) tidy(keys);
    read();
  });
  // The disk cannot be written, or another program was stopped: nobody is writing now.
  if (!access) read();
  return days;
}

}  // namespace ombrix::hostapp
