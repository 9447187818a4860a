import { describe, expect, test } from 'vitest';
import { parseSrc } from '../src/core/index.js';
import { SrcAssembler } from '../src/core/SrcAssembler.js';
import { codeOf, errorOf, fixture, srcOf, told, triangle, TRIANGLE_DATA } from './support.js';

interface Told {
  cut: string[];
  flipped1: string[];
  flipped128: string[];
}

/** What two lists disagree in, in a form that a failure shows well. */
function differences(found: string[], expected: string[]): string[] {
  return found.flatMap((code, at) => (code === expected[at] ? [] : [`${at}: ${code}, C++ says ${expected[at]}`]));
}

describe.each(['broken-container', 'broken-public'])('%s', (name) => {
  const good = fixture(name);
  const expected = told<Told>(name);

  test('cut at every length, is refused with the code of the C++ reader', () => {
    const found = expected.cut.map((_, length) => codeOf(() => parseSrc(good.slice(0, length))));
    expect(differences(found, expected.cut)).toEqual([]);
  });

  test('cut at every length, is refused as a stream too', () => {
    const found = expected.cut.map((_, length) =>
      codeOf(() => {
        const assembler = new SrcAssembler();
        for (let at = 0; at < length; at += 100) assembler.push(good.slice(at, Math.min(at + 100, length)));
        assembler.end();
      }),
    );
    expect(differences(found, expected.cut)).toEqual([]);
  });

  test.each([
    ['lowest', 1, expected.flipped1],
    ['highest', 128, expected.flipped128],
  ])('with the %s bit of any byte flipped, is refused with the code of the C++ reader', (_, mask, codes) => {
    const found = codes.map((_, at) => {
      const bad = good.slice();
      bad[at]! ^= mask;
      return codeOf(() => parseSrc(bad));
    });
    expect(differences(found, codes)).toEqual([]);
  });
});

test('the good file of the tests below is good', () => {
  const file = parseSrc(srcOf(triangle(), TRIANGLE_DATA));
  expect([...file.arrays(file.meshes[0]!).indices!]).toEqual([0, 1, 2]);
});

describe('what is no SRC file is called by its name', () => {
  const text = (content: string) => new TextEncoder().encode(content) as Uint8Array<ArrayBuffer>;
  test.each([
    ['EMPTY_FILE', new Uint8Array(0)],
    ['LOOKS_LIKE_HTML', text('<!doctype html><title>404</title>')],
    ['LOOKS_LIKE_HTML', text('\n\n  <html>')],
    ['LOOKS_LIKE_GLB', text('glTF\u0002\0\0\0 and so on')],
    ['WRONG_SIGNATURE', text('solid cube')],
    ['TRUNCATED_PREAMBLE', new Uint8Array([23, 0, 0, 0, 42])],
    ['UNKNOWN_LAYOUT', new Uint8Array([23, 0, 0, 0, 43, 0, 0, 0, 1, 0, 0, 0])],
    ['HEADER_EMPTY', new Uint8Array([23, 0, 0, 0, 42, 0, 0, 0, 0, 0, 0, 0])],
    ['HEADER_TRUNCATED', new Uint8Array([23, 0, 0, 0, 42, 0, 0, 0, 9, 0, 0, 0, 0x7b])],
    ['LIMIT_EXCEEDED', new Uint8Array([23, 0, 0, 0, 42, 0, 0, 0, 255, 255, 255, 255])],
  ])('%s', (code, bytes) => {
    expect(codeOf(() => parseSrc(bytes))).toBe(code);
    const assembler = new SrcAssembler();
    const push = () => {
      for (const byte of bytes) assembler.push(new Uint8Array([byte]));
      assembler.end();
    };
    expect(codeOf(push)).toBe(code);
  });
});

describe('one thing broken gives its own code and place', () => {
  type Change = (header: any) => void;
  const cases: [string, string, Change][] = [
    ['MISSING_SECTION', '/meshes', (h) => delete h.meshes],
    ['MISSING_SECTION', '/accessors/indexViews', (h) => delete h.accessors.indexViews],
    ['WRONG_TYPE', '/meshes', (h) => (h.meshes = [])],
    ['WRONG_TYPE', '/meshes/m/indices', (h) => (h.meshes.m.indices = 3)],
    ['WRONG_TYPE', '/materials/x', (h) => (h.materials.x = null)],
    ['WRONG_TYPE', '/bufferViews/indices/chunks/0', (h) => (h.bufferViews.indices.chunks[0] = {})],
    ['WRONG_TYPE', '/textures', (h) => (h.textures = 1)],
    ['MISSING_KEY', '/bufferChunks/c0/byteOffset', (h) => delete h.bufferChunks.c0.byteOffset],
    ['MISSING_KEY', '/meshes/m/primitive', (h) => delete h.meshes.m.primitive],
    ['BAD_NUMBER', '/bufferChunks/c0/byteLength', (h) => (h.bufferChunks.c0.byteLength = -1)],
    ['BAD_NUMBER', '/bufferChunks/c0/byteLength', (h) => (h.bufferChunks.c0.byteLength = 0.5)],
    ['BAD_NUMBER', '/bufferChunks/c0/byteLength', (h) => (h.bufferChunks.c0.byteLength = 2 ** 53)],
    ['BAD_NUMBER', '/accessors/attributeViews/a/count', (h) => (h.accessors.attributeViews.a.count = 1e308)],
    [
      'BAD_COMPONENT_TYPE',
      '/accessors/attributeViews/a/componentType',
      (h) => (h.accessors.attributeViews.a.componentType = 5127),
    ],
    [
      'BAD_COMPONENT_TYPE',
      '/accessors/indexViews/i/componentType',
      (h) => (h.accessors.indexViews.i.componentType = 5126),
    ],
    ['BAD_TYPE', '/accessors/attributeViews/a/type', (h) => (h.accessors.attributeViews.a.type = 'MAT4')],
    ['BAD_PRIMITIVE', '/meshes/m/primitive', (h) => (h.meshes.m.primitive = 7)],
    ['BAD_STRIDE', '/accessors/attributeViews/a/byteStride', (h) => (h.accessors.attributeViews.a.byteStride = 5)],
    ['WRONG_LENGTH', '/accessors/attributeViews/a/decodeScale', (h) => h.accessors.attributeViews.a.decodeScale.pop()],
    ['WRONG_LENGTH', '/meshes/m/bboxSize', (h) => (h.meshes.m.bboxSize = [1, 2])],
    [
      'ZERO_DECODE_SCALE',
      '/accessors/attributeViews/a/decodeScale/1',
      (h) => (h.accessors.attributeViews.a.decodeScale[1] = 0),
    ],
    ['DANGLING_CHUNK', '/bufferViews/positions/chunks/0', (h) => (h.bufferViews.positions.chunks = ['toString'])],
    [
      'DANGLING_BUFFER_VIEW',
      '/accessors/indexViews/i/bufferView',
      (h) => (h.accessors.indexViews.i.bufferView = '__proto__'),
    ],
    ['DANGLING_INDEX_VIEW', '/meshes/m/indices', (h) => (h.meshes.m.indices = 'constructor')],
    ['DANGLING_ATTRIBUTE_VIEW', '/meshes/m/attributes/position', (h) => (h.meshes.m.attributes.position = 'b')],
    ['VIEW_PAST_END', '/accessors/indexViews/i', (h) => (h.accessors.indexViews.i.count = 4)],
    ['VIEW_PAST_END', '/accessors/indexViews/i', (h) => (h.accessors.indexViews.i.byteOffset = 7)],
    [
      'VIEW_PAST_END',
      '/accessors/attributeViews/a',
      (h) => (h.accessors.attributeViews.a.count = Number.MAX_SAFE_INTEGER),
    ],
    [
      'VIEW_PAST_END',
      '/accessors/attributeViews/a',
      (h) => (h.accessors.attributeViews.a.byteStride = Number.MAX_SAFE_INTEGER),
    ],
    ['CHUNK_PAST_END', '/bufferChunks/c1', (h) => (h.bufferChunks.c1.byteOffset = 7)],
    ['CHUNK_PAST_END', '/bufferChunks/c1', (h) => (h.bufferChunks.c1.byteLength = Number.MAX_SAFE_INTEGER)],
    [
      'REPEATED_CHUNKS',
      '/bufferViews/positions',
      (h) => {
        h.bufferViews.positions.chunks = ['c1', 'c1'];
        h.bufferViews.positions.byteLength = 36;
      },
    ],
  ];
  test.each(cases)('%s at %s', (code, path, change) => {
    const header = triangle();
    change(header);
    const error = errorOf(() => parseSrc(srcOf(header, TRIANGLE_DATA)));
    expect([error.code, error.path]).toEqual([code, path]);
    expect(error.message).toContain(error.detail);
  });
});

test('an error names the byte at which the value at fault begins', () => {
  const header = triangle();
  (header.meshes as any).m.primitive = 77;
  const file = srcOf(header, TRIANGLE_DATA);
  const { byteOffset } = errorOf(() => parseSrc(file));
  expect(new TextDecoder().decode(file.subarray(byteOffset!, byteOffset! + 2))).toBe('77');
});

test('a syntax error names the byte that cannot stand there', () => {
  const text = JSON.stringify(triangle());
  const at = text.indexOf('"byteLength"');
  const { code, byteOffset } = errorOf(() => parseSrc(srcOf(`${text.slice(0, at)}oops${text.slice(at)}`)));
  expect([code, byteOffset]).toEqual(['JSON_SYNTAX', 12 + at]);
});

test('text that is not UTF-8 is refused', () => {
  const file = srcOf(JSON.stringify({ ...triangle(), meta: { name: '?' } }));
  file[file.indexOf(0x3f)] = 0xff;
  expect(codeOf(() => parseSrc(file))).toBe('JSON_SYNTAX');
});

test('nesting of 100,000 is refused, not followed', () => {
  const deep = '['.repeat(100_000) + ']'.repeat(100_000);
  const text = JSON.stringify(triangle()).replace('"textures":{}', `"textures":{"x":${deep}}`);
  expect(codeOf(() => parseSrc(srcOf(text, TRIANGLE_DATA)))).toBe('LIMIT_EXCEEDED');
});

test('limits can be set, and say which one refused', () => {
  const file = srcOf(triangle(), TRIANGLE_DATA);
  for (const limits of [{ headerBytes: 100 }, { entries: 1 }, { stringLength: 3 }, { depth: 3 }]) {
    const error = errorOf(() => parseSrc(file, limits));
    expect(error.code).toBe('LIMIT_EXCEEDED');
    expect(error.detail).toContain(Object.keys(limits)[0]);
  }
});

test('chunks that share bytes are refused in a stream', () => {
  const header: any = triangle();
  header.bufferChunks.c1.byteOffset = 5;
  const assembler = new SrcAssembler();
  expect(codeOf(() => assembler.push(srcOf(header, TRIANGLE_DATA)))).toBe('STREAM_OVERLAP');
});

test('a stream that claims more than the limit is refused before memory is taken', () => {
  const header: any = triangle();
  header.bufferChunks.c1.byteLength = header.bufferViews.positions.byteLength = 2 ** 40;
  const assembler = new SrcAssembler({ memoryBytes: 2 ** 20 });
  expect(codeOf(() => assembler.push(srcOf(header, TRIANGLE_DATA)))).toBe('LIMIT_EXCEEDED');
});
