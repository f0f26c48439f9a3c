#include "OmbrixCore/Formatting/OmbrixDurationFormatter.hpp"

namespace ombrix {

using platform::NSCalendarUnit;
using UnitsStyle = platform::NSDateComponentsFormatterUnitsStyle;
using ZeroFormattingBehavior = platform::NSDateComponentsFormatterZeroFormattingBehavior;

OmbrixDurationFormatter OmbrixDurationFormatter::decode(platform::Decoder&) {
  return OmbrixDurationFormatter(NSCalendarUnit::second);
}

void OmbrixDurationFormatter::configure(const platform::NSDateComponents& components) {
  setZeroFormattingBehavior(ZeroFormattingBehavior::defaultBehavior);
  setUnitsStyle(UnitsStyle::abbreviated);
  // Tests the hours of the components, not the hours of their sum.
  if (minimumComponent() == NSCalendarUnit::minute && components.hour.value_or(0) < 1 &&
      distinctMinVsMeters()) {
    setUnitsStyle(UnitsStyle::shortStyle);
    setZeroFormattingBehavior(ZeroFormattingBehavior::dropLeading);
  }
  if (minimumComponent() == NSCalendarUnit::second) {
    setZeroFormattingBehavior(ZeroFormattingBehavior::dropLeading);
  }
}

}  // namespace ombrix
