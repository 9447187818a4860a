import { exceeds, type ReadLimits } from './limits.js';
import { TableHeader } from './handles.js';
import { readTable } from './headerTable.js';
import { pointerOf, readTree } from './headerTree.js';
import { layoutOf, type Layout } from './layout.js';
import type { SrcHeader } from './model.js';
import { SrcError } from './SrcError.js';
import type { HeaderTable } from './table.js';

export const PREAMBLE_BYTES = 12;

/**
 * The header's length, from the first bytes of a file. `complete` tells that no more bytes will come; otherwise
 * null means that more are needed. What cannot be an SRC file is refused from its first bytes on.
 */
export function readPreamble(bytes: Uint8Array, complete: boolean, limits: ReadLimits): number | null {
  const n = bytes.length;
  if (n === 0) {
    if (complete) throw new SrcError('EMPTY_FILE', { byteOffset: 0 });
    return null;
  }
  const signature = [23, 0, 0, 0];
  if (signature.some((byte, i) => i < n && bytes[i] !== byte)) {
    if (n < 4 && !complete) return null;
    if (n >= 4 && String.fromCharCode(...bytes.subarray(0, 4)) === 'glTF') {
      throw new SrcError('LOOKS_LIKE_GLB', { byteOffset: 0 });
    }
    // White space and a byte order mark may precede a page.
    const blank = new Set([0xef, 0xbb, 0xbf, 0x20, 0x09, 0x0d, 0x0a]);
    let first = 0;
    while (first < n && blank.has(bytes[first]!)) ++first;
    if (first === n && !complete && n < 4096) return null;
    if (bytes[first] === 0x3c) throw new SrcError('LOOKS_LIKE_HTML', { byteOffset: first });
    throw new SrcError('WRONG_SIGNATURE', { byteOffset: 0 });
  }
  if (n < PREAMBLE_BYTES) {
    if (complete) throw new SrcError('TRUNCATED_PREAMBLE', { byteOffset: n, detail: `${n} bytes` });
    return null;
  }
  const view = new DataView(bytes.buffer, bytes.byteOffset, PREAMBLE_BYTES);
  const layout = view.getUint32(4, true);
  if (layout !== 42) throw new SrcError('UNKNOWN_LAYOUT', { byteOffset: 4, detail: `found ${layout}` });
  const length = view.getUint32(8, true);
  if (length === 0) throw new SrcError('HEADER_EMPTY', { byteOffset: 8 });
  if (length > limits.headerBytes) throw exceeds('headerBytes', length, limits.headerBytes, { byteOffset: 8 });
  return length;
}

export function headerTruncated(length: number, there: number): SrcError {
  return new SrcError('HEADER_TRUNCATED', {
    byteOffset: PREAMBLE_BYTES + there,
    detail: `${length} bytes, ${there} are there`,
  });
}

/** Reads and checks a header; `text` must not change afterwards. Throws SrcError. */
export function readHeader(text: Uint8Array, limits: ReadLimits): SrcHeader {
  return headerFrom(readTable(text, limits), text, limits);
}

/** The header of a table, or else what the plain reader says to it. Throws SrcError. */
export function headerFrom(table: HeaderTable | null, text: Uint8Array, limits: ReadLimits): SrcHeader {
  return table ? new TableHeader(table, PREAMBLE_BYTES + text.length) : readTree(text, PREAMBLE_BYTES, limits);
}

const layouts = new WeakMap<SrcHeader, Layout>();

/** Where a header's bytes lie. */
export function layoutFor(header: SrcHeader): Layout {
  if (header instanceof TableHeader) return header.table.layout;
  let layout = layouts.get(header);
  if (!layout) {
    layout = layoutOf(header);
    layouts.set(header, layout);
  }
  return layout;
}

/**
 * What can be told only when the length of the data section is known, `dataBytes` of them: that no chunk ends
 * behind it.
 */
export function checkChunks(header: SrcHeader, dataBytes: number): void {
  const { chunkOffset, chunkLength, viewStored } = layoutFor(header);
  for (let chunk = 0; chunk < chunkOffset.length; ++chunk) {
    const at = chunkOffset[chunk]!,
      length = chunkLength[chunk]!;
    if (at + length <= dataBytes) continue;
    throw new SrcError('CHUNK_PAST_END', {
      byteOffset: header.dataOffset + dataBytes,
      path: pointerOf(['bufferChunks', header.chunks[chunk]!.id]),
      detail: `${length} bytes from byte ${at} of ${dataBytes}`,
    });
  }
  for (let view = 0; view < viewStored.length; ++view) {
    if (viewStored[view]! <= dataBytes) continue;
    throw new SrcError('REPEATED_CHUNKS', {
      path: pointerOf(['bufferViews', header.bufferViews[view]!.id]),
      detail: `${viewStored[view]} of ${dataBytes} bytes`,
    });
  }
}
