#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Examples/HostApp/Days/RecordedDay.hpp"
#include "OmbrixCore/Data/Stores/PlistFileStore.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"

namespace ombrix::hostapp {

/// The data kept of a summarised day.
struct RememberedDay {
  std::string title;
  double startSeconds = 0;  ///< Since 1970.
  double distanceMeters = 0;
  std::optional<double> descentMeters;  ///< Empty for a day without altitudes.
  // Days kept by an older build lack these.
  std::optional<std::uint64_t> runs;
  std::optional<double> maxSpeedMetersPerSecond;
  std::optional<double> endSeconds;  ///< Of the last fix that counts, since 1970.

  friend bool operator==(const RememberedDay&, const RememberedDay&) = default;
  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("title", &RememberedDay::title),
                             platform::field("start", &RememberedDay::startSeconds),
                             platform::field("distance", &RememberedDay::distanceMeters),
                             platform::field("descent", &RememberedDay::descentMeters),
                             platform::field("runs", &RememberedDay::runs),
                             platform::field("topSpeed", &RememberedDay::maxSpeedMetersPerSecond),
                             platform::field("end", &RememberedDay::endSeconds));
};

/// The last days that were summarised; list and disk always agree. They are kept in the app group's
/// container if there is one, otherwise in the application's folder. Programs that use them at the
/// same time take turns.
class RecentDays {
 public:
  static constexpr std::size_t kMostDays = 400;

  RecentDays();

  /// Adds a day as the latest one; it replaces an older one with the same start, unless it is a
  /// part of that one. Days without a fix are not kept. Returns when it is on disk; throws
  /// `CommandFailure` when it is not kept.
  void remember(const RecordedDay& recorded);

  /// The days, the last summarised one first; days whose file is gone are forgotten.
  [[nodiscard]] std::vector<RememberedDay> days();

  /// How many days had an unreadable file at the last call of `days`.
  [[nodiscard]] std::size_t unreadable() const noexcept { return unreadable_; }

 private:
  /// A folder of days and the order in which they were summarised.
  struct Shelf {
    explicit Shelf(const platform::URL& url);

    [[nodiscard]] std::vector<std::string> keys() const;
    /// A day, if it exists.
    [[nodiscard]] std::optional<RememberedDay> day(const std::string& key) const;
    void remove(const std::string& key) const;

    platform::URL folder, daysFolder;
    // Written before the call returns: a command ends as soon as it is done.
    PlistFileStore<std::vector<std::string>> order;  ///< Keys into `days`, the last one first.
    PlistKeyedItemStore<RememberedDay> days;
  };

  [[nodiscard]] platform::FileResult<void> alone(const std::function<void()>& body) const;
  void tidy(std::vector<std::string> keys);
  void adoptOlder();

  Shelf shelf_;
  platform::NSFileCoordinator coordinator_;
  std::size_t unreadable_ = 0;
};

}  // namespace ombrix::hostapp
