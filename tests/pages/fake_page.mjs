// A page with the plug-in, as far as murmelparl.js sees one: a document, a clock that the test
// turns, and elements that behave as the browser's module does.
import fs from 'node:fs';
import vm from 'node:vm';

const LIBRARY = new URL('../../examples/console/murmelparl.js', import.meta.url);

class Clock {
  constructor() {
    this.now = 1000;
    this.timers = new Map();
    this.last = 0;
  }

  start(run, ms = 0, every = 0) {
    this.timers.set(++this.last, { run, due: this.now + ms, every });
    return this.last;
  }

  async advance(ms) {
    const end = this.now + ms;
    for (;;) {
      await new Promise(setImmediate);
      const [first] = [...this.timers].sort((a, b) => a[1].due - b[1].due);
      if (!first || first[1].due > end) break;
      const [id, timer] = first;
      this.now = Math.max(this.now, timer.due);
      if (timer.every) timer.due += timer.every;
      else this.timers.delete(id);
      timer.run();
    }
    this.now = end;
    await new Promise(setImmediate);
  }
}

class FakeRange {
  collapsed = false;
  selectNode(element) { this.element = element; }
  note(removed) { this.collapsed ||= this.element.isIn(removed); }
}

class FakeElement {
  constructor(page) {
    this.page = page;
    this.style = {};
    this.children = [];
    this.parent = null;
    this.hidden = false;
    this.instance = null; // of the module
  }

  setAttribute() {}
  get ownerDocument() { return this.page.document; }
  isIn(other) { return this === other || Boolean(this.parent && this.parent.isIn(other)); }
  get isConnected() { return this.isIn(this.page.root); }
  get isShown() {
    return !this.hidden && (this === this.page.root || Boolean(this.parent && this.parent.isShown));
  }
  getClientRects() { return this.isShown ? [{}] : []; }

  appendChild(child) {
    child.remove();
    this.children.push(child);
    child.parent = this;
    return child;
  }

  remove() {
    if (!this.parent) return;
    for (const range of this.page.ranges) range.note(this);
    this.parent.children = this.parent.children.filter((child) => child !== this);
    this.parent = null;
    this.update();
  }

  /* The browser makes and ends instances as the element comes and goes. */
  update() {
    for (const child of this.children) child.update();
    if (!this.isShown) this.instance = null;
  }

  plugin() {
    this.update();
    const { page } = this;
    if (!this.instance && this.isShown && page.served && this.type === 'application/x-murmelparl') {
      this.instance = { sent: [], running: false, send: page.send };
      page.instances.push(this.instance);
    }
    return this.instance;
  }

  get version() { return this.plugin() ? '5.1.7.0' : undefined; }
  get onmessage() { return this.plugin()?.onmessage; }
  set onmessage(handler) {
    this.plugin().onmessage = handler;
    this.instance.running = true;
  }
  get onerror() { return this.plugin()?.onerror; }
  set onerror(handler) { this.plugin().onerror = handler; }
  get send() {
    const instance = this.plugin();
    return instance ? (text) => instance.send(text) : undefined;
  }
}

export class Page {
  constructor() {
    this.clock = new Clock();
    this.served = true;
    this.instances = [];
    this.listeners = [];
    this.ranges = [];
    this.root = new FakeElement(this);
    this.body = this.root.appendChild(new FakeElement(this));
    const page = this;
    const { clock } = this;
    const context = {
      EventTarget, CustomEvent: globalThis.CustomEvent ?? class extends Event {
        constructor(type, { detail }) {
          super(type);
          this.detail = detail;
        }
      },
      DOMException,
      location: { origin: 'https://page.example' },
      navigator: { mimeTypes: { 'application/x-murmelparl': {} } },
      document: {
        documentElement: this.root,
        readyState: 'loading',
        get body() { return page.body; },
        createElement: () => new FakeElement(page),
        createRange: () => page.ranges[page.ranges.push(new FakeRange()) - 1],
        addEventListener: (type, listener) => this.listeners.push(listener),
      },
      ResizeObserver: class { observe() {} disconnect() {} },
      performance: { now: () => clock.now },
      setTimeout: (run, ms) => clock.start(run, ms),
      setInterval: (run, ms) => clock.start(run, ms, ms),
      clearTimeout: (id) => clock.timers.delete(id),
      clearInterval: (id) => clock.timers.delete(id),
    };
    context.window = context;
    this.document = context.document;
    vm.runInNewContext(fs.readFileSync(LIBRARY, 'utf8'), context, { filename: 'murmelparl.js' });
    this.MurmelParl = context.MurmelParl;
    // What the module does with a text; `this` is the instance.
    this.send = function send(text) {
      if (text.includes('forbidden')) throw new Error('Method call not allowed');
      if (text.startsWith('["kill"')) {
        if (this.running) this.onmessage('["f-dead"]');
        this.running = false;
        this.onmessage('["f-killed"]');
      } else if (!this.running) {
        throw new Error('Send returned false');
      } else {
        this.sent.push(text);
      }
    };
  }

  get instance() { return this.instances.at(-1); }
  makeParent() { return this.body.appendChild(new FakeElement(this)); }

  /* The plug-in says these texts to the page. */
  say(...texts) {
    for (const text of texts) this.instance.onmessage(text);
  }

  connect() {
    for (const step of [0, 1, 3]) this.say(`["f-connect",{"step":"${step}"}]`);
    this.say('["f-ready"]');
  }

  /* The port file is not there, so often, a second each. */
  async poll(count) {
    for (let i = 0; i < count; i++) {
      this.say('["f-connect",{"error":-1,"step":"0"}]');
      await this.clock.advance(1000);
    }
  }

  link(options) {
    const link = new this.MurmelParl.Link(options);
    link.log = [];
    link.addEventListener('state', ({ detail }) => link.log.push(detail.state + '/' + detail.hint));
    link.addEventListener('reconnect', ({ detail }) =>
      link.log.push([detail.phase, detail.attempt, detail.delayMs].join(' ')));
    return link;
  }

  async readyLink(options) {
    const link = this.link(options);
    link.open();
    this.connect();
    await link.ready;
    link.log.length = 0;
    return link;
  }
}

/* The code that a promise or an action fails with; 'pending' and 'fulfilled' when it does not. */
export async function outcome(what) {
  let promise;
  try {
    promise = typeof what === 'function' ? what() : what;
  } catch (error) {
    return error.code ?? error.name;
  }
  const settled = Promise.resolve(promise)
    .then(() => 'fulfilled', (error) => error.code ?? error.name);
  const pending = new Promise((resolve) => setTimeout(resolve, 20, 'pending'));
  return Promise.race([settled, pending]);
}

/* A promise that is looked at later, with outcome(). */
export function quiet(promise) {
  promise.catch(() => {});
  return promise;
}
