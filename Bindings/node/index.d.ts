import { EventEmitter } from 'node:events';
import type {
  AuditResult,
  CheckEvent,
  CleanUpOrphansResult,
  Config,
  ErrorDetails,
  OpenSettings,
  PassReportEvent,
  ProgressEvent,
  Resource,
  RevalidationReportEvent,
  Settings,
  SomeSettings,
  SpaceResult,
  StateResult,
  TrimResult,
} from './lines';

export type {
  Config,
  ErrorDetails,
  JSONObject,
  OpenSettings,
  PassDrop,
  PassEntry,
  PassFile,
  PlainResource,
  RefusedItem,
  Resource,
  RevalidatedFile,
  Settings,
  SomeSettings,
  StandardResource,
  StoredItem,
  TrimmedResource,
  VideoResource,
  WebResource,
} from './lines';

/** How far the downloads are, counted since there were none. */
export type Progress = Omit<ProgressEvent, 'event'>;

/** What became of each item of a pass. */
export type PassReport = Omit<PassReportEvent, 'event' | 'passTag'>;

/** What became of each file of a revalidation. */
export type RevalidationReport = Omit<RevalidationReportEvent, 'event' | 'revalidationTag'>;

/** How a check of follow() ended, with the report of its pass. */
export type Check = Omit<CheckEvent, 'event' | 'followTag'>;

export type State = Omit<StateResult, 'result' | 'tag'>;
export type Audit = Omit<AuditResult, 'result' | 'tag'>;
export type CleanUp = Omit<CleanUpOrphansResult, 'result' | 'tag'>;
export type Trim = Omit<TrimResult, 'result' | 'tag'>;
export type Space = Omit<SpaceResult, 'result' | 'tag'>;

/** A file of a resource that could not be loaded. */
export interface Failure {
  resource: Resource;
  /** Why; null if the file came without contents. */
  error: ErrorDetails | null;
}

/** What a pass has brought. */
export interface Outcome {
  /** The resources of the pass that are loaded, those that were loaded before among them. */
  loaded: Resource[];
  /** One entry for each file that failed. */
  failed: Failure[];
  /** True if stop() was called before the pass was over. */
  stopped: boolean;
}

/** The files of a resource, kept while they are shown. */
export interface Lease {
  /** The resource with the paths of the lease. */
  resource: Resource;
  /** Removes the files at these paths. May be called again. */
  end(): Promise<void>;
}

/** The headers to add to a request; null to refuse it. */
export type Headers = Record<string, string> | null;
export type RequestHandler = (url: string) => Headers | Promise<Headers>;

/** One identifier, one type, or all. */
export type Selection = { id?: string; type?: undefined } | { id?: undefined; type?: string };

export interface Domains {
  /** The URL of the main server; null for none. Without it, the server stays. */
  main?: string | null | undefined;
  /** The URL of the mirror; null for none. Without it, the mirror stays. */
  reserve?: string | null | undefined;
}

/** How a configuration is followed. */
export interface FollowOptions {
  /** The URLs to try, in their order, if the server fails; none by default. */
  mirrors?: string[] | undefined;
  /** The least time between two checks, in seconds; 3600 by default. With 0, checkNow() makes them. */
  interval_s?: number | undefined;
  /** Each wait is longer by a random part of it, up to this fraction; 0.1 by default. */
  jitter?: number | undefined;
  /** Whether the configuration that was saved last is used if the first check fails; true by default. */
  usesSavedConfiguration?: boolean | undefined;
}

/** The events of a cache, with what their listeners get. */
export interface CacheEvents {
  /** A resource of the pass is loaded: all of its files are on disk. */
  didLoadResource: [resource: Resource];
  /** A file of a resource could not be loaded. */
  didFailToLoadResource: [resource: Resource, error: ErrorDetails | null];
  /**
   * No file is loading any more. If files fail at once, it comes several times in a pass, whose promise
   * waits for the last.
   */
  didFinishLoading: [];
  /** At most ten times a second while files load. */
  progress: [progress: Progress];
  /** Once for each pass, with what became of each item and why files are missing. */
  passReport: [report: PassReport];
  /** A check of follow() has ended, or waits for the end of another pass. */
  check: [check: Check];
  /** Something is wrong that is no answer to a call, such as a list that cannot be saved. */
  problem: [error: CacheError];
  /** The cache has closed. */
  close: [];
}

export type CacheErrorCode =
  /** The cache is closed. */
  | 'KIVRESOURCE_CLOSED'
  /** The settings of open() are not valid. */
  | 'KIVRESOURCE_INVALID'
  /** The process has an open cache already. */
  | 'KIVRESOURCE_BUSY'
  /** The system has no memory, thread or descriptor left. */
  | 'KIVRESOURCE_SYSTEM'
  /** A call could not be made; the message says why. */
  | 'KIVRESOURCE_CALL';

/** What the methods of Cache reject with, apart from a TypeError for a wrong argument. */
export class CacheError extends Error {
  constructor(code: CacheErrorCode, message: string);
  readonly code: CacheErrorCode;
}

/** A cache of remote advertising resources. A process has one open at a time. */
export class Cache extends EventEmitter {
  private constructor();

  /** Opens the cache. Rejects with KIVRESOURCE_INVALID, KIVRESOURCE_BUSY or KIVRESOURCE_SYSTEM. */
  static open(options: OpenSettings): Promise<Cache>;

  /**
   * Loads the resources of a configuration that the cache does not have, or has in an older version.
   * Passes run one after another. Fulfilled when this one has finished, also if all of it failed.
   */
  load(config: Config, selection?: Selection): Promise<Outcome>;
  /** As load(); at the end, resources that the configuration does not name leave the list. */
  update(config: Config): Promise<Outcome>;
  /**
   * Asks the servers whether stored files have changed under their names, and replaces those that have;
   * no pass does this. Paths stay the same: a replaced file is to be read again. Fulfilled at the end,
   * also if requests failed or stop() ended it.
   */
  revalidate(selection?: Selection): Promise<RevalidationReport>;
  /**
   * Follows the configuration at a URL: fetches it, brings the cache up to date with it, and looks again
   * after each interval. Fulfilled at once; each check sends the event `check`. Its pass sends its events
   * as others do; a pass of load() or update() that begins meanwhile is refused, and fails with the code
   * 100. Another call takes the place of this one.
   */
  follow(url: string, options?: FollowOptions): Promise<void>;
  /** Begins a check, whose end is the event `check`. Rejects if nothing is followed. */
  checkNow(): Promise<void>;
  /** Ends the following and a check that runs, which sends no event. Its pass goes on. */
  stopFollowing(): Promise<void>;
  /** Ends the pass that runs, those that wait, and a revalidation. */
  stop(): Promise<void>;

  /** The loaded resources, in the order in which they were loaded. */
  resources(selection?: Selection): Promise<Resource[]>;
  /**
   * Keeps the files of a loaded resource while they are shown, also when a newer version replaces it.
   * Rejects if no resource with the identifier is loaded.
   */
  lease(id: string): Promise<Lease>;
  /** Whether something is loading, and whether the saved list is in order. */
  state(): Promise<State>;
  /** Compares the list with the disk, without changing anything. */
  audit(): Promise<Audit>;
  /** Removes what audit() reports as orphaned or partial. */
  cleanUp(options?: { dryRun?: boolean | undefined }): Promise<CleanUp>;
  /**
   * Brings the use of the cache down to a number of bytes. Orphans go first, and then, only if
   * `resources` says which, loaded resources: those with the oldest version, or those that were not
   * shown for the longest time.
   */
  trim(
    bytes: number,
    options?: {
      resources?: 'oldest' | 'leastShown' | null | undefined;
      dryRun?: boolean | undefined;
    },
  ): Promise<Trim>;
  /** Notes that a loaded resource is shown now, for trim(). A lease does so by itself. */
  noteShown(id: string): Promise<void>;
  /** Used and free space. */
  space(): Promise<Space>;

  /** How files are transferred. */
  settings(): Promise<Settings>;
  /** Changes the settings that are named. Rejects while files load. */
  setSettings(settings: SomeSettings): Promise<void>;
  /** Halts the downloads until resume(). A pass goes on waiting, and nothing fails. */
  pause(): Promise<void>;
  /** Ends a pause. */
  resume(): Promise<void>;
  /** Says whether transfers may start; those that run go on. Nothing fails meanwhile. */
  allowTransfers(allowed: boolean): Promise<void>;
  /**
   * Lets a function answer each request before it is sent: tries, mirrors and redirects. It gets the URL,
   * and returns the headers to add, or null to refuse the request; or a promise of them. Headers go into
   * that one request: a token depends on the origin of the URL. If the function throws, the request is
   * refused, and the error goes on as from a listener. After headers that are not valid it is refused with
   * the event `problem`. With null, requests are sent as they are, also those that wait.
   */
  answerRequests(handler: RequestHandler | null): Promise<void>;
  /** Limits all downloads together, also those that run; 0 for no limit. In bytes per second. */
  setBandwidth(bytesPerSecond: number): Promise<void>;
  /** Changes the servers for the passes that follow. */
  setDomains(domains: Domains): Promise<void>;

  /** True once close() was called. */
  readonly closed: boolean;
  /** Stops what is loading, and closes. What waits is rejected with KIVRESOURCE_CLOSED. */
  close(): Promise<void>;
  /** Lets the process run as long as the cache is open. That is so at first. */
  ref(): this;
  /** Lets the process end while the cache is open. */
  unref(): this;

  on<E extends keyof CacheEvents>(event: E, listener: (...values: CacheEvents[E]) => void): this;
  once<E extends keyof CacheEvents>(event: E, listener: (...values: CacheEvents[E]) => void): this;
  off<E extends keyof CacheEvents>(event: E, listener: (...values: CacheEvents[E]) => void): this;
  addListener<E extends keyof CacheEvents>(
    event: E,
    listener: (...values: CacheEvents[E]) => void
  ): this;
  removeListener<E extends keyof CacheEvents>(
    event: E,
    listener: (...values: CacheEvents[E]) => void
  ): this;
  prependListener<E extends keyof CacheEvents>(
    event: E,
    listener: (...values: CacheEvents[E]) => void
  ): this;
  prependOnceListener<E extends keyof CacheEvents>(
    event: E,
    listener: (...values: CacheEvents[E]) => void
  ): this;
}

/**
 * Passes the log of the process, lines for people, to a function of this thread. With null, it goes to
 * standard error and the system's log, as at first. The log keeps no process running.
 */
export function setLog(receive: ((line: string) => void) | null): void;

/** The version of the library. */
export const version: string;
