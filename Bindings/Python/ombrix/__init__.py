"""The core of a snow-sports tracker: tracks and days, formatting, settings, requests.

    import ombrix

    with ombrix.Track.read("day.gpx") as track, ombrix.Day.measure(track) as day:
        print(day.totals.runs, "runs")

Everything happens in libombrix; this package only makes it look like Python.
"""

from . import requests, settings
from ._library import Error, library as _library
from .formatting import (CalendarUnit, DurationFormatter, Format, Measurement,
                         MeasurementFormatter, TimerFormatter, Unit, UnitStyle, symbol)
from .stores import FileStore, KeyedStore
from .tracks import (Coordinate, Day, DaySample, DaySegment, DayTotals, HeartRate, Lap, Location,
                     SegmentKind, Track, TrackFormat, TrackWriter, distance, file_url)

__version__ = _library.ombrix_Library_version().decode()


def live_handles() -> int:
    """How many handles of the library are held; for tests that look for leaks."""
    return _library.ombrix_Library_liveHandles()


__all__ = [
    "CalendarUnit", "Coordinate", "Day", "DaySample", "DaySegment", "DayTotals",
    "DurationFormatter", "Error", "FileStore", "Format", "HeartRate", "KeyedStore", "Lap", "Location", "Measurement",
    "MeasurementFormatter", "SegmentKind", "TimerFormatter", "Track", "TrackFormat",
    "TrackWriter", "Unit", "UnitStyle", "distance", "file_url", "live_handles", "requests",
    "settings", "symbol",
]
