// Passes on between the relays' ports and the connector, one native port for all of them. Runs as a
// service worker in Chromium, as an event page in Firefox; the open native port keeps it alive.
'use strict';
if (typeof importScripts === 'function') importScripts('config.js', 'pieces.js', 'http.js');
{
  // The connector stays for the next page that comes soon.
  const IDLE_MS = 5000;

  /** @type {Map<number, chrome.Port>} */
  const ports = new Map();
  /** @type {Connector | null} */
  let connector = null;
  let lastLink = 0;
  let idleTimer = 0;

  /** The running program, or the attempt to start it. */
  class Connector {
    constructor() {
      this._greeted = false;
      /**
       * What waits for its version.
       * @type {object[]}
       */
      this._held = [];
      this._sender = new TextSender((piece) => this.post({ ...piece, link: 0 }));
      this._receiver = new TextReceiver((text) => this._requests.take(text),
        (pieces) => this.post({ type: 'ack', link: 0, pieces }));
      this._requests = new HttpRequests((text) => this._sender.send(text));
      this._port = chrome.runtime.connectNative(CONFIG.connector);
      this._port.onMessage.addListener((message) => this._onMessage(message));
      this._port.onDisconnect.addListener((port) => this._onDisconnect(port));
      this._port.postMessage({ type: 'hello', version: CONFIG.version });
      this._sender.open();
    }

    /** @param {object} message */
    post(message) {
      if (this._greeted) post(this._port, message);
      else this._held.push(message);
    }

    end() {
      this._requests.abandon();
      this._port.disconnect();
    }

    /** @param {any} message */
    _onMessage(message) {
      if (connector !== this) return;
      if (!this._greeted) {
        this._onHello(message);
      } else if (message.link !== 0) {
        toPage(message);
      } else if (message.type === 'text') {
        this._receiver.take(message.piece, Boolean(message.more));
      } else if (message.type === 'ack') {
        this._sender.acknowledged(message.pieces);
      }
    }

    /** @param {any} message */
    _onHello(message) {
      if (message.version !== CONFIG.version) {
        this.end();
        closeAll('version-mismatch', `The extension has version ${CONFIG.version} and the connector ` +
          `version ${message.version}: update the older of the two.`);
        return;
      }
      this._greeted = true;
      for (const held of this._held.splice(0)) this.post(held);
    }

    /** @param {chrome.Port} port */
    _onDisconnect(port) {
      const reason = port.error?.message ?? chrome.runtime.lastError?.message ?? '';
      if (connector !== this) return;
      this._requests.abandon();
      closeAll(...this._whyLost(reason));
    }

    /**
     * What the browsers say, by their own words.
     * @param {string} reason
     * @returns {[string, string]}
     */
    _whyLost(reason) {
      if (!this._greeted && /forbidden/i.test(reason)) {
        return ['connector-refused', 'The program mpbp-connector is registered for another ' +
          'extension: run "mpbp-connector --register" of the version that came with this one.'];
      }
      // Firefox has the second for a program that its manifest does not find or allow, and the third
      // for one that is not there.
      if (!this._greeted && /not found|no such native application|unexpected error|failed to start/i.test(reason)) {
        return ['connector-missing', 'The program mpbp-connector is not installed, or not registered ' +
          'for this browser: install it and run "mpbp-connector --register".'];
      }
      return ['connector-died', 'The program mpbp-connector keeps ending: its log mpbpconnector.log ' +
        'may say why.'];
    }
  }

  /**
   * @param {chrome.Port} port
   * @param {object} message
   */
  function post(port, message) {
    try {
      port.postMessage(message);
    } catch {
      // It is disconnected, and its event is on its way.
    }
  }

  /**
   * The connector is gone: so is every link.
   * @param {string} code
   * @param {string} message
   */
  function closeAll(code, message) {
    connector = null;
    const all = [...ports.values()];
    ports.clear();
    for (const port of all) closePort(port, code, message);
  }

  /**
   * @param {chrome.Port} port
   * @param {string} code
   * @param {string} message
   */
  function closePort(port, code, message) {
    post(port, { type: 'closed', code, message });
    port.disconnect();
  }

  /** @param {any} message */
  function toPage(message) {
    const port = ports.get(message.link);
    if (!port) return;  // it was closed while this was under way
    post(port, message);
    if (message.type !== 'closed') return;
    ports.delete(message.link);
    port.disconnect();
    endWhenIdle();
  }

  /**
   * A message of a page's process, which may have been taken over: it speaks for its own link alone
   * and cannot make the connector refuse the frame.
   * @param {number} link
   * @param {any} message
   */
  function fromPage(link, message) {
    if (message.type === 'text') {
      const { piece, more } = message;
      if (typeof piece !== 'string' || piece.length > PIECE_BYTES) return;
      connector?.post(more === true ? { type: 'text', link, piece, more } : { type: 'text', link, piece });
    } else if (message.type === 'ack') {
      connector?.post({ type: 'ack', link, pieces: Number(message.pieces) });
    } else if (message.type === 'start') {
      connector?.post({ type: 'start', link });
    }
  }

  function endWhenIdle() {
    clearTimeout(idleTimer);
    if (ports.size > 0) return;
    idleTimer = setTimeout(() => {
      connector?.end();
      connector = null;
    }, IDLE_MS);
  }

  chrome.runtime.onConnect.addListener((port) => {
    const origin = port.sender?.origin;
    // The address of a sandboxed frame tells nothing, and its origin says that it has none.
    if (port.name !== 'link' || !origin || origin === 'null') {
      closePort(port, 'page-refused', 'Pages in sandboxed frames are not served.');
      return;
    }
    clearTimeout(idleTimer);
    const link = ++lastLink;
    ports.set(link, port);
    port.onMessage.addListener((message) => {
      if (ports.get(link) === port) fromPage(link, message);
    });
    port.onDisconnect.addListener(() => {
      void chrome.runtime.lastError;  // read, or the browser logs it
      if (!ports.delete(link)) return;
      connector?.post({ type: 'close', link });
      endWhenIdle();
    });
    connector ??= new Connector();
    connector.post({ type: 'open', link, origin });
  });
}
