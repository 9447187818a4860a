import { meshArrays, type MeshArrays, type SrcBytes } from './arrays.js';
import type { Bytes } from './bytes.js';
import { checkChunks, checkRepeats, headerTruncated, PREAMBLE_BYTES, readingHeader, readPreamble } from './header.js';
import { exceeds, limitsFrom, type ReadLimits } from './limits.js';
import type { SrcBufferView, SrcHeader, SrcMesh } from './model.js';

/** A whole file in memory. Its arrays are views of the given bytes wherever their place allows. */
export class SrcFile implements SrcBytes {
  private readonly gathered = new Map<SrcBufferView, Bytes>();
  private gatheredBytes = 0;
  private byId: Map<string, SrcMesh> | null = null;

  private next = 0;

  private constructor(
    readonly header: SrcHeader,
    private readonly data: Bytes,
    private readonly limits: ReadLimits,
  ) {}

  /** Reads the header of a file in memory, in steps of about a millisecond. Throws SrcError. */
  static *opening(
    source: ArrayBuffer | Bytes,
    limits?: Partial<ReadLimits>,
  ): Generator<void, SrcFile, void> {
    const bytes = source instanceof Uint8Array ? source : new Uint8Array(source);
    const all = limitsFrom(limits);
    const length = readPreamble(bytes, true, all)!;
    const rest = bytes.length - PREAMBLE_BYTES;
    if (length > rest) throw headerTruncated(length, rest);
    const work = readingHeader({ bytes: bytes.subarray(PREAMBLE_BYTES), count: length, length }, all);
    let step = work.next();
    for (; !step.done; step = work.next()) yield;
    return new SrcFile(step.value, bytes.subarray(PREAMBLE_BYTES + length), all);
  }

  /** Throws SrcError where the file is shorter than its header says. */
  check(): void {
    checkChunks(this.header, this.data.length);
  }

  get meshes(): SrcMesh[] {
    return this.header.meshes;
  }

  find(id: string): SrcMesh | undefined {
    this.byId ??= new Map(this.header.meshes.map((mesh) => [mesh.id, mesh]));
    return this.byId.get(id);
  }

  arrays(mesh: SrcMesh): MeshArrays {
    return meshArrays(mesh, this);
  }

  /** The next mesh whose bytes are all there, or null. */
  take(): MeshArrays | null {
    const { header, data } = this;
    if (this.next === 0) checkRepeats(header);
    const isThere = (mesh: SrcMesh) => buffersOf(mesh).every((view) => endOf(view) <= data.length);
    while (this.next < header.meshes.length) {
      const mesh = header.meshes[this.next++]!;
      if (isThere(mesh)) return meshArrays(mesh, this);
    }
    return null;
  }

  blockOf(view: SrcBufferView): Bytes {
    return view.dataOffset >= 0 ? this.data : this.gatheredView(view);
  }
  startOf(view: SrcBufferView): number {
    return Math.max(0, view.dataOffset);
  }

  private gatheredView(view: SrcBufferView): Bytes {
    let bytes = this.gathered.get(view);
    if (!bytes) {
      const pieces = view.chunks.map((c) => this.data.subarray(c.byteOffset, c.byteOffset + c.byteLength));
      this.gatheredBytes += lengthOf(view);
      if (this.gatheredBytes > this.limits.memoryBytes) {
        throw exceeds('memoryBytes', this.gatheredBytes, this.limits.memoryBytes);
      }
      bytes = gather(pieces);
      this.gathered.set(view, bytes);
    }
    return bytes;
  }
}

/** Of all chunks of a view. */
export function lengthOf(view: SrcBufferView): number {
  return view.chunks.reduce((sum, chunk) => sum + chunk.byteLength, 0);
}

/** Where the last byte of a view lies in the data section. */
export function endOf(view: SrcBufferView): number {
  return view.chunks.reduce(
    (end, { byteOffset, byteLength }) => (byteLength > 0 ? Math.max(end, byteOffset + byteLength) : end),
    0,
  );
}

/** Where a mesh's bytes lie. */
export function buffersOf({ indices, attributes }: SrcMesh): SrcBufferView[] {
  const views = attributes.map(({ view }) => view.bufferView);
  if (indices) views.push(indices.bufferView);
  return views;
}

/** Pieces in one block. */
export function gather(pieces: Uint8Array[]): Bytes {
  const bytes = new Uint8Array(pieces.reduce((sum, piece) => sum + piece.length, 0));
  let at = 0;
  for (const piece of pieces) {
    bytes.set(piece, at);
    at += piece.length;
  }
  return bytes;
}

/** Reads a whole file from memory. Throws SrcError. */
export function parseSrc(source: ArrayBuffer | Bytes, limits?: Partial<ReadLimits>): SrcFile {
  const opening = SrcFile.opening(source, limits);
  for (;;) {
    const { done, value } = opening.next();
    if (!done) continue;
    value.check();
    return value;
  }
}
