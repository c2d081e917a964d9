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
  await until(() => document.getElementById('state').textContent === 'ready');
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
  const again = document.getElementById('reconnect');
  report('killed', [document.getElementById('notice').hidden, again.hidden]);
  again.click();
  await until(() => document.getElementById('state').textContent === 'ready');
  console.log('mpbp-browser:exit 0');
})();
