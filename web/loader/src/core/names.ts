import { Integers } from './columns.js';

/**
 * What the scanner throws at anything that it does not read: what is broken, and what is rare. The reader of JSON
 * trees then reads the whole header, and says what is wrong with it, if anything is.
 */
export const NOT_PLAIN = { reason: 'not a plain header' };

export function declined(): never {
  throw NOT_PLAIN;
}

/** Names that end in a number of at most so many digits have their symbols in a list, by that number. */
const MAX_DIGITS = 6;

/**
 * Numbers the different names of one kind, such as the IDs of chunks and what refers to them: equal names have the same
 * symbol. Names are pieces of a text, and no string is made of any.
 *
 * Writers number their things, "chunk0", "chunk1" and so on. Names of the first one's prefix are found by their
 * number, which takes a quarter of the time; others by a hash.
 */
export class Names {
  length = 0;
  /** Where the name ends that numbered() has found. */
  end = 0;
  /** Where each name begins and ends. */
  readonly starts = new Integers();
  readonly ends = new Integers();

  // What stands before the number of the first name; -1 until there is one.
  private prefixAt = -1;
  private prefixLength = 0;
  private byNumber = new Int32Array(256).fill(-1);

  private hashes = new Int32Array(0);
  private table = new Int32Array(0);
  private hashed = 0;
  private readonly hashedSymbols = new Integers();
  private probes = 0;
  private lookups = 0;

  private readonly view: DataView;

  constructor(private readonly text: Uint8Array) {
    this.view = new DataView(text.buffer, text.byteOffset, text.byteLength);
  }

  /** Sets the prefix by the first name. */
  private learn(from: number, to: number): void {
    let end = to;
    while (end > from && this.text[end - 1]! >= 0x30 && this.text[end - 1]! <= 0x39) --end;
    this.prefixAt = from;
    this.prefixLength = end - from;
  }

  /** True when two pieces of the text are equal. */
  private equal(a: number, b: number, length: number): boolean {
    const { text, view } = this;
    let i = 0;
    for (; i + 4 <= length; i += 4) if (view.getInt32(a + i, true) !== view.getInt32(b + i, true)) return false;
    for (; i < length; ++i) if (text[a + i] !== text[b + i]) return false;
    return true;
  }

  /**
   * The symbol of the name that begins here and ends at a quote, when it is one of the numbered; -1 for others, and
   * when nothing of the kind stands here. `end` is set when there is one.
   */
  numbered(from: number): number {
    const { text, prefixLength } = this;
    const first = from + prefixLength;
    if (this.prefixAt < 0 || first > text.length || !this.equal(from, this.prefixAt, prefixLength)) return -1;
    let i = first,
      number = 0;
    let c = text[i]!;
    while (c >= 0x30 && c <= 0x39 && i - first <= MAX_DIGITS) {
      number = number * 10 + (c - 0x30);
      c = text[++i]!;
    }
    const digits = i - first;
    if (c !== 0x22 || digits === 0 || digits > MAX_DIGITS || (digits > 1 && text[first] === 0x30)) return -1;
    if (number >= this.byNumber.length) this.growTo(number);
    const known = this.byNumber[number]!;
    this.end = i;
    if (known >= 0) return known;
    this.byNumber[number] = this.length;
    return this.add(from, i);
  }
  private growTo(number: number): void {
    const old = this.byNumber;
    this.byNumber = new Int32Array(Math.max(number + 1, 2 * old.length)).fill(-1, old.length);
    this.byNumber.set(old);
  }

  private add(from: number, to: number): number {
    this.starts.push(from);
    this.ends.push(to);
    return this.length++;
  }

  /** The symbol of any other name. */
  other(from: number, to: number): number {
    if (this.prefixAt < 0) {
      this.learn(from, to);
      const symbol = this.numbered(from);
      if (symbol >= 0) return symbol;
    }
    ++this.lookups;
    if (this.table.length === 0) this.table = new Int32Array(256).fill(-1);
    const { text, view, table, starts, ends } = this;
    let hash = to - from;
    let i = from;
    for (; i + 4 <= to; i += 4) hash = (Math.imul(hash, 0x01000193) ^ view.getInt32(i, true)) | 0;
    for (; i < to; ++i) hash = (Math.imul(hash, 0x01000193) ^ text[i]!) | 0;

    const mask = table.length - 1;
    for (let slot = slotOf(hash) & mask; ; slot = (slot + 1) & mask) {
      const entry = table[slot]!;
      if (entry < 0) {
        table[slot] = this.hashed;
        break;
      }
      this.probe();
      if (this.hashes[entry] !== hash) continue;
      const symbol = this.hashedSymbols.at(entry);
      const start = starts.at(symbol);
      if (ends.at(symbol) - start !== to - from) continue;
      if (this.equal(from, start, to - from)) return symbol;
    }
    if (this.hashed === this.hashes.length) {
      const old = this.hashes;
      this.hashes = new Int32Array(Math.max(256, 2 * old.length));
      this.hashes.set(old);
    }
    this.hashes[this.hashed++] = hash;
    this.hashedSymbols.push(this.length);
    if (2 * this.hashed > table.length) this.rehash();
    return this.add(from, to);
  }

  private rehash(): void {
    const table = new Int32Array(4 * this.table.length).fill(-1);
    const mask = table.length - 1;
    for (let entry = 0; entry < this.hashed; ++entry) {
      let slot = slotOf(this.hashes[entry]!) & mask;
      while (table[slot]! >= 0) {
        slot = (slot + 1) & mask;
        this.probe();
      }
      table[slot] = entry;
    }
    this.table = table;
  }

  /** Names that were chosen to collide would take time with their square. */
  private probe(): void {
    if (++this.probes > 1000 + 8 * this.lookups) declined();
  }

  is(symbol: number, name: Uint8Array): boolean {
    const from = this.starts.at(symbol);
    if (this.ends.at(symbol) - from !== name.length) return false;
    for (let i = 0; i < name.length; ++i) if (this.text[from + i] !== name[i]) return false;
    return true;
  }
  isEmpty(symbol: number): boolean {
    return this.ends.at(symbol) === this.starts.at(symbol);
  }
  /** Objects put keys that look like places in a list before all others. */
  looksLikePlace(symbol: number): boolean {
    const { text } = this;
    const from = this.starts.at(symbol),
      to = this.ends.at(symbol);
    if (from === to || to - from > 10 || (text[from] === 0x30 && to - from > 1)) return false;
    for (let i = from; i < to; ++i) if (text[i]! < 0x30 || text[i]! > 0x39) return false;
    return true;
  }
}

function slotOf(hash: number): number {
  const mixed = Math.imul(hash ^ (hash >>> 15), 0x2c1b3c6d);
  return mixed ^ (mixed >>> 12);
}
