// What the page sees: version, onmessage, onerror and send on embed and object elements of our type.
// Runs in the page's own world before any of its scripts, so it declares nothing there, keeps the
// built-in functions that it will call, and trusts nothing that it is told later.
//
// The relay (relay.js), in a world of its own, has the link. The two talk by events on the window,
// under names made here at random; page scripts do not know them. A detail is one letter and a text.
//   to the relay, under the name of this document:  NAME: a link of that name is made
//   to the relay, under NAME + '>':  o: onmessage was set; tTEXT: a text; x: the link is over;
//       p: is the relay there. What the relay takes it marks with preventDefault.
//   from the relay, under NAME + '<':  tTEXT: a text; eJSON: an error, {code, message};
//       r: not the text that is just being sent
'use strict';
// A sandboxed frame has the origin "null" and is not served.
if (self.origin !== 'null') {
  /**
   * Callbacks are functions or other objects, and null or undefined when cleared.
   * @typedef {object} State what is kept for one element of our type
   * @property {HTMLElement} element
   * @property {any} onmessage
   * @property {any} onerror
   * @property {string} link the name of its link; empty when there is none
   * @property {boolean} refused the relay has refused the text that is being sent
   * @property {(event: Event) => void} listener for what the relay says
   */
  const TYPE = 'application/x-murmelparl';
  const VERSION = '@MPBP_VERSION@';
  // How soon a page notices that its extension is gone, where the browser does not say so.
  const CHECK_MS = 5000;
  const FORBIDDEN = 'mpbp-request-permission-result';
  const STYLE = `@MPBP_ELEMENT_CSS@`;
  const OBSERVED = { childList: true, subtree: true, attributeOldValue: true, attributeFilter: ['type'] };

  const { apply, getOwnPropertyDescriptor } = Reflect;
  const { defineProperty } = Object;
  const { error: logError } = console;
  const { dispatchEvent, addEventListener, removeEventListener } = EventTarget.prototype;
  const { getRootNode } = Node.prototype;
  const { observe, takeRecords, disconnect } = MutationObserver.prototype;
  const PageEvent = CustomEvent;
  const PageError = Error;
  const { parse } = JSON;
  const { setTimeout, setInterval, clearInterval } = window;

  /** @type {(object: object, name: string) => any} */
  const getter = (object, name) => getOwnPropertyDescriptor(object, name)?.get;
  const isConnected = getter(Node.prototype, 'isConnected');
  const parentNode = getter(Node.prototype, 'parentNode');
  const ownerDocument = getter(Node.prototype, 'ownerDocument');
  const detailOf = getter(CustomEvent.prototype, 'detail');
  const nativeOnError = getOwnPropertyDescriptor(HTMLElement.prototype, 'onerror');
  const typeOf = new Map([HTMLEmbedElement, HTMLObjectElement].map(
    (kind) => [/** @type {object} */ (kind.prototype), getter(kind.prototype, 'type')]));

  const relay = randomName();
  /** @type {WeakMap<object, State>} */
  const states = new WeakMap();
  /**
   * Elements of this document with callbacks.
   * @type {Set<State>}
   */
  const present = new Set();
  /**
   * Those that were given callbacks before they were put into it.
   * @type {Set<WeakRef<State>>}
   */
  const awaited = new Set();
  /**
   * What a page set on elements that are not ours.
   * @type {WeakMap<object, Record<string, any>>}
   */
  const others = new WeakMap();
  /** @type {Set<WeakRef<ShadowRoot>>} */
  const shadowRoots = new Set();
  const observer = new MutationObserver(digest);
  let observing = false;
  let timer = 0;
  /** @type {CSSStyleSheet | undefined} */
  let sheet;

  // No crypto.randomUUID: pages over http do not have it.
  function randomName() {
    let name = '';
    for (const word of crypto.getRandomValues(new Uint32Array(4))) name += word.toString(36) + '.';
    return name;
  }

  /** @param {any} value */
  function isObject(value) {
    return (typeof value === 'object' && value !== null) || typeof value === 'function';
  }

  /**
   * Dispatches to the relay; true when it has taken it.
   * @param {string} name
   * @param {string} detail
   */
  function tell(name, detail) {
    return !apply(dispatchEvent, window, [new PageEvent(name, { detail, cancelable: true })]);
  }

  // ---- where an element is ----

  /**
   * @param {HTMLElement} element
   * @param {object} kind the prototype it was reached by
   */
  function isOfOurType(element, kind) {
    return apply(/** @type {any} */ (typeOf.get(kind)), element, []).toLowerCase() === TYPE;
  }

  /**
   * In this document, where the module would have an instance.
   * @param {HTMLElement} element
   */
  function isPresent(element) {
    return apply(isConnected, element, []) && apply(ownerDocument, element, []) === document;
  }

  /**
   * Hides the element in the shadow tree that it is in.
   * @param {HTMLElement} element
   */
  function style(element) {
    const root = apply(getRootNode, element, []);
    if (root instanceof ShadowRoot) adopt(root);
  }

  /** @param {ShadowRoot} root */
  function adopt(root) {
    try {
      if (!sheet) {
        sheet = new CSSStyleSheet();
        sheet.replaceSync(STYLE);
      }
      if (!root.adoptedStyleSheets.includes(sheet)) root.adoptedStyleSheets.push(sheet);
    } catch {
      // A root of another document takes no sheet of this one; the element there is not served.
    }
  }

  /**
   * The element and what it is in, shadow hosts too.
   * @param {Node} node
   * @returns {Iterable<Node>}
   */
  function* ancestry(node) {
    for (let at = node; at; at = apply(parentNode, at, []) ?? (at instanceof ShadowRoot ? at.host : null)) {
      yield at;
    }
  }

  // ---- coming and going ----

  /** @param {State} state */
  function watch(state) {
    for (const node of ancestry(state.element)) {
      if (node === document || node instanceof ShadowRoot) apply(observe, observer, [node, OBSERVED]);
    }
    observing = true;
  }

  /** An element may be put into any tree that is known. */
  function watchAll() {
    apply(observe, observer, [document, OBSERVED]);
    for (const reference of shadowRoots) {
      const root = reference.deref();
      if (root) apply(observe, observer, [root, OBSERVED]);
      else shadowRoots.delete(reference);
    }
    observing = true;
  }

  /** Brings our sets up to date with the page's changes, also in the middle of its script. */
  function catchUp() {
    if (observing) digest(apply(takeRecords, observer, []));
  }

  /** @param {MutationRecord[]} records */
  function digest(records) {
    if (records.length === 0) return;
    endRemoved(records);
    for (const reference of awaited) {
      const state = reference.deref();
      if (state && !isPresent(state.element)) continue;
      awaited.delete(reference);
      // It may have been given to another document or another type meanwhile.
      if (state && isStillOurs(state.element)) enter(state);
    }
    if (present.size === 0 && awaited.size === 0) {
      apply(disconnect, observer, []);
      observing = false;
    }
  }

  /** @param {MutationRecord[]} records */
  function endRemoved(records) {
    /** @type {Map<Node, State[]>} */
    const within = new Map();
    for (const state of present) {
      for (const node of ancestry(state.element)) {
        const found = within.get(node);
        if (found) found.push(state);
        else within.set(node, [state]);
      }
    }
    // One that was moved is in the document, but it was out of it: a new instance with the module. So
    // is one that had another type for a while.
    for (const { removedNodes, target, type, oldValue } of records) {
      for (let i = 0; i < removedNodes.length; i++) within.get(removedNodes[i])?.forEach(end);
      if (type !== 'attributes' || oldValue?.toLowerCase() === TYPE) continue;
      const state = states.get(target);
      if (state && present.has(state)) end(state);
    }
    for (const state of present) {
      if (!isPresent(state.element) || !isStillOurs(state.element)) end(state);
    }
  }

  /** @param {HTMLElement} element */
  function isStillOurs(element) {
    for (const [kind, type] of typeOf) {
      if (kind.isPrototypeOf(element)) return apply(type, element, []).toLowerCase() === TYPE;
    }
    return false;
  }

  /**
   * Also when it is over already.
   * @param {State} state
   */
  function end(state) {
    present.delete(state);
    if (states.get(state.element) === state) states.delete(state.element);
    state.onmessage = state.onerror = undefined;
    const { link } = state;
    if (!link) return;
    state.link = '';
    apply(removeEventListener, window, [link + '<', state.listener]);
    tell(link + '>', 'x');
  }

  /**
   * The element is in the document.
   * @param {State} state
   */
  function enter(state) {
    present.add(state);
    watch(state);
    style(state.element);
    if (isObject(state.onmessage)) start(state);
  }

  // ---- the link ----

  /** @param {State} state */
  function start(state) {
    if (!state.link) {
      state.link = randomName();
      apply(addEventListener, window, [state.link + '<', state.listener]);
      tell(relay, state.link);
    }
    if (!tell(state.link + '>', 'o')) lose(state);
    timer ||= setInterval(checkLinks, CHECK_MS);
  }

  /** A relay that has gone without a word leaves nothing that could be heard but its silence. */
  function checkLinks() {
    let links = 0;
    for (const state of present) {
      if (!state.link) continue;
      if (tell(state.link + '>', 'p')) links++;
      else lose(state);
    }
    if (links > 0) return;
    clearInterval(timer);
    timer = 0;
  }

  /**
   * Nobody hears us: the extension was updated or taken away.
   * @param {State} state
   */
  function lose(state) {
    const { link, onmessage, onerror } = state;
    state.link = '';
    apply(removeEventListener, window, [link + '<', state.listener]);
    // Not inside of what the page is doing: it may do the same again in its callback, for ever.
    setTimeout(() => {
      if (!present.has(state)) return;
      call(onmessage, '["f-dead"]');
      call(onerror, failure('extension-gone',
        'The browser extension was updated or taken away: load the page again.'));
    }, 0);
  }

  /**
   * @param {State} state
   * @param {Event} event
   */
  function hear(state, event) {
    const said = apply(detailOf, event, []);
    if (typeof said !== 'string') return;
    if (said[0] === 'r') {
      state.refused = true;
      return;
    }
    catchUp();  // the page may have taken the element out just now
    if (!state.link) return;
    if (said[0] === 't') {
      call(state.onmessage, said.slice(1));
    } else {
      const { code, message } = parse(said.slice(1));
      call(state.onerror, failure(code, message));
    }
  }

  /**
   * @param {string} code
   * @param {string} message
   */
  function failure(code, message) {
    return Object.assign(new PageError(message), { code });
  }

  /**
   * What the page's callback throws reaches nobody, as with the module.
   * @param {any} callback
   * @param {any} argument
   */
  function call(callback, argument) {
    if (typeof callback !== 'function') return;
    try {
      apply(callback, undefined, [argument]);
    } catch (error) {
      logError('A callback of the plug-in element has thrown:', error);
    }
  }

  /** @param {any} value */
  function checkedText(value) {
    if (typeof value !== 'string') throw new PageError('Invalid argument type for method send');
    if (isForgedPermissionResult(value)) throw new PageError('Method call not allowed');
    return value;
  }

  /** The forbidden word, with any of its characters written as a JSON escape. */
  const forbiddenEscaped = new RegExp([...FORBIDDEN].map((character) =>
    `\\\\?(?:${character}|u00${character.charCodeAt(0).toString(16)})`).join(''), 'i');

  /** @param {string} text */
  function isForgedPermissionResult(text) {
    if (text.includes(FORBIDDEN)) return true;
    if (!text.includes('\\') || !forbiddenEscaped.test(text)) return false;
    return text.replace(/\\(?:u(00[0-7][0-9A-Fa-f])|([^]))/g, (_, hex, character) =>
      hex ? String.fromCharCode(parseInt(hex, 16)) : character).includes(FORBIDDEN);
  }

  /**
   * @param {State | undefined} state
   * @param {any[]} values
   */
  function sendText(state, values) {
    if (values.length !== 1) throw new PageError('Invalid argument count for method send');
    const text = checkedText(values[0]);
    if (!state?.link) throw new PageError('Send returned false');
    state.refused = false;
    if (tell(state.link + '>', 't' + text)) return 0;
    if (!state.refused && state.link) lose(state);
    throw new PageError('Send returned false');
  }

  // ---- the properties ----

  /**
   * @param {HTMLElement} element
   * @returns {State}
   */
  function stateOf(element) {
    let state = states.get(element);
    if (!state) {
      /** @type {State} */
      const made = { element, onmessage: undefined, onerror: undefined, link: '', refused: false,
        listener: (event) => hear(made, event) };
      state = made;
      states.set(element, made);
      if (isPresent(element)) {
        enter(made);
      } else {
        awaited.add(new WeakRef(made));
        watchAll();
      }
    }
    return state;
  }

  /**
   * @param {HTMLElement} element
   * @param {'onmessage' | 'onerror'} name
   * @param {any} value
   */
  function setCallback(element, name, value) {
    if (!isObject(value) && value !== undefined && value !== null) {
      // The module's own spelling.
      throw new PageError('Passed unexpected type for ' +
        (name === 'onmessage' ? 'onmessasge_callback' : 'onerror_callback'));
    }
    const state = stateOf(element);
    state[name] = value;
    if (name === 'onmessage' && isObject(value) && present.has(state)) start(state);
  }

  /**
   * An element that was made here and put into a frame's document is that frame's to serve, or nobody's.
   * @param {HTMLElement} element
   * @param {object} kind
   * @param {string} name
   * @returns {PropertyDescriptor | undefined}
   */
  function ofItsFrame(element, kind, name) {
    const home = apply(ownerDocument, element, []);
    if (home === document || !home.defaultView) return undefined;
    const prototype = kind === HTMLEmbedElement.prototype ? 'HTMLEmbedElement' : 'HTMLObjectElement';
    return getOwnPropertyDescriptor(home.defaultView[prototype].prototype, name);
  }

  /**
   * @param {HTMLElement} element
   * @param {object} kind
   * @param {string} name
   */
  function read(element, kind, name) {
    if (!isOfOurType(element, kind)) {
      return name === 'onerror' ? apply(/** @type {any} */ (nativeOnError?.get), element, [])
        : others.get(element)?.[name];
    }
    const frames = ofItsFrame(element, kind, name);
    if (frames?.get) return apply(frames.get, element, []);
    catchUp();
    if (name === 'onmessage' || name === 'onerror') return states.get(element)?.[name];
    if (!isPresent(element)) return others.get(element)?.[name];
    if (name === 'send') return send;
    style(element);
    return VERSION;
  }

  /**
   * @param {HTMLElement} element
   * @param {object} kind
   * @param {string} name
   * @param {any} value
   */
  function write(element, kind, name, value) {
    const ours = isOfOurType(element, kind);
    if (!ours && name === 'onerror') {
      apply(/** @type {any} */ (nativeOnError?.set), element, [value]);
      return;
    }
    const frames = ours ? ofItsFrame(element, kind, name) : undefined;
    if (frames?.set) {
      apply(frames.set, element, [value]);
      return;
    }
    catchUp();
    if (ours && (name === 'onmessage' || name === 'onerror')) {
      setCallback(element, name, value);
    } else if (ours && isPresent(element)) {
      throw new PageError('cannot set property ' + name);
    } else {
      others.set(element, { ...others.get(element), [name]: value });
    }
  }

  /**
   * @this {HTMLElement}
   * @param {any[]} values
   */
  function send(...values) {
    catchUp();
    return sendText(states.get(this), values);
  }

  for (const kind of typeOf.keys()) {
    for (const name of ['onmessage', 'onerror', 'version', 'send']) {
      defineProperty(kind, name, {
        configurable: true,
        enumerable: true,
        /** @this {HTMLElement} */
        get() { return read(this, kind, name); },
        /**
         * @this {HTMLElement}
         * @param {any} value
         */
        set(value) { write(this, kind, name, value); },
      });
    }
  }

  const { attachShadow } = Element.prototype;
  const wrapped = {
    /**
     * @this {Element}
     * @param {[ShadowRootInit]} init
     */
    attachShadow(...init) {
      const root = apply(attachShadow, this, init);
      adopt(root);
      shadowRoots.add(new WeakRef(root));
      if (awaited.size > 0) apply(observe, observer, [root, OBSERVED]);
      return root;
    },
  };
  defineProperty(Element.prototype, 'attachShadow', {
    ...getOwnPropertyDescriptor(Element.prototype, 'attachShadow'), value: wrapped.attachShadow });

  // Whichever of the two scripts runs first, the other hears it. A relay that comes later is that of a
  // new version, which Firefox brings into pages that are open; the old one is gone.
  let met = tell('murmelparl-document', relay);
  apply(addEventListener, window, ['murmelparl-relay', () => {
    if (met) checkLinks();
    else met = tell('murmelparl-document', relay);
  }]);
}
