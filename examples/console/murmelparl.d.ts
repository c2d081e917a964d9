// Types of murmelparl.js, which describes what they mean. Imported from the package or from
// murmelparl.mjs; for a classic script the global is MurmelParl.

export as namespace MurmelParl;

export type LinkState = 'idle' | 'connecting' | 'ready' | 'dead' | 'killed' | 'closed' | 'hidden' |
  'missing' | 'refused';
export type LinkHint = 'none' | 'wait' | 'stuck' | 'show' | 'reconnect';
export type LinkErrorCode = 'closed' | 'dead' | 'killed' | 'hidden' | 'missing' | 'refused' |
  'timeout' | 'invalid' | 'plugin';
export type StepName = 'port file' | 'connect' | 'engine start' | 'connected' | 'closed';

/** The bare element, for pages that do without a Link. With no plug-in in it, it has none of this. */
export type ParlElement = Omit<HTMLEmbedElement, 'onerror'> & {
  readonly version?: string;
  onmessage?: ((text: string) => void) | null;
  onerror?: ((error: Error & { code: string }) => void) | null;
  send(text: string): number;
};

export class LinkError extends Error {
  constructor(code: LinkErrorCode, message: string);
  readonly code: LinkErrorCode;
}

export interface AutoReconnect {
  /** How often, until a link was ready for 30 s; 10 */
  attempts?: number;
  /** The first wait, doubled for each attempt; 1000 */
  firstDelayMs?: number;
  /** The longest wait; 60000 */
  maxDelayMs?: number;
}

export interface LinkOptions {
  type?: string;
  element?: 'embed' | 'object';
  parent?: Node | null;
  autoReconnect?: boolean | AutoReconnect;
}

export interface OpenOptions {
  /** Infinity when not given */
  timeoutMs?: number;
}

export interface AskOptions {
  /** Whether an array is the answer; by default one is that begins with the same word */
  match?: ((answer: any[]) => boolean) | null;
  /** 10000 when not given; Infinity for no limit */
  timeoutMs?: number;
  signal?: AbortSignal | null;
}

/** Each has the time, in ms since 1970. */
export interface LinkEventDetails {
  state: { state: LinkState, previous: LinkState, hint: LinkHint, attempts: number, time: number };
  step: { step: number, name: StepName, error: number, time: number };
  text: { text: string, kind: string, own: boolean, time: number };
  sent: { text: string, kind: string, time: number };
  error: { code: string, message: string, time: number };
  reconnect: {
    phase: 'waiting' | 'started' | 'ended', attempt: number, delayMs: number, time: number };
}

/** An EventTarget, of these events alone. */
export class Link {
  constructor(options?: LinkOptions);

  readonly state: LinkState;
  readonly hint: LinkHint;
  readonly attempts: number;
  readonly ready: Promise<Link>;
  readonly transport: 'module' | 'extension' | null;
  readonly version: string;

  open(options?: OpenOptions): Promise<Link>;
  close(): void;
  reconnect(options?: OpenOptions): Promise<Link>;
  /** Throws a LinkError. */
  send(text: string): void;
  /** Throws a LinkError. */
  request(word: string, ...rest: unknown[]): void;
  ask<Answer extends any[] = any[]>(word: string, args?: unknown[], options?: AskOptions):
    Promise<Answer>;
  echo(payload: unknown, timeoutMs?: number): Promise<number>;

  addEventListener<Type extends keyof LinkEventDetails>(type: Type,
    listener: (this: Link, event: CustomEvent<LinkEventDetails[Type]>) => void,
    options?: boolean | AddEventListenerOptions): void;
  removeEventListener<Type extends keyof LinkEventDetails>(type: Type,
    listener: (this: Link, event: CustomEvent<LinkEventDetails[Type]>) => void,
    options?: boolean | EventListenerOptions): void;
  dispatchEvent(event: Event): boolean;
}

export const STEPS: readonly StepName[];
export function kindOf(text: string): string;
