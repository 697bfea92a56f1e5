"""What the operations of the package raise."""


class CacheError(Exception):
    """An operation failed; the text says why."""


class CacheBusyError(CacheError):
    """The process has an open session already."""


class CacheClosedError(CacheError):
    """The cache or session is closed, or was closed while the operation waited."""
