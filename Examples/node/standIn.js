'use strict';

// Stands in for the parts of Electron that main.js uses, so that the example runs without a display:
// an application, a window, and messages between them, which are copied as Electron copies them.

const { EventEmitter } = require('node:events');
const path = require('node:path');
const { MessageChannel } = require('node:worker_threads');

const handlers = new Map();

/** The side of the main process. */
const ipcMain = new EventEmitter();
ipcMain.handle = (channel, handler) => handlers.set(channel, handler);

class App extends EventEmitter {
  async whenReady() {}

  quit() {
    let isPrevented = false;
    this.emit('will-quit', { preventDefault: () => (isPrevented = true) });
    if (!isPrevented) this.exit(0);
  }

  exit(status) {
    process.exit(status);
  }
}

/** Answers what a window asks. */
function serve(port) {
  port.on('message', async ({ number, channel, values }) => {
    const handler = handlers.get(channel);
    try {
      if (!handler) throw new Error(`nothing answers ${channel}`);
      port.postMessage({ number, value: await handler({}, ...values) });
    } catch (error) {
      port.postMessage({ number, error: error.message });
    }
  });
}

/** The side of a window: what a preload script would give to its page. */
class IpcRenderer extends EventEmitter {
  #port;
  #asked = new Map();
  #lastNumber = 0;

  constructor(port) {
    super();
    this.#port = port;
    port.on('message', ({ number, channel, values, value, error }) => {
      if (channel !== undefined) {
        this.emit(channel, {}, ...values);
        return;
      }
      const { resolve, reject } = this.#asked.get(number);
      this.#asked.delete(number);
      if (error === undefined) resolve(value);
      else reject(new Error(error));
    });
  }

  invoke(channel, ...values) {
    const number = ++this.#lastNumber;
    this.#port.postMessage({ number, channel, values });
    return new Promise((resolve, reject) => this.#asked.set(number, { resolve, reject }));
  }
}

class BrowserWindow extends EventEmitter {
  #page;

  constructor() {
    super();
    const { port1, port2 } = new MessageChannel();
    serve(port1);
    this.webContents = {
      send: (channel, ...values) => port1.postMessage({ channel, values }),
    };
    this.#page = { ipcRenderer: new IpcRenderer(port2), close: () => this.emit('closed') };
  }

  async loadFile(file) {
    await require(path.join(__dirname, file))(this.#page);
  }
}

module.exports = { app: new App(), BrowserWindow, ipcMain };
