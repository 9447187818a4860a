import { parseSrc, type SrcMesh } from 'kelsrc-loader/core';
import { expect, test } from 'vitest';
import { fixture, srcOf, triangle, TRIANGLE_DATA } from '../../../loader/test/support.js';
import { bytes, bytesOf, measure, plural, point, share } from '../../src/page/model/format.js';
import { cssColour, LIMIT, metadataRows, nameOf, parametersOf } from '../../src/page/model/metadata.js';
import { encodingOf, modeOf, precisionOf } from '../../src/page/model/precision.js';
import { trianglesIn } from '../../src/page/model/triangles.js';
import { squares } from './models.js';

test.each([
  [0, '0 bytes'],
  [1, '1 byte'],
  [999, '999 bytes'],
  [12_345, '12.3 kB'],
  [999_949, '999.9 kB'],
  [999_950, '1.0 MB'],
  [40_100_000, '40.1 MB'],
])('%d is %s', (n, text) => expect(bytes(n)).toBe(text));

test('says how much of a whole is there in the unit of the whole', () => {
  expect(bytesOf(12_345_678, 40_100_000)).toBe('12.3 of 40.1 MB');
  expect(bytesOf(500, 40_100_000)).toBe('0.0 of 40.1 MB');
});

test('rounds no share to nothing, or to all', () => {
  expect([share(0, 9), share(1, 9999), share(1, 3), share(9998, 9999), share(9, 9)]).toEqual([
    '0 %',
    'under 1 %',
    '33 %',
    '99 %',
    '100 %',
  ]);
});

test.each([
  [0, '0'],
  [1234.5678, '1,234.57'],
  [-0.25, '-0.25'],
  [0.00413476, '0.00413476'],
  [4.99e-5, '4.99e-5'],
  [2e12, '2e12'],
])('measures %d as %s', (n, text) => expect(measure(n)).toBe(text));

test.each([
  [[0.5, -2, 0], Infinity, '0.5, -2, 0'],
  [[5400321.5, 12.25, 0], 5, '5,400,321.5, 12.25, 0'],
  [[5400321.123456789, 0, 0], 10, '5,400,321.12346, 0, 0'],
  [[5400321.123456789, 0, 0], 0, '5,400,321.12345679, 0, 0'],
  [[Infinity, 0, 0], Infinity, 'Infinity, 0, 0'],
])('tells the place %j of something %d long as %s', (place, size, text) => expect(point(place, size)).toBe(text));

test('counts one and many', () =>
  expect([plural(1, 'mesh', 'meshes'), plural(2000, 'mesh', 'meshes')]).toEqual(['1 mesh', '2,000 meshes']));

test('lists metadata as the file has it, what is nested below its key', () => {
  const { rows } = metadataRows({ name: 'Bolt', source: { unit: 1, tags: ['a', 'b'] }, size: [1, 2, 3], gone: null });
  expect(rows.map(({ key, value }) => [key, value])).toEqual([
    ['name', 'Bolt'],
    ['source', null],
    ['size', '1, 2, 3'],
    ['gone', 'null'],
  ]);
  const [unit, tags] = rows[1]!.children;
  expect(unit).toMatchObject({ key: 'unit', value: '1' });
  expect(tags!.children.map(({ key, value }) => [key, value])).toEqual([
    ['0', 'a'],
    ['1', 'b'],
  ]);
});

test('shows metadata that is a text, and says how many entries it leaves out', () => {
  expect(metadataRows('{not json').rows).toMatchObject([{ key: '', value: '{not json' }]);
  expect(metadataRows(Object.fromEntries(Array.from({ length: LIMIT + 7 }, (_, i) => [`k${i}`, i]))).more).toBe(7);
  expect(metadataRows(null).rows).toEqual([]);
});

test('calls a mesh by the name in its metadata, or else by its ID', () => {
  const { meshes } = parseSrc(
    squares([{ meta: { name: 'Bolt' } }, { meta: { name: 5 } }, { meta: { name: '' } }, {}]),
  ).header;
  expect(meshes.map(nameOf)).toEqual(['Bolt', 'mesh1', 'mesh2', 'mesh3']);
});

test("fills a material up with its technique's defaults", () => {
  const { meshes } = parseSrc(squares([{ material: 'red' }])).header;
  expect(parametersOf(meshes[0]!.material!)).toEqual([
    { name: 'diffuseColor', value: [1, 0, 0], isDefault: false },
    { name: 'shininess', value: [0.25], isDefault: false },
    { name: 'transparency', value: 0.2, isDefault: true },
  ]);
});

test('takes three numbers for a colour and nothing else', () => {
  expect([[1, 0.5, 0], [2, -1, 0], [1, 2], ['red', 0, 0], 'url(x)'].map((value) => cssColour(value))).toEqual([
    'rgb(255 128 0)',
    'rgb(255 0 0)',
    null,
    null,
    null,
  ]);
});

test.each([
  ['uncompressed', 'public writer, mode uncompressed'],
  ['position', 'public writer, mode position'],
  ['position-normal', 'public writer, mode position-normal'],
  ['default', 'container writer, preset default'],
  ['cmp1', 'container writer, preset CMP1'],
  ['empty', null],
])('recognises how %s was written', (name, mode) => expect(modeOf(parseSrc(fixture(name)).header)).toBe(mode));

test("gives the steps of codes in the file's units, with their fit undone", () => {
  const header = triangle() as never as { meshes: { m: Record<string, unknown> } };
  // Codes are divided by 2, and the result is multiplied by 10, 1 and 0.5.
  header.meshes.m.meta = { fit: { position: { offset: [0, 0, 0], scale: [10, 1, 0.5] } } };
  const [position] = precisionOf(parseSrc(srcOf(header, TRIANGLE_DATA)).header);
  expect(position).toEqual({
    name: 'position',
    meshes: 1,
    encodings: ['16-bit integers'],
    step: { min: 0.25, max: 5 },
  });
});

test('gives no steps for floats', () => {
  const { meshes, ...rest } = parseSrc(squares([{}, {}])).header;
  expect(precisionOf({ meshes, ...rest })).toEqual([
    { name: 'position', meshes: 2, encodings: ['32-bit floats'], step: null },
  ]);
  expect(encodingOf(meshes[0]!.attributes[0]!)).toBe('3 × 32-bit floats');
});

test('tells the bits of three-byte slots', () => {
  const { meshes } = parseSrc(fixture('bits-20')).header;
  expect(encodingOf(meshes[0]!.attributes.find(({ name }) => name === 'position')!)).toBe('3 × 24-bit integers');
});

test.each([
  [4, 2],
  [5, 4],
  [6, 4],
  [1, 0],
])('counts the triangles of six indices drawn as %d', (primitive, triangles) => {
  const header = parseSrc(squares([{}])).header;
  const { indices, attributes } = header.meshes[0]!;
  const meshes = [{ drawnAs: primitive, indices, attributes } as SrcMesh];
  expect(trianglesIn({ ...header, meshes })).toBe(triangles);
});
