/*
 * The page's side of the link to the voice and video engine, through the browser's native module or
 * through the extension of browsers that take no modules: the page is the same.
 * One file, no dependencies; it sets one global, MurmelParl. murmelparl.mjs is the same as a module,
 * murmelparl.d.ts has the types, docs/pages.md what to make of it.
 *
 *     const link = new MurmelParl.Link({ autoReconnect: true });
 *     link.addEventListener('state', (event) => console.log('link is', event.detail.state));
 *     link.open().then(() => link.ask('echo', ['hello'])).then((answer) => console.log(answer))
 *       .catch((error) => console.error(error.code, error.message));
 *
 * States, in link.state and in the 'state' event:
 *   idle        open() was not called yet
 *   connecting  the plug-in looks for the engine, starts it when there is none, and connects
 *   ready       texts go both ways
 *   dead        the link to the engine broke
 *   killed      the engine was ended because this page asked for it
 *   closed      close() was called
 *   hidden      the place of the element is not rendered; the link goes on when it is
 *   missing     this browser has no plug-in for the type, or does not say (then it may be refused);
 *               or the extension lacks the program beside it: the error says what to do
 *   refused     the plug-in does not serve the page's address, or its module cannot be loaded;
 *               a page cannot tell these apart
 *
 * link.ready is a promise: it resolves when the state is ready, and rejects when nothing will come
 * of waiting: closed, killed, hidden, missing, refused, and dead with the hint reconnect. Each
 * change out of such a state makes a new one.
 *
 * Events (each a CustomEvent; what follows stands in event.detail, time is in ms since 1970):
 *   state  { state, previous, hint, attempts, time }  whenever one of the first three changes, and
 *          at each further attempt while the hint is stuck
 *   step   { step, name, error, time }  a connect step: 0 to 4 as in MurmelParl.STEPS, error 0 if
 *                                       it went well
 *   text   { text, kind, own, time }    a text from the engine or, with own true, from the plug-in
 *                                       about the link; kind is the word it begins with, or ''
 *   sent   { text, kind, time }         a text went to the plug-in
 *   error  { code, message, time }      with the extension: what went wrong and what to do about it,
 *                                       for example connector-missing, page-refused, text-refused
 *   reconnect  { phase, attempt, delayMs, time }  with autoReconnect: 'waiting' for delayMs,
 *                                       'started', 'ended' when there were as many as allowed
 *
 * Hints, in link.hint:
 *   none       nothing to do
 *   wait       the plug-in is at it: it polls for the engine or restarts it by itself
 *   stuck      as wait, but no engine has come up for several attempts: tell the user. The plug-in
 *              goes on polling but starts no engine again; reconnect() does
 *   show       put the element where it is rendered
 *   reconnect  the plug-in has given up or was told to stop; reconnect() starts afresh
 *
 * What fails throws or rejects with a MurmelParl.LinkError, an Error with a `code`: one of the states
 * closed, dead, killed, hidden, missing, refused; or timeout; invalid for an argument that is none;
 * plugin for what the plug-in itself refused.
 */
(function () {
  'use strict';

  const STEPS = Object.freeze(['port file', 'connect', 'engine start', 'connected', 'closed']);
  const STUCK_AFTER = 5; // attempts, one a second
  // After ["f-dead"] the plug-in begins anew within this time or not at all: it looks five seconds
  // after it has connected, and waits one more.
  const GIVEN_UP_AFTER_MS = 8000;
  const CHECK_EVERY_MS = 1000;
  // A link that was ready for so long is no longer one of those that come up only to break.
  const STEADY_MS = 30000;
  const MAX_TIMER_MS = 2147483647;
  const AUTO_RECONNECT = Object.freeze({ attempts: 10, firstDelayMs: 1000, maxDelayMs: 60000 });
  const RENEWED = 'The link was made anew.';
  const NO_LINK = 'Send returned false'; // as the plug-in says it
  const FOR_THE_PLUGIN = ['kill', 'uploadbrowserpluginlog'];
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
    const detail = arrayOf(text)?.[1];
    const step = Number(detail?.step);
    return STEPS[step] ? { kind, step, error: Number(detail.error) || 0 } : null;
  }

  /* The array that a text is in JSON; undefined for any other text. */
  function arrayOf(text) {
    try {
      const value = JSON.parse(text);
      return Array.isArray(value) ? value : undefined;
    } catch (error) {
      return undefined;
    }
  }

  function requestText(word, args) {
    if (typeof word !== 'string') throw new LinkError('invalid', 'A request begins with a word.');
    try {
      return JSON.stringify([word, ...args]);
    } catch (error) {
      throw new LinkError('invalid', 'This cannot be written as JSON: ' + error.message);
    }
  }

  function isRendered(element) {
    return element.isConnected && element.getClientRects().length > 0;
  }

  /* Runs it after so many ms; the number for clearTimeout, 0 when that is for ever. */
  function after(ms, run) {
    return ms === Infinity ? 0 : setTimeout(run, Math.min(ms, MAX_TIMER_MS));
  }

  /* `promise`, or a rejection when it has not settled in time. */
  function inTime(promise, timeoutMs) {
    if (timeoutMs === Infinity) return promise;
    const timed = new Promise((resolve, reject) => {
      const timer = after(timeoutMs, () => reject(
        new LinkError('timeout', 'The link was not ready within ' + timeoutMs + ' ms.')));
      promise.finally(() => clearTimeout(timer)).then(resolve, reject);
    });
    timed.catch(() => {}); // a page may prefer the events
    return timed;
  }

  class Link extends EventTarget {
    /*
     * Options, all of them optional:
     *   type     the plug-in's MIME type
     *   element  'embed' or 'object': the element that the plug-in lives in
     *   parent   where the element is put, and put again when the page takes it out (default: the
     *            body, which may be yet to come)
     *   autoReconnect  true, or { attempts, firstDelayMs, maxDelayMs } where these are not to be
     *            10, 1000 and 60000: reconnects by itself when the hint is reconnect or stuck, but
     *            not after a kill. Each wait is twice as long as the one before; after a link that
     *            was ready for 30 s they begin anew.
     */
    constructor(options) {
      super();
      this._options = Object.assign(
        { type: 'application/x-murmelparl', element: 'embed', parent: null, autoReconnect: false },
        options);
      const { autoReconnect } = this._options;
      this._plan = autoReconnect ? Object.assign({}, AUTO_RECONNECT, autoReconnect) : null;
      this._element = null;
      this._place = null; // a Range around it
      this._handler = null; // our onmessage, while the element has an instance of the plug-in
      this._transport = this._observer = null;
      this._state = 'idle';
      this._hint = 'none';
      this._failure = null; // why the state is what it is
      this._attempts = this._reconnects = this._readySince = 0;
      this._givingUp = this._reconnecting = this._checking = 0; // timers
      this._settling = false;
      this._early = null; // while send() runs: what the plug-in says meanwhile
      this._unsent = []; // before there is an element
      this._asks = new Set(); // { take(text), end(error, answer) }, in the order of asking
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
    get version() {
      return (this._element && !this._place.collapsed && this._element.version) || '';
    }

    /*
     * Puts the plug-in into the page and starts it; returns `ready`. Once open it does nothing else.
     * When it takes longer than timeoutMs the promise rejects, and the link goes on.
     */
    open({ timeoutMs = Infinity } = {}) {
      if (!this._element && this._state !== 'connecting') this._begin();
      else this._check();
      return inTime(this.ready, timeoutMs);
    }

    /* Takes the plug-in out of the page. The engine itself goes on. */
    close() {
      const error = new LinkError('closed', 'The link was closed.');
      this._removeElement(error);
      this._enter('closed', 'none', error);
    }

    /* Starts afresh with a new plug-in instance, in whatever state; as open() otherwise. */
    reconnect({ timeoutMs = Infinity } = {}) {
      this._reconnects = 0;
      this._renewElement();
      return inTime(this.ready, timeoutMs);
    }

    /*
     * Sends a text to the engine; while the link is down it is kept until it is ready. What is kept
     * is lost when the element is. Throws when the link does not come back by itself.
     */
    send(text) {
      if (typeof text !== 'string') throw new LinkError('invalid', 'A text is a string.');
      if (this._element && this._place.collapsed) this._check();
      // The plug-in would keep what is for the engine, for ever.
      const isGivenUp = this._state === 'dead' && this._hint === 'reconnect' &&
        !FOR_THE_PLUGIN.includes(kindOf(text));
      if (this._handler && !isGivenUp) this._sendNow(text);
      else if (this._state === 'connecting') this._unsent.push(text);
      else throw this._refusal();
    }

    /* Sends ["word", …rest], as requests to the engine and to the plug-in are written. */
    request(word, ...rest) {
      this.send(requestText(word, rest));
    }

    /*
     * Sends ["word", …args]; the promise is of the engine's answer, an array. That is the next array
     * for which match(array) is true, by default the next that begins with the same word; each
     * answers one question, the first that it fits. Rejects when the link dies, is killed or closed,
     * after timeoutMs (Infinity: never), with what `match` throws, and on `signal` with its reason.
     */
    ask(word, args = [], { match = null, timeoutMs = 10000, signal = null } = {}) {
      const take = (text) => {
        const answer = arrayOf(text);
        return answer && (match ? match(answer) : answer[0] === word) ? answer : undefined;
      };
      return this._ask(() => requestText(word, args), take, timeoutMs, signal);
    }

    /*
     * Sends an echo request with `payload`; the promise is of the round-trip time in ms.
     * Works with an engine that answers ["echo", …] with the same text.
     */
    echo(payload, timeoutMs = 5000) {
      const started = performance.now();
      let sent;
      return this._ask(() => (sent = requestText('echo', [{ id: ++this._echoNumber }, payload])),
        (text) => (text === sent ? performance.now() - started : undefined), timeoutMs, null);
    }

    // ---- the element ----

    _begin() {
      this._enter('connecting', 'wait');
      if (this._state !== 'connecting' || this._element) return; // a listener knew better
      if (!this._parent()) {
        document.addEventListener('DOMContentLoaded', () => this._start(), { once: true });
      }
      this._start();
    }

    _parent() {
      return this._options.parent || document.body ||
        (document.readyState === 'loading' ? null : document.documentElement);
    }

    _start() {
      const isDue = this._state === 'connecting' && !this._element;
      if (!isDue || this._settling || !this._parent()) return;
      this._element = this._makeElement();
      this._observer = new ResizeObserver(() => setTimeout(() => this._check(), 0));
      this._observer.observe(this._element);
      this._checking = setInterval(() => this._check(), CHECK_EVERY_MS);
      if (typeof this._element.version === 'string') this._connect();
      else if (isRendered(this._element)) this._endWithoutPlugin();
      else this._hide();
    }

    _makeElement() {
      const element = document.createElement(this._options.element);
      element.type = this._options.type;
      element.width = element.height = 1;
      // Out of the way, but not hidden.
      element.style.cssText = 'position:absolute;bottom:0;right:0;border:0';
      element.setAttribute('aria-hidden', 'true');
      element.tabIndex = -1;
      this._parent().appendChild(element);
      // Collapses when the element is taken out, or what it is in.
      this._place = element.ownerDocument.createRange();
      this._place.selectNode(element);
      return element;
    }

    /* The element has an instance of the plug-in that knows nothing of us yet. */
    _connect() {
      const element = this._element;
      // A module gives its properties to the one element, the extension to all of the kind.
      this._transport = 'version' in Object.getPrototypeOf(element) ? 'extension' : 'module';
      const handler = (text) => {
        // A text that the browser takes for none, for its characters, arrives as null.
        if (typeof text !== 'string') return;
        const receive = () => { if (this._handler === handler) this._receive(text); };
        if (this._early) this._early.push(receive);
        else receive();
      };
      this._handler = null;
      this._enter('connecting', 'wait');
      if (this._element !== element || this._handler) return; // a listener has done something
      this._handler = handler;
      element.onerror = (error) => { if (this._handler === handler) this._receiveError(error); };
      // Setting the handler is what starts the link.
      element.onmessage = handler;
      while (this._handler === handler && this._unsent.length) {
        try {
          this._sendNow(this._unsent.shift());
        } catch (error) {
          this._emit('error', { code: error.code, message: error.message });
        }
      }
    }

    /*
     * Whether the element still has the instance that we know. When hidden, moved or taken out it
     * loses that without a word, callbacks and all. One that was moved or taken out is replaced.
     */
    _check() {
      const element = this._element;
      if (!element || this._early || this._state === 'killed') return;
      if (this._place.collapsed) {
        this._renewElement(); // it was taken out, and perhaps put in again
      } else if (this._handler && element.onmessage === this._handler) {
        // All is well.
      } else if (typeof element.version === 'string') {
        this._endAsks(new LinkError('dead', RENEWED));
        this._connect();
      } else if (!isRendered(element)) {
        this._hide();
      } else if (this._state === 'hidden') {
        this._endWithoutPlugin();
      } else if (this._handler) {
        this._handler = null;
        this._endAsks(new LinkError('dead', 'The plug-in has ended.'));
        this._giveUp('The plug-in has ended.');
      }
    }

    _hide() {
      if (this._state === 'hidden') return;
      const error = new LinkError('hidden', 'The plug-in\'s element is not rendered.');
      this._handler = null;
      this._unsent = [];
      this._endAsks(error);
      this._enter('hidden', 'show', error);
    }

    _endWithoutPlugin() {
      const { type } = this._options;
      const refusal = 'the plug-in does not serve pages of ' + location.origin + '.';
      // Browsers with this property list nothing but their PDF viewer.
      const lists = !('pdfViewerEnabled' in navigator);
      const error = navigator.mimeTypes[type]
        ? new LinkError('refused', 'There is one, but ' + refusal)
        : new LinkError('missing', 'This browser has no plug-in for ' + type +
          (lists ? '.' : ', neither a module nor the extension, or ' + refusal));
      this._transport = null;
      this._end(error);
    }

    _end(error) {
      this._removeElement(error);
      this._enter(error.code, 'none', error);
    }

    _removeElement(error) {
      const element = this._element;
      this._element = this._handler = null;
      this._unsent = [];
      this._endWaits();
      clearInterval(this._checking);
      if (element) {
        this._observer.disconnect();
        this._settle(element);
      }
      this._endAsks(error);
    }

    _renewElement() {
      this._removeElement(new LinkError('dead', RENEWED));
      this._attempts = 0;
      this._begin();
    }

    /*
     * Removes it. Holds back a new element until the event that removed the old one is over: when the
     * plug-in itself caused the event, the browser would start the new one only half, or hang. It
     * hangs too when a script looks at an element that was moved inside of such an event, whatever
     * it looks for; so that one is not touched before.
     */
    _settle(element) {
      const isMoved = this._place.collapsed;
      if (!isMoved) element.remove();
      this._settling = true;
      setTimeout(() => {
        if (isMoved) element.remove();
        this._settling = false;
        this._start();
      }, 0);
    }

    // ---- texts ----

    _sendNow(text) {
      if (this._place.collapsed) throw this._refusal();
      const handler = this._handler;
      // The plug-in answers some requests before its send() returns; 'sent' comes first all the same.
      const early = [];
      this._early = early;
      let failure = null;
      try {
        this._element.send(text);
        this._emit('sent', { text, kind: kindOf(text) });
      } catch (error) {
        failure = error;
      }
      this._early = null;
      early.forEach((receive) => receive());
      if (!failure) return;
      this._check(); // there may be another instance, or none
      if (this._handler !== handler) this.send(text);
      else throw this._refusal(failure instanceof TypeError ? NO_LINK : failure.message);
    }

    /* What to throw for a text that cannot be sent now, or that the plug-in refused with `message`. */
    _refusal(message = NO_LINK) {
      if (message !== NO_LINK) return new LinkError('plugin', message);
      if (this._failure) return new LinkError(this._failure.code, this._failure.message);
      if (this._state === 'dead') return new LinkError('dead', 'The engine is gone.');
      return this._handler ? new LinkError('plugin', message)
        : new LinkError('closed', 'The link is not open.');
    }

    _ask(makeText, take, timeoutMs, signal) {
      this._check(); // it ends the questions of an instance that is gone
      return new Promise((resolve, reject) => {
        const abort = () => ask.end(
          signal.reason || new DOMException('The question was withdrawn.', 'AbortError'));
        const ask = { take, end: (error, answer) => {
          if (!this._asks.delete(ask)) return;
          clearTimeout(timer);
          if (signal) signal.removeEventListener('abort', abort);
          if (error) reject(error);
          else resolve(answer);
        } };
        this._asks.add(ask);
        const timer = after(timeoutMs, () => ask.end(
          new LinkError('timeout', 'No answer within ' + timeoutMs + ' ms.')));
        if (signal && signal.aborted) return abort();
        if (signal) signal.addEventListener('abort', abort);
        try {
          this.send(makeText());
        } catch (error) {
          ask.end(error);
        }
      });
    }

    _answer(text) {
      for (const ask of [...this._asks]) {
        try {
          const answer = ask.take(text);
          if (answer !== undefined) return ask.end(null, answer);
        } catch (error) {
          ask.end(error);
        }
      }
    }

    _endAsks(error) {
      for (const ask of [...this._asks]) ask.end(error);
    }

    /* Never throws: the caller is the plug-in. What a listener throws is the page's own affair. */
    _receive(text) {
      const status = statusOf(text);
      if (status) this._receiveStatus(status);
      else this._answer(text);
      this._emit('text', { text, kind: kindOf(text), own: status !== null });
    }

    /* As _receive: the caller is the plug-in. */
    _receiveError({ code, message }) {
      this._emit('error', { code, message });
      if (ENDS[code] && this._element) this._end(new LinkError(ENDS[code], message));
      else if (code === 'connector-died') this._enter(this._state, 'stuck');
    }

    _receiveStatus({ kind, step, error }) {
      if (kind === 'f-connect') {
        this._receiveStep(step, error);
      } else if (kind === 'f-ready') {
        this._attempts = 0;
        this._readySince = performance.now();
        this._enter('ready', 'none');
      } else if (kind === 'f-dead') {
        this._endWaits();
        this._endAsks(new LinkError('dead', 'The engine is gone.'));
        const isSteady = performance.now() - this._readySince >= STEADY_MS;
        if (this._state === 'ready' && isSteady) this._reconnects = 0;
        this._enter('dead', 'wait');
        if (this._state !== 'dead') return;
        this._givingUp = setTimeout(() => this._giveUp('The engine is gone.'), GIVEN_UP_AFTER_MS);
      } else {
        this._enter('killed', 'reconnect', new LinkError('killed', 'The engine was killed.'));
      }
    }

    _receiveStep(step, error) {
      this._emit('step', { step, name: STEPS[step], error });
      if (!this._handler) return;
      // An attempt ends in vain where no engine has left word, or none answers at the place it named:
      // one that was killed leaves its port file behind. The end of a link is no attempt.
      const isVain = error !== 0 && (step < 2 || (step === 4 && this._state === 'connecting'));
      if (isVain) this._attempts++;
      if (step === 3) this._attempts = 0;
      if (step === 4 && !isVain) return;
      const isStuck = this._attempts >= STUCK_AFTER;
      this._enter('connecting', isStuck ? 'stuck' : 'wait');
      if (isStuck && this._hint === 'stuck') this._planReconnect();
    }

    // ---- the state ----

    /* Nothing more comes from this element by itself. */
    _giveUp(message) {
      const goesOn = this._reconnecting || (this._plan && this._reconnects < this._plan.attempts);
      this._enter('dead', 'reconnect', goesOn ? null : new LinkError('dead', message));
      if (this._state === 'dead') this._planReconnect();
    }

    /* A new element, by and by. */
    _planReconnect() {
      if (!this._plan || this._reconnecting) return;
      const { attempts, firstDelayMs, maxDelayMs } = this._plan;
      if (this._reconnects >= attempts) {
        if (this._reconnects === attempts) this._tellReconnect('ended', 0);
        this._reconnects = attempts + 1; // told
        return;
      }
      const delayMs = Math.min(firstDelayMs * 2 ** this._reconnects, maxDelayMs, MAX_TIMER_MS);
      this._reconnects++;
      this._reconnecting = setTimeout(() => {
        this._reconnecting = 0;
        this._tellReconnect('started', 0);
        if (this._element) this._renewElement();
      }, delayMs);
      this._tellReconnect('waiting', delayMs);
    }

    _tellReconnect(phase, delayMs) {
      this._emit('reconnect', { phase, attempt: this._reconnects, delayMs });
    }

    _endWaits() {
      clearTimeout(this._givingUp);
      clearTimeout(this._reconnecting);
      this._reconnecting = 0;
    }

    _renewReady() {
      const ready = { settled: false };
      ready.promise = new Promise((resolve, reject) => Object.assign(ready, { resolve, reject }));
      ready.promise.catch(() => {}); // a page may prefer the events
      this._ready = ready;
    }

    /* The one place that changes the state. With an error nothing will come of waiting. */
    _enter(state, hint, error = null) {
      const previous = this._state;
      const changed = previous !== state || this._hint !== hint || hint === 'stuck';
      this._state = state;
      this._hint = hint;
      this._failure = error;
      if (state !== 'dead') clearTimeout(this._givingUp);
      if (state !== 'dead' && state !== 'connecting') this._endWaits();
      if (this._ready.settled && !(state === 'ready' && previous === 'ready')) this._renewReady();
      this._ready.settled = state === 'ready' || error !== null;
      if (error) this._ready.reject(error);
      else if (state === 'ready') this._ready.resolve(this);
      if (changed) this._emit('state', { state, previous, hint, attempts: this._attempts });
    }

    _emit(type, detail) {
      this.dispatchEvent(new CustomEvent(type,
        { detail: Object.assign({ time: Date.now() }, detail) }));
    }
  }

  globalThis.MurmelParl = Object.freeze({ Link, LinkError, STEPS, kindOf });
  if (typeof module === 'object' && module.exports) module.exports = globalThis.MurmelParl;
})();
