import type { SrcCode } from './codes.js';
import { parseHeaderText, placeOf } from './json.js';
import { exceeds, type ReadLimits } from './limits.js';
import {
  BYTE,
  componentSize,
  FLOAT,
  isCombined,
  LINES,
  POINTS,
  TRIANGLE_FAN,
  TRIANGLES,
  UNSIGNED_BYTE,
  UNSIGNED_INT,
  UNSIGNED_SHORT,
  type JsonObject,
  type JsonValue,
  type SrcAttribute,
  type SrcAttributeView,
  type SrcBounds,
  type SrcBufferView,
  type SrcChunk,
  type SrcFit,
  type SrcHeader,
  type SrcIndexView,
  type SrcMaterial,
  type SrcMesh,
  type SrcTechnique,
} from './model.js';
import { drawnBoundsFrom } from './bounds.js';
import { commonOrigin, originFrom } from './origin.js';
import { SrcError } from './SrcError.js';

type Path = readonly string[];

export const pointerOf = (path: Path) =>
  path.map((key) => '/' + key.replaceAll('~', '~0').replaceAll('/', '~1')).join('');

function kindOf(value: unknown): string {
  if (value === null) return 'null';
  if (Array.isArray(value)) return 'a list';
  switch (typeof value) {
    case 'object':
      return 'an object';
    case 'string':
      return 'a text';
    case 'number':
      return 'a number';
    default:
      return 'true or false';
  }
}

const PATHS = {
  attributeViews: ['accessors', 'attributeViews'],
  indexViews: ['accessors', 'indexViews'],
  chunks: ['bufferChunks'],
  bufferViews: ['bufferViews'],
  meshes: ['meshes'],
};

const TYPES = ['SCALAR', 'VEC2', 'VEC3', 'VEC4'];

/** The order in which numbered meshes were written: "0", "1", ... or "mesh0", "mesh1", ... */
function inWritingOrder(ids: string[]): string[] {
  const numbers = new Map<string, number>();
  for (const id of ids) {
    const match = /^(?:mesh)?(0|[1-9]\d{0,14})$/.exec(id);
    if (!match) return ids;
    numbers.set(id, Number(match[1]));
  }
  return ids.sort((a, b) => numbers.get(a)! - numbers.get(b)!);
}

/** The numbers of a list, or the one number. */
function numbersOf(value: unknown): number[] | null {
  const list = Array.isArray(value) ? value : [value];
  return list.every((x) => typeof x === 'number' && Number.isFinite(x)) ? list : null;
}

function isObject(value: unknown): value is JsonObject {
  return typeof value === 'object' && value !== null && !Array.isArray(value);
}

/** Metadata's "fit" of one attribute, when it has as many numbers as the attribute has components. */
export function fitOf(fit: JsonValue | undefined, { name, view }: Omit<SrcAttribute, 'fit'>): SrcFit | null {
  // Of the interleaved attribute, the first three components are the positions; the fourth holds the normal.
  const combined = isCombined({ name, view });
  const key = combined ? 'position' : name,
    components = combined ? 3 : view.components;
  if (!isObject(fit) || !Object.hasOwn(fit, key)) return null;
  const entry = fit[key];
  if (!isObject(entry)) return null;
  const offset = numbersOf(entry.offset),
    scale = numbersOf(entry.scale);
  if (offset?.length !== components || scale?.length !== components) return null;
  return { offset, scale };
}

/**
 * Everything that a header says is checked here, once; what comes later may trust lengths, offsets
 * and references. Numbers are whole and below 2^53; comparisons are arranged so that rounding of larger sums
 * and products cannot let anything through.
 *
 * `textOffset` is the text's place in the file. This is the plain reader, on a tree of JSON values. It states the rules
 * and says which of them is broken; files without fault go through readTable, which is several times as fast and must
 * never be more generous.
 */
export function readTree(text: Uint8Array, textOffset: number, limits: ReadLimits): SrcHeader {
  const dataOffset = textOffset + text.length;

  const fail = (code: SrcCode, path: Path, detail?: string): never => {
    throw new SrcError(code, {
      byteOffset: textOffset + placeOf(text, path),
      path: pointerOf(path),
      detail,
    });
  };
  const wrongType = (path: Path, what: string, value: unknown) =>
    fail('WRONG_TYPE', path, `expected ${what}, found ${kindOf(value)}`);

  const nameIsLong = (name: string, path: Path): never => {
    throw exceeds('stringLength', name.length, limits.stringLength, { path: pointerOf(path) });
  };
  // Hundreds of thousands of values come through here: their paths are made only when something is wrong.
  const textOf = (entry: JsonObject, key: string, path: Path, id: string): string => {
    const value = entry[key];
    if (typeof value !== 'string') {
      if (value === undefined) fail('MISSING_KEY', [...path, id, key]);
      return wrongType([...path, id, key], 'a text', value);
    }
    if (value.length > limits.stringLength) nameIsLong(value, [...path, id, key]);
    return value;
  };
  const countOf = (entry: JsonObject, key: string, path: Path, id: string): number => {
    const value = entry[key];
    if (typeof value !== 'number') {
      if (value === undefined) fail('MISSING_KEY', [...path, id, key]);
      return wrongType([...path, id, key], 'a number', value);
    }
    if (!Number.isSafeInteger(value) || value < 0) fail('BAD_NUMBER', [...path, id, key], `found ${value}`);
    return value + 0;
  };
  const numbersIn = (entry: JsonObject, key: string, path: Path, id: string): number[] | null => {
    const value = entry[key];
    if (value === undefined) return null;
    if (!Array.isArray(value)) return wrongType([...path, id, key], 'a list of numbers', value);
    for (let i = 0; i < value.length; ++i) {
      const number = value[i];
      if (typeof number !== 'number') wrongType([...path, id, key, String(i)], 'a number', number);
      else if (!Number.isFinite(number)) fail('BAD_NUMBER', [...path, id, key, String(i)], 'too large for a number');
    }
    return value as number[];
  };
  const checkKeys = (keys: string[], path: Path) => {
    if (keys.length > limits.entries) throw exceeds('entries', keys.length, limits.entries, { path: pointerOf(path) });
    for (const key of keys) if (key.length > limits.stringLength) nameIsLong(key, path);
  };
  /** Each entry of a section by its ID. Maps, since an ID may be "__proto__". */
  const section = <T>(value: JsonValue | undefined, path: Path, make: (entry: JsonObject, id: string) => T) => {
    const result = new Map<string, T>();
    if (value === undefined) return result;
    if (!isObject(value)) return wrongType(path, 'an object', value);
    const keys = Object.keys(value);
    checkKeys(keys, path);
    for (const id of keys) {
      const entry = value[id]!;
      if (!isObject(entry)) wrongType([...path, id], 'an object', entry);
      result.set(id, make(entry as JsonObject, id));
    }
    return result;
  };
  const objectOf = (value: JsonValue | undefined, ...path: string[]): JsonObject => {
    if (value === undefined) return {};
    return isObject(value) ? value : wrongType(path, 'an object', value);
  };
  const metadataOf = (value: JsonValue | undefined, ...path: string[]): JsonValue => {
    if (value === undefined) return null;
    // A text is what the public writer stores when the caller's texts did not make an object.
    return isObject(value) || typeof value === 'string' ? value : wrongType(path, 'an object', value);
  };

  const root = parseHeaderText(text, textOffset, limits.depth) as JsonValue;
  if (!isObject(root)) return wrongType([], 'an object', root);

  // ---- First every entry by itself ...

  // References by name, in the order of the entries that make them, kept until all sections are read.
  const attributeBuffers: string[] = [];
  const indexBuffers: string[] = [];
  const accessors = objectOf(root.accessors, 'accessors');

  const componentTypeOf = (entry: JsonObject, forIndices: boolean, kind: string, id: string): number => {
    const type = countOf(entry, 'componentType', ['accessors', kind], id);
    const good = forIndices
      ? type === UNSIGNED_SHORT || type === UNSIGNED_INT || type === UNSIGNED_BYTE
      : type >= BYTE && type <= FLOAT;
    if (!good) fail('BAD_COMPONENT_TYPE', ['accessors', kind, id, 'componentType'], `found ${type}`);
    return type;
  };

  const attributeViews = section(
    accessors.attributeViews,
    ['accessors', 'attributeViews'],
    (entry, id): SrcAttributeView => {
      const at = (...keys: string[]) => ['accessors', 'attributeViews', id, ...keys];
      const bufferView = textOf(entry, 'bufferView', PATHS.attributeViews, id);
      const byteOffset = countOf(entry, 'byteOffset', PATHS.attributeViews, id);
      const statedStride = countOf(entry, 'byteStride', PATHS.attributeViews, id);
      const componentType = componentTypeOf(entry, false, 'attributeViews', id);
      const count = countOf(entry, 'count', PATHS.attributeViews, id);
      const offsets = numbersIn(entry, 'decodeOffset', PATHS.attributeViews, id);
      const scales = numbersIn(entry, 'decodeScale', PATHS.attributeViews, id);
      const type = textOf(entry, 'type', PATHS.attributeViews, id);
      const components = TYPES.indexOf(type) + 1;
      if (components === 0) fail('BAD_TYPE', at('type'), `found "${type.slice(0, 80)}"`);
      if (offsets && offsets.length !== components) {
        fail('WRONG_LENGTH', at('decodeOffset'), `${offsets.length} numbers for ${components} components`);
      }
      if (scales && scales.length !== components) {
        fail('WRONG_LENGTH', at('decodeScale'), `${scales.length} numbers for ${components} components`);
      }
      let decoded = false;
      for (let c = 0; c < components; ++c) {
        if (scales && scales[c] === 0) fail('ZERO_DECODE_SCALE', at('decodeScale', String(c)), `component ${c}`);
        if ((scales && scales[c] !== 1) || (offsets && offsets[c] !== 0)) decoded = true;
      }
      let componentBytes = componentSize(componentType);
      const byteStride = statedStride || components * componentBytes;
      // Codes of 17 to 32 bits are stored in slots of 3 bytes, which shows in the stride alone.
      if (componentType === UNSIGNED_INT && byteStride < components * 4) componentBytes = 3;
      if (byteStride < components * componentBytes) {
        fail('BAD_STRIDE', at('byteStride'), `${byteStride} for elements of ${components * componentBytes} bytes`);
      }
      const view: SrcAttributeView = {
        id,
        bufferView: NO_BUFFER,
        byteOffset,
        byteStride,
        componentType,
        components,
        componentBytes,
        count,
        decodeOffset: offsets ?? new Array(components).fill(0),
        decodeScale: scales ?? new Array(components).fill(1),
        decoded,
        owner: null,
      };
      attributeBuffers.push(bufferView);
      return view;
    },
  );

  const indexViews = section(accessors.indexViews, ['accessors', 'indexViews'], (entry, id): SrcIndexView => {
    const bufferView = textOf(entry, 'bufferView', PATHS.indexViews, id);
    const byteOffset = countOf(entry, 'byteOffset', PATHS.indexViews, id);
    const componentType = componentTypeOf(entry, true, 'indexViews', id);
    const count = countOf(entry, 'count', PATHS.indexViews, id);
    indexBuffers.push(bufferView);
    return { id, bufferView: NO_BUFFER, byteOffset, componentType, count };
  });
  if (root.accessors !== undefined) {
    for (const kind of ['attributeViews', 'indexViews']) {
      if (accessors[kind] === undefined) fail('MISSING_SECTION', ['accessors', kind]);
    }
  }

  let chunkCount = 0;
  const chunks = section(root.bufferChunks, ['bufferChunks'], (entry, id): SrcChunk => ({
    id,
    byteLength: countOf(entry, 'byteLength', PATHS.chunks, id),
    byteOffset: countOf(entry, 'byteOffset', PATHS.chunks, id),
    index: chunkCount++,
  }));

  let chunkNames = 0;
  let viewCount = 0;
  const bufferViews = section(root.bufferViews, ['bufferViews'], (entry, id): SrcBufferView => {
    const byteLength = countOf(entry, 'byteLength', PATHS.bufferViews, id);
    const names = entry.chunks;
    if (names === undefined) return fail('MISSING_KEY', ['bufferViews', id, 'chunks']);
    if (!Array.isArray(names)) return wrongType(['bufferViews', id, 'chunks'], 'a list of texts', names);
    chunkNames += names.length;
    if (chunkNames > limits.entries) throw exceeds('entries', chunkNames, limits.entries, { path: '/bufferViews' });
    for (let i = 0; i < names.length; ++i) {
      if (typeof names[i] !== 'string') wrongType(['bufferViews', id, 'chunks', String(i)], 'a text', names[i]);
    }
    const list = names as unknown as SrcChunk[]; // once they are resolved
    return { id, byteLength, storedBytes: 0, dataOffset: -1, chunks: list, index: viewCount++ };
  });

  const techniqueNames: (string | null)[] = [];
  const materials = section(root.materials, ['materials'], (entry, id): SrcMaterial => {
    const instance = objectOf(entry.instanceTechnique, 'materials', id, 'instanceTechnique');
    const values = objectOf(instance.values, 'materials', id, 'instanceTechnique', 'values');
    techniqueNames.push(
      instance.technique === undefined ? null : textOf(instance, 'technique', ['materials', id], 'instanceTechnique'),
    );
    return { id, technique: null, values };
  });

  const boundsVector = (entry: JsonObject, key: string, id: string) => {
    const numbers = numbersIn(entry, key, PATHS.meshes, id);
    if (numbers && numbers.length !== 3)
      fail('WRONG_LENGTH', ['meshes', id, key], `${numbers.length} numbers for 3 axes`);
    return numbers as [number, number, number] | null;
  };
  let attributeCount = 0;
  const meshes = section(root.meshes, ['meshes'], (entry, id): NamedMesh => {
    if (entry.attributes === undefined) fail('MISSING_KEY', ['meshes', id, 'attributes']);
    const attributes = objectOf(entry.attributes, 'meshes', id, 'attributes');
    for (const name of Object.keys(attributes)) {
      const view = attributes[name];
      if (typeof view !== 'string') wrongType(['meshes', id, 'attributes', name], 'a text', view);
      if (name.length > limits.stringLength) nameIsLong(name, ['meshes', id, 'attributes']);
      if (++attributeCount > limits.entries)
        throw exceeds('entries', attributeCount, limits.entries, { path: '/meshes' });
    }
    const center = boundsVector(entry, 'bboxCenter', id);
    const size = boundsVector(entry, 'bboxSize', id);
    const bounds: SrcBounds | null = center && size && { center, size };
    const indices = entry.indices === undefined ? '' : textOf(entry, 'indices', PATHS.meshes, id);
    const material = entry.material === undefined ? '' : textOf(entry, 'material', PATHS.meshes, id);
    const metadata = metadataOf(entry.meta, 'meshes', id, 'meta');
    const primitive = countOf(entry, 'primitive', PATHS.meshes, id);
    if (primitive > TRIANGLE_FAN) fail('BAD_PRIMITIVE', ['meshes', id, 'primitive'], `found ${primitive}`);
    const mesh: SrcMesh = {
      id,
      index: 0,
      primitive,
      drawnAs: drawnAs(primitive, metadata),
      indices: null,
      material: null,
      attributes: [],
      bounds,
      origin: originFrom(isObject(metadata) ? metadata.origin : undefined),
      drawnBounds: drawnBoundsFrom(isObject(metadata) ? metadata.bounds : undefined),
      metadata,
    };
    return { mesh, attributes, indices, material };
  });

  const metadata = metadataOf(root.meta, 'meta');
  const techniques = section(root.techniques, ['techniques'], (entry, id): SrcTechnique => {
    if (entry.parameters === undefined) fail('MISSING_KEY', ['techniques', id, 'parameters']);
    return { id, parameters: objectOf(entry.parameters, 'techniques', id, 'parameters') };
  });
  objectOf(root.textureViews, 'textureViews');
  objectOf(root.textures, 'textures');
  for (const name of ['accessors', 'bufferChunks', 'bufferViews', 'meshes']) {
    if (root[name] === undefined) fail('MISSING_SECTION', [name]);
  }

  // ---- ... then what they say about each other.

  const dangling = (code: SrcCode, name: string, ...path: string[]) => fail(code, path, `"${name.slice(0, 80)}"`);

  const chunkOf = (view: SrcBufferView, i: number): SrcChunk => {
    const name = view.chunks[i] as unknown as string;
    return chunks.get(name) ?? dangling('DANGLING_CHUNK', name, 'bufferViews', view.id, 'chunks', String(i));
  };
  for (const view of bufferViews.values()) {
    // The list of names becomes the list of chunks.
    let stored = 0,
      end = -1;
    view.dataOffset = 0;
    for (let i = 0; i < view.chunks.length; ++i) {
      const chunk = chunkOf(view, i);
      view.chunks[i] = chunk;
      stored += chunk.byteLength;
      if (i === 0) view.dataOffset = chunk.byteOffset;
      else if (chunk.byteOffset !== end) view.dataOffset = -1;
      end = chunk.byteOffset + chunk.byteLength;
    }
    view.storedBytes = Math.min(stored, view.byteLength);
  }

  // Sums and products of numbers below 2^53 may round, but not to below 2^53, and no view holds that much.
  const checkView = (
    kind: string,
    name: string,
    view: SrcIndexView | SrcAttributeView,
    stride: number,
    element: number,
  ) => {
    const bufferView = bufferViews.get(name);
    if (!bufferView) return dangling('DANGLING_BUFFER_VIEW', name, 'accessors', kind, view.id, 'bufferView');
    view.bufferView = bufferView;
    const room = bufferView.storedBytes - view.byteOffset;
    if (room < 0 || (view.count > 0 && (element > room || (view.count - 1) * stride > room - element))) {
      fail(
        'VIEW_PAST_END',
        ['accessors', kind, view.id],
        `${view.count} elements, ${stride} bytes apart, from byte ${view.byteOffset} of ${bufferView.storedBytes}`,
      );
    }
  };
  let nth = 0;
  for (const view of indexViews.values()) {
    const size = componentSize(view.componentType);
    checkView('indexViews', indexBuffers[nth++]!, view, size, size);
  }
  nth = 0;
  for (const view of attributeViews.values()) {
    checkView('attributeViews', attributeBuffers[nth++]!, view, view.byteStride, view.components * view.componentBytes);
  }

  nth = 0;
  for (const material of materials.values()) {
    const name = techniqueNames[nth++]!;
    material.technique = name === null ? null : (techniques.get(name) ?? null);
  }

  const ordered = inWritingOrder([...meshes.keys()]).map((id, index): SrcMesh => {
    const { mesh, attributes, indices, material } = meshes.get(id)!;
    mesh.index = index;
    if (indices !== '') {
      const view = indexViews.get(indices);
      if (!view) return dangling('DANGLING_INDEX_VIEW', indices, 'meshes', mesh.id, 'indices');
      mesh.indices = view;
    }
    mesh.material = material === '' ? null : (materials.get(material) ?? null);
    const resolved = Object.keys(attributes).map((name): SrcAttribute => {
      const id = attributes[name] as string;
      const view = attributeViews.get(id);
      if (!view) return dangling('DANGLING_ATTRIBUTE_VIEW', id, 'meshes', mesh.id, 'attributes', name);
      view.owner ??= mesh;
      return { name, view, fit: fitOf(isObject(mesh.metadata) ? mesh.metadata.fit : undefined, { name, view }) };
    });
    mesh.attributes = ownAttributes(resolved, mesh);
    return mesh;
  });

  const allChunks = [...chunks.values()];
  let dataBytes = 0;
  for (const chunk of allChunks) {
    const end = chunk.byteOffset + chunk.byteLength;
    if (end > dataBytes) dataBytes = end;
  }
  return {
    metadata,
    meshes: ordered,
    origin: commonOrigin(ordered),
    materials,
    techniques,
    chunks: allChunks,
    bufferViews: [...bufferViews.values()],
    dataOffset,
    dataBytes,
    totalBytes: dataOffset + dataBytes,
  };
}

/** A mesh before its references are resolved. */
interface NamedMesh {
  mesh: SrcMesh;
  attributes: JsonObject;
  indices: string;
  material: string;
}

const NO_BUFFER: SrcBufferView = { id: '', byteLength: 0, storedBytes: 0, dataOffset: 0, chunks: [], index: -1 };

function drawnAs(primitive: number, metadata: JsonValue): number {
  if (primitive !== TRIANGLES || !isObject(metadata) || metadata.numOriginalTriangles !== undefined) return primitive;
  if (typeof metadata.numOriginalPoints === 'number') return POINTS;
  if (typeof metadata.numOriginalLines === 'number') return LINES;
  return primitive;
}

/** Those that were written for the mesh that the positions were written for, and have as many elements. */
function ownAttributes(attributes: SrcAttribute[], mesh: SrcMesh): SrcAttribute[] {
  const position = attributes.find((a) => a.name === 'position') ?? attributes.find(isCombined);
  const owner = position?.view.owner ?? mesh;
  const isOwn = ({ view }: SrcAttribute) => view.owner === owner && (!position || view.count === position.view.count);
  return attributes.every(isOwn) ? attributes : attributes.filter(isOwn);
}

