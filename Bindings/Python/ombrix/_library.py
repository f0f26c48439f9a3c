"""The shared library, and what every handle, text and error of it has in common."""

from __future__ import annotations

import atexit
import ctypes as C
import os

from . import _native


def _load() -> C.CDLL:
    """libombrix of this package's version, or the file that OMBRIX_LIBRARY names."""
    library = C.CDLL(os.environ.get("OMBRIX_LIBRARY", "libombrix.so.0.1"))
    for name, (result, parameters) in _native.FUNCTIONS.items():
        function = getattr(library, name)
        function.restype, function.argtypes = result, parameters
    return library


library = _load()
# Requests that are on their way would call into an interpreter that is no more.
atexit.register(library.ombrix_Library_end)


def encoded(text: str | None) -> bytes | None:
    """Text for C; none stays none."""
    return None if text is None else text.encode()


def taken(pointer: int | None) -> str | None:
    """A text that C gave away."""
    if pointer is None:
        return None
    try:
        return C.string_at(pointer).decode()
    finally:
        library.ombrix_String_release(pointer)


def taken_bytes(data: _native.OmbrixData) -> bytes | None:
    """A block that C gave away."""
    if not data.bytes:
        return None
    try:
        return C.string_at(data.bytes, data.length)
    finally:
        library.ombrix_Data_release(data)


class Error(Exception):
    """Why an operation failed. Of a request it knows the status, the case and the answer's body."""

    def __init__(self, pointer: int, owned: bool = True):
        super().__init__(library.ombrix_Error_message(pointer).decode())
        case = library.ombrix_Error_httpCase(pointer)
        self.http_case: str | None = case.decode() if case else None
        self.http_status: int = library.ombrix_Error_httpStatus(pointer)
        self.http_body: bytes | None = taken_bytes(library.ombrix_Error_httpBody(pointer))
        #: The sentence to show to the user, in the user's language.
        self.user_message: str | None = taken(
            library.ombrix_ServerAPI_errorMessageForError_(pointer))
        if owned:
            library.ombrix_Error_release(pointer)


def checked(function, *arguments):
    """Calls a function with an error out-parameter, and raises what it hands out."""
    error = C.c_void_p()
    result = function(*arguments, C.byref(error))
    if error.value:
        raise Error(error.value)
    return result


class Handle:
    """What C gave and gets back: on `close`, at the end of a `with`, or with the last reference."""

    _release: str

    def __init__(self, pointer: int | None):
        self._pointer = pointer
        if not pointer:
            raise MemoryError

    def close(self) -> None:
        """Gives it back; it is not used again. Closing twice is allowed."""
        pointer, self._pointer = getattr(self, "_pointer", None), None
        if pointer:
            getattr(library, self._release)(pointer)

    @property
    def pointer(self) -> int:
        if not self._pointer:
            raise ValueError(f"this {type(self).__name__} is closed")
        return self._pointer

    def __enter__(self):
        return self

    def __exit__(self, *_) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()
