import type { Integers } from './columns.js';
import { declined, type Names } from './names.js';

const QUOTE = 0x22,
  COMMA = 0x2c,
  MINUS = 0x2d,
  DOT = 0x2e,
  COLON = 0x3a,
  OPEN_LIST = 0x5b,
  BACKSLASH = 0x5c,
  CLOSE_LIST = 0x5d,
  OPEN = 0x7b,
  CLOSE = 0x7d;

/** 1 for bytes that end the quick walk through a text: its quote, a backslash, control characters. */
const STOPS = new Uint8Array(256);
STOPS.fill(1, 0, 0x20);
STOPS[QUOTE] = STOPS[BACKSLASH] = 1;

const encoder = new TextEncoder();
const decoder = new TextDecoder();

/** The keys that an object is known for. */
export class Keys {
  readonly texts: string[];
  readonly names: Uint8Array[];
  // As they are written, with quotes and colon: four bytes at a time, and the rest.
  readonly words: Int32Array[] = [];
  readonly rests: Uint8Array[] = [];

  constructor(...names: string[]) {
    this.texts = names;
    this.names = names.map((name) => encoder.encode(name));
    for (const name of names) {
      const written = encoder.encode(`"${name}":`);
      const view = new DataView(written.buffer);
      const words = new Int32Array(written.length >> 2);
      for (let i = 0; i < words.length; ++i) words[i] = view.getInt32(4 * i, true);
      this.words.push(words);
      this.rests.push(written.subarray(4 * words.length));
    }
  }
}

/** What a list of numbers consists of. */
export interface ListFacts {
  at: number;
  length: number;
  /** Written as "0". */
  zeros: number;
  /** Written as "1". */
  ones: number;
  /** Zeros of other forms, such as "-0". */
  oddZeros: number;
}

/** What Keys.key answers for a key that is not known, and for the end of the object. */
export const UNKNOWN = -1,
  END = -2;

/**
 * Walks through a JSON text byte by byte, and makes nothing of it: no strings, no objects. Texts that name things are
 * numbered: equal ones have the same number, their symbol.
 */
export class Scanner {
  at = 0;
  /** All bytes of texts so far, or-ed. */
  private high = 0;

  private readonly view: DataView;
  readonly list: ListFacts = { at: 0, length: 0, zeros: 0, ones: 0, oddZeros: 0 };

  constructor(
    readonly text: Uint8Array,
    private readonly maxDepth: number,
    private readonly maxLength: number,
  ) {
    this.view = new DataView(text.buffer, text.byteOffset, text.byteLength);
  }

  get isAscii(): boolean {
    return this.high < 0x80;
  }

  /** The next byte that is not white space. */
  private next(): number {
    const { text } = this;
    let c = text[this.at]!;
    while (c <= 0x20) {
      if (c !== 0x20 && c !== 0x0a && c !== 0x0d && c !== 0x09) declined();
      c = text[++this.at]!;
    }
    return c;
  }

  private expect(c: number): void {
    if (this.next() !== c) declined();
    ++this.at;
  }

  open(): void {
    this.expect(OPEN);
  }

  /** True when an object begins here. */
  get atObject(): boolean {
    return this.next() === OPEN;
  }

  get atText(): boolean {
    return this.next() === QUOTE;
  }

  get atList(): boolean {
    return this.next() === OPEN_LIST;
  }

  get atNumber(): boolean {
    const c = this.next();
    return c === MINUS || (c >= 0x30 && c <= 0x39);
  }

  /** Nothing but white space is left. */
  finish(): void {
    const { text } = this;
    while (this.at < text.length) {
      const c = text[this.at]!;
      if (c !== 0x20 && c !== 0x0a && c !== 0x0d && c !== 0x09) declined();
      ++this.at;
    }
  }

  /**
   * To the next entry of an object, whose brace is behind: true at its key, false behind the closing brace. `nth`
   * tells how many entries have been read.
   */
  entry(nth: number): boolean {
    const c = this.next();
    if (c === CLOSE) {
      ++this.at;
      return false;
    }
    if (nth > 0) {
      if (c !== COMMA) declined();
      ++this.at;
    }
    return true;
  }

  /**
   * The next key of an object, and then its value's place: its place in `keys`, UNKNOWN or END. `expected` is
   * tried first: writers write keys in one order.
   */
  key(keys: Keys, expected: number, nth: number): number {
    if (!this.entry(nth)) return END;
    if (expected < keys.texts.length && this.isWritten(keys, expected)) return expected;
    const { text } = this;
    const from = this.next() === QUOTE ? this.at + 1 : declined();
    const escaped = this.skipText();
    const to = this.at - 1;
    this.expect(COLON);
    // Escapes may spell any key.
    if (escaped) return keys.texts.indexOf(JSON.parse(decoder.decode(text.subarray(from - 1, to + 1))) as string);
    for (let k = 0; k < keys.names.length; ++k) {
      const name = keys.names[k]!;
      if (name.length !== to - from) continue;
      let i = 0;
      while (i < name.length && text[from + i] === name[i]) ++i;
      if (i === name.length) return k;
    }
    return UNKNOWN;
  }

  /** True when this key is what comes next; then it is behind. */
  private isWritten(keys: Keys, which: number): boolean {
    const { text, view } = this;
    const words = keys.words[which]!,
      rest = keys.rests[which]!;
    let at = this.at;
    if (at + 4 * words.length > text.length) return false;
    for (let i = 0; i < words.length; ++i, at += 4) if (view.getInt32(at, true) !== words[i]) return false;
    for (let i = 0; i < rest.length; ++i, ++at) if (text[at] !== rest[i]) return false;
    this.at = at;
    return true;
  }

  /**
   * A piece of the text that stood elsewhere before, from `at` to `end`, stands here again: then it is behind. What
   * was found there once is found here without reading it again.
   */
  repeats(at: number, end: number): boolean {
    const { text, view } = this;
    let here = this.at;
    if (here + end - at > text.length) return false;
    for (; at + 4 <= end; at += 4, here += 4) if (view.getInt32(at, true) !== view.getInt32(here, true)) return false;
    for (; at < end; ++at, ++here) if (text[at] !== text[here]) return false;
    this.at = here;
    return true;
  }

  /** Behind a text; true when it has escapes. */
  skipText(): boolean {
    if (this.next() !== QUOTE) declined();
    const { text } = this;
    let high = this.high;
    let i = this.at + 1;
    let escaped = false;
    for (;;) {
      let c = text[i]!;
      while (STOPS[c] === 0) {
        high |= c;
        c = text[++i]!;
      }
      if (c === QUOTE) break;
      if (c !== BACKSLASH) declined(); // a control character, or the end
      escaped = true;
      const kind = text[i + 1]!;
      i += 2;
      if (kind === 0x75) {
        for (let k = 0; k < 4; ++k) {
          const h = text[i++]! | 0x20;
          if (!((h >= 0x30 && h <= 0x39) || (h >= 0x61 && h <= 0x66))) declined();
        }
      } else if (
        kind !== QUOTE &&
        kind !== BACKSLASH &&
        kind !== 0x2f &&
        kind !== 0x62 &&
        kind !== 0x66 &&
        kind !== 0x6e &&
        kind !== 0x72 &&
        kind !== 0x74
      ) {
        declined();
      }
    }
    this.high = high;
    this.at = i + 1;
    return escaped;
  }

  /** Behind a text without escapes; its symbol. */
  symbol(names: Names): number {
    if (this.next() !== QUOTE) declined();
    const from = this.at + 1;
    const numbered = names.numbered(from);
    if (numbered >= 0) {
      if (names.end - from > this.maxLength) declined();
      this.at = names.end + 1;
      return numbered;
    }
    const { text } = this;
    let i = from,
      high = this.high;
    let c = text[i]!;
    while (STOPS[c] === 0) {
      high |= c;
      c = text[++i]!;
    }
    if (c !== QUOTE || i - from > this.maxLength) declined();
    this.high = high;
    this.at = i + 1;
    return names.other(from, i);
  }

  /** The symbol of an entry's ID; the colon is behind, too. */
  id(names: Names): number {
    const symbol = this.symbol(names);
    if (this.text[this.at] === COLON) ++this.at;
    else this.expect(COLON);
    return symbol;
  }

  /** A whole number of at most 15 digits. */
  count(): number {
    let c = this.next();
    const { text } = this;
    const from = this.at;
    let i = from,
      value = 0;
    while (c >= 0x30 && c <= 0x39) {
      value = value * 10 + (c - 0x30);
      c = text[++i]!;
    }
    const digits = i - from;
    if (digits === 0 || digits > 15 || (digits > 1 && text[from] === 0x30)) declined();
    if (c === DOT || c === 0x65 || c === 0x45) declined();
    this.at = i;
    return value;
  }

  /** Behind a number that is finite: 0 for "0", 1 for "1", -1 for other zeros and 2 for all others. */
  private number(): number {
    const { text } = this;
    const from = this.at;
    let i = from;
    let c = text[i]!;
    if (c === MINUS) c = text[++i]!;
    const first = c;
    const whole = i;
    let digits = 0; // any but 0
    while (c >= 0x30 && c <= 0x39) {
      digits |= c - 0x30;
      c = text[++i]!;
    }
    const wholeDigits = i - whole;
    if (wholeDigits === 0 || (wholeDigits > 1 && first === 0x30)) declined();
    let isWhole = true;
    if (c === DOT) {
      isWhole = false;
      const start = ++i;
      c = text[i]!;
      while (c >= 0x30 && c <= 0x39) {
        digits |= c - 0x30;
        c = text[++i]!;
      }
      if (i === start) declined();
    }
    if (c === 0x65 || c === 0x45) {
      isWhole = false;
      c = text[++i]!;
      if (c === 0x2b || c === MINUS) c = text[++i]!;
      const start = i;
      while (c >= 0x30 && c <= 0x39) c = text[++i]!;
      // Two digits cannot leave the range of numbers.
      if (i === start || i - start > 2) declined();
    }
    if (i - from > 60) declined();
    this.at = i;
    if (isWhole && wholeDigits === 1 && first <= 0x31 && whole === from) return first - 0x30;
    return digits === 0 ? -1 : 2;
  }

  /** A list of numbers, described in `list`. */
  numbers(): void {
    const { list, text } = this;
    if (this.next() !== OPEN_LIST) declined();
    list.at = this.at++;
    list.length = list.zeros = list.ones = list.oddZeros = 0;
    if (this.next() === CLOSE_LIST) {
      ++this.at;
      return;
    }
    for (;;) {
      const number = this.number();
      ++list.length;
      if (number === 0) ++list.zeros;
      else if (number === 1) ++list.ones;
      else if (number < 0) ++list.oddZeros;
      let c = text[this.at]!;
      if (c <= 0x20) c = this.next();
      ++this.at;
      if (c === CLOSE_LIST) return;
      if (c !== COMMA) declined();
      this.next();
    }
  }

  /** Adds the symbols of a list of texts. */
  names(names: Names, target: Integers): void {
    this.expect(OPEN_LIST);
    if (this.next() === CLOSE_LIST) {
      ++this.at;
      return;
    }
    for (;;) {
      target.push(this.symbol(names));
      const c = this.next();
      ++this.at;
      if (c === CLOSE_LIST) return;
      if (c !== COMMA) declined();
    }
  }

  private literal(word: string): void {
    for (let k = 0; k < word.length; ++k) if (this.text[this.at + k] !== word.charCodeAt(k)) declined();
    this.at += word.length;
  }

  /** Behind a number of any size and form. */
  private skipNumber(): void {
    const { text } = this;
    let i = this.at;
    const digits = (): void => {
      const from = i;
      while (text[i]! >= 0x30 && text[i]! <= 0x39) ++i;
      if (i === from) declined();
    };
    if (text[i] === MINUS) ++i;
    if (text[i] === 0x30) ++i;
    else digits();
    if (text[i] === DOT) {
      ++i;
      digits();
    }
    if (text[i] === 0x65 || text[i] === 0x45) {
      ++i;
      if (text[i] === 0x2b || text[i] === MINUS) ++i;
      digits();
    }
    this.at = i;
  }

  /** Behind any value; `depth` counts the objects and lists around it. */
  skip(depth: number): void {
    const c = this.next();
    switch (c) {
      case QUOTE:
        this.skipText();
        return;
      case OPEN:
      case OPEN_LIST:
        this.skipNested(depth);
        return;
      case 0x74:
        this.literal('true');
        return;
      case 0x66:
        this.literal('false');
        return;
      case 0x6e:
        this.literal('null');
        return;
      default:
        this.skipNumber();
    }
  }

  // A loop and no recursion, so that no text exhausts the stack.
  private skipNested(outer: number): void {
    const closers: number[] = [];
    let open = true; // a value or an opening bracket comes next
    for (;;) {
      if (open) {
        const c = this.next();
        if (c === OPEN || c === OPEN_LIST) {
          if (outer + closers.length + 1 > this.maxDepth) declined();
          const closer = c + 2;
          ++this.at;
          if (this.next() === closer) {
            ++this.at;
          } else {
            closers.push(closer);
            if (closer === CLOSE) {
              this.skipText();
              this.expect(COLON);
            }
            continue;
          }
        } else {
          this.skip(0); // not nested
        }
      }
      const closer = closers[closers.length - 1];
      if (closer === undefined) return;
      const c = this.next();
      ++this.at;
      if (c === closer) {
        closers.pop();
        open = false;
      } else {
        if (c !== COMMA) declined();
        if (closer === CLOSE) {
          this.skipText();
          this.expect(COLON);
        }
        open = true;
      }
    }
  }
}

/**
 * The last pieces of the text that were read, and what they were found to say, as a number. Most entries repeat all but
 * the names of the one before, or of the one before that.
 */
export class Tails {
  private readonly at = new Int32Array(8);
  private readonly ends = new Int32Array(8);
  private readonly found = new Int32Array(8);
  private count = 0;

  add(at: number, end: number, found: number): void {
    const slot = this.count++ & 7;
    this.at[slot] = at;
    this.ends[slot] = end;
    this.found[slot] = found;
  }
  /** What was found in the piece that stands here again, which is then behind; -1 when none does. */
  repeated(scanner: Scanner): number {
    const { at, ends } = this;
    for (let slot = Math.min(this.count, 8) - 1; slot >= 0; --slot) {
      if (scanner.repeats(at[slot]!, ends[slot]!)) return this.found[slot]!;
    }
    return -1;
  }
}
