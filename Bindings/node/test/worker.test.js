'use strict';

// Caches in worker threads.

const assert = require('node:assert/strict');
const { once } = require('node:events');
const { test } = require('node:test');
const { Worker } = require('node:worker_threads');
const { Cache } = require('..');
const { banner, config, directory, heldServer, open, packagePath, plain, run } = require('./support.js');

const ids = (resources) => resources.map((resource) => resource.resourceID);

/** A worker that runs a program with the package, and `data`. */
function work(program, data, options = {}) {
  const text = `'use strict';
    const { parentPort, workerData: data } = require('node:worker_threads');
    const { Cache } = require(${JSON.stringify(packagePath)});
    ${program}`;
  return new Worker(text, { eval: true, workerData: data, ...options });
}

// once() would be rejected by the event "error".

/** The status of a worker. */
function exitOf(worker) {
  return new Promise((resolve) => worker.once('exit', resolve));
}

/** The next message of a worker. */
function messageOf(worker) {
  return new Promise((resolve) => worker.once('message', resolve));
}

test('a worker loads, and the main thread opens what it has closed', async (t) => {
  const root = directory(t);
  const worker = work(
    `Cache.open({ root: data.root }).then(async (cache) => {
      const { loaded } = await cache.load(data.config);
      await cache.close();
      parentPort.postMessage(loaded.map((resource) => resource.resourceID));
    });`,
    { root, config: config(plain('1'), plain('2')) }
  );
  const exit = exitOf(worker);
  assert.deepEqual((await messageOf(worker)).sort(), ['1', '2']);
  assert.equal(await exit, 0);
  const cache = await open(t, { root });
  assert.deepEqual(ids(await cache.resources()).sort(), ['1', '2']);
});

test('the open cache of a worker is the one of the process', async (t) => {
  const root = directory(t);
  const worker = work(
    `Cache.open(data).then((cache) => {
      parentPort.postMessage('open');
      parentPort.once('message', () => cache.close());
    });`,
    { root }
  );
  await messageOf(worker);
  await assert.rejects(Cache.open({ root }), { code: 'KIVRESOURCE_BUSY' });
  const exit = exitOf(worker);
  worker.postMessage('close');
  assert.equal(await exit, 0);
  await open(t, { root });
});

test('a worker that ends with its cache open closes it', async (t) => {
  const server = await heldServer(t);
  const root = directory(t);
  const ways = {
    'by process.exit()': 'process.exit();',
    'by itself': 'cache.unref();',
    'by an error': `throw new Error('of the worker');`,
    'while it closes': 'cache.close(); process.exit();',
    'when it is terminated': '',
  };
  for (let round = 0; round < 5; ++round) {
    for (const [way, last] of Object.entries(ways)) {
      const worker = work(
        `Cache.open({ root: data.root, main: data.main }).then(async (cache) => {
          cache.load(data.config).catch(() => {});
          await cache.state();
          parentPort.postMessage('loads');
          ${last}
        });`,
        { root, main: server.url, config: config(plain('1'), banner('a', 'a.png')) }
      );
      worker.on('error', () => {});
      const exit = exitOf(worker);
      await messageOf(worker);
      if (way === 'when it is terminated') worker.terminate();
      await exit;
      const cache = await Cache.open({ root });
      assert.deepEqual(ids(await cache.resources()), ['1'], way);
      await cache.close();
    }
  }
});

test('a worker is terminated amid a storm of lines', async (t) => {
  const root = directory(t);
  const items = Array.from({ length: 3000 }, (_, index) => plain(`${index}`));
  for (let round = 0; round < 10; ++round) {
    const worker = work(
      `Cache.open({ root: data.root }).then((cache) => {
        let lines = 0;
        cache.on('didLoadResource', () => {
          if (++lines === data.lines) parentPort.postMessage('amid');
        });
        cache.load(data.config).catch(() => {});
      });`,
      { root, config: config(...items), lines: 1 + round * 200 }
    );
    const exit = exitOf(worker);
    await messageOf(worker);
    await worker.terminate();
    await exit;
    const cache = await Cache.open({ root });
    await cache.close();
  }
});

test('what a listener throws is the error of its worker', async (t) => {
  const worker = work(
    `Cache.open({ root: data.root }).then((cache) => {
      cache.on('didFinishLoading', () => { throw new Error('of the listener'); });
      cache.load(null);
    });`,
    { root: directory(t) }
  );
  const exit = exitOf(worker);
  const [error] = await once(worker, 'error');
  assert.equal(error.message, 'of the listener');
  assert.equal(await exit, 1);
});

test('workers open one after another', async (t) => {
  const root = directory(t);
  for (let round = 0; round < 20; ++round) {
    const worker = work(
      `Cache.open(data).then(async (cache) => {
        parentPort.postMessage((await cache.state()).downloads);
        await cache.close();
      });`,
      { root }
    );
    const exit = exitOf(worker);
    assert.equal(await messageOf(worker), 0);
    assert.equal(await exit, 0);
  }
});

test('a process exits while a worker has the cache', async (t) => {
  const program = `const { Worker } = require('node:worker_threads');
    const text = "const { Cache } = require(" + JSON.stringify(data.package) + ");" +
      "Cache.open({ root: " + JSON.stringify(data.root) + " }).then((cache) => {" +
      "cache.load(null).then(() => require('node:worker_threads').parentPort.postMessage('open')); });";
    new Worker(text, { eval: true }).on('message', () => process.exit(9));`;
  const result = await run(t, program, { package: packagePath, root: directory(t) });
  assert.deepEqual({ code: result.code, signal: result.signal }, { code: 9, signal: null }, result.errors);
});
