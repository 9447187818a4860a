// The GLB files that are measured beside ours, made of the plain one: quantized, with meshopt, with Draco.

import { Accessor, Document, NodeIO, Primitive, type Node } from '@gltf-transform/core';
import { EXTMeshoptCompression, KHRDracoMeshCompression, KHRMeshQuantization } from '@gltf-transform/extensions';
import draco3d from 'draco3dgltf';
import { MeshoptEncoder } from 'meshoptimizer';

/** What the SRC modes and the quantized GLB store, and so what Draco is asked for too. */
const POSITION_BITS = 16,
  NORMAL_BITS = 8,
  TEXCOORD_BITS = 16;

export interface GlbVariants {
  quantized: Uint8Array;
  meshopt: Uint8Array;
  draco: Uint8Array;
}

/** Positions as 16-bit codes of a cube around them: value = code / 65535 * size + min. */
export function quantizePositions(values: ArrayLike<number>): { codes: Uint16Array; min: number[]; size: number } {
  const min = [Infinity, Infinity, Infinity],
    max = [-Infinity, -Infinity, -Infinity];
  for (let i = 0; i < values.length; ++i) {
    const axis = i % 3;
    min[axis] = Math.min(min[axis]!, values[i]!);
    max[axis] = Math.max(max[axis]!, values[i]!);
  }
  // One size for all axes: normals stay right under the transform that undoes this.
  const size = Math.max(...max.map((upper, axis) => upper - min[axis]!)) || 1;
  const codes = new Uint16Array(values.length);
  for (let i = 0; i < values.length; ++i) codes[i] = Math.round(((values[i]! - min[i % 3]!) / size) * 65535);
  return { codes, min, size };
}

/** Numbers from -1 to 1 as signed bytes: value = code / 127. */
export function quantizeNormals(values: ArrayLike<number>): Int8Array {
  return Int8Array.from(values, (x) => Math.round(Math.min(1, Math.max(-1, x)) * 127));
}

/** Numbers from 0 to 1 as 16-bit codes: value = code / 65535. */
export function quantizeTexcoords(values: ArrayLike<number>): Uint16Array {
  return Uint16Array.from(values, (x) => {
    if (!(x >= 0 && x <= 1)) throw new Error(`The texture coordinate ${x} is not between 0 and 1.`);
    return Math.round(x * 65535);
  });
}

function replace(primitive: Primitive, semantic: string, codes: Uint16Array | Int8Array): void {
  primitive.getAttribute(semantic)!.setArray(codes).setNormalized(true);
}

/** Quantizes in place. Each mesh belongs to one node without a transform, which then undoes its quantization. */
export function quantize(document: Document): void {
  document.createExtension(KHRMeshQuantization).setRequired(true);
  for (const node of document.getRoot().listNodes()) {
    const primitive = onlyPrimitive(node);
    const { codes, min, size } = quantizePositions(primitive.getAttribute('POSITION')!.getArray()!);
    replace(primitive, 'POSITION', codes);
    replace(primitive, 'NORMAL', quantizeNormals(primitive.getAttribute('NORMAL')!.getArray()!));
    replace(primitive, 'TEXCOORD_0', quantizeTexcoords(primitive.getAttribute('TEXCOORD_0')!.getArray()!));
    node.setTranslation(min as [number, number, number]).setScale([size, size, size]);
  }
}

function onlyPrimitive(node: Node): Primitive {
  const primitives = node.getMesh()?.listPrimitives() ?? [];
  if (primitives.length !== 1) throw new Error(`Node "${node.getName()}" has ${primitives.length} primitives, not one.`);
  return primitives[0]!;
}

export async function makeVariants(plain: Uint8Array): Promise<GlbVariants> {
  await MeshoptEncoder.ready;
  const io = new NodeIO()
    .registerExtensions([KHRMeshQuantization, EXTMeshoptCompression, KHRDracoMeshCompression])
    .registerDependencies({
      'meshopt.encoder': MeshoptEncoder,
      'draco3d.encoder': await draco3d.createEncoderModule(),
    });

  const small = await io.readBinary(plain);
  quantize(small);
  const quantized = await io.writeBinary(small);
  small
    .createExtension(EXTMeshoptCompression)
    .setRequired(true)
    .setEncoderOptions({ method: EXTMeshoptCompression.EncoderMethod.QUANTIZE });
  const meshopt = await io.writeBinary(small);

  const floats = await io.readBinary(plain);
  floats
    .createExtension(KHRDracoMeshCompression)
    .setRequired(true)
    .setEncoderOptions({
      method: KHRDracoMeshCompression.EncoderMethod.EDGEBREAKER,
      quantizationBits: { POSITION: POSITION_BITS, NORMAL: NORMAL_BITS, TEX_COORD: TEXCOORD_BITS },
    });
  const draco = await io.writeBinary(floats);
  return { quantized, meshopt, draco };
}

export interface Facts {
  meshes: number;
  triangles: number;
  box: { min: number[]; max: number[] };
}

/** What every variant must show, counted in the plain file. */
export async function factsOf(plain: Uint8Array): Promise<Facts> {
  const root = (await new NodeIO().readBinary(plain)).getRoot();
  const box = { min: [Infinity, Infinity, Infinity], max: [-Infinity, -Infinity, -Infinity] };
  let triangles = 0;
  const grow = (positions: Accessor) => {
    const lower = positions.getMin([]),
      upper = positions.getMax([]);
    box.min = box.min.map((x, axis) => Math.min(x, lower[axis]!));
    box.max = box.max.map((x, axis) => Math.max(x, upper[axis]!));
  };
  for (const node of root.listNodes()) {
    const primitive = onlyPrimitive(node);
    triangles += primitive.getIndices()!.getCount() / 3;
    grow(primitive.getAttribute('POSITION')!);
  }
  return { meshes: root.listNodes().length, triangles, box };
}
