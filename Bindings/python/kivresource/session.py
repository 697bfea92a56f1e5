"""A session, as the functions of the shared library have it."""

import ctypes
import json
import math
import os
import threading
import time
import warnings
import weakref
from collections import deque
from typing import Any, Deque, Dict, Iterable, Iterator, Mapping, Optional, Tuple, Union, cast

from . import _library
from .errors import CacheBusyError, CacheClosedError, CacheError
from .lines import Line, SomeSettings

#: A call: an object, such as those of lines.Call, or its text.
AnyCall = Union[Mapping[str, object], str]
Path = Union[str, "os.PathLike[str]"]

# Python's signal handlers run on the main thread, and only between two calls of the library.
_SLICE_MS = 100
_LONGEST_MS = 2**31 - 1

_NO_MEMORY = "the system has no memory, thread or descriptor left"


def encode(call: AnyCall) -> bytes:
    """The text of a call in UTF-8. Raises ValueError or TypeError for what cannot be sent."""
    if not isinstance(call, str):
        call = json.dumps(call, ensure_ascii=False, allow_nan=False, separators=(",", ":"))
    if "\0" in call:
        raise ValueError("a call cannot contain a zero character")
    return call.encode("utf-8")


def _close(handle: int) -> int:
    result: int = _library.library().kivsession_close(handle)
    return result


class Session:
    """A cache that runs on a thread of its own. It takes calls and sends lines (Docs/SESSION.md).

    A process has one open session at a time. All operations may be called on any thread, several at
    a time. In a child process after a fork the session is closed. A session that is never closed
    is closed when it is collected, with a ResourceWarning, or when the interpreter ends.
    """

    def __init__(
        self,
        root: Path,
        *,
        main: Optional[str] = None,
        reserve: Optional[str] = None,
        resources: Optional[Path] = None,
        lookup_roots: Optional[Iterable[Path]] = (),
        settings: Optional[SomeSettings] = None,
    ) -> None:
        """Opens a session.

        root is the directory for the cache; a relative path is one from the current directory. main
        and reserve are the URLs of the servers, and resources is the directory in which the packaged
        InnerAdResources.bundle lies. A configuration may name files in the directories lookup_roots,
        or anywhere if that is None; by default in none. settings say how files are transferred.

        Raises CacheBusyError if the process has an open session, and CacheError if an argument is
        not valid.
        """
        members: Dict[str, Any] = {"root": os.path.abspath(os.fspath(root)), "main": main,
                                   "reserve": reserve, "settings": settings}
        if resources is not None:
            members["resources"] = os.path.abspath(os.fspath(resources))
        members = {name: value for name, value in members.items() if value is not None}
        members["lookupRoots"] = None
        if lookup_roots is not None:
            members["lookupRoots"] = [os.path.abspath(os.fspath(path)) for path in lookup_roots]
        text = encode(members)
        library = _library.library()
        handle, message = ctypes.c_void_p(), ctypes.c_void_p()
        result = library.kivsession_open(text, ctypes.byref(handle), ctypes.byref(message))
        if result != _library.OK:
            said = _library.take_text(message) if message.value else _NO_MEMORY
            raise (CacheBusyError if result == _library.BUSY else CacheError)(said)
        self._library = library
        self._handle = cast(int, handle.value)
        # Lines that were received when an exception, such as KeyboardInterrupt, came in between.
        self._kept: Deque[ctypes.c_void_p] = deque()
        self._finalizer = weakref.finalize(self, _close, self._handle)
        self._owner = os.getpid()

    def __enter__(self) -> "Session":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        if hasattr(self, "_finalizer") and not self.closed:
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)

    @property
    def closed(self) -> bool:
        """True once close() was called, and in a child process after a fork."""
        return not self._finalizer.alive or os.getpid() != self._owner

    def close(self) -> None:
        """Stops what is loading and ends the session. What is complete stays.

        Waits until the session's thread has ended. A second close does nothing.
        """
        if not self._finalizer.alive:
            return
        if _close(self._handle) == _library.INVALID:
            raise CacheError("a session cannot be closed in the log function")
        self._finalizer.detach()

    def send(self, call: AnyCall) -> None:
        """Adds a call, an object or its text; does not wait.

        Raises ValueError or TypeError for what is not JSON or contains a zero character. What is
        no valid call otherwise is answered by a line with an error.
        """
        self.send_encoded(encode(call))

    def send_encoded(self, call: bytes) -> None:
        """As send(), for the text of a call in UTF-8, without a zero byte."""
        self._check(self._library.kivsession_send(self._open_handle(), call))

    def receive(self, timeout: Optional[float] = None) -> Optional[Line]:
        """The next line; None if none came within so many seconds, without a limit by default.

        Each line is received once, by one of the threads that wait. Raises CacheClosedError if
        the session is closed, also while this waits.
        """
        if timeout is not None and math.isnan(timeout):
            raise ValueError("a timeout is a number of seconds")
        deadline = None if timeout is None else time.monotonic() + max(timeout, 0)
        while True:
            result, text = self._receive(self._next_wait(deadline))
            if text is not None:
                return cast(Line, json.loads(text))
            if result != _library.TIMEOUT:
                self._check(result)
            if deadline is not None and time.monotonic() >= deadline:
                return None

    def __iter__(self) -> Iterator[Line]:
        """The lines as they come, until the session is closed."""
        while True:
            try:
                line = self.receive()
            except CacheClosedError:
                return
            if line is not None:
                yield line

    def descriptor(self) -> int:
        """A descriptor for an event loop: it is readable while a line waits.

        It belongs to the session; do not read from it or close it. When it is readable, call
        receive(0).
        """
        descriptor = ctypes.c_int(-1)
        self._check(
            self._library.kivsession_descriptor(self._open_handle(), ctypes.byref(descriptor))
        )
        return descriptor.value

    def _open_handle(self) -> int:
        if self.closed:
            raise CacheClosedError("the session is closed")
        return self._handle

    @staticmethod
    def _next_wait(deadline: Optional[float]) -> int:
        longest = _LONGEST_MS
        if threading.current_thread() is threading.main_thread():
            longest = _SLICE_MS
        if deadline is None:
            return longest
        left = max(deadline - time.monotonic(), 0)
        return longest if left * 1000 >= longest else math.ceil(left * 1000)

    def _receive(self, wait_ms: int) -> Tuple[int, Optional[str]]:
        try:
            kept = self._kept.popleft()
        except IndexError:
            kept = ctypes.c_void_p()
        try:
            result = _library.OK
            if not kept.value:
                result = self._library.kivsession_receive(
                    self._open_handle(), wait_ms, ctypes.byref(kept)
                )
            return result, _library.take_text(kept) if kept.value else None
        except BaseException:
            if kept.value:
                self._kept.append(kept)
            raise

    @staticmethod
    def _check(result: int) -> None:
        if result == _library.CLOSED:
            raise CacheClosedError("the session is closed")
        if result != _library.OK:
            raise CacheError(_NO_MEMORY if result == _library.SYSTEM else f"result {result}")
