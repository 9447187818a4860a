import {
  BatchedMesh,
  BufferAttribute,
  InterleavedBuffer,
  Matrix4,
  Quaternion,
  Vector3,
  type BufferGeometry,
  type Intersection,
  type Raycaster,
  type TypedArray,
} from 'three';
import type { SrcMesh } from '../core/model.js';
import {
  attributeOver,
  CONSTANT_NAMES,
  kindOf,
  OctahedralAttribute,
  rawOf,
  type Affine,
  type AnyAttribute,
  type DecodeConstants,
  type Decoding,
} from './attributes.js';
import { DecodedGeometry, type GeometrySource } from './geometry.js';
import type { MaterialTable } from './materials.js';

/** A mesh of a group: how much of the group's columns is its own, and how its codes are decoded. */
interface Entry {
  mesh: SrcMesh;
  vertices: number;
  indices: number;
  scale: Vector3;
  offset: Vector3;
  uv: Affine | null;
}

/** One attribute of all meshes of a group, one behind the other. */
interface Column {
  name: string;
  array: TypedArray;
  itemSize: number;
  normalized: boolean;
}

/** Meshes that agree in all that cannot differ within a batch. */
interface Group {
  /** From the file's origin to the meshes' own. */
  shift: readonly [number, number, number];
  entries: Entry[];
  vertices: number;
  columns: Column[];
  /** Null for meshes without indices. Each mesh counts its vertices from 0. */
  indices: Uint16Array | Uint32Array | null;
  indexCount: number;
  decoding: Decoding;
  hasColors: boolean;
  hasNormals: boolean;
}

/** Meshes that are put into a batch between two pauses. */
const MESHES_PER_STEP = 100;

const matrix = new Matrix4();
const scale = new Vector3(),
  direction = new Vector3();

/** A batch whose meshes' matrices decode positions; its normals are the model's already. */
class SRCBatch extends BatchedMesh {
  override raycast(raycaster: Raycaster, intersects: Intersection[]): void {
    const first = intersects.length;
    super.raycast(raycaster, intersects);
    for (const hit of intersects.slice(first)) {
      if (!hit.normal || hit.batchId === undefined) continue;
      // As for any mesh of three.js, the normal belongs to the space of the positions, and faces the ray.
      this.getMatrixAt(hit.batchId, matrix);
      hit.normal.multiply(scale.setFromMatrixScale(matrix));
      direction.copy(raycaster.ray.direction).transformDirection(matrix.premultiply(this.matrixWorld).invert());
      if (hit.normal.dot(direction) > 0) hit.normal.negate();
    }
  }
}

/** Meshes of one batch in the order of their instance IDs: see SRCModel.meshOf. */
export interface BatchData {
  meshes: SrcMesh[];
}

/**
 * Collects triangle meshes and draws all of one material at once. Each keeps its own place in the batch, so it can be
 * hidden, culled, picked and told by its ID. Codes stay codes; a mesh's matrix decodes its positions. Texture
 * coordinates become floats where their decoding differs from mesh to mesh, which a batch cannot express.
 *
 * Data are copied when they come: thousands of geometries that wait for their batch would cost more than it does.
 */
export class Batcher {
  private readonly groups = new Map<string, Group>();

  constructor(
    private readonly materials: MaterialTable,
    private readonly constants: DecodeConstants,
  ) {}

  /** `shift` leads from the file's origin to the mesh's own. The GPU keeps matrices in floats, so a batch has one. */
  add(mesh: SrcMesh, source: GeometrySource, shift: readonly [number, number, number]): void {
    const { geometry, decoding } = source;
    const { index } = geometry;
    const names: string[] = [];
    for (const name in geometry.attributes) if (!CONSTANT_NAMES.has(name)) names.push(name);
    let key = `${this.materials.numberOf(mesh)} ${index !== null} ${source.kind} ${shift.join(' ')}`;
    if (decoding.normal) key += ` ${decoding.normal.scale} ${decoding.normal.offset}`;
    if (decoding.color) key += ` ${decoding.color.scale} ${decoding.color.offset}`;
    for (const name of names.sort()) key += ` ${name} ${signature(geometry, name)}`;

    let group = this.groups.get(key);
    if (!group) {
      group = {
        shift,
        entries: [],
        vertices: 0,
        columns: names.map((name) => columnFor(geometry, name)),
        indices: index && new Uint16Array(0),
        indexCount: 0,
        decoding: { ...decoding },
        hasColors: source.hasColors,
        hasNormals: source.hasNormals,
      };
      this.groups.set(key, group);
    }
    const vertices = geometry.getAttribute('position').count;
    for (const column of group.columns) append(column, group.vertices, geometry.getAttribute(column.name), vertices);
    group.vertices += vertices;
    if (index && group.indices) {
      const isWide = index.array instanceof Uint32Array && group.indices instanceof Uint16Array;
      if (isWide) group.indices = Uint32Array.from(group.indices);
      group.indices = withRoom(group.indices, group.indexCount + index.count);
      group.indices.set(index.array as Uint16Array, group.indexCount);
      group.indexCount += index.count;
    }
    const { scale, offset } = source;
    group.entries.push({ mesh, vertices, indices: index?.count ?? 0, scale, offset, uv: decoding.uv });
  }

  /** Makes the batches of all meshes so far, in steps of a few milliseconds: null where no batch is ready. */
  *finish(): Generator<BatchedMesh | null, void> {
    for (const [key, group] of this.groups) {
      this.groups.delete(key);
      yield* this.batchOf(group);
    }
  }

  private *batchOf(group: Group): Generator<BatchedMesh | null, void> {
    const { entries, columns, decoding } = group;
    const first = entries[0]!.mesh;
    decoding.uv = commonUv(group);
    const kind = kindOf(decoding);
    const material = this.materials.get(first.material, 'triangles', kind, {
      colors: group.hasColors,
      flat: !group.hasNormals,
      batched: true,
    });
    const batch = new SRCBatch(entries.length, group.vertices, group.indexCount, material);
    const rotation = new Quaternion();
    let vertex = 0,
      index = 0;
    for (let nth = 0; nth < entries.length; ++nth) {
      const { mesh, vertices, indices, scale, offset } = entries[nth]!;
      const part = new DecodedGeometry();
      for (const { name, array, itemSize, normalized } of columns) {
        const own = array.subarray(vertex * itemSize, (vertex + vertices) * itemSize);
        part.setAttribute(name, new BufferAttribute(own, itemSize, normalized));
      }
      if (group.indices) part.setIndex(new BufferAttribute(group.indices.subarray(index, index + indices), 1));
      part.boundedBy(mesh);
      const instance = batch.addInstance(batch.addGeometry(part));
      batch.setMatrixAt(instance, matrix.compose(offset, rotation, scale));
      vertex += vertices;
      index += indices;
      if (nth % MESHES_PER_STEP === MESHES_PER_STEP - 1) yield null;
    }
    // Only see-through meshes need an order.
    batch.sortObjects = material.transparent;
    const { geometry } = batch;
    // All of it goes to the GPU at once; thousands of ranges would stay behind.
    geometry.index?.clearUpdateRanges();
    for (const { name } of columns) (geometry.getAttribute(name) as BufferAttribute).clearUpdateRanges();
    if (decoding.octahedral) {
      const words = geometry.getAttribute('normal').array;
      geometry.setAttribute('normal', new OctahedralAttribute(new InterleavedBuffer(words, 1), 1, 0));
    }
    // Batches make plain attributes; these are read decoded again.
    for (const name of ['normal', 'color', 'uv'] as const) {
      const affine = decoding[name];
      if (!affine) continue;
      const { array, itemSize } = geometry.getAttribute(name);
      geometry.setAttribute(name, attributeOver(array, itemSize, itemSize, false, affine));
    }
    // Added last: a batch takes all others for attributes of its meshes.
    this.constants.addTo(geometry, decoding);
    batch.computeBoundingBox();
    yield null;
    batch.computeBoundingSphere();
    batch.position.fromArray(group.shift);
    batch.name = material.name;
    const data: BatchData = { meshes: entries.map((entry) => entry.mesh) };
    batch.userData = { material: first.material?.id ?? '', batch: data };
    yield batch;
  }
}

function signature(geometry: BufferGeometry, name: string): string {
  const { itemSize, normalized } = geometry.getAttribute(name);
  return `${rawOf(geometry.getAttribute(name)).array.constructor.name} ${itemSize} ${normalized}`;
}

function columnFor(geometry: BufferGeometry, name: string): Column {
  const { itemSize, normalized } = geometry.getAttribute(name);
  const Type = rawOf(geometry.getAttribute(name)).array.constructor as new (length: number) => TypedArray;
  return { name, array: new Type(0), itemSize, normalized };
}

/** The array, or one of twice its size with the same beginning. */
function withRoom<T extends TypedArray>(array: T, wanted: number): T {
  if (array.length >= wanted) return array;
  const larger = new (array.constructor as new (length: number) => T)(Math.max(wanted, 2 * array.length));
  larger.set(array as never);
  return larger;
}

function append(column: Column, vertex: number, attribute: AnyAttribute, count: number): void {
  const { itemSize } = column;
  const { array: from, stride, offset } = rawOf(attribute);
  const to = (column.array = withRoom(column.array, (vertex + count) * itemSize));
  if (stride === itemSize) {
    to.set(from.subarray(0, count * itemSize), vertex * itemSize);
    return;
  }
  for (let i = 0, at = vertex * itemSize; i < count; ++i) {
    for (let c = 0; c < itemSize; ++c) to[at++] = from[i * stride + offset + c]!;
  }
}

/** The decoding of a group's texture coordinates, in common: where there is none they become values. */
function commonUv({ entries, columns }: Group): Affine | null {
  const text = (uv: Affine | null) => uv && `${uv.scale} ${uv.offset}`;
  const { uv } = entries[0]!;
  const common = text(uv);
  const column = columns.find(({ name }) => name === 'uv');
  if (!column || entries.every((entry) => entry.uv === uv || text(entry.uv) === common)) return uv;
  const values = new Float32Array(column.array.length);
  let at = 0;
  for (const { vertices, uv: own } of entries) {
    for (const end = at + 2 * vertices; at < end; ++at) {
      values[at] = own ? column.array[at]! * own.scale[at & 1]! + own.offset[at & 1]! : column.array[at]!;
    }
  }
  column.array = values;
  return null;
}
