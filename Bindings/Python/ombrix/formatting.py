"""Values for people: measurements in the user's units, durations and timers."""

from __future__ import annotations

import ctypes as C
from typing import NamedTuple

from ._library import Handle, checked, encoded, library, taken
from ._native import (OmbrixCalendarUnit as CalendarUnit, OmbrixMeasurementFormat as Format,
                      OmbrixMeasurementUnitStyle as UnitStyle, OmbrixObjectKind,
                      OmbrixObjectValue, OmbrixUnit as Unit)


class Measurement(NamedTuple):
    """A value in a unit."""

    value: float
    unit: Unit

    def to(self, unit: Unit) -> Measurement:
        """The same in another unit; not a number when the two measure different things."""
        return Measurement(library.ombrix_NSMeasurement_valueByConvertingToUnit_(
            self.value, Unit(self.unit), Unit(unit)), unit)


def symbol(unit: Unit) -> str | None:
    """The unit's symbol."""
    return taken(library.ombrix_NSUnit_symbol(Unit(unit)))


def _object(value: float | Measurement) -> OmbrixObjectValue:
    if isinstance(value, Measurement):
        return OmbrixObjectValue(kind=OmbrixObjectKind.MEASUREMENT, number=value.value,
                                 unit=Unit(value.unit))
    return OmbrixObjectValue(kind=OmbrixObjectKind.NUMBER, number=value)


class MeasurementFormatter(Handle):
    """Formats one kind of values in the user's unit system. One thread at a time."""

    _release = "ombrix_MeasurementFormatter_release"

    def __init__(self, format: Format, style: UnitStyle | None = None, locale: str | None = None):
        """`locale`, as in "de_DE", is the current one unless given."""
        super().__init__(library.ombrix_MeasurementFormatter_initAs_(Format(format)))
        if locale is not None:
            library.ombrix_MeasurementFormatter_setLocale_(self.pointer, encoded(locale))
        if style is not None:
            library.ombrix_MeasurementFormatter_setUnitStyle_(self.pointer, UnitStyle(style))

    def string(self, measurement: Measurement) -> str | None:
        """The text of a measurement; None for one of another kind."""
        return taken(library.ombrix_MeasurementFormatter_stringForObjectValue_(
            self.pointer, C.byref(_object(measurement))))

    def parse(self, text: str) -> Measurement:
        """Reads a number as a measurement in the display unit; raises `Error` for what is none."""
        read = OmbrixObjectValue()
        checked(library.ombrix_MeasurementFormatter_getObjectValue_forString_, self.pointer,
                C.byref(read), encoded(text))
        return Measurement(read.number, Unit(read.unit))


class _TimeFormatter(Handle):
    _name: str

    def __init__(self, smallest: CalendarUnit = CalendarUnit.SECOND, locale: str | None = None):
        name = f"ombrix_{self._name}_"
        self._release, self._string = name + "release", name + "stringForObjectValue_"
        super().__init__(
            getattr(library, name + "initWithMinimumComponent_")(CalendarUnit(smallest)))
        if locale is not None:
            getattr(library, name + "setLocale_")(self.pointer, encoded(locale))

    def string(self, seconds: float) -> str | None:
        """The text of so many seconds, whose sign does not count."""
        if not abs(seconds) < 2**63:
            raise ValueError("a span of time is a number of seconds that is finite")
        return taken(getattr(library, self._string)(self.pointer, C.byref(_object(seconds))))


class DurationFormatter(_TimeFormatter):
    """Formats spans of time in words, "1H 2M 5S". One thread at a time."""

    _name = "DurationFormatter"


class TimerFormatter(_TimeFormatter):
    """Formats spans of time as a clock does, "1:02:05". One thread at a time."""

    _name = "TimerFormatter"
