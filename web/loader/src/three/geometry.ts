import {
  Box3,
  BufferAttribute,
  BufferGeometry,
  InterleavedBuffer,
  InterleavedBufferAttribute,
  Sphere,
  Vector3,
} from 'three';
import { decodeAttribute, type AttributeArray, type MeshArrays } from '../core/arrays.js';
import type { IndexArray, TypedArray } from '../core/bytes.js';
import {
  INT,
  positionOf,
  TRIANGLE_FAN,
  TRIANGLE_STRIP,
  UNSIGNED_BYTE,
  UNSIGNED_INT,
  UNSIGNED_SHORT,
  type SrcBounds,
  type SrcMesh,
} from '../core/model.js';
import {
  attributeOver,
  CONSTANT_NAMES,
  kindOf,
  OctahedralAttribute,
  picked,
  type Affine,
  type DecodeConstants,
  type Decoding,
} from './attributes.js';

/** A geometry in the space of its position codes, and how to come from there to the model's. */
export interface GeometrySource {
  geometry: DecodedGeometry;
  decoding: Decoding;
  /** The kinds of decoding: see kindOf. */
  kind: string;
  /** model = code * scale + offset, per axis. For Object3D.scale and Object3D.position; may be shared. */
  scale: Vector3;
  offset: Vector3;
  hasColors: boolean;
  hasNormals: boolean;
}

const NEUTRAL: Affine = { scale: [1, 1, 1, 1], offset: [0, 0, 0, 0] };
const ONE = new Vector3(1, 1, 1);
const ZERO = new Vector3();

/** What undoes quantization and "fit": value = code * scale + offset. NEUTRAL itself when nothing has to be undone. */
function affineOf(attribute: AttributeArray): Affine {
  const { view, fit, values } = attribute;
  if (!fit && (values || !view.decoded)) return NEUTRAL;
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

function isNeutral(affine: Affine): boolean {
  if (affine === NEUTRAL) return true;
  const { scale, offset } = affine;
  return scale.every((s) => s === 1) && offset.every((o) => o === 0);
}

/** The affine is what WebGL's "normalized" does by itself: whole codes become 0 to 1. */
function isNormalization(affine: Affine, componentType: number): boolean {
  if (affine === NEUTRAL) return false;
  const { scale, offset } = affine;
  const largest = componentType === UNSIGNED_BYTE ? 255 : componentType === UNSIGNED_SHORT ? 65535 : 0;
  return largest > 0 && scale.every((s) => Math.abs(s * largest - 1) < 1e-6) && offset.every((o) => Math.abs(o) < 1e-6);
}

function isWide(componentType: number): boolean {
  return componentType === INT || componentType === UNSIGNED_INT;
}

/** 32-bit integers, which shaders for numbers with fractions cannot read, become floats. */
function readable(attribute: AttributeArray): AttributeArray {
  if (attribute.values || !isWide(attribute.view.componentType)) return attribute;
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

/** Names that mean something to three.js, or to JavaScript. */
const RESERVED = new Set(['position', 'normal', 'uv', 'color', '__proto__', ...CONSTANT_NAMES]);

/** Null for a mesh without positions, of which nothing can be drawn. */
export function geometryOf({ mesh, indices, attributes }: MeshArrays, constants: DecodeConstants): GeometrySource | null {
  const position = positionOf({ attributes });
  if (!position) return null;
  const geometry = new DecodedGeometry();
  const decoding: Decoding = { normal: null, color: null, uv: null, octahedral: false };
  const readablePosition = readable(position);
  const place = affineOf(readablePosition);
  const scale =
    place === NEUTRAL ? ONE : new Vector3(place.scale[0] ?? 1, place.scale[1] ?? 1, place.scale[2] ?? 1);
  const offset =
    place === NEUTRAL ? ZERO : new Vector3(place.offset[0] ?? 0, place.offset[1] ?? 0, place.offset[2] ?? 0);
  // Normals that JavaScript reads are those of the codes' space, as three.js expects of a geometry.
  const isEven = scale.x === scale.y && scale.y === scale.z;
  const bend = isEven ? null : [scale.x, scale.y, scale.z];

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
  const kind = kindOf(decoding);
  if (kind !== '' && kind !== 'o') constants.addTo(geometry, decoding);
  geometry.userData.srcDecoding = kind;
  const { color, normal } = geometry.attributes;
  return { geometry, decoding, kind, scale, offset, hasColors: color !== undefined, hasNormals: normal !== undefined };
}

/** A geometry of codes, with what they are decoded with. */
export class DecodedGeometry extends BufferGeometry {
  /** Takes the bounds from the header, in codes: no vertex need be looked at. */
  boundedBy(mesh: SrcMesh): void {
    this.boundingBox = boxInCodes(mesh);
    this.boundingSphere = this.boundingBox && this.boundingBox.getBoundingSphere(new Sphere());
  }

  override toNonIndexed(): BufferGeometry {
    if (!this.index) return super.toNonIndexed();
    const result = new DecodedGeometry();
    for (const [name, attribute] of Object.entries(this.attributes)) {
      // Constants have one element for all vertices.
      result.setAttribute(name, CONSTANT_NAMES.has(name) ? attribute : picked(attribute, this.index.array));
    }
    for (const { start, count, materialIndex } of this.groups) result.addGroup(start, count, materialIndex);
    result.userData = { ...this.userData };
    result.boundingBox = this.boundingBox?.clone() ?? null;
    result.boundingSphere = this.boundingSphere?.clone() ?? null;
    return result;
  }
}

/** The bounds before "fit" is undone, which the codes are decoded to. */
function decodedBounds(mesh: SrcMesh): SrcBounds | null {
  const { drawnBounds } = mesh;
  if (!drawnBounds) return mesh.bounds;
  const fit = positionOf(mesh)?.fit;
  const { min, max } = drawnBounds;
  const undone = (value: number, axis: number) => (value - (fit?.offset[axis] ?? 0)) / (fit?.scale[axis] ?? 1);
  const center = min.map((low, axis) => undone((low + max[axis]!) / 2, axis));
  const size = min.map((low, axis) => Math.abs((max[axis]! - low) / (fit?.scale[axis] ?? 1)));
  return { center, size } as SrcBounds;
}

function boxInCodes(mesh: SrcMesh): Box3 | null {
  const bounds = decodedBounds(mesh);
  const view = bounds && positionOf(mesh)?.view;
  if (!view || view.components < 3) return null;
  const { center, size } = bounds;
  if (size.some((side) => side < 0)) return null; // wrong; three.js finds them when it needs them
  const isCodes = view.decoded && view.componentBytes !== 3 && !isWide(view.componentType);
  const min = new Vector3(),
    max = new Vector3();
  for (let axis = 0; axis < 3; ++axis) {
    const scale = isCodes ? view.decodeScale[axis]! : 1;
    const offset = isCodes ? view.decodeOffset[axis]! : 0;
    const a = (center[axis]! - size[axis]! / 2) * scale - offset;
    const b = (center[axis]! + size[axis]! / 2) * scale - offset;
    // Codes are truncated: a vertex may lie a step outside.
    const slack = isCodes ? 1 : Math.abs(size[axis]!) * 1e-6;
    min.setComponent(axis, Math.min(a, b) - slack);
    max.setComponent(axis, Math.max(a, b) + slack);
  }
  return new Box3(min, max);
}
