#pragma once

namespace ombrix::platform {

/// A colour in sRGB; each component from 0 to 1.
struct UIColor {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;

  friend constexpr bool operator==(const UIColor&, const UIColor&) = default;
};

}  // namespace ombrix::platform
