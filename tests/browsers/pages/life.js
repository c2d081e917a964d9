// Scenes of long and crowded lives: life.html?SCENE&ARGUMENT.
'use strict';
const scenes = {
  // Opens so many windows at once, each with a link of its own.
  async tabs(count) {
    const told = new Set();
    const all = new Promise((resolve) => window.addEventListener('message', (event) => {
      if (told.add(event.data).size === Number(count)) resolve();
    }));
    const windows = [];
    for (let i = 0; i < count; i++) windows.push(window.open('life.html?tab&' + i));
    await all;
    report('ready', windows.length);
    for (const each of windows) each.close();
    finish();
  },

  async tab(name) {
    const session = await new Session().alive();
    await session.echo('echo of ' + name);
    window.opener.postMessage(name);
  },

  async reloads(count) {
    const visit = Number(sessionStorage.visit || 0);
    sessionStorage.visit = visit + 1;
    const session = new Session();
    await session.kind('f-ready');
    if (visit < count) return location.reload();
    sessionStorage.clear();
    report('echo', await session.echo('after the last'));
    finish();
  },

  // The driver watches what is left of it.
  async stays() {
    await new Session().alive();
    report('alive', true);
  },
};

const [scene, argument] = location.search.slice(1).split('&');
scenes[scene](argument);
