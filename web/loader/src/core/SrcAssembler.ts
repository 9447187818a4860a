import { meshArrays, type MeshArrays, type SrcBytes } from './arrays.js';
import type { Bytes } from './bytes.js';
import { pointerOf } from './faults.js';
import { checkChunks, checkRepeats, headerTruncated, PREAMBLE_BYTES, readingHeader, readPreamble } from './header.js';
import type { Arriving, Walking } from './headerWalk.js';
import { exceeds, limitsFrom, type ReadLimits } from './limits.js';
import type { SrcBufferView, SrcChunk, SrcHeader, SrcMesh } from './model.js';
import { SrcError } from './SrcError.js';
import { buffersOf, endOf, gather, lengthOf } from './SrcFile.js';

/** Views share a block of memory up to this size, so that small meshes cost no allocation each. */
const SHARED_BLOCK_BYTES = 256 * 1024;
/** A larger block than this grows as its bytes arrive: a file that only claims them gets no memory. */
const TRUSTED_BLOCK_BYTES = 64 * 2 ** 20;
/** Views begin at multiples of this in memory, whatever their place in the file. */
const ALIGNMENT = 8;

const NO_BYTES = new Uint8Array(0);

interface Block {
  capacity: number;
  bytes: Bytes | null;
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

  private readonly limits: ReadLimits;
  private front: Uint8Array = NO_BYTES; // until the preamble is there
  private headerLength: number | null = null;
  private text: Arriving = { bytes: NO_BYTES, count: 0, length: 0 };
  private reading: Walking<SrcHeader> | null = null;

  private blocks: Block[] = [];
  private held = 0;
  private blockOfChunk = new Int32Array(0);
  private placeOfChunk = new Float64Array(0); // in the block
  // Buffer views whose chunks do not lie together in memory, and their bytes once they were asked for.
  private readonly scattered = new Map<SrcBufferView, Bytes | null>();
  private incoming: SrcChunk[] = []; // those with bytes that are wanted, by place in the file
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
    const { text } = this;
    text.length = this.headerLength;
    const taken = bytes.subarray(0, text.length - text.count);
    this.makeRoom(text.count + taken.length);
    text.bytes.set(taken, text.count);
    text.count += taken.length;
    this.reading ??= readingHeader(text, this.limits);
    for (;;) {
      const { done, value } = this.reading.next();
      if (done) {
        this.header = value;
        break;
      }
      if (value === 'hungry') return;
      yield;
    }
    this.text = { bytes: NO_BYTES, count: 0, length: 0 };
    this.reading = null;
    yield;
    yield* this.plan(this.header);
    this.received -= bytes.length - taken.length; // counted again
    if (bytes.length > taken.length) yield* this.pushing(bytes.subarray(taken.length));
  }

  /** In the header's text, for its first `count` bytes. */
  private makeRoom(count: number): void {
    const old = this.text.bytes;
    if (old.length >= count) return;
    const room = Math.min(this.headerLength!, Math.max(count, TRUSTED_BLOCK_BYTES, 2 * old.length));
    this.text.bytes = new Uint8Array(room);
    this.text.bytes.set(old);
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

  blockOf(view: SrcBufferView): Bytes {
    const known = this.scattered.size > 0 ? this.scattered.get(view) : undefined;
    if (known) return known;
    const [first] = view.chunks;
    if (known === undefined) return first ? this.bytesIn(this.blockOfChunk[first.index]!) : NO_BYTES;
    const length = lengthOf(view);
    if (length > this.limits.memoryBytes - this.held) throw this.tooMuch(length);
    this.held += length;
    const pieces = view.chunks.map(({ index, byteLength }) => {
      const place = this.placeOfChunk[index]!;
      return this.bytesIn(this.blockOfChunk[index]!).subarray(place, place + byteLength);
    });
    const bytes = gather(pieces);
    this.scattered.set(view, bytes);
    return bytes;
  }

  startOf(view: SrcBufferView): number {
    if (this.scattered.size > 0 && this.scattered.has(view)) return 0;
    const [first] = view.chunks;
    return first ? this.placeOfChunk[first.index]! : 0;
  }

  private bytesIn(block: number): Bytes {
    return this.blocks[block]!.bytes ?? NO_BYTES; // none yet: only views without bytes ask
  }

  private tooMuch(more: number): SrcError {
    return exceeds('memoryBytes', this.held + more, this.limits.memoryBytes, { byteOffset: this.received });
  }

  /** Decides where every chunk will lie in memory, and in which order meshes become complete. */
  private *plan(header: SrcHeader): Generator<void, void> {
    checkRepeats(header);
    const { chunks } = header;
    const byPlace = sortedBy(
      chunks.filter((chunk) => chunk.byteLength > 0),
      (chunk) => chunk.byteOffset,
    );
    for (let i = 1; i < byPlace.length; ++i) {
      const before = byPlace[i - 1]!,
        { byteOffset, id } = byPlace[i]!;
      if (byteOffset >= before.byteOffset + before.byteLength) continue;
      throw new SrcError('STREAM_OVERLAP', {
        byteOffset: header.dataOffset + byteOffset,
        path: pointerOf(['bufferChunks', id]),
      });
    }
    yield;

    const viewEnds = new Float64Array(header.bufferViews.length).fill(-1); // -1: nobody wants it
    const used: SrcBufferView[] = [];
    const wanted = this.select ? this.select(header) : header.meshes;
    const endOfMesh = new Map<SrcMesh, number>();
    for (const mesh of wanted) {
      let end = 0;
      for (const view of buffersOf(mesh)) {
        if (viewEnds[view.index]! < 0) {
          viewEnds[view.index] = endOf(view);
          used.push(view);
        }
        end = Math.max(end, viewEnds[view.index]!);
      }
      endOfMesh.set(mesh, end);
    }
    this.meshes = sortedBy([...wanted], (mesh) => endOfMesh.get(mesh)!);
    this.ends = Float64Array.from(this.meshes, (mesh) => endOfMesh.get(mesh)!);
    this.dataEnd = this.ends[this.ends.length - 1] ?? 0;
    yield;

    let sharedBlock = -1,
      sharedUsed = 0;
    const { blocks } = this;
    const blockOfChunk = (this.blockOfChunk = new Int32Array(chunks.length).fill(-1));
    const placeOfChunk = (this.placeOfChunk = new Float64Array(chunks.length));
    /** Gives chunks of a list, together, their room. */
    const put = (list: SrcChunk[]) => {
      const size = list.reduce((sum, chunk) => sum + chunk.byteLength, 0);
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
      for (const { index, byteLength } of list) {
        blockOfChunk[index] = block;
        placeOfChunk[index] = place;
        place += byteLength;
      }
    };
    for (const view of sortedBy(used, ({ index }) => viewEnds[index]!)) {
      const { length } = view.chunks;
      const isFresh = view.chunks.every((chunk) => blockOfChunk[chunk.index] === -1);
      if (isFresh && (length <= 1 || new Set(view.chunks).size === length)) {
        put(view.chunks);
        continue;
      }
      // Chunks that several views use, or one view twice.
      if (length > 1) this.scattered.set(view, null);
      for (const chunk of view.chunks) if (blockOfChunk[chunk.index] === -1) put([chunk]);
    }
    this.incoming = byPlace.filter((chunk) => blockOfChunk[chunk.index] !== -1);
    yield;

    for (const [rank, mesh] of this.meshes.entries()) {
      for (const view of buffersOf(mesh)) {
        for (const { index } of view.chunks) blocks[blockOfChunk[index]!]!.usesEnd = rank + 1; // ranks rise
      }
    }
    this.releases = [...blocks].sort((a, b) => a.usesEnd - b.usesEnd);
  }

  private place(bytes: Uint8Array): void {
    const end = this.received - this.header!.dataOffset;
    const start = end - bytes.length;
    while (this.nextChunk < this.incoming.length) {
      const chunk = this.incoming[this.nextChunk]!;
      const chunkStart = chunk.byteOffset;
      const chunkEnd = chunkStart + chunk.byteLength;
      if (chunkStart >= end) break;
      const from = Math.max(start, chunkStart),
        to = Math.min(end, chunkEnd);
      const at = this.placeOfChunk[chunk.index]! + from - chunkStart;
      const block = this.blocks[this.blockOfChunk[chunk.index]!]!;
      copyInto(this.reserve(block, at + to - from), at, bytes, from - start, to - start);
      if (chunkEnd > end) break;
      ++this.nextChunk;
    }
  }

  private reserve(block: Block, wanted: number): Bytes {
    const old = block.bytes;
    if (old && old.length >= wanted) return old;
    const size = Math.min(block.capacity, Math.max(wanted, TRUSTED_BLOCK_BYTES, 2 * (old?.length ?? 0)));
    if (size > this.limits.memoryBytes - this.held) throw this.tooMuch(size);
    let bytes: Bytes;
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

/** Those with equal keys stay in order. Most come in order. */
function sortedBy<T>(list: T[], keyOf: (item: T) => number): T[] {
  for (let i = 1; i < list.length; ++i) {
    if (keyOf(list[i - 1]!) > keyOf(list[i]!)) return list.sort((a, b) => keyOf(a) - keyOf(b));
  }
  return list;
}
