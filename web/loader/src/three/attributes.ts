import {
  BufferAttribute,
  type BufferGeometry,
  InstancedInterleavedBuffer,
  InterleavedBuffer,
  InterleavedBufferAttribute,
  Vector3,
  type TypedArray,
} from 'three';
import { decodeOctahedral } from '../core/arrays.js';

/** value = code * scale + offset, per component. */
export interface Affine {
  scale: number[];
  offset: number[];
}

/**
 * Codes for the GPU, values for whoever reads them in JavaScript: raycasting, helpers, exporters. The shader decodes
 * with the constants of DecodeConstants.
 */
export class DecodedAttribute extends BufferAttribute {
  affine: Affine = { scale: [1, 1, 1, 1], offset: [0, 0, 0, 0] };

  private at(index: number, component: number): number {
    const { scale, offset } = this.affine;
    return this.array[index * this.itemSize + component]! * scale[component]! + offset[component]!;
  }
  override getX(index: number): number {
    return this.at(index, 0);
  }
  override getY(index: number): number {
    return this.at(index, 1);
  }
  override getZ(index: number): number {
    return this.at(index, 2);
  }
  override getW(index: number): number {
    return this.at(index, 3);
  }
  override copy(source: this): this {
    super.copy(source);
    this.affine = source.affine;
    return this;
  }
}

/** The same for data with a stride. */
export class DecodedInterleavedAttribute extends InterleavedBufferAttribute {
  affine: Affine = { scale: [1, 1, 1, 1], offset: [0, 0, 0, 0] };

  private at(index: number, component: number): number {
    const { scale, offset } = this.affine;
    return (
      this.data.array[index * this.data.stride + this.offset + component]! * scale[component]! + offset[component]!
    );
  }
  override getX(index: number): number {
    return this.at(index, 0);
  }
  override getY(index: number): number {
    return this.at(index, 1);
  }
  override getZ(index: number): number {
    return this.at(index, 2);
  }
  override getW(index: number): number {
    return this.at(index, 3);
  }
  // three.js gives another class, which does not decode.
  override clone(data?: object): BufferAttribute {
    if (!data) return picked(this) as BufferAttribute;
    const { data: buffer } = super.clone(data) as unknown as InterleavedBufferAttribute;
    const copy = new DecodedInterleavedAttribute(buffer, this.itemSize, this.offset, this.normalized);
    copy.affine = this.affine;
    return copy as unknown as BufferAttribute;
  }
}

// An attribute's components are asked for one by one.
const normal = new Vector3();

/**
 * A unit vector in a 16-bit word, interleaved with other data. To the GPU it is one number, which the shader takes
 * apart; in JavaScript it is a vector, times `scale`.
 */
export class OctahedralAttribute extends InterleavedBufferAttribute {
  scale = new Vector3(1, 1, 1);

  override getX(index: number): number {
    decodeOctahedral(this.data.array[index * this.data.stride + this.offset]!, normal);
    return normal.x * this.scale.x;
  }
  override getY(index: number): number {
    decodeOctahedral(this.data.array[index * this.data.stride + this.offset]!, normal);
    return normal.y * this.scale.y;
  }
  override getZ(index: number): number {
    decodeOctahedral(this.data.array[index * this.data.stride + this.offset]!, normal);
    return normal.z * this.scale.z;
  }
  override clone(data?: object): BufferAttribute {
    if (!data) return picked(this) as BufferAttribute;
    const { data: buffer } = super.clone(data) as unknown as InterleavedBufferAttribute;
    const copy = new OctahedralAttribute(buffer, this.itemSize, this.offset, this.normalized);
    copy.scale.copy(this.scale);
    return copy as unknown as BufferAttribute;
  }
}

/** The same without other data in between. */
export class OctahedralWords extends BufferAttribute {
  scale = new Vector3(1, 1, 1);

  override getX(index: number): number {
    decodeOctahedral(this.array[index]!, normal);
    return normal.x * this.scale.x;
  }
  override getY(index: number): number {
    decodeOctahedral(this.array[index]!, normal);
    return normal.y * this.scale.y;
  }
  override getZ(index: number): number {
    decodeOctahedral(this.array[index]!, normal);
    return normal.z * this.scale.z;
  }
  override copy(source: this): this {
    super.copy(source);
    this.scale = source.scale.clone();
    return this;
  }
  override clone(): this {
    return picked(this) as this;
  }
}

/** The data of an attribute as they lie there: where, and how far apart. */
export function rawOf(attribute: AnyAttribute) {
  return attribute instanceof InterleavedBufferAttribute
    ? { array: attribute.data.array, stride: attribute.data.stride, offset: attribute.offset }
    : { array: attribute.array, stride: attribute.itemSize, offset: 0 };
}

/** Elements of an attribute without gaps, decoded like it: those of a list, or all. */
export function picked(attribute: AnyAttribute, list?: ArrayLike<number>): AnyAttribute {
  const { itemSize, normalized } = attribute;
  const { array, stride, offset } = rawOf(attribute);
  const count = list?.length ?? attribute.count;
  const to = new (array.constructor as new (length: number) => TypedArray)(count * itemSize);
  for (let i = 0, at = 0; i < count; ++i) {
    const from = (list ? list[i]! : i) * stride + offset;
    for (let c = 0; c < itemSize; ++c) to[at++] = array[from + c]!;
  }
  if (attribute instanceof OctahedralAttribute || attribute instanceof OctahedralWords) {
    const words = new OctahedralWords(to, 1);
    words.scale.copy(attribute.scale);
    return words;
  }
  const isDecoded = attribute instanceof DecodedAttribute || attribute instanceof DecodedInterleavedAttribute;
  return attributeOver(to, itemSize, itemSize, normalized, isDecoded ? attribute.affine : null);
}

export type AnyAttribute = BufferAttribute | InterleavedBufferAttribute;

/** An attribute over an array as it is, or one that JavaScript reads decoded. */
export function attributeOver(
  array: TypedArray,
  components: number,
  stride: number,
  normalized: boolean,
  affine?: Affine | null,
): AnyAttribute {
  if (stride === components) {
    if (!affine) return new BufferAttribute(array, components, normalized);
    const attribute = new DecodedAttribute(array, components, normalized);
    attribute.affine = affine;
    return attribute;
  }
  const buffer = new InterleavedBuffer(array, stride);
  if (!affine) return new InterleavedBufferAttribute(buffer, components, 0, normalized);
  const attribute = new DecodedInterleavedAttribute(buffer, components, 0, normalized);
  attribute.affine = affine;
  return attribute;
}

/** How the shader decodes a geometry's attributes; null where it need not. */
export interface Decoding {
  normal: Affine | null;
  color: Affine | null;
  uv: Affine | null;
  /** "normal" is a word of two octahedral bytes. */
  octahedral: boolean;
}

/** The kinds of decoding as a short text: what a shader is made for. */
export function kindOf({ octahedral, normal, color, uv }: Decoding): string {
  if (!normal && !color && !uv) return octahedral ? 'o' : '';
  return (octahedral ? 'o' : normal ? 'n' : '') + (color ? 'c' : '') + (uv ? 't' : '');
}

/** What DecodeConstants adds to geometries. */
export const CONSTANT_NAMES: ReadonlySet<string> = new Set(
  ['srcNormal', 'srcColor', 'srcUv'].flatMap((name) => [`${name}Scale`, `${name}Offset`]),
);

/** Larger than any number of instances: all of them, and draws without instances, read the first element. */
const ALL_INSTANCES = 0x7fffffff;

/**
 * The numbers that the shader decodes with, as attributes that are the same for every vertex. So they belong to the
 * geometry: any material that knows how to decode can draw it, and meshes that differ in them can share one material.
 * Geometries with equal numbers share one buffer of some bytes.
 */
export class DecodeConstants {
  private readonly buffers = new Map<string, InstancedInterleavedBuffer>();

  /** Gives a geometry the numbers that it is decoded with. */
  addTo(geometry: BufferGeometry, decoding: Decoding): void {
    const names: [string, number][] = [];
    const numbers: number[] = [];
    const add = (name: string, affine: Affine | null, components: number, rest: Affine) => {
      if (!affine) return;
      for (const key of ['scale', 'offset'] as const) {
        names.push([name + key[0]!.toUpperCase() + key.slice(1), components]);
        for (let c = 0; c < components; ++c) numbers.push(affine[key][c] ?? rest[key][0]!);
      }
    };
    const neutral = { scale: [1], offset: [0] };
    if (!decoding.octahedral) add('srcNormal', decoding.normal, 3, neutral);
    add('srcColor', decoding.color, 4, neutral);
    add('srcUv', decoding.uv, 2, neutral);
    if (numbers.length === 0) return;

    const key = `${kindOf(decoding)} ${numbers.join(' ')}`;
    let buffer = this.buffers.get(key);
    if (!buffer) {
      buffer = new InstancedInterleavedBuffer(new Float32Array(numbers), numbers.length, ALL_INSTANCES);
      this.buffers.set(key, buffer);
    }
    let offset = 0;
    for (const [name, components] of names) {
      geometry.setAttribute(name, new InterleavedBufferAttribute(buffer, components, offset));
      offset += components;
    }
  }
}
