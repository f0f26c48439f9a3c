#include "OmbrixPlatform/Measure/NSNumberFormatter.hpp"

#include <utility>

#include "OmbrixPlatform/Measure/Detail/IcuNumberFormat.hpp"

namespace ombrix::platform {

NSNumberFormatter::NSNumberFormatter(Settings settings)
    : settings_(std::move(settings)), format_(detail::IcuNumberFormat::shared(settings_)) {}

std::optional<std::string> NSNumberFormatter::string(double number) const {
  if (!format_) return std::nullopt;
  return detail::text(format_->formatter(), number);
}

std::optional<double> NSNumberFormatter::number(std::string_view text) const {
  if (!format_) return std::nullopt;
  return format_->parse(text);
}

}  // namespace ombrix::platform
