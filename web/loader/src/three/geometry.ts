import {
  Box3,
  BufferAttribute,
  BufferGeometry,
  InterleavedBuffer,
  InterleavedBufferAttribute,
  Sphere,
  Vector3,
} from 'three';
import {
  decodeAttribute,
  type AttributeArray,
  type IndexArray,
  type MeshArrays,
  type TypedArray,
} from '../core/arrays.js';
import {
  INT,
  LINE_LOOP,
  LINE_STRIP,
  LINES,
  POINTS,
  TRIANGLE_FAN,
  TRIANGLE_STRIP,
  UNSIGNED_BYTE,
  UNSIGNED_INT,
  UNSIGNED_SHORT,
  type SrcMesh,
} from '../core/model.js';
import {
  attributeOver,
  kindOf,
  OctahedralAttribute,
  type Affine,
  type DecodeConstants,
  type Decoding,
} from './attributes.js';

/** A geometry in the space of its position codes, and how to come from there to the model's. */
export interface SrcGeometry {
  geometry: BufferGeometry;
  decoding: Decoding;
  /** model = code * scale + offset, per axis. Both are for Object3D.scale and Object3D.position. */
  scale: Vector3;
  offset: Vector3;
  hasColors: boolean;
  hasNormals: boolean;
}

/** What undoes quantization and "fit": value = code * scale + offset. */
function affineOf(attribute: AttributeArray): Affine {
  const { view, fit, values } = attribute;
  const scale: number[] = [],
    offset: number[] = [];
  for (let c = 0; c < attribute.components; ++c) {
    const decodeScale = values ? 1 : view.decodeScale[c]!;
    const decodeOffset = values ? 0 : view.decodeOffset[c]!;
    const fitScale = fit?.scale[c] ?? 1,
      fitOffset = fit?.offset[c] ?? 0;
    scale.push(fitScale / decodeScale);
    offset.push((decodeOffset / decodeScale) * fitScale + fitOffset);
  }
  return { scale, offset };
}

function isNeutral({ scale, offset }: Affine): boolean {
  return scale.every((s) => s === 1) && offset.every((o) => o === 0);
}

/** The affine is what WebGL's "normalized" does by itself: whole codes become 0 to 1. */
function isNormalization({ scale, offset }: Affine, componentType: number): boolean {
  const largest = componentType === UNSIGNED_BYTE ? 255 : componentType === UNSIGNED_SHORT ? 65535 : 0;
  return largest > 0 && scale.every((s) => Math.abs(s * largest - 1) < 1e-6) && offset.every((o) => Math.abs(o) < 1e-6);
}

/** 32-bit integers, which shaders for numbers with fractions cannot read, become floats. */
function readable(attribute: AttributeArray): AttributeArray {
  const type = attribute.view.componentType;
  if (attribute.values || (type !== INT && type !== UNSIGNED_INT)) return attribute;
  const array = decodeAttribute({ ...attribute, fit: null }) as TypedArray;
  return { ...attribute, array, stride: attribute.components, values: true, copied: true };
}

function trianglesOf(indices: IndexArray | null, count: number, isFan: boolean): Uint16Array | Uint32Array {
  const n = indices?.length ?? count;
  const at = (i: number) => (indices ? indices[i]! : i);
  const triangles = Math.max(0, n - 2);
  const list = new (count > 65535 ? Uint32Array : Uint16Array)(triangles * 3);
  let used = 0;
  for (let i = 0; i < triangles; ++i) {
    // Every other triangle of a strip is turned.
    const a = isFan ? at(0) : at(i + (i & 1));
    const b = isFan ? at(i + 1) : at(i + 1 - (i & 1));
    const c = at(i + 2);
    if (a === b || b === c || a === c) continue; // what joins strips
    list[used++] = a;
    list[used++] = b;
    list[used++] = c;
  }
  return list.subarray(0, used);
}

/** Wider indices where the largest 16-bit one is a vertex: WebGL 2 takes it for the end of a strip. */
function withoutRestart(indices: IndexArray, count: number): IndexArray {
  if (indices instanceof Uint8Array) return count > 255 ? new Uint16Array(indices) : indices;
  return indices instanceof Uint16Array && count > 65535 ? new Uint32Array(indices) : indices;
}

export function isTriangles(mesh: SrcMesh): boolean {
  return ![POINTS, LINES, LINE_LOOP, LINE_STRIP].includes(mesh.drawnAs);
}

/** Names that mean something to three.js, or to JavaScript. */
const RESERVED = new Set(['position', 'normal', 'uv', 'color', '__proto__']);

/** Null for a mesh without positions, of which nothing can be drawn. */
export function geometryOf({ mesh, indices, attributes }: MeshArrays, constants: DecodeConstants): SrcGeometry | null {
  const position = attributes.find((a) => a.name === 'position') ?? attributes.find((a) => a.combined);
  if (!position) return null;
  const geometry = new BufferGeometry();
  const decoding: Decoding = { normal: null, color: null, uv: null, octahedral: false };
  const readablePosition = readable(position);
  const place = affineOf(readablePosition);
  const scale = new Vector3(place.scale[0] ?? 1, place.scale[1] ?? 1, place.scale[2] ?? 1);
  const offset = new Vector3(place.offset[0] ?? 0, place.offset[1] ?? 0, place.offset[2] ?? 0);
  // Normals that JavaScript reads are those of the codes' space, as three.js expects of a geometry.
  const isEven = scale.x === scale.y && scale.y === scale.z;
  const bend = isEven ? null : scale.toArray();

  for (const given of attributes) {
    const attribute = given === position ? readablePosition : readable(given);
    const { components, stride, name } = attribute;
    const array = attribute.array as TypedArray;
    const affine = given === position ? place : affineOf(attribute);
    const type = attribute.view.componentType;
    if (given === position) {
      if (attribute.combined) {
        const buffer = new InterleavedBuffer(array, stride);
        geometry.setAttribute('position', new InterleavedBufferAttribute(buffer, 3, 0));
        const normal = new OctahedralAttribute(buffer, 1, 3);
        if (bend) normal.scale.copy(scale);
        geometry.setAttribute('normal', normal);
        decoding.octahedral = true;
      } else {
        geometry.setAttribute('position', attributeOver(array, components, stride, false));
      }
    } else if (name === 'normal' && components === 3) {
      const plain = isNeutral(affine);
      if (!plain) decoding.normal = affine;
      const read = bend
        ? { scale: affine.scale.map((s, c) => s * bend[c]!), offset: affine.offset.map((o, c) => o * bend[c]!) }
        : affine;
      geometry.setAttribute('normal', attributeOver(array, components, stride, false, plain && !bend ? null : read));
    } else if ((name === 'texcoord' && components === 2) || (name === 'color' && components >= 3)) {
      const target = name === 'color' ? 'color' : 'uv';
      const normalized = isNormalization(affine, type);
      const plain = normalized || isNeutral(affine);
      if (!plain) decoding[target] = affine;
      geometry.setAttribute(target, attributeOver(array, components, stride, normalized, plain ? null : affine));
    } else if (!RESERVED.has(name)) {
      geometry.setAttribute(name, attributeOver(array, components, stride, false, isNeutral(affine) ? null : affine));
    }
  }

  const { count } = position;
  if (mesh.drawnAs === TRIANGLE_STRIP || mesh.drawnAs === TRIANGLE_FAN) {
    geometry.setIndex(new BufferAttribute(trianglesOf(indices, count, mesh.drawnAs === TRIANGLE_FAN), 1));
  } else if (indices) {
    geometry.setIndex(new BufferAttribute(withoutRestart(indices, count), 1));
  }
  for (const [name, attribute] of Object.entries(constants.attributesFor(decoding)))
    geometry.setAttribute(name, attribute);
  geometry.userData.srcDecoding = kindOf(decoding);
  setBounds(geometry, mesh, readablePosition);
  return {
    geometry,
    decoding,
    scale,
    offset,
    hasColors: geometry.hasAttribute('color'),
    hasNormals: geometry.hasAttribute('normal'),
  };
}

/** The header's bounds, in codes: no vertex need be looked at. */
function setBounds(geometry: BufferGeometry, mesh: SrcMesh, position: AttributeArray): void {
  if (!mesh.bounds || position.components < 3) return;
  const { center, size } = mesh.bounds;
  if (size.some((side) => side < 0)) return; // wrong; three.js finds them when it needs them
  const min = new Vector3(),
    max = new Vector3();
  for (let axis = 0; axis < 3; ++axis) {
    const scale = position.values ? 1 : position.view.decodeScale[axis]!;
    const offset = position.values ? 0 : position.view.decodeOffset[axis]!;
    const a = (center[axis]! - size[axis]! / 2) * scale - offset;
    const b = (center[axis]! + size[axis]! / 2) * scale - offset;
    // Codes are truncated: a vertex may lie a step outside.
    const slack = position.view.decoded && !position.values ? 1 : Math.abs(size[axis]!) * 1e-6;
    min.setComponent(axis, Math.min(a, b) - slack);
    max.setComponent(axis, Math.max(a, b) + slack);
  }
  geometry.boundingBox = new Box3(min, max);
  geometry.boundingSphere = geometry.boundingBox.getBoundingSphere(new Sphere());
}
