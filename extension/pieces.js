// Texts of any size, in pieces that every browser passes on, with acknowledgements that hold up a
// sender whose receiver is slow. One TextSender and one TextReceiver stand at each end of a link.
'use strict';

// Bytes of JSON. A browser ends the link at 1 MiB; small ones let the texts of other links pass soon.
const PIECE_BYTES = 64 * 1024;
// Room in a piece for what is written around its text.
const ENVELOPE_BYTES = 100;
// A character of UTF-16 becomes at most an escape of six bytes.
const ESCAPE_BYTES = 6;
// Texts up to this length are one piece, whatever is in them.
const SMALL_TEXT = Math.floor((PIECE_BYTES - ENVELOPE_BYTES) / ESCAPE_BYTES);
// A sender sends no further piece while more than this is not acknowledged.
const WINDOW_BYTES = 1024 * 1024;
// A receiver acknowledges after so many pieces or characters, so that small texts cost next to none.
const ACK_PIECES = 32;
const ACK_LENGTH = 128 * 1024;
// What may wait to be sent, in characters of UTF-16.
const WAITING_LENGTH = 256 * 1024 * 1024;

/** @typedef {{type: 'text', piece: string, more?: boolean}} Piece */

/**
 * Where the piece of `text` that begins at `from` ends, and an upper bound of its size as JSON. Bytes
 * that both browsers and JSON leave as they are count as one. No surrogate pair is cut in two.
 * @param {string} text
 * @param {number} from
 */
function measurePiece(text, from) {
  let size = ENVELOPE_BYTES;
  let end = from;
  for (; end < text.length; end++) {
    const code = text.charCodeAt(end);
    let bytes = 1;
    if (code === 0x22 || code === 0x5c) bytes = 2;
    else if (code < 0x20 || code > 0x7e || code === 0x3c || code === 0x3e) bytes = ESCAPE_BYTES;
    if (size + bytes > PIECE_BYTES) break;
    size += bytes;
  }
  if (end < text.length && (text.charCodeAt(end) & 0xfc00) === 0xdc00 &&
      (text.charCodeAt(end - 1) & 0xfc00) === 0xd800) end--;
  return { end, size };
}

class TextSender {
  /** @param {(piece: Piece) => void} post must not call back into this object */
  constructor(post) {
    this._post = post;
    /** @type {string[]} */
    this._waiting = [];
    this._waitingLength = 0;
    this._sent = 0;  // characters of the first waiting text that went out
    /**
     * Sizes of the pieces that are not acknowledged, oldest first.
     * @type {number[]}
     */
    this._sizes = [];
    this._underWay = 0;  // their sum
    this._open = false;
  }

  /**
   * Sends or keeps the text; false, and nothing is kept, when too much is waiting.
   * @param {string} text
   */
  send(text) {
    if (this._open && this._waiting.length === 0 && text.length <= SMALL_TEXT &&
        this._underWay <= WINDOW_BYTES) {
      this._put({ type: 'text', piece: text }, text.length * ESCAPE_BYTES + ENVELOPE_BYTES);
      return true;
    }
    if (this._waitingLength + text.length > WAITING_LENGTH) return false;
    this._waiting.push(text);
    this._waitingLength += text.length;
    this._pump();
    return true;
  }

  /**
   * The other end has taken the oldest pieces.
   * @param {number} pieces
   */
  acknowledged(pieces) {
    for (const size of this._sizes.splice(0, pieces)) this._underWay -= size;
    this._pump();
  }

  /** There is a new other end, which knows nothing: a text that was partly sent is sent again whole. */
  open() {
    this.close();
    this._open = true;
    this._pump();
  }

  /** Keeps what waits until there is another end. */
  close() {
    this._open = false;
    this._sent = 0;
    this._sizes = [];
    this._underWay = 0;
  }

  /** Forgets what waits. */
  clear() {
    this._waiting = [];
    this._waitingLength = 0;
    this._sent = 0;
  }

  _pump() {
    let done = 0;  // texts; they are taken off at once, as their number can be large
    while (this._open && done < this._waiting.length && this._underWay <= WINDOW_BYTES) {
      const text = this._waiting[done];
      const { end, size } = measurePiece(text, this._sent);
      this._put({ type: 'text', piece: text.slice(this._sent, end), more: end < text.length }, size);
      this._sent = end;
      if (end < text.length) continue;
      this._sent = 0;
      this._waitingLength -= text.length;
      done++;
    }
    if (done > 0) this._waiting.splice(0, done);
  }

  /**
   * @param {Piece} piece
   * @param {number} size
   */
  _put(piece, size) {
    this._sizes.push(size);
    this._underWay += size;
    this._post(piece);
  }
}

class TextReceiver {
  /**
   * @param {(text: string) => void} deliver may call anything, reset too
   * @param {(pieces: number) => void} acknowledge
   */
  constructor(deliver, acknowledge) {
    this._deliver = deliver;
    this._acknowledge = acknowledge;
    /** @type {string[]} */
    this._parts = [];
    this._pieces = 0;
    this._length = 0;
  }

  /** The other end is a new one. */
  reset() {
    this._parts = [];
    this._pieces = 0;
    this._length = 0;
  }

  /**
   * @param {string} piece
   * @param {boolean} more
   */
  take(piece, more) {
    this._pieces++;
    this._length += piece.length;
    if (more) {
      this._parts.push(piece);
    } else if (this._parts.length === 0) {
      this._deliver(piece);
    } else {
      this._parts.push(piece);
      const text = this._parts.join('');
      this._parts = [];
      this._deliver(text);
    }
    if (this._pieces < ACK_PIECES && this._length < ACK_LENGTH) return;
    const pieces = this._pieces;
    this._pieces = 0;
    this._length = 0;
    this._acknowledge(pieces);
  }
}
