#pragma once

#include <bit>

#include "OmbrixC/Location/OmbrixLocation.h"
#include "OmbrixCore/Location/CLLocation.hpp"

namespace ombrix::c {

// The C structs have the memory layout of the C++ ones: the same doubles in the same order.

inline CLLocationCoordinate2D from(const OmbrixCoordinate& coordinate) noexcept {
  return std::bit_cast<CLLocationCoordinate2D>(coordinate);
}

inline CLLocation from(const OmbrixLocation& location) noexcept {
  return std::bit_cast<CLLocation>(location);
}

inline OmbrixLocation toC(const CLLocation& location) noexcept {
  return std::bit_cast<OmbrixLocation>(location);
}

}  // namespace ombrix::c
