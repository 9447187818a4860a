import { parseSrc, type SrcHeader } from 'kelsrc-loader/core';
import { DEFAULT_DISPLAY } from '../../src/engine/api.js';
import type {
  CameraState,
  Display,
  Engine,
  EngineEvents,
  FileState,
  Measurement,
  MeshRef,
  Source,
} from '../../src/engine/api.js';

type Mutable<T> = { -readonly [K in keyof T]: T[K] };
type Listeners = { [K in keyof EngineEvents]: Set<(value: EngineEvents[K]) => void> };

/** An engine that draws nothing: files arrive when the test says so. */
export class FakeEngine implements Engine {
  files: Mutable<FileState>[] = [];
  selection: MeshRef | null = null;
  display: Display = { ...DEFAULT_DISPLAY };
  camera: CameraState = { position: [0, 0, 10], target: [0, 0, 0], up: [0, 1, 0] };
  measuring = false;
  measurement: Measurement | null = null;
  /** What was fitted, in order; null is everything. */
  fitted: (MeshRef[] | null)[] = [];
  private readonly hidden = new Set<string>();
  private readonly listeners: Listeners = {
    files: new Set(),
    progress: new Set(),
    selection: new Set(),
    visibility: new Set(),
    display: new Set(),
    camera: new Set(),
    measurement: new Set(),
    pick: new Set(),
    trouble: new Set(),
  };

  on<K extends keyof EngineEvents>(event: K, listener: (value: EngineEvents[K]) => void): () => void {
    this.listeners[event].add(listener);
    return () => this.listeners[event].delete(listener);
  }
  emit<K extends keyof EngineEvents>(event: K, value: EngineEvents[K]): void {
    for (const listener of this.listeners[event]) listener(value);
  }

  open(source: Source): number {
    const id = 11 + this.files.length;
    this.files = [
      ...this.files,
      {
        id,
        name: source.name,
        source,
        state: 'loading',
        problem: null,
        header: null,
        loadedBytes: 0,
        totalBytes: 0,
        loadedMeshes: 0,
      },
    ];
    this.emit('files', undefined);
    return id;
  }
  /** The header has arrived. */
  arrive(id: number, header: SrcHeader): void {
    const file = this.files.find((file) => file.id === id)!;
    file.header = header;
    file.totalBytes = header.totalBytes;
    this.emit('files', undefined);
  }
  /** A whole file at once. */
  load(name: string, bytes: Uint8Array<ArrayBuffer>): number {
    const id = this.open({ name, url: `https://example.org/${name}` });
    this.arrive(id, parseSrc(bytes).header);
    this.files.find((file) => file.id === id)!.state = 'complete';
    this.emit('files', undefined);
    return id;
  }
  abort(id: number): void {
    this.files.find((file) => file.id === id)!.state = 'aborted';
    this.emit('files', undefined);
  }
  close(id: number): void {
    this.files = this.files.filter((file) => file.id !== id);
    this.emit('files', undefined);
  }

  select(mesh: MeshRef | null): void {
    this.selection = mesh;
    this.emit('selection', mesh);
  }

  private *all(): Generator<MeshRef> {
    for (const file of this.files) {
      for (const { index } of file.header?.meshes ?? []) yield { file: file.id, mesh: index };
    }
  }
  setVisible(meshes: Iterable<MeshRef>, visible: boolean): void {
    for (const { file, mesh } of meshes) {
      if (visible) this.hidden.delete(`${file} ${mesh}`);
      else this.hidden.add(`${file} ${mesh}`);
    }
    this.emit('visibility', undefined);
  }
  isolate(meshes: Iterable<MeshRef>): void {
    const kept = [...meshes];
    for (const { file, mesh } of this.all()) this.hidden.add(`${file} ${mesh}`);
    this.setVisible(kept, true);
  }
  showAll(): void {
    this.hidden.clear();
    this.emit('visibility', undefined);
  }
  isVisible({ file, mesh }: MeshRef): boolean {
    return !this.hidden.has(`${file} ${mesh}`);
  }
  get hiddenCount(): number {
    return this.hidden.size;
  }

  setDisplay(change: Partial<Display>): void {
    this.display = { ...this.display, ...change };
    this.emit('display', this.display);
  }
  setCamera(camera: CameraState): void {
    this.camera = camera;
    this.emit('camera', camera);
  }
  fit(meshes?: Iterable<MeshRef>): void {
    this.fitted.push(meshes ? [...meshes] : null);
  }
  setView(): void {}
  setMeasurement(measurement: Measurement | null): void {
    this.measurement = measurement;
    this.emit('measurement', measurement);
  }
  facts(): null {
    return null;
  }
  picture(): Promise<Blob> {
    return Promise.resolve(new Blob());
  }
  dispose(): void {}
}
