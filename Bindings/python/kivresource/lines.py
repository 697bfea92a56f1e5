"""The lines of a session, as types. Docs/SESSION.md describes them.

Made by script/generate-protocol from KivSession/protocol.json; not to be edited.
"""

from typing import Any, Dict, List, Literal, TypedDict, Union


class ResourceMembers(TypedDict):
    """What every resource has."""

    #: The identifier, which all versions of a resource share.
    resourceID: str
    #: The name.
    name: str
    #: The category, by which calls can select.
    type: str
    #: The string that chose the kind.
    engine: str
    #: Another identifier; `undefined` if the item has none.
    uid: str
    #: The largest is downloaded first.
    priority: int
    #: The version: of two resources with one identifier the one with the greater number is newer.
    updated: int
    #: True if all files of the resource are on disk now.
    filesExist: bool
    #: The links of the files that are missing; of a file that was there before, its path.
    missingFilesLinks: List[str]
    #: The paths of all files that the resource uses.
    useFilePaths: List[str]
    #: The item, with the path of each file that is there in place of its link, and with members of
    #: the host's own.
    resourceDictionary: Dict[str, Any]


#: A value that the host chooses to find the answer of a call.
Tag = Union[str, float]


#: A configuration: an object with the array "items", or the path of a file with one; a relative
#: path starts at the working directory of the process. With null, or an object without that array,
#: it is a configuration without items. README.md describes an item. A file is stored under the last
#: component of its link: new contents need a new name, or a revalidate.
Config = Union[Dict[str, Any], str, None]


class ErrorDetails(TypedDict):
    """Why something failed."""

    #: What the code belongs to; see Errors.
    domain: str
    #: The number of the error in its domain.
    code: int
    #: A text for people, which may change in a later version.
    message: str


_StandardResourceKind = TypedDict("_StandardResourceKind", {"class": Literal["KivResourceStandard"]})


class StandardResource(ResourceMembers, _StandardResourceKind):
    """An image banner (the engine `eco_standard`)."""

    #: The URL to open when the banner is clicked; never downloaded.
    marketLink: str
    #: The path of the image; null until it is there.
    image: Union[str, None]
    #: True once the image was seen on disk.
    fileIsLoaded: bool
    #: The member of the item that names the image.
    requiredImageField: str


_VideoResourceKind = TypedDict("_VideoResourceKind", {"class": Literal["KivResourceVideo"]})


class VideoResource(ResourceMembers, _VideoResourceKind):
    """A video promotion (the engine `eco_video`)."""

    #: The title to show.
    title: str
    #: The URL to open when the video is clicked; never downloaded.
    marketLink: str
    #: The path of the icon; null until it is there.
    icon: Union[str, None]
    #: The path of the video; null until it is there.
    video: Union[str, None]
    #: How many have voted; 0 if the item has no number.
    votes: int
    #: The rating, in single precision: 4.7 comes as 4.699999809265137.
    rating: float
    #: The links of the files that were missing when the resource was made, less those that have
    #: arrived since.
    fileLinks: List[str]
    #: The paths of the files that are there, in the order in which they came.
    filePaths: List[str]
    #: The member of the item that names the video.
    requiredVideoField: str


_WebResourceKind = TypedDict("_WebResourceKind", {"class": Literal["KivResourceWeb"]})


class WebResource(ResourceMembers, _WebResourceKind):
    """A page, from an archive or a single file (the engines `eco_fs` and `eco_context`)."""

    #: The path of the page; null until it is there.
    html: Union[str, None]
    #: True once the page was seen on disk.
    fileIsLoaded: bool


_PlainResourceKind = TypedDict("_PlainResourceKind", {"class": Literal["KivResource"]})


class PlainResource(ResourceMembers, _PlainResourceKind):
    """A resource without files (any other engine)."""


#: A resource. Its member `class` says which kind it is.
Resource = Union[StandardResource, VideoResource, WebResource, PlainResource]


class StoredItem(TypedDict):
    """A file, a link or a directory of the cache. An unpacked archive, the directory, is one item.
    """

    #: Its absolute path.
    path: str
    #: What it takes on disk, for a directory with its contents; 0 in `missing`; null if it cannot
    #: be determined. In bytes.
    size: Union[int, None]
    #: The identifier of a resource that needs it; null if none does.
    resourceID: Union[str, None]


class FailedTry(TypedDict):
    """A request that failed."""

    #: The URL that was requested, without credentials.
    server: str
    #: The HTTP status; 0 if none came.
    statusCode: int
    #: The code of the transfer's error in the domain `kiv.KivRESTService`; null if there was a
    #: status.
    errorCode: Union[int, None]


class PassFile(TypedDict):
    """A file that a resource lacked when the pass came to it. If it was not downloaded, the last seven
    members are 0, null or empty.
    """

    #: The link, as in the configuration.
    link: str
    #: It was stored before; it was downloaded and stored; it was not, and `error` says why; it was
    #: stored but is not found under its name; or its download was cancelled with the pass.
    outcome: Union[Literal["local"], Literal["downloaded"], Literal["failed"], Literal["notFound"], Literal["notEnded"]]
    #: Why it failed; null if it did not, or if it came without contents.
    error: Union[ErrorDetails, None]
    #: The HTTP status of the download; 0 if no server answered.
    statusCode: int
    #: The URL whose response counted, without credentials.
    server: Union[str, None]
    #: The size of what came. In bytes.
    bytes: int
    #: Of these, those that were kept from an earlier request. In bytes.
    resumedBytes: int
    #: From the first request to the end. In milliseconds.
    duration_ms: int
    #: How many requests were made.
    tries: int
    #: Those that failed, in their order.
    failedTries: List[FailedTry]


class PassEntry(TypedDict):
    """What became of one item of the configuration."""

    #: The place of the item in `items`, from 0.
    item: int
    #: The identifier; empty if the item has none. The same holds for the next three members.
    resourceID: str
    #: The name.
    name: str
    #: The type.
    type: str
    #: The engine.
    engine: str
    #: The version; 0 for an invalid item.
    updated: int
    #: Loaded; loaded in place of another version; this version or a newer one was loaded before;
    #: loaded and replaced or removed again before the end; a file is missing or the pass was
    #: refused; a file was stored but not found; not loaded when the pass was stopped; the call
    #: selects others; the item makes no resource.
    outcome: Union[Literal["added"], Literal["replaced"], Literal["unchanged"], Literal["removed"], Literal["failed"], Literal["incomplete"], Literal["notEnded"], Literal["leftOut"], Literal["invalid"]]
    #: The version that was replaced, or that is loaded instead; null if there is none.
    otherVersion: Union[int, None]
    #: A text for people about a resource that is removed, incomplete, left out or invalid;
    #: otherwise empty.
    reason: str
    #: The first error of a failed resource.
    error: Union[ErrorDetails, None]
    #: The files that it lacked.
    files: List[PassFile]


class RevalidatedFile(TypedDict):
    """A file that loaded resources use. If it was not asked for, the last seven members are 0, null or
    empty.
    """

    #: Its absolute path.
    path: str
    #: The link, as in the configuration; empty if it is not known.
    link: str
    #: The identifiers of the selected resources that use it.
    resourceIDs: List[str]
    #: A server has the same contents; it had others, which are stored now; no server gave a usable
    #: answer or it could not be stored, and `error` says why; the link is not known, or the file is
    #: packaged or elsewhere on the disk; the file was gone, or another one was there, when the
    #: answer came; or the request was cancelled.
    outcome: Union[Literal["unchanged"], Literal["replaced"], Literal["failed"], Literal["unknown"], Literal["removed"], Literal["notEnded"]]
    #: Why it failed; null if it did not, or if it came without contents.
    error: Union[ErrorDetails, None]
    #: The HTTP status; 0 if no server answered.
    statusCode: int
    #: The URL whose response counted, without credentials.
    server: Union[str, None]
    #: The size of what came. In bytes.
    bytes: int
    #: Of these, those that were kept from an earlier request. In bytes.
    resumedBytes: int
    #: From the first request to the end. In milliseconds.
    duration_ms: int
    #: How many requests were made.
    tries: int
    #: Those that failed, in their order.
    failedTries: List[FailedTry]


class PassDrop(TypedDict):
    """A resource that an update removed from the loaded ones. Its files stay on disk."""

    #: The identifier.
    resourceID: str
    #: The name.
    name: str
    #: The type.
    type: str
    #: The version.
    updated: int


class PassReport(TypedDict):
    """How a pass went: the members of the event passReport, without its tag."""

    #: How it ended.
    outcome: Union[Literal["done"], Literal["nothingSelected"], Literal["refused"], Literal["stopped"], Literal["abandoned"]]
    #: One for each item, in their order.
    entries: List[PassEntry]
    #: What an update removed.
    dropped: List[PassDrop]
    #: What came, of all files. In bytes.
    bytes: int
    #: From the start of the pass to its end. In milliseconds.
    duration_ms: int
    #: Why the list of the loaded resources could not be saved; null if it could.
    saveError: Union[ErrorDetails, None]
    #: True if memory ran out for a part of the report.
    isIncomplete: bool


class RefusedItem(StoredItem):
    """A stored item that could not be removed."""

    #: Why not.
    error: ErrorDetails


class TrimmedResource(TypedDict):
    """A loaded resource that trim has removed."""

    #: The identifier.
    resourceID: str
    #: The version.
    updated: int


class Settings(TypedDict):
    """How files are transferred. TRANSFERS.md describes each setting in full."""

    #: How many transfers run at one time. From 1 to 1000. Default: 6.
    parallelTransfers: int
    #: How many threads move bytes. From 1 to 64. Default: 2.
    threads: int
    #: What all transfers together receive on average at most; 0 for no limit. A burst may be
    #: faster. From 0 to 9007199254740991. In bytes per second. Default: 0.
    bandwidth: int
    #: The limit on look-up, connecting and TLS handshake together. From 1 to 86400000. In
    #: milliseconds. Default: 15000.
    connectTimeout_ms: int
    #: The limit on a file, with all retries; 0 for no limit. From 0 to 31536000. In seconds.
    #: Default: 21600.
    deadline_s: int
    #: The attempts at one file with one server. From 1 to 1000. Default: 3.
    triesPerServer: int
    #: The limit on a file. From 0 to 9007199254740991. In bytes. Default: 2147483648.
    largestBody: int
    #: Accepts bodies that end with the connection. Default: false.
    takesBodiesWithoutLength: bool
    #: Follows redirects from a public to a private address. Default: false.
    followsRedirectsToPrivateAddresses: bool
    #: The absolute path of the directory for large and incomplete bodies; empty to keep them in
    #: memory. Default: a directory under the root.
    spoolDirectory: str
    #: The limit on all incomplete bodies together. From 0 to 9007199254740991. In bytes. Default:
    #: 1073741824.
    largestPartials: int
    #: The URL of the proxy; empty for none, null for that of the environment. Default: null.
    proxy: Union[str, None]
    #: The absolute path of a PEM file of the authorities to trust; empty for the system's. Default:
    #: "".
    certificateAuthoritiesPath: str
    #: The User-Agent header. Default: "KivRESTService/1.0".
    userAgent: str
    #: Offers HTTP/2 to https servers. Default: true.
    http2: bool


class SomeSettings(TypedDict, total=False):
    """Any of the members of Settings. What is not named stays as it is."""

    #: How many transfers run at one time. From 1 to 1000. Default: 6.
    parallelTransfers: int
    #: How many threads move bytes. From 1 to 64. Default: 2.
    threads: int
    #: What all transfers together receive on average at most; 0 for no limit. A burst may be
    #: faster. From 0 to 9007199254740991. In bytes per second. Default: 0.
    bandwidth: int
    #: The limit on look-up, connecting and TLS handshake together. From 1 to 86400000. In
    #: milliseconds. Default: 15000.
    connectTimeout_ms: int
    #: The limit on a file, with all retries; 0 for no limit. From 0 to 31536000. In seconds.
    #: Default: 21600.
    deadline_s: int
    #: The attempts at one file with one server. From 1 to 1000. Default: 3.
    triesPerServer: int
    #: The limit on a file. From 0 to 9007199254740991. In bytes. Default: 2147483648.
    largestBody: int
    #: Accepts bodies that end with the connection. Default: false.
    takesBodiesWithoutLength: bool
    #: Follows redirects from a public to a private address. Default: false.
    followsRedirectsToPrivateAddresses: bool
    #: The absolute path of the directory for large and incomplete bodies; empty to keep them in
    #: memory. Default: a directory under the root.
    spoolDirectory: str
    #: The limit on all incomplete bodies together. From 0 to 9007199254740991. In bytes. Default:
    #: 1073741824.
    largestPartials: int
    #: The URL of the proxy; empty for none, null for that of the environment. Default: null.
    proxy: Union[str, None]
    #: The absolute path of a PEM file of the authorities to trust; empty for the system's. Default:
    #: "".
    certificateAuthoritiesPath: str
    #: The User-Agent header. Default: "KivRESTService/1.0".
    userAgent: str
    #: Offers HTTP/2 to https servers. Default: true.
    http2: bool


class _OpenSettingsOptional(TypedDict, total=False):
    """What may be missing."""

    #: The URL of the main server, which is put before each link with one `/` between; null for
    #: none. It is not checked: a bad one fails the files. Default: null.
    main: Union[str, None]
    #: The URL of the mirror; null for none. Default: null.
    reserve: Union[str, None]
    #: The absolute path of the directory in which the packaged `InnerAdResources.bundle` lies.
    #: Default: see PACKAGED-RESOURCES.md.
    resources: str
    #: The absolute paths of directories whose files an item of a configuration may name, besides
    #: those of the cache and the packaged ones; null for all files of the computer
    #: (MAINTENANCE.md). Default: [].
    lookupRoots: Union[List[str], None]
    #: How files are transferred. Default: all defaults.
    settings: SomeSettings


class OpenSettings(_OpenSettingsOptional):
    """What `kivsession_open()` takes. A member of another name is an error."""

    #: The absolute path of the directory for the cache. It is created when something is stored; if
    #: that fails, the state says why.
    root: str


class Tagged(TypedDict, total=False):
    """A line that may have a tag."""

    #: Of a call: asks for an answer with this tag. Of an answer: the tag of its call.
    tag: Tag


class LoadResourcesForConfigCall(Tagged):
    """Starts a pass: loads the resources of the configuration that the cache does not have, or has in
    an older version. If downloads are in flight, the pass is refused: each resource is reported as
    failed with the code 100, and the finish is reported; the earlier pass goes on. In these
    failures, the members of a resource do not tell which files are on disk.
    """

    #: The name of the call.
    call: Literal["loadResourcesForConfig"]
    #: The configuration.
    config: Config


class LoadResourceWithIDCall(Tagged):
    """The same for the resources with one identifier."""

    #: The name of the call.
    call: Literal["loadResourceWithID"]
    #: The identifier (`banner_id`); null for all.
    id: Union[str, None]
    #: The configuration.
    config: Config


class LoadResourcesWithTypeCall(Tagged):
    """The same for the resources of one type."""

    #: The name of the call.
    call: Literal["loadResourcesWithType"]
    #: The type; null for all.
    type: Union[str, None]
    #: The configuration.
    config: Config


class UpdateResourcesForConfigCall(Tagged):
    """As loadResourcesForConfig; at the end of the pass, loaded resources that the configuration does
    not name leave the list of loaded resources. No event says so: ask allLoadedResources after the
    finish. Their files stay on disk until cleanUpOrphans. A configuration without a valid item
    removes nothing.
    """

    #: The name of the call.
    call: Literal["updateResourcesForConfig"]
    #: The configuration.
    config: Config


class _RevalidateCallOptional(TypedDict, total=False):
    """What may be missing."""

    #: Only the files of the resources with this identifier; null means all. Default: null.
    id: Union[str, None]
    #: Only the files of the resources of this type; null means all. Default: null.
    type: Union[str, None]


class RevalidateCall(Tagged, _RevalidateCallOptional):
    """Asks the servers whether stored files of loaded resources have changed under their names, and
    replaces those that have. No pass does this. When it has ended, the event revalidationReport
    says what became of each file. Passes may run meanwhile; another revalidation is refused.
    stopLoading stops it too, and so does setSettings.
    """

    #: The name of the call.
    call: Literal["revalidate"]


class StopLoadingCall(Tagged):
    """Cancels all downloads and reports the finish, also if there was nothing to cancel. A resource
    whose download is cancelled is not reported. Complete resources stay, and so do the bytes of
    incomplete files.
    """

    #: The name of the call.
    call: Literal["stopLoading"]


class _WaitForFinishCallOptional(TypedDict, total=False):
    """What may be missing."""

    #: How long to wait. In milliseconds. Default: 30000.
    timeout_ms: float


class WaitForFinishCall(Tagged, _WaitForFinishCallOptional):
    """Makes the next call only after a didFinishLoading. Each wait uses one of the session, whether or
    not it was received: if one is unused, it does not wait. So a host uses either waits or events.
    When the time is over, the answer is the error `timeout`, with or without a tag; this text does
    not change.
    """

    #: The name of the call.
    call: Literal["waitForFinish"]


class SleepCall(Tagged):
    """Makes the next call only after a time. Downloads go on. For tests and scripts; a host waits by
    itself.
    """

    #: The name of the call.
    call: Literal["sleep"]
    #: How long. In milliseconds.
    ms: float


class ReportProgressCall(Tagged):
    """Switches the event `progress` on or off. It is off at first."""

    #: The name of the call.
    call: Literal["reportProgress"]
    #: True for on.
    enabled: bool


class ReportPassesCall(Tagged):
    """Switches the event `passReport` on or off for the passes that are started later. It is off at
    first.
    """

    #: The name of the call.
    call: Literal["reportPasses"]
    #: True for on.
    enabled: bool


class AnswerRequestsCall(Tagged):
    """Switches on that each request waits for an answer of the host, which may add headers to it, such
    as a token. Each try, mirror, redirect and continuation is a request of its own, and is
    announced by the event request, also those of a configuration that is followed. Calls that
    answer wait behind a waitForFinish too, so a host that answers requests waits for the event
    didFinishLoading. Switched off, the requests that wait are sent as they are. It is off at first.
    In `kivresource session`, the requests that wait when all calls of the input were made are
    refused, and so are those that follow.
    """

    #: The name of the call.
    call: Literal["answerRequests"]
    #: True for on.
    enabled: bool


class _SendRequestCallOptional(TypedDict, total=False):
    """What may be missing."""

    #: The headers to add: names, and strings as values. They go into this request alone. Default:
    #: {}.
    headers: Dict[str, Any]


class SendRequestCall(Tagged, _SendRequestCallOptional):
    """Sends a request that waits. The answer is an error if there is no such request, if it was
    answered already, or if it does not wait any more: stopLoading and setSettings end the wait, and
    so do pause, setBandwidth, follow and stopFollowing, after which it is announced again, with
    another number, if it is still wanted. If a header is not valid, the answer is an error too, and
    the request waits on. At most 32 headers with 32 KiB are taken, and none of those on which the
    client alone decides: Host, Range, Accept-Encoding and the like. Headers appear in no line, log,
    error or file.
    """

    #: The name of the call.
    call: Literal["sendRequest"]
    #: The number of the request.
    request: int


class RefuseRequestCall(Tagged):
    """Does not send a request that waits. This try fails; the mirror is tried next, with a request of
    its own, but not the same server again. The answer is an error in the same cases as of
    sendRequest.
    """

    #: The name of the call.
    call: Literal["refuseRequest"]
    #: The number of the request.
    request: int


class AllowTransfersCall(Tagged):
    """Says whether transfers may start, on a metered network for example. Those that run go on, unlike
    with pause, and so do requests that were announced. The others wait, also those of a
    configuration that is followed, and none fails. It is true at first. In `kivresource session`,
    the pass is stopped if downloads are paused or may not start when all calls of the input were
    made.
    """

    #: The name of the call.
    call: Literal["allowTransfers"]
    #: True if they may start.
    enabled: bool


class PauseCall(Tagged):
    """Stops all downloads until resume. A running pass waits, and no file fails because of the pause.
    What has been received is kept where the server makes that possible.
    """

    #: The name of the call.
    call: Literal["pause"]


class ResumeCall(Tagged):
    """Ends a pause. Without one it has no effect."""

    #: The name of the call.
    call: Literal["resume"]


class _FollowCallOptional(TypedDict, total=False):
    """What may be missing."""

    #: The URLs to try, in their order, if that server fails. Default: [].
    mirrors: List[str]
    #: The least time from the end of a check to the next one; with 0, there are only the first
    #: check and those of checkNow. After a failed check the next one comes after a minute, then
    #: after two, four, and so on up to the interval. From 0 to 31536000. In seconds. Default: 3600.
    interval_s: int
    #: Each wait is longer by a random part of it, up to this fraction. From 0 to 1. Default: 0.1.
    jitter: float
    #: If the first check fails, a pass runs with the configuration that was saved last. Default:
    #: true.
    usesSavedConfiguration: bool


class FollowCall(Tagged, _FollowCallOptional):
    """Follows a configuration on a server: fetches it, runs an update pass with it, and checks after
    each interval whether there is another one. Each check sends the event check. Only one
    configuration is followed: another follow takes the place of the former, whose running check is
    not reported. The answer is an error that names the parameter if a URL is no http or https URL
    or a number is out of range; nothing changes then.
    """

    #: The name of the call.
    call: Literal["follow"]
    #: The URL of the configuration, with http or https, in ASCII. The servers of the session are
    #: not used for it.
    url: str


class CheckNowCall(Tagged):
    """Begins a check at once. If one is running, it is that one. The answer is an error if nothing is
    followed.
    """

    #: The name of the call.
    call: Literal["checkNow"]


class StopFollowingCall(Tagged):
    """Ends the following: no event check is sent any more, also not for a running check. A pass that
    has begun continues; stopLoading stops it. Has no effect if no configuration is followed.
    """

    #: The name of the call.
    call: Literal["stopFollowing"]


class AllLoadedResourcesCall(Tagged):
    """The loaded resources, in the order in which they were loaded."""

    #: The name of the call.
    call: Literal["allLoadedResources"]


class LoadedResourcesWithIDCall(Tagged):
    """The loaded resources with one identifier."""

    #: The name of the call.
    call: Literal["loadedResourcesWithID"]
    #: The identifier; null selects nothing.
    id: Union[str, None]


class LoadedResourcesWithTypeCall(Tagged):
    """The loaded resources of one type."""

    #: The name of the call.
    call: Literal["loadedResourcesWithType"]
    #: The type; null selects nothing.
    type: Union[str, None]


class TakeLeaseCall(Tagged):
    """Keeps the files of a loaded resource, also when a newer version replaces it, until endLease or
    the end of the session. A page keeps its whole directory. The files are hard links, or copies
    where the file system refuses links, and may only be read. The answer is an error if no resource
    with the identifier is loaded, or its files cannot be kept.
    """

    #: The name of the call.
    call: Literal["takeLease"]
    #: The identifier. Of several versions the newest is taken.
    id: Union[str, None]


class EndLeaseCall(Tagged):
    """Ends a lease: the files at its paths are removed. The answer is an error if there is no such
    lease.
    """

    #: The name of the call.
    call: Literal["endLease"]
    #: The number of the lease.
    lease: int


class StateCall(Tagged):
    """Whether something is loading, and whether the list of loaded resources could be read and saved.
    """

    #: The name of the call.
    call: Literal["state"]


class AuditCall(Tagged):
    """Compares the lists with the disk, without changing anything. MAINTENANCE.md has more."""

    #: The name of the call.
    call: Literal["audit"]


class _CleanUpOrphansCallOptional(TypedDict, total=False):
    """What may be missing."""

    #: True only to tell what would be removed. Default: false.
    dryRun: bool


class CleanUpOrphansCall(Tagged, _CleanUpOrphansCallOptional):
    """Removes what audit reports as orphaned or partial. The answer is an error while downloads are in
    flight, and if a saved list cannot be read.
    """

    #: The name of the call.
    call: Literal["cleanUpOrphans"]


class _TrimCallOptional(TypedDict, total=False):
    """What may be missing."""

    #: Which loaded resources go first: those with the smallest `updated`, or those that were not
    #: shown for the longest time, see noteShown. Null if none may be removed. Default: null.
    resources: Union[Literal["oldest"], Literal["leastShown"], None]
    #: True only to tell what would be removed. Default: false.
    dryRun: bool


class TrimCall(Tagged, _TrimCallOptional):
    """Removes as little as possible to bring the use of the cache (cacheUsed of space) down to a
    number of bytes: orphans first, the oldest first, and then, if `resources` says so, loaded
    resources. What is leased stays. No event is sent for a removed resource; a later pass with a
    configuration that names it loads it again. The answer is an error in the same cases as of
    cleanUpOrphans. MAINTENANCE.md has more.
    """

    #: The name of the call.
    call: Literal["trim"]
    #: The bound. In bytes.
    bytes: int


class NoteShownCall(Tagged):
    """Notes that a loaded resource is shown now, for trim. takeLease does this by itself. Does nothing
    if no resource with the identifier is loaded.
    """

    #: The name of the call.
    call: Literal["noteShown"]
    #: The identifier.
    id: Union[str, None]


class SpaceCall(Tagged):
    """Used and free space."""

    #: The name of the call.
    call: Literal["space"]


class SettingsCall(Tagged):
    """The settings in use."""

    #: The name of the call.
    call: Literal["settings"]


class SetSettingsCall(Tagged):
    """Changes settings. If downloads are in flight, a member is unknown, or a value is not valid, the
    answer is an error and nothing changes.
    """

    #: The name of the call.
    call: Literal["setSettings"]
    #: Those to change.
    settings: SomeSettings


class _SetDomainsCallOptional(TypedDict, total=False):
    """What may be missing."""

    #: The URL of the main server; null for none. Default: unchanged.
    main: Union[str, None]
    #: The URL of the mirror; null for none. Default: unchanged.
    reserve: Union[str, None]


class SetDomainsCall(Tagged, _SetDomainsCallOptional):
    """Changes the servers for the passes that follow. A server that is not named stays."""

    #: The name of the call.
    call: Literal["setDomains"]


class SetBandwidthCall(Tagged):
    """Changes the setting `bandwidth`, also while files are loading."""

    #: The name of the call.
    call: Literal["setBandwidth"]
    #: The limit for all downloads together; 0 for none. In bytes per second.
    bytesPerSecond: int


class LoadResourcesForConfigResult(TypedDict):
    """The answer of loadResourcesForConfig, if it has a tag."""

    #: The name of the call.
    result: Literal["loadResourcesForConfig"]
    #: The tag of the call.
    tag: Tag


class LoadResourceWithIDResult(TypedDict):
    """The answer of loadResourceWithID, if it has a tag."""

    #: The name of the call.
    result: Literal["loadResourceWithID"]
    #: The tag of the call.
    tag: Tag


class LoadResourcesWithTypeResult(TypedDict):
    """The answer of loadResourcesWithType, if it has a tag."""

    #: The name of the call.
    result: Literal["loadResourcesWithType"]
    #: The tag of the call.
    tag: Tag


class UpdateResourcesForConfigResult(TypedDict):
    """The answer of updateResourcesForConfig, if it has a tag."""

    #: The name of the call.
    result: Literal["updateResourcesForConfig"]
    #: The tag of the call.
    tag: Tag


class RevalidateResult(TypedDict):
    """The answer of revalidate, if it has a tag."""

    #: The name of the call.
    result: Literal["revalidate"]
    #: The tag of the call.
    tag: Tag


class StopLoadingResult(TypedDict):
    """The answer of stopLoading, if it has a tag."""

    #: The name of the call.
    result: Literal["stopLoading"]
    #: The tag of the call.
    tag: Tag


class WaitForFinishResult(TypedDict):
    """The answer of waitForFinish, if it has a tag."""

    #: The name of the call.
    result: Literal["waitForFinish"]
    #: The tag of the call.
    tag: Tag


class SleepResult(TypedDict):
    """The answer of sleep, if it has a tag."""

    #: The name of the call.
    result: Literal["sleep"]
    #: The tag of the call.
    tag: Tag


class ReportProgressResult(TypedDict):
    """The answer of reportProgress, if it has a tag."""

    #: The name of the call.
    result: Literal["reportProgress"]
    #: The tag of the call.
    tag: Tag


class ReportPassesResult(TypedDict):
    """The answer of reportPasses, if it has a tag."""

    #: The name of the call.
    result: Literal["reportPasses"]
    #: The tag of the call.
    tag: Tag


class AnswerRequestsResult(TypedDict):
    """The answer of answerRequests, if it has a tag."""

    #: The name of the call.
    result: Literal["answerRequests"]
    #: The tag of the call.
    tag: Tag


class SendRequestResult(TypedDict):
    """The answer of sendRequest, if it has a tag."""

    #: The name of the call.
    result: Literal["sendRequest"]
    #: The tag of the call.
    tag: Tag


class RefuseRequestResult(TypedDict):
    """The answer of refuseRequest, if it has a tag."""

    #: The name of the call.
    result: Literal["refuseRequest"]
    #: The tag of the call.
    tag: Tag


class AllowTransfersResult(TypedDict):
    """The answer of allowTransfers, if it has a tag."""

    #: The name of the call.
    result: Literal["allowTransfers"]
    #: The tag of the call.
    tag: Tag


class PauseResult(TypedDict):
    """The answer of pause, if it has a tag."""

    #: The name of the call.
    result: Literal["pause"]
    #: The tag of the call.
    tag: Tag


class ResumeResult(TypedDict):
    """The answer of resume, if it has a tag."""

    #: The name of the call.
    result: Literal["resume"]
    #: The tag of the call.
    tag: Tag


class FollowResult(TypedDict):
    """The answer of follow, if it has a tag."""

    #: The name of the call.
    result: Literal["follow"]
    #: The tag of the call.
    tag: Tag


class CheckNowResult(TypedDict):
    """The answer of checkNow, if it has a tag."""

    #: The name of the call.
    result: Literal["checkNow"]
    #: The tag of the call.
    tag: Tag


class StopFollowingResult(TypedDict):
    """The answer of stopFollowing, if it has a tag."""

    #: The name of the call.
    result: Literal["stopFollowing"]
    #: The tag of the call.
    tag: Tag


class AllLoadedResourcesResult(Tagged):
    """The answer of allLoadedResources."""

    #: The name of the call.
    result: Literal["allLoadedResources"]
    #: The resources.
    resources: List[Resource]


class LoadedResourcesWithIDResult(Tagged):
    """The answer of loadedResourcesWithID."""

    #: The name of the call.
    result: Literal["loadedResourcesWithID"]
    #: The resources.
    resources: List[Resource]


class LoadedResourcesWithTypeResult(Tagged):
    """The answer of loadedResourcesWithType."""

    #: The name of the call.
    result: Literal["loadedResourcesWithType"]
    #: The resources.
    resources: List[Resource]


class TakeLeaseResult(Tagged):
    """The answer of takeLease."""

    #: The name of the call.
    result: Literal["takeLease"]
    #: The number of the lease, for endLease.
    lease: int
    #: The resource with the paths of the lease.
    resource: Resource


class EndLeaseResult(TypedDict):
    """The answer of endLease, if it has a tag."""

    #: The name of the call.
    result: Literal["endLease"]
    #: The tag of the call.
    tag: Tag


class StateResult(Tagged):
    """The answer of state."""

    #: The name of the call.
    result: Literal["state"]
    #: How many downloads are in flight. If it is not 0, a new pass is refused. If it is 0, all
    #: events of the passes so far have been sent.
    downloads: int
    #: Why the list of the loaded resources could not be saved; null if it could. The next change
    #: saves it again.
    saveError: Union[ErrorDetails, None]
    #: Why the saved list could not be read at the start; null once it was read or replaced.
    savedListError: Union[ErrorDetails, None]
    #: True between pause and resume.
    isPaused: bool
    #: What allowTransfers has set last.
    allowsTransfers: bool
    #: The URL of the configuration that is followed, without credentials and query; null if none
    #: is.
    follows: Union[str, None]


class AuditResult(Tagged):
    """The answer of audit."""

    #: The name of the call.
    result: Literal["audit"]
    #: Files of loaded resources that are missing.
    missing: List[StoredItem]
    #: Files of theirs that are there but cannot be read.
    unreadable: List[StoredItem]
    #: Items that no loaded resource uses.
    orphaned: List[StoredItem]
    #: Orphaned directories without an `index.html`.
    partial: List[StoredItem]
    #: Incomplete files under the root, of this process or another.
    temporary: List[StoredItem]
    #: What is kept by leases, of this process or another. A hard link takes no space of its own as
    #: long as the stored file is there.
    leased: List[StoredItem]
    #: True if a pass is running: what it has stored so far counts as orphaned.
    downloadsAreInFlight: bool
    #: Why cleanUpOrphans would refuse: a saved list that cannot be read may name the orphans. Null
    #: if it would not.
    listDoubt: Union[ErrorDetails, None]


class CleanUpOrphansResult(Tagged):
    """The answer of cleanUpOrphans."""

    #: The name of the call.
    result: Literal["cleanUpOrphans"]
    #: What was removed or, in a dry run, would be.
    removed: List[StoredItem]
    #: What could not be removed; empty in a dry run.
    refused: List[RefusedItem]


class TrimResult(Tagged):
    """The answer of trim."""

    #: The name of the call.
    result: Literal["trim"]
    #: What was removed or, in a dry run, would be.
    removed: List[StoredItem]
    #: The loaded resources among it.
    resources: List[TrimmedResource]
    #: What could not be removed; empty in a dry run.
    refused: List[RefusedItem]
    #: Why no loaded resource was removed: the list of them could not be saved. Null if that did not
    #: happen.
    listError: Union[ErrorDetails, None]
    #: The use before. In bytes.
    usedBefore: int
    #: The use after, in a dry run estimated. In bytes.
    usedAfter: int
    #: True if usedAfter is not above the bound.
    isBoundKept: bool


class NoteShownResult(TypedDict):
    """The answer of noteShown, if it has a tag."""

    #: The name of the call.
    result: Literal["noteShown"]
    #: The tag of the call.
    tag: Tag


class SpaceResult(Tagged):
    """The answer of space."""

    #: The name of the call.
    result: Literal["space"]
    #: What the cache uses: its list, files and temporaries. In bytes.
    cacheUsed: int
    #: What this process may still write there. In bytes.
    fileSystemAvailable: int
    #: What is used of the file system of the root, by anybody. In bytes.
    fileSystemUsed: int


class SettingsResult(Tagged):
    """The answer of settings."""

    #: The name of the call.
    result: Literal["settings"]
    #: All of them.
    settings: Settings


class SetSettingsResult(TypedDict):
    """The answer of setSettings, if it has a tag."""

    #: The name of the call.
    result: Literal["setSettings"]
    #: The tag of the call.
    tag: Tag


class SetDomainsResult(TypedDict):
    """The answer of setDomains, if it has a tag."""

    #: The name of the call.
    result: Literal["setDomains"]
    #: The tag of the call.
    tag: Tag


class SetBandwidthResult(TypedDict):
    """The answer of setBandwidth, if it has a tag."""

    #: The name of the call.
    result: Literal["setBandwidth"]
    #: The tag of the call.
    tag: Tag


class DidLoadResourceEvent(TypedDict):
    """A resource of the pass is loaded: all of its files are on disk. The files of an older version
    are removed then; a host that shows them takes the new paths. It is also sent for a resource
    that was loaded before, with the loaded version if that is newer than the item; if somebody has
    removed its files since, `filesExist` is false, and the first pass of the next session loads
    them again.
    """

    #: The name of the event.
    event: Literal["didLoadResource"]
    #: The resource.
    resource: Resource


class DidFailToLoadResourceEvent(TypedDict):
    """A resource of the pass could not be loaded. It is sent for each file that failed. An older
    version stays loaded.
    """

    #: The name of the event.
    event: Literal["didFailToLoadResource"]
    #: The resource.
    resource: Resource
    #: Why; null if a file came without contents.
    error: Union[ErrorDetails, None]


class DidFinishLoadingEvent(TypedDict):
    """A pass is over, was stopped or was refused. If files fail at once, because there is no server
    for example, it comes more than once in a pass, the last time at the end; the pass is over if
    the answer of a state that is sent after it says `downloads` 0.
    """

    #: The name of the event.
    event: Literal["didFinishLoading"]


class RequestEvent(TypedDict):
    """A request waits for sendRequest or refuseRequest; see answerRequests. It takes a place of its
    server, and the time limit `deadline_s` of its file runs meanwhile.
    """

    #: The name of the event.
    event: Literal["request"]
    #: The number of the request. It counts from 1 in the session, and is not used again.
    request: int
    #: The URL that is about to be requested, with credentials and query if it has any. A host that
    #: adds a token compares the whole origin: `https://ads.example` is also the start of
    #: `https://ads.example.net`.
    url: str


class ProgressEvent(TypedDict):
    """How far the downloads are, counted from the moment when none was in flight. After reportProgress
    it is sent at most ten times a second while files are loading, and once after the last has
    ended; of several that wait to be received only the newest is kept.
    """

    #: The name of the event.
    event: Literal["progress"]
    #: How many files have ended, well or not.
    completedFiles: int
    #: How many there are.
    files: int
    #: What has come, with what was on disk already. In bytes.
    receivedBytes: int
    #: The final value of receivedBytes; null while the length of a file is unknown. In bytes.
    expectedBytes: Union[int, None]
    #: How many files are being transferred now.
    runningTransfers: int
    #: The speed now, of all transfers together. In bytes per second.
    bytesPerSecond: float


class PassReportEvent(TypedDict):
    """How a pass went. After reportPasses it is sent exactly once for each pass that a call starts,
    after the other events of the pass; also if it is refused or stopped.
    """

    #: The name of the event.
    event: Literal["passReport"]
    #: The tag of the call that started the pass.
    passTag: Union[Tag, None]
    #: Every selected resource was dealt with; the call selects no valid item, and nothing was
    #: dropped; downloads of another pass were in flight; stopLoading was called; the downloads had
    #: not ended when the cache was closed.
    outcome: Union[Literal["done"], Literal["nothingSelected"], Literal["refused"], Literal["stopped"], Literal["abandoned"]]
    #: One for each item, in their order.
    entries: List[PassEntry]
    #: What an update removed.
    dropped: List[PassDrop]
    #: What came, of all files. In bytes.
    bytes: int
    #: From the start of the pass to its end. In milliseconds.
    duration_ms: int
    #: Why the list of the loaded resources could not be saved; null if it could.
    saveError: Union[ErrorDetails, None]
    #: True if memory ran out for a part of the report.
    isIncomplete: bool


class RevalidationReportEvent(TypedDict):
    """How a revalidation went. It is sent exactly once for each, also if it is refused or stopped.
    Nothing else is sent, since resources and paths stay the same: a host that shows a replaced file
    reads it again.
    """

    #: The name of the event.
    event: Literal["revalidationReport"]
    #: The tag of the call that started it.
    revalidationTag: Union[Tag, None]
    #: done: every selected file was dealt with. refused: another revalidation is running, and
    #: continues. stopped: requests were cancelled. abandoned: the cache was closed.
    outcome: Union[Literal["done"], Literal["refused"], Literal["stopped"], Literal["abandoned"]]
    #: Each file once, in the order of the resources.
    files: List[RevalidatedFile]
    #: What came, of all files. In bytes.
    bytes: int
    #: From the call to the end. In milliseconds.
    duration_ms: int
    #: True if memory ran out for a part of the report.
    isIncomplete: bool


class CheckEvent(TypedDict):
    """How a check of follow ended. It is also sent when a check has to wait for the end of another
    pass, and then again when it has ended. It comes after the other events of the check's pass, for
    which no passReport is sent.
    """

    #: The name of the event.
    event: Literal["check"]
    #: The tag of the call follow.
    followTag: Union[Tag, None]
    #: updated: a pass ran with a new configuration. repeated: a pass ran with the same one, since
    #: it was the first check, or the last pass had left something undone. unchanged: nothing was to
    #: be done. postponed: another pass is running, and the check continues when that has ended.
    #: failed: no usable configuration came, and the last one is kept.
    outcome: Union[Literal["updated"], Literal["repeated"], Literal["unchanged"], Literal["postponed"], Literal["failed"]]
    #: Why it failed; null if it did not.
    error: Union[ErrorDetails, None]
    #: The HTTP status of the answer; 0 if no server answered.
    statusCode: int
    #: The URL that answered, without credentials.
    server: Union[str, None]
    #: How the pass of the check went; null if none ran. A failed check has one if the saved
    #: configuration was used.
    report: Union[PassReport, None]
    #: Why the configuration could not be saved for the next start; null if it could, or was not to
    #: be.
    saveError: Union[ErrorDetails, None]
    #: The time until the next check; null if none is planned. In milliseconds.
    nextCheck_ms: Union[int, None]


class ErrorLine(Tagged):
    """A line that begins with `error`: a call was not valid or could not be made, or a wait timed out.
    It has the tag of that call, if it has one that could be read. Without a tag, the line may also
    say that the list of the loaded resources could not be saved (once, until it was saved again),
    or that memory ran out and lines were lost.
    """

    #: A text for people, which may change in a later version.
    error: str


#: Any call.
Call = Union[
    LoadResourcesForConfigCall,
    LoadResourceWithIDCall,
    LoadResourcesWithTypeCall,
    UpdateResourcesForConfigCall,
    RevalidateCall,
    StopLoadingCall,
    WaitForFinishCall,
    SleepCall,
    ReportProgressCall,
    ReportPassesCall,
    AnswerRequestsCall,
    SendRequestCall,
    RefuseRequestCall,
    AllowTransfersCall,
    PauseCall,
    ResumeCall,
    FollowCall,
    CheckNowCall,
    StopFollowingCall,
    AllLoadedResourcesCall,
    LoadedResourcesWithIDCall,
    LoadedResourcesWithTypeCall,
    TakeLeaseCall,
    EndLeaseCall,
    StateCall,
    AuditCall,
    CleanUpOrphansCall,
    TrimCall,
    NoteShownCall,
    SpaceCall,
    SettingsCall,
    SetSettingsCall,
    SetDomainsCall,
    SetBandwidthCall,
]


#: Any result.
Result = Union[
    LoadResourcesForConfigResult,
    LoadResourceWithIDResult,
    LoadResourcesWithTypeResult,
    UpdateResourcesForConfigResult,
    RevalidateResult,
    StopLoadingResult,
    WaitForFinishResult,
    SleepResult,
    ReportProgressResult,
    ReportPassesResult,
    AnswerRequestsResult,
    SendRequestResult,
    RefuseRequestResult,
    AllowTransfersResult,
    PauseResult,
    ResumeResult,
    FollowResult,
    CheckNowResult,
    StopFollowingResult,
    AllLoadedResourcesResult,
    LoadedResourcesWithIDResult,
    LoadedResourcesWithTypeResult,
    TakeLeaseResult,
    EndLeaseResult,
    StateResult,
    AuditResult,
    CleanUpOrphansResult,
    TrimResult,
    NoteShownResult,
    SpaceResult,
    SettingsResult,
    SetSettingsResult,
    SetDomainsResult,
    SetBandwidthResult,
]


#: Any event.
Event = Union[
    DidLoadResourceEvent,
    DidFailToLoadResourceEvent,
    DidFinishLoadingEvent,
    RequestEvent,
    ProgressEvent,
    PassReportEvent,
    RevalidationReportEvent,
    CheckEvent,
]


#: Any line that a session sends.
Line = Union[Result, Event, ErrorLine]


#: The names of the calls.
CallName = Literal[
    "loadResourcesForConfig",
    "loadResourceWithID",
    "loadResourcesWithType",
    "updateResourcesForConfig",
    "revalidate",
    "stopLoading",
    "waitForFinish",
    "sleep",
    "reportProgress",
    "reportPasses",
    "answerRequests",
    "sendRequest",
    "refuseRequest",
    "allowTransfers",
    "pause",
    "resume",
    "follow",
    "checkNow",
    "stopFollowing",
    "allLoadedResources",
    "loadedResourcesWithID",
    "loadedResourcesWithType",
    "takeLease",
    "endLease",
    "state",
    "audit",
    "cleanUpOrphans",
    "trim",
    "noteShown",
    "space",
    "settings",
    "setSettings",
    "setDomains",
    "setBandwidth",
]


#: The names of the events.
EventName = Literal[
    "didLoadResource",
    "didFailToLoadResource",
    "didFinishLoading",
    "request",
    "progress",
    "passReport",
    "revalidationReport",
    "check",
]
