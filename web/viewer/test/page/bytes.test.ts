import { parseSrc, type SrcHeader } from 'kelsrc-loader/core';
import { expect, test } from 'vitest';
import { fixture, srcOf, triangle, TRIANGLE_DATA } from '../../../loader/test/support.js';
import { bytesByPurpose, purposeOf, PURPOSES } from '../../src/page/model/bytes.js';

const headerOf = (bytes: Uint8Array<ArrayBuffer>): SrcHeader => parseSrc(bytes).header;
const textLength = (header: unknown) => new TextEncoder().encode(JSON.stringify(header)).length;

/** All purposes, those that are not named with 0. */
const only = (bytes: object) => ({ ...Object.fromEntries(PURPOSES.map((purpose) => [purpose, 0])), ...bytes });

test('counts preamble and header, indices and positions', () => {
  const header = triangle();
  const bytes = bytesByPurpose(headerOf(srcOf(header, TRIANGLE_DATA)));
  // Three indices of 2 bytes; three positions of 3 x 2 bytes.
  expect(bytes).toEqual(only({ header: 12 + textLength(header), indices: 6, positions: 18 }));
});

test('calls bytes unused that no mesh names', () => {
  const header = triangle() as Record<string, Record<string, unknown>>;
  header.bufferChunks!.spare = { byteLength: 40, byteOffset: 24 };
  const bytes = bytesByPurpose(headerOf(srcOf(header, [...TRIANGLE_DATA, ...new Uint8Array(40)])));
  expect(bytes.unused).toBe(40);
});

test('calls the gaps of a stride unused', () => {
  const header = triangle() as never as {
    accessors: { attributeViews: { a: object } };
    bufferChunks: object;
    bufferViews: object;
  };
  Object.assign(header.accessors.attributeViews.a, { byteStride: 8 });
  Object.assign(header.bufferChunks, { c1: { byteLength: 24, byteOffset: 6 } });
  Object.assign(header.bufferViews, { positions: { byteLength: 24, chunks: ['c1'] } });
  const bytes = bytesByPurpose(headerOf(srcOf(header, [...TRIANGLE_DATA, ...new Uint8Array(6)])));
  expect(bytes).toMatchObject({ positions: 18, unused: 6 });
});

test('counts a view once that several meshes name', () => {
  const header = triangle() as never as { meshes: Record<string, object> };
  header.meshes.n = header.meshes.m!;
  const bytes = bytesByPurpose(headerOf(srcOf(header, TRIANGLE_DATA)));
  expect(bytes).toMatchObject({ indices: 6, positions: 18, unused: 0 });
});

test('splits the combined attribute into positions and normals', () => {
  const { meshes, ...header } = headerOf(fixture('position-normal'));
  const combined = meshes.filter((mesh) => mesh.attributes.some(({ name }) => name === 'pos3us_nor2ub_oct'));
  const vertices = combined.reduce((sum, mesh) => sum + mesh.attributes[0]!.view.count, 0);
  const bytes = bytesByPurpose({ ...header, meshes: combined });
  expect(vertices).toBeGreaterThan(0);
  expect(bytes.positions).toBe(vertices * 6);
  expect(bytes.normals).toBe(vertices * 2);
});

test.each(['uncompressed', 'position', 'position-normal', 'default', 'cmp1', 'bits-20', 'chunks', 'empty', 'many'])(
  'adds up to the size of %s',
  (name) => {
    const file = fixture(name);
    const sum = Object.values(bytesByPurpose(headerOf(file))).reduce((sum, n) => sum + n, 0);
    expect(sum).toBe(file.length);
  },
);

test('knows attributes by their names', () => {
  expect(['position', 'normal', 'texcoord', 'texcoord1', 'uv', 'color', 'colour', 'weights'].map(purposeOf)).toEqual([
    'positions',
    'normals',
    'texture coordinates',
    'texture coordinates',
    'texture coordinates',
    'colours',
    'colours',
    'other attributes',
  ]);
});
