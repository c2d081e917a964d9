// docs/page-life.svg is drawn from page-life.dot, and has the states that murmelparl.d.ts declares.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

const read = (name) => fs.readFileSync(new URL('../../' + name, import.meta.url), 'utf8');

test('the picture has the states, arrows and words of its source', () => {
  const source = read('docs/page-life.dot').replace(/^\s*\/\/.*$/gm, '');
  const picture = read('docs/page-life.svg').replace(/&#45;/g, '-').replace(/&gt;/g, '>');
  const all = (text, pattern) => [...text.matchAll(pattern)].map(([, found]) => found).sort();
  const titles = all(picture, /<title>([^<]*)<\/title>/g);
  const arrows = all(source, /^\s*(\w+ -> \w+)/gm).map((arrow) => arrow.replaceAll(' ', ''));
  assert.deepEqual(titles.filter((title) => title.includes('->')), arrows.sort());
  const types = read('examples/console/murmelparl.d.ts');
  const declared = all(types.match(/type LinkState =[^;]*/)[0], /'(\w+)'/g);
  assert.deepEqual(titles.filter((title) => /^\w+$/.test(title)), declared);
  const split = (texts) => texts.join(' ').split(/\s+|\\n|&#160;/).filter(Boolean);
  const words = split(all(source, /label="([^"]*)"/g));
  const drawn = split(all(picture, /<text[^>]*>([^<]*)<\/text>/g));
  assert.deepEqual(drawn.sort(), [...words, ...declared].sort());
});
