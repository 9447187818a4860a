import { HeaderText } from './HeaderText.js';
import type { HeaderTable } from './table.js';

const QUOTE = 0x22,
  CLOSE_LIST = 0x5d;

/** Rows that are copied between two pauses. */
const ROWS_PER_STEP = 8192;

/** Pieces of a text, copied one behind the other. Place 0 stays free, since it stands for nothing. */
class Pieces {
  bytes = new Uint8Array(64 * 1024);
  length = 1;
  private lastAt = 0;
  private lastLength = 0;

  constructor(private readonly text: Uint8Array) {}

  /** Copies a piece; its new place. */
  copy(from: number, to: number): number {
    const count = to - from;
    if (this.length + count > this.bytes.length) {
      const old = this.bytes;
      this.bytes = new Uint8Array(Math.max(this.length + count, 2 * old.length));
      this.bytes.set(old);
    }
    const { text, bytes, length } = this;
    if (count > 256) bytes.set(text.subarray(from, to), length);
    else for (let i = 0; i < count; ++i) bytes[length + i] = text[from + i]!;
    this.length += count;
    return length;
  }

  /** The same, of a piece that may be the one that was copied last. */
  copyOnce(from: number, to: number): number {
    const { text, bytes, lastAt } = this;
    let i = 0;
    while (from + i < to && i < this.lastLength && text[from + i] === bytes[lastAt + i]) ++i;
    if (from + i === to && i === this.lastLength) return lastAt;
    this.lastLength = to - from;
    return (this.lastAt = this.copy(from, to));
  }

  upTo(from: number, last: number): number {
    let to = from;
    while (this.text[to] !== last) ++to;
    return to + 1;
  }
}

/**
 * Replaces a table's text by what may still be asked for: of a header that came by itself most bytes have been read for
 * good. In steps; the table must not be used before the last.
 */
export function* compact(table: HeaderTable): Generator<void, void> {
  const { text } = table;
  const pieces = new Pieces(text.bytes);
  for (const ids of [
    table.chunkId,
    table.viewId,
    table.indexId,
    table.attributeId,
    table.meshId,
    table.materialId,
  ]) {
    for (let row = 0; row < ids.length; ++row) {
      if (row % ROWS_PER_STEP === ROWS_PER_STEP - 1) yield;
      ids[row] = pieces.copy(ids[row]!, pieces.upTo(ids[row]!, QUOTE));
    }
  }
  for (const lists of [table.decodeOffsetAt, table.decodeScaleAt, table.centerAt, table.sizeAt]) {
    for (let row = 0; row < lists.length; ++row) {
      if (row % ROWS_PER_STEP === ROWS_PER_STEP - 1) yield;
      if (lists[row]! > 0) lists[row] = pieces.copyOnce(lists[row]!, pieces.upTo(lists[row]!, CLOSE_LIST));
    }
  }
  const { metadataAt, metadataEnd, titleAt, titleEnd, fitAt, fitEnd, drawnBoundsAt, drawnBoundsEnd } = table;
  for (let row = 0; row < metadataAt.length; ++row) {
    if (row % ROWS_PER_STEP === ROWS_PER_STEP - 1) yield;
    const from = metadataAt[row]!;
    if (from === 0) continue;
    const shift = pieces.copy(from, metadataEnd[row]!) - from;
    metadataAt[row] = from + shift;
    metadataEnd[row]! += shift;
    // These are parts of it.
    if (titleAt[row]! > 0) titleAt[row]! += shift;
    titleEnd[row]! += shift;
    if (fitAt[row]! > 0) fitAt[row]! += shift;
    fitEnd[row]! += shift;
    if (drawnBoundsAt[row]! > 0) drawnBoundsAt[row]! += shift;
    drawnBoundsEnd[row]! += shift;
  }
  for (const [starts, ends] of [
    [table.valuesAt, table.valuesEnd],
    [table.originsAt, table.originsEnd],
  ] as const) {
    for (let place = 0; place < starts.length; ++place) {
      if (place % ROWS_PER_STEP === ROWS_PER_STEP - 1) yield;
      const at = pieces.copy(starts[place]!, ends[place]!);
      ends[place]! += at - starts[place]!;
      starts[place] = at;
    }
  }
  for (const range of [table.metadata, table.techniques]) {
    if (range[0] === 0) continue;
    const at = pieces.copy(...range);
    range[1] += at - range[0];
    range[0] = at;
  }
  table.text = new HeaderText(pieces.bytes.slice(0, pieces.length), text.isAscii);
}
