// Each line that is marked is wrong, and tsc must say so of these and of no other.
import { Link, LinkError } from '../../../examples/console/murmelparl';

const link = new Link({ autoReconnect: { attempts: 3 } });
new Link({ element: 'video' }); // wrong
new Link({ autoReconect: true }); // wrong
link.send({ word: 'hello' }); // wrong
link.send('hello', 5); // wrong
link.request(); // wrong
if (link.state === 'connected') link.close(); // wrong
if (link.state === 'connecting' && link.hint === 'stuck') link.reconnect({ timeoutMs: 5000 });
link.open(5000); // wrong
link.ask('word', 'argument'); // wrong
link.ask('word', [], { match: 'word' }); // wrong
link.ask<['sum', number]>('sum', [1, 2], { signal: new AbortController().signal }).then(([, sum]) => sum.toFixed());
link.ask<['sum', number]>('sum', [1, 2]).then((answer) => answer[1].length); // wrong
link.addEventListener('state', ({ detail }) => detail.hint.length + detail.attempts);
link.addEventListener('state', ({ detail }) => detail.text); // wrong
link.addEventListener('message', () => {}); // wrong
link.echo('payload').then((ms: string) => ms); // wrong
new LinkError('gone', 'no such code'); // wrong
link.state = 'ready'; // wrong
link._element; // wrong
