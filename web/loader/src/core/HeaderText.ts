/**
 * A call of the decoder costs as much as some hundred bytes, so what lies around a text that is asked for is decoded as
 * well: mostly more of the same mesh, whose texts are asked for together. More would be thrown away, since meshes
 * lie in the order of their IDs' letters.
 */
const WINDOW_BYTES = 400;

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
    let to = from;
    while (bytes[to] !== 0x5d) ++to;
    return this.value(from, to + 1);
  }
}
