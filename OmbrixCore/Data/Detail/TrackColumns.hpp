#pragma once

// Private: the columns of a track file.

#include <cstddef>

namespace ombrix {

inline constexpr std::size_t kTimestampColumn = 0;
inline constexpr std::size_t kLatitudeColumn = 1;
inline constexpr std::size_t kLongitudeColumn = 2;
inline constexpr std::size_t kAltitudeColumn = 3;
inline constexpr std::size_t kCourseColumn = 4;
inline constexpr std::size_t kSpeedColumn = 5;
// Kept: the vertical accuracy stands before the horizontal one, unlike everywhere else. Files
// written so far would be read with the two exchanged.
inline constexpr std::size_t kVerticalAccuracyColumn = 6;
inline constexpr std::size_t kHorizontalAccuracyColumn = 7;
inline constexpr std::size_t kTrackColumnCount = 8;

}  // namespace ombrix
