// The HTTP requests of the connector (of an engine by way of it, and log uploads): their talk is
// JSON texts on link 0.
//   {"request": ID, "method", "url", "headers": "A: b\r\n…", "body": base64}, and {"cancel": ID}
//   {"response": ID, "error", "url", "status", "statusText", "headers": "a: b\n…", "body": base64}
'use strict';

// The request failed on its way.
const HTTP_FAILED = 2;
// It could not be started.
const HTTP_NOT_STARTED = 3;

/** @param {string} base64 */
function bytesOf(base64) {
  const characters = atob(base64);
  const bytes = new Uint8Array(characters.length);
  for (let i = 0; i < bytes.length; i++) bytes[i] = characters.charCodeAt(i);
  return bytes;
}

/** @param {Uint8Array} bytes */
function base64Of(bytes) {
  const parts = [];
  const step = 3 * 8192;  // arguments of one call, and no padding within
  for (let i = 0; i < bytes.length; i += step) {
    parts.push(btoa(String.fromCharCode(...bytes.subarray(i, i + step))));
  }
  return parts.join('');
}

/**
 * Throws for a line that is no header. Those that scripts may not set the browser leaves out.
 * @param {string} block
 */
function headersOf(block) {
  const headers = new Headers();
  for (const line of block.split('\n')) {
    const colon = line.indexOf(':');
    if (line.trim() === '') continue;
    if (colon < 0) throw new TypeError('not a header: ' + line);
    headers.append(line.slice(0, colon).trim(), line.slice(colon + 1).trim());
  }
  return headers;
}

/** @param {URL} url */
function isRequestHost(url) {
  return (url.protocol === 'http:' || url.protocol === 'https:') && CONFIG.requestHosts.some(
    (host) => url.hostname === host || url.hostname.endsWith('.' + host));
}

class HttpRequests {
  /** @param {(text: string) => void} answer */
  constructor(answer) {
    this._answer = answer;
    /** @type {Map<number, AbortController>} */
    this._running = new Map();
  }

  /** @param {string} text a text of the connector's */
  take(text) {
    const order = JSON.parse(text);
    if (order.cancel !== undefined) {
      this._running.get(order.cancel)?.abort();
      this._running.delete(order.cancel);
    } else if (order.request !== undefined) {
      this._run(order);
    }
  }

  /** Nobody waits for the answers any more. */
  abandon() {
    for (const controller of this._running.values()) controller.abort();
    this._running.clear();
  }

  /** @param {{request: number, method: string, url: string, headers?: string, body?: string}} order */
  async _run(order) {
    const id = order.request;
    const controller = new AbortController();
    this._running.set(id, controller);
    const answer = await this._perform(order, controller.signal);
    // Cancelled, or another one by this number runs now.
    if (this._running.get(id) !== controller) return;
    this._running.delete(id);
    this._answer(JSON.stringify({ response: id, ...answer }));
  }

  /**
   * @param {{method: string, url: string, headers?: string, body?: string}} order
   * @param {AbortSignal} signal
   */
  async _perform({ method, url, headers, body }, signal) {
    let request;
    try {
      if (method !== 'GET' && method !== 'POST') throw new TypeError('not a method: ' + method);
      if (!isRequestHost(new URL(url))) throw new TypeError('not a request host: ' + url);
      // No cookies: the module's loader is not asked for any either.
      request = new Request(url, { method, headers: headersOf(headers ?? ''), credentials: 'omit',
        body: body ? bytesOf(body) : undefined, signal });
    } catch (error) {
      console.error('The request could not be started:', error);
      return { error: HTTP_NOT_STARTED };
    }
    try {
      const response = await fetch(request);
      const content = new Uint8Array(await response.arrayBuffer());
      let block = '';
      for (const [name, value] of response.headers) block += `${name}: ${value}\n`;
      return { error: 0, url: response.url, status: response.status, statusText: response.statusText,
        headers: block, body: base64Of(content) };
    } catch (error) {
      if (!signal.aborted) console.error('The request failed:', error);
      return { error: HTTP_FAILED };
    }
  }
}
