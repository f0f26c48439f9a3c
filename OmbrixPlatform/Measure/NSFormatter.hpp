#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "OmbrixPlatform/Measure/Measurement.hpp"
#include "OmbrixPlatform/Measure/NSDateComponents.hpp"

namespace ombrix::platform {

/// An object that a formatter can turn into text: a measurement of any dimension, a number, a text,
/// date components, or nothing. A text is borrowed for the duration of the call.
class FormatterObject {
 public:
  FormatterObject() = default;
  FormatterObject(std::nullopt_t) {}  // NOLINT: every alternative converts

  template <class Number>
    requires((std::floating_point<Number> || std::integral<Number>) && !std::same_as<Number, bool>)
  FormatterObject(Number number) : object_(static_cast<double>(number)) {}  // NOLINT

  FormatterObject(const char* text) : object_(std::string_view(text)) {}         // NOLINT
  FormatterObject(std::string_view text) : object_(text) {}                      // NOLINT
  FormatterObject(const std::string& text) : object_(std::string_view(text)) {}  // NOLINT
  FormatterObject(NSDateComponents components) : object_(components) {}          // NOLINT
  FormatterObject(AnyMeasurement measurement)                                    // NOLINT
      : object_(std::move(measurement)) {}
  template <class Unit>
  FormatterObject(Measurement<Unit> measurement)  // NOLINT
      : object_(AnyMeasurement(std::move(measurement))) {}

  [[nodiscard]] const double* number() const noexcept { return std::get_if<double>(&object_); }
  [[nodiscard]] const std::string_view* text() const noexcept {
    return std::get_if<std::string_view>(&object_);
  }
  [[nodiscard]] const NSDateComponents* dateComponents() const noexcept {
    return std::get_if<NSDateComponents>(&object_);
  }
  [[nodiscard]] const AnyMeasurement* measurement() const noexcept {
    return std::get_if<AnyMeasurement>(&object_);
  }
  /// The measurement if it has the unit's dimension, otherwise null.
  template <class Unit>
  [[nodiscard]] const Measurement<Unit>* measurement() const noexcept {
    const AnyMeasurement* any = measurement();
    return any == nullptr ? nullptr : std::get_if<Measurement<Unit>>(any);
  }

 private:
  std::variant<std::monostate, double, std::string_view, NSDateComponents, AnyMeasurement> object_;
};

/// Turns objects into texts for users. An instance serves one thread at a time.
class NSFormatter {
 public:
  NSFormatter() = default;
  virtual ~NSFormatter() = default;
  NSFormatter(const NSFormatter&) = delete;
  NSFormatter& operator=(const NSFormatter&) = delete;

  /// The text of an object in UTF-8; empty when this formatter does not support the object.
  virtual std::optional<std::string> string(const FormatterObject& object) = 0;
};

}  // namespace ombrix::platform
