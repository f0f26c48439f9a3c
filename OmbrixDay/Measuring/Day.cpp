#include "OmbrixDay/Measuring/Day.hpp"

namespace ombrix {

const SegmentFigures& DayTotals::of(SegmentKind kind) const {
  switch (kind) {
    case SegmentKind::run:
      return run;
    case SegmentKind::lift:
      return lift;
    case SegmentKind::pause:
      return pause;
    case SegmentKind::walk:
      break;
  }
  return walk;
}

}  // namespace ombrix
