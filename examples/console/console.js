/* The console page: shows what murmelparl.js reports and sends what the user asks for. */
(function () {
  'use strict';

  /**
   * The request buttons, group by group. `text` is what is sent; a function is called for it.
   * An engine of another make needs nothing but another table.
   * @typedef {{ label: string, help: string, text: unknown[] | (() => unknown[]),
   *   danger?: boolean }} Request
   * @type {{ group: string, buttons: Request[] }[]}
   */
  const REQUESTS = [
    { group: 'To the plug-in', buttons: [
      { label: 'Upload log', help: 'Send the plug-in\'s log to the crash-report host',
        text: ['uploadbrowserpluginlog', {}, { jid: 'user@host' }] },
      { label: 'Kill', help: 'End every engine process, asking first (SIGTERM)',
        text: ['kill', false], danger: true },
      { label: 'Kill hard', help: 'End every engine process at once (SIGKILL)',
        text: ['kill', true], danger: true },
    ] },
    { group: 'To the engine', buttons: [
      { label: 'Echo', help: 'The engine sends the text back',
        text: () => ['echo', 'Grüße, мир, π ≈ 3,14', new Date().toISOString()] },
      { label: 'Slow', help: 'An answer after two seconds', text: ['slow', 2000, 'better late'] },
      { label: 'Many', help: '20 texts of 64 bytes', text: ['many', 20, 64] },
      { label: 'Large', help: 'One text of 200 000 bytes', text: ['large', 200000] },
      { label: 'HTTP', help: 'The engine fetches a page through the browser',
        text: () => ['ask-http', 'GET', location.origin + '/'] },
      { label: 'Proxy', help: 'The engine asks for the proxy of an address',
        text: ['ask-proxy', 'https://www.murmel.example/'] },
      { label: 'Permission', help: 'The engine asks the browser for a permission',
        text: ['ask-permission', 1] },
      { label: 'Remoting on', help: 'The engine starts a remoting session',
        text: ['remoting-begin', 'session-1'] },
      { label: 'Remoting off', help: 'The engine ends the session', text: ['remoting-stop', 'session-1'] },
    ] },
    { group: 'Trouble', buttons: [
      { label: 'Silent', help: 'The engine stops answering for three seconds',
        text: ['silent', 3000], danger: true },
      { label: 'Drop', help: 'The engine closes the link', text: ['drop'], danger: true },
      { label: 'Crash', help: 'The engine aborts', text: ['crash'], danger: true },
      { label: 'Quit', help: 'The engine ends', text: ['quit'], danger: true },
    ] },
  ];

  const EVENTS = ['Port file', 'Connect', 'Engine start', 'Connected', 'Closed',
    'Ready', 'Dead', 'Killed'];
  const READY = 5, DEAD = 6, KILLED = 7;
  const MAX_ENTRIES = 500;
  const MAX_SHOWN = 400; // characters of one text
  const TRIP_EVERY_MS = 1000;
  const MAX_TRIPS = 60;

  /** @type {(id: string) => any} */
  const $ = (id) => document.getElementById(id);
  const link = new MurmelParl.Link();

  /**
   * @param {string} tag
   * @param {string} [className]
   * @param {string} [text]
   * @returns {any}
   */
  function make(tag, className, text) {
    const element = document.createElement(tag);
    if (className) element.className = className;
    if (text !== undefined) element.textContent = text;
    return element;
  }

  /** @param {number} time */
  function clock(time) {
    const date = new Date(time);
    /** @type {(number: number, digits: number) => string} */
    const pad = (number, digits) => String(number).padStart(digits, '0');
    return pad(date.getHours(), 2) + ':' + pad(date.getMinutes(), 2) + ':' +
      pad(date.getSeconds(), 2) + '.' + pad(date.getMilliseconds(), 3);
  }

  // ---- The link at a glance ----

  let readySince = 0;
  const lamps = EVENTS.map((name) => {
    const lamp = { item: make('li'), mark: make('span', 'mark', '·'), times: make('span', 'times'),
      when: make('span', 'when'), count: 0 };
    lamp.item.append(lamp.mark, make('span', '', name), lamp.times, lamp.when);
    $('steps').append(lamp.item);
    return lamp;
  });

  /** @type {(index: number, time: number, error: number) => void} */
  function light(index, time, error) {
    const lamp = lamps[index];
    const bad = error !== 0 || index >= DEAD;
    lamp.count++;
    lamp.item.dataset.level = bad ? 'bad' : 'good';
    lamp.mark.textContent = bad ? '✕' : '✓';
    lamp.times.textContent = lamp.count > 1 ? '×' + lamp.count : '';
    lamp.when.textContent = clock(time) + (error ? ' (' + error + ')' : '');
    for (const other of lamps) other.item.classList.toggle('latest', other === lamp);
  }

  let failure = '';  // what the extension says of itself
  /** @type {Record<string, () => [string, string, string]>} */
  const NOTICES = {
    missing: () => ['bad', 'There is no plug-in for this page',
      failure || 'Nothing here handles the type application/x-murmelparl. In Chromium and Firefox ' +
      'install the extension, and mpbp-connector beside it. A browser that takes native modules is ' +
      'mpbp-browser, or one started with\n--register-pepper-plugins="/path/to/libmpbppapiplugin.so;' +
      'application/x-murmelparl"' + ('pdfViewerEnabled' in navigator ? '\nA newer browser looks ' +
      'the same when the plug-in is there, but does not serve ' + location.origin + '.' : '')],
    refused: () => ['bad', 'The plug-in does not serve this page',
      'It is installed, but ' + location.origin + ' is not on its list of addresses: it takes its ' +
      'standard hosts over https only, and hosts of the corporate domains when ' +
      'plugin_enable_corp_host=1 stands in its options file. (A module that cannot be loaded ' +
      'looks the same to a page.)'],
    stuck: () => ['busy', 'No engine comes up',
      'The plug-in has looked ' + link.attempts + ' times and goes on looking. Is the engine ' +
      'installed where install_dir in the plug-in\'s options file says? The plug-in starts it again ' +
      'when you connect again.'],
    hidden: () => ['bad', 'The plug-in\'s element is hidden',
      'A browser takes its plug-in away from an element that it does not show. The link comes back ' +
      'when the element does.'],
    wait: () => ['busy', 'The engine is gone', 'The plug-in starts it again by itself.'],
    dead: () => ['bad', 'The plug-in has given up on the engine',
      'The engine could not be started, or broke the link before it was ready.'],
    killed: () => ['bad', 'The engine was killed', 'That was asked for; the link stays down.'],
  };

  /** @type {(state: string, hint: string) => [string, string, string] | null} */
  function noticeFor(state, hint) {
    if (NOTICES[hint] && (hint === 'stuck' || state === 'dead')) return NOTICES[hint]();
    return NOTICES[state] ? NOTICES[state]() : null;
  }

  function showState() {
    const { state, hint } = link;
    $('badge').dataset.state = state;
    $('state').textContent = state;
    $('version').textContent = link.version || '–';
    $('transport').textContent = link.transport ? '(' + link.transport + ')' : '';
    document.title = state + ' – Parl console';
    const notice = noticeFor(state, hint);
    $('notice').hidden = !notice;
    $('reconnect').hidden = !['reconnect', 'stuck'].includes(hint) && state !== 'missing';
    if (!notice) return;
    $('notice').dataset.level = notice[0];
    $('notice-title').textContent = notice[1];
    $('notice-text').textContent = notice[2];
  }

  function showUptime() {
    const seconds = readySince ? Math.floor((Date.now() - readySince) / 1000) : -1;
    $('uptime').textContent = seconds < 0 ? '–'
      : Math.floor(seconds / 60) + ':' + String(seconds % 60).padStart(2, '0');
  }

  // ---- The log of texts ----

  /** @typedef {{ item: any, way: string, trip: boolean, text: string, line: string }} Entry */
  /** @type {Entry[]} */
  const entries = [];

  /** @param {Entry} entry */
  function isShown(entry) {
    if (entry.trip && !$('show-trip').checked) return false;
    /** @type {Record<string, string>} */
    const boxes = { out: 'show-out', in: 'show-in', own: 'show-own' };
    const box = boxes[entry.way];
    if (box && !$(box).checked) return false;
    const wanted = $('filter').value.toLowerCase();
    return !wanted || entry.text.toLowerCase().includes(wanted);
  }

  function showCount() {
    const shown = entries.filter((entry) => !entry.item.hidden).length;
    $('count').textContent = shown + ' of ' + entries.length;
    $('empty').hidden = shown > 0;
    $('empty').textContent = entries.length ? 'No text passes the filter.' : 'No texts yet.';
  }

  function applyFilter() {
    for (const entry of entries) entry.item.hidden = !isShown(entry);
    showCount();
  }

  /** @type {Record<string, [string, string]>} */
  const ARROWS = { out: ['→', 'sent'], in: ['←', 'received'], own: ['•', 'status'],
    failed: ['!', 'not sent'] };

  /** @type {(way: string, text: string, time: number, trip: boolean) => void} */
  function addEntry(way, text, time, trip) {
    const log = $('log');
    const atEnd = log.scrollHeight - log.scrollTop - log.clientHeight < 40;
    const [arrow, name] = ARROWS[way];
    const item = make('li', way);
    const arrowItem = make('span', 'way', arrow);
    arrowItem.title = name;
    arrowItem.setAttribute('aria-label', name);
    const what = make('span', 'what', text.slice(0, MAX_SHOWN));
    if (text.length > MAX_SHOWN) {
      what.append(make('span', 'more', ' … ' + text.length + ' characters in all'));
    }
    item.append(make('time', '', clock(time)), arrowItem, what);
    const entry = { item, way, trip, text, line: clock(time) + ' ' + arrow + ' ' + text };
    item.hidden = !isShown(entry);
    entries.push(entry);
    log.append(item);
    if (entries.length > MAX_ENTRIES) entries.splice(0, 1)[0].item.remove();
    if (atEnd && !item.hidden) log.scrollTop = log.scrollHeight;
    showCount();
  }

  /** @param {string} text */
  async function copyText(text) {
    try {
      await navigator.clipboard.writeText(text);
    } catch (error) {
      // No clipboard for this page: select and copy by hand.
      const area = make('textarea');
      area.value = text;
      document.body.append(area);
      area.select();
      const copied = document.execCommand('copy');
      area.remove();
      if (!copied) throw new Error('The browser does not let this page copy.');
    }
  }

  async function copyShown() {
    const lines = entries.filter((entry) => !entry.item.hidden).map((entry) => entry.line);
    let result = 'Copied ' + lines.length;
    try {
      await copyText(lines.join('\n') + '\n');
    } catch (error) {
      result = 'Not copied';
      showError(/** @type {Error} */ (error));
    }
    $('copy').textContent = result;
    setTimeout(() => { $('copy').textContent = 'Copy'; }, 1500);
  }

  // ---- Sending ----

  /** @type {string[]} */
  const history = [];
  let historyAt = 0;

  /** @param {Error | null} error */
  function showError(error) {
    $('error').textContent = error ? error.message : '';
  }

  /** @param {string} text */
  function send(text) {
    try {
      link.send(text);
      showError(null);
      return true;
    } catch (error) {
      addEntry('failed', text, Date.now(), false);
      showError(/** @type {Error} */ (error));
      return false;
    }
  }

  function showKind() {
    const text = $('box').value;
    const kind = MurmelParl.kindOf(text);
    $('kind').textContent = !text ? '' : kind ? '– request “' + kind + '”' : '– plain text';
  }

  /** @param {string} text */
  function setBox(text) {
    $('box').value = text;
    showKind();
  }

  function sendBox() {
    const text = $('box').value;
    if (!text || !send(text)) return;
    history.push(text);
    historyAt = history.length;
    setBox('');
  }

  /**
   * Up and Down walk through what was sent, as long as the box holds one line.
   * @param {KeyboardEvent} event
   */
  function walkHistory(event) {
    const step = event.key === 'ArrowUp' ? -1 : event.key === 'ArrowDown' ? 1 : 0;
    if (!step || $('box').value.includes('\n')) return;
    historyAt = Math.min(Math.max(historyAt + step, 0), history.length);
    setBox(history[historyAt] || '');
    event.preventDefault();
  }

  /** @param {KeyboardEvent} event */
  function onBoxKey(event) {
    if (event.key === 'Enter' && !event.shiftKey && !event.isComposing) {
      event.preventDefault();
      sendBox();
    } else {
      walkHistory(event);
    }
  }

  /** @param {Request} request */
  function onRequest(request) {
    const value = typeof request.text === 'function' ? request.text() : request.text;
    const text = JSON.stringify(value);
    if (!$('edit').checked) {
      send(text);
      return;
    }
    setBox(text);
    $('box').focus();
  }

  function makeRequests() {
    for (const { group, buttons } of REQUESTS) {
      const row = make('div', 'buttons');
      for (const request of buttons) {
        const button = make('button', request.danger ? 'danger' : '', request.label);
        button.type = 'button';
        button.title = request.help;
        button.addEventListener('click', () => onRequest(request));
        row.append(button);
      }
      $('requests').append(make('h3', '', group), row);
    }
  }

  // ---- Round trips ----

  /** @type {number[]} */
  const trips = [];
  let tripPending = false;
  let lost = 0;

  async function measure() {
    if (tripPending || link.state !== 'ready' || !$('measure').checked) return;
    tripPending = true;
    try {
      trips.push(await link.echo('round trip'));
      if (trips.length > MAX_TRIPS) trips.shift();
    } catch (error) {
      lost++;
    }
    tripPending = false;
    showTrips();
  }

  /**
   * The end of the scale: the next of 1, 2, 5, 10, 20 … above the highest value.
   * @param {number} value
   */
  function niceCeiling(value) {
    const power = Math.pow(10, Math.floor(Math.log10(Math.max(value, 1))));
    return [1, 2, 5, 10].map((factor) => factor * power).find((end) => end >= value) || 1;
  }

  /** @type {(top: number, y: (value: number) => number) => void} */
  function drawGrid(top, y) {
    $('plot-grid').replaceChildren(...[0, top / 2, top].flatMap((value) => {
      const line = document.createElementNS('http://www.w3.org/2000/svg', 'line');
      const text = document.createElementNS('http://www.w3.org/2000/svg', 'text');
      for (const [name, at] of Object.entries({ x1: 28, x2: 300, y1: y(value), y2: y(value) })) {
        line.setAttribute(name, String(at));
      }
      text.setAttribute('x', '24');
      text.setAttribute('y', String(y(value) + 3));
      text.textContent = String(value);
      return [line, text];
    }));
  }

  function drawPlot() {
    const top = trips.length ? niceCeiling(Math.max(...trips)) : 100;
    /** @type {(index: number) => number} */
    const x = (index) => 296 - (trips.length - 1 - index) * (264 / (MAX_TRIPS - 1));
    /** @type {(value: number) => number} */
    const y = (value) => 78 - value / top * 72;
    drawGrid(top, y);
    const points = trips.map((value, index) => x(index).toFixed(1) + ',' + y(value).toFixed(1));
    $('plot-line').setAttribute('points', points.join(' '));
    $('plot-last').toggleAttribute('hidden', !trips.length);
    if (!trips.length) return;
    $('plot-area').setAttribute('d', 'M' + x(0) + ',78 L' + points.join(' L') + ' L296,78 Z');
    $('plot-last').setAttribute('cx', 296);
    $('plot-last').setAttribute('cy', y(trips[trips.length - 1]));
  }

  function showTrips() {
    const sorted = [...trips].sort((a, b) => a - b);
    /** @type {(id: string, value: number) => void} */
    const show = (id, value) => {
      $(id).textContent = value === undefined ? '–' : value.toFixed(value < 10 ? 1 : 0);
    };
    show('trip-now', trips[trips.length - 1]);
    show('trip-median', sorted[Math.floor(sorted.length / 2)]);
    show('trip-min', sorted[0]);
    show('trip-max', sorted[sorted.length - 1]);
    $('trip-lost').textContent = lost;
    drawPlot();
  }

  // ---- Putting it together ----

  /** @param {string} text */
  function isTrip(text) {
    return text.startsWith('["echo",{"id":') && text.endsWith(',"round trip"]');
  }

  link.addEventListener('step', ({ detail }) => light(detail.step, detail.time, detail.error));
  link.addEventListener('sent', ({ detail }) =>
    addEntry('out', detail.text, detail.time, isTrip(detail.text)));
  link.addEventListener('text', ({ detail }) =>
    addEntry(detail.own ? 'own' : 'in', detail.text, detail.time, isTrip(detail.text)));
  link.addEventListener('error', ({ detail }) => { failure = detail.message; });
  link.addEventListener('state', ({ detail }) => {
    if (detail.state === 'ready') failure = '';
    /** @type {Record<string, number>} */
    const lampOf = { ready: READY, dead: DEAD, killed: KILLED };
    const lamp = lampOf[detail.state];
    if (lamp && detail.state !== detail.previous) light(lamp, detail.time, 0);
    readySince = detail.state !== 'ready' ? 0 : readySince || detail.time;
    showState();
    showUptime();
  });

  $('form').addEventListener('submit', (/** @type {Event} */ event) => {
    event.preventDefault();
    sendBox();
  });
  $('box').addEventListener('keydown', onBoxKey);
  $('box').addEventListener('input', showKind);
  $('filter').addEventListener('input', applyFilter);
  for (const id of ['show-out', 'show-in', 'show-own', 'show-trip']) {
    $(id).addEventListener('change', applyFilter);
  }
  $('copy').addEventListener('click', copyShown);
  $('clear').addEventListener('click', () => {
    for (const entry of entries.splice(0)) entry.item.remove();
    showCount();
  });
  $('reconnect').addEventListener('click', () => link.reconnect().catch(showError));
  document.addEventListener('keydown', (event) => {
    const typing = /** @type {Element} */ (event.target).matches('textarea, input[type="search"]');
    if (event.key === '/' && !typing) {
      event.preventDefault();
      $('filter').focus();
    } else if (event.key === 'Escape' && event.target === $('filter')) {
      $('filter').value = '';
      applyFilter();
    }
  });

  makeRequests();
  showTrips();
  showState();
  showCount();
  setInterval(measure, TRIP_EVERY_MS);
  setInterval(showUptime, 1000);
  link.open().catch((error) => console.warn(error.code + ': ' + error.message));
})();
