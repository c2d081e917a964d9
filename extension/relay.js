// Between the page's element (element.js, which describes their talk) and the background: one port for
// each link. A link's life is decided here; the background only passes on.
'use strict';
// A sandboxed frame is not served.
if (self.origin !== 'null') {
  const FIRST_DELAY_MS = 500;
  const LAST_DELAY_MS = 30000;

  /** False once the extension was updated, disabled or taken away. */
  function isExtensionThere() {
    try {
      return Boolean(chrome.runtime?.id);
    } catch {
      return false;
    }
  }

  class Link {
    /** @param {string} name the events' name that the page's side made */
    constructor(name) {
      this._name = name;
      /** @type {chrome.Port | null} */
      this._port = null;
      this._started = false;  // the page wants the link up
      this._heard = false;    // the connector has said something on this port
      this._dead = false;     // the page was told so, and nothing has come since
      this._delay = FIRST_DELAY_MS;
      this._complained = false;
      this._timer = 0;
      this._sender = new TextSender((piece) => this._post(piece));
      this._receiver = new TextReceiver((text) => this._deliver(text),
        (pieces) => this._post({ type: 'ack', pieces }));
      /** @param {Event} event */
      this._listener = (event) => this._onCommand(/** @type {CustomEvent} */ (event));
      window.addEventListener(name + '>', this._listener);
    }

    /** The page is going, perhaps into the browser's cache. Says whether it must be told on its return. */
    suspend() {
      const wasStarted = this._started;
      this._stop();
      return wasStarted;
    }

    tellDead() {
      this._dead = true;
      this._tell('t["f-dead"]');
    }

    /** @param {CustomEvent} event */
    _onCommand(event) {
      const command = event.detail;
      if (typeof command !== 'string') return;
      if (command[0] === 't' && !this._send(command.slice(1))) {
        this._tell('r');
        return;
      }
      event.preventDefault();
      if (command === 'o') {
        this._start();
      } else if (command === 'x') {
        window.removeEventListener(this._name + '>', this._listener);
        links.delete(this);
        this._stop();
      }
    }

    /** @param {string} text */
    _send(text) {
      return this._started && this._sender.send(text.isWellFormed() ? text : text.toWellFormed());
    }

    _start() {
      const waiting = this._started && !this._port;
      this._started = true;
      if (waiting) return;  // the next attempt is on its way, and no earlier for that
      if (this._port) this._post({ type: 'start' });
      else this._connect();
    }

    _stop() {
      this._started = false;
      this._sender.clear();
      clearTimeout(this._timer);
      this._dropPort()?.disconnect();
    }

    _dropPort() {
      const port = this._port;
      this._port = null;
      this._sender.close();
      this._receiver.reset();
      return port;
    }

    _connect() {
      /** @type {chrome.Port} */
      let port;
      try {
        port = chrome.runtime.connect({ name: 'link' });
      } catch {
        this._tellGone();
        return;
      }
      this._port = port;
      this._heard = false;
      port.onMessage.addListener((message) => {
        if (this._port === port) this._onMessage(message);
      });
      port.onDisconnect.addListener(() => {
        void chrome.runtime?.lastError;  // read, or the browser logs it
        if (this._port === port) this._onLost('The browser ended the extension\'s background script.');
      });
      this._post({ type: 'start' });
      this._sender.open();
    }

    /** @param {object} message */
    _post(message) {
      try {
        this._port?.postMessage(message);
      } catch {
        // The port is dead; its onDisconnect is on its way.
      }
    }

    /** @param {any} message */
    _onMessage(message) {
      switch (message.type) {
        case 'text':
          this._heard = true;
          this._receiver.take(message.piece, Boolean(message.more));
          break;
        case 'ack':
          this._sender.acknowledged(message.pieces);
          break;
        case 'refused':
          this._tellError(message.code, message.message);
          break;
        case 'closed':
          if (message.code === 'connector-died') this._onLost(message.message);
          else this._onClosed(message.code, message.message);
          break;
      }
    }

    /** @param {string} text */
    _deliver(text) {
      this._dead = false;
      if (text === '["f-ready"]') {
        this._delay = FIRST_DELAY_MS;
        this._complained = false;
      } else if (text === '["f-killed"]') {
        this._started = false;  // as the module: no more texts, no new attempts
      }
      this._tell('t' + text);
    }

    /**
     * Connector or background are gone without a word; there will be others.
     * @param {string} reason
     */
    _onLost(reason) {
      this._dropPort();
      if (!this._started) return;
      if (!isExtensionThere()) {
        this._tellGone();
        return;
      }
      this._timer = setTimeout(() => this._connect(), this._delay);
      const complains = this._delay === LAST_DELAY_MS && !this._complained;
      this._complained ||= complains;
      this._delay = Math.min(2 * this._delay, LAST_DELAY_MS);
      // Last, and one after the other: the page may do anything in its callbacks.
      if (!this._dead) this.tellDead();
      if (complains) this._tellError('connector-died', reason);
    }

    /**
     * There is no link for this page.
     * @param {string} code
     * @param {string} message
     */
    _onClosed(code, message) {
      const tellsDead = this._heard && !this._dead;
      this._stop();
      if (tellsDead) this.tellDead();
      this._tellError(code, message);
    }

    _tellGone() {
      const tellsDead = this._started && !this._dead;
      this._stop();
      if (tellsDead) this.tellDead();
      this._tellError('extension-gone',
        'The browser extension was updated or taken away: load the page again.');
    }

    /**
     * @param {string} code
     * @param {string} message
     */
    _tellError(code, message) {
      this._tell('e' + JSON.stringify({ code, message }));
    }

    /** @param {string} detail */
    _tell(detail) {
      window.dispatchEvent(new CustomEvent(this._name + '<', { detail }));
    }
  }

  /** @type {Set<Link>} */
  const links = new Set();
  /**
   * Those that a page in the browser's cache believes in.
   * @type {Set<Link>}
   */
  const suspended = new Set();

  window.addEventListener('pagehide', () => {
    for (const link of links) {
      if (link.suspend()) suspended.add(link);
    }
  });
  window.addEventListener('pageshow', () => {
    for (const link of suspended) {
      suspended.delete(link);
      if (links.has(link)) link.tellDead();
    }
  });

  // The page's side begins, with the name under which it will tell of its links.
  /** @param {Event} event */
  const onDocument = (event) => {
    const name = /** @type {CustomEvent} */ (event).detail;
    if (typeof name !== 'string') return;
    event.preventDefault();
    window.removeEventListener('murmelparl-document', onDocument);
    window.addEventListener(name, (told) => {
      const link = /** @type {CustomEvent} */ (told).detail;
      if (typeof link === 'string') links.add(new Link(link));
    });
  };
  window.addEventListener('murmelparl-document', onDocument);
  window.dispatchEvent(new CustomEvent('murmelparl-relay'));
}
