import type { ReadLimits } from '../limits.js';
import type { Scanner } from '../scanner.js';
import { AttributeViews } from './AttributeViews.js';
import { BufferViews } from './BufferViews.js';
import { Chunks } from './Chunks.js';
import { IndexViews } from './IndexViews.js';
import { Materials } from './Materials.js';
import { Meshes } from './Meshes.js';

/** A section of the header that is read entry by entry. */
export interface Section {
  read(): void;
}

/** A piece of the header's text, up to 0 when it is absent. */
export type Piece = [from: number, to: number];

/** All that a header says, before its names are looked up. */
export class HeaderSections {
  readonly chunks: Chunks;
  readonly bufferViews: BufferViews;
  readonly indexViews: IndexViews;
  readonly attributeViews: AttributeViews;
  readonly materials: Materials;
  readonly meshes: Meshes;
  metadata: Piece = [0, 0];
  techniques: Piece = [0, 0];

  constructor(scanner: Scanner, limits: ReadLimits) {
    this.chunks = new Chunks(scanner);
    this.bufferViews = new BufferViews(scanner, this.chunks, limits.entries);
    this.indexViews = new IndexViews(scanner, this.bufferViews);
    this.attributeViews = new AttributeViews(scanner, this.bufferViews);
    this.materials = new Materials(scanner);
    this.meshes = new Meshes(scanner, this.attributeViews, this.indexViews, this.materials, limits.entries);
  }
}
