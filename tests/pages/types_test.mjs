// murmelparl.d.ts: the example page agrees with it, and tsc finds every mistake of types/bad.ts.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import test from 'node:test';
import { fileURLToPath } from 'node:url';
import { Page } from './fake_page.mjs';

const path = (name) => fileURLToPath(new URL(name, import.meta.url));
const CONSOLE = '../../examples/console/';

function check(...files) {
  const words = ['--strict', '--noEmit', '--allowJs', '--checkJs', '--target', 'es2020',
    '--lib', 'es2020,dom,dom.iterable', ...files.map(path)];
  return spawnSync(process.env.MPBP_TSC ?? 'tsc', words, { encoding: 'utf8' }).stdout;
}

test('the example page agrees with the types', () => {
  assert.equal(check(CONSOLE + 'console.js', CONSOLE + 'murmelparl.d.ts'), '');
});

test('each mistake is found, and nothing else is one', () => {
  const told = [...check('types/bad.ts').matchAll(/^\S*bad\.ts\((\d+),/gm)].map(([, line]) => Number(line));
  const marked = fs.readFileSync(path('types/bad.ts'), 'utf8').split('\n')
    .flatMap((line, index) => (line.endsWith('// wrong') ? [index + 1] : []));
  assert.deepEqual([...new Set(told)], marked);
});

test('what the types declare is there', () => {
  const types = fs.readFileSync(path(CONSOLE + 'murmelparl.d.ts'), 'utf8');
  const { Link } = new Page().MurmelParl;
  const body = types.split('export class Link {')[1].split('\n}')[0];
  const declared = new Set([...body.matchAll(/^ {2}(?:readonly )?(\w+)[<(:]/gm)].map(([, name]) => name));
  const own = Object.getOwnPropertyNames(Link.prototype).filter((name) => !name.startsWith('_'));
  const inherited = ['addEventListener', 'removeEventListener', 'dispatchEvent'];
  assert.deepEqual([...declared].sort(), [...own, ...inherited].sort());
});
