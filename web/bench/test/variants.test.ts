import { Document, NodeIO } from '@gltf-transform/core';
import { describe, expect, it } from 'vitest';
import { factsOf, makeVariants, quantizeNormals, quantizePositions, quantizeTexcoords } from '../variants.js';

describe('quantization', () => {
  it('moves positions by at most half a code of the longest side', () => {
    const values = [10, -3, 0.5, 14, -2.5, 0.25, 11.234567, -2.987654, 0.3333];
    const { codes, min, size } = quantizePositions(values);
    expect(size).toBe(4);
    const off = values.map((x, i) => Math.abs((codes[i]! / 65535) * size + min[i % 3]! - x));
    expect(Math.max(...off)).toBeLessThanOrEqual((4 / 65535 / 2) * (1 + 1e-9));
  });

  it('keeps the corners of the box', () => {
    const { codes } = quantizePositions([0, 0, 0, 2, 1, 2]);
    expect([...codes]).toEqual([0, 0, 0, 65535, 32768, 65535]);
  });

  it('gives a point a size that can be divided by', () => {
    expect(quantizePositions([7, 8, 9])).toEqual({ codes: new Uint16Array(3), min: [7, 8, 9], size: 1 });
  });

  it('takes normals to signed bytes', () => {
    expect([...quantizeNormals([-1, 0, 1, 0.5, -0.25, 1.0000001])]).toEqual([-127, 0, 127, 64, -32, 127]);
  });

  it('takes texture coordinates to 16 bits', () => {
    expect([...quantizeTexcoords([0, 1, 0.25])]).toEqual([0, 65535, 16384]);
  });

  it('refuses texture coordinates that it would have to wrap', () => {
    expect(() => quantizeTexcoords([1.5])).toThrow('1.5');
  });
});

/** A triangle per node; the second lies 10 further along x. */
async function twoTriangles(): Promise<Uint8Array> {
  const document = new Document();
  const buffer = document.createBuffer();
  const scene = document.createScene();
  for (const x of [0, 10]) {
    const accessor = (type: 'VEC2' | 'VEC3', values: number[]) =>
      document.createAccessor().setBuffer(buffer).setType(type).setArray(new Float32Array(values));
    const primitive = document
      .createPrimitive()
      .setAttribute('POSITION', accessor('VEC3', [x, 0, 0, x + 1, 0, 0, x, 2, 0]))
      .setAttribute('NORMAL', accessor('VEC3', [0, 0, 1, 0, 0, 1, 0, 0, 1]))
      .setAttribute('TEXCOORD_0', accessor('VEC2', [0, 0, 1, 0, 0, 1]))
      .setIndices(document.createAccessor().setBuffer(buffer).setArray(new Uint16Array([0, 1, 2])));
    scene.addChild(document.createNode().setMesh(document.createMesh().addPrimitive(primitive)));
  }
  return new NodeIO().writeBinary(document);
}

function jsonOf(glb: Uint8Array) {
  const view = new DataView(glb.buffer, glb.byteOffset);
  return JSON.parse(Buffer.from(glb).toString('utf8', 20, 20 + view.getUint32(12, true))) as {
    extensionsRequired?: string[];
    nodes: { scale?: number[]; translation?: number[] }[];
  };
}

describe('variants', () => {
  it('counts what every file must show', async () => {
    const box = { min: [0, 0, 0], max: [11, 2, 0] };
    expect(await factsOf(await twoTriangles())).toEqual({ meshes: 2, triangles: 2, box });
  });

  it('requires the extension that gives each its name', async () => {
    const made = await makeVariants(await twoTriangles());
    expect(jsonOf(made.quantized).extensionsRequired).toEqual(['KHR_mesh_quantization']);
    expect(jsonOf(made.meshopt).extensionsRequired).toContain('EXT_meshopt_compression');
    expect(jsonOf(made.draco).extensionsRequired).toEqual(['KHR_draco_mesh_compression']);
  });

  it('undoes quantization by one node per mesh', async () => {
    const { quantized } = await makeVariants(await twoTriangles());
    expect(jsonOf(quantized).nodes).toMatchObject([{ scale: [2, 2, 2] }, { scale: [2, 2, 2], translation: [10, 0, 0] }]);
  });
});
