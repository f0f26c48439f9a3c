#pragma once

#include <string>
#include <vector>

#include "Examples/HostApp/DaySummary.hpp"
#include "OmbrixCore/Data/Stores/CachedKeyedItemStore.hpp"
#include "OmbrixCore/Data/Stores/PlistFileStore.hpp"

namespace ombrix::hostapp {

/// What is kept of a day that was summarised.
struct RememberedDay {
  std::string title;
  double startSeconds = 0;  ///< Since 1970.
  double distanceMeters = 0;
  double descentMeters = 0;

  friend bool operator==(const RememberedDay&, const RememberedDay&) = default;
  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("title", &RememberedDay::title),
                             platform::field("start", &RememberedDay::startSeconds),
                             platform::field("distance", &RememberedDay::distanceMeters),
                             platform::field("descent", &RememberedDay::descentMeters));
};

/// The last days that were summarised, kept in the application's folder.
class RecentDays {
 public:
  static constexpr std::size_t kMostDays = 10;

  RecentDays();

  /// Puts a day in front; one with the same start takes the older one's place. Days without a fix
  /// are not kept. Returns when it is on disk.
  void remember(const DaySummary& day, const std::string& title);

  /// The days, the one summarised last first.
  [[nodiscard]] std::vector<RememberedDay> days() const;

 private:
  [[nodiscard]] std::vector<std::string> order() const;

  platform::URL folder_;
  // Written before the call returns: a command ends as soon as it is done.
  PlistFileStore<std::vector<std::string>> order_;  ///< Keys into `days_`, the last one first.
  CachedKeyedItemStore<RememberedDay> days_;
};

}  // namespace ombrix::hostapp
