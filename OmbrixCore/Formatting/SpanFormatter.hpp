#pragma once

#include <optional>
#include <string>

#include "OmbrixPlatform/Measure/NSDateComponentsFormatter.hpp"
#include "OmbrixPlatform/Text/NSAttributedString.hpp"

namespace ombrix {

/// What the duration and the timer formatter share. Every call sets up the platform formatter
/// underneath, which keeps these settings. An instance serves one thread at a time.
class SpanFormatter : public platform::NSDateComponentsFormatter {
 public:
  using Attributes = platform::NSAttributedString::Attributes;

  /// The smallest unit that is shown. It names the units above it that may be shown, too: days;
  /// days and hours; hours and minutes; hours, minutes and seconds, as for any other unit.
  [[nodiscard]] platform::NSCalendarUnit minimumComponent() const noexcept {
    return minimumComponent_;
  }

  /// Whether the abbreviation of minutes could be mistaken for meters in the user's unit system:
  /// in any but "miles".
  [[nodiscard]] bool distinctMinVsMeters() const;

  /// The text in capitals of date components as they are, or of a number of seconds without its
  /// sign; nothing for any other object. A number that is not finite, or does not fit 64 bits,
  /// stops the program.
  std::optional<std::string> string(const platform::FormatterObject& object) final;

  /// The text, styled by the shared value formatter; nothing where `string` has none.
  std::optional<platform::NSAttributedString> attributedStringWithDefaultAttributes(
      const platform::FormatterObject& object, const Attributes& attributes);

  /// The same; unit letters get the value attributes too, whatever `unitLabelAttributes` says.
  std::optional<platform::NSAttributedString> attributedStringWithValueAttributes(
      const platform::FormatterObject& object, const Attributes& valueAttributes,
      const Attributes& unitLabelAttributes);

 protected:
  explicit SpanFormatter(platform::NSCalendarUnit minimumComponent)
      : minimumComponent_(minimumComponent) {}

  /// Sets style and zero formatting for these components; the allowed units are set already.
  virtual void configure(const platform::NSDateComponents& components) = 0;

  void setMinimumComponent(platform::NSCalendarUnit component) noexcept {
    minimumComponent_ = component;
  }

 private:
  platform::NSCalendarUnit minimumComponent_;
};

}  // namespace ombrix
