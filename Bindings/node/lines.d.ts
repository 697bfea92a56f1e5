// The lines of a session, as types. Docs/SESSION.md describes them.
//
// Made by script/generate-protocol from KivSession/protocol.json; not to be edited.

/** Any JSON object. */
export interface JSONObject {
  [member: string]: unknown;
}

/** What every resource has. */
export interface ResourceMembers {
  /** The identifier, which all versions of a resource share. */
  resourceID: string;
  /** The name. */
  name: string;
  /** The category, by which calls can select. */
  type: string;
  /** The string that chose the kind. */
  engine: string;
  /** Another identifier; `undefined` if the item has none. */
  uid: string;
  /** The largest is downloaded first. */
  priority: number;
  /** The version: of two resources with one identifier the one with the greater number is newer. */
  updated: number;
  /** True if all files of the resource are on disk now. */
  filesExist: boolean;
  /** The links of the files that are missing; of a file that was there before, its path. */
  missingFilesLinks: string[];
  /** The paths of all files that the resource uses. */
  useFilePaths: string[];
  /**
   * The item, with the path of each file that is there in place of its link, and with members of
   * the host's own.
   */
  resourceDictionary: JSONObject;
}

/** A value that the host chooses to find the answer of a call. */
export type Tag = string | number;

/**
 * A configuration: an object with the array "items", or the path of a file with one; a relative
 * path starts at the working directory of the process. With null, or an object without that array,
 * it is a configuration without items. README.md describes an item. A file is stored under the last
 * component of its link: new contents need a new name, or a revalidate.
 */
export type Config = JSONObject | string | null;

/** Why something failed. */
export interface ErrorDetails {
  /** What the code belongs to; see Errors. */
  domain: string;
  /** The number of the error in its domain. */
  code: number;
  /** A text for people, which may change in a later version. */
  message: string;
}

/** An image banner (the engine `eco_standard`). */
export interface StandardResource extends ResourceMembers {
  /** The kind of the resource. */
  class: "KivResourceStandard";
  /** The URL to open when the banner is clicked; never downloaded. */
  marketLink: string;
  /** The path of the image; null until it is there. */
  image: string | null;
  /** True once the image was seen on disk. */
  fileIsLoaded: boolean;
  /** The member of the item that names the image. */
  requiredImageField: string;
}

/** A video promotion (the engine `eco_video`). */
export interface VideoResource extends ResourceMembers {
  /** The kind of the resource. */
  class: "KivResourceVideo";
  /** The title to show. */
  title: string;
  /** The URL to open when the video is clicked; never downloaded. */
  marketLink: string;
  /** The path of the icon; null until it is there. */
  icon: string | null;
  /** The path of the video; null until it is there. */
  video: string | null;
  /** How many have voted; 0 if the item has no number. */
  votes: number;
  /** The rating, in single precision: 4.7 comes as 4.699999809265137. */
  rating: number;
  /**
   * The links of the files that were missing when the resource was made, less those that have
   * arrived since.
   */
  fileLinks: string[];
  /** The paths of the files that are there, in the order in which they came. */
  filePaths: string[];
  /** The member of the item that names the video. */
  requiredVideoField: string;
}

/** A page, from an archive or a single file (the engines `eco_fs` and `eco_context`). */
export interface WebResource extends ResourceMembers {
  /** The kind of the resource. */
  class: "KivResourceWeb";
  /** The path of the page; null until it is there. */
  html: string | null;
  /** True once the page was seen on disk. */
  fileIsLoaded: boolean;
}

/** A resource without files (any other engine). */
export interface PlainResource extends ResourceMembers {
  /** The kind of the resource. */
  class: "KivResource";
}

/** A resource. Its member `class` says which kind it is. */
export type Resource = StandardResource | VideoResource | WebResource | PlainResource;

/** A file, a link or a directory of the cache. An unpacked archive, the directory, is one item. */
export interface StoredItem {
  /** Its absolute path. */
  path: string;
  /**
   * What it takes on disk, for a directory with its contents; 0 in `missing`; null if it cannot be
   * determined. In bytes.
   */
  size: number | null;
  /** The identifier of a resource that needs it; null if none does. */
  resourceID: string | null;
}

/** A request that failed. */
export interface FailedTry {
  /** The URL that was requested, without credentials. */
  server: string;
  /** The HTTP status; 0 if none came. */
  statusCode: number;
  /**
   * The code of the transfer's error in the domain `kiv.KivRESTService`; null if there was a
   * status.
   */
  errorCode: number | null;
}

/**
 * A file that a resource lacked when the pass came to it. If it was not downloaded, the last seven
 * members are 0, null or empty.
 */
export interface PassFile {
  /** The link, as in the configuration. */
  link: string;
  /**
   * It was stored before; it was downloaded and stored; it was not, and `error` says why; it was
   * stored but is not found under its name; or its download was cancelled with the pass.
   */
  outcome: "local" | "downloaded" | "failed" | "notFound" | "notEnded";
  /** Why it failed; null if it did not, or if it came without contents. */
  error: ErrorDetails | null;
  /** The HTTP status of the download; 0 if no server answered. */
  statusCode: number;
  /** The URL whose response counted, without credentials. */
  server: string | null;
  /** The size of what came. In bytes. */
  bytes: number;
  /** Of these, those that were kept from an earlier request. In bytes. */
  resumedBytes: number;
  /** From the first request to the end. In milliseconds. */
  duration_ms: number;
  /** How many requests were made. */
  tries: number;
  /** Those that failed, in their order. */
  failedTries: FailedTry[];
}

/** What became of one item of the configuration. */
export interface PassEntry {
  /** The place of the item in `items`, from 0. */
  item: number;
  /** The identifier; empty if the item has none. The same holds for the next three members. */
  resourceID: string;
  /** The name. */
  name: string;
  /** The type. */
  type: string;
  /** The engine. */
  engine: string;
  /** The version; 0 for an invalid item. */
  updated: number;
  /**
   * Loaded; loaded in place of another version; this version or a newer one was loaded before;
   * loaded and replaced or removed again before the end; a file is missing or the pass was refused;
   * a file was stored but not found; not loaded when the pass was stopped; the call selects others;
   * the item makes no resource.
   */
  outcome: "added" | "replaced" | "unchanged" | "removed" | "failed" | "incomplete" | "notEnded" | "leftOut" | "invalid";
  /** The version that was replaced, or that is loaded instead; null if there is none. */
  otherVersion: number | null;
  /**
   * A text for people about a resource that is removed, incomplete, left out or invalid; otherwise
   * empty.
   */
  reason: string;
  /** The first error of a failed resource. */
  error: ErrorDetails | null;
  /** The files that it lacked. */
  files: PassFile[];
}

/**
 * A file that loaded resources use. If it was not asked for, the last seven members are 0, null or
 * empty.
 */
export interface RevalidatedFile {
  /** Its absolute path. */
  path: string;
  /** The link, as in the configuration; empty if it is not known. */
  link: string;
  /** The identifiers of the selected resources that use it. */
  resourceIDs: string[];
  /**
   * A server has the same contents; it had others, which are stored now; no server gave a usable
   * answer or it could not be stored, and `error` says why; the link is not known, or the file is
   * packaged or elsewhere on the disk; the file was gone, or another one was there, when the answer
   * came; or the request was cancelled.
   */
  outcome: "unchanged" | "replaced" | "failed" | "unknown" | "removed" | "notEnded";
  /** Why it failed; null if it did not, or if it came without contents. */
  error: ErrorDetails | null;
  /** The HTTP status; 0 if no server answered. */
  statusCode: number;
  /** The URL whose response counted, without credentials. */
  server: string | null;
  /** The size of what came. In bytes. */
  bytes: number;
  /** Of these, those that were kept from an earlier request. In bytes. */
  resumedBytes: number;
  /** From the first request to the end. In milliseconds. */
  duration_ms: number;
  /** How many requests were made. */
  tries: number;
  /** Those that failed, in their order. */
  failedTries: FailedTry[];
}

/** A resource that an update removed from the loaded ones. Its files stay on disk. */
export interface PassDrop {
  /** The identifier. */
  resourceID: string;
  /** The name. */
  name: string;
  /** The type. */
  type: string;
  /** The version. */
  updated: number;
}

/** How a pass went: the members of the event passReport, without its tag. */
export interface PassReport {
  /** How it ended. */
  outcome: "done" | "nothingSelected" | "refused" | "stopped" | "abandoned";
  /** One for each item, in their order. */
  entries: PassEntry[];
  /** What an update removed. */
  dropped: PassDrop[];
  /** What came, of all files. In bytes. */
  bytes: number;
  /** From the start of the pass to its end. In milliseconds. */
  duration_ms: number;
  /** Why the list of the loaded resources could not be saved; null if it could. */
  saveError: ErrorDetails | null;
  /** True if memory ran out for a part of the report. */
  isIncomplete: boolean;
}

/** A stored item that could not be removed. */
export interface RefusedItem extends StoredItem {
  /** Why not. */
  error: ErrorDetails;
}

/** A loaded resource that trim has removed. */
export interface TrimmedResource {
  /** The identifier. */
  resourceID: string;
  /** The version. */
  updated: number;
}

/** How files are transferred. TRANSFERS.md describes each setting in full. */
export interface Settings {
  /** How many transfers run at one time. From 1 to 1000. Default: 6. */
  parallelTransfers: number;
  /** How many threads move bytes. From 1 to 64. Default: 2. */
  threads: number;
  /**
   * What all transfers together receive on average at most; 0 for no limit. A burst may be faster.
   * From 0 to 9007199254740991. In bytes per second. Default: 0.
   */
  bandwidth: number;
  /**
   * The limit on look-up, connecting and TLS handshake together. From 1 to 86400000. In
   * milliseconds. Default: 15000.
   */
  connectTimeout_ms: number;
  /**
   * The limit on a file, with all retries; 0 for no limit. From 0 to 31536000. In seconds. Default:
   * 21600.
   */
  deadline_s: number;
  /** The attempts at one file with one server. From 1 to 1000. Default: 3. */
  triesPerServer: number;
  /** The limit on a file. From 0 to 9007199254740991. In bytes. Default: 2147483648. */
  largestBody: number;
  /** Accepts bodies that end with the connection. Default: false. */
  takesBodiesWithoutLength: boolean;
  /** Follows redirects from a public to a private address. Default: false. */
  followsRedirectsToPrivateAddresses: boolean;
  /**
   * The absolute path of the directory for large and incomplete bodies; empty to keep them in
   * memory. Default: a directory under the root.
   */
  spoolDirectory: string;
  /**
   * The limit on all incomplete bodies together. From 0 to 9007199254740991. In bytes. Default:
   * 1073741824.
   */
  largestPartials: number;
  /** The URL of the proxy; empty for none, null for that of the environment. Default: null. */
  proxy: string | null;
  /**
   * The absolute path of a PEM file of the authorities to trust; empty for the system's. Default:
   * "".
   */
  certificateAuthoritiesPath: string;
  /** The User-Agent header. Default: "KivRESTService/1.0". */
  userAgent: string;
  /** Offers HTTP/2 to https servers. Default: true. */
  http2: boolean;
}

/** Any of the members of Settings. What is not named stays as it is. */
export type SomeSettings = Partial<Settings>;

/** What `kivsession_open()` takes. A member of another name is an error. */
export interface OpenSettings {
  /**
   * The absolute path of the directory for the cache. It is created when something is stored; if
   * that fails, the state says why.
   */
  root: string;
  /**
   * The URL of the main server, which is put before each link with one `/` between; null for none.
   * It is not checked: a bad one fails the files. Default: null.
   */
  main?: string | null;
  /** The URL of the mirror; null for none. Default: null. */
  reserve?: string | null;
  /**
   * The absolute path of the directory in which the packaged `InnerAdResources.bundle` lies.
   * Default: see PACKAGED-RESOURCES.md.
   */
  resources?: string;
  /**
   * The absolute paths of directories whose files an item of a configuration may name, besides
   * those of the cache and the packaged ones; null for all files of the computer (MAINTENANCE.md).
   * Default: [].
   */
  lookupRoots?: string[] | null;
  /** How files are transferred. Default: all defaults. */
  settings?: SomeSettings;
}

/** A line that may have a tag. */
export interface Tagged {
  /** Of a call: asks for an answer with this tag. Of an answer: the tag of its call. */
  tag?: Tag;
}

/**
 * Starts a pass: loads the resources of the configuration that the cache does not have, or has in
 * an older version. If downloads are in flight, the pass is refused: each resource is reported as
 * failed with the code 100, and the finish is reported; the earlier pass goes on. In these
 * failures, the members of a resource do not tell which files are on disk.
 */
export interface LoadResourcesForConfigCall extends Tagged {
  /** The name of the call. */
  call: "loadResourcesForConfig";
  /** The configuration. */
  config: Config;
}

/** The same for the resources with one identifier. */
export interface LoadResourceWithIDCall extends Tagged {
  /** The name of the call. */
  call: "loadResourceWithID";
  /** The identifier (`banner_id`); null for all. */
  id: string | null;
  /** The configuration. */
  config: Config;
}

/** The same for the resources of one type. */
export interface LoadResourcesWithTypeCall extends Tagged {
  /** The name of the call. */
  call: "loadResourcesWithType";
  /** The type; null for all. */
  type: string | null;
  /** The configuration. */
  config: Config;
}

/**
 * As loadResourcesForConfig; at the end of the pass, loaded resources that the configuration does
 * not name leave the list of loaded resources. No event says so: ask allLoadedResources after the
 * finish. Their files stay on disk until cleanUpOrphans. A configuration without a valid item
 * removes nothing.
 */
export interface UpdateResourcesForConfigCall extends Tagged {
  /** The name of the call. */
  call: "updateResourcesForConfig";
  /** The configuration. */
  config: Config;
}

/**
 * Asks the servers whether stored files of loaded resources have changed under their names, and
 * replaces those that have. No pass does this. When it has ended, the event revalidationReport says
 * what became of each file. Passes may run meanwhile; another revalidation is refused. stopLoading
 * stops it too, and so does setSettings.
 */
export interface RevalidateCall extends Tagged {
  /** The name of the call. */
  call: "revalidate";
  /** Only the files of the resources with this identifier; null means all. Default: null. */
  id?: string | null;
  /** Only the files of the resources of this type; null means all. Default: null. */
  type?: string | null;
}

/**
 * Cancels all downloads and reports the finish, also if there was nothing to cancel. A resource
 * whose download is cancelled is not reported. Complete resources stay, and so do the bytes of
 * incomplete files.
 */
export interface StopLoadingCall extends Tagged {
  /** The name of the call. */
  call: "stopLoading";
}

/**
 * Makes the next call only after a didFinishLoading. Each wait uses one of the session, whether or
 * not it was received: if one is unused, it does not wait. So a host uses either waits or events.
 * When the time is over, the answer is the error `timeout`, with or without a tag; this text does
 * not change.
 */
export interface WaitForFinishCall extends Tagged {
  /** The name of the call. */
  call: "waitForFinish";
  /** How long to wait. In milliseconds. Default: 30000. */
  timeout_ms?: number;
}

/**
 * Makes the next call only after a time. Downloads go on. For tests and scripts; a host waits by
 * itself.
 */
export interface SleepCall extends Tagged {
  /** The name of the call. */
  call: "sleep";
  /** How long. In milliseconds. */
  ms: number;
}

/** Switches the event `progress` on or off. It is off at first. */
export interface ReportProgressCall extends Tagged {
  /** The name of the call. */
  call: "reportProgress";
  /** True for on. */
  enabled: boolean;
}

/**
 * Switches the event `passReport` on or off for the passes that are started later. It is off at
 * first.
 */
export interface ReportPassesCall extends Tagged {
  /** The name of the call. */
  call: "reportPasses";
  /** True for on. */
  enabled: boolean;
}

/**
 * Switches on that each request waits for an answer of the host, which may add headers to it, such
 * as a token. Each try, mirror, redirect and continuation is a request of its own, and is announced
 * by the event request, also those of a configuration that is followed. Calls that answer wait
 * behind a waitForFinish too, so a host that answers requests waits for the event didFinishLoading.
 * Switched off, the requests that wait are sent as they are. It is off at first. In `kivresource
 * session`, the requests that wait when all calls of the input were made are refused, and so are
 * those that follow.
 */
export interface AnswerRequestsCall extends Tagged {
  /** The name of the call. */
  call: "answerRequests";
  /** True for on. */
  enabled: boolean;
}

/**
 * Sends a request that waits. The answer is an error if there is no such request, if it was
 * answered already, or if it does not wait any more: stopLoading and setSettings end the wait, and
 * so do pause, setBandwidth, follow and stopFollowing, after which it is announced again, with
 * another number, if it is still wanted. If a header is not valid, the answer is an error too, and
 * the request waits on. At most 32 headers with 32 KiB are taken, and none of those on which the
 * client alone decides: Host, Range, Accept-Encoding and the like. Headers appear in no line, log,
 * error or file.
 */
export interface SendRequestCall extends Tagged {
  /** The name of the call. */
  call: "sendRequest";
  /** The number of the request. */
  request: number;
  /**
   * The headers to add: names, and strings as values. They go into this request alone. Default: {}.
   */
  headers?: JSONObject;
}

/**
 * Does not send a request that waits. This try fails; the mirror is tried next, with a request of
 * its own, but not the same server again. The answer is an error in the same cases as of
 * sendRequest.
 */
export interface RefuseRequestCall extends Tagged {
  /** The name of the call. */
  call: "refuseRequest";
  /** The number of the request. */
  request: number;
}

/**
 * Says whether transfers may start, on a metered network for example. Those that run go on, unlike
 * with pause, and so do requests that were announced. The others wait, also those of a
 * configuration that is followed, and none fails. It is true at first. In `kivresource session`,
 * the pass is stopped if downloads are paused or may not start when all calls of the input were
 * made.
 */
export interface AllowTransfersCall extends Tagged {
  /** The name of the call. */
  call: "allowTransfers";
  /** True if they may start. */
  enabled: boolean;
}

/**
 * Stops all downloads until resume. A running pass waits, and no file fails because of the pause.
 * What has been received is kept where the server makes that possible.
 */
export interface PauseCall extends Tagged {
  /** The name of the call. */
  call: "pause";
}

/** Ends a pause. Without one it has no effect. */
export interface ResumeCall extends Tagged {
  /** The name of the call. */
  call: "resume";
}

/**
 * Follows a configuration on a server: fetches it, runs an update pass with it, and checks after
 * each interval whether there is another one. Each check sends the event check. Only one
 * configuration is followed: another follow takes the place of the former, whose running check is
 * not reported. The answer is an error that names the parameter if a URL is no http or https URL or
 * a number is out of range; nothing changes then.
 */
export interface FollowCall extends Tagged {
  /** The name of the call. */
  call: "follow";
  /**
   * The URL of the configuration, with http or https, in ASCII. The servers of the session are not
   * used for it.
   */
  url: string;
  /** The URLs to try, in their order, if that server fails. Default: []. */
  mirrors?: string[];
  /**
   * The least time from the end of a check to the next one; with 0, there are only the first check
   * and those of checkNow. After a failed check the next one comes after a minute, then after two,
   * four, and so on up to the interval. From 0 to 31536000. In seconds. Default: 3600.
   */
  interval_s?: number;
  /** Each wait is longer by a random part of it, up to this fraction. From 0 to 1. Default: 0.1. */
  jitter?: number;
  /**
   * If the first check fails, a pass runs with the configuration that was saved last. Default:
   * true.
   */
  usesSavedConfiguration?: boolean;
}

/**
 * Begins a check at once. If one is running, it is that one. The answer is an error if nothing is
 * followed.
 */
export interface CheckNowCall extends Tagged {
  /** The name of the call. */
  call: "checkNow";
}

/**
 * Ends the following: no event check is sent any more, also not for a running check. A pass that
 * has begun continues; stopLoading stops it. Has no effect if no configuration is followed.
 */
export interface StopFollowingCall extends Tagged {
  /** The name of the call. */
  call: "stopFollowing";
}

/** The loaded resources, in the order in which they were loaded. */
export interface AllLoadedResourcesCall extends Tagged {
  /** The name of the call. */
  call: "allLoadedResources";
}

/** The loaded resources with one identifier. */
export interface LoadedResourcesWithIDCall extends Tagged {
  /** The name of the call. */
  call: "loadedResourcesWithID";
  /** The identifier; null selects nothing. */
  id: string | null;
}

/** The loaded resources of one type. */
export interface LoadedResourcesWithTypeCall extends Tagged {
  /** The name of the call. */
  call: "loadedResourcesWithType";
  /** The type; null selects nothing. */
  type: string | null;
}

/**
 * Keeps the files of a loaded resource, also when a newer version replaces it, until endLease or
 * the end of the session. A page keeps its whole directory. The files are hard links, or copies
 * where the file system refuses links, and may only be read. The answer is an error if no resource
 * with the identifier is loaded, or its files cannot be kept.
 */
export interface TakeLeaseCall extends Tagged {
  /** The name of the call. */
  call: "takeLease";
  /** The identifier. Of several versions the newest is taken. */
  id: string | null;
}

/**
 * Ends a lease: the files at its paths are removed. The answer is an error if there is no such
 * lease.
 */
export interface EndLeaseCall extends Tagged {
  /** The name of the call. */
  call: "endLease";
  /** The number of the lease. */
  lease: number;
}

/**
 * Whether something is loading, and whether the list of loaded resources could be read and saved.
 */
export interface StateCall extends Tagged {
  /** The name of the call. */
  call: "state";
}

/** Compares the lists with the disk, without changing anything. MAINTENANCE.md has more. */
export interface AuditCall extends Tagged {
  /** The name of the call. */
  call: "audit";
}

/**
 * Removes what audit reports as orphaned or partial. The answer is an error while downloads are in
 * flight, and if a saved list cannot be read.
 */
export interface CleanUpOrphansCall extends Tagged {
  /** The name of the call. */
  call: "cleanUpOrphans";
  /** True only to tell what would be removed. Default: false. */
  dryRun?: boolean;
}

/**
 * Removes as little as possible to bring the use of the cache (cacheUsed of space) down to a number
 * of bytes: orphans first, the oldest first, and then, if `resources` says so, loaded resources.
 * What is leased stays. No event is sent for a removed resource; a later pass with a configuration
 * that names it loads it again. The answer is an error in the same cases as of cleanUpOrphans.
 * MAINTENANCE.md has more.
 */
export interface TrimCall extends Tagged {
  /** The name of the call. */
  call: "trim";
  /** The bound. In bytes. */
  bytes: number;
  /**
   * Which loaded resources go first: those with the smallest `updated`, or those that were not
   * shown for the longest time, see noteShown. Null if none may be removed. Default: null.
   */
  resources?: "oldest" | "leastShown" | null;
  /** True only to tell what would be removed. Default: false. */
  dryRun?: boolean;
}

/**
 * Notes that a loaded resource is shown now, for trim. takeLease does this by itself. Does nothing
 * if no resource with the identifier is loaded.
 */
export interface NoteShownCall extends Tagged {
  /** The name of the call. */
  call: "noteShown";
  /** The identifier. */
  id: string | null;
}

/** Used and free space. */
export interface SpaceCall extends Tagged {
  /** The name of the call. */
  call: "space";
}

/** The settings in use. */
export interface SettingsCall extends Tagged {
  /** The name of the call. */
  call: "settings";
}

/**
 * Changes settings. If downloads are in flight, a member is unknown, or a value is not valid, the
 * answer is an error and nothing changes.
 */
export interface SetSettingsCall extends Tagged {
  /** The name of the call. */
  call: "setSettings";
  /** Those to change. */
  settings: SomeSettings;
}

/** Changes the servers for the passes that follow. A server that is not named stays. */
export interface SetDomainsCall extends Tagged {
  /** The name of the call. */
  call: "setDomains";
  /** The URL of the main server; null for none. Default: unchanged. */
  main?: string | null;
  /** The URL of the mirror; null for none. Default: unchanged. */
  reserve?: string | null;
}

/** Changes the setting `bandwidth`, also while files are loading. */
export interface SetBandwidthCall extends Tagged {
  /** The name of the call. */
  call: "setBandwidth";
  /** The limit for all downloads together; 0 for none. In bytes per second. */
  bytesPerSecond: number;
}

/** The answer of loadResourcesForConfig, if it has a tag. */
export interface LoadResourcesForConfigResult {
  /** The name of the call. */
  result: "loadResourcesForConfig";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of loadResourceWithID, if it has a tag. */
export interface LoadResourceWithIDResult {
  /** The name of the call. */
  result: "loadResourceWithID";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of loadResourcesWithType, if it has a tag. */
export interface LoadResourcesWithTypeResult {
  /** The name of the call. */
  result: "loadResourcesWithType";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of updateResourcesForConfig, if it has a tag. */
export interface UpdateResourcesForConfigResult {
  /** The name of the call. */
  result: "updateResourcesForConfig";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of revalidate, if it has a tag. */
export interface RevalidateResult {
  /** The name of the call. */
  result: "revalidate";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of stopLoading, if it has a tag. */
export interface StopLoadingResult {
  /** The name of the call. */
  result: "stopLoading";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of waitForFinish, if it has a tag. */
export interface WaitForFinishResult {
  /** The name of the call. */
  result: "waitForFinish";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of sleep, if it has a tag. */
export interface SleepResult {
  /** The name of the call. */
  result: "sleep";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of reportProgress, if it has a tag. */
export interface ReportProgressResult {
  /** The name of the call. */
  result: "reportProgress";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of reportPasses, if it has a tag. */
export interface ReportPassesResult {
  /** The name of the call. */
  result: "reportPasses";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of answerRequests, if it has a tag. */
export interface AnswerRequestsResult {
  /** The name of the call. */
  result: "answerRequests";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of sendRequest, if it has a tag. */
export interface SendRequestResult {
  /** The name of the call. */
  result: "sendRequest";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of refuseRequest, if it has a tag. */
export interface RefuseRequestResult {
  /** The name of the call. */
  result: "refuseRequest";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of allowTransfers, if it has a tag. */
export interface AllowTransfersResult {
  /** The name of the call. */
  result: "allowTransfers";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of pause, if it has a tag. */
export interface PauseResult {
  /** The name of the call. */
  result: "pause";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of resume, if it has a tag. */
export interface ResumeResult {
  /** The name of the call. */
  result: "resume";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of follow, if it has a tag. */
export interface FollowResult {
  /** The name of the call. */
  result: "follow";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of checkNow, if it has a tag. */
export interface CheckNowResult {
  /** The name of the call. */
  result: "checkNow";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of stopFollowing, if it has a tag. */
export interface StopFollowingResult {
  /** The name of the call. */
  result: "stopFollowing";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of allLoadedResources. */
export interface AllLoadedResourcesResult extends Tagged {
  /** The name of the call. */
  result: "allLoadedResources";
  /** The resources. */
  resources: Resource[];
}

/** The answer of loadedResourcesWithID. */
export interface LoadedResourcesWithIDResult extends Tagged {
  /** The name of the call. */
  result: "loadedResourcesWithID";
  /** The resources. */
  resources: Resource[];
}

/** The answer of loadedResourcesWithType. */
export interface LoadedResourcesWithTypeResult extends Tagged {
  /** The name of the call. */
  result: "loadedResourcesWithType";
  /** The resources. */
  resources: Resource[];
}

/** The answer of takeLease. */
export interface TakeLeaseResult extends Tagged {
  /** The name of the call. */
  result: "takeLease";
  /** The number of the lease, for endLease. */
  lease: number;
  /** The resource with the paths of the lease. */
  resource: Resource;
}

/** The answer of endLease, if it has a tag. */
export interface EndLeaseResult {
  /** The name of the call. */
  result: "endLease";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of state. */
export interface StateResult extends Tagged {
  /** The name of the call. */
  result: "state";
  /**
   * How many downloads are in flight. If it is not 0, a new pass is refused. If it is 0, all events
   * of the passes so far have been sent.
   */
  downloads: number;
  /**
   * Why the list of the loaded resources could not be saved; null if it could. The next change
   * saves it again.
   */
  saveError: ErrorDetails | null;
  /** Why the saved list could not be read at the start; null once it was read or replaced. */
  savedListError: ErrorDetails | null;
  /** True between pause and resume. */
  isPaused: boolean;
  /** What allowTransfers has set last. */
  allowsTransfers: boolean;
  /**
   * The URL of the configuration that is followed, without credentials and query; null if none is.
   */
  follows: string | null;
}

/** The answer of audit. */
export interface AuditResult extends Tagged {
  /** The name of the call. */
  result: "audit";
  /** Files of loaded resources that are missing. */
  missing: StoredItem[];
  /** Files of theirs that are there but cannot be read. */
  unreadable: StoredItem[];
  /** Items that no loaded resource uses. */
  orphaned: StoredItem[];
  /** Orphaned directories without an `index.html`. */
  partial: StoredItem[];
  /** Incomplete files under the root, of this process or another. */
  temporary: StoredItem[];
  /**
   * What is kept by leases, of this process or another. A hard link takes no space of its own as
   * long as the stored file is there.
   */
  leased: StoredItem[];
  /** True if a pass is running: what it has stored so far counts as orphaned. */
  downloadsAreInFlight: boolean;
  /**
   * Why cleanUpOrphans would refuse: a saved list that cannot be read may name the orphans. Null if
   * it would not.
   */
  listDoubt: ErrorDetails | null;
}

/** The answer of cleanUpOrphans. */
export interface CleanUpOrphansResult extends Tagged {
  /** The name of the call. */
  result: "cleanUpOrphans";
  /** What was removed or, in a dry run, would be. */
  removed: StoredItem[];
  /** What could not be removed; empty in a dry run. */
  refused: RefusedItem[];
}

/** The answer of trim. */
export interface TrimResult extends Tagged {
  /** The name of the call. */
  result: "trim";
  /** What was removed or, in a dry run, would be. */
  removed: StoredItem[];
  /** The loaded resources among it. */
  resources: TrimmedResource[];
  /** What could not be removed; empty in a dry run. */
  refused: RefusedItem[];
  /**
   * Why no loaded resource was removed: the list of them could not be saved. Null if that did not
   * happen.
   */
  listError: ErrorDetails | null;
  /** The use before. In bytes. */
  usedBefore: number;
  /** The use after, in a dry run estimated. In bytes. */
  usedAfter: number;
  /** True if usedAfter is not above the bound. */
  isBoundKept: boolean;
}

/** The answer of noteShown, if it has a tag. */
export interface NoteShownResult {
  /** The name of the call. */
  result: "noteShown";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of space. */
export interface SpaceResult extends Tagged {
  /** The name of the call. */
  result: "space";
  /** What the cache uses: its list, files and temporaries. In bytes. */
  cacheUsed: number;
  /** What this process may still write there. In bytes. */
  fileSystemAvailable: number;
  /** What is used of the file system of the root, by anybody. In bytes. */
  fileSystemUsed: number;
}

/** The answer of settings. */
export interface SettingsResult extends Tagged {
  /** The name of the call. */
  result: "settings";
  /** All of them. */
  settings: Settings;
}

/** The answer of setSettings, if it has a tag. */
export interface SetSettingsResult {
  /** The name of the call. */
  result: "setSettings";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of setDomains, if it has a tag. */
export interface SetDomainsResult {
  /** The name of the call. */
  result: "setDomains";
  /** The tag of the call. */
  tag: Tag;
}

/** The answer of setBandwidth, if it has a tag. */
export interface SetBandwidthResult {
  /** The name of the call. */
  result: "setBandwidth";
  /** The tag of the call. */
  tag: Tag;
}

/**
 * A resource of the pass is loaded: all of its files are on disk. The files of an older version are
 * removed then; a host that shows them takes the new paths. It is also sent for a resource that was
 * loaded before, with the loaded version if that is newer than the item; if somebody has removed
 * its files since, `filesExist` is false, and the first pass of the next session loads them again.
 */
export interface DidLoadResourceEvent {
  /** The name of the event. */
  event: "didLoadResource";
  /** The resource. */
  resource: Resource;
}

/**
 * A resource of the pass could not be loaded. It is sent for each file that failed. An older
 * version stays loaded.
 */
export interface DidFailToLoadResourceEvent {
  /** The name of the event. */
  event: "didFailToLoadResource";
  /** The resource. */
  resource: Resource;
  /** Why; null if a file came without contents. */
  error: ErrorDetails | null;
}

/**
 * A pass is over, was stopped or was refused. If files fail at once, because there is no server for
 * example, it comes more than once in a pass, the last time at the end; the pass is over if the
 * answer of a state that is sent after it says `downloads` 0.
 */
export interface DidFinishLoadingEvent {
  /** The name of the event. */
  event: "didFinishLoading";
}

/**
 * A request waits for sendRequest or refuseRequest; see answerRequests. It takes a place of its
 * server, and the time limit `deadline_s` of its file runs meanwhile.
 */
export interface RequestEvent {
  /** The name of the event. */
  event: "request";
  /** The number of the request. It counts from 1 in the session, and is not used again. */
  request: number;
  /**
   * The URL that is about to be requested, with credentials and query if it has any. A host that
   * adds a token compares the whole origin: `https://ads.example` is also the start of
   * `https://ads.example.net`.
   */
  url: string;
}

/**
 * How far the downloads are, counted from the moment when none was in flight. After reportProgress
 * it is sent at most ten times a second while files are loading, and once after the last has ended;
 * of several that wait to be received only the newest is kept.
 */
export interface ProgressEvent {
  /** The name of the event. */
  event: "progress";
  /** How many files have ended, well or not. */
  completedFiles: number;
  /** How many there are. */
  files: number;
  /** What has come, with what was on disk already. In bytes. */
  receivedBytes: number;
  /** The final value of receivedBytes; null while the length of a file is unknown. In bytes. */
  expectedBytes: number | null;
  /** How many files are being transferred now. */
  runningTransfers: number;
  /** The speed now, of all transfers together. In bytes per second. */
  bytesPerSecond: number;
}

/**
 * How a pass went. After reportPasses it is sent exactly once for each pass that a call starts,
 * after the other events of the pass; also if it is refused or stopped.
 */
export interface PassReportEvent {
  /** The name of the event. */
  event: "passReport";
  /** The tag of the call that started the pass. */
  passTag: Tag | null;
  /**
   * Every selected resource was dealt with; the call selects no valid item, and nothing was
   * dropped; downloads of another pass were in flight; stopLoading was called; the downloads had
   * not ended when the cache was closed.
   */
  outcome: "done" | "nothingSelected" | "refused" | "stopped" | "abandoned";
  /** One for each item, in their order. */
  entries: PassEntry[];
  /** What an update removed. */
  dropped: PassDrop[];
  /** What came, of all files. In bytes. */
  bytes: number;
  /** From the start of the pass to its end. In milliseconds. */
  duration_ms: number;
  /** Why the list of the loaded resources could not be saved; null if it could. */
  saveError: ErrorDetails | null;
  /** True if memory ran out for a part of the report. */
  isIncomplete: boolean;
}

/**
 * How a revalidation went. It is sent exactly once for each, also if it is refused or stopped.
 * Nothing else is sent, since resources and paths stay the same: a host that shows a replaced file
 * reads it again.
 */
export interface RevalidationReportEvent {
  /** The name of the event. */
  event: "revalidationReport";
  /** The tag of the call that started it. */
  revalidationTag: Tag | null;
  /**
   * done: every selected file was dealt with. refused: another revalidation is running, and
   * continues. stopped: requests were cancelled. abandoned: the cache was closed.
   */
  outcome: "done" | "refused" | "stopped" | "abandoned";
  /** Each file once, in the order of the resources. */
  files: RevalidatedFile[];
  /** What came, of all files. In bytes. */
  bytes: number;
  /** From the call to the end. In milliseconds. */
  duration_ms: number;
  /** True if memory ran out for a part of the report. */
  isIncomplete: boolean;
}

/**
 * How a check of follow ended. It is also sent when a check has to wait for the end of another
 * pass, and then again when it has ended. It comes after the other events of the check's pass, for
 * which no passReport is sent.
 */
export interface CheckEvent {
  /** The name of the event. */
  event: "check";
  /** The tag of the call follow. */
  followTag: Tag | null;
  /**
   * updated: a pass ran with a new configuration. repeated: a pass ran with the same one, since it
   * was the first check, or the last pass had left something undone. unchanged: nothing was to be
   * done. postponed: another pass is running, and the check continues when that has ended. failed:
   * no usable configuration came, and the last one is kept.
   */
  outcome: "updated" | "repeated" | "unchanged" | "postponed" | "failed";
  /** Why it failed; null if it did not. */
  error: ErrorDetails | null;
  /** The HTTP status of the answer; 0 if no server answered. */
  statusCode: number;
  /** The URL that answered, without credentials. */
  server: string | null;
  /**
   * How the pass of the check went; null if none ran. A failed check has one if the saved
   * configuration was used.
   */
  report: PassReport | null;
  /**
   * Why the configuration could not be saved for the next start; null if it could, or was not to
   * be.
   */
  saveError: ErrorDetails | null;
  /** The time until the next check; null if none is planned. In milliseconds. */
  nextCheck_ms: number | null;
}

/**
 * A line that begins with `error`: a call was not valid or could not be made, or a wait timed out.
 * It has the tag of that call, if it has one that could be read. Without a tag, the line may also
 * say that the list of the loaded resources could not be saved (once, until it was saved again), or
 * that memory ran out and lines were lost.
 */
export interface ErrorLine extends Tagged {
  /** A text for people, which may change in a later version. */
  error: string;
}

/** Any call. */
export type Call =
  | LoadResourcesForConfigCall
  | LoadResourceWithIDCall
  | LoadResourcesWithTypeCall
  | UpdateResourcesForConfigCall
  | RevalidateCall
  | StopLoadingCall
  | WaitForFinishCall
  | SleepCall
  | ReportProgressCall
  | ReportPassesCall
  | AnswerRequestsCall
  | SendRequestCall
  | RefuseRequestCall
  | AllowTransfersCall
  | PauseCall
  | ResumeCall
  | FollowCall
  | CheckNowCall
  | StopFollowingCall
  | AllLoadedResourcesCall
  | LoadedResourcesWithIDCall
  | LoadedResourcesWithTypeCall
  | TakeLeaseCall
  | EndLeaseCall
  | StateCall
  | AuditCall
  | CleanUpOrphansCall
  | TrimCall
  | NoteShownCall
  | SpaceCall
  | SettingsCall
  | SetSettingsCall
  | SetDomainsCall
  | SetBandwidthCall;

/** Any result. */
export type Result =
  | LoadResourcesForConfigResult
  | LoadResourceWithIDResult
  | LoadResourcesWithTypeResult
  | UpdateResourcesForConfigResult
  | RevalidateResult
  | StopLoadingResult
  | WaitForFinishResult
  | SleepResult
  | ReportProgressResult
  | ReportPassesResult
  | AnswerRequestsResult
  | SendRequestResult
  | RefuseRequestResult
  | AllowTransfersResult
  | PauseResult
  | ResumeResult
  | FollowResult
  | CheckNowResult
  | StopFollowingResult
  | AllLoadedResourcesResult
  | LoadedResourcesWithIDResult
  | LoadedResourcesWithTypeResult
  | TakeLeaseResult
  | EndLeaseResult
  | StateResult
  | AuditResult
  | CleanUpOrphansResult
  | TrimResult
  | NoteShownResult
  | SpaceResult
  | SettingsResult
  | SetSettingsResult
  | SetDomainsResult
  | SetBandwidthResult;

/** Any event. */
export type Event =
  | DidLoadResourceEvent
  | DidFailToLoadResourceEvent
  | DidFinishLoadingEvent
  | RequestEvent
  | ProgressEvent
  | PassReportEvent
  | RevalidationReportEvent
  | CheckEvent;

/** Any line that a session sends. */
export type Line = Result | Event | ErrorLine;

/** The names of the calls. */
export type CallName =
  | "loadResourcesForConfig"
  | "loadResourceWithID"
  | "loadResourcesWithType"
  | "updateResourcesForConfig"
  | "revalidate"
  | "stopLoading"
  | "waitForFinish"
  | "sleep"
  | "reportProgress"
  | "reportPasses"
  | "answerRequests"
  | "sendRequest"
  | "refuseRequest"
  | "allowTransfers"
  | "pause"
  | "resume"
  | "follow"
  | "checkNow"
  | "stopFollowing"
  | "allLoadedResources"
  | "loadedResourcesWithID"
  | "loadedResourcesWithType"
  | "takeLease"
  | "endLease"
  | "state"
  | "audit"
  | "cleanUpOrphans"
  | "trim"
  | "noteShown"
  | "space"
  | "settings"
  | "setSettings"
  | "setDomains"
  | "setBandwidth";

/** The names of the events. */
export type EventName =
  | "didLoadResource"
  | "didFailToLoadResource"
  | "didFinishLoading"
  | "request"
  | "progress"
  | "passReport"
  | "revalidationReport"
  | "check";
