'use strict';

// HTTPS: the library uses the TLS of the system, also in a program that has one in itself.

const assert = require('node:assert/strict');
const { execFileSync } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const https = require('node:https');
const path = require('node:path');
const { test } = require('node:test');
const { banner, config, directory, open, run } = require('./support.js');

/** A server with a certificate of its own, which is in the file `authority`. */
async function secureServer(t) {
  const folder = directory(t);
  const [key, authority] = ['key.pem', 'certificate.pem'].map((name) => path.join(folder, name));
  execFileSync(
    'openssl',
    [
      ...['req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-days', '2', '-subj', '/CN=127.0.0.1'],
      ...['-addext', 'subjectAltName=IP:127.0.0.1', '-keyout', key, '-out', authority],
    ],
    { stdio: 'ignore' }
  );
  const options = { key: fs.readFileSync(key), cert: fs.readFileSync(authority) };
  const server = https.createServer(options, (request, response) => response.end('secret'));
  server.listen(0, '127.0.0.1');
  await once(server, 'listening');
  t.after(() => {
    server.close();
    server.closeAllConnections();
  });
  return { url: `https://127.0.0.1:${server.address().port}`, authority };
}

test('a file comes over HTTPS, beside HTTPS of the host itself', async (t) => {
  const { url, authority } = await secureServer(t);
  const settings = { certificateAuthoritiesPath: authority };
  const cache = await open(t, { root: directory(t), main: url, settings });
  const ofHost = new Promise((resolve, reject) => {
    https.get(url, { ca: fs.readFileSync(authority), agent: false }, resolve).on('error', reject);
  });
  const { loaded } = await cache.load(config(banner('a', 'a.png')));
  assert.equal(fs.readFileSync(loaded[0].image, 'utf8'), 'secret');
  assert.equal((await ofHost).statusCode, 200);
});

test('a server that the authorities do not know is refused', async (t) => {
  const { url } = await secureServer(t);
  const { authority } = await secureServer(t);
  const settings = { certificateAuthoritiesPath: authority };
  const cache = await open(t, { root: directory(t), main: url, settings });
  const { loaded, failed } = await cache.load(config(banner('a', 'a.png')));
  assert.deepEqual(loaded, []);
  assert.match(failed[0].error.message, /certificate/);
});

test('the library uses no TLS, HTTP or compression of the program', async (t) => {
  const { url, authority } = await secureServer(t);
  const log = path.join(directory(t), 'bindings');
  const program = `Cache.open(data.options).then(async (cache) => {
      console.log((await cache.load(data.config)).loaded.length);
      await cache.close();
    });`;
  const options = { root: directory(t), main: url, settings: { certificateAuthoritiesPath: authority } };
  const data = { options, config: config(banner('a', 'a.png')) };
  const { lines, errors } = await run(t, program, data, [], { LD_DEBUG: 'bindings', LD_DEBUG_OUTPUT: log });
  assert.deepEqual(lines, ['1'], errors);
  const logs = fs.readdirSync(path.dirname(log)).map((name) => path.join(path.dirname(log), name));
  const bindings = logs.flatMap((name) => fs.readFileSync(name, 'utf8').split('\n'));
  const ofLibraries = bindings.filter((line) =>
    /binding file \S*\/lib(kivsession|curl|ssl|crypto|nghttp2|z|zip|brotli\w*)\.so/.test(line)
  );
  assert.ok(ofLibraries.some((line) => /libcurl\S* .* to \S*libssl\S* /.test(line)));
  const toProgram = ofLibraries.filter((line) => !/ to \S*\.so[.\d]* /.test(line));
  assert.deepEqual(toProgram.slice(0, 3), []);
});
