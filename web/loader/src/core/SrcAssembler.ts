import { meshArrays, type MeshArrays, type SrcBytes } from './arrays.js';
import { compact } from './compact.js';
import { checkChunks, headerFrom, headerTruncated, layoutFor, PREAMBLE_BYTES, readPreamble } from './header.js';
import { TableScan } from './headerTable.js';
import { exceeds, limitsFrom, type ReadLimits } from './limits.js';
import type { Layout } from './layout.js';
import type { SrcHeader, SrcMesh } from './model.js';
import { SrcError } from './SrcError.js';
import { gather } from './SrcFile.js';

/** Views share a block of memory up to this size, so that small meshes cost no allocation each. */
const SHARED_BLOCK_BYTES = 256 * 1024;
/** A larger block than this grows as its bytes arrive: a file that only claims them gets no memory. */
const TRUSTED_BLOCK_BYTES = 64 * 2 ** 20;
/** Views begin at multiples of this in memory, whatever their place in the file. */
const ALIGNMENT = 8;

const NO_BYTES = new Uint8Array(0);

interface Block {
  capacity: number;
  bytes: Uint8Array<ArrayBuffer> | null;
  /** Counted in meshes handed out: no later one needs the block. */
  usesEnd: number;
}

/**
 * Puts a file together from its bytes in order, in pieces of any size, and hands out meshes as soon as theirs
 * are there.
 *
 * The bytes have to be copied out of the pieces in any case, so they are copied to places where typed arrays
 * can lie on them: nothing is copied a second time. What no mesh needs is dropped on arrival, what no later
 * mesh needs is let go when a mesh is handed out.
 */
export class SrcAssembler implements SrcBytes {
  /** Null until the header is complete. */
  header: SrcHeader | null = null;
  /** Bytes of the file so far. */
  received = 0;
  /** Of the header, once that is complete. */
  layout!: Layout;

  private readonly limits: ReadLimits;
  private front: Uint8Array = NO_BYTES; // until the preamble is there
  private headerLength: number | null = null;
  private headerReceived = 0;
  private text: Uint8Array<ArrayBuffer> = NO_BYTES;
  private scan: TableScan | null = null;

  private blocks: Block[] = [];
  private held = 0;
  private blockOfChunk = new Int32Array(0);
  private placeOfChunk = new Float64Array(0); // in the block
  // Buffer views whose chunks do not lie together in memory, and their bytes once they were asked for.
  private readonly scattered = new Map<number, Uint8Array<ArrayBuffer> | null>();
  private incoming = new Int32Array(0); // chunks with bytes, by place in the file
  private nextChunk = 0;
  private meshes: SrcMesh[] = []; // by where their last byte lies
  private ends = new Float64Array(0); // beside meshes
  private nextMesh = 0;
  private releases: Block[] = [];
  private nextRelease = 0;
  private dataEnd = 0;

  /** `select` names the meshes that are wanted; the bytes of all others are dropped. */
  constructor(
    limits?: Partial<ReadLimits>,
    private readonly select?: (header: SrcHeader) => SrcMesh[],
  ) {
    this.limits = limitsFrom(limits);
  }

  /** True when every mesh that is wanted can be handed out: the rest of the file does not matter. */
  get complete(): boolean {
    return this.header !== null && this.received >= this.header.dataOffset + this.dataEnd;
  }

  /** Takes the next bytes of the file. Throws SrcError. */
  push(bytes: Uint8Array): void {
    for (const work = this.pushing(bytes); !work.next().done;);
  }

  /**
   * The same in steps of less than a few milliseconds, between which the caller may do other things. The header is
   * read as it arrives, so little is left to do when it is complete.
   */
  *pushing(bytes: Uint8Array): Generator<void, void> {
    this.received += bytes.length;
    if (this.header) {
      this.place(bytes);
      return;
    }
    if (this.headerLength === null) {
      const front = this.front.length > 0 ? gather([this.front, bytes]) : bytes;
      this.headerLength = readPreamble(front, false, this.limits);
      if (this.headerLength === null) {
        this.front = front.slice(); // `bytes` are the caller's
        return;
      }
      this.front = NO_BYTES;
      bytes = front.subarray(PREAMBLE_BYTES);
    }
    const length = this.headerLength;
    const taken = bytes.subarray(0, length - this.headerReceived);
    const text = this.headerRoom(this.headerReceived + taken.length);
    text.set(taken, this.headerReceived);
    this.headerReceived += taken.length;
    if (text.length === length) {
      this.scan ??= new TableScan(text, this.limits);
      let state = this.scan.advance(this.headerReceived);
      for (; state === 'more'; state = this.scan.advance(this.headerReceived)) yield;
    }
    if (this.headerReceived < length) return;
    yield;
    const { table } = this.scan!;
    if (table) yield* compact(table);
    this.header = headerFrom(table, text, this.limits);
    this.text = NO_BYTES;
    this.scan = null;
    yield;
    this.layout = layoutFor(this.header);
    this.plan(this.header);
    yield;
    this.received -= bytes.length - taken.length; // counted again
    if (bytes.length > taken.length) yield* this.pushing(bytes.subarray(taken.length));
  }

  /** The header's text so far, with room for the first `count` bytes. */
  private headerRoom(count: number): Uint8Array<ArrayBuffer> {
    if (this.text.length < count) {
      const old = this.text;
      this.text = new Uint8Array(Math.min(this.headerLength!, Math.max(count, TRUSTED_BLOCK_BYTES, 2 * old.length)));
      this.text.set(old);
    }
    return this.text;
  }

  /** Says that no more bytes will come. Throws SrcError when some are missing. */
  end(): void {
    if (!this.header) {
      if (this.headerLength === null) readPreamble(this.front, true, this.limits);
      throw headerTruncated(this.headerLength!, this.received - PREAMBLE_BYTES);
    }
    if (!this.complete) checkChunks(this.header, this.received - this.header.dataOffset);
  }

  /** The next mesh whose bytes are all there, or null. */
  take(): MeshArrays | null {
    if (!this.header || this.nextMesh === this.meshes.length) return null;
    if (this.received - this.header.dataOffset < this.ends[this.nextMesh]!) return null;
    const arrays = meshArrays(this.meshes[this.nextMesh]!, this);
    ++this.nextMesh;
    while (this.nextRelease < this.releases.length && this.releases[this.nextRelease]!.usesEnd <= this.nextMesh) {
      const block = this.releases[this.nextRelease++]!;
      this.held -= block.bytes?.length ?? 0;
      block.bytes = null;
    }
    return arrays;
  }

  blockOf(view: number): Uint8Array<ArrayBuffer> {
    const { viewFirst, viewChunks } = this.layout;
    const known = this.scattered.size > 0 ? this.scattered.get(view) : undefined;
    if (known) return known;
    const first = viewFirst[view]!,
      end = viewFirst[view + 1]!;
    if (known === undefined) return first === end ? NO_BYTES : this.bytesIn(this.blockOfChunk[viewChunks[first]!]!);
    let length = 0;
    for (let i = first; i < end; ++i) length += this.layout.chunkLength[viewChunks[i]!]!;
    if (length > this.limits.memoryBytes - this.held) throw this.tooMuch(length);
    const pieces: Uint8Array[] = [];
    for (let i = first; i < end; ++i) {
      const chunk = viewChunks[i]!;
      const place = this.placeOfChunk[chunk]!;
      const block = this.bytesIn(this.blockOfChunk[chunk]!);
      pieces.push(block.subarray(place, place + this.layout.chunkLength[chunk]!));
    }
    this.held += length;
    const bytes = gather(pieces);
    this.scattered.set(view, bytes);
    return bytes;
  }

  startOf(view: number): number {
    if (this.scattered.size > 0 && this.scattered.has(view)) return 0;
    const { viewFirst, viewChunks } = this.layout;
    return viewFirst[view] === viewFirst[view + 1] ? 0 : this.placeOfChunk[viewChunks[viewFirst[view]!]!]!;
  }

  private bytesIn(block: number): Uint8Array<ArrayBuffer> {
    return this.blocks[block]!.bytes ?? NO_BYTES; // none yet: only views without bytes ask
  }

  private tooMuch(more: number): SrcError {
    return exceeds('memoryBytes', this.held + more, this.limits.memoryBytes, { byteOffset: this.received });
  }

  /** Decides where every chunk will lie in memory, and in which order meshes become complete. */
  private plan(header: SrcHeader): void {
    checkChunks(header, header.dataBytes); // a view that repeats chunks would be longer than all data
    const { chunkOffset, chunkLength, viewFirst, viewChunks, meshFirst, meshViews } = this.layout;
    const byPlace = sortedBy(
      chunkOffset,
      numbersTo(chunkOffset.length).filter((chunk) => chunkLength[chunk]! > 0),
    );
    for (let i = 1; i < byPlace.length; ++i) {
      const before = byPlace[i - 1]!,
        after = byPlace[i]!;
      if (chunkOffset[after]! < chunkOffset[before]! + chunkLength[before]!) {
        throw new SrcError('STREAM_OVERLAP', {
          byteOffset: header.dataOffset + chunkOffset[after]!,
          path: `/bufferChunks/${header.chunks[after]!.id}`,
        });
      }
    }

    const viewCount = viewFirst.length - 1;
    const viewEnds = new Float64Array(viewCount).fill(-1); // -1: nobody wants it
    const wanted = this.select ? this.select(header) : header.meshes;
    const ends = new Float64Array(wanted.length);
    const usedViews = new Int32Array(viewCount);
    let usedCount = 0;
    for (let rank = 0; rank < wanted.length; ++rank) {
      const { index } = wanted[rank]!;
      let end = 0;
      for (let i = meshFirst[index]!; i < meshFirst[index + 1]!; ++i) {
        const view = meshViews[i]!;
        if (viewEnds[view]! < 0) {
          let viewEnd = 0;
          for (let k = viewFirst[view]!; k < viewFirst[view + 1]!; ++k) {
            const chunk = viewChunks[k]!;
            if (chunkLength[chunk]! > 0) viewEnd = Math.max(viewEnd, chunkOffset[chunk]! + chunkLength[chunk]!);
          }
          viewEnds[view] = viewEnd;
          usedViews[usedCount++] = view;
        }
        end = Math.max(end, viewEnds[view]!);
      }
      ends[rank] = end;
    }
    const ranks = sortedBy(ends, numbersTo(wanted.length));
    this.meshes = Array.from(ranks, (rank) => wanted[rank]!);
    this.ends = Float64Array.from(ranks, (rank) => ends[rank]!);
    this.dataEnd = this.ends[this.ends.length - 1] ?? 0;

    let sharedBlock = -1,
      sharedUsed = 0;
    const { blocks } = this;
    const blockOfChunk = (this.blockOfChunk = new Int32Array(chunkOffset.length).fill(-1));
    const placeOfChunk = (this.placeOfChunk = new Float64Array(chunkOffset.length));
    /** Gives chunks of a list, together, their room. */
    const put = (list: Int32Array, from: number, to: number) => {
      let size = 0;
      for (let i = from; i < to; ++i) size += chunkLength[list[i]!]!;
      const padded = Math.ceil(size / ALIGNMENT) * ALIGNMENT;
      let block = 0,
        place = 0;
      if (padded > SHARED_BLOCK_BYTES / 4) {
        block = blocks.push({ capacity: size, bytes: null, usesEnd: 0 }) - 1;
      } else {
        if (sharedBlock < 0 || sharedUsed + padded > SHARED_BLOCK_BYTES) {
          sharedBlock = blocks.push({ capacity: 0, bytes: null, usesEnd: 0 }) - 1;
          sharedUsed = 0;
        }
        block = sharedBlock;
        place = sharedUsed;
        sharedUsed += padded;
        blocks[block]!.capacity = sharedUsed;
      }
      for (let i = from; i < to; ++i) {
        blockOfChunk[list[i]!] = block;
        placeOfChunk[list[i]!] = place;
        place += chunkLength[list[i]!]!;
      }
    };
    for (const view of sortedBy(viewEnds, usedViews.subarray(0, usedCount))) {
      const from = viewFirst[view]!,
        to = viewFirst[view + 1]!;
      let fresh = true;
      for (let i = from; i < to; ++i) fresh &&= blockOfChunk[viewChunks[i]!] === -1;
      if (fresh && (to - from <= 1 || new Set(viewChunks.subarray(from, to)).size === to - from)) {
        put(viewChunks, from, to);
        continue;
      }
      // Chunks that several views use, or one view twice.
      if (to - from > 1) this.scattered.set(view, null);
      for (let i = from; i < to; ++i) if (blockOfChunk[viewChunks[i]!] === -1) put(viewChunks, i, i + 1);
    }
    this.incoming = byPlace.filter((chunk) => blockOfChunk[chunk] !== -1);

    for (let rank = 0; rank < this.meshes.length; ++rank) {
      const { index } = this.meshes[rank]!;
      for (let i = meshFirst[index]!; i < meshFirst[index + 1]!; ++i) {
        const view = meshViews[i]!;
        for (let k = viewFirst[view]!; k < viewFirst[view + 1]!; ++k) {
          blocks[blockOfChunk[viewChunks[k]!]!]!.usesEnd = rank + 1; // ranks rise
        }
      }
    }
    this.releases = [...blocks].sort((a, b) => a.usesEnd - b.usesEnd);
  }

  private place(bytes: Uint8Array): void {
    const end = this.received - this.header!.dataOffset;
    const start = end - bytes.length;
    const { chunkOffset, chunkLength } = this.layout;
    while (this.nextChunk < this.incoming.length) {
      const chunk = this.incoming[this.nextChunk]!;
      const chunkStart = chunkOffset[chunk]!;
      const chunkEnd = chunkStart + chunkLength[chunk]!;
      if (chunkStart >= end) break;
      const from = Math.max(start, chunkStart),
        to = Math.min(end, chunkEnd);
      const at = this.placeOfChunk[chunk]! + from - chunkStart;
      const block = this.blocks[this.blockOfChunk[chunk]!]!;
      copyInto(this.reserve(block, at + to - from), at, bytes, from - start, to - start);
      if (chunkEnd > end) break;
      ++this.nextChunk;
    }
  }

  private reserve(block: Block, wanted: number): Uint8Array<ArrayBuffer> {
    const old = block.bytes;
    if (old && old.length >= wanted) return old;
    const size = Math.min(block.capacity, Math.max(wanted, TRUSTED_BLOCK_BYTES, 2 * (old?.length ?? 0)));
    if (size > this.limits.memoryBytes - this.held) throw this.tooMuch(size);
    let bytes: Uint8Array<ArrayBuffer>;
    try {
      bytes = new Uint8Array(size);
    } catch {
      throw this.tooMuch(size); // there is a limit that nobody set: the machine's
    }
    if (old) bytes.set(old);
    this.held += size - (old?.length ?? 0);
    block.bytes = bytes;
    return bytes;
  }
}

/** Copies a few bytes faster than two calls into the browser would. */
function copyInto(target: Uint8Array, at: number, source: Uint8Array, from: number, to: number): void {
  if (to - from > 96) {
    target.set(source.subarray(from, to), at);
    return;
  }
  for (let i = from; i < to; ++i) target[at++] = source[i]!;
}

function numbersTo(count: number): Int32Array {
  const numbers = new Int32Array(count);
  for (let i = 0; i < count; ++i) numbers[i] = i;
  return numbers;
}

/** Places sorted by their values; those with equal values stay in order. Most come in order. */
function sortedBy(values: Float64Array, places: Int32Array): Int32Array {
  for (let i = 1; i < places.length; ++i) {
    if (values[places[i - 1]!]! > values[places[i]!]!) return places.sort((a, b) => values[a]! - values[b]!);
  }
  return places;
}
