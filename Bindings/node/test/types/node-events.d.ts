// What the types need of Node.js. A project has them from @types/node, which Debian does not have on
// its own.

declare module 'node:events' {
  export class EventEmitter {
    on(event: string | symbol, listener: (...values: any[]) => void): this;
    once(event: string | symbol, listener: (...values: any[]) => void): this;
    off(event: string | symbol, listener: (...values: any[]) => void): this;
    addListener(event: string | symbol, listener: (...values: any[]) => void): this;
    removeListener(event: string | symbol, listener: (...values: any[]) => void): this;
    prependListener(event: string | symbol, listener: (...values: any[]) => void): this;
    prependOnceListener(event: string | symbol, listener: (...values: any[]) => void): this;
    emit(event: string | symbol, ...values: any[]): boolean;
    listenerCount(event: string | symbol): number;
  }
}
