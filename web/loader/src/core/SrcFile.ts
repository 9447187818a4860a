import { meshArrays, type MeshArrays, type SrcBytes } from './arrays.js';
import { checkChunks, headerTruncated, PREAMBLE_BYTES, readHeader, readPreamble } from './header.js';
import { exceeds, limitsFrom, type ReadLimits } from './limits.js';
import type { SrcBufferView, SrcHeader, SrcMesh } from './model.js';

/** A whole file in memory. Its arrays are views of the given bytes wherever their place allows. */
export class SrcFile implements SrcBytes {
  readonly header: SrcHeader;
  private readonly data: Uint8Array<ArrayBuffer>;
  private readonly limits: ReadLimits;
  private readonly gathered = new Map<SrcBufferView, Uint8Array<ArrayBuffer>>();
  private gatheredBytes = 0;
  private byId: Map<string, SrcMesh> | null = null;

  /** Throws SrcError. */
  constructor(source: ArrayBuffer | Uint8Array<ArrayBuffer>, limits?: Partial<ReadLimits>) {
    const bytes = source instanceof Uint8Array ? source : new Uint8Array(source);
    this.limits = limitsFrom(limits);
    const length = readPreamble(bytes, true, this.limits)!;
    const rest = bytes.length - PREAMBLE_BYTES;
    if (length > rest) throw headerTruncated(length, rest);
    this.header = readHeader(bytes.subarray(PREAMBLE_BYTES, PREAMBLE_BYTES + length), this.limits);
    this.data = bytes.subarray(PREAMBLE_BYTES + length);
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

  blockOf(view: SrcBufferView): Uint8Array<ArrayBuffer> {
    return view.dataOffset >= 0 ? this.data : this.gatheredView(view);
  }
  startOf(view: SrcBufferView): number {
    return Math.max(0, view.dataOffset);
  }

  private gatheredView(view: SrcBufferView): Uint8Array<ArrayBuffer> {
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

/** Pieces in one block. */
export function gather(pieces: Uint8Array[]): Uint8Array<ArrayBuffer> {
  const bytes = new Uint8Array(pieces.reduce((sum, piece) => sum + piece.length, 0));
  let at = 0;
  for (const piece of pieces) {
    bytes.set(piece, at);
    at += piece.length;
  }
  return bytes;
}

/** Reads a whole file from memory. Throws SrcError. */
export function parseSrc(source: ArrayBuffer | Uint8Array<ArrayBuffer>, limits?: Partial<ReadLimits>): SrcFile {
  return new SrcFile(source, limits);
}
