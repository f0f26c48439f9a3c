"""The settings of the program, shared among its processes."""

from __future__ import annotations

from collections.abc import Callable

from . import _native
from ._library import Handle, encoded, library, taken

_observers: dict[int, Callable[[str, bool], None]] = {}
_next = iter(range(1, 2**62))


@_native.OmbrixObserver
def _changed(name, is_prior, context):
    observer = _observers.get(context)
    if observer is not None:
        observer(name.decode(), is_prior)


class Observation(Handle):
    """Keeps an observer registered until it is closed."""

    _release = "ombrix_Observation_release"

    def __init__(self, name: str, observer: Callable[[str, bool], None]):
        self._key = next(_next)
        _observers[self._key] = observer
        super().__init__(library.ombrix_Settings_addObserver_forKeyPath_context_(
            library.ombrix_Settings_shared(), _changed, encoded(name), self._key))

    def close(self) -> None:
        super().close()
        _observers.pop(self._key, None)


def set_identity(identifier: str, version: str | None = None, build: str | None = None) -> None:
    """Tells who the program is; to be called before anything else."""
    library.ombrix_Library_setIdentity(encoded(identifier), encoded(version), encoded(build))


def register() -> None:
    """Registers the library's settings with their defaults. To be called once, at start-up."""
    library.ombrix_Settings_registerCoreSettings(library.ombrix_Settings_shared())


def metric_type() -> str:
    """The unit system: "kilometers", "miles" or "british"; empty before `register`."""
    return taken(library.ombrix_Settings_metricType(library.ombrix_Settings_shared())) or ""


def set_metric_type(metric_type: str | None) -> None:
    """Sets the unit system; None brings the default back."""
    library.ombrix_Settings_setMetricType_(library.ombrix_Settings_shared(), encoded(metric_type))


def observe(name: str, observer: Callable[[str, bool], None]) -> Observation:
    """Calls `observer(name, is_prior)` before and after each change of a property, on the thread
    that changes it, until the observation is closed."""
    return Observation(name, observer)
