"""The shared library: where it is, and its functions."""

import atexit
import ctypes
import os
import threading
from pathlib import Path
from typing import Callable, Optional

from .errors import CacheError

OK = 0
TIMEOUT = 1
CLOSED = 2
INVALID = 3
BUSY = 4
SYSTEM = 5

FILE_NAME = "libkivsession.so.1"
VARIABLE = "KIVRESOURCE_LIBRARY"

_LogCallback = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p)

_lock = threading.Lock()
_library: Optional[ctypes.CDLL] = None
_log_function: Optional[Callable[[str], object]] = None


def _candidate() -> str:
    """The one library to load: a second choice could be another version than the one meant."""
    beside = Path(__file__).with_name(FILE_NAME)
    if beside.exists():
        return str(beside)
    return os.environ.get(VARIABLE) or FILE_NAME


def _load() -> ctypes.CDLL:
    path = _candidate()
    try:
        library = ctypes.CDLL(path)
    except OSError as error:
        raise CacheError(
            f"the library cannot be loaded: {error}; the environment variable {VARIABLE} may name it"
        ) from error
    session, text, number = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int
    prototypes = {
        "kivsession_open": (number, [text, ctypes.POINTER(session), ctypes.POINTER(session)]),
        "kivsession_send": (number, [session, text]),
        "kivsession_receive": (number, [session, number, ctypes.POINTER(session)]),
        "kivsession_descriptor": (number, [session, ctypes.POINTER(number)]),
        "kivsession_close": (number, [session]),
        "kivsession_set_log": (number, [ctypes.c_void_p, ctypes.c_void_p]),
        "kivsession_free": (None, [ctypes.c_void_p]),
        "kivsession_version": (text, []),
    }
    for name, (result, arguments) in prototypes.items():
        try:
            function = getattr(library, name)
        except AttributeError:
            raise CacheError(f"{path} has no function {name}") from None
        function.restype = result
        function.argtypes = arguments
    return library


def library() -> ctypes.CDLL:
    """The library, loaded at the first use."""
    global _library
    with _lock:
        if _library is None:
            _library = _load()
        return _library


def take_text(pointer: "ctypes.c_void_p") -> str:
    """A text of the library as a string; frees it."""
    address = pointer.value or 0
    text = ctypes.string_at(address).decode("utf-8", "replace")
    # In this order: an exception between the two, such as KeyboardInterrupt, has nothing freed twice.
    pointer.value = None
    library().kivsession_free(address)
    return text


def version() -> str:
    """The version of the library."""
    text: bytes = library().kivsession_version()
    return text.decode("ascii")


# --- The log -------------------------------------------------------------------------------------

def _log(_context: Optional[int], line: bytes) -> None:
    # What this raises, ctypes hands to sys.unraisablehook.
    function = _log_function
    if function is not None:
        function(line.decode("utf-8", "replace"))


# Never freed: the library may still be calling it on another thread after another was set.
_log_callback = _LogCallback(_log)


def set_log(function: Optional[Callable[[str], object]]) -> None:
    """Sets the function that receives the lines of the log, for people; not to be parsed.

    It is called on any thread, also on several at a time, and must not close a session. What it
    raises goes to sys.unraisablehook. None restores standard error and the system's log.
    """
    global _log_function
    _log_function = function
    callback = None if function is None else ctypes.cast(_log_callback, ctypes.c_void_p)
    if library().kivsession_set_log(callback, None) != OK:
        raise CacheError("the log function cannot be set: the system has no memory left")


@atexit.register
def _restore_log() -> None:
    # The library's threads may not call into an interpreter that is gone.
    if _log_function is not None:
        set_log(None)
