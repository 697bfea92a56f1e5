'use strict';

// Opening and closing, errors, and the texts of calls and lines.

const assert = require('node:assert/strict');
const { EventEmitter, once } = require('node:events');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');
const { Cache, CacheError, version } = require('..');
const { banner, config, directory, heldServer, open, plain, serve } = require('./support.js');

const ids = (resources) => resources.map((resource) => resource.resourceID);

test('the package has the version of its library', () => {
  assert.equal(version, require('../package.json').version);
});

test('the module for import is the same', async () => {
  const imported = await import('../index.mjs');
  assert.equal(imported.Cache, Cache);
  assert.equal(imported.CacheError, CacheError);
  assert.equal(imported.version, version);
});

test('a cache is an EventEmitter, and only open() makes one', async (t) => {
  const cache = await open(t, { root: directory(t) });
  assert.ok(cache instanceof EventEmitter);
  assert.throws(() => new Cache(), TypeError);
  assert.throws(() => new Cache('{}'), TypeError);
});

test('settings that are not valid are errors', async (t) => {
  const root = directory(t);
  const invalid = { name: 'CacheError', code: 'KIVRESOURCE_INVALID' };
  for (const options of [
    {},
    { root: 'relative' },
    { root: 3 },
    { root: `${root}\0` },
    { root, noSuchMember: 1 },
    { root, settings: { noSuchSetting: 1 } },
    { root, settings: { parallelTransfers: 'many' } },
    [],
  ]) {
    await assert.rejects(Cache.open(options), invalid, JSON.stringify(options));
  }
  for (const options of [undefined, null, 'root', 3]) {
    await assert.rejects(Cache.open(options), TypeError);
  }
  await assert.rejects(Cache.open({ root, noSuchMember: 1 }), { message: /noSuchMember/ });
});

test('a process has one open cache', async (t) => {
  const root = directory(t);
  const first = await open(t, { root });
  await assert.rejects(Cache.open({ root }), { code: 'KIVRESOURCE_BUSY' });
  await assert.rejects(Cache.open({ root: directory(t) }), { code: 'KIVRESOURCE_BUSY' });
  await first.load(config(plain('1')));
  await first.close();
  const second = await open(t, { root });
  assert.deepEqual(ids(await second.resources()), ['1']);
});

test('a cache opens and closes many times', async (t) => {
  const root = directory(t);
  for (let round = 0; round < 50; ++round) {
    const cache = await Cache.open({ root });
    if (round % 2) await cache.load(config(plain(`${round}`)));
    await cache.close();
  }
  const cache = await open(t, { root });
  assert.equal((await cache.resources()).length, 25);
});

test('every method rejects after close', async (t) => {
  const cache = await open(t, { root: directory(t) });
  assert.equal(cache.closed, false);
  const closing = cache.close();
  assert.equal(cache.closed, true);
  assert.equal(cache.close(), closing);
  for (const moment of ['while it closes', 'when it has closed']) {
    for (const name of [
      'load',
      'update',
      'stop',
      'resources',
      'state',
      'audit',
      'cleanUp',
      'trim',
      'noteShown',
      'space',
      'settings',
      'setSettings',
      'setDomains',
    ]) {
      const call = name === 'load' || name === 'update' ? cache[name](null) : cache[name]();
      await assert.rejects(call, { code: 'KIVRESOURCE_CLOSED' }, `${name} ${moment}`);
    }
    await closing;
  }
  assert.equal(cache.ref(), cache);
  assert.equal(cache.unref(), cache);
  assert.equal(await cache.close(), undefined);
});

test('close rejects what waits, and no event comes later but close', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  const running = cache.load(config(banner('a', 'a.png')));
  const waiting = cache.load(config(banner('b', 'b.png')));
  await server.asked('/a.png');
  const events = [];
  for (const name of ['didLoadResource', 'didFailToLoadResource', 'didFinishLoading', 'problem']) {
    cache.on(name, () => events.push(name));
  }
  const closed = once(cache, 'close');
  const question = cache.state();
  const stop = cache.stop();
  await Promise.all([
    cache.close(),
    ...[running, waiting, question, stop].map((promise) =>
      assert.rejects(promise, { code: 'KIVRESOURCE_CLOSED' })
    ),
  ]);
  assert.deepEqual(await closed, []);
  assert.deepEqual(events, []);
});

test('close amid a storm of lines lets no more events through', async (t) => {
  const items = Array.from({ length: 1000 }, (_, index) => plain(`${index}`));
  for (let round = 1; round <= 10; ++round) {
    const cache = await open(t, { root: directory(t) });
    let events = 0;
    const closing = new Promise((resolve) => {
      cache.on('didLoadResource', () => {
        if (++events === round * 50) resolve(cache.close());
      });
    });
    await assert.rejects(cache.load(config(...items)), { code: 'KIVRESOURCE_CLOSED' });
    await closing;
    await new Promise(setImmediate);
    assert.equal(events, round * 50);
  }
});

test('close right after a call that nobody waits for is no unhandled rejection', async (t) => {
  const unhandled = [];
  const note = (reason) => unhandled.push(reason);
  process.on('unhandledRejection', note);
  t.after(() => process.off('unhandledRejection', note));
  const cache = await open(t, { root: directory(t) });
  cache.load(null).catch(() => {});
  cache.stop().catch(() => {});
  await cache.close();
  await new Promise(setImmediate);
  assert.deepEqual(unhandled, []);
});

test('a list that cannot be saved is a problem', async (t) => {
  const root = directory(t);
  // Where the library makes its directory.
  fs.writeFileSync(path.join(root, 'KivResource'), 'a file');
  const cache = await open(t, { root });
  const problem = once(cache, 'problem');
  await cache.load(config(plain('1')));
  const [error] = await problem;
  assert.ok(error instanceof CacheError);
  assert.match(error.message, /the list could not be saved/);
  assert.notEqual((await cache.state()).saveError, null);
});

// --- Texts ---

test('texts of any language come through', async (t) => {
  const { url } = await serve(t, { 'банер.png': 'картинка' });
  const root = path.join(directory(t), 'Кэш 缓存 🗂');
  const cache = await open(t, { root, main: url });
  const name = 'Ünïcödé 日本語 \u{1f600} "\\/\b\f\n\r\t\u0001\u2028';
  const { loaded } = await cache.load(config(banner('я', '%D0%B1%D0%B0%D0%BD%D0%B5%D1%80.png', { name })));
  assert.deepEqual(ids(loaded), ['я']);
  assert.equal(loaded[0].name, name);
  assert.ok(loaded[0].image.startsWith(root));
  assert.equal(fs.readFileSync(loaded[0].image, 'utf8'), 'картинка');
  assert.deepEqual(await cache.resources({ id: 'я' }), loaded);
});

test('a zero character is a character', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const { loaded } = await cache.load(config(plain('1', { name: 'a\0b', extra: '\0' })));
  assert.equal(loaded[0].name, 'a\0b');
  assert.equal(loaded[0].resourceDictionary.extra, '\0');
  assert.deepEqual(await cache.resources({ id: 'a\0b' }), []);
});

test('half of a surrogate pair is refused, and what looks like one is not', async (t) => {
  const cache = await open(t, { root: directory(t) });
  for (const half of ['\ud800', '\udfff', 'a\ud83d', '\\\ud83d', '\ude00\ud83d']) {
    await assert.rejects(cache.resources({ id: half }), TypeError);
    await assert.rejects(cache.load(config(plain('1', { [half]: 1 }))), TypeError);
  }
  for (const whole of ['\u{1f600}', '\\ud800', '\\\\ud800', '"\\ud800', '\\"ud800']) {
    const { loaded } = await cache.load(config(plain(whole)));
    assert.equal(loaded[0].resourceID, whole);
  }
});

test('nesting is limited by the library, and a call beyond is refused', async (t) => {
  const cache = await open(t, { root: directory(t) });
  // The call, the configuration, the array and the item are four levels.
  const nested = (levels) => JSON.parse('['.repeat(levels) + ']'.repeat(levels));
  const deepest = await cache.load(config(plain('1', { extra: nested(996) })));
  assert.deepEqual(ids(deepest.loaded), ['1']);
  await assert.rejects(cache.load(config(plain('1', { extra: nested(997) }))), {
    name: 'TypeError',
    message: /1000/,
  });
  await assert.rejects(Cache.open({ root: nested(1001) }), TypeError);
  const brackets = await cache.load(config(plain('['.repeat(2000))));
  assert.equal(brackets.loaded.length, 1);
});

test('what JSON cannot write is refused', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const circle = {};
  circle.circle = circle;
  await assert.rejects(cache.load(circle), TypeError);
  await assert.rejects(cache.load(config(plain('1', { updated: 1n }))), TypeError);
  await assert.rejects(cache.load(() => {}), { code: 'KIVRESOURCE_CALL' });
});

test('the key __proto__ is a key', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const text = JSON.stringify(config(plain('1', { there: 1 }))).replace(
    '"there":1',
    '"__proto__":{"polluted":true},"constructor":{"prototype":{"polluted":true}}'
  );
  const { loaded } = await cache.load(JSON.parse(text));
  const members = loaded[0].resourceDictionary;
  assert.deepEqual(Object.getOwnPropertyDescriptor(members, '__proto__').value, { polluted: true });
  assert.equal(Object.getPrototypeOf(members), Object.prototype);
  assert.equal(members.polluted, undefined);
  assert.equal({}.polluted, undefined);
  const settings = JSON.parse('{"__proto__": {"threads": 1}}');
  await assert.rejects(cache.setSettings(settings), { code: 'KIVRESOURCE_CALL' });
});

// --- Lines ---

test('ten thousand lines come in order, and each once', async (t) => {
  const count = 10_000;
  const cache = await open(t, { root: directory(t) });
  const seen = [];
  cache.on('didLoadResource', (resource) => seen.push(resource.resourceID));
  const names = Array.from({ length: count }, (_, index) => `r-${index}`);
  const items = names.map((name, index) => plain(name, { priority: count - index }));
  const { loaded } = await cache.load(config(...items));
  assert.equal(loaded.length, count);
  assert.deepEqual(seen, ids(loaded));
  assert.deepEqual([...seen].sort(), [...names].sort());
});

test('ten thousand calls at once are answered in order', async (t) => {
  const count = 10_000;
  const cache = await open(t, { root: directory(t) });
  const order = [];
  const calls = Array.from({ length: count }, (_, index) =>
    cache.state().then((state) => {
      assert.equal(state.downloads, 0);
      order.push(index);
    })
  );
  await Promise.all(calls);
  assert.deepEqual(order, Array.from({ length: count }, (_, index) => index));
});

test('the event loop turns while the cache waits', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  let turns = 0;
  let isOver = false;
  const pass = cache.load(config(banner('a', 'a.png'))).then(() => (isOver = true));
  // The load cannot end before this server has answered, which takes the event loop.
  const response = await server.asked('/a.png');
  while (turns < 1000) {
    await new Promise(setImmediate);
    ++turns;
    assert.equal(isOver, false);
  }
  response.end('a');
  await pass;
});

test('what was awaited goes on before the next line', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const order = [];
  const first = cache.state().then(() => order.push('first goes on'));
  cache.once('didLoadResource', () => order.push('second line'));
  const second = cache.load(config(plain('1')));
  await Promise.all([first, second]);
  assert.deepEqual(order, ['first goes on', 'second line']);
});

test('listeners may use the cache', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const nested = new Promise((resolve, reject) => {
    cache.once('didLoadResource', () => {
      cache.load(config(plain('2'))).then(resolve, reject);
    });
  });
  assert.deepEqual(ids((await cache.load(config(plain('1')))).loaded), ['1']);
  assert.deepEqual(ids((await nested).loaded), ['2']);
});

test('a revalidation is reported, and one runs at a time', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  const pass = cache.load(config(banner('1', '1.png')));
  (await server.asked('/1.png')).end('one');
  await pass;
  const { useFilePaths } = (await cache.resources())[0];
  fs.writeFileSync(useFilePaths[0], 'changed');
  const first = cache.revalidate();
  const second = await cache.revalidate({ id: '1' });
  assert.equal(second.outcome, 'refused');
  await cache.stop();
  const report = await first;
  assert.equal(report.outcome, 'stopped');
  assert.deepEqual(
    report.files.map(({ path: where, outcome }) => [where, outcome]),
    [[useFilePaths[0], 'notEnded']]
  );
  assert.deepEqual((await cache.revalidate({ id: 'nobody' })).files, []);
  await assert.rejects(cache.revalidate({ id: '1', type: 't' }), TypeError);
  const last = cache.revalidate({ type: 'banner' });
  last.catch(() => {});
  await cache.state();
  await cache.close();
  await assert.rejects(last, { code: 'KIVRESOURCE_CLOSED' });
});

test('a configuration is followed', async (t) => {
  const served = { '1.png': 'one', 'c.json': JSON.stringify(config(banner('1', '1.png'))) };
  const { url } = await serve(t, served);
  const cache = await open(t, { root: directory(t), main: url });
  const checks = [];
  cache.on('check', (check) => checks.push(check));
  const nextCheck = async (make) => (await Promise.all([once(cache, 'check'), make()]))[0][0];
  await assert.rejects(cache.checkNow(), { code: 'KIVRESOURCE_CALL' });
  const options = { interval_s: 0, jitter: 0 };
  const first = await nextCheck(() => cache.follow(`${url}/c.json`, options));
  assert.deepEqual(
    [first.outcome, first.statusCode, first.nextCheck_ms, first.report.entries[0].outcome],
    ['updated', 200, null, 'added']
  );
  assert.deepEqual(Object.keys(first), [
    'outcome', 'error', 'statusCode', 'server', 'report', 'saveError', 'nextCheck_ms',
  ]);
  assert.deepEqual(ids(await cache.resources()), ['1']);
  assert.equal((await cache.state()).follows, `${url}/c.json`);
  const second = await nextCheck(() => cache.checkNow());
  assert.deepEqual([second.outcome, second.report], ['unchanged', null]);
  // A pass of the host's is one as before.
  assert.deepEqual(ids((await cache.load(config(plain('2')))).loaded), ['2']);
  const third = await nextCheck(() =>
    cache.follow(`${url}/none.json`, { mirrors: [`${url}/c.json`], interval_s: 1000, jitter: 0 })
  );
  assert.deepEqual(
    [third.outcome, third.server, third.nextCheck_ms],
    ['updated', `${url}/c.json`, 1000000]
  );
  await cache.stopFollowing();
  await cache.stopFollowing();
  assert.equal((await cache.state()).follows, null);
  await assert.rejects(cache.checkNow(), { code: 'KIVRESOURCE_CALL' });
  assert.equal(checks.length, 3);
});

test('a wrong follow says what is wrong', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const url = 'http://127.0.0.1/c.json';
  for (const [wrong, options, message] of [
    [undefined, {}, /"url"/],
    ['c.json', {}, /"url"/],
    [url, { mirrors: url }, /"mirrors"/],
    [url, { interval_s: NaN }, /"interval_s"/],
    [url, { jitter: 2 }, /"jitter"/],
    [url, { usesSavedConfiguration: 1 }, /"usesSavedConfiguration"/],
  ]) {
    await assert.rejects(cache.follow(wrong, options), { code: 'KIVRESOURCE_CALL', message });
  }
  assert.equal((await cache.state()).follows, null);
});

test('a cache is closed during a check', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t) });
  cache.on('check', () => assert.fail('a check after close()'));
  await cache.follow(`${server.url}/c.json`);
  await server.asked('/c.json');
  await cache.close();
  await assert.rejects(cache.checkNow(), { code: 'KIVRESOURCE_CLOSED' });
});
