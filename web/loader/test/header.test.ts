import { isDeepStrictEqual } from 'node:util';
import { describe, expect, test } from 'vitest';
import { SrcError, type JsonValue, type SrcAttributeView, type SrcHeader } from '../src/core/index.js';
import { readHeader } from '../src/core/header.js';
import { compact } from '../src/core/compact.js';
import { TableHeader } from '../src/core/handles.js';
import { HeaderText } from '../src/core/HeaderText.js';
import { readTable } from '../src/core/headerTable.js';
import { fitOf, readTree } from '../src/core/headerTree.js';
import { layoutOf } from '../src/core/layout.js';
import { DEFAULT_LIMITS } from '../src/core/limits.js';
import { chance, mutate } from './chance.js';
import { fixture, triangle } from './support.js';

// The fast reader of headers is held to the plain one, which builds a tree of JSON values and checks that.

const WRITTEN = [
  'default',
  'cmp1',
  'uncompressed',
  'position',
  'position-normal',
  'bits-20',
  'bits-5',
  'primitives',
  'primitives-default',
  'empty',
  'many',
  'many-cmp1',
  'broken-container',
  'broken-public',
];

const encode = (text: string) => new TextEncoder().encode(text);

function headerOf(name: string): Uint8Array {
  const bytes = fixture(name);
  return bytes.subarray(12, 12 + new DataView(bytes.buffer).getUint32(8, true));
}

function fast(text: Uint8Array, limits = DEFAULT_LIMITS): TableHeader | null {
  const table = readTable(text, limits);
  return table && new TableHeader(table, 12 + text.length);
}

/** All that a header says, without objects that refer to each other. */
function said(header: SrcHeader) {
  const view = (v: SrcAttributeView) => ({
    id: v.id,
    bufferView: v.bufferView.id,
    byteOffset: v.byteOffset,
    byteStride: v.byteStride,
    componentType: v.componentType,
    components: v.components,
    componentBytes: v.componentBytes,
    count: v.count,
    decodeOffset: v.decodeOffset,
    decodeScale: v.decodeScale,
    decoded: v.decoded,
    owner: v.owner?.id,
  });
  return {
    metadata: header.metadata,
    origin: header.origin,
    dataOffset: header.dataOffset,
    dataBytes: header.dataBytes,
    totalBytes: header.totalBytes,
    chunks: header.chunks.map(({ id, byteLength, byteOffset, index }) => [id, byteLength, byteOffset, index]),
    bufferViews: header.bufferViews.map((v) => [
      v.id,
      v.byteLength,
      v.storedBytes,
      v.dataOffset,
      v.index,
      v.chunks.map((chunk) => chunk.id),
    ]),
    techniques: [...header.techniques],
    materials: [...header.materials].map(([id, m]) => [id, m.id, m.technique?.id ?? null, m.values]),
    meshes: header.meshes.map((mesh) => ({
      id: mesh.id,
      index: mesh.index,
      primitive: mesh.primitive,
      drawnAs: mesh.drawnAs,
      indices: mesh.indices && [
        mesh.indices.id,
        mesh.indices.bufferView.id,
        mesh.indices.byteOffset,
        mesh.indices.componentType,
        mesh.indices.count,
      ],
      material: mesh.material?.id ?? null,
      attributes: mesh.attributes.map((a) => ({ name: a.name, fit: a.fit, view: view(a.view) })),
      bounds: mesh.bounds,
      origin: mesh.origin,
      drawnBounds: mesh.drawnBounds,
      metadata: mesh.metadata,
    })),
  };
}

/** The same header, of whose text only what matters is kept. */
function compacted(text: Uint8Array): TableHeader {
  const table = readTable(text, DEFAULT_LIMITS)!;
  for (const work = compact(table); !work.next().done;);
  return new TableHeader(table, 12 + text.length);
}

/** Lets the test runner report meanwhile, on a busy machine. */
const turn = () => new Promise((resolve) => setImmediate(resolve));

/** As toEqual, which takes ten times as long to say yes. */
function expectSame(found: unknown, expected: unknown, about?: string): void {
  if (!isDeepStrictEqual(found, expected)) expect(found, about).toEqual(expected);
}

/** Fails unless the fast reader says the same as the plain one, or leaves the header to it; tells what it did. */
function compare(text: Uint8Array): 'read' | 'left' | 'refused' {
  let plain: SrcHeader | null = null;
  try {
    plain = readTree(text, 12, DEFAULT_LIMITS);
  } catch (error) {
    if (!(error instanceof SrcError)) throw error;
  }
  const header = fast(text);
  if (!header) return plain ? 'left' : 'refused';
  if (!plain) throw new Error(`only the fast reader reads ${new TextDecoder().decode(text)}`);
  const expected = said(plain);
  expectSame(said(header), expected);
  expectSame(said(compacted(text)), expected);
  expectSame(header.table.layout, layoutOf(plain));
  return 'read';
}

test.each(WRITTEN)('the header of %s is read fast, and as the plain reader reads it', (name) => {
  expect(compare(headerOf(name))).toBe('read');
});

test('a header that is left to the plain reader is read by it', () => {
  const text = headerOf('chunks'); // with an ID of many escapes
  expect(compare(text)).toBe('left');
  expect(said(readHeader(text, DEFAULT_LIMITS)).meshes.map((mesh) => mesh.id)).toEqual(['a/b ~"é"']);
});

test.each(['broken-container', 'broken-public', 'many-cmp1', 'bits-5', 'primitives', 'cmp1'])(
  'changed values of %s are read alike',
  async (name) => {
    const text = new TextDecoder().decode(headerOf(name));
    const random = chance(2);
    const seen = new Set<string>();
    for (let i = 0; i < (text.length > 100_000 ? 6 : 500); ++i) {
      const header: unknown = JSON.parse(text);
      mutate(header, random);
      if (i % 50 === 0) await turn();
      seen.add(compare(encode(JSON.stringify(header, null, i % 3))));
    }
    expect(seen).toContain('read');
    expect(seen).toContain('refused');
  },
);

// Bytes that mean something to JSON, or nearly do.
const BYTES = [...encode('{}[]",:\\/0123456789-+.eE tfn\n\r\t\0u'), 0xc3, 0xa9, 0xff, 0xed, 0xa0, 0x80];

test.each(['broken-container', 'broken-public', 'bits-5'])('changed bytes of %s are read alike', async (name) => {
  const good = headerOf(name);
  const random = chance(3);
  const seen = new Set<string>();
  for (let i = 0; i < 700; ++i) {
    if (i % 50 === 0) await turn();
    let text = [...good];
    for (let times = 1 + random(2); times > 0; --times) {
      const at = random(text.length);
      const byte = BYTES[random(BYTES.length)]!;
      const kind = random(4);
      if (kind === 0) text[at] = byte;
      else if (kind === 1) text.splice(at, 0, byte);
      else if (kind === 2) text.splice(at, 1 + random(3));
      else text = [...text.slice(0, at), ...text.slice(random(text.length))];
    }
    seen.add(compare(Uint8Array.from(text)));
  }
  expect(seen).toContain('read');
  expect(seen).toContain('refused');
});

describe('written in other ways, a header is read alike:', () => {
  const text = (change: (header: any) => void = () => {}) => {
    const header = triangle();
    change(header);
    return JSON.stringify(header);
  };
  const meta = (value: unknown) => text((h) => (h.meshes.m.meta = value));
  const ids = (...names: string[]) =>
    text((h) => (h.meshes = Object.fromEntries(names.map((name) => [name, { ...h.meshes.m }]))));
  const cases: [string, 'read' | 'left' | 'refused', string][] = [
    ['white space', 'read', JSON.stringify(triangle(), null, '\t').replaceAll('\n', '\r\n ')],
    ['keys in another order', 'read', text((h) => (h.meshes.m = { primitive: 4, ...h.meshes.m }))],
    ['keys that nobody knows', 'read', text((h) => (h.meshes.m.extra = { a: [1, { b: null }, 'x"y'] }))],
    ['a key twice in an entry', 'read', text().replace('"primitive":4', '"primitive":5,"primitive":3')],
    [
      'a reference twice in a view',
      'left',
      text().replace('"bufferView":"positions"', '"bufferView":"positions","bufferView":"positions"'),
    ],
    ['an entry twice', 'left', text().replace('"meshes":{', '"meshes":{"m":{"attributes":{},"primitive":4},')],
    ['a section twice', 'left', text().replace('"materials":{}', '"materials":{},"materials":{}')],
    ['a key with escapes', 'read', text().replace('"primitive"', '"pr\\u0069mitive"')],
    ['an ID with escapes', 'left', text().replace('"c0":', '"c\\u0030":')],
    ['a number with a fraction of nothing', 'left', text().replace('"count":3', '"count":3.0')],
    ['numbers in exponents', 'read', text().replace('[2,2,2]', '[2e0,0.2E+1,20e-1]')],
    ['zeros with a sign', 'read', text().replace('[0,0,0]', '[-0,0.0,-0e5]')],
    ['a scale of zero with a sign', 'refused', text().replace('[2,2,2]', '[2,-0,2]')],
    ['a scale that rounds to zero', 'refused', text().replace('[2,2,2]', '[2,1e-400,2]')],
    ['a scale that rounds to one', 'read', text().replace('[2,2,2]', '[1,1,1.00000000000000000001]')],
    ['an offset that is no finite number', 'refused', text().replace('[0,0,0]', '[0,0,1e999]')],
    ['numbered IDs', 'read', ids('10', '9', '1')],
    ['numbered IDs with a prefix', 'read', ids('mesh10', 'mesh9', 'mesh1')],
    ['some IDs with a prefix', 'read', ids('mesh10', '9', '1')],
    ['the same number with and without', 'left', ids('mesh1', '1')],
    ['some IDs that are numbers', 'left', ids('b', '1', 'a')],
    ['IDs that are nearly numbers', 'read', ids('01', '1a', '', '12345678901', 'mesh', 'mesh01')],
    ['IDs that share beginnings', 'read', ids('part1', 'part', 'part1x', 'part1000000', 'part01', 'par1')],
    ['an ID of other letters', 'read', ids('Größe 1', 'Größe 2', '漢字')],
    ['__proto__', 'read', ids('x').replace('"x":', '"__proto__":')],
    ['metadata as a text', 'read', meta('name')],
    ['metadata of all kinds', 'read', meta({ name: 'a"\\\n\u0001é漢😀', n: null, t: true, l: [[], {}], x: -1.5e-7 })],
    ['a name that is no text', 'read', meta({ name: 7 })],
    ['statistics of points', 'read', meta({ numOriginalPoints: 3 })],
    ['statistics of lines and triangles', 'read', meta({ numOriginalLines: 3, numOriginalTriangles: null })],
    ['statistics that are no numbers', 'read', meta({ numOriginalPoints: '3', numOriginalLines: 4 })],
    ['a fit', 'read', meta({ fit: { position: { offset: [1, 2, 3], scale: [4, 5, 6] } } })],
    ['a fit of too few numbers', 'read', meta({ fit: { position: { offset: [1, 2], scale: [4, 5] } } })],
    ['a fit that is none', 'read', meta({ fit: [] })],
    ['an origin', 'read', meta({ origin: [500123.25, 5400321.5, -0.5] })],
    ['bounds', 'read', meta({ bounds: [0, 0, 0, 2, 2, 0] })],
    ['bounds, and then none', 'read', meta({ bounds: 7 }).replace('"bounds":', '"bounds":[0,0,0,2,2,0],"bounds":')],
    ['bounds with the corners in the other order', 'read', meta({ bounds: [2, 2, 0, 0, 0, 0] })],
    ['bounds of a number too large', 'read', meta({ bounds: [0, 0, 0, 2, 2, 7] }).replace(',7]', ',1e999]')],
    ['an origin after another', 'read', meta({ origin: [1, 2, 3] }).replace('"origin":', '"origin":[4,5,6],"origin":')],
    ['an origin, and then none', 'read', meta({ origin: 7 }).replace('"origin":', '"origin":[4,5,6],"origin":')],
    ['an origin with escapes in its key', 'read', meta({ origin: [1, 2, 3] }).replace('"origin"', '"or\\u0069gin"')],
    ['an origin that is no finite number', 'read', meta({ origin: [1, 2, 3] }).replace('[1,2,3]', '[1,2,1e999]')],
    ['an origin of two numbers', 'read', meta({ origin: [1, 2] })],
    ['an origin that is none', 'read', meta({ origin: { 0: 1, 1: 2, 2: 3, length: 3 } })],
    ['a material that does not exist', 'read', text((h) => (h.meshes.m.material = 'nobody'))],
    ['no indices', 'read', text((h) => (h.meshes.m.indices = ''))],
    ['a view of no chunks', 'refused', text((h) => (h.bufferViews.indices.chunks = []))],
    ['views in pieces', 'read', text((h) => (h.bufferViews.indices.chunks = ['c1', 'c0']))],
    ['something behind the end', 'refused', `${text()} x`],
    ['a byte order mark', 'refused', `\ufeff${text()}`],
  ];
  test.each(cases)('%s', (_, outcome, json) => {
    expect(compare(encode(json))).toBe(outcome);
  });
});

// The C++ reader is held to the same cases: tests/reader/FitTest.cpp.
describe('a fit is taken', () => {
  const three = { offset: [1, 2, 3], scale: [4, 5, 6] };
  const viewOf = (components: number, componentType = 5126) => ({ components, componentType }) as SrcAttributeView;
  const position = { name: 'position', view: viewOf(3) };
  const weight = { name: 'weight', view: viewOf(1) };
  const combined = { name: 'pos3us_nor2ub_oct', view: viewOf(4, 5123) };

  test('with one number per component', () => {
    expect(fitOf({ position: three }, position)).toEqual(three);
    expect(fitOf({ position: { ...three, more: true }, other: 5 }, position)).toEqual(three);
    expect(fitOf({ weight: { offset: [1], scale: [2] } }, weight)).toEqual({ offset: [1], scale: [2] });
  });
  test('as a bare number where there is one component', () => {
    expect(fitOf({ weight: { offset: 1, scale: 2 } }, weight)).toEqual({ offset: [1], scale: [2] });
    expect(fitOf({ position: { offset: 1, scale: 2 } }, position)).toBeNull();
  });
  test('under "position" for interleaved positions and normals', () => {
    expect(fitOf({ position: three }, combined)).toEqual(three);
    expect(fitOf({ pos3us_nor2ub_oct: three }, combined)).toBeNull();
    expect(fitOf({ position: { offset: [1, 2, 3, 4], scale: [4, 5, 6, 7] } }, combined)).toBeNull();
  });
  test.each<[string, JsonValue]>([
    ['nothing', null],
    ['a text', 'position'],
    ['a list', [three]],
    ['another attribute', { normal: three }],
    ['no object', { position: [1, 2, 3] }],
    ['no offset', { position: { scale: [4, 5, 6] } }],
    ['no scale', { position: { offset: [1, 2, 3] } }],
    ['too few numbers', { position: { offset: [1, 2], scale: [4, 5] } }],
    ['too many numbers', { position: { offset: [1, 2, 3, 4], scale: [4, 5, 6, 7] } }],
    ['lengths that differ', { position: { offset: [1, 2, 3], scale: [4, 5] } }],
    ['texts', { position: { offset: ['1', '2', '3'], scale: [4, 5, 6] } }],
    ['null among the numbers', { position: { offset: [1, 2, 3], scale: [4, null, 6] } }],
    ['lists among the numbers', { position: { offset: [[1, 2, 3]], scale: [[4, 5, 6]] } }],
  ])('but not with %s', (_, fit) => {
    expect(fitOf(fit, position)).toBeNull();
  });
});

test('lists of numbers are read to the last bit', () => {
  const random = chance(5);
  const digits = (count: number) => Array.from({ length: count }, () => random(10)).join('');
  for (let i = 0; i < 20_000; ++i) {
    const whole = random(3) === 0 ? '0' : `${1 + random(9)}${digits(random(18))}`;
    const fraction = random(3) === 0 ? '' : `.${'0'.repeat(random(2) * random(20))}${digits(1 + random(18))}`;
    const exponent = random(4) === 0 ? `${'eE'[random(2)]}${['', '+', '-'][random(3)]}${random(30)}` : '';
    const number = `${random(2) ? '-' : ''}${whole}${fraction}${exponent}`;
    const list = `[${number}, ${number},1]`;
    expectSame(new HeaderText(encode(`{"x":${list}}`), true).numbers(5), JSON.parse(list), list);
  }
});

test('texts that are not UTF-8 are left to the plain reader', () => {
  const text = encode(JSON.stringify({ ...triangle(), meta: { name: '??' } }));
  text.set([0xc3, 0xa9], text.indexOf(0x3f));
  expect(compare(text)).toBe('read');
  text.set([0xc3, 0x41], text.indexOf(0xc3));
  expect(compare(text)).toBe('refused');
});

test('limits are kept by leaving what goes beyond them to the plain reader', () => {
  const text = encode(JSON.stringify(triangle()));
  expect(fast(text)).not.toBeNull();
  expect(fast(text, { ...DEFAULT_LIMITS, entries: 1 })).toBeNull();
  expect(fast(text, { ...DEFAULT_LIMITS, stringLength: 8 })).toBeNull(); // "positions"
  expect(fast(text, { ...DEFAULT_LIMITS, depth: 5 })).toBeNull();
  const deep = JSON.stringify({ ...triangle(), meta: { a: [[[[[[]]]]]] } });
  expect(fast(encode(deep), { ...DEFAULT_LIMITS, depth: 8 })).not.toBeNull();
  expect(fast(encode(deep), { ...DEFAULT_LIMITS, depth: 7 })).toBeNull();
});

test('a header that came by itself keeps little of its text', () => {
  const text = headerOf('many-cmp1');
  expect(compacted(text).table.text.bytes.length).toBeLessThan(text.length / 2);
});

test('what a header gives twice is the same object', () => {
  const header = fast(headerOf('many-cmp1'))!;
  const [mesh] = header.meshes;
  expect(mesh!.attributes[0]!.view).toBe(mesh!.attributes[0]!.view);
  expect(mesh!.attributes[0]!.view.owner).toBe(mesh);
  expect(mesh!.attributes[0]!.view.bufferView).toBe(header.bufferViews[mesh!.attributes[0]!.view.bufferView.index]);
  expect(mesh!.indices).toBe(mesh!.indices);
  expect(mesh!.metadata).toBe(mesh!.metadata);
  expect(mesh!.material).toBe(header.materials.get(mesh!.material!.id));
  expect(header.metadata).toBe(header.metadata);
});
