import { describe, expect, test } from 'vitest';
import { decodeAttribute, decodeCombinedNormals, parseSrc, type MeshArrays } from '../src/core/index.js';
import { assembled, fixture, told, type ReadBack } from './support.js';

const NAMES = [
  'default',
  'cmp1',
  'uncompressed',
  'position',
  'position-normal',
  'bits-20',
  'bits-12',
  'bits-5',
  'primitives',
  'primitives-position',
  'primitives-default',
  'chunks',
  'empty',
  'many',
  'many-cmp1',
];

function inNumbers({ mesh, indices, attributes }: MeshArrays): ReadBack['meshes'][number] {
  const decoded: Record<string, number[]> = {};
  for (const attribute of attributes) {
    decoded[attribute.combined ? 'position' : attribute.name] = [...decodeAttribute(attribute)];
    if (attribute.combined) decoded.normal = [...decodeCombinedNormals(attribute)];
  }
  return { id: mesh.id, indices: indices && [...indices], attributes: decoded };
}

function largestDifference(a: number[], b: number[]): number {
  let largest = 0;
  for (let i = 0; i < a.length; ++i) largest = Math.max(largest, Math.abs(a[i]! - b[i]!));
  return largest;
}

function expectSame(meshes: ReadBack['meshes'], expected: ReadBack['meshes']) {
  const byId = new Map(meshes.map((mesh) => [mesh.id, mesh]));
  expect([...byId.keys()].sort()).toEqual(expected.map((mesh) => mesh.id).sort());
  for (const { id, indices, attributes } of expected) {
    const mesh = byId.get(id)!;
    expect(mesh.indices, id).toEqual(indices);
    expect(Object.keys(mesh.attributes).sort(), id).toEqual(Object.keys(attributes).sort());
    for (const [name, values] of Object.entries(attributes)) {
      expect(mesh.attributes[name]!.length, `${id} ${name}`).toBe(values.length);
      // One step of a float: both sides round a double, on either side of the text between them.
      expect(largestDifference(mesh.attributes[name]!, values), `${id} ${name}`).toBeLessThan(1e-6);
    }
  }
}

describe.each(NAMES)('%s', (name) => {
  test('parsed from memory, holds what the C++ reader reads', () => {
    const file = parseSrc(fixture(name));
    expectSame(
      file.meshes.map((mesh) => inNumbers(file.arrays(mesh))),
      told(name).meshes,
    );
  });

  test.each([1, 1000, 1 << 20])('arriving in pieces of %i bytes, holds what the C++ reader reads', (size) => {
    const bytes = fixture(name);
    if (size === 1 && bytes.length > 50_000) return;
    expectSame(assembled(bytes, size).meshes.map(inNumbers), told(name).meshes);
  });

  test('lies on the bytes as they came, unless alignment forbids', () => {
    const bytes = fixture(name);
    const file = parseSrc(bytes);
    for (const mesh of file.meshes) {
      for (const { array, copied, view, values } of file.arrays(mesh).attributes) {
        const [chunk] = view.bufferView.chunks;
        if (view.bufferView.chunks.length !== 1 || values) continue;
        const start = bytes.byteOffset + file.header.dataOffset + chunk!.byteOffset + view.byteOffset;
        expect(copied).toBe(start % array.BYTES_PER_ELEMENT !== 0);
        expect(array.buffer === bytes.buffer).toBe(!copied);
      }
    }
  });

  test('is copied no second time when it arrives in pieces', () => {
    for (const { attributes } of assembled(fixture(name), 4096).meshes) {
      for (const { copied, values } of attributes) expect(copied).toBe(values);
    }
  });
});

test('meshes are handed out as soon as their bytes are there', () => {
  const bytes = fixture('many');
  const early = assembled(bytes.slice(0), 4096);
  const { header } = early;
  const ends = early.meshes.map(({ mesh }) =>
    Math.max(
      ...[mesh.indices!, ...mesh.attributes.map((a) => a.view)].map(({ bufferView: { chunks } }) => {
        const last = chunks[chunks.length - 1]!;
        return last.byteOffset + last.byteLength;
      }),
    ),
  );
  expect(ends).toEqual([...ends].sort((a, b) => a - b));
  expect(header.totalBytes).toBe(bytes.length);
});
