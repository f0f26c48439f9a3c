#pragma once

#include <cstdint>

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::detail {

/// `value` x `scale` truncated towards zero; stops the program if that overflows 64 bits.
inline std::int64_t gridCell(double value, double scale) {
  constexpr double kTwoToThe63 = 0x1p63;
  const double scaled = value * scale;
  if (!(scaled >= -kTwoToThe63 && scaled < kTwoToThe63)) {
    platform::fatalError("A location value that is not finite, or too large, has no grid cell");
  }
  return static_cast<std::int64_t>(scaled);
}

}  // namespace ombrix::detail
