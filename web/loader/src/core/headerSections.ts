import { drawnBoundsFrom } from './bounds.js';
import type { SrcCode } from './codes.js';
import { Fault, type Path } from './faults.js';
import { HeaderWalk, type Arriving, type Walking } from './headerWalk.js';
import type { ReadLimits } from './limits.js';
import {
  BYTE,
  componentSize,
  FLOAT,
  isObject,
  LINES,
  POINTS,
  TRIANGLE_FAN,
  TRIANGLES,
  UNSIGNED_BYTE,
  UNSIGNED_INT,
  UNSIGNED_SHORT,
  type JsonObject,
  type JsonValue,
  type SrcAttributeView,
  type SrcBufferView,
  type SrcChunk,
  type SrcIndexView,
  type SrcMaterial,
  type SrcMesh,
  type SrcOrigin,
  type SrcTechnique,
} from './model.js';
import { originFrom } from './origin.js';

const TYPES = ['SCALAR', 'VEC2', 'VEC3', 'VEC4'];
/** By the number of components, shared by all views that need no decoding. */
const ZEROS = [0, 1, 2, 3, 4].map((components) => new Array<number>(components).fill(0)),
  ONES = [0, 1, 2, 3, 4].map((components) => new Array<number>(components).fill(1));

export const ATTRIBUTE_VIEWS: Path = ['accessors', 'attributeViews'],
  INDEX_VIEWS: Path = ['accessors', 'indexViews'],
  CHUNKS: Path = ['bufferChunks'],
  BUFFER_VIEWS: Path = ['bufferViews'],
  MATERIALS: Path = ['materials'],
  MESHES: Path = ['meshes'],
  TECHNIQUES: Path = ['techniques'];

/** A name of an entry of another section, in the place of that entry until all sections are read. */
const named = <T>(name: unknown): T => name as T;

/**
 * Reads and checks each entry of a header by itself. Numbers are whole and below 2^53. Faults are found in the order in
 * which the reader in C++ finds them: as the text goes, and what is missing at the end of each object.
 */
export class HeaderSections {
  metadata: JsonValue = null;
  readonly attributeViews = new Map<string, SrcAttributeView>();
  readonly indexViews = new Map<string, SrcIndexView>();
  readonly chunks = new Map<string, SrcChunk>();
  readonly bufferViews = new Map<string, SrcBufferView>();
  readonly materials = new Map<string, SrcMaterial>();
  readonly meshes = new Map<string, SrcMesh>();
  readonly techniques = new Map<string, SrcTechnique>();

  private readonly walk: HeaderWalk;
  // Of the entry that is being read.
  private path: Path = [];
  private id = '';
  private missing: string | null = null;

  private chunkNames = 0;
  private attributeCount = 0;
  private readonly origins = new Map<string, SrcOrigin>();
  private readonly looks = new Map<string, { values: JsonObject; look: number }>();

  constructor(
    text: Arriving,
    private readonly limits: ReadLimits,
    oneByOne = false,
  ) {
    this.walk = new HeaderWalk(text, limits, oneByOne);
  }

  /** Reads the whole header. Throws Fault. */
  *read(): Walking {
    const { walk } = this;
    const seen = new Set<string>();
    yield* walk.root(
      function* (this: HeaderSections, isObject: boolean): Walking {
        if (!isObject) wrongType([], 'an object', yield* walk.value());
        yield* walk.members((key, isObject) => {
          seen.add(key);
          return this.section(key, isObject);
        });
      }.bind(this),
    );
    requireAll(seen, [], ['accessors', 'bufferChunks', 'bufferViews', 'meshes']);
  }

  private *section(key: string, isObject: boolean): Walking {
    const { walk } = this;
    switch (key) {
      case 'accessors': {
        const seen = new Set<string>();
        if (!isObject) wrongType([key], 'an object', yield* walk.value());
        yield* walk.members((kind, isObject) => {
          seen.add(kind);
          return this.accessors(kind, isObject);
        });
        return requireAll(seen, [key], ['attributeViews', 'indexViews']);
      }
      case 'bufferChunks':
        return yield* this.entries(CHUNKS, isObject, this.chunks, this.chunk);
      case 'bufferViews':
        this.chunkNames = 0;
        return yield* this.entries(BUFFER_VIEWS, isObject, this.bufferViews, this.bufferView);
      case 'materials':
        return yield* this.entries(MATERIALS, isObject, this.materials, this.material);
      case 'meshes':
        this.attributeCount = 0;
        return yield* this.entries(MESHES, isObject, this.meshes, this.mesh);
      case 'techniques':
        return yield* this.entries(TECHNIQUES, isObject, this.techniques, this.technique);
      case 'meta':
        this.metadata = metadataOf(yield* walk.value(), key);
        return;
      case 'textures':
      case 'textureViews':
        objectOf(yield* walk.value(), [key]);
        return;
      default:
        yield* walk.value();
    }
  }

  private *accessors(kind: string, isObject: boolean): Walking {
    if (kind === 'attributeViews') {
      yield* this.entries(ATTRIBUTE_VIEWS, isObject, this.attributeViews, this.attributeView);
    } else if (kind === 'indexViews') {
      yield* this.entries(INDEX_VIEWS, isObject, this.indexViews, this.indexView);
    } else {
      yield* this.walk.value();
    }
  }

  private *entries<T>(
    path: Path,
    isSection: boolean,
    target: Map<string, T>,
    make: (this: this, entry: JsonObject) => T,
  ): Walking {
    if (!isSection) wrongType(path, 'an object', yield* this.walk.value());
    target.clear(); // a section that stands again replaces the first
    this.path = path;
    yield* this.walk.entries(path, (id, entry) => {
      if (!isObject(entry)) return wrongType([...path, id], 'an object', entry);
      this.id = id;
      this.missing = null;
      const made = make.call(this, entry);
      this.checkMissing();
      // An ID that stands again replaces the first, and stands where it stands last.
      const { size } = target;
      if (target.set(id, made).size > size) return;
      target.delete(id);
      target.set(id, made);
    });
  }

  // ---- Values of the entry that is being read. Their paths are made only when something is wrong.

  private fail(code: SrcCode, keys: Path, detail?: string): never {
    throw new Fault(code, [...this.path, this.id, ...keys], detail);
  }

  private wrongType(key: string, what: string, value: JsonValue): never {
    return wrongType([...this.path, this.id, key], what, value);
  }

  /** What is missing is told when nothing else is wrong. */
  private lacks(key: string): void {
    this.missing ??= key;
  }

  private checkMissing(): void {
    if (this.missing !== null) this.fail('MISSING_KEY', [this.missing]);
  }

  private textOf(entry: JsonObject, key: string): string {
    const value = entry[key];
    if (typeof value === 'string') {
      this.walk.checkName(value, this.path);
      return value;
    }
    if (value !== undefined) this.wrongType(key, 'a text', value);
    this.lacks(key);
    return '';
  }

  private optionalText(entry: JsonObject, key: string): string {
    return entry[key] === undefined ? '' : this.textOf(entry, key);
  }

  private countOf(entry: JsonObject, key: string): number {
    const value = entry[key];
    if (typeof value === 'number') {
      if (!Number.isSafeInteger(value) || value < 0) this.fail('BAD_NUMBER', [key], `found ${value}`);
      return value + 0; // and not -0
    }
    if (value !== undefined) this.wrongType(key, 'a number', value);
    this.lacks(key);
    return 0;
  }

  private typeOf(entry: JsonObject, isGood: (type: number) => boolean): number {
    const type = this.countOf(entry, 'componentType');
    if (entry.componentType !== undefined && !isGood(type)) {
      this.fail('BAD_COMPONENT_TYPE', ['componentType'], `found ${type}`);
    }
    return type;
  }

  private numbersOf(entry: JsonObject, key: string): number[] | null {
    const value = entry[key];
    if (value === undefined) return null;
    if (!Array.isArray(value)) return this.wrongType(key, 'a list of numbers', value);
    for (let i = 0; i < value.length; ++i) {
      const number = value[i];
      if (typeof number !== 'number') wrongType([...this.path, this.id, key, String(i)], 'a number', number!);
      else if (!Number.isFinite(number)) this.fail('BAD_NUMBER', [key, String(i)], 'too large for a number');
    }
    return value as number[];
  }

  // ---- Entries

  private attributeView(entry: JsonObject): SrcAttributeView {
    const bufferView = this.textOf(entry, 'bufferView');
    const byteOffset = this.countOf(entry, 'byteOffset');
    const statedStride = this.countOf(entry, 'byteStride');
    const componentType = this.typeOf(entry, (type) => type >= BYTE && type <= FLOAT);
    const count = this.countOf(entry, 'count');
    const offsets = this.numbersOf(entry, 'decodeOffset');
    const scales = this.numbersOf(entry, 'decodeScale');
    const type = this.textOf(entry, 'type');
    const components = TYPES.indexOf(type) + 1;
    if (components === 0 && entry.type !== undefined) this.fail('BAD_TYPE', ['type'], `found "${type.slice(0, 80)}"`);
    this.checkMissing();

    for (const [key, list] of [
      ['decodeOffset', offsets],
      ['decodeScale', scales],
    ] as const) {
      if (!list || list.length === components) continue;
      this.fail('WRONG_LENGTH', [key], `${list.length} numbers for ${components} components`);
    }
    let decoded = false;
    for (let c = 0; c < components; ++c) {
      if (scales && scales[c] === 0) this.fail('ZERO_DECODE_SCALE', ['decodeScale', String(c)], `component ${c}`);
      if ((scales && scales[c] !== 1) || (offsets && offsets[c] !== 0)) decoded = true;
    }
    let componentBytes = componentSize(componentType);
    const byteStride = statedStride || components * componentBytes;
    // Codes of 17 to 32 bits are stored in slots of 3 bytes, which shows in the stride alone.
    if (componentType === UNSIGNED_INT && byteStride < components * 4) componentBytes = 3;
    if (byteStride < components * componentBytes) {
      this.fail('BAD_STRIDE', ['byteStride'], `${byteStride} for elements of ${components * componentBytes} bytes`);
    }
    return {
      id: this.id,
      bufferView: named(bufferView),
      byteOffset,
      byteStride,
      componentType,
      components,
      componentBytes,
      count,
      decodeOffset: (decoded && offsets) || ZEROS[components]!,
      decodeScale: (decoded && scales) || ONES[components]!,
      decoded,
      owner: null,
    };
  }

  private indexView(entry: JsonObject): SrcIndexView {
    const bufferView = this.textOf(entry, 'bufferView');
    const byteOffset = this.countOf(entry, 'byteOffset');
    const isGood = (type: number) => type === UNSIGNED_SHORT || type === UNSIGNED_INT || type === UNSIGNED_BYTE;
    const componentType = this.typeOf(entry, isGood);
    const count = this.countOf(entry, 'count');
    return { id: this.id, bufferView: named(bufferView), byteOffset, componentType, count };
  }

  private chunk(entry: JsonObject): SrcChunk {
    const byteLength = this.countOf(entry, 'byteLength');
    const byteOffset = this.countOf(entry, 'byteOffset');
    return { id: this.id, byteLength, byteOffset, index: 0 };
  }

  private bufferView(entry: JsonObject): SrcBufferView {
    const byteLength = this.countOf(entry, 'byteLength');
    const names = entry.chunks ?? [];
    if (entry.chunks === undefined) this.lacks('chunks');
    if (!Array.isArray(names)) return this.wrongType('chunks', 'a list of texts', names);
    this.chunkNames += names.length;
    if (this.chunkNames > this.limits.entries) {
      throw Fault.limit('entries', this.chunkNames, this.limits, BUFFER_VIEWS);
    }
    for (let i = 0; i < names.length; ++i) {
      if (typeof names[i] === 'string') this.walk.checkName(names[i] as string, BUFFER_VIEWS);
      else wrongType(['bufferViews', this.id, 'chunks', String(i)], 'a text', names[i]!);
    }
    return { id: this.id, byteLength, storedBytes: 0, dataOffset: 0, chunks: named(names), index: 0 };
  }

  private material(entry: JsonObject): SrcMaterial {
    const at = [...MATERIALS, this.id, 'instanceTechnique'];
    const instance = objectOf(entry.instanceTechnique, at);
    let name: string | null = null;
    if (typeof instance.technique === 'string') name = instance.technique;
    else if (instance.technique !== undefined) wrongType([...at, 'technique'], 'a text', instance.technique);
    if (name !== null) this.walk.checkName(name, MATERIALS);
    const values = objectOf(instance.values, [...at, 'values']);
    // Most materials look like one before.
    const text = JSON.stringify([name, values]);
    let known = this.looks.get(text);
    if (!known) this.looks.set(text, (known = { values, look: this.looks.size }));
    return { id: this.id, technique: named(name), values: known.values, look: known.look };
  }

  private mesh(entry: JsonObject): SrcMesh {
    const { id } = this;
    if (entry.attributes === undefined) this.lacks('attributes');
    else if (!isObject(entry.attributes)) this.wrongType('attributes', 'an object', entry.attributes);
    const attributes = (entry.attributes ?? {}) as JsonObject;
    for (const name of Object.keys(attributes)) {
      const view = attributes[name]!;
      if (typeof view !== 'string') return wrongType(['meshes', id, 'attributes', name], 'a text', view);
      this.walk.checkName(name, MESHES);
      this.walk.checkName(view, MESHES);
      if (++this.attributeCount > this.limits.entries) {
        throw Fault.limit('entries', this.attributeCount, this.limits, MESHES);
      }
    }
    const center = this.pointOf(entry, 'bboxCenter');
    const size = this.pointOf(entry, 'bboxSize');
    const indices = this.optionalText(entry, 'indices');
    const material = this.optionalText(entry, 'material');
    const metadata = metadataOf(entry.meta, 'meshes', id, 'meta');
    const primitive = this.countOf(entry, 'primitive');
    if (primitive > TRIANGLE_FAN) this.fail('BAD_PRIMITIVE', ['primitive'], `found ${primitive}`);
    return {
      id,
      index: 0,
      primitive,
      drawnAs: drawnAs(primitive, metadata),
      indices: named(indices),
      material: named(material),
      attributes: named(attributes),
      bounds: center && size && { center, size },
      origin: isObject(metadata) && metadata.origin !== undefined ? this.originOf(metadata.origin) : null,
      drawnBounds: drawnBoundsFrom(isObject(metadata) ? metadata.bounds : undefined),
      metadata,
    };
  }

  /** Origins that are alike are one object. */
  private originOf(value: JsonValue): SrcOrigin | null {
    const origin = originFrom(value);
    if (!origin) return null;
    const key = origin.join(' ');
    const known = this.origins.get(key) ?? origin;
    this.origins.set(key, known);
    return known;
  }

  private pointOf(entry: JsonObject, key: string): [number, number, number] | null {
    const numbers = this.numbersOf(entry, key);
    if (numbers && numbers.length !== 3) this.fail('WRONG_LENGTH', [key], `${numbers.length} numbers for 3 axes`);
    return numbers as [number, number, number] | null;
  }

  private technique(entry: JsonObject): SrcTechnique {
    if (entry.parameters === undefined) this.lacks('parameters');
    return { id: this.id, parameters: objectOf(entry.parameters, [...TECHNIQUES, this.id, 'parameters']) };
  }
}

function requireAll(seen: Set<string>, path: Path, keys: string[]): void {
  for (const key of keys) if (!seen.has(key)) throw new Fault('MISSING_SECTION', [...path, key]);
}

function wrongType(path: Path, what: string, value: JsonValue): never {
  throw new Fault('WRONG_TYPE', path, `expected ${what}, found ${kindOf(value)}`);
}

function kindOf(value: JsonValue): string {
  if (value === null) return 'null';
  if (Array.isArray(value)) return 'a list';
  if (typeof value === 'object') return 'an object';
  return typeof value === 'string' ? 'a text' : typeof value === 'number' ? 'a number' : 'true or false';
}

function objectOf(value: JsonValue | undefined, path: Path): JsonObject {
  if (value === undefined) return {};
  return isObject(value) ? value : wrongType(path, 'an object', value);
}

function metadataOf(value: JsonValue | undefined, ...path: string[]): JsonValue {
  if (value === undefined) return null;
  // A text is what the public writer stores when the caller's texts did not make an object.
  return isObject(value) || typeof value === 'string' ? value : wrongType(path, 'an object', value);
}

function drawnAs(primitive: number, metadata: JsonValue): number {
  if (primitive !== TRIANGLES || !isObject(metadata) || metadata.numOriginalTriangles !== undefined) return primitive;
  if (typeof metadata.numOriginalPoints === 'number') return POINTS;
  if (typeof metadata.numOriginalLines === 'number') return LINES;
  return primitive;
}
