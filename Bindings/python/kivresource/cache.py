"""The cache for programs with asyncio."""

import asyncio
import inspect
import logging
import os
import weakref
from collections import deque
from dataclasses import dataclass, field
from typing import (
    Any,
    AsyncIterator,
    Awaitable,
    Callable,
    Deque,
    Dict,
    Iterable,
    List,
    Literal,
    Mapping,
    NamedTuple,
    Optional,
    Set,
    Tuple,
    Union,
    cast,
    get_args,
    overload,
)

from .errors import CacheClosedError, CacheError
from .lines import (
    AuditResult,
    CheckEvent,
    CleanUpOrphansResult,
    DidFailToLoadResourceEvent,
    DidFinishLoadingEvent,
    DidLoadResourceEvent,
    ErrorDetails,
    ErrorLine,
    Event,
    EventName,
    Line,
    PassReportEvent,
    ProgressEvent,
    RequestEvent,
    Resource,
    RevalidationReportEvent,
    Settings,
    SomeSettings,
    SpaceResult,
    StateResult,
    TrimResult,
)
from .session import Path, Session, encode

#: A configuration: an object with "items", or the path of a file with one.
Configuration = Union[Dict[str, Any], str, "os.PathLike[str]", None]

#: The headers to add to a request; None to refuse it.
Headers = Optional[Mapping[str, str]]
#: Answers a request for a URL, at once or as an awaitable.
RequestHandler = Callable[[str], Union[Headers, Awaitable[Headers]]]

_logger = logging.getLogger("kivresource")

# The loop serves others after so many lines.
_LINES_AT_ONCE = 50


class Failure(NamedTuple):
    """A file of a resource that could not be loaded."""

    resource: Resource
    #: None if the file came without contents.
    error: Optional[ErrorDetails]


@dataclass
class Outcome:
    """What came of a pass."""

    #: In the order in which they became complete.
    loaded: List[Resource] = field(default_factory=list)
    #: One for each file that failed.
    failed: List[Failure] = field(default_factory=list)
    #: True if stop() ended the pass, or came before it began.
    stopped: bool = False

    @property
    def complete(self) -> bool:
        """True if everything was loaded."""
        return not self.failed and not self.stopped


class Lease:
    """Keeps the files of a resource; see Cache.lease(). Ends with its `async with` block too."""

    def __init__(self, resource: Resource, cache: "Cache", number: int) -> None:
        #: The resource with the paths of the lease.
        self.resource = resource
        self._cache = cache
        self._number: Optional[int] = number

    async def end(self) -> None:
        """Removes the files at the paths of the lease. May be called again."""
        number, self._number = self._number, None
        if number is not None:
            await self._cache._end_lease(number)

    async def __aenter__(self) -> "Lease":
        return self

    async def __aexit__(self, *_: object) -> None:
        await self.end()


class _Pass:
    def __init__(self, tag: int, call: bytes, future: "asyncio.Future[Outcome]") -> None:
        self.tag = tag
        self.call = call
        self.future = future
        self.outcome = Outcome()
        self.began = False  # its call was made

    def end(self, error: Optional[Exception] = None) -> None:
        if self.future.done():
            return
        if error is not None:
            self.future.set_exception(error)
        else:
            self.future.set_result(self.outcome)


class EventStream(AsyncIterator[Event]):
    """The events of a cache since the stream was made; it ends when the cache is closed.

    Events wait in memory until they are taken.
    """

    def __init__(self) -> None:
        self._queue: "asyncio.Queue[Optional[Event]]" = asyncio.Queue()

    def __aiter__(self) -> "EventStream":
        return self

    async def __anext__(self) -> Event:
        event = await self._queue.get()
        if event is None:
            self._put(None)  # for whoever else waits
            raise StopAsyncIteration
        return event

    def _put(self, event: Optional[Event]) -> None:
        self._queue.put_nowait(event)


class Cache:
    """A local cache of remote advertising resources.

        async with Cache(root="/var/cache/app", main="https://ads.example") as cache:
            outcome = await cache.update(config)

    A process has one open cache at a time. A cache belongs to the event loop in which it was
    opened and is used on its thread only; it never blocks the loop. One that is not closed is
    kept alive by its loop; when that is closed and collected, there is a ResourceWarning.

    Operations raise CacheError if the cache refuses them, and CacheClosedError once it is closed.
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
        """A cache that is to be opened; the arguments are those of Session."""
        self._arguments: Dict[str, Any] = {
            "root": root,
            "main": main,
            "reserve": reserve,
            "resources": resources,
            "lookup_roots": lookup_roots,
            "settings": settings,
        }
        self._session: Optional[Session] = None
        self._loop: Optional[asyncio.AbstractEventLoop] = None
        self._descriptor = -1
        self._closing: "Optional[asyncio.Future[None]]" = None
        self._last_tag = 0
        self._answers: Dict[int, Callable[[Dict[str, Any]], None]] = {}
        self._running: Optional[_Pass] = None
        self._waiting: Deque[_Pass] = deque()
        self._revalidations: "Dict[int, asyncio.Future[RevalidationReportEvent]]" = {}
        self._streams: "weakref.WeakSet[EventStream]" = weakref.WeakSet()
        self._callbacks: Dict[str, List[Callable[[Any], object]]] = {}
        self._request_handler: Optional[RequestHandler] = None
        self._request_answers: "Set[asyncio.Task[None]]" = set()

    # --- Opening and closing ---------------------------------------------------------------------

    async def open(self) -> None:
        """Opens the cache. Raises CacheBusyError if the process has an open one."""
        if self._session is not None:
            raise CacheError("the cache was opened already")
        loop = asyncio.get_running_loop()
        session = Session(**self._arguments)
        self._session, self._loop = session, loop
        self._descriptor = session.descriptor()
        loop.add_reader(self._descriptor, self._read)

    async def close(self) -> None:
        """Stops what is loading and closes the cache. What is complete stays.

        Operations that wait raise CacheClosedError. A second close waits for the first.
        """
        if self._session is None:
            return
        loop = self._own_loop()
        if self._closing is None:
            self._detach()
            self._closing = loop.run_in_executor(None, self._session.close)
        await asyncio.shield(self._closing)

    async def __aenter__(self) -> "Cache":
        await self.open()
        return self

    async def __aexit__(self, *_: object) -> None:
        await self.close()

    def _detach(self) -> None:
        """Nothing is received any more."""
        self._own_loop().remove_reader(self._descriptor)
        running, self._running = self._running, None
        passes = [*([running] if running else []), *self._waiting]
        self._waiting.clear()
        for each in passes:
            each.end(CacheClosedError("the cache was closed before the pass had ended"))
        for report in list(self._revalidations.values()):
            if not report.done():
                report.set_exception(
                    CacheClosedError("the cache was closed before the revalidation had ended")
                )
        for task in list(self._request_answers):
            task.cancel()
        answers, self._answers = self._answers, {}
        for answer in answers.values():
            answer({})
        for stream in list(self._streams):
            stream._put(None)

    # --- Passes ----------------------------------------------------------------------------------

    async def load(
        self, config: Configuration, *, id: Optional[str] = None, type: Optional[str] = None
    ) -> Outcome:
        """Loads what the cache does not have, or has in an older version; returns at the end.

        id or type selects the resources with that identifier or of that type. Passes of a cache
        run one after another, in the order of the calls. If the task that waits for the outcome is
        cancelled, the pass is stopped, or never begins.
        """
        if id is not None and type is not None:
            raise ValueError("a pass selects by id or by type, not by both")
        if id is not None:
            return await self._pass({"call": "loadResourceWithID", "id": id}, config)
        if type is not None:
            return await self._pass({"call": "loadResourcesWithType", "type": type}, config)
        return await self._pass({"call": "loadResourcesForConfig"}, config)

    async def update(self, config: Configuration) -> Outcome:
        """As load(); at the end, resources that the configuration does not name are dropped.

        Their files stay on disk until clean_up(). A configuration without a valid item drops
        nothing.
        """
        return await self._pass({"call": "updateResourcesForConfig"}, config)

    async def revalidate(
        self, *, id: Optional[str] = None, type: Optional[str] = None
    ) -> RevalidationReportEvent:
        """Asks whether stored files have changed on the servers, and replaces those that have.

        No pass does this. Returns at the end, with what became of each file. The paths stay the
        same: a replaced file is to be read again. One revalidation runs at a time; another one is
        refused, which its report says. stop() ends it too.
        """
        loop = self._own_loop()
        report: "asyncio.Future[RevalidationReportEvent]" = loop.create_future()
        tag, call = self._tagged({"call": "revalidate", "id": id, "type": type})

        def note_answer(line: Dict[str, Any]) -> None:
            if "error" in line and not report.done():
                report.set_exception(CacheError(line["error"]))

        self._send(tag, call, note_answer)
        self._revalidations[tag] = report
        try:
            return await report
        finally:
            del self._revalidations[tag]

    async def stop(self) -> None:
        """Stops what runs: the pass, those that wait for it, and a revalidation.

        What is complete stays.
        """
        self._own_loop()
        self._open_session()
        waiting, self._waiting = self._waiting, deque()
        for each in waiting:
            each.outcome.stopped = True
            each.end()
        await self._call({"call": "stopLoading"}, self._note_stop)

    async def _pass(self, call: Dict[str, Any], config: Configuration) -> Outcome:
        loop = self._own_loop()
        self._open_session()
        if not (config is None or isinstance(config, dict)):
            config = os.path.abspath(os.fspath(config))
        # Encoded now: the caller may change its configuration while the pass waits.
        started = _Pass(*self._tagged({**call, "config": config}), loop.create_future())
        self._waiting.append(started)
        self._begin_next()
        try:
            return await started.future
        except asyncio.CancelledError:
            self._abandon(started)
            raise

    def _begin_next(self) -> None:
        while self._running is None and self._waiting:
            self._running = running = self._waiting.popleft()
            try:
                self._send(running.tag, running.call, self._note_begin)
            except CacheError as error:
                self._running = None
                running.end(error)

    def _note_begin(self, line: Dict[str, Any]) -> None:
        if self._running is None:
            return
        if "error" in line:
            self._end_running(CacheError(line["error"]))
        else:
            self._running.began = True

    def _note_stop(self, line: Dict[str, Any]) -> None:
        if self._running is not None and self._running.began and "error" not in line:
            self._running.outcome.stopped = True

    def _note_event(self, event: Event) -> None:
        if event["event"] == "request":
            task = self._own_loop().create_task(self._answer_request(event))
            self._request_answers.add(task)
            task.add_done_callback(self._request_answers.discard)
            return
        if event["event"] == "revalidationReport":
            report = self._revalidations.get(cast(int, event["revalidationTag"]))
            if report is not None and not report.done():
                report.set_result(event)
            return
        running = self._running
        if running is None:
            return
        if event["event"] == "didLoadResource":
            running.outcome.loaded.append(event["resource"])
        elif event["event"] == "didFailToLoadResource":
            running.outcome.failed.append(Failure(event["resource"], event["error"]))
        elif event["event"] == "didFinishLoading":
            self._end_when_over(running)

    def _end_when_over(self, running: _Pass) -> None:
        """Ends the pass if no download is in flight.

        The finish may be that of an earlier stop, and a pass whose files fail at once has several.
        All of them come before the answer of the next call.
        """

        def end(state: Dict[str, Any]) -> None:
            if self._running is running and state.get("downloads") == 0:
                self._end_running()

        try:
            self._send(*self._tagged({"call": "state"}), end)
        except CacheError as error:
            self._end_running(error)

    def _end_running(self, error: Optional[Exception] = None) -> None:
        running, self._running = self._running, None
        if running is not None:
            running.end(error)
        self._begin_next()

    def _abandon(self, cancelled: _Pass) -> None:
        if cancelled in self._waiting:
            self._waiting.remove(cancelled)
        elif cancelled is self._running:
            # It stays the running one until its finish.
            self._send(*self._tagged({"call": "stopLoading"}), self._note_stop)

    # --- Following -------------------------------------------------------------------------------

    async def follow(
        self,
        url: str,
        *,
        mirrors: Iterable[str] = (),
        interval: int = 3600,
        jitter: float = 0.1,
        uses_saved_configuration: bool = True,
    ) -> None:
        """Follows the configuration at a URL: fetches it, and brings the cache up to date with it.

        Returns at once. The cache looks again after so many seconds, longer by a random part of
        them up to jitter; with 0, only when check_now() asks for it. Each check sends the event
        "check", which has the report of its pass; the pass sends its events as others do. A pass
        of load() or update() that begins meanwhile is refused: it fails with the code 100.

        Another call takes the place of this one. If the first check fails, the configuration that
        was saved last is used, unless uses_saved_configuration says no.
        """
        await self._call(
            {
                "call": "follow",
                "url": url,
                "mirrors": list(mirrors),
                "interval_s": interval,
                "jitter": jitter,
                "usesSavedConfiguration": uses_saved_configuration,
            }
        )

    async def check_now(self) -> None:
        """Begins a check, whose end is the event "check". Raises CacheError if nothing is followed."""
        await self._call({"call": "checkNow"})

    async def stop_following(self) -> None:
        """Ends the following and a check that runs, which sends no event. Its pass goes on."""
        await self._call({"call": "stopFollowing"})

    # --- Queries and maintenance -----------------------------------------------------------------

    async def resources(
        self, *, id: Optional[str] = None, type: Optional[str] = None
    ) -> List[Resource]:
        """The loaded resources, of an identifier and of a type if these are given."""
        if id is not None:
            answer = await self._call({"call": "loadedResourcesWithID", "id": id})
        elif type is not None:
            answer = await self._call({"call": "loadedResourcesWithType", "type": type})
        else:
            answer = await self._call({"call": "allLoadedResources"})
        found = cast(List[Resource], answer["resources"])
        return [each for each in found if type is None or each["type"] == type]

    async def lease(self, id: str) -> "Lease":
        """Keeps the files of a loaded resource, also when a newer version replaces it.

        They stay until Lease.end(), or until the cache is closed.
        """
        answer = await self._call({"call": "takeLease", "id": id})
        return Lease(cast(Resource, answer["resource"]), self, cast(int, answer["lease"]))

    async def _end_lease(self, number: int) -> None:
        if self._closing is None:  # closing has ended it
            await self._call({"call": "endLease", "lease": number})

    async def state(self) -> StateResult:
        """Whether something is loading, and whether the saved list is in order."""
        return cast(StateResult, await self._call({"call": "state"}))

    async def audit(self) -> AuditResult:
        """The differences between the lists and the disk; changes nothing."""
        return cast(AuditResult, await self._call({"call": "audit"}))

    async def clean_up(self, *, dry_run: bool = False) -> CleanUpOrphansResult:
        """Removes what no loaded resource uses, or only tells what would be removed."""
        answer = await self._call({"call": "cleanUpOrphans", "dryRun": dry_run})
        return cast(CleanUpOrphansResult, answer)

    async def trim(
        self,
        bytes: int,
        *,
        resources: Optional[Literal["oldest", "leastShown"]] = None,
        dry_run: bool = False,
    ) -> TrimResult:
        """Brings the use of the cache down to that many bytes, or only tells what would be removed.

        Orphans go first, and then, only if `resources` says which, loaded resources: those with the
        oldest version, or those that were not shown for the longest time.
        """
        answer = await self._call(
            {"call": "trim", "bytes": bytes, "resources": resources, "dryRun": dry_run}
        )
        return cast(TrimResult, answer)

    async def note_shown(self, id: str) -> None:
        """Notes that a loaded resource is shown now, for trim(). A lease does this by itself."""
        await self._call({"call": "noteShown", "id": id})

    async def space(self) -> SpaceResult:
        """Used and free space, in bytes."""
        return cast(SpaceResult, await self._call({"call": "space"}))

    # --- Settings --------------------------------------------------------------------------------

    async def settings(self) -> Settings:
        """The settings in use."""
        return cast(Settings, (await self._call({"call": "settings"}))["settings"])

    async def set_settings(self, settings: SomeSettings) -> None:
        """Changes the settings that are named; refused while downloads are in flight."""
        await self._call({"call": "setSettings", "settings": settings})

    async def set_servers(self, *, main: Optional[str], reserve: Optional[str]) -> None:
        """Sets the URLs of the servers for the passes that follow; None for none."""
        await self._call({"call": "setDomains", "main": main, "reserve": reserve})

    async def report_progress(self, enabled: bool = True) -> None:
        """Switches the event "progress" on or off; it is off at first."""
        await self._call({"call": "reportProgress", "enabled": enabled})

    async def report_passes(self, enabled: bool = True) -> None:
        """Switches the event "passReport" on or off for later passes; it is off at first."""
        await self._call({"call": "reportPasses", "enabled": enabled})

    async def pause(self) -> None:
        """Halts the downloads until resume(). A pass goes on waiting, and nothing fails."""
        await self._call({"call": "pause"})

    async def resume(self) -> None:
        """Ends a pause."""
        await self._call({"call": "resume"})

    async def answer_requests(self, handler: Optional[RequestHandler]) -> None:
        """Lets the handler answer each request before it is sent: tries, mirrors and redirects.

        It is called in the loop with the URL, and returns the headers to add, or None to refuse the
        request; it may be a coroutine function. Headers go into that one request: a token depends
        on the origin of the URL. If the handler raises, or a header is not valid, the request is
        refused, and the exception goes to the loop's exception handler. Without a handler, requests
        are sent as they are, also those that wait.
        """
        self._own_loop()
        former, self._request_handler = self._request_handler, handler
        try:
            await self._call({"call": "answerRequests", "enabled": handler is not None})
        except CacheError:
            self._request_handler = former
            raise

    async def allow_transfers(self, allowed: bool) -> None:
        """Says whether transfers may start; those that run go on. Nothing fails meanwhile."""
        await self._call({"call": "allowTransfers", "enabled": allowed})

    async def set_bandwidth(self, bytes_per_second: int) -> None:
        """Limits all downloads together, also those that run; 0 for no limit."""
        await self._call({"call": "setBandwidth", "bytesPerSecond": bytes_per_second})

    async def _answer_request(self, event: RequestEvent) -> None:
        refusal = {"call": "refuseRequest", "request": event["request"]}
        problem: Optional[Exception] = None
        try:
            headers = await self._headers_for(event["url"])
            if headers is not None:
                await self._call({**refusal, "call": "sendRequest", "headers": dict(headers)})
                return
        except asyncio.CancelledError:
            if self._closing is None:
                self._send(*self._tagged(refusal), lambda _: None)
            raise
        except Exception as error:
            problem = error
        try:
            await self._call(refusal)
        except CacheError:
            # The request does not wait any more, as after a pause, and the library has said so.
            if isinstance(problem, CacheError):
                return
        if problem is not None:
            self._own_loop().call_exception_handler(
                {"message": "a request was refused: no valid answer came from the function that "
                            "was set by answer_requests()",
                 "exception": problem}
            )

    async def _headers_for(self, url: str) -> Headers:
        if self._request_handler is None:
            return {}
        answer = self._request_handler(url)
        if inspect.isawaitable(answer):
            answer = await answer
        return cast(Headers, answer)

    # --- Events ----------------------------------------------------------------------------------

    def events(self) -> EventStream:
        """The events from now on, for `async for`. Each stream gets all of them."""
        self._own_loop()
        stream = EventStream()
        if self._closing is not None or self._open_session().closed:
            stream._put(None)
        self._streams.add(stream)
        return stream

    @overload
    def on(
        self, name: Literal["didLoadResource"], function: Callable[[DidLoadResourceEvent], object]
    ) -> None:
        ...

    @overload
    def on(
        self,
        name: Literal["didFailToLoadResource"],
        function: Callable[[DidFailToLoadResourceEvent], object],
    ) -> None:
        ...

    @overload
    def on(
        self, name: Literal["didFinishLoading"], function: Callable[[DidFinishLoadingEvent], object]
    ) -> None:
        ...

    @overload
    def on(self, name: Literal["request"], function: Callable[[RequestEvent], object]) -> None:
        ...

    @overload
    def on(self, name: Literal["progress"], function: Callable[[ProgressEvent], object]) -> None:
        ...

    @overload
    def on(
        self, name: Literal["passReport"], function: Callable[[PassReportEvent], object]
    ) -> None:
        ...

    @overload
    def on(
        self,
        name: Literal["revalidationReport"],
        function: Callable[[RevalidationReportEvent], object],
    ) -> None:
        ...

    @overload
    def on(self, name: Literal["check"], function: Callable[[CheckEvent], object]) -> None:
        ...

    @overload
    def on(self, name: Literal["error"], function: Callable[[ErrorLine], object]) -> None:
        ...

    def on(self, name: str, function: Callable[[Any], object]) -> None:
        """Calls the function, in the loop, with each event of that name.

        The name "error" is for problems that are no answer to an operation, such as a list that
        cannot be saved; without a function they go to the logger "kivresource". What a function
        raises goes to the loop's exception handler, and the others are called all the same.
        """
        if name != "error" and name not in get_args(EventName):
            raise ValueError(f"there is no event {name!r}")
        if inspect.iscoroutinefunction(function):
            raise TypeError("a coroutine function cannot be called here; use events()")
        self._callbacks.setdefault(name, []).append(function)

    def off(self, name: str, function: Callable[[Any], object]) -> None:
        """Undoes one on(). Raises ValueError if there was none."""
        functions = self._callbacks.get(name, [])
        if function not in functions:
            raise ValueError(f"the function is not called on {name!r}")
        functions.remove(function)

    def _call_back(self, name: str, line: Line) -> bool:
        functions = list(self._callbacks.get(name, ()))
        for function in functions:
            try:
                function(line)
            except Exception as error:
                self._own_loop().call_exception_handler(
                    {"message": f"a function that was set by on({name!r}) failed", "exception": error}
                )
        return bool(functions)

    # --- Lines -----------------------------------------------------------------------------------

    def _own_loop(self) -> asyncio.AbstractEventLoop:
        if self._loop is None:
            raise CacheError("the cache is not open")
        if asyncio.get_running_loop() is not self._loop:
            raise RuntimeError("the cache belongs to another event loop")
        return self._loop

    def _open_session(self) -> Session:
        if self._session is None:
            raise CacheError("the cache is not open")
        if self._closing is not None or self._session.closed:
            raise CacheClosedError("the cache is closed")
        return self._session

    def _tagged(self, call: Dict[str, Any]) -> Tuple[int, bytes]:
        """A new tag, and the call with it."""
        self._last_tag += 1
        message: Dict[str, Any] = {**call, "tag": self._last_tag}
        return self._last_tag, encode(message)

    def _send(self, tag: int, call: bytes, answer: Callable[[Dict[str, Any]], None]) -> None:
        """Sends the call; the function gets the answer, or an empty one if the cache is closed."""
        self._open_session().send_encoded(call)
        self._answers[tag] = answer

    async def _call(
        self, call: Dict[str, Any], note: Optional[Callable[[Dict[str, Any]], None]] = None
    ) -> Dict[str, Any]:
        future: "asyncio.Future[Dict[str, Any]]" = self._own_loop().create_future()

        def take(line: Dict[str, Any]) -> None:
            if note is not None:
                note(line)
            if future.done():  # cancelled
                return
            if not line:
                future.set_exception(CacheClosedError("the cache was closed before the answer"))
            elif "error" in line:
                future.set_exception(CacheError(line["error"]))
            else:
                future.set_result(line)

        self._send(*self._tagged(call), take)
        return await future

    def _read(self) -> None:
        """Takes the lines that wait. The loop calls it again while there are more."""
        session = self._session
        assert session is not None
        for _ in range(_LINES_AT_ONCE):
            if self._closing is not None:
                return
            try:
                line = session.receive(0)
            except CacheClosedError:
                self._detach()
                return
            if line is None:
                return
            self._take(line)

    def _take(self, line: Line) -> None:
        members = cast(Dict[str, Any], line)
        if "event" in members:
            event = cast(Event, line)
            self._note_event(event)
            for stream in list(self._streams):
                stream._put(event)
            self._call_back(event["event"], line)
        elif "tag" in members:
            answer = self._answers.pop(members.pop("tag"), None)
            if answer is not None:
                answer(members)
        elif not self._call_back("error", line):
            _logger.error("%s", members.get("error"))
