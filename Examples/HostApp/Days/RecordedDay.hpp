#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "OmbrixDay/Formats/Track.hpp"
#include "OmbrixDay/Measuring/Day.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"

namespace ombrix::hostapp {

/// One recording and the day measured from it.
struct RecordedDay {
  std::string title;        ///< As the user named the file.
  std::size_t skipped = 0;  ///< Rows and points of the file that are not a fix.
  Day day;
  std::optional<double> kilocalories;  ///< The estimate for the day's span; needs a weight.
  std::string fault = {};              ///< Why the file could not be read whole; empty if it was.

  /// Seconds from the first to the last fix that counts; 0 without one.
  [[nodiscard]] double spanSeconds() const;
};

/// Measures a recording; missing speeds are derived from its places and times.
/// @param weightKilograms The user's weight, for the energy estimate.
RecordedDay measured(Track track, std::string title, std::optional<double> weightKilograms);

/// The day in SI units; figures that are missing or not finite are null.
platform::JSON toJSON(const RecordedDay& recorded);

/// A JSON value on one line.
std::string lineOf(const platform::JSON& json);

}  // namespace ombrix::hostapp
