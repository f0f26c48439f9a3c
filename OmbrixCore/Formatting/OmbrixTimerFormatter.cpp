#include "OmbrixCore/Formatting/OmbrixTimerFormatter.hpp"

namespace ombrix {

using platform::NSCalendarUnit;
using UnitsStyle = platform::NSDateComponentsFormatterUnitsStyle;
using ZeroFormattingBehavior = platform::NSDateComponentsFormatterZeroFormattingBehavior;

OmbrixTimerFormatter OmbrixTimerFormatter::decode(platform::Decoder&) {
  return OmbrixTimerFormatter(NSCalendarUnit::second);
}

void OmbrixTimerFormatter::configure(const platform::NSDateComponents&) {
  const bool showsSeconds = minimumComponent() == NSCalendarUnit::second;
  setZeroFormattingBehavior(showsSeconds ? ZeroFormattingBehavior::dropLeading
                                         : ZeroFormattingBehavior::defaultBehavior);
  setCollapsesLargestUnit(true);
  setUnitsStyle(UnitsStyle::positional);
}

}  // namespace ombrix
