import type { HeaderText } from './HeaderText.js';
import type { Layout } from './layout.js';

/**
 * A header in columns: what 20,000 meshes say in tens of megabytes of text, as a few arrays of numbers. A row is an
 * entry's place in its section; places in the text stand for what is seldom asked for, 0 where it is absent.
 */
export interface HeaderTable {
  text: HeaderText;
  layout: Layout;

  // IDs are places in the text, of their first character.
  chunkId: Int32Array;
  viewId: Int32Array;
  viewLength: Float64Array;

  indexId: Int32Array;
  indexBuffer: Int32Array;
  indexOffset: Float64Array;
  indexType: Int32Array;
  indexCount: Float64Array;

  attributeId: Int32Array;
  attributeBuffer: Int32Array;
  attributeOffset: Float64Array;
  attributeStride: Float64Array;
  attributeType: Int32Array;
  attributeComponents: Int32Array;
  attributeCount: Float64Array;
  /** Places of the lists of numbers; 0 for lists that are absent or change nothing. */
  decodeOffsetAt: Int32Array;
  decodeScaleAt: Int32Array;
  /** The index of the mesh that an attribute view was written for, or -1. */
  attributeOwner: Int32Array;

  meshId: Int32Array;
  meshPrimitive: Int32Array;
  meshDrawnAs: Int32Array;
  /** Rows, -1 for none. */
  meshIndices: Int32Array;
  meshMaterial: Int32Array;
  centerAt: Int32Array;
  sizeAt: Int32Array;
  metadataAt: Int32Array;
  metadataEnd: Int32Array;
  /** Of the metadata's "name", when it is a text, and of its "fit". */
  titleAt: Int32Array;
  titleEnd: Int32Array;
  fitAt: Int32Array;
  fitEnd: Int32Array;
  /** Of the metadata's "bounds". */
  drawnBoundsAt: Int32Array;
  drawnBoundsEnd: Int32Array;
  /** Of the metadata's "origin", when it is a list: a place in originsAt, the same for equal texts; else -1. */
  meshOrigin: Int32Array;
  originsAt: Int32Array;
  originsEnd: Int32Array;
  /**
   * The own attributes of the mesh with index i, from ownFirst[i] to ownFirst[i + 1]: places in
   * semanticNames, and view rows. */
  ownFirst: Int32Array;
  ownName: Int32Array;
  ownView: Int32Array;
  semanticNames: string[];
  /** Rows of meshes in the order in which they were written. */
  order: Int32Array;

  materialId: Int32Array;
  /** A place in valuesAt, the same for equal texts; -1 without values. */
  materialValues: Int32Array;
  valuesAt: Int32Array;
  valuesEnd: Int32Array;
  /** A place in techniqueNames; -1 for none. */
  materialTechnique: Int32Array;
  techniqueNames: string[];

  metadata: [from: number, to: number];
  techniques: [from: number, to: number];
}
