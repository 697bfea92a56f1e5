'use strict';

const { EventEmitter } = require('node:events');
const addon = require('./addon.js');
const { callText } = require('./callText.js');

/** What the methods of Cache reject with. Its member `code` says which kind of error it is. */
class CacheError extends Error {
  constructor(code, message) {
    super(message);
    this.name = 'CacheError';
    this.code = code;
  }
}

const closedError = () => new CacheError('KIVRESOURCE_CLOSED', 'the cache is closed');
const lostError = () => new CacheError('KIVRESOURCE_SYSTEM', 'the answer was lost');

/** Runs a function of the addon, whose errors become those of the package. */
function calling(run) {
  try {
    return run();
  } catch (error) {
    if (!String(error.code).startsWith('KIVRESOURCE_')) throw error;
    throw new CacheError(error.code, error.message);
  }
}

function withoutHead(line) {
  const { result, tag, ...members } = line;
  return members;
}

function checkOf({ event, followTag, ...check }) {
  return check;
}

const nothing = () => {};
const opening = Symbol('opening');

/** A cache of remote advertising resources. README.md describes its methods and events. */
class Cache extends EventEmitter {
  #session;
  #closing = null;
  #isClosed = false;
  #lastTag = 0;
  // The calls that have no answer yet, by their tags, in the order in which the library answers.
  #unanswered = new Map();
  // Ends with the last pass, and with the last stop, after which the next pass may begin.
  #lastPass = Promise.resolve();
  #runningPass = null;
  // Those that have no report yet, by their tags.
  #revalidations = new Map();
  #stops = 0;
  #requestHandler = null;

  static async open(options) {
    if (options === null || typeof options !== 'object') {
      throw new TypeError('Cache.open() takes an object');
    }
    return new Cache(opening, callText(options));
  }

  constructor(key, settings) {
    if (key !== opening) throw new TypeError('a cache is opened by Cache.open()');
    super();
    this.#session = calling(() => addon.open(settings, (line) => this.#receive(line)));
    this.#call({ call: 'reportProgress', enabled: true }).catch(nothing);
    this.#call({ call: 'reportPasses', enabled: true }).catch(nothing);
  }

  // --- Passes ---

  async load(config, selection = {}) {
    const { id, type } = selection;
    if (id !== undefined && type !== undefined) throw new TypeError('load() takes an id or a type');
    if (id !== undefined) return this.#pass({ call: 'loadResourceWithID', id, config });
    if (type !== undefined) return this.#pass({ call: 'loadResourcesWithType', type, config });
    return this.#pass({ call: 'loadResourcesForConfig', config });
  }

  async update(config) {
    return this.#pass({ call: 'updateResourcesForConfig', config });
  }

  async revalidate(selection = {}) {
    const { id, type } = selection;
    if (id !== undefined && type !== undefined) {
      throw new TypeError('revalidate() takes an id or a type');
    }
    const tagged = this.#tagged({ call: 'revalidate', id, type });
    const report = new Promise((resolve, reject) => {
      this.#revalidations.set(tagged.tag, { resolve, reject });
    });
    report.catch(nothing); // it is not awaited if the answer is an error
    try {
      await this.#send(tagged);
    } catch (error) {
      this.#revalidations.delete(tagged.tag);
      throw error;
    }
    return report;
  }

  async follow(url, { mirrors, interval_s, jitter, usesSavedConfiguration } = {}) {
    const members = { mirrors, interval_s, jitter, usesSavedConfiguration };
    await this.#call({ call: 'follow', url, ...members });
  }

  async checkNow() {
    await this.#call({ call: 'checkNow' });
  }

  async stopFollowing() {
    await this.#call({ call: 'stopFollowing' });
  }

  async stop() {
    ++this.#stops;
    const made = this.#call({ call: 'stopLoading' });
    // The answer to the next call comes after all events of the stop, among which is a finish.
    const settled = this.#call({ call: 'state' });
    this.#lastPass = Promise.allSettled([this.#lastPass, settled]);
    await Promise.all([made, settled]);
  }

  // --- Questions and maintenance ---

  async resources(selection = {}) {
    const { id, type } = selection;
    if (id !== undefined && type !== undefined) {
      throw new TypeError('resources() takes an id or a type');
    }
    let call = { call: 'allLoadedResources' };
    if (id !== undefined) call = { call: 'loadedResourcesWithID', id };
    if (type !== undefined) call = { call: 'loadedResourcesWithType', type };
    return (await this.#call(call)).resources;
  }

  async lease(id) {
    const { lease, resource } = await this.#call({ call: 'takeLease', id });
    let ended;
    const end = async () => {
      if (this.closed) return; // closing has ended it
      await (ended ??= this.#call({ call: 'endLease', lease }));
    };
    return { resource, end };
  }

  async state() {
    return withoutHead(await this.#call({ call: 'state' }));
  }

  async audit() {
    return withoutHead(await this.#call({ call: 'audit' }));
  }

  async cleanUp({ dryRun = false } = {}) {
    return withoutHead(await this.#call({ call: 'cleanUpOrphans', dryRun }));
  }

  async trim(bytes, { resources = null, dryRun = false } = {}) {
    return withoutHead(await this.#call({ call: 'trim', bytes, resources, dryRun }));
  }

  async noteShown(id) {
    await this.#call({ call: 'noteShown', id });
  }

  async space() {
    return withoutHead(await this.#call({ call: 'space' }));
  }

  async settings() {
    return (await this.#call({ call: 'settings' })).settings;
  }

  async setSettings(settings) {
    await this.#call({ call: 'setSettings', settings });
  }

  async pause() {
    await this.#call({ call: 'pause' });
  }

  async resume() {
    await this.#call({ call: 'resume' });
  }

  async allowTransfers(allowed) {
    await this.#call({ call: 'allowTransfers', enabled: allowed });
  }

  async answerRequests(handler) {
    if (typeof handler !== 'function' && handler !== null) {
      throw new TypeError('answerRequests() takes a function or null');
    }
    if (this.#isClosed) throw closedError();
    this.#requestHandler = handler;
    await this.#call({ call: 'answerRequests', enabled: handler !== null });
  }

  async setBandwidth(bytesPerSecond) {
    await this.#call({ call: 'setBandwidth', bytesPerSecond });
  }

  async setDomains({ main, reserve } = {}) {
    await this.#call({ call: 'setDomains', main, reserve });
  }

  // --- The session ---

  get closed() {
    return this.#closing !== null;
  }

  close() {
    this.#closing ??= this.#close();
    return this.#closing;
  }

  ref() {
    addon.ref(this.#session);
    return this;
  }

  unref() {
    addon.unref(this.#session);
    return this;
  }

  async #close() {
    const ended = addon.close(this.#session);
    this.#isClosed = true;
    const unanswered = [...this.#unanswered.values()];
    this.#unanswered.clear();
    for (const { reject } of unanswered) reject(closedError());
    for (const { reject } of this.#revalidations.values()) reject(closedError());
    this.#revalidations.clear();
    this.#runningPass?.reject(closedError());
    this.#runningPass = null;
    await ended;
    // In a turn of its own, so that what a listener throws is no failure of close().
    process.nextTick(() => this.emit('close'));
  }

  // --- Calls ---

  /** Makes a call, and returns its answer. */
  async #call(call) {
    return this.#send(this.#tagged(call));
  }

  /** The text of a call, which no longer depends on the objects that it was made of. */
  #tagged(call) {
    const tag = ++this.#lastTag;
    return { tag, text: callText({ ...call, tag }) };
  }

  async #send({ tag, text }) {
    if (this.#isClosed) throw closedError();
    calling(() => addon.send(this.#session, text));
    return new Promise((resolve, reject) => this.#unanswered.set(tag, { resolve, reject }));
  }

  async #pass(call) {
    if (this.#isClosed) throw closedError();
    const tagged = this.#tagged(call);
    const stops = this.#stops;
    const pass = this.#lastPass.then(() => {
      if (this.#isClosed) throw closedError();
      if (stops !== this.#stops) return { loaded: [], failed: [], stopped: true };
      return this.#runPass(tagged);
    });
    this.#lastPass = pass.catch(nothing);
    return pass;
  }

  async #runPass(tagged) {
    const answer = this.#send(tagged);
    const outcome = new Promise((resolve, reject) => {
      const progress = { isAsking: false, isOver: false };
      this.#runningPass = { loaded: [], failed: [], stopped: false, ...progress, resolve, reject };
    });
    outcome.catch(nothing); // it is not awaited if the answer is an error
    try {
      await answer;
    } catch (error) {
      this.#runningPass = null;
      throw error;
    }
    return outcome;
  }

  /** A pass may report several finishes. It is over when no download is in flight after one. */
  async #endWhenOver(pass) {
    pass.isAsking = true;
    try {
      const { downloads } = await this.state();
      pass.isAsking = false;
      pass.isOver = downloads === 0;
    } catch (error) {
      pass.isOver = true;
      pass.reject(error);
    }
    if (!pass.isOver) return;
    if (this.#runningPass === pass) this.#runningPass = null;
    pass.resolve({ loaded: pass.loaded, failed: pass.failed, stopped: pass.stopped });
  }

  // --- Lines ---

  /** Takes a line. What a listener throws goes through, after everything else is done. */
  #receive(text) {
    if (this.#isClosed) return;
    const line = JSON.parse(text);
    if (line.event !== undefined) {
      this.#takeEvent(line);
    } else if (line.tag !== undefined) {
      this.#takeAnswer(line);
    } else {
      this.emit('problem', new CacheError('KIVRESOURCE_CALL', line.error));
    }
  }

  #takeEvent(line) {
    const { event, resource, error, passTag, revalidationTag, ...members } = line;
    const pass = this.#runningPass;
    switch (event) {
      case 'didLoadResource':
        pass?.loaded.push(resource);
        this.emit(event, resource);
        break;
      case 'didFailToLoadResource':
        pass?.failed.push({ resource, error });
        this.emit(event, resource, error);
        break;
      case 'didFinishLoading':
        if (pass && !pass.isAsking) this.#endWhenOver(pass);
        this.emit(event);
        break;
      case 'progress':
      case 'passReport':
        this.emit(event, members);
        break;
      case 'request':
        this.#answerRequest(members);
        break;
      case 'check':
        this.emit(event, checkOf(line));
        break;
      case 'revalidationReport':
        this.#revalidations.get(revalidationTag)?.resolve(members);
        this.#revalidations.delete(revalidationTag);
        break;
    }
  }

  /** What the handler throws goes through, after the request is refused. */
  async #answerRequest({ request, url }) {
    let headers;
    let failure;
    try {
      headers = this.#requestHandler ? await this.#requestHandler(url) : {};
      if (headers) return await this.#call({ call: 'sendRequest', request, headers });
    } catch (error) {
      failure = { error };
    }
    // After an answer that is not valid, the request still waits.
    const isRefused = await this.#call({ call: 'refuseRequest', request }).then(() => true, () => false);
    if (!failure) return;
    if (!headers) process.nextTick(() => { throw failure.error; });
    else if (isRefused) this.emit('problem', failure.error);
  }

  #noteStop() {
    const pass = this.#runningPass;
    if (pass && !pass.isOver) pass.stopped = true;
  }

  #takeAnswer(line) {
    if (!this.#unanswered.has(line.tag)) return;
    // Answers come in the order in which the calls were sent, unless there was no memory for one.
    for (const [tag, { resolve, reject }] of this.#unanswered) {
      this.#unanswered.delete(tag);
      if (tag !== line.tag) {
        reject(lostError());
        continue;
      }
      if (line.result === 'stopLoading') this.#noteStop();
      if (line.error === undefined) resolve(line);
      else reject(new CacheError('KIVRESOURCE_CALL', line.error));
      break;
    }
  }
}

if (Symbol.asyncDispose) {
  Object.defineProperty(Cache.prototype, Symbol.asyncDispose, {
    value: Cache.prototype.close,
    configurable: true,
    writable: true,
  });
}

/** Passes the log of the process to a function; with null, to where the library writes it. */
function setLog(receive) {
  if (typeof receive !== 'function' && receive !== null) {
    throw new TypeError('setLog() takes a function or null');
  }
  calling(() => addon.setLog(receive));
}

module.exports = { Cache, CacheError, setLog, version: addon.version };
