import { Fault, pointerOf, textFault } from './faults.js';
import { joined } from './headerJoin.js';
import { HeaderSections } from './headerSections.js';
import type { Arriving, Walking } from './headerWalk.js';
import { exceeds, type ReadLimits } from './limits.js';
import type { SrcHeader } from './model.js';
import { SrcError } from './SrcError.js';

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

/**
 * Reads and checks a header while its text arrives, in steps of about a millisecond. What is wrong with it is said when
 * all of it is there. Throws SrcError.
 */
export function* readingHeader(text: Arriving, limits: ReadLimits): Walking<SrcHeader> {
  try {
    return yield* reading(text, limits);
  } catch (fault) {
    if (!(fault instanceof Fault)) throw fault;
    while (text.count < text.length) yield 'hungry';
    const bytes = text.bytes.subarray(0, text.length);
    throw (textFault(bytes) ?? firstFault(text, limits) ?? fault).in(bytes, PREAMBLE_BYTES);
  }
}

function* reading(text: Arriving, limits: ReadLimits, oneByOne = false): Walking<SrcHeader> {
  const sections = new HeaderSections(text, limits, oneByOne);
  yield* sections.read();
  return yield* joined(sections, PREAMBLE_BYTES + text.length);
}

/** Entries that are read together hide which of their faults comes first. */
function firstFault(text: Arriving, limits: ReadLimits): Fault | null {
  try {
    for (const work = reading(text, limits, true); !work.next().done;);
  } catch (fault) {
    if (fault instanceof Fault) return fault;
    throw fault;
  }
  return null;
}

/** The same for a text that is there. */
export function readHeader(bytes: Uint8Array, limits: ReadLimits): SrcHeader {
  const work = readingHeader({ bytes, count: bytes.length, length: bytes.length }, limits);
  for (;;) {
    const { done, value } = work.next();
    if (done) return value;
  }
}

/**
 * What can be told only when the length of the data section is known, `dataBytes` of them: that no chunk ends
 * behind it.
 */
export function checkChunks(header: SrcHeader, dataBytes: number): void {
  const { dataOffset } = header;
  for (const { id, byteOffset, byteLength } of header.chunks) {
    if (byteOffset + byteLength <= dataBytes) continue;
    throw new SrcError('CHUNK_PAST_END', {
      byteOffset: dataOffset + dataBytes,
      path: pointerOf(['bufferChunks', id]),
      detail: `${byteLength} bytes from byte ${dataOffset + byteOffset}, and the file has ${dataOffset + dataBytes}`,
    });
  }
  checkRepeats(header);
}

/** A view that repeats chunks could be longer than all data. */
export function checkRepeats({ bufferViews, dataBytes }: SrcHeader): void {
  for (const { id, storedBytes } of bufferViews) {
    if (storedBytes <= dataBytes) continue;
    throw new SrcError('REPEATED_CHUNKS', {
      path: pointerOf(['bufferViews', id]),
      detail: `${storedBytes} of ${dataBytes} bytes`,
    });
  }
}
