#pragma once

#include "OmbrixCore/Formatting/SpanFormatter.hpp"

namespace ombrix::platform {
class Decoder;
}

namespace ombrix {

/// Turns a time span into labelled text such as "1H 2M 5S". Where "m" could be read as meters, text
/// that shows only minutes has a longer label: "50 MIN".
class OmbrixDurationFormatter final : public SpanFormatter {
 public:
  explicit OmbrixDurationFormatter(platform::NSCalendarUnit minimumComponent)
      : SpanFormatter(minimumComponent) {}

  /// A formatter whose smallest unit is the second; reads nothing from the decoder.
  static OmbrixDurationFormatter decode(platform::Decoder& decoder);

 private:
  void configure(const platform::NSDateComponents& components) override;
};

}  // namespace ombrix
