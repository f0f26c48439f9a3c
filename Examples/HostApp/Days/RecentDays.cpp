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
/// behind, the latest day first. Before the first day there is no file, which is no failure to be
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
  if (!days.exists(key).get()) return std::nullopt;  // which is no failure to be logged
  return days.value(key).get();
}

/// Removes a day; what cannot be read stays: it may be no day, or be read the next time.
void RecentDays::Shelf::remove(const std::string& key) const {
  if (days.value(key).get()) days.purge(key).get();
}

RecentDays::RecentDays()
    : shelf_(sharedFolder()),
      coordinator_(nullptr, files().groupContainer().value_or(shelf_.folder)) {}

/// Runs the body while no other program is at the days.
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
      // A part takes no day's place, nor does one that nobody knows for a part: a file may be cut
      // between two rows.
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

/// Makes files and order what the keys say; of more than the most the earliest days go.
void RecentDays::tidy(std::vector<std::string> keys) {
  while (keys.size() > kMostDays) {
    const auto earliest = std::ranges::min_element(keys, {}, startOf);
    shelf_.remove(*earliest);
    keys.erase(earliest);
  }
  shelf_.order.setValue(keys);
}

/// Takes over the days of the application's own folder, where they lay before there was a
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
    // Of two of one start the longer one stays: the other is a part of it.
    const auto here = day ? shelf_.day(key) : std::nullopt;
    if (day && (!here || isPartOf(*here, *day))) {
      shelf_.days.store(*day, key).get();
      if (!here) order.push_back(key);
    }
    // What is not here, whatever the reason, stays there; the log says it, the next time again.
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
  // A store answers for a folder that it cannot read as for an empty one.
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
  // The disk cannot be written, or another program stands still: nobody is writing now.
  if (!access) read();
  return days;
}

}  // namespace ombrix::hostapp
