import { Vector3 } from 'three';
import type { SrcHeader } from 'kelsrc-loader/core';
import { aim, pixelsBetween } from './aiming.js';
import { DEFAULT_DISPLAY } from './api.js';
import type {
  CameraState,
  Display,
  Engine,
  EngineEvents,
  Measurement,
  MeshFacts,
  MeshRef,
  Source,
  StandardView,
} from './api.js';
import { boxMaterial } from './boxes.js';
import { CameraRig } from './cameraRig.js';
import { clipPlane } from './clipping.js';
import { Emitter } from './emitter.js';
import { factsOf } from './facts.js';
import { Files, type OpenFile } from './files.js';
import { FileScene, type Entry } from './fileScene.js';
import { Frames } from './frames.js';
import { Looks } from './looks.js';
import { Ruler, snapped } from './measuring.js';
import { Outline } from './outline.js';
import { pictureOf } from './pictures.js';
import { Stage, THEMES } from './stage.js';
import { watch } from './watching.js';
import { World } from './world.js';

/** A measured point this near to a vertex is that vertex. In pixels of the page. */
const SNAP = 10;

const LOST = 'The graphics card has stopped drawing. The view comes back by itself, or when you reload the page.';

/** Joins the parts of the engine: each knows its own matter, and this one who has to hear of what. */
export class ViewerEngine implements Engine {
  readonly stage: Stage;
  private readonly events = new Emitter<EngineEvents>();
  private readonly loads: Files;
  private readonly frames: Frames;
  private readonly rig: CameraRig;
  private readonly looks = new Looks();
  private readonly boxLook = boxMaterial();
  private readonly outline = new Outline();
  private readonly ruler = new Ruler();
  private readonly world: World;
  private current: Display = { ...DEFAULT_DISPLAY };
  private selected: MeshRef | null = null;
  private isMeasuring = false;
  private isLost = false;
  private wasEmpty = true;
  private readonly unwatch: () => void;

  constructor(readonly canvas: HTMLCanvasElement) {
    this.stage = new Stage(canvas);
    this.frames = new Frames({
      draw: (now) => this.frame(now),
      progressed: () => this.events.emit('progress', undefined),
    });
    this.rig = new CameraRig(canvas, this.frames.soon, () => this.events.emit('camera', this.camera));
    this.loads = new Files({
      sceneFor: (header) => this.sceneFor(header),
      changed: () => this.events.emit('files', undefined),
      progressed: this.frames.progress,
      bounded: () => this.rearrange(),
      arrived: (file, mesh) => {
        if (this.selected?.file === file.id && this.selected.mesh === mesh) this.outlineSelected();
        this.frames.later();
      },
    });
    this.world = new World(this.loads, this.stage.content);
    if (canvas.tabIndex < 0) canvas.tabIndex = 0;
    this.unwatch = watch(canvas, {
      clicked: (x, y) => this.clicked(x, y),
      resized: () => this.resize(),
      lost: () => {
        this.isLost = true;
        this.events.emit('trouble', LOST);
      },
      restored: () => {
        this.isLost = false;
        this.frames.soon();
        this.events.emit('trouble', '');
      },
    });
    this.applyDisplay();
    this.resize();
  }

  on<K extends keyof EngineEvents>(event: K, listener: (value: EngineEvents[K]) => void): () => void {
    return this.events.on(event, listener);
  }

  // ---- files

  get files(): readonly OpenFile[] {
    return this.loads.list;
  }
  open(source: Source): number {
    return this.loads.open(source);
  }
  abort(file: number): void {
    this.loads.abort(file);
  }
  close(file: number): void {
    if (!this.loads.find(file)) return;
    if (this.selected?.file === file) this.select(null);
    const hidden = this.hiddenCount;
    this.loads.close(file);
    if (this.world.scenes.length === 0) this.rig.placed = false;
    this.rearrange();
    if (this.hiddenCount !== hidden) this.events.emit('visibility', undefined);
  }

  // ---- selection and visibility

  get selection(): MeshRef | null {
    return this.selected;
  }
  select(mesh: MeshRef | null): void {
    const { selected } = this;
    if (mesh?.file === selected?.file && mesh?.mesh === selected?.mesh) return;
    this.selected = mesh && this.world.entryOf(mesh) ? { file: mesh.file, mesh: mesh.mesh } : null;
    this.outlineSelected();
    this.events.emit('selection', this.selected);
  }

  setVisible(meshes: Iterable<MeshRef>, visible: boolean): void {
    const changes = new Map<Entry, boolean>();
    for (const mesh of meshes) {
      const entry = this.world.entryOf(mesh);
      if (entry) changes.set(entry, visible);
    }
    this.changeVisibility((entry) => changes.get(entry) ?? entry.visible);
  }
  isolate(meshes: Iterable<MeshRef>): void {
    const kept = new Set([...meshes].map((mesh) => this.world.entryOf(mesh)));
    this.changeVisibility((entry) => kept.has(entry));
  }
  showAll(): void {
    this.changeVisibility(() => true);
  }
  isVisible(mesh: MeshRef): boolean {
    return this.world.entryOf(mesh)?.visible ?? false;
  }
  get hiddenCount(): number {
    return this.world.scenes.reduce((sum, scene) => sum + scene.hidden, 0);
  }

  // ---- display

  get display(): Display {
    return this.current;
  }
  setDisplay(change: Partial<Display>): void {
    const next = { ...this.current, ...change };
    if (JSON.stringify(next) === JSON.stringify(this.current)) return;
    const rearranged = next.arrangement !== this.current.arrangement;
    this.current = next;
    if (rearranged) this.rearrange();
    this.applyDisplay();
    this.events.emit('display', next);
  }

  // ---- camera

  get camera(): CameraState {
    const { camera, target } = this.rig;
    const told = (place: Vector3) => place.clone().add(this.world.origin).toArray();
    return { position: told(camera.position), target: told(target), up: camera.up.toArray() };
  }
  setCamera({ position, target }: CameraState, animate = true): void {
    const inScene = (place: [number, number, number]) => new Vector3(...place).sub(this.world.origin);
    this.rig.place(inScene(position), inScene(target), animate);
  }
  fit(meshes?: Iterable<MeshRef>): void {
    this.rig.placed = meshes !== undefined;
    this.rig.fit(this.world.boundsOf(meshes), null, true);
  }
  setView(view: StandardView): void {
    this.rig.placed = true;
    this.rig.fit(this.world.boundsOf(), view, true);
  }

  // ---- measuring

  get measuring(): boolean {
    return this.isMeasuring;
  }
  set measuring(measuring: boolean) {
    this.isMeasuring = measuring;
    this.canvas.style.cursor = measuring ? 'crosshair' : '';
  }
  get measurement(): Measurement | null {
    return this.ruler.measurement;
  }
  setMeasurement(measurement: Measurement | null): void {
    this.ruler.measurement = measurement;
    this.measured();
  }

  facts(mesh: MeshRef): MeshFacts | null {
    const entry = this.world.entryOf(mesh);
    return entry ? factsOf(entry) : null;
  }

  picture(width?: number): Promise<Blob> {
    this.rig.update(performance.now());
    return pictureOf(this.stage.renderer, width, () => this.draw());
  }

  dispose(): void {
    for (const { id } of this.loads.list) this.loads.close(id);
    this.unwatch();
    this.frames.stop();
    this.events.clear();
    for (const part of [this.rig, this.outline, this.ruler, this.looks, this.boxLook, this.stage]) part.dispose();
  }

  /** Nothing is left to draw or to tell. */
  get settled(): boolean {
    return this.frames.settled;
  }

  /** Boxes that stand for meshes, or are shown with them. */
  get shownBoxes(): number {
    return this.world.scenes.reduce((sum, scene) => sum + scene.shownBoxes, 0);
  }

  // ---- between the parts

  private sceneFor(header: SrcHeader): FileScene {
    const scene = new FileScene(header, this.looks, this.boxLook);
    scene.setLook(this.current.surface);
    scene.setAllBoxes(this.current.bounds);
    return scene;
  }

  private rearrange(): void {
    const { world, rig } = this;
    const before = world.origin.clone();
    world.arrange(this.current.arrangement);
    rig.moveWith(before.sub(world.origin));
    rig.setContent(world.bounds);
    if (!rig.placed) rig.fit(world.boundsOf(), this.wasEmpty ? 'iso' : null, false);
    this.wasEmpty = world.bounds.isEmpty();
    this.stage.clip = clipPlane(this.current.clip, world.bounds);
    this.ruler.show(world);
    this.frames.soon();
  }

  private applyDisplay(): void {
    const { current, stage, rig, world } = this;
    stage.setTheme(current.theme);
    stage.wireframe = current.wireframe;
    stage.clip = clipPlane(current.clip, world.bounds);
    this.outline.theme = current.theme;
    this.boxLook.uniforms.color!.value.set(THEMES[current.theme].boxes);
    for (const scene of world.scenes) {
      scene.setLook(current.surface);
      scene.setAllBoxes(current.bounds);
    }
    rig.setUp(current.up === 'z' ? new Vector3(0, 0, 1) : new Vector3(0, 1, 0));
    if (!rig.placed) rig.fit(world.boundsOf(), null, false);
    this.frames.soon();
  }

  private changeVisibility(wanted: (entry: Entry) => boolean): void {
    if (!this.world.setVisible(wanted)) return;
    this.outlineSelected();
    this.events.emit('visibility', undefined);
  }

  private outlineSelected(): void {
    const entry = this.selected && this.world.entryOf(this.selected);
    this.outline.show(entry?.visible ? entry : null);
    this.frames.soon();
  }

  private clicked(x: number, y: number): void {
    const { canvas, rig, stage } = this;
    const target = aim(canvas, rig.camera, this.loads.list, stage.clip, x, y);
    if (!this.isMeasuring) {
      const mesh = target && { file: target.file.id, mesh: target.entry.mesh.index };
      this.select(mesh);
      this.events.emit('pick', mesh);
    } else if (target) {
      const { shift, origin } = target.file.scene!;
      const apart = (a: Vector3, b: Vector3) =>
        pixelsBetween(a.clone().add(shift), b.clone().add(shift), rig.camera, canvas);
      this.ruler.add({ point: snapped(target, apart, SNAP).add(origin), file: target.file.id });
      this.measured();
    }
  }

  private measured(): void {
    this.ruler.show(this.world);
    this.frames.soon();
    this.events.emit('measurement', this.measurement);
  }

  private resize(): void {
    if (!this.stage.resize()) return;
    const { canvas, rig } = this;
    rig.resize(canvas.clientWidth, canvas.clientHeight);
    if (!rig.placed) rig.fit(this.world.boundsOf(), null, false);
    // At once: a canvas is empty after its size has changed.
    rig.update(performance.now());
    this.draw();
  }

  private frame(now: number): boolean {
    const moving = this.rig.update(now);
    this.draw();
    return moving;
  }

  private draw(): void {
    if (this.isLost) return;
    const { stage, rig } = this;
    this.looks.pixelRatio = stage.renderer.getPixelRatio();
    for (const scene of this.world.scenes) scene.beforeRender();
    stage.render(rig.camera, () => {
      this.outline.render(stage.renderer, rig.camera, stage.clip);
      this.ruler.render(stage.renderer, rig.camera);
    });
  }
}
