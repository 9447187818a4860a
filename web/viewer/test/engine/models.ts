import { srcOf } from '../../../loader/test/support.js';

export interface TestMesh {
  id?: string;
  /** Three numbers each. */
  positions: number[];
  indices?: number[];
  /** WebGL's number; triangles by default. */
  primitive?: number;
  normals?: number[];
  material?: string;
  /** Stores positions as 16-bit codes: value = (code + offset) / scale. */
  codes?: { offset: number[]; scale: number[] };
  /** The metadata's; positions are about it. */
  origin?: unknown;
  /** The metadata's, where it is not that of all positions. */
  bounds?: number[];
}

type Values = Record<string, number | number[]>;

/** An SRC file of these meshes, written out by hand: nothing of the writer or the reader has a part in it. */
export function fileOf(meshes: TestMesh[], materials: Record<string, Values> = {}): Uint8Array<ArrayBuffer> {
  const header = {
    accessors: { attributeViews: {} as Record<string, object>, indexViews: {} as Record<string, object> },
    bufferChunks: {} as Record<string, object>,
    bufferViews: {} as Record<string, object>,
    materials: {} as Record<string, object>,
    meshes: {} as Record<string, object>,
    meta: {},
    techniques: {},
    textureViews: {},
    textures: {},
  };
  for (const [id, values] of Object.entries(materials)) header.materials[id] = { instanceTechnique: { values } };
  const blocks: Uint8Array[] = [];
  let size = 0,
    views = 0;
  const store = (array: Float32Array | Uint16Array): string => {
    const id = `b${blocks.length}`;
    const bytes = new Uint8Array(array.buffer);
    header.bufferChunks[id] = { byteOffset: size, byteLength: bytes.length };
    header.bufferViews[id] = { byteLength: bytes.length, chunks: [id] };
    const padded = new Uint8Array(Math.ceil(bytes.length / 4) * 4);
    padded.set(bytes);
    blocks.push(padded);
    size += padded.length;
    return id;
  };
  const attribute = (array: Float32Array | Uint16Array, codes?: TestMesh['codes']): string => {
    const id = `a${views++}`;
    header.accessors.attributeViews[id] = {
      bufferView: store(array),
      byteOffset: 0,
      byteStride: 3 * array.BYTES_PER_ELEMENT,
      componentType: array instanceof Float32Array ? 5126 : 5123,
      count: array.length / 3,
      decodeOffset: codes?.offset ?? [0, 0, 0],
      decodeScale: codes?.scale ?? [1, 1, 1],
      type: 'VEC3',
    };
    return id;
  };
  meshes.forEach(({ id = '', positions, indices, primitive = 4, normals, material = '', codes, origin, bounds }, number) => {
    const indexView = `i${number}`;
    if (indices) {
      const view = { bufferView: store(new Uint16Array(indices)), byteOffset: 0 };
      header.accessors.indexViews[indexView] = { ...view, componentType: 5123, count: indices.length };
    }
    const encoded = codes
      ? new Uint16Array(positions.map((x, i) => Math.round(x * codes.scale[i % 3]! - codes.offset[i % 3]!)))
      : new Float32Array(positions);
    const attributes: Record<string, string> = { position: attribute(encoded, codes) };
    if (normals) attributes.normal = attribute(new Float32Array(normals));
    const low = [Infinity, Infinity, Infinity],
      high = [-Infinity, -Infinity, -Infinity];
    positions.forEach((x, i) => {
      low[i % 3] = Math.min(low[i % 3]!, x);
      high[i % 3] = Math.max(high[i % 3]!, x);
    });
    header.meshes[id || `mesh${number}`] = {
      attributes,
      indices: indices ? indexView : '',
      material,
      primitive,
      bboxCenter: low.map((x, i) => (x + high[i]!) / 2),
      bboxSize: low.map((x, i) => high[i]! - x),
      ...((origin !== undefined || bounds) && { meta: { bounds, origin } }),
    };
  });
  const data = new Uint8Array(size);
  let at = 0;
  for (const block of blocks) {
    data.set(block, at);
    at += block.length;
  }
  return srcOf(header, data);
}

/** A square in a plane of constant z, of two triangles. */
export function square(x: number, y: number, z: number, size = 1, more: Partial<TestMesh> = {}): TestMesh {
  const positions = [x, y, z, x + size, y, z, x + size, y + size, z, x, y + size, z];
  return { positions, indices: [0, 1, 2, 0, 2, 3], ...more };
}

/** A cube of 12 triangles that turn outwards. */
export function cube(size = 1): TestMesh {
  const positions = Array.from({ length: 8 }, (_, i) => [i & 1, (i >> 1) & 1, i >> 2].map((x) => x * size)).flat();
  const sides = [
    [0, 2, 3, 1],
    [4, 5, 7, 6],
    [0, 1, 5, 4],
    [2, 6, 7, 3],
    [0, 4, 6, 2],
    [1, 3, 7, 5],
  ];
  return { positions, indices: sides.flatMap(([a, b, c, d]) => [a!, b!, c!, a!, c!, d!]) };
}

/** Squares side by side, `across` in a row, each with room around it. */
export function field(count: number, across: number, more: Partial<TestMesh> = {}): TestMesh[] {
  return Array.from({ length: count }, (_, i) => square((i % across) * 2, Math.floor(i / across) * 2, 0, 1, more));
}

/** The file's bytes up to where its data begin. */
export function headerBytes(bytes: Uint8Array): number {
  return 12 + new DataView(bytes.buffer, bytes.byteOffset).getUint32(8, true);
}
