#include "OmbrixCore/Formatting/OmbrixTimerFormatter.hpp"

namespace ombrix {

using UnitsStyle = platform::NSDateComponentsFormatterUnitsStyle;
using ZeroFormattingBehavior = platform::NSDateComponentsFormatterZeroFormattingBehavior;

void OmbrixTimerFormatter::configure(const platform::NSDateComponents&) {
  const bool showsSeconds = minimumComponent() == platform::NSCalendarUnit::second;
  setZeroFormattingBehavior(showsSeconds ? ZeroFormattingBehavior::dropLeading
                                         : ZeroFormattingBehavior::defaultBehavior);
  setCollapsesLargestUnit(true);
  setUnitsStyle(UnitsStyle::positional);
}

}  // namespace ombrix
