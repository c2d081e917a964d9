// What the extension uses of the browsers and tsc does not know: the extension API, and what is newer
// than its libraries.
declare namespace chrome {
  interface Event<Listener> {
    addListener(listener: Listener): void;
  }
  interface Port {
    name: string;
    sender?: { origin?: string };
    /** Firefox: why it was disconnected. */
    error?: { message: string } | null;
    onMessage: Event<(message: any) => void>;
    onDisconnect: Event<(port: Port) => void>;
    postMessage(message: object): void;
    disconnect(): void;
  }
  const runtime: {
    id?: string;
    lastError?: { message: string };
    onConnect: Event<(port: Port) => void>;
    connect(info: { name: string }): Port;
    connectNative(name: string): Port;
  };
  /** Chromium. */
  const dom: { openOrClosedShadowRoot(element: HTMLElement): ShadowRoot | null } | undefined;
}

/** A service worker's. */
declare const importScripts: ((...files: string[]) => void) | undefined;

interface String {
  isWellFormed(): boolean;
  toWellFormed(): string;
}

interface Element {
  /** Firefox. */
  openOrClosedShadowRoot?: ShadowRoot | null;
}

interface ShadowRoot {
  /** Firefox: the page's side of the object. */
  wrappedJSObject?: ShadowRoot;
}

interface Window {
  /** Firefox: the page's side of the window. */
  wrappedJSObject?: Window & typeof globalThis;
}

interface DocumentOrShadowRoot {
  adoptedStyleSheets: CSSStyleSheet[];
}

interface Headers {
  [Symbol.iterator](): IterableIterator<[string, string]>;
}
