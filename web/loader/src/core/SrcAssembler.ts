import { meshArrays, type MeshArrays, type SrcBytes } from './arrays.js';
import { checkChunks, headerTruncated, PREAMBLE_BYTES, readHeader, readPreamble } from './header.js';
import { exceeds, limitsFrom, type ReadLimits } from './limits.js';
import type { SrcBufferView, SrcChunk, SrcHeader, SrcMesh } from './model.js';
import { SrcError } from './SrcError.js';
import { gather } from './SrcFile.js';

/** Views share a block of memory up to this size, so that small meshes cost no allocation each. */
const SHARED_BLOCK_BYTES = 256 * 1024;
/** A larger block than this grows as its bytes arrive: a file that only claims them gets no memory. */
const TRUSTED_BLOCK_BYTES = 64 * 2 ** 20;
/** Views begin at multiples of this in memory, whatever their place in the file. */
const ALIGNMENT = 8;

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

  private readonly limits: ReadLimits;
  private front: Uint8Array[] = [];
  private headerLength: number | null = null;

  private blocks: Block[] = [];
  private held = 0;
  private readonly blockOf: number[] = []; // by chunk index
  private readonly placeOf: number[] = []; // by chunk index: in the block
  // Buffer views whose chunks do not lie together in memory, and their bytes once they were asked for.
  private readonly scattered = new Map<number, Uint8Array<ArrayBuffer> | null>();
  private incoming: SrcChunk[] = []; // with bytes, by place in the file
  private nextChunk = 0;
  private meshes: SrcMesh[] = []; // by where their last byte lies
  private ends: number[] = []; // beside meshes
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
    this.received += bytes.length;
    if (this.header) {
      this.place(bytes);
      return;
    }
    this.front.push(bytes);
    if (this.headerLength === null) {
      if (this.front.length > 1) this.front = [gather(this.front)];
      this.headerLength = readPreamble(this.front[0]!, false, this.limits);
      if (this.headerLength === null) return;
    }
    const end = PREAMBLE_BYTES + this.headerLength;
    if (this.received < end) return;
    const start = this.front.length > 1 ? gather(this.front) : this.front[0]!;
    this.front = [];
    this.header = readHeader(start.subarray(PREAMBLE_BYTES, end), this.limits);
    this.plan(this.header);
    this.received = end;
    if (start.length > end) this.push(start.subarray(end));
  }

  /** Says that no more bytes will come. Throws SrcError when some are missing. */
  end(): void {
    if (!this.header) {
      if (this.headerLength === null) readPreamble(gather(this.front), true, this.limits);
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

  bytesOf(view: SrcBufferView): Uint8Array<ArrayBuffer> {
    const first = view.chunks[0];
    if (!first) return new Uint8Array(0);
    const known = this.scattered.get(view.index);
    if (known) return known;
    if (known === undefined) {
      const place = this.placeOf[first.index]!;
      return this.bytesIn(this.blockOf[first.index]!).subarray(place, place + view.storedBytes);
    }
    const length = view.chunks.reduce((sum, chunk) => sum + chunk.byteLength, 0);
    if (length > this.limits.memoryBytes - this.held) throw this.tooMuch(length);
    const pieces = view.chunks.map((chunk) => {
      const place = this.placeOf[chunk.index]!;
      return this.bytesIn(this.blockOf[chunk.index]!).subarray(place, place + chunk.byteLength);
    });
    this.held += length;
    const bytes = gather(pieces).subarray(0, view.storedBytes);
    this.scattered.set(view.index, bytes);
    return bytes;
  }

  private bytesIn(block: number): Uint8Array<ArrayBuffer> {
    return this.blocks[block]!.bytes ?? new Uint8Array(0); // none yet: only views without bytes ask
  }

  private tooMuch(more: number): SrcError {
    return exceeds('memoryBytes', this.held + more, this.limits.memoryBytes, { byteOffset: this.received });
  }

  /** Decides where every chunk will lie in memory, and in which order meshes become complete. */
  private plan(header: SrcHeader): void {
    checkChunks(header, header.dataBytes); // a view that repeats chunks would be longer than all data
    const byPlace = header.chunks.filter((c) => c.byteLength > 0).sort((a, b) => a.byteOffset - b.byteOffset);
    for (let i = 1; i < byPlace.length; ++i) {
      const before = byPlace[i - 1]!,
        after = byPlace[i]!;
      if (after.byteOffset < before.byteOffset + before.byteLength) {
        throw new SrcError('STREAM_OVERLAP', {
          byteOffset: header.dataOffset + after.byteOffset,
          path: `/bufferChunks/${after.id}`,
        });
      }
    }

    const viewEnds = new Map<SrcBufferView, number>();
    const endOf = (view: SrcBufferView) => {
      let end = viewEnds.get(view);
      if (end === undefined) {
        end = 0;
        for (const c of view.chunks) if (c.byteLength > 0) end = Math.max(end, c.byteOffset + c.byteLength);
        viewEnds.set(view, end);
      }
      return end;
    };
    const wanted = this.select ? this.select(header) : header.meshes;
    const ends = new Map<SrcMesh, number>();
    for (const mesh of wanted) {
      let end = mesh.indices ? endOf(mesh.indices.bufferView) : 0;
      for (const { view } of mesh.attributes) end = Math.max(end, endOf(view.bufferView));
      ends.set(mesh, end);
    }
    this.meshes = [...wanted].sort((a, b) => ends.get(a)! - ends.get(b)!);
    this.ends = this.meshes.map((mesh) => ends.get(mesh)!);
    this.dataEnd = this.ends[this.ends.length - 1] ?? 0;

    const views = [...viewEnds.keys()].sort((a, b) => viewEnds.get(a)! - viewEnds.get(b)!);
    let shared: { block: number; used: number } | null = null;
    const room = (bytes: number): { block: number; place: number } => {
      const padded = Math.ceil(bytes / ALIGNMENT) * ALIGNMENT;
      if (padded > SHARED_BLOCK_BYTES / 4) {
        this.blocks.push({ capacity: bytes, bytes: null, usesEnd: 0 });
        return { block: this.blocks.length - 1, place: 0 };
      }
      if (!shared || shared.used + padded > SHARED_BLOCK_BYTES) {
        this.blocks.push({ capacity: 0, bytes: null, usesEnd: 0 });
        shared = { block: this.blocks.length - 1, used: 0 };
      }
      const place = shared.used;
      shared.used += padded;
      this.blocks[shared.block]!.capacity = shared.used;
      return { block: shared.block, place };
    };
    const put = (chunks: SrcChunk[]) => {
      let { block, place } = room(chunks.reduce((sum, chunk) => sum + chunk.byteLength, 0));
      for (const chunk of chunks) {
        this.blockOf[chunk.index] = block;
        this.placeOf[chunk.index] = place;
        place += chunk.byteLength;
      }
    };
    this.blockOf.length = this.placeOf.length = header.chunks.length;
    this.blockOf.fill(-1);
    for (const view of views) {
      const fresh = view.chunks.every((c) => this.blockOf[c.index] === -1);
      if (fresh && new Set(view.chunks).size === view.chunks.length) {
        put(view.chunks);
        continue;
      }
      // Chunks that several views use, or one view twice.
      if (view.chunks.length > 1) this.scattered.set(view.index, null);
      for (const chunk of view.chunks) if (this.blockOf[chunk.index] === -1) put([chunk]);
    }
    this.incoming = byPlace.filter((chunk) => this.blockOf[chunk.index] !== -1);

    const viewUsesEnd = new Map<SrcBufferView, number>();
    this.meshes.forEach((mesh, rank) => {
      if (mesh.indices) viewUsesEnd.set(mesh.indices.bufferView, rank + 1);
      for (const { view } of mesh.attributes) viewUsesEnd.set(view.bufferView, rank + 1);
    });
    for (const [view, rank] of viewUsesEnd) {
      for (const chunk of view.chunks) {
        const block = this.blocks[this.blockOf[chunk.index]!]!;
        block.usesEnd = Math.max(block.usesEnd, rank);
      }
    }
    this.releases = [...this.blocks].sort((a, b) => a.usesEnd - b.usesEnd);
  }

  private place(bytes: Uint8Array): void {
    const end = this.received - this.header!.dataOffset;
    const start = end - bytes.length;
    while (this.nextChunk < this.incoming.length) {
      const chunk = this.incoming[this.nextChunk]!;
      const chunkEnd = chunk.byteOffset + chunk.byteLength;
      if (chunk.byteOffset >= end) break;
      const from = Math.max(start, chunk.byteOffset),
        to = Math.min(end, chunkEnd);
      const at = this.placeOf[chunk.index]! + from - chunk.byteOffset;
      const block = this.blocks[this.blockOf[chunk.index]!]!;
      this.reserve(block, at + to - from).set(bytes.subarray(from - start, to - start), at);
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
