import type { ReadLimits } from './limits.js';
import type { JsonValue } from './model.js';
import { Fault, type Path } from './faults.js';

const QUOTE = 0x22,
  COMMA = 0x2c,
  COLON = 0x3a,
  OPEN_LIST = 0x5b,
  BACKSLASH = 0x5c,
  CLOSE_LIST = 0x5d,
  OPEN = 0x7b,
  CLOSE = 0x7d;

/** 1 for bytes that a walk passes: inside a text, among the entries of an object, and inside their values. */
const IN_TEXT = tableWithout(QUOTE, BACKSLASH),
  AMONG_ENTRIES = tableWithout(QUOTE, OPEN, CLOSE, OPEN_LIST, CLOSE_LIST, COMMA, COLON),
  IN_VALUE = tableWithout(QUOTE, OPEN, CLOSE, OPEN_LIST, CLOSE_LIST);

function tableWithout(...bytes: number[]): Uint8Array {
  const table = new Uint8Array(256).fill(1);
  for (const byte of bytes) table[byte] = 0;
  return table;
}

/** A text of which the first `count` bytes are there, of `length` in all. `bytes` may be replaced by a longer array. */
export interface Arriving {
  bytes: Uint8Array;
  count: number;
  length: number;
}

/** Why a walk pauses: it needs bytes that have not arrived, or has worked for about a millisecond. */
export type Pause = 'hungry' | 'busy';
export type Walking<T = void> = Generator<Pause, T, void>;

/** Entries are read together up to this many bytes: fewer calls of JSON.parse, and less than a millisecond each. */
const BATCH_BYTES = 64 * 1024;

/**
 * Walks through a JSON text while it arrives. Bytes are looked at only to find where values end; what they say is left
 * to JSON.parse, which is native. Throws Fault.
 */
export class HeaderWalk {
  private at = 0;
  private inText = false;
  /** Of objects and lists around the walk, and around the place where it stands in a value. */
  private outer = 0;
  private depth = 0;
  private scratch = new Uint8Array(BATCH_BYTES + 4096);
  private readonly decoder = new TextDecoder('utf-8', { fatal: true, ignoreBOM: true });

  /** With `oneByOne` each entry is read by itself, so that the first fault of all is the one that is found. */
  constructor(
    private readonly text: Arriving,
    private readonly limits: ReadLimits,
    private readonly oneByOne = false,
  ) {}

  /** Walks the whole text: `read` takes the value. */
  *root(read: (isObject: boolean) => Walking): Walking {
    yield* read((yield* this.next()) === OPEN);
    const { text } = this;
    while (text.count < text.length) yield 'hungry';
    while (isBlank(text.bytes[this.at]!) && this.at < text.length) ++this.at;
    if (this.at < text.length) syntax();
  }

  /** An object of few members: `read` takes the value of each, and is told whether it is an object, too. */
  *members(read: (key: string, isObject: boolean) => Walking): Walking {
    ++this.at;
    if (++this.outer > this.limits.depth) this.tooDeep();
    for (let isFirst = true; ; isFirst = false) {
      if ((yield* this.next()) === CLOSE && isFirst) break;
      const key = yield* this.value();
      if (typeof key !== 'string' || (yield* this.next()) !== COLON) syntax();
      this.checkName(key as string, []);
      ++this.at;
      yield* read(key as string, (yield* this.next()) === OPEN);
      const c = yield* this.next();
      if (c === CLOSE) break;
      if (c !== COMMA) syntax();
      ++this.at;
    }
    ++this.at;
    --this.outer;
  }

  /**
   * An object of many entries: `take` is given each with its key. The colons behind the keys are read as commas, so that
   * a batch is one list, in which keys keep their order and none means anything.
   */
  *entries(path: Path, take: (id: string, entry: JsonValue) => void): Walking {
    let start = ++this.at;
    if (++this.outer > this.limits.depth) this.tooDeep();
    const colons: number[] = [];
    let count = 0;
    for (let isKey = true; ;) {
      const c = this.pass();
      if (c === 0) {
        yield* this.arrival();
        continue;
      }
      const at = this.at++;
      if (c === COLON && isKey) {
        colons.push(at);
        isKey = false;
        continue;
      }
      if (c === COMMA && !isKey) {
        isKey = true;
        if (at - start < BATCH_BYTES && !this.oneByOne) continue;
      } else if (c !== CLOSE) {
        syntax();
      }
      const list = this.parsed(start, at, colons);
      if (list.length !== 2 * colons.length || (list.length === 0 && count > 0)) syntax();
      for (let k = 0; k < list.length; k += 2) {
        const id = list[k] as string;
        if (typeof id !== 'string') syntax();
        if (++count > this.limits.entries) throw Fault.limit('entries', count, this.limits, path);
        this.checkName(id, path);
        take(id, list[k + 1]!);
      }
      if (c === CLOSE) break;
      start = this.at;
      colons.length = 0;
      yield 'busy';
    }
    --this.outer;
  }

  /** Any value, whole. */
  *value(): Walking<JsonValue> {
    const start = this.at;
    while (this.pass() === 0 && this.text.count < this.text.length) yield* this.arrival();
    try {
      return JSON.parse(this.decoder.decode(this.text.bytes.subarray(start, this.at))) as JsonValue;
    } catch {
      return syntax();
    }
  }

  checkName(name: string, path: Path): void {
    if (name.length > this.limits.stringLength) {
      throw Fault.limit('stringLength', name.length, this.limits, path);
    }
  }

  /** The next byte that is not white space. */
  private *next(): Walking<number> {
    for (;;) {
      const { bytes, count } = this.text;
      while (this.at < count && isBlank(bytes[this.at]!)) ++this.at;
      if (this.at < count) return bytes[this.at]!;
      yield* this.arrival();
    }
  }

  private *arrival(): Walking {
    if (this.text.count === this.text.length) syntax();
    yield 'hungry';
  }

  /** On to the next comma, colon or bracket that is not inside a value; 0 when that has not arrived. */
  private pass(): number {
    const { bytes, count } = this.text;
    let { at, depth, inText } = this;
    let found = 0;
    while (at < count) {
      if (inText) {
        while (at < count && IN_TEXT[bytes[at]!] === 1) ++at;
        if (at >= count) break;
        if (bytes[at] === QUOTE) {
          inText = false;
          ++at;
        } else {
          if (at + 1 >= count) break; // what is escaped has to be there
          at += 2;
        }
        continue;
      }
      const passed = depth === 0 ? AMONG_ENTRIES : IN_VALUE;
      while (at < count && passed[bytes[at]!] === 1) ++at;
      if (at >= count) break;
      const c = bytes[at]!;
      if (c === QUOTE) {
        inText = true;
      } else if (c === OPEN || c === OPEN_LIST) {
        if (this.outer + ++depth > this.limits.depth) this.tooDeep();
      } else if (depth === 0) {
        found = c;
        break;
      } else {
        --depth;
      }
      ++at;
    }
    this.at = at;
    this.depth = depth;
    this.inText = inText;
    return found;
  }

  /** A piece of the text, as a list. */
  private parsed(start: number, end: number, colons: number[]): JsonValue[] {
    const length = end - start + 2;
    if (this.scratch.length < length) this.scratch = new Uint8Array(2 * length);
    const { scratch } = this;
    scratch[0] = OPEN_LIST;
    scratch.set(this.text.bytes.subarray(start, end), 1);
    for (const colon of colons) scratch[colon - start + 1] = COMMA;
    scratch[length - 1] = CLOSE_LIST;
    try {
      return JSON.parse(this.decoder.decode(scratch.subarray(0, length))) as JsonValue[];
    } catch {
      return syntax();
    }
  }

  private tooDeep(): never {
    throw Fault.limit('depth', this.limits.depth + 1, this.limits, []);
  }
}

function isBlank(byte: number): boolean {
  return byte === 0x20 || byte === 0x0a || byte === 0x0d || byte === 0x09;
}

function syntax(): never {
  throw new Fault('JSON_SYNTAX', []);
}
