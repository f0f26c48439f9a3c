#pragma once

#include <optional>
#include <string>

#include "OmbrixPlatform/Measure/NSDateComponentsFormatter.hpp"
#include "OmbrixPlatform/Text/NSAttributedString.hpp"

namespace ombrix {

/// The common base of the duration and the timer formatter. Every call configures the platform
/// formatter underneath, which keeps these settings. An instance serves one thread at a time.
class SpanFormatter : public platform::NSDateComponentsFormatter {
 public:
  using Attributes = platform::NSAttributedString::Attributes;

  /// The smallest unit that is shown. It also determines the larger units: days; days and hours;
  /// hours and minutes; for any other unit hours, minutes and seconds.
  [[nodiscard]] platform::NSCalendarUnit minimumComponent() const noexcept {
    return minimumComponent_;
  }

  /// Whether users could mistake the abbreviation of minutes for meters in their unit system: true
  /// for all but "miles".
  [[nodiscard]] bool distinctMinVsMeters() const;

  /// The text in capitals of date components, signs included, or of a number of seconds without its
  /// sign; empty for any other object. A number that is not finite, or does not fit 64 bits, stops
  /// the program.
  std::optional<std::string> string(const platform::FormatterObject& object) final;

  /// The text, styled by the shared value formatter; empty where `string` is empty.
  std::optional<platform::NSAttributedString> attributedStringWithDefaultAttributes(
      const platform::FormatterObject& object, const Attributes& attributes);

  /// The same; unit letters also get the value attributes and `unitLabelAttributes` is ignored.
  std::optional<platform::NSAttributedString> attributedStringWithValueAttributes(
      const platform::FormatterObject& object, const Attributes& valueAttributes,
      const Attributes& unitLabelAttributes);

 protected:
  explicit SpanFormatter(platform::NSCalendarUnit minimumComponent)
      : minimumComponent_(minimumComponent) {}

  /// Sets style and zero formatting for these components; the allowed units are already set.
  virtual void configure(const platform::NSDateComponents& components) = 0;

  void setMinimumComponent(platform::NSCalendarUnit component) noexcept {
    minimumComponent_ = component;
  }

 private:
  platform::NSCalendarUnit minimumComponent_;
};

}  // namespace ombrix
