// How murmelparl.js behaves, in a page of our own making (fake_page.mjs).
import assert from 'node:assert/strict';
import test from 'node:test';
import { Page, outcome, quiet } from './fake_page.mjs';

const attempts = (link) => link.log.filter((entry) => !entry.includes('/'));

test('a hidden or detached parent hides the link, which goes on when it is shown', async () => {
  for (const way of ['hidden', 'detached']) {
    const page = new Page();
    const parent = page.makeParent();
    if (way === 'hidden') parent.hidden = true;
    else parent.remove();
    const link = page.link({ parent });
    assert.equal(await outcome(link.open()), 'hidden', way);
    assert.deepEqual(link.log, ['connecting/wait', 'hidden/show']);
    assert.equal(await outcome(() => link.send('text')), 'hidden');
    parent.hidden = false;
    page.body.appendChild(parent);
    await page.clock.advance(1000);
    assert.equal(link.state, 'connecting');
    page.connect();
    assert.equal(await outcome(link.ready), 'fulfilled');
  }
});

test('a parent that is shown where there is no plug-in is told so', async () => {
  const page = new Page();
  page.served = false;
  const parent = page.makeParent();
  parent.hidden = true;
  const link = page.link({ parent });
  link.open();
  parent.hidden = false;
  await page.clock.advance(1000);
  assert.deepEqual(link.log, ['connecting/wait', 'hidden/show', 'refused/none']);
  assert.equal(parent.children.length, 0);
  assert.equal(await outcome(link.open()), 'refused');
});

test('a link whose element is hidden, moved, removed or ended is not ready', async () => {
  const cases = {
    hidden: [(page, element) => { element.hidden = true; }, 'hidden/show', 'hidden'],
    removed: [(page, element) => element.remove(), 'connecting/wait', 'dead', 'fulfilled'],
    moved: [(page, element) => page.root.appendChild(element), 'connecting/wait', 'dead', 'fulfilled'],
    ended: [(page) => { page.served = false; page.body.children[0].instance = null; },
      'dead/reconnect', 'dead'],
  };
  for (const [name, [deed, state, code, sent = code]] of Object.entries(cases)) {
    for (const noticed of ['by itself', 'by send']) {
      const page = new Page();
      const link = await page.readyLink();
      const asked = quiet(link.ask('word'));
      deed(page, page.body.children[0]);
      if (noticed === 'by itself') await page.clock.advance(1000);
      else assert.equal(await outcome(() => link.send('text')), sent, name);
      assert.deepEqual(link.log, [state], name);
      assert.equal(await outcome(asked), code, name);
      await page.clock.advance(1000);
      if (sent === 'fulfilled') {
        assert.deepEqual([page.instances.length, page.body.children.length], [2, 1], name);
        assert.deepEqual(page.instance.sent, noticed === 'by send' ? ['text'] : [], name);
      }
    }
  }
});

test('after a kill everything fails as killed, and nothing undoes it but reconnect()', async () => {
  const page = new Page();
  const link = await page.readyLink({ autoReconnect: true });
  link.request('kill', true);
  assert.deepEqual(link.log, ['dead/wait', 'killed/reconnect']);
  for (const what of [link.ready, link.open(), () => link.send('text'), link.ask('word')]) {
    assert.equal(await outcome(what), 'killed');
  }
  page.body.appendChild(page.body.children[0]);
  await page.clock.advance(100000);
  assert.equal(link.state, 'killed');
  link.reconnect();
  await page.clock.advance(0);
  page.connect();
  assert.equal(link.state, 'ready');
});

test('open() before there is a body waits for it, and so do texts', async () => {
  const page = new Page();
  const { body } = page;
  page.body = null;
  const link = page.link();
  const opened = link.open();
  link.send('early');
  assert.deepEqual(page.instances, []);
  page.body = body;
  page.listeners.forEach((listener) => listener());
  assert.deepEqual(page.instance.sent, ['early']);
  page.connect();
  assert.equal(await outcome(opened), 'fulfilled');
});

test('a link that was closed before there is a body stays closed', async () => {
  const page = new Page();
  const { body } = page;
  page.body = null;
  const link = page.link();
  const opened = quiet(link.open());
  link.close();
  page.body = body;
  page.listeners.forEach((listener) => listener());
  assert.deepEqual([await outcome(opened), page.instances.length, link.state], ['closed', 0, 'closed']);
});

test('only strings are sent, and what the plug-in refuses keeps its reason', async () => {
  const page = new Page();
  const link = await page.readyLink();
  const cycle = [];
  cycle.push(cycle);
  for (const action of [() => link.send({}), () => link.send(), () => link.send(5),
    () => link.request(5), () => link.request('word', cycle), () => link.ask({})]) {
    assert.equal(await outcome(action), 'invalid');
  }
  assert.equal(await outcome(() => link.send('forbidden')), 'plugin');
  assert.deepEqual(page.instance.sent, []);
});

test('after a crash the hint is to wait while the plug-in may come back, then to reconnect', async () => {
  const page = new Page();
  const link = await page.readyLink(); // its engine has never said qw
  page.say('["f-connect",{"step":"4"}]', '["f-dead"]');
  assert.deepEqual(link.log, ['dead/wait']);
  assert.equal(await outcome(link.ready), 'pending');
  await page.clock.advance(7000);
  page.connect();
  assert.deepEqual(link.log.slice(1), ['connecting/wait', 'ready/none']);
  page.say('["f-dead"]');
  link.send('kept by the plug-in');
  await page.clock.advance(8000);
  assert.deepEqual(link.log.slice(3), ['dead/wait', 'dead/reconnect']);
  assert.equal(await outcome(() => link.send('kept for ever')), 'dead');
  assert.equal(await outcome(() => link.request('uploadbrowserpluginlog')), 'fulfilled');
  assert.deepEqual(page.instance.sent, ['kept by the plug-in', '["uploadbrowserpluginlog"]']);
  assert.equal(await outcome(link.ready), 'dead');
});

test('stuck, without a port file or with a stale one, heals with a new element', async () => {
  const noFile = ['["f-connect",{"error":-1,"step":"0"}]'];
  const staleFile = ['["f-connect",{"step":"0"}]', '["f-connect",{"step":"1"}]',
    '["f-connect",{"error":111,"step":"4"}]'];
  for (const attempt of [noFile, staleFile]) {
    const page = new Page();
    const link = page.link();
    link.open();
    for (let i = 0; i < 5; i++) {
      assert.equal(link.hint, 'wait');
      page.say(...attempt);
    }
    assert.equal(link.log.at(-1), 'connecting/stuck');
    link.reconnect();
    await page.clock.advance(0);
    assert.equal(page.instances.length, 2);
    assert.deepEqual([link.state, link.hint, link.attempts], ['connecting', 'wait', 0]);
  }
});

test('autoReconnect makes new elements after growing waits, up to its bound', async () => {
  const page = new Page();
  const link = page.link({ autoReconnect: { attempts: 3, firstDelayMs: 2000, maxDelayMs: 5000 } });
  const opened = link.open();
  for (let i = 0; i < 4; i++) {
    assert.equal(await outcome(opened), 'pending');
    page.say('["f-dead"]');
    await page.clock.advance(8000 + 5000);
  }
  assert.deepEqual(attempts(link), ['waiting 1 2000', 'started 1 0', 'waiting 2 4000',
    'started 2 0', 'waiting 3 5000', 'started 3 0', 'ended 3 0']);
  assert.equal(page.instances.length, 4);
  assert.deepEqual([await outcome(opened), await outcome(link.ready)], ['dead', 'dead']);
});

test('autoReconnect helps where no engine comes up, and begins anew after a steady link', async () => {
  const page = new Page();
  const link = page.link({ autoReconnect: true });
  link.open();
  await page.poll(7);
  assert.equal(page.instances.length, 2);
  assert.deepEqual(attempts(link), ['waiting 1 1000', 'started 1 0']);
  page.connect();
  await page.clock.advance(30000);
  page.say('["f-dead"]');
  await page.clock.advance(8000);
  assert.deepEqual(link.log.slice(-2), ['dead/reconnect', 'waiting 1 1000']);
  // An engine that comes meanwhile is taken as it is.
  page.connect();
  await page.clock.advance(30000);
  assert.equal(page.instances.length, 2);
  page.say('["f-dead"]');
  await page.clock.advance(8000);
  link.close();
  await page.clock.advance(30000);
  assert.deepEqual([page.instances.length, link.state, page.clock.timers.size], [2, 'closed', 0]);
});

test('ask() gives each answer to the question that it fits, in their order', async () => {
  const page = new Page();
  const link = await page.readyLink();
  const first = link.ask('sum', [1, 2]);
  const second = link.ask('sum', [3, 4]);
  const match = ([word, id]) => word === 'found' && id === 'x';
  const special = link.ask('find', ['x'], { match });
  assert.deepEqual(page.instance.sent, ['["sum",1,2]', '["sum",3,4]', '["find","x"]']);
  page.say('no JSON', '{"sum":1}', '["found","y"]', '["found","x",1]', '["sum",3]', '["sum",7]');
  assert.deepEqual([await first, await second, await special].map(String),
    ['sum,3', 'sum,7', 'found,x,1']);
});

test('ask() rejects when its match throws, in time, on abort, and when the link ends', async () => {
  const page = new Page();
  const link = await page.readyLink();
  const thrown = link.ask('a', [], { match: () => { throw new RangeError('mine'); } });
  const after = link.ask('a');
  page.say('["a"]');
  assert.deepEqual([await outcome(thrown), await outcome(after)], ['RangeError', 'fulfilled']);

  const timed = quiet(link.ask('b', [], { timeoutMs: 3000 }));
  const forever = link.ask('b', [], { timeoutMs: Infinity });
  await page.clock.advance(3000);
  assert.deepEqual([await outcome(timed), await outcome(forever)], ['timeout', 'pending']);

  const controller = new AbortController();
  const aborted = link.ask('c', [], { signal: controller.signal });
  const reason = new Error('no longer wanted');
  controller.abort(reason);
  await assert.rejects(aborted, reason);
  const before = page.instance.sent.length;
  await assert.rejects(link.ask('c', [], { signal: controller.signal }), reason);
  assert.equal(page.instance.sent.length, before);

  page.say('["b","late"]'); // for the one that waits without a limit, not for those that are over
  assert.equal(await outcome(forever), 'fulfilled');
  const dies = link.ask('d');
  page.say('["f-dead"]');
  assert.equal(await outcome(dies), 'dead');
  page.connect();
  const closes = link.ask('e');
  link.close();
  assert.equal(await outcome(closes), 'closed');
});

test('open() with a time limit rejects, and the link goes on', async () => {
  const page = new Page();
  const link = page.link();
  const opened = link.open({ timeoutMs: 2000 });
  await page.clock.advance(2000);
  assert.equal(await outcome(opened), 'timeout');
  page.connect();
  assert.equal(link.state, 'ready');
  assert.equal(await outcome(link.open({ timeoutMs: 2000 })), 'fulfilled');
});

test('what a listener sends or asks while the link comes up is sent', async () => {
  const page = new Page();
  const link = page.link();
  link.addEventListener('state', () => {
    link.send('first');
    link.ask('word');
  }, { once: true });
  link.addEventListener('step', () => link.send('later'), { once: true });
  link.open();
  page.say('["f-connect",{"step":"0"}]');
  assert.deepEqual(page.instance.sent, ['first', '["word"]', 'later']);
});

test('a page may close, reconnect or send from inside every event', async () => {
  for (const type of ['state', 'step', 'text', 'sent', 'reconnect']) {
    for (const deed of ['close', 'reconnect', 'send']) {
      const page = new Page();
      const link = page.link({ autoReconnect: true });
      link.addEventListener(type, () => { outcome(() => link[deed]('text')); }, { once: true });
      link.open();
      if (page.instance) page.connect();
      outcome(() => link.send('first'));
      await page.clock.advance(0);
      if (page.instance && link.state !== 'closed') page.say('["f-dead"]');
      await page.clock.advance(20000);
      assert.equal(page.body.children.length, link.state === 'closed' ? 0 : 1, `${type} ${deed}`);
    }
  }
});

test('what an extension says ends the link with its reason', async () => {
  const page = new Page();
  const link = await page.readyLink();
  const asked = quiet(link.ask('word'));
  page.instance.onerror({ code: 'connector-missing', message: 'install it' });
  assert.deepEqual([await outcome(asked), link.log], ['missing', ['missing/none']]);
  assert.equal(page.body.children.length, 0);
  assert.equal(await outcome(() => link.send('text')), 'missing');
});
