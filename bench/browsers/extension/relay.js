// One event each way.
'use strict';
let port = null;
window.addEventListener('bare-echo>', (event) => {
  if (!port) {
    port = chrome.runtime.connect();
    port.onMessage.addListener((message) => {
      window.dispatchEvent(new CustomEvent('bare-echo<', { detail: message.text }));
    });
  }
  port.postMessage({ text: event.detail });
});
