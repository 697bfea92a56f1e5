"""A local cache of remote advertising resources.

Cache is for programs with asyncio; Session is for all others, and for other event loops.
"""

from ._library import set_log, version
from .cache import Cache, EventStream, Failure, Lease, Outcome
from .errors import CacheBusyError, CacheClosedError, CacheError
from .session import Session

__all__ = [
    "Cache",
    "CacheBusyError",
    "CacheClosedError",
    "CacheError",
    "EventStream",
    "Failure",
    "Lease",
    "Outcome",
    "Session",
    "set_log",
    "version",
]
