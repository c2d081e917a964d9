import { Link, type LinkState, type ParlElement } from 'murmelparl';

const link = new Link({ autoReconnect: true });
link.addEventListener('state', ({ detail }) => show(detail.state));
function show(state: LinkState): void {
  document.title = state;
}
export const sum = async (): Promise<number> => {
  await link.open({ timeoutMs: 5000 });
  const [, value] = await link.ask<[string, number]>('sum', [1, 2]);
  return value;
};

export const bare = document.querySelector('embed') as Element as ParlElement;
bare.onmessage = (text) => { bare.send(text); };
bare.onerror = ({ code }) => { document.title = code; };
