import type { SrcHeader } from './model.js';

/**
 * Where a header's bytes lie, in columns: what puts files together walks through hundreds of thousands of chunks
 * and views, and needs no object of any. Entry i's list is from first[i] to first[i + 1].
 */
export interface Layout {
  chunkOffset: Float64Array;
  chunkLength: Float64Array;
  /** The chunks of each buffer view. */
  viewFirst: Int32Array;
  viewChunks: Int32Array;
  viewStored: Float64Array;
  /** Where a view's bytes begin in the data section, or -1 when they do not lie together. */
  viewOffset: Float64Array;
  /** The buffer views of each mesh: of its indices and its attributes. */
  meshFirst: Int32Array;
  meshViews: Int32Array;
}

/** The layout of a header that is made of objects. */
export function layoutOf(header: SrcHeader): Layout {
  const viewFirst = [0],
    viewChunks: number[] = [],
    meshFirst = [0],
    meshViews: number[] = [];
  for (const view of header.bufferViews) {
    for (const chunk of view.chunks) viewChunks.push(chunk.index);
    viewFirst.push(viewChunks.length);
  }
  for (const { indices, attributes } of header.meshes) {
    if (indices) meshViews.push(indices.bufferView.index);
    for (const { view } of attributes) meshViews.push(view.bufferView.index);
    meshFirst.push(meshViews.length);
  }
  return {
    chunkOffset: Float64Array.from(header.chunks, (chunk) => chunk.byteOffset),
    chunkLength: Float64Array.from(header.chunks, (chunk) => chunk.byteLength),
    viewFirst: Int32Array.from(viewFirst),
    viewChunks: Int32Array.from(viewChunks),
    viewOffset: Float64Array.from(header.bufferViews, (view) => view.dataOffset),
    viewStored: Float64Array.from(header.bufferViews, (view) => view.storedBytes),
    meshFirst: Int32Array.from(meshFirst),
    meshViews: Int32Array.from(meshViews),
  };
}
