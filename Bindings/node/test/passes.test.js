'use strict';

// Loading, updating and stopping.

const assert = require('node:assert/strict');
const { once } = require('node:events');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');
const {
  banner, config, directory, heldServer, open, plain, serve, start, writeFiles,
} = require('./support.js');

const ids = (resources) => resources.map((resource) => resource.resourceID);

test('a load brings the files, the events and an outcome', async (t) => {
  const { url } = await serve(t, { 'b/wide.png': 'wide' });
  const cache = await open(t, { root: directory(t), main: url });
  const events = [];
  cache.on('didLoadResource', (resource) => events.push(resource.resourceID));
  cache.on('didFinishLoading', (...values) => events.push(values));
  const outcome = await cache.load(config(banner('b-1', 'b/wide.png')));
  assert.deepEqual(events, ['b-1', []]);
  assert.deepEqual(Object.keys(outcome), ['loaded', 'failed', 'stopped']);
  assert.deepEqual(ids(outcome.loaded), ['b-1']);
  assert.deepEqual(outcome.failed, []);
  assert.equal(outcome.stopped, false);
  assert.equal(outcome.loaded[0].class, 'KivResourceStandard');
  assert.equal(fs.readFileSync(outcome.loaded[0].image, 'utf8'), 'wide');
  assert.deepEqual(await cache.resources(), outcome.loaded);
});

test('a failure comes with its error, as an event and in the outcome', async (t) => {
  const { url } = await serve(t, { 'a.png': 'a', 'b.png': 'b' }, '--fault', '/b.png=404');
  const cache = await open(t, { root: directory(t), main: url });
  const failures = [];
  cache.on('didFailToLoadResource', (resource, error) => failures.push({ resource, error }));
  const outcome = await cache.load(config(banner('a', 'a.png'), banner('b', 'b.png')));
  assert.deepEqual(ids(outcome.loaded), ['a']);
  assert.equal(outcome.failed.length, 1);
  assert.equal(outcome.failed[0].resource.resourceID, 'b');
  assert.equal(outcome.failed[0].resource.image, null);
  assert.equal(outcome.failed[0].error.code, 102);
  assert.match(outcome.failed[0].error.message, /status code 404/);
  assert.deepEqual(failures, outcome.failed);
  assert.deepEqual(ids(await cache.resources()), ['a']);
});

test('packaged resources come from the bundle that open() names', async (t) => {
  const folder = directory(t);
  writeFiles(folder, { 'InnerAdResources.bundle/packaged.png': 'packaged' });
  const cache = await open(t, { root: path.join(folder, 'root'), resources: folder });
  const { loaded } = await cache.load(config(banner('a', 'banners/packaged.png')));
  assert.equal(loaded[0].image, path.join(folder, 'InnerAdResources.bundle', 'packaged.png'));
});

test('files of the computer are used only where open() lets them', async (t) => {
  const folder = directory(t);
  writeFiles(folder, { 'own/a.png': 'own' });
  const file = path.join(folder, 'own', 'a.png');
  for (const [lookupRoots, expected] of [
    [undefined, []],
    [[path.join(folder, 'other')], []],
    [[path.join(folder, 'own')], [file]],
    [null, [file]],
  ]) {
    const cache = await open(t, { root: directory(t), lookupRoots });
    const { loaded } = await cache.load(config(banner('a', file)));
    assert.deepEqual(loaded.map(({ image }) => image), expected);
    await cache.close();
  }
});

test('the mirror serves what the main server does not have', async (t) => {
  const main = await serve(t, {});
  const mirror = await serve(t, { 'a.png': 'of the mirror' });
  const cache = await open(t, { root: directory(t), main: main.url });
  await cache.setDomains({ reserve: mirror.url });
  const { loaded } = await cache.load(config(banner('a', 'a.png')));
  assert.equal(fs.readFileSync(loaded[0].image, 'utf8'), 'of the mirror');
});

test('an update takes from the list what the configuration does not name', async (t) => {
  const cache = await open(t, { root: directory(t) });
  await cache.load(config(plain('old'), plain('kept')));
  const outcome = await cache.update(config(plain('kept'), plain('new')));
  assert.deepEqual(ids(outcome.loaded).sort(), ['kept', 'new']);
  assert.deepEqual(ids(await cache.resources()).sort(), ['kept', 'new']);
});

test('a load may select by id or by type', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const all = config(plain('1'), plain('2', { type: 'other' }), plain('3'));
  assert.deepEqual(ids((await cache.load(all, { id: '3' })).loaded), ['3']);
  assert.deepEqual(ids((await cache.load(all, { type: 'other' })).loaded), ['2']);
  assert.deepEqual(ids(await cache.resources({ id: '3' })), ['3']);
  assert.deepEqual(ids(await cache.resources({ type: 'other' })), ['2']);
  assert.deepEqual(await cache.resources({ type: 'none' }), []);
  await assert.rejects(cache.load(all, { id: '1', type: 't' }), TypeError);
  await assert.rejects(cache.resources({ id: '1', type: 't' }), TypeError);
});

test('a configuration may be a file', async (t) => {
  const folder = directory(t);
  writeFiles(folder, { 'config.json': JSON.stringify(config(plain('1'))) });
  const cache = await open(t, { root: path.join(folder, 'root') });
  const { loaded } = await cache.load(path.join(folder, 'config.json'));
  assert.deepEqual(ids(loaded), ['1']);
});

test('a configuration that cannot be read is an error, and the next pass runs', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const failed = assert.rejects(cache.load('/nowhere/config.json'), {
    name: 'CacheError',
    code: 'KIVRESOURCE_CALL',
    message: /\/nowhere\/config\.json/,
  });
  const next = cache.load(config(plain('1')));
  await failed;
  assert.deepEqual(ids((await next).loaded), ['1']);
  for (const wrong of [undefined, 3, true, [1]]) {
    await assert.rejects(cache.load(wrong), { code: 'KIVRESOURCE_CALL' });
    await assert.rejects(cache.update(wrong), { code: 'KIVRESOURCE_CALL' });
  }
});

test('a pass over no configuration ends, with nothing loaded', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const nothing = { loaded: [], failed: [], stopped: false };
  assert.deepEqual(await cache.load(null), nothing);
  assert.deepEqual(await cache.load(config()), nothing);
  assert.deepEqual(await cache.update(null), nothing);
});

test('passes run one after another, each with its own outcome', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  const ended = [];
  const passes = ['a', 'b', 'c'].map(async (id) => {
    const outcome = await cache.load(config(banner(id, `${id}.png`)));
    ended.push(id);
    return ids(outcome.loaded);
  });
  for (const id of ['a', 'b', 'c']) {
    const response = await server.asked(`/${id}.png`);
    assert.equal(server.seen.at(-1), `/${id}.png`);
    assert.equal(server.seen.length, ended.length + 1);
    response.end(id);
    await once(cache, 'didFinishLoading');
  }
  assert.deepEqual(await Promise.all(passes), [['a'], ['b'], ['c']]);
  assert.deepEqual(ended, ['a', 'b', 'c']);
});

test('files that fail at once are all of one pass', async (t) => {
  // Without a server no request is made, and each failure is followed by a finish.
  const cache = await open(t, { root: directory(t) });
  let finishes = 0;
  cache.on('didFinishLoading', () => ++finishes);
  const names = Array.from({ length: 100 }, (_, index) => `b-${index}`);
  const first = cache.load(config(...names.map((name) => banner(name, `${name}.png`))));
  const second = cache.load(config(plain('1')));
  const third = cache.update(config(banner('x', 'x.png'), banner('y', 'y.png')));
  const failedIds = ({ failed }) => ids(failed.map(({ resource }) => resource)).sort();
  assert.deepEqual(failedIds(await first), [...names].sort());
  assert.ok(finishes > 1);
  assert.deepEqual(ids((await second).loaded), ['1']);
  assert.deepEqual((await second).failed, []);
  assert.deepEqual(failedIds(await third), ['x', 'y']);
});

test('a file that fails at once does not end the pass of those that load', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  const pass = cache.load(config(banner('at once', 'a space.png'), banner('a', 'a.png')));
  const response = await server.asked('/a.png');
  for (let call = 0; call < 10; ++call) await cache.state();
  response.end('a');
  const { loaded, failed } = await pass;
  assert.deepEqual(ids(failed.map(({ resource }) => resource)), ['at once']);
  assert.deepEqual(ids(loaded), ['a']);
});

test('the last file of a pass is in its outcome, at whatever moment it comes', async (t) => {
  const rounds = 300;
  const files = Array.from({ length: rounds }, (_, round) => [`${round}/${round}.png`, 'x']);
  const { url } = await serve(t, Object.fromEntries(files));
  const cache = await open(t, { root: directory(t), main: url });
  for (let round = 0; round < rounds; ++round) {
    // The finish of the failure comes while the other loads.
    const items = [banner(`f${round}`, 'a space.png'), banner(`l${round}`, `${round}/${round}.png`)];
    const { loaded, failed } = await cache.load(config(...items));
    assert.deepEqual(ids(loaded), [`l${round}`]);
    assert.equal(failed.length, 1);
  }
});

test('passes that wait do not mix up the answers to other calls', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const names = Array.from({ length: 50 }, (_, index) => `${index}`);
  const passes = names.map((name) => cache.load(config(plain(name))));
  const answers = [];
  let isOver = false;
  const all = Promise.all(passes).then((outcomes) => {
    isOver = true;
    return outcomes;
  });
  while (!isOver) answers.push(await Promise.all([cache.state(), cache.resources(), cache.state()]));
  assert.deepEqual((await all).map(({ loaded }) => ids(loaded)), names.map((name) => [name]));
  for (const [state, resources] of answers) {
    assert.equal(state.downloads, 0);
    assert.ok(Array.isArray(resources));
  }
});

test('what changes after the call does not change the pass', async (t) => {
  const cache = await open(t, { root: directory(t) });
  const before = cache.load(config(plain('before')));
  const given = config(plain('given'));
  const pass = cache.load(given);
  given.items[0].banner_id = 'changed';
  assert.deepEqual(ids((await before).loaded), ['before']);
  assert.deepEqual(ids((await pass).loaded), ['given']);
});

test('a stop ends the pass and those that wait', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  const running = cache.load(config(plain('done'), banner('slow', 'slow.png')));
  const waiting = cache.load(config(banner('never', 'never.png')));
  await server.asked('/slow.png');
  const stopping = cache.stop();
  const after = cache.load(config(plain('after')));
  const outcome = await running;
  assert.equal(outcome.stopped, true);
  assert.deepEqual(ids(outcome.loaded), ['done']);
  assert.deepEqual(await waiting, { loaded: [], failed: [], stopped: true });
  await stopping;
  const next = await after;
  assert.deepEqual(ids(next.loaded), ['after']);
  assert.equal(next.stopped, false);
  assert.deepEqual(server.seen, ['/slow.png']);
});

test('a finish that a stop causes does not end a later pass', async (t) => {
  const { url } = await serve(t, { 'a.png': 'a' });
  const cache = await open(t, { root: directory(t), main: url });
  const stops = [cache.stop(), cache.stop(), cache.stop()];
  const { loaded } = await cache.load(config(banner('a', 'a.png')));
  assert.deepEqual(ids(loaded), ['a']);
  await Promise.all(stops);
});

test('stops at any moment leave every pass with an outcome', async (t) => {
  const { url } = await serve(t, { 'a.png': 'a' });
  const cache = await open(t, { root: directory(t), main: url });
  let finishes = 0;
  cache.on('didFinishLoading', () => ++finishes);
  for (let round = 0; round < 100; ++round) {
    const pass = cache.load(config(banner(`a-${round}`, 'a.png', { updated: round })));
    // A different number of turns of the event loop before each stop.
    for (let turn = 0; turn < round % 10; ++turn) await new Promise(setImmediate);
    const stop = cache.stop();
    const last = cache.load(config(plain(`p-${round}`)));
    await Promise.all([pass, stop]);
    const outcome = await last;
    assert.deepEqual(ids(outcome.loaded), [`p-${round}`]);
    assert.equal(outcome.stopped, false);
  }
  assert.ok(finishes >= 200);
});

test('progress tells of a load', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  const seen = [];
  const first = once(cache, 'progress');
  cache.on('progress', (progress) => seen.push(progress));
  const pass = cache.load(config(banner('a', 'a.png')));
  const response = await server.asked('/a.png');
  response.writeHead(200, { 'Content-Length': 4 });
  response.write('ab');
  const [progress] = await first;
  assert.deepEqual(Object.keys(progress), [
    'completedFiles',
    'files',
    'receivedBytes',
    'expectedBytes',
    'runningTransfers',
    'bytesPerSecond',
  ]);
  assert.equal(progress.files, 1);
  response.end('cd');
  assert.equal((await pass).loaded.length, 1);
});

test('a paused pass waits, and is reported when it ends', async (t) => {
  const { url } = await serve(t, { 'a.png': 'wide' });
  const cache = await open(t, { root: directory(t), main: url });
  const reports = [];
  cache.on('passReport', (report) => reports.push(report));
  await cache.pause();
  await cache.setBandwidth(1000);
  assert.equal((await cache.settings()).bandwidth, 1000);
  await cache.setBandwidth(0);
  const pass = cache.load(config(banner('a', 'a.png')));
  while ((await cache.state()).downloads === 0);
  assert.equal((await cache.state()).isPaused, true);
  assert.deepEqual(reports, []);
  await cache.resume();
  assert.deepEqual(ids((await pass).loaded), ['a']);
  await cache.state(); // answered after the report
  assert.equal(reports.length, 1);
  assert.equal(reports[0].outcome, 'done');
  assert.equal(reports[0].passTag, undefined);
  assert.equal(reports[0].entries[0].outcome, 'added');
  assert.equal(reports[0].entries[0].files[0].statusCode, 200);
});

test('transfers wait until they are allowed', async (t) => {
  const { url, requests } = await serve(t, { 'a.png': 'wide' });
  const cache = await open(t, { root: directory(t), main: url });
  await cache.allowTransfers(false);
  const pass = cache.load(config(banner('a', 'a.png')));
  while ((await cache.state()).downloads === 0);
  const { isPaused, allowsTransfers } = await cache.state();
  assert.deepEqual([isPaused, allowsTransfers], [false, false]);
  assert.deepEqual(requests, []);
  await cache.allowTransfers(true);
  assert.deepEqual(ids((await pass).loaded), ['a']);
});

test('a function answers requests with headers', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  const urls = [];
  await cache.answerRequests(async (url) => {
    urls.push(url);
    return { 'X-Token': `for ${url}` };
  });
  const pass = cache.load(config(banner('a', 'a.png')));
  const response = await server.asked('/a.png');
  assert.deepEqual(urls, [`${server.url}/a.png`]);
  assert.equal(response.req.headers['x-token'], `for ${server.url}/a.png`);
  response.end('a');
  assert.deepEqual(ids((await pass).loaded), ['a']);
  await cache.answerRequests(null);
  const next = cache.load(config(banner('b', 'b.png')));
  const plainResponse = await server.asked('/b.png');
  assert.equal(plainResponse.req.headers['x-token'], undefined);
  plainResponse.end('b');
  assert.deepEqual(ids((await next).loaded), ['b']);
  assert.equal(urls.length, 1);
  for (const wrong of [undefined, {}, 'x', 1]) {
    await assert.rejects(cache.answerRequests(wrong), TypeError);
  }
});

test('a request without a valid answer is refused', async (t) => {
  const { url, requests } = await serve(t, { 'a.png': 'a' });
  const cache = await open(t, { root: directory(t), main: url });
  const problems = [];
  cache.on('problem', (problem) => problems.push(problem));
  for (const [answer, expected] of [
    [null, 0],
    [undefined, 0],
    [{ Host: 'secret' }, 1],
    [{ 'X-Token': 'secret\n' }, 1],
    [{ 'X-Token': 7 }, 1],
    [7, 1],
    [['secret'], 1],
  ]) {
    await cache.answerRequests(() => answer);
    const { failed } = await cache.load(config(banner('a', 'a.png')));
    assert.equal(failed.length, 1);
    await cache.state();
    assert.equal(problems.length, expected, JSON.stringify(answer));
    for (const { code, message } of problems.splice(0)) {
      assert.equal(code, 'KIVRESOURCE_CALL');
      assert.doesNotMatch(message, /secret/);
    }
  }
  assert.deepEqual(requests, []);
});

test('what the function throws goes on after the request is refused', async (t) => {
  for (const body of ["throw new Error('thrown')", "return Promise.reject(new Error('thrown'))"]) {
    const { ended } = start(
      t,
      `process.on('uncaughtException', (error) => console.log(error.message));
       (async () => {
         const cache = await Cache.open({ root: data.root, main: 'http://127.0.0.1:1' });
         await cache.answerRequests(() => { ${body}; });
         const { failed } = await cache.load(data.config);
         console.log(failed.length);
         await cache.close();
       })();`,
      { root: directory(t), config: config(banner('a', 'a.png')) },
    );
    const { code, lines, errors } = await ended;
    assert.equal(code, 0, errors);
    assert.deepEqual(lines.sort(), ['1', 'thrown']);
  }
});

test('a request that was paused is answered again', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  const problems = [];
  cache.on('problem', (problem) => problems.push(problem));
  const answers = [];
  let noteAsked;
  let asked = new Promise((resolve) => (noteAsked = resolve));
  await cache.answerRequests(() => {
    noteAsked();
    return new Promise((resolve) => answers.push(resolve));
  });
  const pass = cache.load(config(banner('a', 'a.png')));
  await asked;
  asked = new Promise((resolve) => (noteAsked = resolve));
  await cache.pause();
  answers[0]({ 'X-Token': 'first' });
  await cache.resume();
  await asked;
  answers[1]({ 'X-Token': 'second' });
  const response = await server.asked('/a.png');
  assert.equal(response.req.headers['x-token'], 'second');
  response.end('a');
  assert.deepEqual(ids((await pass).loaded), ['a']);
  assert.deepEqual(problems, []);
});

test('closing does not wait for an answer', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  let answer;
  const asked = new Promise((resolve) => {
    cache.answerRequests(() => new Promise((settle) => resolve((answer = settle))));
  });
  const pass = assert.rejects(cache.load(config(banner('a', 'a.png'))), { code: 'KIVRESOURCE_CLOSED' });
  await asked;
  await cache.close();
  await pass;
  answer({});
  assert.deepEqual(server.seen, []);
});

test('a lease keeps the file of a replaced version', async (t) => {
  const { url } = await serve(t, { 'a.png': 'wide', 'b.png': 'new' });
  const cache = await open(t, { root: directory(t), main: url });
  await assert.rejects(cache.lease('a'), { code: 'KIVRESOURCE_CALL' });
  await cache.load(config(banner('a', 'a.png')));
  const lease = await cache.lease('a');
  const [stored] = await cache.resources();
  await cache.load(config({ ...banner('a', 'b.png'), updated: 99 }));
  assert.equal(fs.existsSync(stored.image), false);
  assert.equal(fs.readFileSync(lease.resource.image, 'utf8'), 'wide');
  assert.deepEqual((await cache.audit()).leased.map((item) => item.path), [lease.resource.image]);
  await lease.end();
  await lease.end();
  assert.equal(fs.existsSync(lease.resource.image), false);
});

test('settings are read and changed by name', async (t) => {
  const cache = await open(t, { root: directory(t), settings: { parallelTransfers: 2 } });
  assert.equal((await cache.settings()).parallelTransfers, 2);
  await cache.setSettings({ userAgent: 'Ad host', triesPerServer: 1 });
  const settings = await cache.settings();
  assert.equal(settings.userAgent, 'Ad host');
  assert.equal(settings.triesPerServer, 1);
  assert.equal(settings.parallelTransfers, 2);
  await assert.rejects(cache.setSettings({ noSuchSetting: 1 }), { code: 'KIVRESOURCE_CALL' });
  await assert.rejects(cache.setSettings(), { code: 'KIVRESOURCE_CALL' });
});

test('settings do not change while files load', async (t) => {
  const server = await heldServer(t);
  const cache = await open(t, { root: directory(t), main: server.url });
  const pass = cache.load(config(banner('a', 'a.png')));
  const response = await server.asked('/a.png');
  await assert.rejects(cache.setSettings({ threads: 1 }), { code: 'KIVRESOURCE_CALL' });
  await assert.rejects(cache.cleanUp(), { code: 'KIVRESOURCE_CALL' });
  assert.equal((await cache.state()).downloads, 1);
  response.end('a');
  await pass;
  await cache.setSettings({ threads: 1 });
  assert.equal((await cache.settings()).threads, 1);
});

test('a trim removes what was not shown for the longest time', async (t) => {
  const { url } = await serve(t, { 'a.png': 'a', 'b.png': 'b' });
  const cache = await open(t, { root: directory(t), main: url });
  await cache.load(config(banner('a', 'a.png'), banner('b', 'b.png')));
  for (const { image } of await cache.resources()) fs.utimesSync(image, 1, 1);
  await cache.noteShown('a');
  const { cacheUsed } = await cache.space();
  assert.deepEqual((await cache.trim(cacheUsed - 1)).removed, []);
  const dry = await cache.trim(cacheUsed - 1, { resources: 'leastShown', dryRun: true });
  assert.equal((await cache.resources()).length, 2);
  const trimmed = await cache.trim(cacheUsed - 1, { resources: 'leastShown' });
  assert.deepEqual(trimmed.resources.map((resource) => resource.resourceID), ['b']);
  assert.deepEqual(trimmed.removed, dry.removed);
  assert.equal(trimmed.isBoundKept, true);
  assert.deepEqual((await cache.resources()).map((resource) => resource.resourceID), ['a']);
  await assert.rejects(cache.trim(-1), { code: 'KIVRESOURCE_CALL' });
});

test('audit finds what clean-up removes', async (t) => {
  const { url } = await serve(t, { 'old.png': 'old', 'new.png': 'new' });
  const cache = await open(t, { root: directory(t), main: url });
  const { loaded } = await cache.load(config(banner('old', 'old.png')));
  await cache.update(config(banner('new', 'new.png')));
  const found = await cache.audit();
  assert.deepEqual(Object.keys(found).sort(), [
    'downloadsAreInFlight',
    'leased',
    'listDoubt',
    'missing',
    'orphaned',
    'partial',
    'temporary',
    'unreadable',
  ]);
  assert.deepEqual(found.orphaned.map((item) => item.path), [loaded[0].image]);
  assert.deepEqual(found.missing, []);
  const wouldRemove = await cache.cleanUp({ dryRun: true });
  assert.deepEqual(wouldRemove.removed, found.orphaned);
  assert.ok(fs.existsSync(loaded[0].image));
  const removed = await cache.cleanUp();
  assert.deepEqual(removed, { removed: found.orphaned, refused: [] });
  assert.ok(!fs.existsSync(loaded[0].image));
  const space = await cache.space();
  assert.ok(space.cacheUsed > 0);
  assert.ok(space.fileSystemAvailable > 0);
});
