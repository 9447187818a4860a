import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { PROJECT } from '../../support/paths.js';
import {
  SrcError,
  type JsonObject,
  type JsonValue,
  type MeshArrays,
  type SrcHeader,
} from '../src/core/index.js';
import { SrcAssembler } from '../src/core/SrcAssembler.js';

/** The files that write_web_fixtures writes; web/test.sh says where. */
const FIXTURES = process.env.KELSRC_WEB_FIXTURES ?? join(PROJECT, 'build/web/fixtures');

export function fixture(name: string): Uint8Array<ArrayBuffer> {
  return new Uint8Array(readFileSync(join(FIXTURES, `${name}.src`)));
}

export interface ReadBack {
  meshes: { id: string; indices: number[] | null; attributes: Record<string, number[]> }[];
}

/** What the C++ reader reads in a fixture, or says to it. */
export function told<T = ReadBack>(name: string): T {
  return JSON.parse(readFileSync(join(FIXTURES, `${name}.json`), 'utf8')) as T;
}

/** An SRC file of this header and data. */
export function srcOf(header: unknown, data: Uint8Array | number[] = []): Uint8Array<ArrayBuffer> {
  const text = new TextEncoder().encode(typeof header === 'string' ? header : JSON.stringify(header));
  const bytes = new Uint8Array(12 + text.length + data.length);
  const view = new DataView(bytes.buffer);
  view.setUint32(0, 23, true);
  view.setUint32(4, 42, true);
  view.setUint32(8, text.length, true);
  bytes.set(text, 12);
  bytes.set(data, 12 + text.length);
  return bytes;
}

/** The same file, whose meshes' metadata says these origins; `originOf` is given their IDs. */
export function withOrigins(bytes: Uint8Array, originOf: (id: string) => unknown): Uint8Array<ArrayBuffer> {
  const length = new DataView(bytes.buffer, bytes.byteOffset).getUint32(8, true);
  const header = JSON.parse(new TextDecoder().decode(bytes.subarray(12, 12 + length)));
  for (const [id, mesh] of Object.entries<JsonObject>(header.meshes)) {
    mesh.meta = { ...(mesh.meta as JsonObject), origin: originOf(id) as JsonValue };
  }
  return srcOf(header, bytes.subarray(12 + length));
}

/** A triangle of three 16-bit positions and three 16-bit indices: 18 + 6 bytes of data. */
export function triangle(): JsonObject {
  return {
    accessors: {
      attributeViews: {
        a: {
          bufferView: 'positions',
          byteOffset: 0,
          byteStride: 6,
          componentType: 5123,
          count: 3,
          decodeOffset: [0, 0, 0],
          decodeScale: [2, 2, 2],
          type: 'VEC3',
        },
      },
      indexViews: { i: { bufferView: 'indices', byteOffset: 0, componentType: 5123, count: 3 } },
    },
    bufferChunks: { c0: { byteLength: 6, byteOffset: 0 }, c1: { byteLength: 18, byteOffset: 6 } },
    bufferViews: { indices: { byteLength: 6, chunks: ['c0'] }, positions: { byteLength: 18, chunks: ['c1'] } },
    materials: {},
    meshes: { m: { attributes: { position: 'a' }, indices: 'i', material: '', primitive: 4 } },
    meta: {},
    techniques: {},
    textureViews: {},
    textures: {},
  };
}

export const TRIANGLE_DATA = [0, 0, 1, 0, 2, 0, ...[0, 0, 0, 4, 0, 0, 0, 4, 0].flatMap((x) => [x, 0])];

/** The code of the error that `action` throws; "" when it throws none. */
export function codeOf(action: () => unknown): string {
  try {
    action();
    return '';
  } catch (error) {
    if (error instanceof SrcError) return error.code;
    throw error;
  }
}

export function errorOf(action: () => unknown): SrcError {
  try {
    action();
  } catch (error) {
    if (error instanceof SrcError) return error;
    throw error;
  }
  throw new Error('nothing was thrown');
}

/** A file that arrives in pieces of `size` bytes. */
export function assembled(bytes: Uint8Array, size: number): { header: SrcHeader; meshes: MeshArrays[] } {
  const assembler = new SrcAssembler();
  const meshes: MeshArrays[] = [];
  for (let at = 0; at < bytes.length; at += size) {
    assembler.push(bytes.slice(at, at + size));
    for (let mesh = assembler.take(); mesh; mesh = assembler.take()) meshes.push(mesh);
  }
  assembler.end();
  for (let mesh = assembler.take(); mesh; mesh = assembler.take()) meshes.push(mesh);
  return { header: assembler.header!, meshes };
}
