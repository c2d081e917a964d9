// Scenes for the element of the extension: elements.html?SCENE&ARGUMENT.
'use strict';
const TYPE = 'application/x-murmelparl';

function embed() {
  const element = document.createElement('embed');
  element.type = TYPE;
  return element;
}

function nextOf(element, word) {
  return new Promise((resolve) => {
    element.onmessage = (text) => { if (text.startsWith('["' + word)) resolve(text); };
  });
}

// Whether the element, which is in the document, gets an echo.
async function works(element) {
  const session = await new Session(element).alive();
  return await session.echo('echo of ' + element.localName) === 'echo of ' + element.localName;
}

const errorOf = (element) => new Promise((resolve) => {
  element.onerror = (error) => resolve([error instanceof Error, error.code, error.message]);
});

const scenes = {
  // The README's page in a frame: its log is what a reader would see.
  async readme() {
    const frame = document.createElement('iframe');
    frame.src = 'readme.html';
    document.body.append(frame);
    const log = () => frame.contentDocument.getElementById('log')?.textContent ?? '';
    while (!log().includes('["echo","hello"]')) await pause(20);
    report('log', log().split('\n').filter((line) => !line.startsWith('["f-connect"')));
  },

  async texts() {
    const session = await new Session().alive();
    const texts = ['', 'nul \u0000 in it', 'line\u2028paragraph\u2029', '\u{1f3a7}'.repeat(40000),
      '<>&"\\\u0001\u001f\u007f'.repeat(5000), 'ä'.repeat(100001), 'x'.repeat(1 << 20)];
    const wrong = [];
    for (const text of texts) {
      if (await session.echo(text) !== text) wrong.push(text.slice(0, 20));
    }
    report('wrong', wrong);
    session.texts.length = 0;
    const answer = session.next((text) => text.startsWith('half'));
    session.plugin.send('half \ud800 of a pair \udc00');
    report('half', await answer);
  },

  async elements() {
    report('made by script', await works(document.body.appendChild(embed())));
    report('object', await works(addPlugin('object')));
    document.body.insertAdjacentHTML('beforeend', `<embed id="html" type="${TYPE.toUpperCase()}">`);
    report('by markup', await works(document.getElementById('html')));
    const original = document.getElementById('html');
    report('cloned', await works(document.body.appendChild(original.cloneNode())));
    for (const mode of ['open', 'closed']) {
      const root = document.body.appendChild(document.createElement('p')).attachShadow({ mode });
      report(mode, await works(root.appendChild(embed())));
    }
    const declared = document.getElementById('open-host').shadowRoot.querySelector('embed');
    report('declared', await works(declared));
    report('hidden', [original, declared].map((element) => getComputedStyle(element).visibility));

    const frame = document.createElement('iframe');
    frame.src = 'idle-frame.html';
    const loaded = new Promise((resolve) => { frame.onload = resolve; });
    document.body.append(frame);
    await loaded;
    const inner = frame.contentDocument.createElement('embed');
    inner.type = TYPE;
    report('in a frame', await works(frame.contentDocument.body.appendChild(inner)));
    report('given to a frame', await works(frame.contentDocument.body.appendChild(embed())));

    const early = embed();
    const ready = nextOf(early, 'f-ready');
    report('outside', [typeof early.version, typeof early.send, typeof early.onmessage]);
    await pause(50);
    document.body.append(early);
    report('put in later', await ready);
  },

  // A new instance, as the module makes one: callbacks and link are gone, in the same task already.
  async moved() {
    const outcomes = [];
    const moves = {
      itself: (element) => document.body.prepend(element),
      'its parent': (element) => document.body.prepend(element.parentNode),
      'its host': (element) => document.body.prepend(element.getRootNode().host),
    };
    for (const [name, move] of Object.entries(moves)) {
      const host = document.body.appendChild(document.createElement('div'));
      const place = name === 'its host' ? host.attachShadow({ mode: 'closed' }) : host;
      const element = place.appendChild(embed());
      let before = 0;
      const session = await new Session(element).alive();
      const hear = element.onmessage;
      element.onmessage = (text) => { before++; hear(text); };
      element.send('lost with the old instance');
      move(element);
      const gone = [element.onmessage, thrown(() => element.send('no link'))];
      outcomes.push([name, ...gone, await works(element), before]);
    }
    report('moved', outcomes);
    const element = addPlugin();
    const session = await new Session(element).alive();
    element.type = 'application/x-other';
    report('other type', [typeof element.version, element.onmessage === undefined]);
    element.type = TYPE;
    report('type again', [element.onmessage, await works(element)]);
  },

  // Everything that a callback may do to its own element.
  async reentrance() {
    const deeds = {
      clears: (element) => { element.onmessage = null; },
      throws: () => { throw new Error('the page\'s own'); },
      replaces: (element) => { element.onmessage = () => {}; },
      sends: (element) => { for (let i = 0; i < 100; i++) element.send('more ' + i); },
      moves: (element) => { document.body.prepend(element); element.onmessage = () => {}; },
      removes: (element) => { element.remove(); },
      kills: (element) => { element.send('["kill",false]'); element.onmessage = () => {}; },
    };
    const uncaught = [];
    window.addEventListener('error', (event) => uncaught.push(event.message));
    for (const [name, deed] of Object.entries(deeds)) {
      const element = addPlugin();
      let calls = 0;
      await new Promise((resolve) => {
        const callback = (text) => {
          if (!text.startsWith('["f-ready"')) return;
          calls++;
          resolve();
          deed(element);
        };
        element.onmessage = callback;
      });
      await pause(50);
      report('did', [name, calls]);
      element.remove();
    }
    report('uncaught by the page', uncaught);
    report('still works', await works(addPlugin()));
  },

  async others() {
    const events = [];
    const other = document.createElement('object');
    other.onerror = () => events.push('object');
    other.data = '/nowhere.png';
    other.type = 'image/png';
    document.body.append(other);
    while (events.length === 0) await pause(20);
    const plain = document.createElement('embed');
    plain.version = 5;
    plain.onmessage = 'any';
    plain.onerror = 'no function';
    report('others', [events, typeof other.onerror, plain.version, plain.onmessage, plain.onerror,
      typeof plain.send, document.createElement('embed').version,
      thrown(() => HTMLEmbedElement.prototype.version) !== 'nothing thrown']);
  },

  // The driver kills the connector so often, or what else there is to kill.
  async survives(count) {
    const session = await new Session().alive();
    for (let i = 0; i < count; i++) {
      const dead = session.kind('f-dead');
      const back = session.kind('qw');
      report('alive', i);
      await dead;
      report('dead', i);
      await back;
    }
    report('back', [session.count('["f-dead"]'), await session.echo('after the last')]);
  },

  // What onerror gets, and again when the page tries again.
  async fails() {
    const element = addPlugin();
    const texts = [];
    for (let i = 0; i < 2; i++) {
      const told = errorOf(element);
      element.onmessage = (text) => texts.push(text);
      const error = await told;
      report('error', [...error, thrown(() => element.send('to nobody')), texts]);
    }
  },

  async sandboxed() {
    const frame = document.createElement('iframe');
    frame.sandbox = 'allow-scripts';
    frame.src = 'frame.html';
    const told = new Promise((resolve) => window.addEventListener('message', resolve, { once: true }));
    document.body.append(frame);
    report('sandboxed', (await told).data);
  },

  async refused() {
    const element = addPlugin();
    report('refused', [typeof element.version, typeof element.onmessage, 'send' in element]);
  },

  // A page that looks for a way to links that are not its own.
  async forges() {
    const seen = [];
    const spy = (object, name) => {
      const original = object[name];
      object[name] = function (...values) {
        seen.push(name);
        return new.target ? new original(...values) : original.apply(this, values);
      };
      return original;
    };
    for (const name of ['addEventListener', 'dispatchEvent']) spy(EventTarget.prototype, name);
    const NativeEvent = spy(window, 'CustomEvent');
    const session = await new Session().alive();
    await session.echo('by way of nobody');
    report('seen', seen);
    window.CustomEvent = NativeEvent;
    // Neither a second document at the relay, nor a relay that makes the element say its names again.
    const heard = [];
    window.addEventListener('murmelparl-document', (event) => heard.push(event.detail));
    window.dispatchEvent(new CustomEvent('murmelparl-relay'));
    report('heard', heard);
    report('not taken', window.dispatchEvent(
      new CustomEvent('murmelparl-document', { detail: 'mine', cancelable: true })));
    report('the extension', [typeof window.chrome?.runtime?.connect, typeof window.browser]);
    report('still works', await session.echo('still here'));
  },

  // What the module's scene of this name has not: redirections, large bodies and none, what is refused.
  async requests(port) {
    const server = 'http://www.murmel.example:' + port;
    const session = await new Session().alive();
    for (const request of [
      ['GET', server + '/redirect', 'Cookie: none=1\r\n', ''],
      ['POST', server + '/post', '', 'x'.repeat(3000000)],
      ['GET', server + '/empty.txt', '', ''],
      ['GET', 'http://elsewhere.example:' + port + '/answer.txt', '', ''],
      ['GET', server + '/answer.txt', 'no header at all\r\n', ''],
    ]) {
      const answer = session.kind('http-result');
      session.send('ask-http', ...request);
      const [, , about, , body] = JSON.parse(await answer)[1];
      report('answer', [about.error, about.lastmodified, about.url, body && body.length > 1000 ? body.length : body]);
    }
  },

  // A large echo, and how many small ones on another link come back meanwhile.
  async large(size) {
    const large = await new Session().alive();
    const small = await new Session().alive();
    const text = 'large ' + 'x'.repeat(Number(size));
    let back = null;
    large.echo(text).then((echo) => { back = echo; });
    let count = 0;
    for (; back === null; count++) await small.echo('small');
    report('large', [back === text, count]);
  },

  // Opens so many windows at once, each with a link of its own.
  async tabs(count) {
    const told = new Set();
    const all = new Promise((resolve) => window.addEventListener('message', (event) => {
      if (told.add(event.data).size === Number(count)) resolve();
    }));
    const windows = [];
    for (let i = 0; i < count; i++) windows.push(window.open('elements.html?tab&' + i));
    await all;
    report('ready', windows.length);
    for (const each of windows) each.close();
    finish();
  },

  async tab(name) {
    const session = await new Session().alive();
    await session.echo('echo of ' + name);
    window.opener.postMessage(name);
  },

  async away() {
    if (sessionStorage.away) {
      const [navigation] = performance.getEntriesByType('navigation');
      return report('loaded anew', navigation.notRestoredReasons?.reasons);
    }
    sessionStorage.away = 'was here';
    const session = await new Session().alive();
    window.addEventListener('pageshow', async (event) => {
      if (!event.persisted) return;
      while (!session.count('["f-dead"]')) await pause(20);
      report('told', [session.texts.at(-1), thrown(() => session.plugin.send('no link'))]);
      report('again', await works(session.plugin));
    });
    window.addEventListener('pagehide', (event) => {
      navigator.sendBeacon('/report', JSON.stringify(['left', event.persisted]));
    });
    await reported;
    leaving.abort();  // a page that waits for an answer may not be kept
    await pause(200);
    location.href = 'back.html';
  },
};

const [scene, argument] = location.search.slice(1).split('&');
scenes[scene](argument);
