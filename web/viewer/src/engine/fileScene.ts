import {
  Box3,
  BufferAttribute,
  DoubleSide,
  Group,
  Line,
  Mesh,
  Points,
  Vector3,
  type Material,
  type MeshPhongMaterial,
  type Object3D,
  type ShaderMaterial,
} from 'three';
import { boundsOf, DEFAULT_MATERIAL_OPTIONS, SRCModel } from 'kelsrc-loader';
import type { MeshArrays, SrcHeader, SrcMesh, SrcOrigin } from 'kelsrc-loader/core';
import type { Batch } from './batches.js';
import { Batcher, isAbout } from './batcher.js';
import { Boxes } from './boxes.js';
import { TRIANGLE_LAYER } from './layers.js';
import type { Draws, Looks, SurfaceLook } from './looks.js';
import { boxOfSurface, surfaceOf, type Kind, type Surface } from './surface.js';

export interface Entry {
  readonly mesh: SrcMesh;
  /** In file coordinates; null while nobody has said. */
  box: Box3 | null;
  visible: boolean;
  /** True once its geometry has arrived, also when there is nothing to draw. */
  loaded: boolean;
  /** Drawn by itself. */
  object: (Mesh | Line | Points) | null;
  /** Drawn in a batch. */
  batch: Batch | null;
  instance: number;
  surface: Surface | null;
}

/** Where floats this many times their mesh's size away from the origin have too few digits for the GPU. */
const FAR = 256;

/** What is drawn of a file. Its own coordinates are counted from its origin, so floats have digits enough for them. */
export class FileScene {
  readonly group = new Group();
  /** In true coordinates. */
  readonly origin: Vector3;
  readonly entries: Entry[];
  readonly bounds = new Box3();
  /** From file coordinates to those of the scene. */
  readonly shift = new Vector3();
  loaded = 0;
  hidden = 0;

  private readonly model: SRCModel;
  private readonly batcher: Batcher;
  private readonly boxes: Boxes;
  private readonly ownMaterials = new Map<Object3D, Material>();
  private look: SurfaceLook = 'materials';
  private allBoxes = false;
  private boxesChanged = true;

  constructor(
    readonly header: SrcHeader,
    private readonly looks: Looks,
    boxMaterial: ShaderMaterial,
  ) {
    const { origin } = header;
    this.origin = origin ? new Vector3(...origin) : new Vector3();
    const near = new Box3();
    this.entries = header.meshes.map((mesh) => {
      const box = boxOf(mesh, origin);
      if (box) this.bounds.union(box);
      if (box && isAbout(mesh, origin)) near.union(box);
      const nothing = { object: null, batch: null, instance: 0, surface: null };
      return { mesh, box, visible: true, loaded: false, ...nothing };
    });
    // Meshes with another origin may lie anywhere.
    const center = near.isEmpty() ? new Vector3() : near.getCenter(new Vector3());
    const options = { ...DEFAULT_MATERIAL_OPTIONS, side: DoubleSide, batch: false, applyOrigin: false };
    this.model = new SRCModel(header, options);
    this.group.add(this.model.scene);
    this.batcher = new Batcher(header, center, this.group, looks);
    this.boxes = new Boxes(header.meshes.length, center, boxMaterial, this.group);
  }

  /** Takes a mesh's geometry in. True when this has changed the bounds of the file. */
  add(arrays: MeshArrays): boolean {
    const entry = this.entries[arrays.mesh.index]!;
    entry.loaded = true;
    this.loaded += 1;
    this.boxesChanged = true;
    if (this.batcher.takes(arrays.mesh)) {
      Object.assign(entry, this.batcher.add(arrays));
      this.dress(entry);
    } else {
      const object = this.model.add(arrays);
      if (object && isDrawn(object)) {
        entry.object = object;
        this.ownMaterials.set(object, object.material as Material);
        moveNear(object, entry.box);
        entry.surface = surfaceOf(object);
        if (object instanceof Mesh) object.layers.enable(TRIANGLE_LAYER);
        this.dress(entry);
      }
    }
    if (!entry.visible) this.showGeometry(entry);
    if (entry.box || !entry.surface) return false;
    entry.box = boxOfSurface(entry.surface);
    this.bounds.union(entry.box);
    return true;
  }

  setVisible(entry: Entry, visible: boolean): void {
    if (entry.visible !== visible) this.hidden += visible ? -1 : 1;
    entry.visible = visible;
    this.boxesChanged = true;
    this.showGeometry(entry);
  }

  setLook(look: SurfaceLook): void {
    if (look === this.look) return;
    this.look = look;
    for (const entry of this.entries) this.dress(entry);
  }

  setAllBoxes(all: boolean): void {
    if (all === this.allBoxes) return;
    this.allBoxes = all;
    this.boxesChanged = true;
  }

  /** Once per picture: brings up to date what meshes only mark. */
  beforeRender(): void {
    if (!this.boxesChanged) return;
    this.boxesChanged = false;
    const shown: Box3[] = [];
    for (const { visible, loaded, box } of this.entries) {
      if (visible && box && (!loaded || this.allBoxes)) shown.push(box);
    }
    this.boxes.show(shown);
  }

  /** How many boxes are drawn. */
  get shownBoxes(): number {
    this.beforeRender();
    return this.boxes.shown;
  }

  dispose(): void {
    // Materials of others, which the model does not know, are theirs to dispose.
    for (const [object, material] of this.ownMaterials) (object as Mesh).material = material;
    this.model.dispose();
    this.batcher.dispose();
    this.boxes.dispose();
    this.group.removeFromParent();
    this.group.clear();
  }

  private showGeometry({ object, batch, instance, visible }: Entry): void {
    if (object) object.visible = visible;
    batch?.setVisibleAt(instance, visible);
  }

  private dress({ object, batch, instance }: Entry): void {
    if (object) {
      const own = this.ownMaterials.get(object)!;
      const kind: Kind = object instanceof Mesh ? 'triangles' : object instanceof Line ? 'lines' : 'points';
      const decoding = (object.geometry.userData.srcDecoding as string | undefined) ?? '';
      object.material = this.materialFor(own, { kind, decoding, flat: isFlat(own), batched: false });
    } else if (batch) {
      const draws: Draws = { kind: batch.kind, decoding: '', flat: isFlat(batch.ownMaterial), batched: true };
      batch.material = this.materialFor(batch.ownMaterial, draws);
      batch.sortObjects = batch.material.transparent;
      batch.showColors(instance, this.look === 'materials');
    }
  }

  private materialFor(own: Material, draws: Draws): Material {
    return this.look === 'materials' ? own : this.looks.get(this.look, draws);
  }
}

function isDrawn(object: Object3D): object is Mesh | Line | Points {
  return object instanceof Mesh || object instanceof Line || object instanceof Points;
}

function isFlat(material: Material): boolean {
  return (material as MeshPhongMaterial).flatShading === true;
}

/** The header's box of a mesh, in file coordinates; null when it has none that makes sense. */
function boxOf(mesh: SrcMesh, origin: SrcOrigin | null): Box3 | null {
  const bounds = boundsOf(mesh, origin);
  if (!bounds) return null;
  const box = new Box3(new Vector3(...bounds.min), new Vector3(...bounds.max));
  const { min, max } = box;
  return Number.isFinite(min.x + min.y + min.z + max.x + max.y + max.z) ? box : null;
}

/** Floats far from the origin lose their last digits in the shader: these are counted from the middle of their mesh. */
function moveNear(object: Mesh | Line | Points, box: Box3 | null): void {
  const { geometry } = object;
  const position = geometry.getAttribute('position');
  if (!box || !(position instanceof BufferAttribute) || position.itemSize !== 3) return;
  if (!(position.array instanceof Float32Array)) return;
  if (object.scale.x !== 1 || object.scale.y !== 1 || object.scale.z !== 1) return;
  const center = box.getCenter(new Vector3()).sub(object.position);
  const size = box.getSize(new Vector3()).length();
  if (center.length() < FAR * size) return;
  const from = center.toArray();
  geometry.setAttribute('position', new BufferAttribute(position.array.map((x, i) => x - from[i % 3]!), 3));
  geometry.boundingBox?.translate(center.clone().negate());
  geometry.boundingSphere?.translate(center.clone().negate());
  object.position.add(center);
}
