"""Bytes kept in files, by name and by key."""

from __future__ import annotations

import ctypes as C
import os
from collections.abc import Iterator

from . import _native
from ._library import Handle, checked, encoded, library, taken_bytes
from .tracks import file_url


def _bytes(value: bytes):
    return (C.c_uint8 * max(len(value), 1)).from_buffer_copy(value or b"\0"), len(value)


class FileStore(Handle):
    """Bytes in one file, coordinated with other processes. Any thread."""

    _release = "ombrix_FileStore_release"

    def __init__(self, path: str | os.PathLike):
        super().__init__(checked(library.ombrix_FileStore_initWithUrl_error_,
                                 encoded(file_url(path))))

    @property
    def value(self) -> bytes | None:
        """What the file holds; None where it is missing or cannot be read. Setting None removes it."""
        return taken_bytes(library.ombrix_FileStore_value(self.pointer))

    @value.setter
    def value(self, value: bytes | None) -> None:
        library.ombrix_FileStore_setValue_length_(
            self.pointer, *((None, 0) if value is None else _bytes(value)))

    def __len__(self) -> int:
        """The bytes that the file takes on disk."""
        return library.ombrix_FileStore_size(self.pointer)

    def __bool__(self) -> bool:
        return library.ombrix_FileStore_exists(self.pointer)


class KeyedStore(Handle):
    """Bytes by key, a file for each, in one folder. What a file name cannot hold is left out of a key.

    with KeyedStore("huts", "txt") as huts:
        huts["monte-rosa"] = b"120 beds"
    """

    _release = "ombrix_KeyedStore_release"

    def __init__(self, folder: str | os.PathLike, extension: str = "data"):
        super().__init__(checked(library.ombrix_KeyedStore_initWithUrl_fileExtension_error_,
                                 encoded(file_url(folder)), encoded(extension)))

    def get(self, key: str) -> bytes | None:
        return taken_bytes(library.ombrix_KeyedStore_valueForKey_(self.pointer, encoded(key)))

    def __getitem__(self, key: str) -> bytes:
        value = self.get(key)
        if value is None:
            raise KeyError(key)
        return value

    def __setitem__(self, key: str, value: bytes) -> None:
        library.ombrix_KeyedStore_storeValue_length_forKey_(self.pointer, *_bytes(value),
                                                            encoded(key))

    def __delitem__(self, key: str) -> None:
        library.ombrix_KeyedStore_purgeForKey_(self.pointer, encoded(key))

    def __contains__(self, key: str) -> bool:
        return library.ombrix_KeyedStore_existsForKey_(self.pointer, encoded(key))

    def __iter__(self) -> Iterator[str]:
        keys: list[str] = []
        visitor = _native.OmbrixKeyVisitor(lambda key, _: keys.append(key.decode()))
        library.ombrix_KeyedStore_visitKeys_context_(self.pointer, visitor, None)
        return iter(keys)

    def clear(self) -> None:
        """Removes the folder with all that is in it."""
        library.ombrix_KeyedStore_purge(self.pointer)
