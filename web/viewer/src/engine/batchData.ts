import { Vector3 } from 'three';
import {
  COMBINED,
  decodeAttribute,
  decodeCombinedNormals,
  type AttributeArray,
  type IndexArray,
  type SrcAttribute,
  type SrcMesh,
} from 'kelsrc-loader';

/** Of a header's attributes or of those that have arrived: what positions are read from. */
export function positionIn<A extends { name: string }>(attributes: A[]): A | null {
  return attributes.find((a) => a.name === 'position') ?? attributes.find((a) => a.name === COMBINED) ?? null;
}

const isNormal = (a: { name: string; components: number }) => a.name === 'normal' && a.components === 3;

export function hasNormals(mesh: SrcMesh): boolean {
  const { attributes } = mesh;
  const named = attributes.some(({ name, view }) => isNormal({ name, components: view.components }));
  return named || (positionIn(attributes)?.name === COMBINED && attributes.some((a) => a.name === COMBINED));
}

export function isColor(attribute: SrcAttribute | AttributeArray): boolean {
  const components = 'components' in attribute ? attribute.components : attribute.view.components;
  return attribute.name === 'color' && components >= 3;
}

/**
 * Positions of three components without gaps. 16-bit codes stay what they are; everything else becomes floats about
 * the middle of the mesh, so that nothing is lost far from the origin.
 */
export function positionsFor(attribute: AttributeArray) {
  const { array, stride, count, values, combined, view, fit } = attribute;
  const components = combined ? 3 : attribute.components;
  const scale = new Vector3(1, 1, 1),
    shift = new Vector3();
  for (let c = 0; c < components && c < 3; ++c) {
    const codesPerUnit = values ? 1 : view.decodeScale[c]!;
    const fitScale = fit?.scale[c] ?? 1;
    scale.setComponent(c, fitScale / codesPerUnit);
    shift.setComponent(c, ((values ? 0 : view.decodeOffset[c]!) / codesPerUnit) * fitScale + (fit?.offset[c] ?? 0));
  }
  if (!values && components >= 3 && (array instanceof Uint16Array || array instanceof Int16Array)) {
    if (stride === 3) return { array: array.subarray(0, count * 3), scale, shift };
    const codes = new (array.constructor as typeof Uint16Array)(count * 3);
    for (let i = 0, to = 0, at = 0; i < count; ++i, at += stride) {
      codes[to++] = array[at]!;
      codes[to++] = array[at + 1]!;
      codes[to++] = array[at + 2]!;
    }
    return { array: codes, scale, shift };
  }
  const floats = new Float32Array(count * 3);
  const middle = new Vector3();
  for (let c = 0; c < components && c < 3; ++c) {
    const s = scale.getComponent(c);
    let low = Infinity,
      high = -Infinity;
    for (let i = 0, at = c; i < count; ++i, at += stride) {
      const value = array[at]! * s;
      if (value < low) low = value;
      if (value > high) high = value;
    }
    const from = Number.isFinite(low + high) ? (low + high) / 2 : 0;
    middle.setComponent(c, from);
    for (let i = 0, at = c; i < count; ++i, at += stride) floats[i * 3 + c] = array[at]! * s - from;
  }
  return { array: floats, scale: new Vector3(1, 1, 1), shift: shift.add(middle) };
}

/** All meshes of a batch have indices, and none that points into another mesh. */
export function indicesFor(indices: IndexArray | null, vertices: number): Uint16Array | Uint32Array {
  const length = indices?.length ?? vertices;
  const result = vertices > 65536 ? new Uint32Array(length) : new Uint16Array(length);
  if (!indices) for (let i = 0; i < length; ++i) result[i] = i;
  else for (let i = 0; i < length; ++i) result[i] = indices[i]! < vertices ? indices[i]! : 0;
  return result;
}

/** Unit vectors in 16 bits, with one entry to spare so that each begins at a multiple of four bytes. */
export function normalsFor(attributes: AttributeArray[]): Int16Array {
  const named = attributes.find(isNormal);
  const values = named ? decodeAttribute(named) : decodeCombinedNormals(positionIn(attributes)!);
  const result = new Int16Array((values.length / 3) * 4);
  for (let i = 0, to = 0; i < values.length; i += 3, to += 4) {
    const x = values[i]!,
      y = values[i + 1]!,
      z = values[i + 2]!;
    const scale = 32767 / (Math.hypot(x, y, z) || 1);
    result[to] = x * scale;
    result[to + 1] = y * scale;
    result[to + 2] = z * scale;
  }
  return result;
}

export function colorsFor(attribute: AttributeArray): Uint16Array {
  const { components, count } = attribute;
  const values = decodeAttribute(attribute);
  const result = new Uint16Array(count * 4).fill(65535);
  for (let i = 0; i < count; ++i) {
    for (let c = 0; c < Math.min(4, components); ++c) {
      const value = values[i * components + c]!;
      result[i * 4 + c] = value <= 0 ? 0 : value >= 1 ? 65535 : value * 65535;
    }
  }
  return result;
}
