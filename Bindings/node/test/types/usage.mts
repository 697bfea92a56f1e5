// What a host writes compiles, and mistakes do not. Never run.

import { Cache, CacheError, setLog, version } from 'kivresource';
import type {
  Audit,
  CacheErrorCode,
  Check,
  Config,
  ErrorDetails,
  Failure,
  Outcome,
  Progress,
  Resource,
  Settings,
  Trim,
  TrimmedResource,
} from 'kivresource';

type Equal<A, B> =
  (<T,>() => T extends A ? 1 : 2) extends <T,>() => T extends B ? 1 : 2 ? true : false;

/** same<A>()(b) compiles if b is exactly an A. */
function same<A>() {
  return <B,>(_value: B, ..._equal: Equal<A, B> extends true ? [] : [never]) => {};
}

const cache = await Cache.open({
  root: '/var/cache/app',
  main: 'https://ads.example',
  settings: { parallelTransfers: 2, connectTimeout_ms: 1000 },
});

// --- Opening ---

// @ts-expect-error: there is no root
await Cache.open({ main: 'https://ads.example' });
// @ts-expect-error: no such member
await Cache.open({ root: '/r', mian: 'https://ads.example' });
// @ts-expect-error: no such setting
await Cache.open({ root: '/r', settings: { parallel: 2 } });
// @ts-expect-error: a setting of a wrong type
await Cache.open({ root: '/r', settings: { parallelTransfers: '2' } });
// @ts-expect-error: only open() makes one
new Cache();

// --- Passes ---

const outcome = await cache.load({ items: [] });
same<Outcome>()(outcome);
same<Resource[]>()(outcome.loaded);
same<boolean>()(outcome.stopped);
const failure: Failure | undefined = outcome.failed[0];
same<ErrorDetails | null | undefined>()(failure?.error);
const config: Config = '/etc/app/config.json';
await cache.load(config, { id: '1' });
await cache.load(null, { type: 'banner' });
same<Outcome>()(await cache.update(config));
same<void>()(await cache.stop());
same<void>()(await cache.follow('https://ads.example/c.json', { mirrors: [], interval_s: 60 }));
same<void>()(await cache.checkNow());
same<void>()(await cache.stopFollowing());
cache.on('check', (check) => {
  same<Check>()(check);
  same<number | undefined>()(check.report?.bytes);
  // @ts-expect-error: no pass may have run
  check.report.bytes;
});
// @ts-expect-error: there is no URL
await cache.follow({ interval_s: 60 });
// @ts-expect-error: no such member
await cache.follow('https://ads.example/c.json', { interval: 60 });
// @ts-expect-error: a configuration is missing
await cache.load();
// @ts-expect-error: a number is no configuration
await cache.load(1);
// @ts-expect-error: an id or a type
await cache.load(config, { id: '1', type: 'banner' });
// @ts-expect-error: an update takes all
await cache.update(config, { id: '1' });

// --- Resources ---

for (const resource of await cache.resources({ type: 'banner' })) {
  same<string>()(resource.resourceID);
  // @ts-expect-error: not every resource has an image
  resource.image;
  switch (resource.class) {
    case 'KivResourceStandard':
      same<string | null>()(resource.image);
      // @ts-expect-error: a banner has no video
      resource.video;
      break;
    case 'KivResourceVideo':
      same<number>()(resource.rating);
      break;
    case 'KivResourceWeb':
      same<string | null>()(resource.html);
      break;
    // @ts-expect-error: no such class
    case 'KivResourceAudio':
      break;
  }
}

// --- Answers ---

const audit = await cache.audit();
same<Audit>()(audit);
same<number | null | undefined>()(audit.orphaned[0]?.size);
// @ts-expect-error: an answer without its head
audit.tag;
const { removed, refused } = await cache.cleanUp({ dryRun: true });
same<string | undefined>()(removed[0]?.path);
same<ErrorDetails | undefined>()(refused[0]?.error);
const trimmed = await cache.trim(0, { resources: 'leastShown', dryRun: true });
same<Trim>()(trimmed);
same<TrimmedResource | undefined>()(trimmed.resources[0]);
// @ts-expect-error: no such rule
await cache.trim(0, { resources: 'newest' });
await cache.noteShown('a');
same<number>()((await cache.space()).cacheUsed);
same<number>()((await cache.state()).downloads);
const settings = await cache.settings();
same<Settings>()(settings);
same<number>()(settings.deadline_s);
await cache.setSettings({ proxy: null, http2: false });
// @ts-expect-error: no such setting
await cache.setSettings({ http3: true });
await cache.setDomains({ main: null });
// @ts-expect-error: no such server
await cache.setDomains({ mirror: null });

// --- Events ---

cache
  .on('didLoadResource', (resource) => same<Resource>()(resource))
  .once('didFailToLoadResource', (resource, error) => {
    same<Resource>()(resource);
    same<ErrorDetails | null>()(error);
    // @ts-expect-error: there may be no error
    error.message;
  })
  .prependListener('progress', (progress) => same<Progress>()(progress))
  .addListener('problem', (error) => same<CacheErrorCode>()(error.code))
  .on('didFinishLoading', () => {})
  .on('close', () => {});
// @ts-expect-error: no such event
cache.on('didLoadResources', () => {});
// @ts-expect-error: this event has no values
cache.on('didFinishLoading', (outcome: Outcome) => outcome);
// @ts-expect-error: not what this listener gets
cache.off('progress', (progress: Resource) => progress);

// --- The log ---

setLog((line) => same<string>()(line));
setLog(null);
// @ts-expect-error: no function
setLog('stderr');

// --- The end ---

same<Cache>()(cache.unref().ref());
same<boolean>()(cache.closed);
// @ts-expect-error: for reading
cache.closed = true;
same<void>()(await cache.close());
same<string>()(version);
const error = new CacheError('KIVRESOURCE_CALL', 'text');
// @ts-expect-error: no such code
error.code === 'KIVRESOURCE_OTHER';

// --- Requests ---

await cache.allowTransfers(false);
await cache.answerRequests(async (url) => (url.startsWith('https://ads.example/') ? { a: 'b' } : null));
await cache.answerRequests(() => ({}));
await cache.answerRequests(null);
// @ts-expect-error: a value is a string
await cache.answerRequests(() => ({ a: 7 }));
// @ts-expect-error: without a function, null
await cache.answerRequests();
