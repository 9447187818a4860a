import {
  Box3,
  BufferAttribute,
  BufferGeometry,
  Matrix4,
  MeshBasicMaterial,
  MeshPhongMaterial,
  Quaternion,
  Sphere,
  Vector3,
  Vector4,
  type Group,
  type Material,
} from 'three';
import {
  betweenOrigins,
  DEFAULT_MATERIAL_OPTIONS,
  LINES,
  MaterialTable,
  POINTS,
  SHORT,
  TRIANGLES,
  UNSIGNED_SHORT,
  type MeshArrays,
  type SrcHeader,
  type SrcMaterial,
  type SrcMesh,
  type SrcOrigin,
} from 'kelsrc-loader';
import { Batch, type Amounts } from './batches.js';
import { colorsFor, hasNormals, indicesFor, isColor, normalsFor, positionIn, positionsFor } from './batchData.js';
import { forBatches, type Looks } from './looks.js';
import type { Kind, Surface } from './surface.js';

/** Meshes with more vertices are drawn by themselves, straight from the file's bytes. */
const SMALL_MESH_VERTICES = 32 * 1024;
/** Room is taken before the meshes arrive, so it has a bound whatever a header claims. */
const BATCH: Amounts = { meshes: 16 * 1024, vertices: 256 * 1024, indices: 1536 * 1024 };
/** A file of fewer meshes needs no batches. */
const FEW_MESHES = 64;

const KINDS = new Map<number, Kind>([
  [TRIANGLES, 'triangles'],
  [LINES, 'lines'],
  [POINTS, 'points'],
]);

/** Meshes that can share a batch. */
interface Family {
  /** What has not arrived yet. */
  remaining: Amounts;
  batch: Batch | null;
}

interface Look {
  key: string;
  /** Of one instance. */
  color: Vector4;
  material: Material;
}

export interface Placed {
  batch: Batch;
  instance: number;
  surface: Surface;
}

/** Of what is drawn; other vertices may lie anywhere. */
function boxOf(positions: ArrayLike<number>, index: ArrayLike<number>): Box3 {
  const box = new Box3();
  for (let i = 0; i < index.length; ++i) {
    const at = index[i]! * 3;
    box.expandByPoint(point.set(positions[at]!, positions[at + 1]!, positions[at + 2]!));
  }
  return box;
}

/** True for a mesh with this origin. */
export function isAbout(mesh: SrcMesh, origin: SrcOrigin | null): boolean {
  return betweenOrigins(origin, mesh.origin).every((difference) => difference === 0);
}

const point = new Vector3();
const matrix = new Matrix4();
const NO_ROTATION = new Quaternion();

/** Collects a file's small meshes in batches while they arrive. Those of one batch differ in place and colour. */
export class Batcher {
  readonly batches: Batch[] = [];
  private readonly families = new Map<string, Family>();
  private readonly keys = new Map<SrcMesh, string>();
  private readonly table = new MaterialTable(DEFAULT_MATERIAL_OPTIONS);
  private readonly looksOf = new Map<string, Look>();
  private readonly materials = new Map<string, Material>();

  /** `origin` lies near the meshes: batches keep their places as floats. */
  constructor(
    header: SrcHeader,
    private readonly origin: Vector3,
    private readonly parent: Group,
    private readonly looks: Looks,
  ) {
    if (header.meshes.length < FEW_MESHES) return;
    for (const mesh of header.meshes) {
      const kind = KINDS.get(mesh.drawnAs);
      const position = positionIn(mesh.attributes);
      if (!kind || !position || position.view.count === 0 || position.view.count > SMALL_MESH_VERTICES) continue;
      if (!isAbout(mesh, header.origin)) continue;
      const indices = mesh.indices?.count ?? position.view.count;
      if (indices === 0 || indices > 6 * SMALL_MESH_VERTICES) continue;
      const colors = mesh.attributes.some(isColor);
      const normals = kind === 'triangles' && hasNormals(mesh);
      const { componentType, components } = position.view;
      const codes = components >= 3 && [SHORT, UNSIGNED_SHORT].includes(componentType) ? componentType : 0;
      const look = this.lookOf(mesh.material, kind, colors, normals);
      const key = `${codes} ${look.key}`;
      this.keys.set(mesh, key);
      let family = this.families.get(key);
      if (!family) {
        family = { remaining: { meshes: 0, vertices: 0, indices: 0 }, batch: null };
        this.families.set(key, family);
      }
      family.remaining.meshes += 1;
      family.remaining.vertices += position.view.count;
      family.remaining.indices += indices;
    }
  }

  /** True for a mesh that `add` takes. */
  takes(mesh: SrcMesh): boolean {
    return this.keys.has(mesh);
  }

  add({ mesh, indices, attributes }: MeshArrays): Placed {
    const family = this.families.get(this.keys.get(mesh)!)!;
    const position = positionIn(attributes)!;
    const kind = KINDS.get(mesh.drawnAs)!;
    const normals = kind === 'triangles' && hasNormals(mesh);
    const color = attributes.find(isColor);
    const look = this.lookOf(mesh.material, kind, color !== undefined, normals);
    const { array, scale, shift } = positionsFor(position);
    const index = indicesFor(indices, position.count);

    const geometry = new BufferGeometry();
    geometry.setAttribute('position', new BufferAttribute(array, 3));
    geometry.setIndex(new BufferAttribute(index, 1));
    if (normals) geometry.setAttribute('normal', new BufferAttribute(normalsFor(attributes), 4, true));
    if (color) geometry.setAttribute('color', new BufferAttribute(colorsFor(color), 4, true));
    geometry.boundingBox = boxOf(array, index);
    geometry.boundingSphere = geometry.boundingBox.getBoundingSphere(new Sphere());

    const batch = this.batchFor(family, kind, position.count, index.length, look.material);
    const instance = batch.addInstance(batch.addGeometry(geometry));
    const place = shift.clone().sub(this.origin);
    batch.setMatrixAt(instance, matrix.compose(place, NO_ROTATION, scale));
    batch.colors[instance] = look.color;
    family.remaining.meshes -= 1;
    family.remaining.vertices -= position.count;
    family.remaining.indices -= index.length;

    const range = batch.getGeometryRangeAt(batch.getGeometryIdAt(instance))!;
    const surface: Surface = {
      kind,
      positions: batch.geometry.getAttribute('position').array,
      stride: 3,
      offset: 0,
      components: 3,
      index: batch.geometry.index!.array,
      start: range.start,
      count: range.count,
      step: kind === 'lines' ? 2 : 1,
      loop: false,
      scale,
      shift,
    };
    return { batch, instance, surface };
  }

  dispose(): void {
    for (const batch of this.batches) {
      batch.removeFromParent();
      batch.dispose();
    }
    for (const material of [...this.materials.values(), ...this.table.all]) material.dispose();
    this.batches.length = 0;
  }

  private batchFor(family: Family, kind: Kind, vertices: number, indices: number, material: Material): Batch {
    if (family.batch?.take(vertices, indices)) return family.batch;
    const { remaining } = family;
    const room = {
      meshes: Math.min(remaining.meshes, BATCH.meshes),
      // Whole fours: at 65535 exactly, three.js would be of two minds about the size of indices.
      vertices: Math.ceil(Math.min(remaining.vertices, BATCH.vertices) / 4) * 4,
      indices: Math.min(remaining.indices, BATCH.indices),
    };
    const batch = new Batch(kind, room, material);
    batch.take(vertices, indices);
    batch.position.copy(this.origin);
    this.parent.add(batch);
    this.batches.push(batch);
    family.batch = batch;
    return batch;
  }

  private lookOf(source: SrcMaterial | null, kind: Kind, colors: boolean, normals: boolean): Look {
    const id = `${kind} ${colors} ${normals} ${source === null ? '' : `/${source.id}`}`;
    let look = this.looksOf.get(id);
    if (look) return look;
    const flat = kind === 'triangles' && !normals;
    const own = this.table.get(source, kind, '', { colors, flat, batched: true });
    const { color, opacity, transparent } = own as MeshPhongMaterial;
    // Colour and opacity belong to the instances. Materials that differ in nothing else are one.
    let key = `${kind} ${colors} ${flat} ${transparent}`;
    if (own instanceof MeshPhongMaterial) {
      key += ` ${own.specular.getHexString()} ${own.emissive.getHexString()} ${own.shininess}`;
    }
    let material = this.materials.get(key);
    if (!material) {
      material =
        own instanceof MeshPhongMaterial
          ? (new MeshPhongMaterial().copy(own) as MeshPhongMaterial)
          : new MeshBasicMaterial({ transparent, vertexColors: colors });
      (material as MeshPhongMaterial).color.set(1, 1, 1);
      material.opacity = 1;
      forBatches(material, kind, this.looks.pointSize);
      this.materials.set(key, material);
    }
    look = { key, color: new Vector4(color.r, color.g, color.b, opacity), material };
    this.looksOf.set(id, look);
    return look;
  }
}
