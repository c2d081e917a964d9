// In place of page.js's report() and finish(): reports go to the server, in order, and a page that has
// finished goes on to where the server says.
'use strict';
let reported = Promise.resolve();

report = function (name, value) {
  const body = JSON.stringify([name, value === undefined ? null : value]);
  reported = reported.then(() => fetch('/report', { method: 'POST', body }));
};

finish = async function () {
  await reported;
  const next = await fetch('/next');
  location.href = await next.text();
};

window.addEventListener('error', (event) => report('uncaught', event.message));
window.addEventListener('unhandledrejection', (event) => report('uncaught', String(event.reason)));
