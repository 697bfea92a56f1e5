'use strict';

// The log of the process.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { setLog } = require('..');
const { directory, packagePath, run } = require('./support.js');

const ofLibrary = /^Kiv.*loadSavedResources/m;

test('the log goes to standard error, or to a function, or back', async (t) => {
  const program = `const { setLog } = kivresource;
    async function round() {
      const cache = await Cache.open(data);
      await cache.state();
      await cache.close();
      await new Promise(setImmediate);
    }
    (async () => {
      let lines = [];
      setLog((line) => lines.push(line));
      await round();
      const first = lines;
      lines = [];
      setLog((line) => lines.push('second: ' + line));
      await round();
      console.log(JSON.stringify([first, lines]));
      console.error('between');
      setLog(null);
      await round();
    })();`;
  const { code, lines, errors } = await run(t, program, { root: directory(t) });
  assert.equal(code, 0, errors);
  const [first, second] = JSON.parse(lines[0]);
  assert.match(first.join('\n'), ofLibrary);
  assert.ok(second.length > 0);
  assert.ok(second.every((line) => line.startsWith('second: Kiv')));
  const [before, after] = errors.split('between\n');
  assert.equal(before, '');
  assert.match(after, ofLibrary);
});

test('the log keeps no process running, and the end of the process does not trip over it', async (t) => {
  const open = 'Cache.open(data).then(async (cache) => { await cache.state();';
  for (const [last, code] of [
    ['await cache.close(); });', 0],
    ['cache.unref(); });', 0],
    ['process.exit(3); });', 3],
  ]) {
    const program = `kivresource.setLog(() => {}); ${open} ${last}`;
    const result = await run(t, program, { root: directory(t) });
    assert.deepEqual({ code: result.code, errors: result.errors }, { code, errors: '' });
  }
});

test('the log of a worker that has ended goes to standard error again', async (t) => {
  const program = `const { once } = require('node:events');
    const { Worker } = require('node:worker_threads');
    const text = "const { setLog } = require(" + JSON.stringify(data.package) + ");" +
      "setLog(() => {}); setLog(() => {});";
    (async () => {
      for (let round = 0; round < 10; ++round) {
        if (round % 2) kivresource.setLog(() => {});
        await once(new Worker(text, { eval: true }), 'exit');
        const cache = await Cache.open(data.options);
        await cache.state();
        await cache.close();
        console.error('round');
      }
    })();`;
  const data = { package: packagePath, options: { root: directory(t) } };
  const { code, errors } = await run(t, program, data);
  assert.equal(code, 0, errors);
  const rounds = errors.split('round\n').slice(0, -1);
  assert.equal(rounds.length, 10);
  for (const round of rounds) assert.match(round, ofLibrary);
});

test('workers that end amid lines of the log do no harm', async (t) => {
  const program = `const { once } = require('node:events');
    const { Worker } = require('node:worker_threads');
    const text = "const { setLog } = require(" + JSON.stringify(data.package) + ");" +
      "for (;;) setLog(() => {});";
    (async () => {
      const cache = await Cache.open(data.options);
      for (let round = 0; round < 10; ++round) {
        const worker = new Worker(text, { eval: true });
        await once(worker, 'online');
        const item = { engine: 'eco_standard', name: 'n', type: 't', banner_id: 'b', priority: 1, updated: 1 };
        await cache.load({ items: Array(200).fill(item) });
        await worker.terminate();
      }
      await cache.close();
      console.log('done');
    })();`;
  const data = { package: packagePath, options: { root: directory(t) } };
  const { code, lines, errors } = await run(t, program, data);
  assert.deepEqual([code, lines], [0, ['done']], errors);
});

test('what the function throws is an uncaught exception', async (t) => {
  const program = `kivresource.setLog(() => { throw new Error('of the log'); });
    Cache.open(data);`;
  const { code, errors } = await run(t, program, { root: directory(t) });
  assert.equal(code, 1);
  assert.match(errors, /Error: of the log/);
});

test('only a function or null takes the log', () => {
  for (const wrong of [undefined, 3, 'stderr', {}]) {
    assert.throws(() => setLog(wrong), TypeError);
  }
});
