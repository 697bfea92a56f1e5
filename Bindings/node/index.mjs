import kivresource from './index.js';

export const { Cache, CacheError, version } = kivresource;
