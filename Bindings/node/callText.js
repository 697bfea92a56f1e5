'use strict';

// The library answers a call that it cannot parse without the tag of the call, so the promise would
// wait for ever. JSON.stringify() writes two things that the library does not take: deeper nesting,
// and halves of surrogate pairs, as escapes.

const deepestNesting = 1000;

/** A value as one line of JSON that the library can parse. Throws a TypeError if there is none. */
function callText(value) {
  const text = JSON.stringify(value);
  let depth = 0;
  let isInString = false;
  for (let at = 0; at < text.length; ++at) {
    const character = text.charCodeAt(at);
    if (isInString) {
      if (character === 0x22) {
        isInString = false;
      } else if (character === 0x5c) {
        ++at;
        // Escapes with d are of surrogates only, and JSON.stringify() writes pairs as they are.
        if (text.startsWith('ud', at)) throw new TypeError('a text has half of a surrogate pair');
      }
    } else if (character === 0x22) {
      isInString = true;
    } else if (character === 0x7b || character === 0x5b) {
      if (++depth > deepestNesting) {
        throw new TypeError(`objects and arrays nest deeper than ${deepestNesting} levels`);
      }
    } else if (character === 0x7d || character === 0x5d) {
      --depth;
    }
  }
  return text;
}

module.exports = { callText };
