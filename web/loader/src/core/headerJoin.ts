import { Integers } from './columns.js';
import type { Layout } from './layout.js';
import { componentSize, UNSIGNED_SHORT } from './model.js';
import { declined, type Names } from './names.js';
import { type AttributeViews, elementSize } from './sections/AttributeViews.js';
import type { HeaderSections } from './sections/HeaderSections.js';
import type { IndexViews } from './sections/IndexViews.js';
import type { Meshes } from './sections/Meshes.js';
import type { HeaderTable } from './table.js';
import { writingOrder } from './writingOrder.js';

// What the entries of a header say about each other, once all of them are read.

const encoder = new TextEncoder();
const POSITION = encoder.encode('position');
const COMBINED_NAME = encoder.encode('pos3us_nor2ub_oct');

/** Names replaced by rows; -1 stays, and is what a name without an entry becomes where it `mayDangle`. */
function resolved(names: Integers, rows: Int32Array, mayDangle: boolean): Int32Array {
  const result = names.taken();
  for (let i = 0; i < result.length; ++i) {
    if (result[i]! < 0) continue;
    result[i] = rows[result[i]!]!;
    if (result[i]! < 0 && !mayDangle) declined();
  }
  return result;
}

/** Where the bytes of chunks and of buffer views lie. */
export type Placement = Omit<Layout, 'meshFirst' | 'meshViews'>;

export function placementOf({ chunks, bufferViews }: HeaderSections): Placement {
  const chunkOffset = chunks.byteOffset.taken(),
    chunkLength = chunks.byteLength.taken(),
    viewFirst = bufferViews.first.taken(),
    viewLength = bufferViews.byteLength;
  const viewChunks = resolved(bufferViews.chunkName, chunks.ids.rows(), false);
  const viewStored = new Float64Array(viewLength.length),
    viewOffset = new Float64Array(viewLength.length);
  for (let view = 0; view < viewLength.length; ++view) {
    let stored = 0,
      end = -1,
      start = 0;
    const first = viewFirst[view]!;
    for (let i = first; i < viewFirst[view + 1]!; ++i) {
      const chunk = viewChunks[i]!;
      const at = chunkOffset[chunk]!;
      stored += chunkLength[chunk]!;
      if (i === first) start = at;
      else if (at !== end) start = -1;
      end = at + chunkLength[chunk]!;
    }
    viewStored[view] = Math.min(stored, viewLength.at(view));
    viewOffset[view] = start;
  }
  return { chunkOffset, chunkLength, viewFirst, viewChunks, viewStored, viewOffset };
}

/** The rows of the buffer views that hold the elements of index and attribute views. */
export type Buffers = Pick<HeaderTable, 'indexBuffer' | 'attributeBuffer'>;

/** Finds them, and declines views that reach behind the `viewStored` bytes of theirs. */
export function buffersOf(sections: HeaderSections, viewStored: Float64Array): Buffers {
  const { indexViews, attributeViews, bufferViews } = sections;
  const rows = bufferViews.ids.rows();
  const indexBuffer = resolved(indexViews.bufferName, rows, false);
  const attributeBuffer = resolved(attributeViews.bufferName, rows, false);
  checkIndexViews(indexViews, indexBuffer, viewStored);
  checkAttributeViews(attributeViews, attributeBuffer, viewStored);
  return { indexBuffer, attributeBuffer };
}

function checkIndexViews(views: IndexViews, buffers: Int32Array, viewStored: Float64Array): void {
  const { byteOffset, componentType, count } = views;
  for (let row = 0; row < buffers.length; ++row) {
    const size = componentSize(componentType.at(row));
    const stored = viewStored[buffers[row]!]!;
    if (!isInside(stored, byteOffset.at(row), count.at(row), size, size)) declined();
  }
}

function checkAttributeViews(views: AttributeViews, buffers: Int32Array, viewStored: Float64Array): void {
  const { byteOffset, byteStride, componentType, components, count } = views;
  for (let row = 0; row < buffers.length; ++row) {
    const stride = byteStride.at(row);
    const size = elementSize(componentType.at(row), components.at(row), stride);
    const stored = viewStored[buffers[row]!]!;
    if (!isInside(stored, byteOffset.at(row), count.at(row), stride, size)) declined();
  }
}

/** As in the tree's reader: rounding of large sums and products lets nothing through. */
function isInside(stored: number, offset: number, count: number, stride: number, element: number): boolean {
  const room = stored - offset;
  return room >= 0 && (count === 0 || (element <= room && (count - 1) * stride <= room - element));
}

/** What meshes are made of: rows of other sections. */
export interface MeshParts extends Pick<HeaderTable, 'meshIndices' | 'meshMaterial' | 'order'> {
  /** The attributes of the mesh in row i are those from first[i] to first[i + 1]. */
  first: Int32Array;
  views: Int32Array;
}

export function partsOf(sections: HeaderSections, bytes: Uint8Array): MeshParts {
  const { meshes, attributeViews, indexViews, materials } = sections;
  const views = resolved(meshes.viewName, attributeViews.ids.rows(), false);
  const meshIndices = resolved(meshes.indexName, indexViews.ids.rows(), false);
  const meshMaterial = resolved(meshes.materialName, materials.ids.rows(), true);
  meshes.ids.rows(); // no ID comes twice
  const order = writingOrder(bytes, meshes.ids.symbols, meshes.ids.names);
  return { meshIndices, meshMaterial, order, first: meshes.first.taken(), views };
}

/** Which mesh each attribute view was written for, and what is left to each mesh. */
export type Ownership = Pick<HeaderTable, 'attributeOwner' | 'ownFirst' | 'ownName' | 'ownView'> &
  Pick<Layout, 'meshFirst' | 'meshViews'>;

/** Who comes first owns a view; then each mesh keeps what is its own. */
export function ownershipOf(sections: HeaderSections, parts: MeshParts, buffers: Buffers): Ownership {
  const { meshes, attributeViews } = sections;
  const { order, first, views, meshIndices } = parts;
  const { count } = attributeViews;
  const owner = new Int32Array(attributeViews.ids.length).fill(-1);
  const ownFirst = new Int32Array(order.length + 1),
    meshFirst = new Int32Array(order.length + 1);
  const ownName = new Integers(),
    ownView = new Integers(),
    meshViews = new Integers();
  const positions = positionsOf(meshes, attributeViews, parts);
  for (let index = 0; index < order.length; ++index) {
    const row = order[index]!;
    const from = first[row]!,
      to = first[row + 1]!,
      indices = meshIndices[row]!,
      position = positions[row]!;
    for (let i = from; i < to; ++i) if (owner[views[i]!]! < 0) owner[views[i]!] = index;
    if (indices >= 0) meshViews.push(buffers.indexBuffer[indices]!);
    const by = position < 0 ? index : owner[position]!;
    for (let i = from; i < to; ++i) {
      const view = views[i]!;
      if (owner[view] !== by || (position >= 0 && count.at(view) !== count.at(position))) continue;
      ownName.push(meshes.semantic.at(i));
      ownView.push(view);
      meshViews.push(buffers.attributeBuffer[view]!);
    }
    ownFirst[index + 1] = ownName.length;
    meshFirst[index + 1] = meshViews.length;
  }
  return {
    attributeOwner: owner,
    ownFirst,
    ownName: ownName.taken(),
    ownView: ownView.taken(),
    meshFirst,
    meshViews: meshViews.taken(),
  };
}

/** The row of the view that holds the positions of each mesh, by the mesh's row; -1 for none. */
function positionsOf(meshes: Meshes, attributeViews: AttributeViews, { first, views }: MeshParts): Int32Array {
  const { semantic, semantics } = meshes;
  const { componentType, components } = attributeViews;
  const plain = symbolOf(POSITION, semantics),
    combined = symbolOf(COMBINED_NAME, semantics);
  const positions = new Int32Array(meshes.ids.length).fill(-1);
  for (let row = 0; row < positions.length; ++row) {
    for (let i = first[row]!; i < first[row + 1]!; ++i) {
      const view = views[i]!,
        name = semantic.at(i);
      if (name === plain) {
        positions[row] = view;
      } else if (name === combined && positions[row]! < 0) {
        if (componentType.at(view) === UNSIGNED_SHORT && components.at(view) === 4) positions[row] = view;
      }
    }
  }
  return positions;
}

/** -1 when the name is not among them. */
function symbolOf(name: Uint8Array, names: Names): number {
  for (let symbol = 0; symbol < names.length; ++symbol) if (names.is(symbol, name)) return symbol;
  return -1;
}
