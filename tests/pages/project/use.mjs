import assert from 'node:assert/strict';
import { Link, LinkError, STEPS, kindOf } from 'murmelparl';

assert.equal(kindOf('["echo",1]'), 'echo');
assert.equal(STEPS.length, 5);
await assert.rejects(new Link().ask('word'), (error) => error instanceof LinkError && error.code === 'closed');
