'use strict';

// Loads the compiled half of the package: the one that it carries, or for development the one that
// KIVRESOURCE_ADDON names.

const fs = require('node:fs');
const path = require('node:path');

const platform = `${process.platform}-${process.arch}`;
const carried = path.join(__dirname, 'native', platform, 'kivresource.node');
const named = process.env.KIVRESOURCE_ADDON;

if (fs.existsSync(carried)) {
  module.exports = require(carried);
} else if (named) {
  module.exports = require(path.resolve(named));
} else {
  throw new Error(
    `this package of kivresource was not built for ${platform}: there is no ${carried}, and ` +
      'KIVRESOURCE_ADDON names no other'
  );
}
