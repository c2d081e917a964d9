// One port of a page, one program.
'use strict';
chrome.runtime.onConnect.addListener((page) => {
  const program = chrome.runtime.connectNative('example.murmel.bareecho');
  page.onMessage.addListener((message) => program.postMessage(message));
  program.onMessage.addListener((message) => page.postMessage(message));
  page.onDisconnect.addListener(() => program.disconnect());
});
