// In place of page.js's report() and finish(): reports go to the server, in order, and the page goes on
// to where the server says, whether its scene has finished or hangs.
'use strict';
let reported = Promise.resolve();

report = function (name, value) {
  const body = JSON.stringify([name, value === undefined ? null : value]);
  reported = reported.then(() => fetch('/report', { method: 'POST', body, keepalive: body.length < 60000 }));
};

finish = () => {};

// Frames and windows of a scene go with it.
let leaving;
function poll() {
  if (window.top !== window || window.opener) return;
  leaving = new AbortController();
  fetch('/next', { signal: leaving.signal }).then((next) => next.text()).then((address) => {
    if (address) location.href = address;
  }).catch(() => {});
}
poll();
window.addEventListener('pageshow', (event) => { if (event.persisted) poll(); });

window.addEventListener('error', (event) => report('uncaught', event.message));
window.addEventListener('unhandledrejection', (event) => report('uncaught', String(event.reason)));
