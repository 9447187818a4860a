/**
 * A call of the decoder costs as much as some hundred bytes, so what lies around a text that is asked for is decoded as
 * well: mostly more of the same mesh, whose texts are asked for together. More would be thrown away, since meshes
 * lie in the order of their IDs' letters.
 */
const WINDOW_BYTES = 400;

const POWERS_OF_TEN = Array.from({ length: 23 }, (_, exponent) => Number(`1e${exponent}`));

const decoder = new TextDecoder('utf-8', { ignoreBOM: true });

/** The header's text, of which only what is asked for ever becomes a string. */
export class HeaderText {
  private window = '';
  private windowAt = 0;

  constructor(
    readonly bytes: Uint8Array,
    readonly isAscii: boolean,
  ) {}

  slice(from: number, to: number): string {
    if (!this.isAscii || to - from > WINDOW_BYTES) return decoder.decode(this.bytes.subarray(from, to));
    if (from < this.windowAt || to > this.windowAt + this.window.length) {
      this.windowAt = from;
      this.window = decoder.decode(this.bytes.subarray(from, from + WINDOW_BYTES));
    }
    return this.window.substring(from - this.windowAt, to - this.windowAt);
  }

  /** The value between two places. */
  value<T>(from: number, to: number): T {
    return JSON.parse(this.slice(from, to)) as T;
  }

  /** A name without escapes that begins at a place, and ends at a quote. */
  name(from: number): string {
    const { bytes } = this;
    let to = from;
    while (bytes[to] !== 0x22) ++to;
    return this.slice(from, to);
  }

  /** The list of numbers that begins at a place. */
  numbers(from: number): number[] {
    const { bytes } = this;
    const numbers: number[] = [];
    let i = from + 1;
    for (;;) {
      while (bytes[i]! <= 0x20 || bytes[i] === 0x2c) ++i;
      if (bytes[i] === 0x5d) return numbers;
      const start = i;
      const isNegative = bytes[i] === 0x2d;
      if (isNegative) ++i;
      // Up to 15 digits and a power of ten up to 10^22 are exact, and so is what one division makes of them.
      let value = 0,
        digits = 0,
        point = -1;
      let c = bytes[i]!;
      for (; (c >= 0x30 && c <= 0x39) || c === 0x2e; c = bytes[++i]!) {
        if (c === 0x2e) {
          point = i;
          continue;
        }
        value = value * 10 + (c - 0x30);
        if (value > 0) ++digits;
      }
      const decimals = point < 0 ? 0 : i - point - 1;
      if (c === 0x65 || c === 0x45 || digits > 15 || decimals > 22) {
        while (bytes[i] !== 0x2c && bytes[i] !== 0x5d && bytes[i]! > 0x20) ++i;
        numbers.push(Number(this.slice(start, i)));
      } else {
        if (decimals > 0) value /= POWERS_OF_TEN[decimals]!;
        numbers.push(isNegative ? -value : value);
      }
    }
  }
}
