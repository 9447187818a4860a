import { isDeepStrictEqual } from 'node:util';
import { describe, expect, test } from 'vitest';
import { SrcError, type JsonObject, type JsonValue, type SrcAttributeView, type SrcHeader } from '../src/core/index.js';
import { fitOf } from '../src/core/fit.js';
import { readHeader, readingHeader } from '../src/core/header.js';
import { DEFAULT_LIMITS } from '../src/core/limits.js';
import { chance, mutate } from './chance.js';
import { fixture, triangle } from './support.js';

// Headers are read in batches of entries, and while they arrive. JSON.parse of the whole text is what the entries are
// held to, and one piece is what many pieces are held to.

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
  'chunks',
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

/** The header, or what is wrong with it. */
function read(bytes: Uint8Array, limits = DEFAULT_LIMITS): SrcHeader | SrcError {
  return outcome(() => readHeader(bytes, limits));
}

function outcome(action: () => SrcHeader): SrcHeader | SrcError {
  try {
    return action();
  } catch (error) {
    if (error instanceof SrcError) return error;
    throw error;
  }
}

/** The same of a text that arrives in pieces of `size` bytes; what is not there yet is zeros. */
function readInPieces(whole: Uint8Array, size: number): SrcHeader | SrcError {
  const text = { bytes: new Uint8Array(whole.length), count: 0, length: whole.length };
  return outcome(() => {
    for (const work = readingHeader(text, DEFAULT_LIMITS); ; ) {
      const { done, value } = work.next();
      if (done) return value;
      if (value !== 'hungry') continue;
      expect(text.count).toBeLessThan(text.length);
      const end = Math.min(text.count + size, text.length);
      text.bytes.set(whole.subarray(text.count, end), text.count);
      text.count = end;
    }
  });
}

const viewOf = (v: SrcAttributeView) => ({
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

/** All that a header says, without objects that refer to each other. */
function said(header: SrcHeader | SrcError) {
  if (header instanceof SrcError) return [header.code, header.path, header.byteOffset, header.detail];
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
    materials: [...header.materials].map(([id, m]) => [id, m.id, m.technique?.id ?? null, m.values, m.look]),
    meshes: header.meshes.map((mesh) => ({
      id: mesh.id,
      index: mesh.index,
      primitive: mesh.primitive,
      drawnAs: mesh.drawnAs,
      indices: mesh.indices && { ...mesh.indices, bufferView: mesh.indices.bufferView.id },
      material: mesh.material?.id ?? null,
      attributes: mesh.attributes.map((a) => ({ name: a.name, fit: a.fit, view: viewOf(a.view) })),
      bounds: mesh.bounds,
      origin: mesh.origin,
      drawnBounds: mesh.drawnBounds,
      metadata: mesh.metadata,
    })),
  };
}

type Tree = Record<string, Record<string, any>>;

/** Holds what a header was read as to what JSON.parse makes of its text. */
function expectTold(header: SrcHeader, text: string): void {
  const tree = JSON.parse(text) as Tree & { accessors: Tree };
  const byId = <T>(entries: Record<string, T>) => new Map(Object.entries(entries));
  const chunks = byId(tree.bufferChunks!);
  for (const chunk of header.chunks) {
    const { byteLength, byteOffset } = chunks.get(chunk.id);
    expectSame([chunk.byteLength, chunk.byteOffset], [byteLength + 0, byteOffset + 0]);
  }
  const buffers = byId(tree.bufferViews!);
  for (const view of header.bufferViews) {
    const told = buffers.get(view.id);
    expectSame([view.byteLength, view.chunks.map(({ id }) => id)], [told.byteLength + 0, told.chunks]);
  }
  expectSame(header.chunks.length + header.bufferViews.length, chunks.size + buffers.size);
  const meshes = byId(tree.meshes!),
    attributeViews = byId(tree.accessors.attributeViews!),
    indexViews = byId(tree.accessors.indexViews!);
  expectSame(header.meshes.map((mesh) => mesh.id).sort(), [...meshes.keys()].sort());
  for (const mesh of header.meshes) {
    const told = meshes.get(mesh.id);
    expectSame(mesh.primitive, told.primitive + 0);
    expectSame(mesh.metadata, told.meta ?? null);
    expectSame(mesh.bounds, told.bboxCenter && told.bboxSize ? { center: told.bboxCenter, size: told.bboxSize } : null);
    expectSame(mesh.material?.id ?? null, byId(tree.materials ?? {}).has(told.material) ? told.material : null);
    expectSame(mesh.indices?.id ?? '', told.indices ?? '');
    if (mesh.indices) {
      const { bufferView, byteOffset, componentType, count } = indexViews.get(told.indices);
      const { id, ...found } = { ...mesh.indices, bufferView: mesh.indices.bufferView.id };
      expectSame(found, { bufferView, byteOffset: byteOffset + 0, componentType, count: count + 0 });
    }
    for (const { name, view } of mesh.attributes) {
      const stated = attributeViews.get(told.attributes[name]);
      expectSame(
        [view.bufferView.id, view.byteOffset, view.componentType, view.count, view.components],
        [
          stated.bufferView,
          stated.byteOffset + 0,
          stated.componentType,
          stated.count + 0,
          ['SCALAR', 'VEC2', 'VEC3', 'VEC4'].indexOf(stated.type) + 1,
        ],
      );
      // -0 and 0 add the same.
      const numbers = (list: number[] | undefined, neutral: number) =>
        (list ?? new Array<number>(view.components).fill(neutral)).map((x) => x + 0);
      expectSame(numbers(view.decodeOffset, 0), numbers(stated.decodeOffset, 0));
      expectSame(numbers(view.decodeScale, 1), numbers(stated.decodeScale, 1));
    }
  }
}

/** Lets the test runner report meanwhile, on a busy machine. */
const turn = () => new Promise((resolve) => setImmediate(resolve));

/** As toEqual, which takes ten times as long to say yes. */
function expectSame(found: unknown, expected: unknown, about?: string): void {
  if (!isDeepStrictEqual(found, expected)) expect(found, about).toEqual(expected);
}

function isJson(bytes: Uint8Array): boolean {
  try {
    JSON.parse(new TextDecoder('utf-8', { fatal: true, ignoreBOM: true }).decode(bytes));
    return true;
  } catch {
    return false;
  }
}

/** Fails unless a header reads as JSON.parse reads it, and in pieces as in one; tells what came out. */
function compare(bytes: Uint8Array, pieces = [bytes.length >> 1, 700]): string {
  const header = read(bytes);
  const expected = said(header);
  for (const size of pieces) if (size > 0) expectSame(said(readInPieces(bytes, size)), expected);
  const text = new TextDecoder('utf-8', { ignoreBOM: true }).decode(bytes);
  if (header instanceof SrcError) {
    if (header.code === 'JSON_SYNTAX') expectSame(isJson(bytes), false, text);
    return header.code;
  }
  expectTold(header, text);
  return 'read';
}

test.each(WRITTEN)('the header of %s is read as JSON.parse reads it', (name) => {
  expect(compare(headerOf(name))).toBe('read');
});

test.each(['chunks', 'bits-5'])('the header of %s is read alike when each byte comes alone', (name) => {
  expect(compare(headerOf(name), [1])).toBe('read');
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
    expect(seen.size).toBeGreaterThan(1);
    expect(seen).not.toContain('JSON_SYNTAX');
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
    const bytes = Uint8Array.from(text);
    const outcome = compare(bytes);
    // What is no JSON is never read.
    if (!isJson(bytes)) expect(outcome).not.toBe('read');
    seen.add(outcome);
  }
  expect(seen).toContain('read');
  expect(seen).toContain('JSON_SYNTAX');
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
  const cases: [string, string, string][] = [
    ['white space', 'read', JSON.stringify(triangle(), null, '\t').replaceAll('\n', '\r\n ')],
    ['keys in another order', 'read', text((h) => (h.meshes.m = { primitive: 4, ...h.meshes.m }))],
    ['keys that nobody knows', 'read', text((h) => (h.meshes.m.extra = { a: [1, { b: null }, 'x"y'] }))],
    ['a key twice in an entry', 'read', text().replace('"primitive":4', '"primitive":5,"primitive":3')],
    [
      'a reference twice in a view',
      'read',
      text().replace('"bufferView":"positions"', '"bufferView":"positions","bufferView":"positions"'),
    ],
    ['an entry twice', 'read', text().replace('"meshes":{', '"meshes":{"m":{"attributes":{},"primitive":4},')],
    ['a section twice', 'read', text().replace('"materials":{}', '"materials":{"x":{}},"materials":{}')],
    ['a key with escapes', 'read', text().replace('"primitive"', '"pr\\u0069mitive"')],
    ['an ID with escapes', 'read', text().replace('"c0":', '"c\\u0030":')],
    ['a section with escapes', 'read', text().replace('"meshes":', '"mesh\\u0065s":')],
    ['a number with a fraction of nothing', 'read', text().replace('"count":3', '"count":3.0')],
    ['numbers in exponents', 'read', text().replace('[2,2,2]', '[2e0,0.2E+1,20e-1]')],
    ['zeros with a sign', 'read', text().replace('[0,0,0]', '[-0,0.0,-0e5]')],
    ['a scale of zero with a sign', 'ZERO_DECODE_SCALE', text().replace('[2,2,2]', '[2,-0,2]')],
    ['a scale that rounds to zero', 'ZERO_DECODE_SCALE', text().replace('[2,2,2]', '[2,1e-400,2]')],
    ['a scale that rounds to one', 'read', text().replace('[2,2,2]', '[1,1,1.00000000000000000001]')],
    ['an offset that is no finite number', 'BAD_NUMBER', text().replace('[0,0,0]', '[0,0,1e999]')],
    ['numbered IDs', 'read', ids('10', '9', '1')],
    ['the same number with and without', 'read', ids('mesh1', '1')],
    ['some IDs that are numbers', 'read', ids('b', '1', 'a')],
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
    ['a view of no chunks', 'VIEW_PAST_END', text((h) => (h.bufferViews.indices.chunks = []))],
    ['views in pieces', 'read', text((h) => (h.bufferViews.indices.chunks = ['c1', 'c0']))],
    ['something behind the end', 'JSON_SYNTAX', `${text()} x`],
    ['white space behind the end', 'read', `${text()} \n`],
    ['a byte order mark', 'JSON_SYNTAX', `\ufeff${text()}`],
    ['a list', 'WRONG_TYPE', '[{"meshes":{}}]'],
    ['nothing but white space', 'JSON_SYNTAX', ' \n '],
    // Colons and commas of one section are read as each other's neighbours.
    ['a comma behind an ID', 'JSON_SYNTAX', text().replace('"c0":{', '"c0",{')],
    ['a colon behind an entry', 'JSON_SYNTAX', text().replace('},"c1":', '}:"c1":')],
    ['a comma behind the last entry', 'JSON_SYNTAX', text().replace('"byteOffset":6}}', '"byteOffset":6},}')],
    ['a comma alone', 'JSON_SYNTAX', text().replace('"materials":{}', '"materials":{,}')],
    ['an ID without an entry', 'JSON_SYNTAX', text().replace('"materials":{}', '"materials":{"x"}')],
    ['an ID and a colon without an entry', 'JSON_SYNTAX', text().replace('"materials":{}', '"materials":{"x":}')],
    ['an ID that is no text', 'JSON_SYNTAX', text().replace('"materials":{}', '"materials":{1:{}}')],
    ['two entries without a comma', 'JSON_SYNTAX', text().replace('},"c1"', '} "c1"')],
    ['a section that a list closes', 'JSON_SYNTAX', text().replace('"materials":{}', '"materials":{]')],
    ['a key of the root that is no text', 'JSON_SYNTAX', text().replace('"materials":', 'materials:')],
    ['a comma at the end of the root', 'JSON_SYNTAX', text().replace(/\}$/, ',}')],
  ];
  test.each(cases)('%s', (_, outcome, json) => {
    expect(compare(encode(json), [1, 97])).toBe(outcome);
  });

  test('a comma behind the last of more entries than are read together', () => {
    const many = Array.from({ length: 3000 }, (_, i) => `"x${i}":{"instanceTechnique":{}}`).join(',');
    expect(compare(encode(text().replace('"materials":{}', `"materials":{${many}}`)))).toBe('read');
    for (let i = 0; i < 40; ++i) {
      // Wherever one read ends.
      const padded = `${' '.repeat(i)}${many},`;
      expect(compare(encode(text().replace('"materials":{}', `"materials":{${padded}}`)), [])).toBe('JSON_SYNTAX');
    }
  });

  test('one large number in metadata is infinite, as JSON.parse says', () => {
    const header = read(encode(meta({ x: 1 }).replace('"x":1', '"x":1e999'))) as SrcHeader;
    expect((header.meshes[0]!.metadata as JsonObject).x).toBe(Infinity);
  });
});

// As in C++: tests/reader holds it to the same.
describe('meshes come', () => {
  const order = (...names: string[]) => {
    const entry = JSON.stringify((triangle().meshes as JsonObject).m);
    const entries = names.map((name) => `${JSON.stringify(name)}:${entry}`).join(',');
    const told = JSON.stringify({ ...triangle(), meshes: 0 }).replace('"meshes":0', `"meshes":{${entries}}`);
    return (read(encode(told)) as SrcHeader).meshes.map((mesh) => mesh.id);
  };
  test.each([
    ['in the order of their numbers', ['10', '9', '1'], ['1', '9', '10']],
    ['in the order of their numbers behind a prefix', ['mesh10', 'mesh9', 'mesh1'], ['mesh1', 'mesh9', 'mesh10']],
    ['as they stand when prefixes differ', ['mesh10', '9', '1'], ['mesh10', '9', '1']],
    ['as they stand when one has no number', ['2', 'x', '1'], ['2', 'x', '1']],
    ['as they stand when a number begins with 0', ['2', '01'], ['2', '01']],
    ['as they stand when a number is far too large for their count', ['200', '1'], ['200', '1']],
    ['where an ID stands last, when it stands twice', ['a', 'b', 'a'], ['b', 'a']],
  ])('%s', (_, names, expected) => {
    expect(order(...names)).toEqual(expected);
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

test('texts that are not UTF-8 are refused', () => {
  const text = encode(JSON.stringify({ ...triangle(), meta: { name: '??' } }));
  text.set([0xc3, 0xa9], text.indexOf(0x3f));
  expect(compare(text)).toBe('read');
  text.set([0xc3, 0x41], text.indexOf(0xc3));
  expect(compare(text)).toBe('JSON_SYNTAX');
});

test('limits are kept to the last one that is allowed', () => {
  const text = encode(JSON.stringify(triangle()));
  const codeWith = (limits: Partial<typeof DEFAULT_LIMITS>, bytes = text) => {
    const result = read(bytes, { ...DEFAULT_LIMITS, ...limits });
    return result instanceof SrcError ? result.code : 'read';
  };
  expect([codeWith({ entries: 2 }), codeWith({ entries: 1 })]).toEqual(['read', 'LIMIT_EXCEEDED']);
  expect([codeWith({ stringLength: 14 }), codeWith({ stringLength: 13 })]).toEqual(['read', 'LIMIT_EXCEEDED']);
  const deep = encode(JSON.stringify({ ...triangle(), meta: { a: [[[[[[]]]]]] } })); // eight
  expect([codeWith({ depth: 8 }, deep), codeWith({ depth: 7 }, deep)]).toEqual(['read', 'LIMIT_EXCEEDED']);
  const deepMesh: any = triangle();
  deepMesh.meshes.m.meta = { a: [[[]]] }; // the root, "meshes", "m" and "meta" around three lists
  const bytes = encode(JSON.stringify(deepMesh));
  expect([codeWith({ depth: 7 }, bytes), codeWith({ depth: 6 }, bytes)]).toEqual(['read', 'LIMIT_EXCEEDED']);
});

describe('of two faults, the one is told that C++ meets first:', () => {
  const cases: [string, string, (h: any) => void][] = [
    [
      'the first in the text',
      '/bufferChunks/c0/byteLength',
      (h) => {
        h.bufferChunks.c0.byteLength = -1;
        h.meshes.m.primitive = 9;
      },
    ],
    [
      'a wrong value before a missing one',
      '/bufferChunks/c0/byteOffset',
      (h) => {
        h.bufferChunks.c0 = { byteOffset: 'x' };
      },
    ],
    [
      'a missing view section before what comes behind it',
      '/accessors/attributeViews',
      (h) => {
        delete h.accessors.attributeViews;
        h.bufferChunks = [];
      },
    ],
    [
      'a missing section before a reference into it',
      '/bufferViews',
      (h) => {
        delete h.bufferViews;
      },
    ],
  ];
  test.each(cases)('%s', (_, path, change) => {
    const header = triangle();
    change(header);
    expect((read(encode(JSON.stringify(header))) as SrcError).path).toBe(path);
  });

  test('a wrong value before text that is no JSON', () => {
    const text = JSON.stringify(triangle()).replace('"byteLength":6', '"byteLength":-6').replace(/\}$/, 'oops');
    expect((read(encode(text)) as SrcError).code).toBe('BAD_NUMBER');
  });

  test('but a text without an end, or with a control character, before all else', () => {
    const wrong = JSON.stringify(triangle()).replace('"byteLength":6', '"byteLength":-6');
    expect((read(encode(wrong.replace(/\}$/, '"'))) as SrcError).code).toBe('JSON_SYNTAX');
    expect((read(encode(wrong.replace(/\}$/, ',"x":"\n"}'))) as SrcError).code).toBe('JSON_SYNTAX');
  });
});

test('what is alike is the same object', () => {
  const header = readHeader(headerOf('many-cmp1'), DEFAULT_LIMITS);
  const [mesh] = header.meshes;
  expect(mesh!.attributes[0]!.view.owner).toBe(mesh);
  expect(mesh!.attributes[0]!.view.bufferView).toBe(header.bufferViews[mesh!.attributes[0]!.view.bufferView.index]);
  expect(mesh!.material).toBe(header.materials.get(mesh!.material!.id));
  const looks = new Map([...header.materials.values()].map(({ look, values }) => [look, values]));
  expect(looks.size).toBe(3);
  for (const { look, values } of header.materials.values()) expect(values).toBe(looks.get(look));
});
