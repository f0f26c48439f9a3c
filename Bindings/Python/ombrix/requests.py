"""Requests to the product's web service, for asyncio."""

from __future__ import annotations

import asyncio
import ctypes as C
import enum
import os
from typing import NamedTuple

from . import _native
from ._library import Error, encoded, library, taken
from .tracks import file_url

_waiting: dict[int, tuple[asyncio.AbstractEventLoop, asyncio.Future]] = {}
_next = iter(range(1, 2**62))
_NO_PROGRESS = _native.OmbrixTransferProgress()


class Environment(enum.IntEnum):
    PRODUCTION = 0
    STAGING = 1
    DEVELOPMENT = 2


class Answer(NamedTuple):
    """The status and the body of an answer."""

    code: int
    body: bytes


def _settle(future: asyncio.Future, outcome: Answer | Error) -> None:
    if future.done():
        return
    if isinstance(outcome, Error):
        future.set_exception(outcome)
    else:
        future.set_result(outcome)


@_native.OmbrixServerAPICompletion
def _completed(success, code, body, length, error, context):
    loop, future = _waiting.pop(context, (None, None))
    if loop is None:
        return
    outcome = Answer(code, C.string_at(body, length)) if success else Error(error, owned=False)
    try:
        loop.call_soon_threadsafe(_settle, future, outcome)
    except RuntimeError:  # the loop is closed: nobody waits any more
        pass


def use_servers(production: str, staging: str, development: str,
                environment: Environment = Environment.PRODUCTION) -> None:
    """Uses these servers, base URLs that end in "/"."""
    if not library.ombrix_ServerAPI_setProduction_staging_development_(
            library.ombrix_ServerAPI_sharedInstance(), encoded(production), encoded(staging),
            encoded(development)):
        raise ValueError("a base URL that is none")
    library.ombrix_ServerAPI_changeTo_(Environment(environment))


def set_token(token: str | None) -> None:
    """The bearer token of the signed-in user; None signs out."""
    library.ombrix_ServerAPI_setJwtToken_(library.ombrix_ServerAPI_sharedInstance(), encoded(token))


async def upload(path: str | os.PathLike, url: str, method: str = "PUT") -> Answer:
    """Sends a file, read in pieces, and waits for the answer; cancelling the wait ends it."""
    client = library.ombrix_ServerAPI_sharedInstance()
    return await _transferred(
        lambda key: library.ombrix_ServerAPI_uploadFile_toUrl_method_progress_completion_context_(
            client, encoded(file_url(path)), encoded(url), encoded(method), _NO_PROGRESS, _completed,
            key))


async def download(url: str, path: str | os.PathLike) -> Answer:
    """Writes an answer into a file, which is there when it is whole; else as `upload`."""
    client = library.ombrix_ServerAPI_sharedInstance()
    return await _transferred(
        lambda key: library.ombrix_ServerAPI_downloadUrl_toFile_progress_completion_context_(
            client, encoded(url), encoded(file_url(path)), _NO_PROGRESS, _completed, key))


async def _transferred(begin) -> Answer:
    loop = asyncio.get_running_loop()
    future = loop.create_future()
    key = next(_next)
    _waiting[key] = (loop, future)
    transfer = begin(key)
    try:
        return await future
    finally:
        _waiting.pop(key, None)
        if transfer is not None:
            library.ombrix_Transfer_cancel(transfer)
            library.ombrix_Transfer_release(transfer)


async def request(url: str, method: str = "GET", payload: bytes | None = None) -> Answer:
    """Sends a request and waits for its answer; cancelling the wait cancels the request.

    `url` is an absolute one, or a path below the base URL. Raises `Error` for what is no success.
    """
    loop = asyncio.get_running_loop()
    future = loop.create_future()
    key = next(_next)
    _waiting[key] = (loop, future)
    body = _native.OmbrixPayload()
    if payload is not None:
        bytes_ = (C.c_uint8 * max(len(payload), 1)).from_buffer_copy(payload or b"\0")
        body = _native.OmbrixPayload(C.cast(bytes_, C.POINTER(C.c_uint8)), len(payload))
    client = library.ombrix_ServerAPI_sharedInstance()
    identity = taken(
        library.ombrix_ServerAPI_requestWithUrl_method_disableCache_payload_completion_context_(
            client, encoded(url), encoded(method), False, body, _completed, key))
    try:
        if identity is None:
            raise MemoryError
        return await future
    finally:
        if _waiting.pop(key, None) is not None and identity is not None:
            library.ombrix_ServerAPI_cancelRequestWithID_(client, encoded(identity))
