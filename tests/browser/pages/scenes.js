// What the test page does: page.html?SCENE&ARGUMENT.
'use strict';

// One character of every kind, boundaries of every length in UTF-8 among them.
const KINDS = ['\u0000\u0001\u001f', '"\\/\b\f\n\r\t', '\u007f\u0080\u009f\u00a0', 'ÄÖÜß', '\u07ff\u0800',
  'Ω и א ع', 'e\u0301 \u200d \u202e \u2028\u2029 \ufeff', '\ud7ff\ue000', '\ufffd',
  '世界', '\u{10000}\u{1f3a7}\u{1f468}\u200d\u{1f469}\u{10fffd}'];

const scenes = {
  async object() {
    const plugin = addPlugin();
    const names = ['onmessage', 'onerror', 'version', 'send', 'onMessage', 'nothing', ''];
    let count = 0;
    for (const name in plugin) count += typeof plugin[name] === 'undefined' ? 0 : 1;
    report('seen', [plugin.version, addPlugin('object').version, count > 0,
      typeof plugin.onmessage, typeof plugin.onerror, names.filter((name) => name in plugin)]);
    report('thrown', [
      () => { plugin.version = '2'; },
      () => { plugin.onmessage = 5; }, () => { plugin.onerror = 'text'; },
      () => plugin.send(), () => plugin.send('a', 'b'), () => plugin.send(5),
      () => plugin.send('["mpbp-request-permission-result",1]'),
      () => plugin.send('too early'),
    ].map(thrown));
    const handler = () => {};
    plugin.onerror = handler;
    report('handlers', [plugin.onerror === handler, thrown(() => { plugin.onerror = null; }),
      plugin.onerror, thrown(() => { plugin.onmessage = undefined; }), typeof plugin.onmessage]);
    finish();
  },

  // Stays, to see whether any text comes.
  async refused() {
    const plugin = addPlugin();
    const texts = [];
    plugin.onmessage = (text) => texts.push(text);
    await pause(1500);
    report('refused', ['version' in plugin, typeof plugin.version, typeof plugin.send, texts]);
  },

  async session() {
    const session = new Session();
    session.plugin.send('queued before there is a link');
    await session.alive();
    report('status', session.texts.filter((text) => text.startsWith('["f-')));

    const echoes = [];
    for (const text of ['plain text, no JSON', JSON.stringify(['echo', KINDS]), 'raw ' + KINDS.join(' '),
      JSON.stringify(['echo', 'ä7'.repeat(100000)])]) echoes.push(await session.echo(text) === text);
    session.send('large', 200000);
    echoes.push((await session.kind('large')).length > 200000);
    report('echoes', echoes);
    // The browser hands these over as null: they are no text that UTF-8 can carry, or none that
    // it lets through.
    report('no text', ['half \ud800 of a pair', '\ufdd0', '\uffff', '\u{1fffe}']
      .map((text) => thrown(() => session.plugin.send(text))));
    // The engine unescapes the address and sends it back as it is.
    const proxy = session.kind('proxy-result');
    session.plugin.send('["ask-proxy","http://a/\\uffff."]');
    report('noncharacter', JSON.parse(await proxy)[1]);

    const last = session.next((text) => text === 'number 299');
    for (let i = 0; i < 300; i++) session.plugin.send('number ' + i);
    await last;
    const numbers = session.texts.filter((text) => text.startsWith('number '));
    report('in order', [numbers.every((text, i) => text === 'number ' + i), numbers.length,
      session.count('queued')]);

    // The engine's death is the driver's doing; then comes one that the page asks for.
    const dead = session.kind('f-dead');
    report('alive', true);
    await dead;
    await session.alive();
    report('again', await session.echo('after the restart'));
    const killed = session.kind('f-killed');
    session.send('kill', false);
    await killed;
    report('after kill', session.texts.slice(-2));
    report('engines', session.texts.filter((text) => text.startsWith('["qw"'))
      .map((text) => JSON.parse(text)[1].pid));
    finish();
  },

  // One of several pages at once, which report the texts that they got. The first opens one more,
  // closes it and goes on.
  async own(name) {
    const told = new Promise((resolve) => window.addEventListener('message', resolve));
    const child = name === 'first' && window.open('page.html?own&child');
    const session = await new Session().alive();
    for (let i = 0; i < 50; i++) await session.echo(name + ' ' + i);
    report('got', session.texts.filter((text) => !text.startsWith('["')));
    if (window.opener) window.opener.postMessage('done', '*');
    if (!child) return;
    await told;
    child.close();
    await pause(500);
    report('got', [await session.echo('still here')]);
  },

  // Leaves while texts are in flight both ways: reloads so often, then goes to another address.
  async travel(reloads) {
    const visit = Number(sessionStorage.visit || 0);
    sessionStorage.visit = visit + 1;
    const session = await new Session().alive();
    if (reloads === undefined) {
      sessionStorage.clear();
      report('arrived', [await session.echo('hello from the next page'), session.count('in flight')]);
      return finish();
    }
    report('visit', visit);
    for (let i = 0; i < 200; i++) session.plugin.send('in flight ' + i + ' ' + 'x'.repeat(500));
    session.send('many', 200, 500);
    await session.next((text) => text.startsWith('in flight'));
    if (visit < reloads) location.reload();
    else location.search = 'travel';
  },

  // Takes the element out inside its own callback, at three different moments.
  async removed() {
    for (const moment of ['["f-connect"', '["f-ready"', '["qw"']) {
      const plugin = addPlugin();
      const texts = [];
      const version = await new Promise((resolve) => {
        plugin.onmessage = (text) => {
          texts.push(text);
          if (!text.startsWith(moment)) return;
          plugin.send('on the way out');
          plugin.remove();
          resolve(String(plugin.version));
        };
      });
      const count = texts.length;
      await pause(700);
      report('removed', [moment, version, texts.length - count]);
    }
    const session = await new Session().alive();
    report('after', await session.echo('a new element works'));
    finish();
  },

  // The engine fetches from the server at this host and port, by way of the browser.
  async network(place) {
    const server = 'http://' + place;
    const session = await new Session().alive();
    for (const request of [
      ['GET', server + '/answer.txt?a=1', 'X-Test: yes\r\n', ''],
      ['POST', server + '/post', 'Content-Type: application/octet-stream\r\n\r\n',
        'bin\u0000\u0001\r\n\u00ff\u{1f3a7}end'],
      ['GET', server + '/odd.txt', '', ''],
      ['PUT', server + '/put', '', ''],
      ['GET', server.replace(/\d+$/, '1') + '/', '', ''],
    ]) {
      const answer = session.kind('http-result');
      session.send('ask-http', ...request);
      report('answer', JSON.parse(await answer)[1]);
    }
    const uploaded = session.kind('unasked');
    session.send('uploadbrowserpluginlog', { any: 1 }, { jid: 'user@host' });
    report('uploaded', JSON.parse(JSON.parse(await uploaded)[1]).slice(0, 3));
    finish();
  },

  // The example page that is to survive everything. Each question is on its way when something happens.
  async survivor() {
    const frame = document.createElement('iframe');
    frame.src = 'survivor.html';
    document.body.append(frame);
    const until = async (test) => { while (!test()) await pause(50); };
    await until(() => frame.contentDocument?.getElementById('answers') &&
      frame.contentDocument.readyState === 'complete');
    const page = frame.contentDocument;
    const at = (id) => page.getElementById(id);
    const deeds = {
      'at once': () => {},
      'it crashes': () => frame.contentWindow.eval('link.request("crash")'),
      'it is hidden': () => {
        page.body.style.display = 'none';
        page.body.getClientRects();
      },
      'it is moved': () => page.body.prepend(page.querySelector('embed')),
      'it is killed': () => frame.contentWindow.eval('link.request("kill", true)'),
    };
    for (const [name, deed] of Object.entries(deeds)) {
      deed();
      at('box').value = name;
      at('form').requestSubmit();
      await pause(0);
      if (name === 'it is hidden') page.body.style.display = '';
      if (name === 'it is killed') {
        await until(() => at('state').textContent === 'killed');
        at('again').click();
      }
      await until(() => at('answers').lastChild.textContent === name);
      report('answer', name);
    }
    finish();
  },

  async wrapper() {
    const { Link, LinkError } = await import('./murmelparl.mjs');
    const caught = (promise) => promise.then(() => 'no error',
      (error) => [error instanceof LinkError, error.code]);

    report('missing', await caught(new Link({ type: 'application/x-none' }).open()));
    const link = new Link({ element: 'object' });
    const steps = [];
    const states = [];
    link.addEventListener('step', ({ detail }) => steps.push(detail.name));
    link.addEventListener('state', ({ detail }) => states.push(detail.state));
    report('early', await caught((async () => link.send('too early'))()));
    await link.open();
    report('ready', [link.state, link.hint, link.version, steps.slice(-3), states,
      await link.echo({ any: 'payload' }) > 0]);
    report('plugin', await caught((async () => link.send('mpbp-request-permission-result'))()));

    // What a browser does to the plug-in when it does not show the element, and back.
    const element = () => document.querySelector('object[type="application/x-murmelparl"]');
    const asked = () => caught(link.ask('echo', ['any']));
    const ready = async () => {
      while (link.state !== 'ready') await pause(50);
    };
    const outcomes = [];
    for (const [deed, undo] of [
      [() => document.body.prepend(element()), () => {}],
      [() => element().remove(), () => {}],
      [() => { document.body.style.display = 'none'; }, () => { document.body.style.display = ''; }],
    ]) {
      await pause(0); // an answer is an event of the element
      deed();
      document.body.getClientRects(); // the browser lays out the page now, and not by and by
      outcomes.push(await asked(), link.state);
      await pause(0);
      undo();
      await ready();
      outcomes.push(await asked());
    }
    report('elements', outcomes);

    const killed = new Promise((resolve) => link.addEventListener('state',
      ({ detail }) => detail.state === 'killed' && resolve()));
    const lost = caught(link.echo('lost'));
    const order = [];
    const note = ({ detail }) => order.push(detail.kind);
    for (const type of ['sent', 'text']) link.addEventListener(type, note);
    link.request('kill', true);
    await killed;
    report('killed', [link.hint, await lost, order]);
    await link.reconnect();
    report('reconnected', [link.state, await link.echo('back') > 0]);

    link.addEventListener('text', () => link.close(), { once: true });
    link.request('echo', 'closes the link when it is back');
    report('closed', [await caught(link.echo('never')), link.state, await caught(link.ready)]);
    finish();
  },
};

const [scene, argument] = location.search.slice(1).split('&');
scenes[scene](argument);
