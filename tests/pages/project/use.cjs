const assert = require('node:assert/strict');
const { Link } = require('murmelparl');

assert.throws(() => new Link().send('text'), { code: 'closed' });
