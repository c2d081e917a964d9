// Plays the user of the console page.
'use strict';
(async function () {
  const until = async (test) => {
    while (!test()) await new Promise((resolve) => setTimeout(resolve, 50));
  };
  const shown = () => [...document.querySelectorAll('#log li:not([hidden]) .what')]
    .map((item) => item.textContent);
  const report = (name, value) => console.log('report ' + name + ' ' + JSON.stringify(value));

  if (location.search === '?refused') {
    const notice = document.getElementById('notice');
    report('notice', [document.getElementById('badge').dataset.state, notice.hidden,
      notice.textContent.includes(location.origin), 'pdfViewerEnabled' in navigator]);
    return console.log('mpbp-browser:exit 0');
  }
  const again = document.getElementById('reconnect');
  const isReady = () => document.getElementById('state').textContent === 'ready';
  if (location.search === '?stuck') {
    await until(() => !again.hidden);
    report('stuck', document.getElementById('notice-title').textContent);
    while (!isReady()) {
      again.click();
      const clicked = Date.now();
      await until(() => isReady() || Date.now() - clicked > 5000);
    }
    report('ready', again.hidden);
    return console.log('mpbp-browser:exit 0');
  }
  await until(isReady);
  await until(() => document.getElementById('trip-now').textContent !== '–');
  report('lamps', [...document.querySelectorAll('#steps li[data-level="good"]')].length);

  const box = document.getElementById('box');
  box.value = 'typed <b>text</b>';
  box.dispatchEvent(new KeyboardEvent('keydown', { key: 'Enter', bubbles: true, cancelable: true }));
  await until(() => shown().filter((text) => text === 'typed <b>text</b>').length === 2);
  const filter = document.getElementById('filter');
  filter.value = 'TYPED';
  filter.dispatchEvent(new Event('input'));
  report('filtered', shown());

  const button = (label) => [...document.querySelectorAll('#requests button')]
    .find((item) => item.textContent === label);
  button('Kill hard').click();
  await until(() => document.getElementById('state').textContent === 'killed');
  report('killed', [document.getElementById('notice').hidden, again.hidden]);
  again.click();
  await until(isReady);
  console.log('mpbp-browser:exit 0');
})();
