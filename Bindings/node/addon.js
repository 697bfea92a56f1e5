'use strict';

// Loads the compiled half of the package: the one that it carries, or for development the one that
// KIVRESOURCE_ADDON names.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const platform = `${process.platform}-${process.arch}`;
const carried = path.join(__dirname, 'native', platform, 'kivresource.node');
const named = process.env.KIVRESOURCE_ADDON;

function load(file) {
  const { RTLD_NOW, RTLD_DEEPBIND = 0 } = os.constants.dlopen;
  const loaded = { exports: {} };
  // Node.js and Electron have TLS libraries in themselves, with the names of those that the library
  // uses, but other versions or kinds. Each is to use its own.
  process.dlopen(loaded, file, RTLD_NOW | RTLD_DEEPBIND);
  return loaded.exports;
}

if (fs.existsSync(carried)) {
  module.exports = load(carried);
} else if (named) {
  module.exports = load(path.resolve(named));
} else {
  throw new Error(
    `this package of kivresource was not built for ${platform}: there is no ${carried}, and ` +
      'KIVRESOURCE_ADDON names no other'
  );
}
