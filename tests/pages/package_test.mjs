// The package that npm makes of the library, in a project of its own (project/).
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import test from 'node:test';
import { fileURLToPath } from 'node:url';

const here = fileURLToPath(new URL('.', import.meta.url));

test('a project installs the package and uses it in each form', (t) => {
  const home = fs.mkdtempSync(path.join(os.tmpdir(), 'murmelparl-'));
  t.after(() => fs.rmSync(home, { recursive: true }));
  const project = path.join(home, 'project');
  const env = { PATH: process.env.PATH, HOME: home, npm_config_cache: path.join(home, 'cache'),
    npm_config_offline: 'true', npm_config_audit: 'false', npm_config_fund: 'false',
    npm_config_update_notifier: 'false' };
  const run = (program, ...words) =>
    execFileSync(program, words, { cwd: project, encoding: 'utf8', env });
  fs.cpSync(path.join(here, 'project'), project, { recursive: true });

  const archive = run('npm', 'pack', '--silent', '--pack-destination', home,
    path.join(here, '../../examples/console')).trim();
  run('npm', 'install', '--silent', path.join(home, archive));
  assert.deepEqual(fs.readdirSync(path.join(project, 'node_modules/murmelparl')).sort(),
    ['murmelparl.d.ts', 'murmelparl.js', 'murmelparl.mjs', 'package.json']);
  run('node', 'use.mjs');
  run('node', 'use.cjs');
  for (const [module, resolution] of [['es2020', 'node'], ['node16', 'node16']]) {
    run(process.env.MPBP_TSC ?? 'tsc', '--strict', '--noEmit', '--target', 'es2020',
      '--lib', 'es2020,dom', '--module', module, '--moduleResolution', resolution, 'use.ts');
  }
});
