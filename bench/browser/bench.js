// What the page of scripts/bench --browser does: bench.html?WS-PORT,ROUNDS measures the link and a
// WebSocket in turn, bench.html?elements,COUNT makes so many elements and leaves them alone.
'use strict';
const TRIPS = { link: 100, socket: 200 };  // a round
const CALM_TRIPS = 10;
const CALM_MS = 100;  // on average: in step with the pump, all answers would take as long
const SENDS = 1000;
const LARGE = [1e6, 10e6];

function report(name, value) {
  console.log('report ' + name + ' ' + JSON.stringify(value));
}

function newElement() {
  const element = document.createElement('embed');
  element.type = 'application/x-murmelparl';
  element.width = element.height = 1;
  document.body.append(element);
  return element;
}

async function readyLink() {
  const { way, ms, error } = await link(newElement());
  if (error) throw new Error(error);
  return { way, ms };
}

function text(size) {
  return '["echo","' + 'x'.repeat(size - 11) + '"]';
}

/* Sends many texts in one go: the µs that one send takes, and the ms until the last one is back. */
function burst(way) {
  const started = performance.now();
  return new Promise((resolve) => {
    let missing = SENDS;
    let sent = 0;
    way.heard = () => {
      if (--missing === 0) resolve({ send: sent * 1000 / SENDS, back: performance.now() - started });
    };
    for (let i = 0; i < SENDS; ++i) way.send(TEXT);
    sent = performance.now() - started;
  });
}

async function measureWays(port, rounds) {
  const ways = { link: (await readyLink()).way, socket: await webSocket(port) };
  const runs = { link: [], socket: [] };
  for (const name in ways) await trip(ways[name], TEXT);
  for (let round = 0; round < rounds; ++round) {
    for (const name in ways) {
      const [trips, calm] = [[], []];
      for (let i = 0; i < TRIPS[name]; ++i) trips.push(await trip(ways[name], TEXT));
      for (let i = 0; i < CALM_TRIPS; ++i) {
        await pause(CALM_MS * (0.5 + Math.random()));
        calm.push(await trip(ways[name], TEXT));
      }
      const { send, back } = await burst(ways[name]);
      const large = [];
      for (const size of LARGE) large.push(await trip(ways[name], text(size)));
      runs[name].push({ p50: percentile(trips, 0.5), p99: percentile(trips, 0.99),
        calm50: percentile(calm, 0.5), calm99: percentile(calm, 0.99), send, back,
        '1 MB': large[0], '10 MB': large[1] });
    }
  }
  report('ways', runs);
}

async function measureElements(count) {
  const started = performance.now();
  const links = await Promise.all(Array.from({ length: count }, readyLink));
  const ready = performance.now() - started;
  const trips = [];
  for (let i = 0; count > 0 && i < 20; ++i) trips.push(await trip(links[i % count].way, TEXT));
  report('elements', { ready, p50: percentile(trips, 0.5) });
}

const [first, second] = location.search.slice(1).split(',');
const measured = first === 'elements' ? measureElements(+second) : measureWays(first, +second);
measured.catch((error) => report('failed', String(error)));
