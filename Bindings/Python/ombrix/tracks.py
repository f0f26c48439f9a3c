"""Recorded tracks in any format, and the days of skiing that are measured from them."""

from __future__ import annotations

import ctypes as C
import os
from collections.abc import Iterable, Iterator

from ._library import Handle, checked, encoded, library, taken, taken_bytes
from ._native import (OmbrixCoordinate as Coordinate, OmbrixDaySample as DaySample,
                      OmbrixDaySegment as DaySegment, OmbrixDayTotals as DayTotals,
                      OmbrixHeartRate as HeartRate, OmbrixLap as Lap, OmbrixLocation as Location,
                      OmbrixSegmentKind as SegmentKind, OmbrixTrackFormat as TrackFormat)


def file_url(path: str | os.PathLike) -> str:
    """The file URL of a path."""
    return taken(library.ombrix_URL_fileURLWithPath_(os.fsencode(path)))


def distance(one: Location, other: Location) -> float:
    """Metres along the WGS-84 geodesic between two fixes."""
    return library.ombrix_CLLocation_distanceFromLocation_(C.byref(one), C.byref(other))


class _Rows:
    """Rows that lie in the library's memory: a sequence, and a buffer for numpy, without a copy."""

    def __init__(self, owner: Handle, kind: type, pointer, count: int):
        self._owner = owner  # what holds the memory; closing it is put off as long as this lives
        self._rows = (kind * count).from_address(C.addressof(pointer.contents)) if count else ()
        self._kind = kind

    def __len__(self) -> int:
        return len(self._rows)

    def __getitem__(self, index):
        if isinstance(index, slice):
            return [self._copy(row) for row in self._rows[index]]
        return self._copy(self._rows[index])

    def __iter__(self) -> Iterator:
        return map(self._copy, self._rows)

    def _copy(self, row):
        return type(row).from_buffer_copy(row) if isinstance(row, C.Structure) else row

    def numpy(self):
        """The rows as an array of numpy, read-only, which shares the library's memory. Nested
        figures are fields of their own, as in `["coordinate"]["latitude"]`."""
        import numpy

        kind = numpy.dtype(self._kind)
        if not len(self._rows):
            return numpy.empty(0, kind)
        self._rows.owner = self  # the array keeps its buffer, the buffer what holds the memory
        array = numpy.frombuffer(self._rows, kind)
        array.flags.writeable = False
        return array


class _Memory(Handle):
    """A handle whose rows may outlive the object that it was read into."""

    def __init__(self, pointer: int, release: str):
        self._release = release
        super().__init__(pointer)


class _Read:
    """What was read or measured once. `close` gives the memory back as soon as no rows of it are in
    use any more."""

    _release: str

    def __init__(self, pointer: int | None):
        self._memory: _Memory | None = _Memory(pointer, self._release)

    @property
    def pointer(self) -> int:
        if self._memory is None:
            raise ValueError(f"this {type(self).__name__} is closed")
        return self._memory.pointer

    def _rows(self, kind: type, rows, count) -> _Rows:
        pointer = self.pointer
        return _Rows(self._memory, kind, rows(pointer), count(pointer))

    def close(self) -> None:
        self._memory = None

    def __enter__(self):
        return self

    def __exit__(self, *_) -> None:
        self.close()


class Track(_Read):
    """A recording, whatever file it came from; iterating gives its fixes.

    with Track.read("day.fit") as track:
        for fix in track:
            print(fix.coordinate.latitude, fix.altitude)
    """

    _release = "ombrix_Track_release"

    @classmethod
    def read(cls, path: str | os.PathLike) -> Track:
        """Reads a file; raises `Error`, which names it, for what is no track. Of a damaged file what
        can be read is there, and `fault` says what is wrong."""
        return cls(checked(library.ombrix_Track_initWithUrl_error_, encoded(file_url(path))))

    @classmethod
    def parse(cls, data: bytes, format: TrackFormat) -> Track:
        """Reads the bytes of a file of a format."""
        bytes_ = (C.c_uint8 * len(data)).from_buffer_copy(data)
        return cls(checked(library.ombrix_Track_initWithData_format_error_, bytes_, len(data),
                           TrackFormat(format)))

    @classmethod
    def of(cls, fixes: Iterable[Location], name: str = "") -> Track:
        """A track of fixes."""
        rows = list(fixes)
        return cls(library.ombrix_Track_initWithLocations_count_name_(
            (Location * len(rows))(*rows), len(rows), encoded(name)))

    @property
    def fixes(self) -> _Rows:
        return self._rows(Location, library.ombrix_Track_locations,
                          library.ombrix_Track_locationCount)

    @property
    def heart_rates(self) -> _Rows:
        return self._rows(HeartRate, library.ombrix_Track_heartRates,
                          library.ombrix_Track_heartRateCount)

    @property
    def laps(self) -> list[float]:
        """When each lap began, seconds since 1970."""
        return library.ombrix_Track_laps(self.pointer)[:library.ombrix_Track_lapCount(self.pointer)]

    @property
    def lap_figures(self) -> _Rows:
        """What the device says of each lap; negative figures are unknown."""
        return self._rows(Lap, library.ombrix_Track_lapFigures, library.ombrix_Track_lapCount)

    @property
    def name(self) -> str:
        return library.ombrix_Track_name(self.pointer).decode()

    @property
    def fault(self) -> str:
        """Why the file could not be read whole; empty when it could."""
        return library.ombrix_Track_fault(self.pointer).decode()

    @property
    def skipped(self) -> int:
        """How many points have no place or no time, and were left out."""
        return library.ombrix_Track_skipped(self.pointer)

    def data(self, format: TrackFormat) -> bytes:
        """The bytes of a file of a format."""
        return taken_bytes(checked(library.ombrix_Track_dataInFormat_error_, self.pointer,
                                   TrackFormat(format)))

    def __iter__(self) -> Iterator[Location]:
        return iter(self.fixes)

    def __len__(self) -> int:
        return library.ombrix_Track_locationCount(self.pointer)


class Day(_Read):
    """A measured day of skiing: runs, lifts and their figures."""

    _release = "ombrix_Day_release"

    @classmethod
    def measure(cls, track: Track) -> Day:
        return cls(library.ombrix_Day_initWithTrack_(track.pointer))

    @property
    def totals(self) -> DayTotals:
        return library.ombrix_Day_totals(self.pointer)

    @property
    def segments(self) -> _Rows:
        return self._rows(DaySegment, library.ombrix_Day_segments,
                          library.ombrix_Day_segmentCount)

    @property
    def samples(self) -> _Rows:
        return self._rows(DaySample, library.ombrix_Day_samples, library.ombrix_Day_sampleCount)


class TrackWriter(Handle):
    """Appends fixes to a CSV track. One thread at a time."""

    _release = "ombrix_LocationCSVWriter_release"

    def __init__(self, path: str | os.PathLike):
        super().__init__(checked(library.ombrix_LocationCSVWriter_initWithUrl_error_,
                                 encoded(file_url(path))))

    def add(self, fix: Location) -> None:
        """Hands a fix to the file; raises `Error` when it does not take it."""
        checked(library.ombrix_LocationCSVWriter_addLocation_error_, self.pointer, C.byref(fix))

    def sync(self) -> None:
        """Waits until all fixes so far survive a loss of power."""
        checked(library.ombrix_LocationCSVWriter_sync_, self.pointer)

    @property
    def fixes_written(self) -> int:
        return library.ombrix_LocationCSVWriter_fixesWritten(self.pointer)
