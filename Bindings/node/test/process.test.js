'use strict';

// What a cache does to its process: keeps it running, and lets it end at any moment.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { banner, config, directory, heldServer, plain, run, start } = require('./support.js');

/** What a program that ended as it should have prints. */
function expectRun(result, lines, code = 0) {
  assert.deepEqual(
    { code: result.code, signal: result.signal, lines: result.lines },
    { code, signal: null, lines },
    result.errors
  );
}

test('an open cache keeps the process running until its event has come', async (t) => {
  const server = await heldServer(t);
  const running = run(
    t,
    `Cache.open(data.options).then((cache) => {
      cache.on('didLoadResource', (resource) => {
        console.log('loaded', resource.resourceID);
        cache.close();
      });
      cache.load(data.config).catch((error) => console.log(error.code));
    });`,
    { options: { root: directory(t), main: server.url }, config: config(banner('a', 'a.png')) }
  );
  const response = await server.asked('/a.png');
  response.end('a');
  expectRun(await running, ['loaded a', 'KIVRESOURCE_CLOSED']);
});

test('a process that has closed its cache ends by itself', async (t) => {
  const program = `Cache.open(data).then((cache) => cache.close()).then(() => console.log('closed'));`;
  expectRun(await run(t, program, { root: directory(t) }), ['closed']);
});

test('unref lets the process end, and ref keeps it again', async (t) => {
  const data = { root: directory(t) };
  const unreferenced = `process.on('exit', (code) => console.log('exit', code));
    Cache.open(data).then((cache) => {
      cache.state().then(() => console.log('the state'));
      console.log(cache.ref().unref() === cache);
    });`;
  const { lines, ...rest } = await run(t, unreferenced, data);
  expectRun({ ...rest, lines: lines.filter((line) => line !== 'the state') }, ['true', 'exit 0']);
  const referenced = `Cache.open(data).then(async (cache) => {
      cache.unref().unref().ref();
      await cache.state();
      console.log('the state');
      await cache.close();
    });`;
  expectRun(await run(t, referenced, data), ['the state']);
});

test('process.exit() with an open cache ends with its status', async (t) => {
  const data = { root: directory(t) };
  expectRun(await run(t, 'Cache.open(data).then(() => process.exit(3));', data), [], 3);
  // Before the promise, and before any line.
  expectRun(await run(t, 'Cache.open(data); process.exit(4);', data), [], 4);
});

test('process.exit() ends while files load, and while the cache closes', async (t) => {
  const server = await heldServer(t);
  const data = {
    options: { root: directory(t), main: server.url },
    config: config(banner('a', 'a.png')),
  };
  for (const [last, code] of [
    ['', 5],
    ['cache.close();', 6],
  ]) {
    const program = `Cache.open(data.options).then(async (cache) => {
        cache.load(data.config).catch(() => {});
        while ((await cache.state()).downloads === 0) {}
        ${last}
        process.exit(${code});
      });`;
    expectRun(await run(t, program, data), [], code);
  }
});

test('process.exit() in a listener ends amid a storm of lines', async (t) => {
  const program = `Cache.open(data.options).then((cache) => {
      let lines = 0;
      cache.on('didLoadResource', () => {
        if (++lines === 500) process.exit(7);
      });
      cache.load(data.config);
    });`;
  const items = Array.from({ length: 2000 }, (_, index) => plain(`${index}`));
  for (let round = 0; round < 5; ++round) {
    const data = { options: { root: directory(t) }, config: config(...items) };
    expectRun(await run(t, program, data), [], 7);
  }
});

test('a listener that throws ends the process, as with any EventEmitter', async (t) => {
  const program = `Cache.open(data.options).then((cache) => {
      cache.on('didLoadResource', () => { throw new Error('of the listener'); });
      cache.on('didFinishLoading', () => console.log('never'));
      cache.load(data.config);
    });`;
  const data = { options: { root: directory(t) }, config: config(plain('1')) };
  const result = await run(t, program, data);
  expectRun(result, [], 1);
  assert.match(result.errors, /Error: of the listener\n +at Cache\.<anonymous>/);
});

test('a process that survives what its listeners throw gets all later lines', async (t) => {
  const program = `const caught = [];
    process.on('uncaughtException', (error) => caught.push(error.message));
    Cache.open(data.options).then(async (cache) => {
      const before = [];
      cache.on('didLoadResource', (resource) => { throw new Error(resource.resourceID); });
      cache.on('didFinishLoading', () => { throw new Error('finish'); });
      const { loaded } = await cache.load(data.config);
      await cache.state();
      const expected = [...loaded.map((resource) => resource.resourceID), 'finish'];
      console.log(loaded.length, JSON.stringify(caught) === JSON.stringify(expected));
      await cache.close();
    });`;
  const items = Array.from({ length: 100 }, (_, index) => plain(`${index}`));
  const data = { options: { root: directory(t) }, config: config(...items) };
  expectRun(await run(t, program, data), ['100 true']);
});

test('a listener that throws after close does not fail the close', async (t) => {
  const program = `process.on('uncaughtException', (error) => console.log(error.message));
    Cache.open(data).then(async (cache) => {
      cache.on('close', () => { throw new Error('at the close'); });
      await cache.close();
      console.log('closed');
    });`;
  const { lines, ...rest } = await run(t, program, { root: directory(t) });
  expectRun({ ...rest, lines: lines.sort() }, ['at the close', 'closed']);
});

test('a cache that nobody holds stays open, as a socket does', async (t) => {
  const server = await heldServer(t);
  const program = `let collected = false;
    const registry = new FinalizationRegistry(() => (collected = true));
    function begin() {
      return Cache.open(data.options).then((cache) => {
        registry.register(cache);
        cache.on('didLoadResource', function () {
          console.log('loaded', collected);
          this.close();
        });
        cache.load(data.config).catch(() => {});
      });
    }
    begin().then(async () => {
      for (let round = 0; round < 10; ++round) {
        gc();
        await new Promise(setImmediate);
      }
      require('node:http').get(data.options.main + '/collected').on('error', () => {});
    });`;
  const data = {
    options: { root: directory(t), main: server.url },
    config: config(banner('a', 'a.png')),
  };
  const running = run(t, program, data, ['--expose-gc']);
  (await server.asked('/collected')).end();
  (await server.asked('/a.png')).end('a');
  expectRun(await running, ['loaded false']);
});

test('a closed cache is collected', async (t) => {
  const program = `let collected = 0;
    const registry = new FinalizationRegistry(() => ++collected);
    async function round() {
      const cache = await Cache.open(data);
      registry.register(cache);
      await cache.state();
      await cache.close();
    }
    (async () => {
      for (let count = 0; count < 20; ++count) await round();
      while (collected < 20) {
        gc();
        await new Promise(setImmediate);
      }
      console.log('collected');
    })();`;
  expectRun(await run(t, program, { root: directory(t) }, ['--expose-gc']), ['collected']);
});

test('lines that were received are freed', async (t) => {
  const program = `Cache.open(data.options).then(async (cache) => {
      await cache.load(data.config);
      let before = 0;
      for (let call = 0; call < 1100; ++call) {
        const [resource] = await cache.resources();
        if (resource.name.length !== 100000) throw new Error('the resource has changed');
        if (call % 20 === 0) gc();
        if (call === 100) before = process.memoryUsage().rss;
      }
      console.log(process.memoryUsage().rss - before < 100e6);
      await cache.close();
    });`;
  // A line has the name twice, so that a thousand lines have 200 MB.
  const data = {
    options: { root: directory(t) },
    config: config(plain('1', { name: 'n'.repeat(100000) })),
  };
  expectRun(await run(t, program, data, ['--expose-gc']), ['true']);
});

test('a signal ends the process while files load', async (t) => {
  const server = await heldServer(t);
  const program = `Cache.open(data.options).then((cache) => cache.load(data.config));`;
  const data = {
    options: { root: directory(t), main: server.url },
    config: config(banner('a', 'a.png')),
  };
  const { child, ended } = start(t, program, data);
  await server.asked('/a.png');
  child.kill('SIGTERM');
  assert.equal((await ended).signal, 'SIGTERM');
});
