import { meshArrays, type MeshArrays, type SrcBytes } from './arrays.js';
import { checkChunks, headerTruncated, layoutFor, PREAMBLE_BYTES, readHeader, readPreamble } from './header.js';
import { exceeds, limitsFrom, type ReadLimits } from './limits.js';
import type { Layout } from './layout.js';
import type { SrcHeader, SrcMesh } from './model.js';

/** A whole file in memory. Its arrays are views of the given bytes wherever their place allows. */
export class SrcFile implements SrcBytes {
  readonly header: SrcHeader;
  readonly layout: Layout;
  private readonly data: Uint8Array<ArrayBuffer>;
  private readonly limits: ReadLimits;
  private readonly gathered = new Map<number, Uint8Array<ArrayBuffer>>();
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
    this.layout = layoutFor(this.header);
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

  blockOf(view: number): Uint8Array<ArrayBuffer> {
    return this.offsetOf(view) >= 0 ? this.data : this.gatheredView(view);
  }
  startOf(view: number): number {
    return Math.max(0, this.offsetOf(view));
  }

  /** Where a view's bytes lie in the data; -1 when they lie in pieces. */
  private offsetOf(view: number): number {
    return this.layout.viewOffset[view]!;
  }

  private gatheredView(view: number): Uint8Array<ArrayBuffer> {
    let bytes = this.gathered.get(view);
    if (!bytes) {
      const pieces: Uint8Array[] = [];
      const { viewFirst, viewChunks, chunkOffset, chunkLength } = this.layout;
      for (let i = viewFirst[view]!; i < viewFirst[view + 1]!; ++i) {
        const at = chunkOffset[viewChunks[i]!]!,
          length = chunkLength[viewChunks[i]!]!;
        this.gatheredBytes += length;
        pieces.push(this.data.subarray(at, at + length));
      }
      if (this.gatheredBytes > this.limits.memoryBytes) {
        throw exceeds('memoryBytes', this.gatheredBytes, this.limits.memoryBytes);
      }
      bytes = gather(pieces);
      this.gathered.set(view, bytes);
    }
    return bytes;
  }
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
