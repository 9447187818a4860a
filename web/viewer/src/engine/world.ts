import { Box3, Vector3, type Group } from 'three';
import type { Display, MeshRef } from './api.js';
import type { Files } from './files.js';
import type { Entry, FileScene } from './fileScene.js';

/** Between files in a row, of their longest side. */
const GAP = 0.15;

/**
 * Where files stand. Their true coordinates may be large, a map's for example; those of the scene are counted from the
 * first file's origin, so that cameras, planes and what is drawn have digits to spare. A file's own, which are counted
 * from its origin, and its shift give those of the scene.
 */
export class World {
  /** Where the scene's zero lies in true coordinates. It stays where it is while any file is shown. */
  readonly origin = new Vector3();
  /** Of all files, in the scene. */
  readonly bounds = new Box3();

  private isUsed = false;

  constructor(
    private readonly files: Files,
    private readonly content: Group,
  ) {}

  get scenes(): FileScene[] {
    return this.files.list.flatMap(({ scene }) => scene ?? []);
  }

  sceneOf(file: number): FileScene | null {
    return this.files.find(file)?.scene ?? null;
  }

  entryOf({ file, mesh }: MeshRef): Entry | null {
    return this.sceneOf(file)?.entries[mesh] ?? null;
  }

  /** Puts all files where they belong. */
  arrange(arrangement: Display['arrangement']): void {
    const { scenes, bounds: all } = this;
    const [first] = scenes;
    if (first && !this.isUsed) this.origin.copy(first.origin);
    this.isUsed = first !== undefined;
    for (const { shift, origin } of scenes) {
      shift.copy(origin).sub(this.origin);
      if (!Number.isFinite(shift.x + shift.y + shift.z)) shift.set(0, 0, 0); // farther apart than numbers reach
    }
    if (arrangement === 'row') setInRow(scenes.filter(({ bounds }) => !bounds.isEmpty()));
    all.makeEmpty();
    for (const { bounds, shift, group } of scenes) {
      if (!bounds.isEmpty()) all.union(bounds.clone().translate(shift));
      group.position.copy(shift);
      this.content.add(group);
    }
  }

  /** Of these meshes, or else of everything visible, or else of everything; in the scene. */
  boundsOf(meshes?: Iterable<MeshRef>): Box3 {
    const box = new Box3();
    const add = ({ shift }: FileScene, { box: own }: Entry) => own && box.union(own.clone().translate(shift));
    if (meshes) {
      for (const mesh of meshes) {
        const entry = this.entryOf(mesh);
        if (entry) add(this.sceneOf(mesh.file)!, entry);
      }
    } else {
      for (const scene of this.scenes) {
        for (const entry of scene.entries) if (entry.visible) add(scene, entry);
      }
    }
    return box.isEmpty() ? box.copy(this.bounds) : box;
  }

  /** A point of a file, in true coordinates, in the scene; of a file that nobody knows, the first one. */
  toScene(point: Vector3, file: number | null): Vector3 {
    const scene = (file === null ? null : this.sceneOf(file)) ?? this.scenes[0];
    return scene ? point.clone().sub(scene.origin).add(scene.shift) : point.clone().sub(this.origin);
  }

  /** Changes which meshes are visible. True when any has changed. */
  setVisible(wanted: (entry: Entry) => boolean): boolean {
    let changed = false;
    for (const scene of this.scenes) {
      for (const entry of scene.entries) {
        const visible = wanted(entry);
        if (visible === entry.visible) continue;
        scene.setVisible(entry, visible);
        changed = true;
      }
    }
    return changed;
  }
}

/** Along x; the first file stays where it is. */
function setInRow(files: FileScene[]): void {
  const [first, ...others] = files;
  if (!first) return;
  const longest = Math.max(...files.map(({ bounds }) => Math.max(...bounds.getSize(new Vector3()).toArray())));
  const center = first.bounds.getCenter(new Vector3()).add(first.shift);
  let end = first.bounds.max.x + first.shift.x;
  for (const { bounds, shift } of others) {
    shift.copy(center).sub(bounds.getCenter(new Vector3()));
    shift.x = end + longest * GAP - bounds.min.x;
    end = bounds.max.x + shift.x;
  }
}
