#include "OmbrixC/OmbrixFormatters.h"

#include "OmbrixC/Detail/AttributedString.hpp"
#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixC/Detail/Units.hpp"
#include "OmbrixCore/Formatting/OmbrixDurationFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixTimerFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixValueFormatter.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace platform = ombrix::platform;
using ombrix::c::catching;
using ombrix::c::copied;
using ombrix::c::from;
using ombrix::c::owned;
using platform::FormatterObject;
using Format = ombrix::OmbrixMeasurementFormatter::MeasurementFormat;
using UnitStyle = ombrix::OmbrixMeasurementFormatter::UnitStyle;

struct OmbrixMeasurementFormatter {
  OmbrixMeasurementFormatter() = default;
  explicit OmbrixMeasurementFormatter(Format format) : formatter(format) {}
  ombrix::OmbrixMeasurementFormatter formatter;
  ombrix::c::Handle handle = {};
};

struct OmbrixDurationFormatter {
  ombrix::OmbrixDurationFormatter formatter;
  ombrix::c::Handle handle = {};
};

struct OmbrixTimerFormatter {
  ombrix::OmbrixTimerFormatter formatter;
  ombrix::c::Handle handle = {};
};

namespace {

std::optional<ombrix::platform::Locale> localeFrom(const char* identifier) {
  if (identifier == nullptr) return std::nullopt;
  return ombrix::platform::Locale(identifier);
}

std::optional<std::int64_t> part(std::int64_t value) {
  return value == OMBRIX_DATE_COMPONENT_UNDEFINED ? std::nullopt : std::optional(value);
}

FormatterObject objectFrom(const OmbrixObjectValue* object) {
  if (object == nullptr) return {};
  switch (object->kind) {
    case OmbrixObjectNone:
      return {};
    case OmbrixObjectNumber:
      return object->number;
    case OmbrixObjectText:
      return ombrix::c::textFrom(object->text);
    case OmbrixObjectMeasurement:
      return std::visit(
          [object](const auto& unit) {
            return platform::AnyMeasurement(platform::Measurement(object->number, unit));
          },
          from(object->unit));
    case OmbrixObjectDateComponents: {
      const OmbrixDateComponents& parts = object->components;
      return platform::NSDateComponents{.day = part(parts.day),
                                        .hour = part(parts.hour),
                                        .minute = part(parts.minute),
                                        .second = part(parts.second)};
    }
  }
  return {};
}

platform::NSCalendarUnit from(OmbrixCalendarUnit unit) {
  return static_cast<platform::NSCalendarUnit>(unit);
}

template <class Formatter>
OmbrixAttributedString* styled(Formatter& formatter, const OmbrixObjectValue* object,
                               const OmbrixAttributes* attributes) {
  return owned(
      formatter.attributedStringWithDefaultAttributes(objectFrom(object), from(attributes)));
}

template <class Formatter>
OmbrixAttributedString* styled(Formatter& formatter, const OmbrixObjectValue* object,
                               const OmbrixAttributes* valueAttributes,
                               const OmbrixAttributes* unitLabelAttributes) {
  return owned(formatter.attributedStringWithValueAttributes(
      objectFrom(object), from(valueAttributes), from(unitLabelAttributes)));
}

// A value formatter's handle is the C++ object itself, since the shared one is among them.
const ombrix::OmbrixValueFormatter& from(const OmbrixValueFormatter* self) {
  return *reinterpret_cast<const ombrix::OmbrixValueFormatter*>(self);
}

}  // namespace

OmbrixMeasurementFormatter* ombrix_MeasurementFormatter_init() {
  return catching(nullptr, [&] { return new OmbrixMeasurementFormatter; });
}
OmbrixMeasurementFormatter* ombrix_MeasurementFormatter_initAs_(OmbrixMeasurementFormat format) {
  return catching(nullptr,
                  [&] { return new OmbrixMeasurementFormatter(static_cast<Format>(format)); });
}
OmbrixMeasurementFormatter* ombrix_MeasurementFormatter_initWithCoder_(const void*) {
  return ombrix_MeasurementFormatter_init();
}
void ombrix_MeasurementFormatter_release(OmbrixMeasurementFormatter* self) { delete self; }

OmbrixMeasurementFormat ombrix_MeasurementFormatter_format(const OmbrixMeasurementFormatter* self) {
  return static_cast<OmbrixMeasurementFormat>(self->formatter.format());
}
OmbrixMeasurementUnitStyle ombrix_MeasurementFormatter_unitStyle(
    const OmbrixMeasurementFormatter* self) {
  return static_cast<OmbrixMeasurementUnitStyle>(self->formatter.unitStyle());
}
void ombrix_MeasurementFormatter_setUnitStyle_(OmbrixMeasurementFormatter* self,
                                               OmbrixMeasurementUnitStyle style) {
  self->formatter.setUnitStyle(static_cast<UnitStyle>(style));
}

void ombrix_MeasurementFormatter_setLocale_(OmbrixMeasurementFormatter* self,
                                            const char* identifier) {
  catching(nullptr, [&] { self->formatter.setLocale(localeFrom(identifier)); });
}

char* ombrix_MeasurementFormatter_stringForObjectValue_(OmbrixMeasurementFormatter* self,
                                                        const OmbrixObjectValue* object) {
  return catching(nullptr, [&] { return copied(self->formatter.string(objectFrom(object))); });
}
char* ombrix_MeasurementFormatter_unitLabel(OmbrixMeasurementFormatter* self) {
  return catching(nullptr, [&] { return copied(self->formatter.unitLabel()); });
}
char* ombrix_MeasurementFormatter_unitLabelFor_(OmbrixMeasurementFormatter* self,
                                                const char* preference) {
  return catching(
      nullptr, [&] { return copied(self->formatter.unitLabel(ombrix::c::textFrom(preference))); });
}

bool ombrix_MeasurementFormatter_getObjectValue_forString_(OmbrixMeasurementFormatter* self,
                                                           OmbrixObjectValue* object,
                                                           const char* string,
                                                           OmbrixError** error) {
  if (error != nullptr) *error = nullptr;
  const auto measurement = self->formatter.getObjectValue(ombrix::c::textFrom(string));
  if (!measurement) {
    ombrix::c::setError(error, measurement.error());
    return false;
  }
  *object = {};
  object->kind = OmbrixObjectMeasurement;
  std::visit(
      [object](const auto& known) {
        object->number = known.value;
        object->unit = ombrix::c::toC(known.unit);
      },
      *measurement);
  return true;
}

OmbrixAttributedString*
ombrix_MeasurementFormatter_attributedStringForObjectValue_withDefaultAttributes_(
    OmbrixMeasurementFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* attributes) {
  return catching(nullptr, [&] { return styled(self->formatter, object, attributes); });
}
OmbrixAttributedString*
ombrix_MeasurementFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_(
    OmbrixMeasurementFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* valueAttributes, const OmbrixAttributes* unitLabelAttributes) {
  return catching(nullptr, [&] {
    return styled(self->formatter, object, valueAttributes, unitLabelAttributes);
  });
}

OmbrixDurationFormatter* ombrix_DurationFormatter_init() {
  platform::fatalError(
      "Use of unimplemented initializer 'init()' for class 'OmbrixDurationFormatter'");
}
OmbrixDurationFormatter* ombrix_DurationFormatter_initWithMinimumComponent_(
    OmbrixCalendarUnit minimumComponent) {
  return catching(nullptr, [&] {
    return new OmbrixDurationFormatter{ombrix::OmbrixDurationFormatter(from(minimumComponent))};
  });
}
OmbrixDurationFormatter* ombrix_DurationFormatter_initWithCoder_(const void*) {
  return ombrix_DurationFormatter_initWithMinimumComponent_(OmbrixCalendarUnitSecond);
}
void ombrix_DurationFormatter_release(OmbrixDurationFormatter* self) { delete self; }
void ombrix_DurationFormatter_setLocale_(OmbrixDurationFormatter* self, const char* identifier) {
  catching(nullptr, [&] { self->formatter.setLocale(localeFrom(identifier)); });
}
bool ombrix_DurationFormatter_distinctMinVsMeters(const OmbrixDurationFormatter* self) {
  return self->formatter.distinctMinVsMeters();
}
char* ombrix_DurationFormatter_stringForObjectValue_(OmbrixDurationFormatter* self,
                                                     const OmbrixObjectValue* object) {
  return catching(nullptr, [&] { return copied(self->formatter.string(objectFrom(object))); });
}
OmbrixAttributedString*
ombrix_DurationFormatter_attributedStringForObjectValue_withDefaultAttributes_(
    OmbrixDurationFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* attributes) {
  return catching(nullptr, [&] { return styled(self->formatter, object, attributes); });
}
OmbrixAttributedString*
ombrix_DurationFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_(
    OmbrixDurationFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* valueAttributes, const OmbrixAttributes* unitLabelAttributes) {
  return catching(nullptr, [&] {
    return styled(self->formatter, object, valueAttributes, unitLabelAttributes);
  });
}

OmbrixTimerFormatter* ombrix_TimerFormatter_init() {
  platform::fatalError(
      "Use of unimplemented initializer 'init()' for class 'OmbrixTimerFormatter'");
}
OmbrixTimerFormatter* ombrix_TimerFormatter_initWithMinimumComponent_(
    OmbrixCalendarUnit minimumComponent) {
  return catching(nullptr, [&] {
    return new OmbrixTimerFormatter{ombrix::OmbrixTimerFormatter(from(minimumComponent))};
  });
}
OmbrixTimerFormatter* ombrix_TimerFormatter_initWithCoder_(const void*) {
  return ombrix_TimerFormatter_initWithMinimumComponent_(OmbrixCalendarUnitSecond);
}
void ombrix_TimerFormatter_release(OmbrixTimerFormatter* self) { delete self; }
OmbrixCalendarUnit ombrix_TimerFormatter_minimumComponent(const OmbrixTimerFormatter* self) {
  return static_cast<OmbrixCalendarUnit>(self->formatter.minimumComponent());
}
void ombrix_TimerFormatter_setMinimumComponent_(OmbrixTimerFormatter* self,
                                                OmbrixCalendarUnit minimumComponent) {
  self->formatter.setMinimumComponent(from(minimumComponent));
}
void ombrix_TimerFormatter_setLocale_(OmbrixTimerFormatter* self, const char* identifier) {
  catching(nullptr, [&] { self->formatter.setLocale(localeFrom(identifier)); });
}
bool ombrix_TimerFormatter_distinctMinVsMeters(const OmbrixTimerFormatter* self) {
  return self->formatter.distinctMinVsMeters();
}
char* ombrix_TimerFormatter_stringForObjectValue_(OmbrixTimerFormatter* self,
                                                  const OmbrixObjectValue* object) {
  return catching(nullptr, [&] { return copied(self->formatter.string(objectFrom(object))); });
}
OmbrixAttributedString* ombrix_TimerFormatter_attributedStringForObjectValue_withDefaultAttributes_(
    OmbrixTimerFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* attributes) {
  return catching(nullptr, [&] { return styled(self->formatter, object, attributes); });
}
OmbrixAttributedString*
ombrix_TimerFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_(
    OmbrixTimerFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* valueAttributes, const OmbrixAttributes* unitLabelAttributes) {
  return catching(nullptr, [&] {
    return styled(self->formatter, object, valueAttributes, unitLabelAttributes);
  });
}

OmbrixValueFormatter* ombrix_ValueFormatter_init() {
  return catching(nullptr, [] {
    return ombrix::c::counted(
        reinterpret_cast<OmbrixValueFormatter*>(new ombrix::OmbrixValueFormatter));
  });
}
OmbrixValueFormatter* ombrix_ValueFormatter_initWithCoder_(const void*) {
  return ombrix_ValueFormatter_init();
}
void ombrix_ValueFormatter_release(OmbrixValueFormatter* self) {
  delete reinterpret_cast<ombrix::OmbrixValueFormatter*>(ombrix::c::uncounted(self));
}
const OmbrixValueFormatter* ombrix_ValueFormatter_shared() {
  return catching(nullptr, [] {
    return reinterpret_cast<const OmbrixValueFormatter*>(&ombrix::OmbrixValueFormatter::shared());
  });
}
const char* ombrix_ValueFormatter_SecondaryForegroundColor() {
  return ombrix::OmbrixValueFormatter::SecondaryForegroundColor.name().data();
}
const char* ombrix_ValueFormatter_SecondaryFont() {
  return ombrix::OmbrixValueFormatter::SecondaryFont.name().data();
}
OmbrixAttributedString* ombrix_ValueFormatter_attributedStringForObjectValue_withDefaultAttributes_(
    const OmbrixValueFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* attributes) {
  return catching(nullptr, [&] { return styled(from(self), object, attributes); });
}
OmbrixAttributedString*
ombrix_ValueFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_(
    const OmbrixValueFormatter* self, const OmbrixObjectValue* object,
    const OmbrixAttributes* valueAttributes, const OmbrixAttributes* unitLabelAttributes) {
  return catching(nullptr,
                  [&] { return styled(from(self), object, valueAttributes, unitLabelAttributes); });
}
