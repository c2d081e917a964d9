// What the test pages share. A page tells the driver things with report() and ends with finish().
'use strict';

window.addEventListener('error', (event) => console.log('uncaught: ' + event.message));
window.addEventListener('unhandledrejection', (event) => console.log('uncaught: ' + event.reason));

function report(name, value) {
  console.log('report ' + name + ' ' + JSON.stringify(value === undefined ? null : value));
}

function finish() {
  console.log('mpbp-browser:exit 0');
}

function thrown(action) {
  try {
    action();
    return 'nothing thrown';
  } catch (error) {
    return (error instanceof Error ? '' : 'not an Error: ') + error.message;
  }
}

const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

function addPlugin(tag = 'embed') {
  const plugin = document.createElement(tag);
  plugin.type = 'application/x-murmelparl';
  plugin.width = plugin.height = 1;
  document.body.appendChild(plugin);
  return plugin;
}

// Starts the link; `texts` holds all texts so far and next() is a promise of a text to come.
class Session {
  constructor(plugin = addPlugin()) {
    this.plugin = plugin;
    this.texts = [];
    this.waiting = [];
    plugin.onmessage = (text) => {
      // What is thrown in here nobody hears of: the caller is the plug-in.
      if (typeof text !== 'string') return console.log('uncaught: a text was ' + text);
      this.texts.push(text);
      this.waiting = this.waiting.filter(({ test, resolve }) => !test(text) || resolve(text));
    };
  }

  send(...message) { this.plugin.send(JSON.stringify(message)); }

  next(test) {
    return new Promise((resolve) => this.waiting.push({ test, resolve }));
  }

  kind(word) { return this.next((text) => text.startsWith('["' + word + '"')); }

  count(beginning) { return this.texts.filter((text) => text.startsWith(beginning)).length; }

  // Ready, and the engine has spoken.
  async alive() {
    await this.kind('qw');
    return this;
  }

  async echo(text) {
    const answer = this.next((other) => other === text || other.length === text.length);
    this.plugin.send(text);
    return answer;
  }
}
