// The package by require(). Never run.

import kivresource = require('kivresource');

async function host(): Promise<number> {
  const cache: kivresource.Cache = await kivresource.Cache.open({ root: '/r' });
  const resources: kivresource.Resource[] = await cache.resources();
  await cache.close();
  // @ts-expect-error: no such member
  kivresource.Cash;
  return resources.length;
}

void host;
