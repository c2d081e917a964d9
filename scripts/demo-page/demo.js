// The page of scripts/browsers-demo: what passes between it and the element goes to the server.
'use strict';
let told = Promise.resolve();
const tell = (...words) => {
  told = told.then(() => fetch('/report', { method: 'POST', body: JSON.stringify(words) }));
};
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

async function readme() {
  const frame = document.createElement('iframe');
  frame.src = 'readme.html';
  document.body.append(frame);
  let shown = 0;
  for (let done = false; !done; await pause(10)) {
    const lines = (frame.contentDocument.getElementById('log')?.textContent ?? '').split('\n');
    for (; shown < lines.length - 1; ++shown) {
      tell('shows', lines[shown]);
      done = lines[shown].startsWith('["echo"');
    }
  }
  frame.remove();
}

const element = document.createElement('embed');
element.type = 'application/x-murmelparl';
const awaited = new Map();  // text -> resolve

function heard(start) {
  return new Promise((resolve) => awaited.set(start, resolve));
}

function send(text, answer) {
  tell('sent', text);
  const promise = heard(answer ?? text);
  element.send(text);
  return promise;
}

async function session() {
  tell('act', 'The page sets onmessage');
  document.body.append(element);
  element.onerror = (error) => tell('failed', `${error.code}: ${error.message}`);
  const ready = heard('["qw"');
  element.onmessage = (text) => {
    tell('got', text);
    for (const [start, resolve] of awaited) {
      if (!text.startsWith(start)) continue;
      awaited.delete(start);
      resolve();
    }
  };
  await ready;
  tell('act', 'Texts go both ways');
  await send('["echo","grüß dich, 🎧"]');
  tell('act', 'The engine crashes; a new one is started');
  await send('["crash"]', '["qw"');
  const back = heard('["f-ready"]');
  tell('kill-connector', 'The connector is killed with SIGKILL; the link comes back');
  await back;
  tell('act', 'The engine asks for a permission, which this browser cannot give');
  await send('["ask-permission",0]', '["permission-result"');
  tell('act', 'The page kills the engine');
  await send('["kill",true]', '["f-killed"]');
  element.remove();
}

addEventListener('load', async () => {
  await readme();
  await session();
  tell('done', '');
  await told;
  location.href = await (await fetch('/next')).text();
});
