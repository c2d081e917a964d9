// The ways of a text from a page and back, and the times they take, for the pages that measure.
'use strict';
const TEXT = '["echo","' + 'x'.repeat(55) + '"]';  // 64 bytes

const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

function percentile(values, part) {
  const sorted = [...values].sort((a, b) => a - b);
  return sorted[Math.min(sorted.length - 1, Math.floor(sorted.length * part))];
}

/* A way is { send(text), heard(function) }; one text is under way at a time. */
function trip(way, text) {
  const started = performance.now();
  return new Promise((resolve) => {
    way.heard = (answer) => {
      if (answer.length === text.length) resolve(performance.now() - started);
    };
    way.send(text);
  });
}

/* The time from setting onmessage to f-ready, and the way. */
function link(element) {
  const way = { send: (text) => element.send(text), heard: () => {} };
  const started = performance.now();
  return new Promise((resolve) => {
    element.onerror = (error) => resolve({ error: error.code + ': ' + error.message });
    element.onmessage = (text) => {
      if (text === '["f-ready"]') resolve({ way, ms: performance.now() - started });
      else way.heard(text);
    };
  });
}

async function webSocket(port) {
  const socket = new WebSocket('ws://127.0.0.1:' + port, 'echo');
  const way = { send: (text) => socket.send(text), heard: () => {} };
  socket.onmessage = (event) => way.heard(event.data);
  await new Promise((resolve, reject) => {
    socket.onopen = resolve;
    socket.onerror = () => reject(new Error('no WebSocket'));
  });
  return way;
}
