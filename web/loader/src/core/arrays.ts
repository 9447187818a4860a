import type { Bytes, IndexArray, TypedArray } from './bytes.js';
import { isCombined } from './model.js';
import {
  BYTE,
  FLOAT,
  INT,
  SHORT,
  UNSIGNED_BYTE,
  UNSIGNED_SHORT,
  type SrcAttribute,
  type SrcAttributeView,
  type SrcBufferView,
  type SrcIndexView,
  type SrcMesh,
} from './model.js';

/** Where the bytes of buffer views are found. */
export interface SrcBytes {
  /** A block that holds the stored bytes of a view, from startOf(view) on. */
  blockOf(view: SrcBufferView): Bytes;
  startOf(view: SrcBufferView): number;
}

/**
 * One attribute as it stands in the file: component c of element i is array[i * stride + c]. What the numbers mean
 * is said by `view` and `fit`; decodeAttribute applies both. Positions are then about the mesh's origin, which floats
 * have too few digits for.
 */
export interface AttributeArray {
  name: string;
  array: TypedArray;
  /** Array entries from one element to the next; more than `components` when data are interleaved. */
  stride: number;
  components: number;
  count: number;
  view: SrcAttributeView;
  fit: { offset: number[]; scale: number[] } | null;
  /** True for "pos3us_nor2ub_oct": three position codes, and a word of two octahedral bytes. */
  combined: boolean;
  /** True when `array` already holds values and not codes: those of 3-byte slots, which no GPU reads. */
  values: boolean;
  /** True when `array` is a copy and not a view of the file's bytes. */
  copied: boolean;
}

export interface MeshArrays {
  mesh: SrcMesh;
  indices: IndexArray | null;
  attributes: AttributeArray[];
}

function arrayType(componentType: number) {
  switch (componentType) {
    case BYTE:
      return Int8Array;
    case UNSIGNED_BYTE:
      return Uint8Array;
    case SHORT:
      return Int16Array;
    case UNSIGNED_SHORT:
      return Uint16Array;
    case INT:
      return Int32Array;
    case FLOAT:
      return Float32Array;
    default:
      return Uint32Array;
  }
}

/** The code in a slot of three bytes. */
function slot(bytes: Uint8Array, at: number): number {
  return bytes[at]! | (bytes[at + 1]! << 8) | (bytes[at + 2]! << 16);
}

function attributeArray(attribute: SrcAttribute, source: SrcBytes): AttributeArray {
  const { name, view, fit } = attribute;
  const { components, count, byteStride, byteOffset, componentType } = view;
  const bytes = source.blockOf(view.bufferView);
  const from = source.startOf(view.bufferView) + byteOffset; // in the block
  let array: TypedArray | null = null;
  let stride = components,
    values = false,
    copied = true;

  if (view.componentBytes === 3) {
    array = new Float32Array(count * components);
    for (let i = 0, to = 0; i < count; ++i) {
      for (let c = 0; c < components; ++c) {
        const code = slot(bytes, from + i * byteStride + c * 3);
        array[to++] = (code + view.decodeOffset[c]!) / view.decodeScale[c]!;
      }
    }
    values = true;
  } else {
    const Type = arrayType(componentType);
    const size = Type.BYTES_PER_ELEMENT;
    const packed = components * size;
    const whole = count * byteStride;
    // The last element's gap may be cut off; then the elements are packed instead.
    if (byteStride % size === 0 && (byteStride === packed || byteOffset + whole <= view.bufferView.storedBytes)) {
      const start = bytes.byteOffset + from;
      stride = byteStride / size;
      copied = start % size !== 0;
      array = copied
        ? new Type(bytes.slice(from, from + whole).buffer)
        : new Type(bytes.buffer, start, whole / size);
    } else {
      const copy = new Uint8Array(count * packed);
      for (let i = 0; i < count; ++i) {
        const at = from + i * byteStride;
        copy.set(bytes.subarray(at, at + packed), i * packed);
      }
      array = new Type(copy.buffer);
    }
  }
  const combined = isCombined(attribute);
  return { name, array, stride, components, count, view, fit, combined, values, copied };
}

function indexArray(view: SrcIndexView, source: SrcBytes): IndexArray {
  const bytes = source.blockOf(view.bufferView);
  const from = source.startOf(view.bufferView) + view.byteOffset;
  const Type =
    view.componentType === UNSIGNED_BYTE
      ? Uint8Array
      : view.componentType === UNSIGNED_SHORT
        ? Uint16Array
        : Uint32Array;
  const start = bytes.byteOffset + from;
  if (start % Type.BYTES_PER_ELEMENT === 0) return new Type(bytes.buffer, start, view.count);
  return new Type(bytes.slice(from, from + view.count * Type.BYTES_PER_ELEMENT).buffer);
}

/** A mesh's numbers as typed arrays on the bytes, copied only where their place in memory does not suit. */
export function meshArrays(mesh: SrcMesh, source: SrcBytes): MeshArrays {
  const { indices, attributes } = mesh;
  return {
    mesh,
    indices: indices && indexArray(indices, source),
    attributes: attributes.map((attribute) => attributeArray(attribute, source)),
  };
}

/**
 * The values of an attribute, decoded and with "fit" undone; three per element for the positions of the
 * combined attribute. For looking at numbers: what is drawn needs no such copy.
 */
export function decodeAttribute(attribute: AttributeArray): Float32Array {
  const { array, stride, count, view, fit, values } = attribute;
  const components = attribute.combined ? 3 : attribute.components;
  const result = new Float32Array(count * components);
  for (let c = 0; c < components; ++c) {
    const offset = values ? 0 : view.decodeOffset[c]!;
    const scale = values ? 1 : view.decodeScale[c]!;
    const fitScale = fit?.scale[c] ?? 1,
      fitOffset = fit?.offset[c] ?? 0;
    for (let i = 0; i < count; ++i) {
      result[i * components + c] = ((array[i * stride + c]! + offset) / scale) * fitScale + fitOffset;
    }
  }
  return result;
}

/**
 * The unit vector of a word of two octahedral bytes, x and y from 0 to 254 about 127. Its lower half is folded
 * over the diagonals.
 */
export function decodeOctahedral(word: number, target: { x: number; y: number; z: number }): void {
  let x = (Math.min(word & 0xff, 254) - 127) / 127;
  let y = (Math.min(word >> 8, 254) - 127) / 127;
  const z = 1 - Math.abs(x) - Math.abs(y);
  if (z < 0) {
    const foldedX = (1 - Math.abs(y)) * (x < 0 ? -1 : 1);
    y = (1 - Math.abs(x)) * (y < 0 ? -1 : 1);
    x = foldedX;
  }
  const length = Math.sqrt(x * x + y * y + z * z);
  target.x = x / length;
  target.y = y / length;
  target.z = z / length;
}

/** The unit normals of the combined attribute, three numbers each. */
export function decodeCombinedNormals(attribute: AttributeArray): Float32Array {
  const result = new Float32Array(attribute.count * 3);
  const normal = { x: 0, y: 0, z: 0 };
  for (let i = 0; i < attribute.count; ++i) {
    decodeOctahedral(attribute.array[i * attribute.stride + 3]!, normal);
    result.set([normal.x, normal.y, normal.z], i * 3);
  }
  return result;
}
