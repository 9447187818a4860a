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
} from 'three';
import type { SrcMesh } from '../core/model.js';
import { attributeOver, kindOf, OctahedralAttribute, type DecodeConstants } from './attributes.js';
import type { SrcGeometry } from './geometry.js';
import type { MaterialTable } from './materials.js';

interface Entry {
  mesh: SrcMesh;
  source: SrcGeometry;
}

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
 * hidden, culled, picked and told by its ID. Codes stay codes; a mesh's matrix decodes its positions.
 *
 * Texture coordinates are left out: the materials of these files have no textures, and their decoding would
 * differ from mesh to mesh.
 */
export class Batcher {
  private readonly groups = new Map<string, Entry[]>();

  constructor(
    private readonly materials: MaterialTable,
    private readonly constants: DecodeConstants,
  ) {}

  add(mesh: SrcMesh, source: SrcGeometry): void {
    const { geometry, decoding } = source;
    geometry.deleteAttribute('uv');
    decoding.uv = null;
    // Meshes of one batch agree in all that cannot differ per mesh.
    let key = `${this.materials.numberOf(mesh)} ${geometry.index !== null} ${JSON.stringify(decoding)}`;
    for (const name of Object.keys(geometry.attributes).sort()) {
      if (name.startsWith('src')) geometry.deleteAttribute(name);
      else key += ` ${name} ${signature(geometry, name)}`;
    }
    const group = this.groups.get(key);
    if (group) group.push({ mesh, source });
    else this.groups.set(key, [{ mesh, source }]);
  }

  /** The batches of all meshes so far. The geometries that were added are not needed any more. */
  finish(): BatchedMesh[] {
    const batches = [...this.groups.values()].map((group) => this.batchOf(group));
    this.groups.clear();
    return batches;
  }

  private batchOf(entries: Entry[]): BatchedMesh {
    const first = entries[0]!;
    let vertices = 0,
      indices = 0;
    for (const { source } of entries) {
      vertices += source.geometry.getAttribute('position').count;
      indices += source.geometry.index?.count ?? 0;
    }
    const material = this.materials.get(first.mesh.material, 'triangles', kindOf(first.source.decoding), {
      colors: first.source.hasColors,
      flat: !first.source.hasNormals,
      batched: true,
    });
    const batch = new SRCBatch(entries.length, vertices, indices, material);
    const rotation = new Quaternion();
    for (const { source } of entries) {
      const instance = batch.addInstance(batch.addGeometry(source.geometry));
      batch.setMatrixAt(instance, matrix.compose(source.offset, rotation, source.scale));
    }
    // Only see-through meshes need an order.
    batch.sortObjects = material.transparent;
    const { geometry } = batch;
    if (first.source.decoding.octahedral) {
      const words = geometry.getAttribute('normal').array;
      geometry.setAttribute('normal', new OctahedralAttribute(new InterleavedBuffer(words, 1), 1, 0));
    }
    // Batches make plain attributes; these are read decoded again.
    for (const name of ['normal', 'color'] as const) {
      const affine = first.source.decoding[name];
      if (!affine) continue;
      const { array, itemSize } = geometry.getAttribute(name);
      geometry.setAttribute(name, attributeOver(array, itemSize, itemSize, false, affine));
    }
    // Added last: a batch takes all others for attributes of its meshes.
    this.constants.addTo(geometry, first.source.decoding);
    batch.computeBoundingBox();
    batch.computeBoundingSphere();
    batch.name = material.name;
    const data: BatchData = { meshes: entries.map((entry) => entry.mesh) };
    batch.userData = { material: first.mesh.material?.id ?? '', batch: data };
    return batch;
  }
}

function signature(geometry: BufferGeometry, name: string): string {
  const attribute = geometry.getAttribute(name);
  const array = attribute instanceof BufferAttribute ? attribute.array : attribute.data.array;
  return `${array.constructor.name} ${attribute.itemSize} ${attribute.normalized}`;
}
