/*
 * The page's side of the link to the voice and video engine, through the browser's native module or
 * through the extension of browsers that take no modules: the page is the same.
 * One file, no dependencies; it sets one global, MurmelParl. A complete page:
 *
 *   <script src="murmelparl.js"></script>
 *   <script>
 *     const link = new MurmelParl.Link();
 *     link.addEventListener('text', (event) => console.log('engine says', event.detail.text));
 *     link.addEventListener('state', (event) => console.log('link is', event.detail.state));
 *     link.open()
 *       .then(() => link.request('echo', 'hello'))
 *       .catch((error) => console.error(error.code, error.message));
 *   </script>
 *
 * States, in link.state and in the 'state' event:
 *
 *   idle        open() was not called yet
 *   connecting  the plug-in looks for the engine, starts it when there is none, and connects
 *   ready       texts go both ways
 *   dead        the link to the engine broke
 *   killed      the engine was ended because this or another page asked for it
 *   closed      close() was called
 *   missing     this browser has no plug-in for the type          (open() has rejected);
 *               a newer browser does not list its plug-ins, there it may be refused as well.
 *               Or the extension is there and lacks the program beside it: error says what to do
 *   refused     the plug-in does not serve the page's address, or its module cannot be loaded;
 *               a page cannot tell these apart                    (open() has rejected)
 *
 * Events (each a CustomEvent; what follows stands in event.detail, time is in ms since 1970):
 *
 *   state  { state, previous, hint, attempts, time }  whenever one of the first four changes
 *   step   { step, name, error, time }  a connect step: 0 to 4 as in MurmelParl.STEPS, error 0 if
 *                                       it went well
 *   text   { text, kind, own, time }    a text from the engine or, with own true, from the plug-in
 *                                       about the link; kind is the word it begins with, or ''
 *   sent   { text, kind, time }         a text went to the plug-in
 *   error  { code, message, time }      with the extension: what went wrong and what to do about it,
 *                                       for example connector-missing, page-refused, text-refused
 *
 * link.transport says what carries the link: 'module', 'extension', or null while there is neither.
 *
 * Reconnect hints, in link.hint:
 *
 *   none       nothing to do
 *   wait       the plug-in is at it: it polls for the engine or restarts it by itself
 *   stuck      as wait, but no engine has come up for several attempts; tell the user
 *   reconnect  the plug-in has given up or was told to stop; reconnect() starts afresh
 *
 * Everything that fails throws or rejects with a MurmelParl.LinkError, an Error with a `code`:
 * missing, refused, closed, dead, timeout, or plugin for what the plug-in itself refused.
 */
(function (global) {
  'use strict';

  const STEPS = Object.freeze(['port file', 'connect', 'engine start', 'connected', 'closed']);
  // Browsers with this property list nothing but their PDF viewer.
  const LISTS_PLUGINS = !('pdfViewerEnabled' in navigator);
  const STUCK_AFTER = 5; // attempts, one a second
  // What the extension says when there is no link any more, and the state that it means.
  const ENDS = Object.freeze({
    'connector-missing': 'missing', 'connector-refused': 'missing', 'version-mismatch': 'missing',
    'extension-gone': 'missing', 'page-refused': 'refused', 'too-many-links': 'refused' });

  class LinkError extends Error {
    constructor(code, message) {
      super(message);
      this.name = 'LinkError';
      this.code = code;
    }
  }

  /* The word that a text of the form ["word", …] begins with; '' for any other text. */
  function kindOf(text) {
    const match = /^\s*\[\s*"([^"\\]{1,80})"/.exec(text.slice(0, 200));
    return match ? match[1] : '';
  }

  /* What the plug-in says about the link, as { kind, step, error }; null for any other text. */
  function statusOf(text) {
    const kind = kindOf(text);
    if (kind === 'f-ready' || kind === 'f-dead' || kind === 'f-killed') return { kind };
    if (kind !== 'f-connect') return null;
    try {
      const detail = JSON.parse(text)[1];
      const step = Number(detail.step);
      return STEPS[step] ? { kind, step, error: Number(detail.error) || 0 } : null;
    } catch (error) {
      return null;
    }
  }

  class Link extends EventTarget {
    /*
     * Options, all of them optional:
     *   type     the plug-in's MIME type
     *   element  'embed' or 'object': the element that the plug-in lives in
     *   parent   where the element is put (default: the body); it must be rendered, a plug-in in
     *            a hidden element is never started
     */
    constructor(options) {
      super();
      this._options = Object.assign(
        { type: 'application/x-murmelparl', element: 'embed', parent: null }, options);
      this._element = null;
      this._transport = null;
      this._state = 'idle';
      this._hint = 'none';
      this._attempts = 0;
      this._engineSpoke = false;
      this._settling = false;
      this._early = null; // while send() runs: what the plug-in says meanwhile
      this._echoes = new Map(); // text -> { resolve, reject, started, timer }
      this._echoNumber = 0;
      this._renewReady();
    }

    get state() { return this._state; }
    get hint() { return this._hint; }
    /* How often the plug-in has looked for the engine in vain since it was last ready. */
    get attempts() { return this._attempts; }
    /* A promise of the next (or present) ready state; rejects when there will be none. */
    get ready() { return this._ready.promise; }
    /* What carries the link: 'module', 'extension', or null when there is neither. */
    get transport() { return this._transport; }
    /* The plug-in's version, for example '5.1.7.0'; '' while there is no plug-in. */
    get version() { return (this._element && this._element.version) || ''; }

    /* Puts the plug-in into the page and starts it; returns `ready`. Once open it does nothing. */
    open() {
      if (this._element) return this.ready;
      if (this._ready.settled) this._renewReady();
      if (this._settling) this._setState('connecting', 'wait');
      else this._start();
      return this.ready;
    }

    /* Takes the plug-in out of the page. The engine itself goes on. */
    close() {
      this._removeElement('closed', 'The link was closed.');
      this._setState('closed', 'none');
      this._rejectReady(new LinkError('closed', 'The link was closed.'));
    }

    /* Starts afresh with a new plug-in instance, in whatever state; returns `ready`. */
    reconnect() {
      this._removeElement('dead', 'The link was made anew.');
      this._engineSpoke = false;
      this._attempts = 0;
      return this.open();
    }

    /* Sends a text to the engine; while connecting the plug-in keeps it until the link is ready. */
    send(text) {
      if (!this._element) throw new LinkError('closed', 'The link is not open.');
      // The plug-in answers some requests before its send() returns; 'sent' comes first all the same.
      const early = [];
      this._early = early;
      try {
        this._element.send(String(text));
        this._emit('sent', { text: String(text), kind: kindOf(String(text)) });
      } catch (error) {
        throw new LinkError('plugin', error.message);
      } finally {
        this._early = null;
        early.forEach((receive) => receive());
      }
    }

    /* Sends ["word", …rest], as requests to the engine and to the plug-in are written. */
    request(word, ...rest) {
      this.send(JSON.stringify([word, ...rest]));
    }

    /*
     * Sends an echo request with `payload`; the promise is of the round-trip time in ms.
     * Works with an engine that answers ["echo", …] with the same text.
     */
    echo(payload, timeoutMs = 5000) {
      const text = JSON.stringify(['echo', { id: ++this._echoNumber }, payload]);
      return new Promise((resolve, reject) => {
        const timer = setTimeout(() => this._endEcho(text, new LinkError(
          'timeout', 'No echo within ' + timeoutMs + ' ms.')), timeoutMs);
        this._echoes.set(text, { resolve, reject, timer, started: performance.now() });
        try {
          this.send(text);
        } catch (error) {
          this._endEcho(text, error);
        }
      });
    }

    _start() {
      const element = this._makeElement();
      if (typeof element.version !== 'string') {
        element.remove();
        this._transport = null;
        this._fail(this._whyNoPlugin());
        return;
      }
      this._element = element;
      // A module gives its properties to the one element, the extension to all of the kind.
      this._transport = 'version' in Object.getPrototypeOf(element) ? 'extension' : 'module';
      this._setState('connecting', 'wait');
      element.onerror = (error) => { if (this._element === element) this._receiveError(error); };
      // Setting the handler is what starts the link.
      element.onmessage = (text) => {
        // A text that the browser takes for none, for its characters, arrives as null.
        if (typeof text !== 'string') return;
        const receive = () => { if (this._element === element) this._receive(text); };
        if (this._early) this._early.push(receive);
        else receive();
      };
    }

    _whyNoPlugin() {
      const type = this._options.type;
      const refusal = 'the plug-in does not serve pages of ' + location.origin + '.';
      if (navigator.mimeTypes[type]) return new LinkError('refused', 'There is one, but ' + refusal);
      return new LinkError('missing', 'This browser has no plug-in for ' + type +
        (LISTS_PLUGINS ? '.' : ', neither a module nor the extension, or ' + refusal));
    }

    _makeElement() {
      const element = document.createElement(this._options.element);
      element.type = this._options.type;
      element.width = element.height = 1;
      // Out of the way, but not hidden.
      element.style.cssText = 'position:absolute;bottom:0;right:0;border:0';
      element.setAttribute('aria-hidden', 'true');
      element.tabIndex = -1;
      (this._options.parent || document.body).appendChild(element);
      return element;
    }

    _removeElement(code, message) {
      const element = this._element;
      this._element = null;
      if (element) {
        element.remove();
        this._settle();
      }
      for (const text of [...this._echoes.keys()]) this._endEcho(text, new LinkError(code, message));
    }

    /*
     * Holds back a new element until the event that removed the old one is over: when the plug-in
     * itself caused the event, the browser would start the new one only half, or hang.
     */
    _settle() {
      this._settling = true;
      setTimeout(() => {
        this._settling = false;
        if (this._state === 'connecting' && !this._element) this._start();
      }, 0);
    }

    /* Never throws: the caller is the plug-in. What a listener throws is the page's own affair. */
    _receive(text) {
      const kind = kindOf(text);
      const status = statusOf(text);
      this._endEcho(text, null);
      if (status) this._receiveStatus(status);
      else if (kind === 'qw') this._engineSpoke = true;
      this._emit('text', { text, kind, own: status !== null });
    }

    /* As _receive: the caller is the plug-in. */
    _receiveError({ code, message }) {
      this._emit('error', { code, message });
      if (ENDS[code]) {
        this._removeElement('dead', message);
        this._fail(new LinkError(ENDS[code], message));
      } else if (code === 'connector-died') {
        this._setState(this._state, 'stuck');
      }
    }

    _receiveStatus({ kind, step, error }) {
      if (kind === 'f-connect') {
        this._receiveStep(step, error);
      } else if (kind === 'f-ready') {
        this._attempts = 0;
        this._engineSpoke = false;
        this._setState('ready', 'none');
        this._ready.settled = true;
        this._ready.resolve(this);
      } else if (kind === 'f-dead') {
        // An engine that had spoken is restarted by the plug-in; any other is given up.
        this._lose('dead', this._engineSpoke ? 'wait' : 'reconnect', 'The engine is gone.');
      } else {
        this._lose('killed', 'reconnect', 'The engine was killed.');
      }
    }

    _receiveStep(step, error) {
      this._emit('step', { step, name: STEPS[step], error });
      if (step === 0 && error !== 0) this._attempts++;
      if (step < 4) {
        this._setState('connecting', this._attempts >= STUCK_AFTER ? 'stuck' : 'wait');
      }
    }

    _lose(state, hint, message) {
      this._setState(state, hint);
      if (this._ready.settled) this._renewReady();
      for (const text of [...this._echoes.keys()]) this._endEcho(text, new LinkError('dead', message));
    }

    _fail(error) {
      this._setState(error.code, 'none');
      this._rejectReady(error);
    }

    _endEcho(text, error) {
      const echo = this._echoes.get(text);
      if (!echo) return;
      this._echoes.delete(text);
      clearTimeout(echo.timer);
      if (error) echo.reject(error);
      else echo.resolve(performance.now() - echo.started);
    }

    _renewReady() {
      const ready = { settled: false };
      ready.promise = new Promise((resolve, reject) => Object.assign(ready, { resolve, reject }));
      ready.promise.catch(() => {}); // a page may prefer the events
      this._ready = ready;
    }

    _rejectReady(error) {
      if (this._ready.settled) this._renewReady();
      this._ready.settled = true;
      this._ready.reject(error);
    }

    _setState(state, hint) {
      const previous = this._state;
      const changed = previous !== state || this._hint !== hint || hint === 'stuck';
      this._state = state;
      this._hint = hint;
      if (changed) this._emit('state', { state, previous, hint, attempts: this._attempts });
    }

    _emit(type, detail) {
      this.dispatchEvent(new CustomEvent(type, { detail: Object.assign({ time: Date.now() }, detail) }));
    }
  }

  global.MurmelParl = Object.freeze({ Link, LinkError, STEPS, kindOf });
})(window);
