// Round trips of one page, each way beside the others, and reported to the server: bench.html?WS-PORT
'use strict';
const ROUNDS = 5;
const TRIPS = 200;
const CALM_TRIPS = 20;
const CALM_MS = 100;

function bareEcho() {
  const way = { heard: () => {} };
  way.send = (text) => window.dispatchEvent(new CustomEvent('bare-echo>', { detail: text }));
  window.addEventListener('bare-echo<', (event) => way.heard(event.detail));
  return way;
}

async function run() {
  const result = {};
  const first = await link(document.getElementById('first'));
  if (first.error) return first;
  result.firstReady = first.ms;
  const ready = [];
  for (let i = 0; i < 10; ++i) {
    const element = document.createElement('embed');
    element.type = 'application/x-murmelparl';
    document.body.append(element);
    ready.push((await link(element)).ms);
    element.remove();
  }
  result.ready = percentile(ready, 0.5);

  const ways = { link: first.way, bare: bareEcho(), socket: await webSocket(location.search.slice(1)) };
  const times = {};
  const calm = {};
  for (const name in ways) {
    await trip(ways[name], TEXT);
    times[name] = [];
    calm[name] = [];
  }
  for (let round = 0; round < ROUNDS; ++round) {
    for (const name in ways) {
      for (let i = 0; i < TRIPS; ++i) times[name].push(await trip(ways[name], TEXT));
    }
    for (const name in ways) {
      for (let i = 0; i < CALM_TRIPS; ++i) {
        await pause(CALM_MS);
        calm[name].push(await trip(ways[name], TEXT));
      }
    }
  }
  for (const name in ways) {
    result[name] = { p50: percentile(times[name], 0.5), p99: percentile(times[name], 0.99),
      calm50: percentile(calm[name], 0.5), calm99: percentile(calm[name], 0.99) };
  }
  await tell('small', result);
  await pause(6000);  // the connector is looked at meanwhile
  const large = '["echo","' + 'x'.repeat(10e6) + '"]';
  const largeTimes = [];
  for (let i = 0; i < 3; ++i) largeTimes.push(await trip(ways.link, large));
  result.large = percentile(largeTimes, 0.5);
  result.isolated = self.crossOriginIsolated;
  return result;
}

function tell(name, value) {
  return fetch('/report', { method: 'POST', body: JSON.stringify([name, value]) });
}

run().catch((error) => ({ error: String(error) })).then(async (result) => {
  if (result.error) await tell('small', result);
  await tell('result', result);
});
