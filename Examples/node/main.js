'use strict';

// The main process of a desktop application in the shape of Electron's: it owns the cache, and a
// window without access to files or network shows what is in it.
//
//   node main.js ROOT SERVER CONFIGURATION
//
// Exits with 0 if all is loaded, with 1 if something failed, and with 2 if it could not begin.

const { Cache } = require('kivresource');
// In an application: require('electron').
const { app, BrowserWindow, ipcMain } = require('./standIn.js');

const [root, main, configuration] = process.argv.slice(2);
let status = 2;

/** What a window may know of a resource: plain values, copied on the way. */
function shown(resource) {
  return {
    id: resource.resourceID,
    name: resource.name,
    kind: resource.class,
    file: resource.image ?? resource.video ?? resource.html ?? null,
    link: resource.marketLink ?? null,
  };
}

/** Passes the events of the cache on to a window. */
function forward(cache, contents) {
  cache.on('didLoadResource', (resource) => contents.send('cache:loaded', shown(resource)));
  cache.on('didFailToLoadResource', (resource, error) => {
    contents.send('cache:failed', shown(resource), error?.message ?? 'the file was empty');
  });
  cache.on('progress', ({ completedFiles, files }) => {
    contents.send('cache:progress', completedFiles, files);
  });
  cache.on('problem', (error) => contents.send('cache:problem', error.message));
}

/** Lets a window ask. The answer to a call is a copy; what rejects here rejects there. */
function answer(cache) {
  ipcMain.handle('cache:resources', async () => (await cache.resources()).map(shown));
  ipcMain.handle('cache:update', async () => {
    const { loaded, failed, stopped } = await cache.update(configuration);
    status = failed.length === 0 ? 0 : 1;
    return { loaded: loaded.length, failed: failed.length, stopped };
  });
  ipcMain.handle('cache:stop', () => cache.stop());
}

async function begin() {
  await app.whenReady();
  const cache = await Cache.open({ root, main });
  answer(cache);
  const window = new BrowserWindow({ show: false });
  forward(cache, window.webContents);
  window.once('closed', () => app.quit());
  app.once('will-quit', (event) => {
    event.preventDefault(); // until the cache has closed
    cache.close().then(() => app.exit(status));
  });
  await window.loadFile('window.js');
}

if (configuration === undefined) {
  console.error('usage: node main.js ROOT SERVER CONFIGURATION');
  process.exit(2);
}
begin().catch((error) => {
  console.error(error.message);
  app.exit(status);
});
