import {
  BatchedMesh,
  BufferAttribute,
  InterleavedBufferAttribute,
  Matrix4,
  Quaternion,
  Vector3,
  type BufferGeometry,
  type Intersection,
  type Material,
  type Object3D,
  type Raycaster,
} from 'three';
import { isTriangles, positionOf, TRIANGLES, type SrcAttribute, type SrcHeader, type SrcMesh } from '../core/model.js';
import { betweenOrigins } from '../core/origin.js';
import {
  attributeOver,
  CONSTANT_NAMES,
  kindOf,
  OctahedralWords,
  picked,
  type AnyAttribute,
  type DecodeConstants,
  type Decoding,
} from './attributes.js';
import { DecodedGeometry, type GeometrySource } from './geometry.js';
import type { MaterialTable } from './materials.js';

interface Amounts {
  meshes: number;
  vertices: number;
  indices: number;
}

/** Room is taken before the meshes arrive, so it has a bound whatever a header claims. */
const LARGEST: Amounts = { meshes: 16 * 1024, vertices: 256 * 1024, indices: 1536 * 1024 };

/** Meshes that agree in all that cannot differ within a batch. */
interface Family {
  /** What has not arrived yet. */
  remaining: Amounts;
  /** How texture coordinates are decoded, as a text; null when it differs from mesh to mesh. */
  uv: string | null;
  batch: SRCBatch | null;
}

/** Meshes that are looked at between two pauses. */
const MESHES_PER_STEP = 256;

const matrix = new Matrix4();
const scale = new Vector3(),
  direction = new Vector3();
const NO_ROTATION = new Quaternion();

/** A batch whose meshes' matrices decode positions; its normals are the model's already. */
class SRCBatch extends BatchedMesh {
  /** In the order of their instances. */
  readonly meshes: SrcMesh[] = [];
  private readonly constants: Record<string, AnyAttribute> = {};
  private wasDrawn = false;

  constructor(
    readonly decoding: Decoding,
    private readonly room: Amounts,
    material: Material,
  ) {
    super(room.meshes, room.vertices, room.indices, material);
    // Only see-through meshes need an order.
    this.sortObjects = material.transparent;
    this.frustumCulled = false; // while it is filled
  }

  /** Whether there is room for another mesh. */
  takes({ vertices, indices }: Amounts): boolean {
    const { room } = this;
    return room.meshes > 0 && room.vertices >= vertices && room.indices >= indices;
  }

  addMesh(mesh: SrcMesh, part: BufferGeometry, amounts: Amounts, place: Matrix4, constants: DecodeConstants): void {
    const { geometry, room } = this;
    const isFirst = this.meshes.length === 0;
    // A batch takes all attributes for those of its meshes.
    for (const name in this.constants) delete geometry.attributes[name];
    const instance = this.addInstance(this.addGeometry(part));
    this.setMatrixAt(instance, place);
    if (isFirst) this.decode(constants);
    Object.assign(geometry.attributes, this.constants);
    for (const attribute of [geometry.index, ...Object.values(geometry.attributes)]) {
      if (attribute instanceof BufferAttribute) mergeRanges(attribute);
    }
    this.meshes.push(mesh);
    this.boundingBox = this.boundingSphere = null;
    room.meshes -= 1;
    room.vertices -= amounts.vertices;
    room.indices -= amounts.indices;
  }

  /** Makes of the plain attributes that batches have those that are read decoded, before they go to the GPU. */
  private decode(constants: DecodeConstants): void {
    const { geometry, decoding } = this;
    for (const name of ['normal', 'color', 'uv'] as const) {
      const affine = decoding[name];
      const isWords = name === 'normal' && decoding.octahedral;
      if (!affine && !isWords) continue;
      const old = geometry.getAttribute(name) as BufferAttribute;
      const { array, itemSize } = old;
      const made = isWords
        ? new OctahedralWords(array, 1)
        : (attributeOver(array, itemSize, itemSize, false, affine) as BufferAttribute);
      for (const { start, count } of old.updateRanges) made.addUpdateRange(start, count);
      geometry.setAttribute(name, made);
    }
    const named = new DecodedGeometry();
    constants.addTo(named, decoding);
    Object.assign(this.constants, named.attributes);
  }

  /** No more meshes will come. */
  finish(): void {
    this.computeBoundingBox();
    this.computeBoundingSphere();
    this.frustumCulled = true;
    if (this.wasDrawn) return;
    // All of it goes to the GPU at once; ranges would stay behind.
    for (const attribute of [this.geometry.index, ...Object.values(this.geometry.attributes)]) {
      if (attribute instanceof BufferAttribute) attribute.clearUpdateRanges();
    }
  }

  override onBeforeRender: BatchedMesh['onBeforeRender'] = (...parameters) => {
    this.wasDrawn = true;
    BatchedMesh.prototype.onBeforeRender.apply(this, parameters);
  };

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

/** Ranges that lie one behind the other become one: thousands of meshes come, and go to the GPU with the next frame. */
function mergeRanges({ updateRanges }: BufferAttribute): void {
  const last = updateRanges.at(-1),
    before = updateRanges.at(-2);
  if (!last || !before || before.start + before.count !== last.start) return;
  before.count += last.count;
  updateRanges.pop();
}

/** Meshes of one batch in the order of their instance IDs: see SRCModel.meshOf. */
export interface BatchData {
  meshes: readonly SrcMesh[];
}

/**
 * Draws all triangle meshes of one material at once, each as soon as it is there. Each keeps its own place in the batch,
 * so it can be hidden, culled, picked and told by its ID. Codes stay codes; a mesh's matrix decodes its positions.
 * Texture coordinates become floats where their decoding differs from mesh to mesh, which a batch cannot express.
 *
 * The header says how many meshes agree, and how large they are, so batches have room for those that are to come.
 */
export class Batcher {
  readonly batches: SRCBatch[] = [];
  private readonly families = new Map<string, Family>();
  private readonly familyOf = new Map<SrcMesh, Family>();

  constructor(
    private readonly header: SrcHeader,
    private readonly materials: MaterialTable,
    private readonly constants: DecodeConstants,
  ) {}

  /** Looks which meshes will come, in steps of about a millisecond. */
  *plan(meshes: Iterable<SrcMesh>): Generator<void, void> {
    let seen = 0;
    for (const mesh of meshes) {
      if (++seen % MESHES_PER_STEP === 0) yield;
      if (!isTriangles(mesh) || this.familyOf.has(mesh)) continue;
      const key = this.keyOf(mesh);
      const uv = decodingText(mesh.attributes.find(({ name }) => name === 'texcoord'));
      let family = this.families.get(key);
      if (!family) {
        family = { remaining: { meshes: 0, vertices: 0, indices: 0 }, uv, batch: null };
        this.families.set(key, family);
      }
      if (family.uv !== uv) family.uv = null;
      change(family.remaining, amountsOf(mesh), 1);
      this.familyOf.set(mesh, family);
    }
  }

  /** The new batch that a mesh was put into, or null where it was put into one that was there. */
  add(mesh: SrcMesh, source: GeometrySource, shift: readonly [number, number, number]): Object3D | null {
    if (!this.familyOf.has(mesh)) for (const work = this.plan([mesh]); !work.next().done; );
    const family = this.familyOf.get(mesh)!;
    const { geometry, scale, offset } = source;
    const part = new DecodedGeometry();
    for (const [name, attribute] of Object.entries(geometry.attributes)) {
      if (CONSTANT_NAMES.has(name)) continue;
      const isMixed = name === 'uv' && family.uv === null;
      const isApart = attribute instanceof InterleavedBufferAttribute;
      part.setAttribute(name, isMixed ? values(attribute) : isApart ? picked(attribute) : attribute);
    }
    part.setIndex(geometry.index);
    part.boundedBy(mesh);

    const amounts = amountsOf(mesh);
    let made: SRCBatch | null = null;
    if (!family.batch?.takes(amounts)) {
      const { remaining } = family;
      const room = {
        meshes: Math.min(remaining.meshes, LARGEST.meshes),
        vertices: Math.max(amounts.vertices, Math.min(remaining.vertices, LARGEST.vertices)),
        indices: Math.max(amounts.indices, Math.min(remaining.indices, LARGEST.indices)),
      };
      family.batch = made = this.batchFor(mesh, source, family, room);
      made.position.fromArray(shift);
    }
    family.batch.addMesh(mesh, part, amounts, matrix.compose(offset, NO_ROTATION, scale), this.constants);
    change(family.remaining, amounts, -1);
    return made;
  }

  /** After the last mesh, in steps of a few milliseconds. */
  *finish(): Generator<void, void> {
    for (const batch of this.batches) {
      batch.finish();
      yield;
    }
  }

  private batchFor(mesh: SrcMesh, source: GeometrySource, family: Family, room: Amounts): SRCBatch {
    const decoding = { ...source.decoding, uv: family.uv === null ? null : source.decoding.uv };
    const { hasColors, hasNormals } = source;
    const flags = { colors: hasColors, flat: !hasNormals, batched: true };
    const material = this.materials.get(mesh.material, 'triangles', kindOf(decoding), flags);
    const batch = new SRCBatch(decoding, room, material);
    this.batches.push(batch);
    batch.name = material.name;
    const data: BatchData = { meshes: batch.meshes };
    batch.userData = { material: mesh.material?.id ?? '', batch: data };
    return batch;
  }

  /** The same for meshes that can be drawn at once. The GPU keeps matrices in floats, so a batch has one origin. */
  private keyOf(mesh: SrcMesh): string {
    const shift = betweenOrigins(this.header.origin, mesh.origin);
    const isIndexed = mesh.indices !== null || mesh.drawnAs !== TRIANGLES;
    let key = `${this.materials.numberOf(mesh)} ${isIndexed} ${shift}`;
    for (const attribute of mesh.attributes) {
      const { name, view } = attribute;
      key += ` ${name} ${view.componentType} ${view.components} ${view.componentBytes}`;
      if (name === 'texcoord') continue;
      // The positions' decoding is each mesh's own.
      if (attribute !== positionOf(mesh)) key += decodingText(attribute);
    }
    return key;
  }
}

/** Equal for attributes that are decoded alike. */
function decodingText(attribute: SrcAttribute | undefined): string {
  const { view, fit } = attribute ?? {};
  if (!view?.decoded && !fit) return '';
  return ` ${view!.decodeOffset} ${view!.decodeScale} ${fit?.offset} ${fit?.scale}`;
}

/** What a mesh needs of a batch, at most. */
function amountsOf(mesh: SrcMesh): Amounts {
  const vertices = positionOf(mesh)?.view.count ?? 0;
  const count = mesh.indices?.count ?? 0;
  const indices = mesh.drawnAs === TRIANGLES ? count : 3 * Math.max(0, (mesh.indices ? count : vertices) - 2);
  return { meshes: 1, vertices, indices };
}

function change(amounts: Amounts, by: Amounts, sign: 1 | -1): void {
  amounts.meshes += sign * by.meshes;
  amounts.vertices += sign * by.vertices;
  amounts.indices += sign * by.indices;
}

/** Texture coordinates as floats. */
function values(attribute: AnyAttribute): BufferAttribute {
  const floats = new Float32Array(2 * attribute.count);
  for (let i = 0; i < attribute.count; ++i) {
    floats[2 * i] = attribute.getX(i);
    floats[2 * i + 1] = attribute.getY(i);
  }
  return new BufferAttribute(floats, 2);
}
