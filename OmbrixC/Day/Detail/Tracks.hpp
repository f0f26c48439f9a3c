#pragma once

#include <span>
#include <utility>
#include <vector>

#include "OmbrixC/Day/OmbrixTrack.h"
#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixDay/Formats/Track.hpp"

struct OmbrixTrack {
  explicit OmbrixTrack(ombrix::Track recording) : track(std::move(recording)) {
    for (const ombrix::Lap& lap : track.laps) {
      lapBegins.push_back(ombrix::platform::timeIntervalSince1970(lap.begin));
      laps.push_back({.begin = lapBegins.back(),
                      .seconds = lap.seconds,
                      .distanceMeters = lap.distanceMeters,
                      .kilocalories = lap.kilocalories,
                      .averageSpeed = lap.averageSpeed,
                      .maxSpeed = lap.maxSpeed,
                      .averageHeartRate = lap.averageHeartRate,
                      .maxHeartRate = lap.maxHeartRate,
                      .averageCadence = lap.averageCadence,
                      .maxCadence = lap.maxCadence,
                      .averagePower = lap.averagePower,
                      .maxPower = lap.maxPower,
                      .isRest = lap.isRest,
                      .trigger = static_cast<OmbrixLapTrigger>(lap.trigger),
                      .notes = lap.notes.c_str()});
    }
  }

  ombrix::Track track;
  std::vector<double> lapBegins;  ///< Seconds since 1970.
  std::vector<OmbrixLap> laps;    ///< Their texts are the track's.
  ombrix::c::Handle handle = {};
};

namespace ombrix::c {

// The C structs have the memory layout of the C++ ones: the same doubles in the same order.
static_assert(sizeof(OmbrixLocation) == sizeof(CLLocation) &&
              sizeof(OmbrixHeartRate) == sizeof(HeartRate));

inline std::span<const CLLocation> from(const OmbrixLocation* locations, std::size_t count) {
  return {reinterpret_cast<const CLLocation*>(locations), count};
}

inline std::span<const HeartRate> from(const OmbrixHeartRate* heartRates, std::size_t count) {
  return {reinterpret_cast<const HeartRate*>(heartRates), count};
}

}  // namespace ombrix::c
