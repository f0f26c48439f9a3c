#pragma once

#include "OmbrixCore/Formatting/SpanFormatter.hpp"

namespace ombrix::platform {
class Decoder;
}

namespace ombrix {

/// Turns a time span into the text of a clock, such as "1:02:05".
class OmbrixTimerFormatter final : public SpanFormatter {
 public:
  explicit OmbrixTimerFormatter(platform::NSCalendarUnit minimumComponent)
      : SpanFormatter(minimumComponent) {}

  /// A formatter whose smallest unit is the second; reads nothing from the decoder.
  static OmbrixTimerFormatter decode(platform::Decoder& decoder);

  using SpanFormatter::setMinimumComponent;

 private:
  void configure(const platform::NSDateComponents& components) override;
};

}  // namespace ombrix
