'use strict';

// What the tests share: directories, servers, and processes of their own.

const assert = require('node:assert/strict');
const { spawn } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const http = require('node:http');
const os = require('node:os');
const path = require('node:path');
const readline = require('node:readline');

const packagePath = path.join(__dirname, '..');

// Servers of the tests are on the loopback interface.
for (const name of ['http_proxy', 'HTTP_PROXY', 'all_proxy', 'ALL_PROXY']) delete process.env[name];

/** A new directory, which is removed at the end of the test. */
function directory(t, name = 'kivresource-') {
  const made = fs.mkdtempSync(path.join(os.tmpdir(), name));
  t.after(() => fs.rmSync(made, { recursive: true, force: true }));
  return made;
}

function writeFiles(folder, files) {
  for (const [name, content] of Object.entries(files)) {
    fs.mkdirSync(path.dirname(path.join(folder, name)), { recursive: true });
    fs.writeFileSync(path.join(folder, name), content);
  }
}

/** Serves files with `kivresource serve`. Returns the URL, and the requests that it has printed. */
async function serve(t, files, ...options) {
  const tool = process.env.KIVRESOURCE_TOOL;
  assert.ok(tool, 'KIVRESOURCE_TOOL is to be the path of the tool');
  const folder = directory(t, 'kivresource-served-');
  writeFiles(folder, files);
  const server = spawn(tool, ['serve', folder, ...options], { stdio: ['ignore', 'pipe', 'inherit'] });
  t.after(async () => {
    server.kill('SIGKILL'); // otherwise it waits for connections that are kept alive
    if (server.exitCode === null && server.signalCode === null) await once(server, 'exit');
  });
  const requests = [];
  const lines = readline.createInterface({ input: server.stdout });
  const [url] = await once(lines, 'line');
  lines.on('line', (line) => requests.push(line));
  return { url, requests };
}

/**
 * A server in this process that answers a request only when the test says so. `asked(path)` is
 * fulfilled with the response to the next request for that path.
 */
async function heldServer(t) {
  const waiting = new Map();
  const slot = (name) => {
    if (!waiting.has(name)) {
      const entry = {};
      entry.asked = new Promise((resolve) => (entry.resolve = resolve));
      waiting.set(name, entry);
    }
    return waiting.get(name);
  };
  const seen = [];
  const server = http.createServer((request, response) => {
    seen.push(request.url);
    slot(request.url).resolve(response);
  });
  server.listen(0, '127.0.0.1');
  await once(server, 'listening');
  t.after(() => {
    server.close();
    server.closeAllConnections();
  });
  return {
    url: `http://127.0.0.1:${server.address().port}`,
    seen,
    asked: (name) => slot(name).asked,
  };
}

/** A banner whose file is at the link. */
function banner(id, link, members = {}) {
  return {
    engine: 'eco_standard',
    name: `Name of ${id}`,
    type: 'banner',
    banner_id: id,
    priority: 1,
    updated: 1,
    market_url: 'm',
    image_728x90: link,
    ...members,
  };
}

/** A resource without files. */
function plain(id, members = {}) {
  return { engine: 'e', name: id, type: 't', banner_id: id, priority: 1, updated: 1, ...members };
}

function config(...items) {
  return { items };
}

/** Opens a cache that is closed at the end of the test. */
async function open(t, options) {
  const { Cache } = require('..');
  const cache = await Cache.open(options);
  t.after(() => cache.close());
  return cache;
}

/**
 * Starts a program in a node of its own, with `kivresource` and `data`. `ended` is fulfilled with its
 * status, and with the lines that it has printed.
 */
function start(t, program, data = {}, options = [], variables = {}) {
  const folder = directory(t, 'kivresource-program-');
  writeFiles(folder, {
    'data.json': JSON.stringify(data),
    'program.js': `'use strict';
      const kivresource = require(${JSON.stringify(packagePath)});
      const data = require('./data.json');
      const { Cache } = kivresource;
      ${program}`,
  });
  const child = spawn(process.execPath, [...options, path.join(folder, 'program.js')], {
    stdio: ['ignore', 'pipe', 'pipe'],
    env: { ...process.env, ...variables },
  });
  t.after(() => child.kill('SIGKILL'));
  let output = '';
  let errors = '';
  child.stdout.on('data', (bytes) => (output += bytes));
  child.stderr.on('data', (bytes) => (errors += bytes));
  const ended = once(child, 'close').then(([code, signal]) => {
    return { code, signal, errors, lines: output.split('\n').filter((line) => line !== '') };
  });
  return { child, ended };
}

/** Runs a program, and waits for its end. */
function run(...values) {
  return start(...values).ended;
}

module.exports = {
  banner,
  config,
  directory,
  heldServer,
  open,
  packagePath,
  plain,
  run,
  serve,
  start,
  writeFiles,
};
