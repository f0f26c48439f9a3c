#pragma once

#include <span>

#include "OmbrixC/Day/OmbrixTrack.h"
#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixDay/Formats/Track.hpp"

struct OmbrixTrack {
  ombrix::Track track;
  ombrix::c::Handle handle = {};
};

namespace ombrix::c {

// The C structs lie in memory as the C++ ones do: the same doubles in the same order.
static_assert(sizeof(OmbrixLocation) == sizeof(CLLocation) &&
              sizeof(OmbrixHeartRate) == sizeof(HeartRate) &&
              sizeof(platform::Date) == sizeof(double));

inline std::span<const CLLocation> from(const OmbrixLocation* locations, std::size_t count) {
  return {reinterpret_cast<const CLLocation*>(locations), count};
}

inline std::span<const HeartRate> from(const OmbrixHeartRate* heartRates, std::size_t count) {
  return {reinterpret_cast<const HeartRate*>(heartRates), count};
}

}  // namespace ombrix::c
