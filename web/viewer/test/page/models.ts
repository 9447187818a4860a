import { srcOf } from '../../../loader/test/support.js';
import type { JsonObject } from 'kelsrc-loader/core';

export interface Part {
  id?: string;
  meta?: JsonObject;
  material?: string;
}

/**
 * A file of squares of 1 by 1 in a row along x, one per part: 4 positions of three floats and 6 indices of 16 bits,
 * so 48 + 12 bytes each.
 */
export function squares(parts: Part[], meta: JsonObject = {}): Uint8Array<ArrayBuffer> {
  const attributeViews: JsonObject = {},
    indexViews: JsonObject = {},
    bufferChunks: JsonObject = {},
    bufferViews: JsonObject = {},
    meshes: JsonObject = {};
  const data = new Uint8Array(60 * parts.length);
  const view = new DataView(data.buffer);
  parts.forEach(({ id, meta, material = '' }, i) => {
    const start = 60 * i;
    bufferChunks[`i${i}`] = { byteOffset: start, byteLength: 12 };
    bufferChunks[`p${i}`] = { byteOffset: start + 12, byteLength: 48 };
    bufferViews[`i${i}`] = { byteLength: 12, chunks: [`i${i}`] };
    bufferViews[`p${i}`] = { byteLength: 48, chunks: [`p${i}`] };
    indexViews[`i${i}`] = { bufferView: `i${i}`, byteOffset: 0, componentType: 5123, count: 6 };
    attributeViews[`p${i}`] = {
      bufferView: `p${i}`,
      byteOffset: 0,
      byteStride: 12,
      componentType: 5126,
      count: 4,
      type: 'VEC3',
    };
    [0, 1, 2, 0, 2, 3].forEach((index, k) => view.setUint16(start + k * 2, index, true));
    const x = i * 1.5;
    [x, 0, 0, x + 1, 0, 0, x + 1, 1, 0, x, 1, 0].forEach((n, k) => view.setFloat32(start + 12 + k * 4, n, true));
    meshes[id ?? `mesh${i}`] = {
      attributes: { position: `p${i}` },
      bboxCenter: [x + 0.5, 0.5, 0],
      bboxSize: [1, 1, 0],
      indices: `i${i}`,
      material,
      primitive: 4,
      ...(meta && { meta }),
    };
  });
  const header = {
    accessors: { attributeViews, indexViews },
    bufferChunks,
    bufferViews,
    materials: {
      red: { instanceTechnique: { technique: 'plain', values: { diffuseColor: [1, 0, 0], shininess: [0.25] } } },
    },
    meshes,
    meta,
    techniques: { plain: { parameters: { transparency: { value: 0.2 }, shininess: { value: 0.5 } } } },
    textureViews: {},
    textures: {},
  };
  return srcOf(header, data);
}

/** Parts with these names. */
export const named = (...names: string[]): Uint8Array<ArrayBuffer> =>
  squares(names.map((name) => ({ meta: { name } })));
