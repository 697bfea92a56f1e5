import kivresource from './index.js';

export const { Cache, CacheError, setLog, version } = kivresource;
