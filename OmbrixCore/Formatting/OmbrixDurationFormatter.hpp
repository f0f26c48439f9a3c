#pragma once

#include "OmbrixCore/Formatting/SpanFormatter.hpp"

namespace ombrix::platform {
class Decoder;
}

namespace ombrix {

/// Turns a span of time into labelled text, as in "1H 2M 5S". Where "m" could be read as meters,
/// text of minutes alone spells the label further out: "50 MIN".
class OmbrixDurationFormatter final : public SpanFormatter {
 public:
  explicit OmbrixDurationFormatter(platform::NSCalendarUnit minimumComponent)
      : SpanFormatter(minimumComponent) {}

  /// A formatter whose smallest unit is the second; nothing is read.
  static OmbrixDurationFormatter decode(platform::Decoder& decoder);

 private:
  void configure(const platform::NSDateComponents& components) override;
};

}  // namespace ombrix
