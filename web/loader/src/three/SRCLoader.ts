import {
  BatchedMesh,
  BufferGeometry,
  Group,
  Loader,
  type Intersection,
  type LoadingManager,
  type Object3D,
  type Side,
} from 'three';
import type { MeshArrays } from '../core/arrays.js';
import type { Bytes } from '../core/bytes.js';
import { fetchMeshes } from '../core/fetchMeshes.js';
import type { ReadLimits } from '../core/limits.js';
import { isTriangles, POINTS, type SrcHeader, type SrcMesh } from '../core/model.js';
import { betweenOrigins } from '../core/origin.js';
import { Slices } from '../core/slices.js';
import { arrivals, named, nameOf, type FetchOptions, type SrcSource } from '../core/sources.js';
import { parseSrc } from '../core/SrcFile.js';
import { DecodeConstants } from './attributes.js';
import { Batcher, type BatchData } from './batches.js';
import { geometryOf } from './geometry.js';
import { DEFAULT_MATERIAL_OPTIONS, MaterialTable, type MakeMaterial, type MaterialOptions } from './materials.js';
import { objectOf } from './objects.js';

export interface ModelOptions extends MaterialOptions {
  /** Draw all triangle meshes of one material at once. */
  batch: boolean;
  /** Whether the scene stands at the file's origin; true if not said. */
  applyOrigin?: boolean;
}

/** A loaded file. */
export class SRCModel {
  /**
   * All objects; its userData.metadata are the document's. It stands at the file's origin, userData.origin, so that
   * matrices, which JavaScript keeps in doubles, hold what is large, and what is drawn in floats stays small.
   */
  readonly scene = new Group();
  /** The objects of meshes by their IDs. Meshes that are drawn in a batch are not among them. */
  readonly objects = new Map<string, Object3D>();

  // Truly private: frameworks assign properties such as "materials" and "meshes" to what has a scene.
  readonly #constants = new DecodeConstants();
  readonly #materials: MaterialTable;
  readonly #batcher: Batcher | null;
  /** All that this model has made, wherever it is now, with the meshes that it shows. */
  readonly #made = new Map<Object3D, SrcMesh | readonly SrcMesh[]>();

  constructor(
    readonly header: SrcHeader,
    options: ModelOptions,
  ) {
    this.#materials = new MaterialTable(options);
    this.#batcher = options.batch ? new Batcher(header, this.#materials, this.#constants) : null;
    const { origin } = header;
    this.scene.userData = { metadata: header.metadata, ...(origin && { origin }) };
    if (origin && options.applyOrigin !== false) this.scene.position.fromArray(origin);
  }

  /** Puts a mesh into the scene: its object, or null where it is drawn in a batch. */
  add(arrays: MeshArrays): Object3D | null {
    const { mesh } = arrays;
    const source = geometryOf(arrays, this.#constants);
    const triangles = isTriangles(mesh);
    const shift = betweenOrigins(this.header.origin, mesh.origin);
    if (this.#batcher && source && triangles) {
      const batch = this.#batcher.add(mesh, source, shift);
      if (batch) {
        this.#made.set(batch, (batch.userData.batch as BatchData).meshes);
        this.scene.add(batch);
      }
      return null;
    }
    source?.geometry.boundedBy(mesh);
    const draw = triangles ? 'triangles' : mesh.drawnAs === POINTS ? 'points' : 'lines';
    const material =
      source &&
      this.#materials.for(mesh, draw, source.kind, source.hasColors, triangles && !source.hasNormals);
    const object = objectOf(mesh, source, material, shift);
    this.objects.set(mesh.id, object);
    this.#made.set(object, mesh);
    this.scene.add(object);
    return object;
  }

  /** Says which meshes will come, so that batches have room for them; in steps of about a millisecond. */
  *expecting(meshes: Iterable<SrcMesh> = this.header.meshes): Generator<void, void> {
    if (this.#batcher) yield* this.#batcher.plan(meshes);
  }

  /** Says that no more meshes will come. */
  finish(): void {
    for (const work = this.finishing(); !work.next().done; );
  }

  /** The same in steps of a few milliseconds. */
  *finishing(): Generator<void, void> {
    if (this.#batcher) yield* this.#batcher.finish();
  }

  /** The mesh that a ray has hit, also when it is drawn in a batch; null for objects of others, and for nothing. */
  meshOf(intersection: Pick<Intersection, 'object' | 'batchId'> | null | undefined): SrcMesh | null {
    const shown = intersection && this.#made.get(intersection.object);
    if (!shown || 'id' in shown) return shown ?? null;
    return shown[intersection.batchId ?? -1] ?? null;
  }

  /** Frees geometries and materials on the GPU, and takes what is drawn out of its parents, wherever it is. */
  dispose(): void {
    this.scene.removeFromParent();
    for (const object of this.#made.keys()) {
      if (object instanceof BatchedMesh) object.dispose();
      else if ('geometry' in object && object.geometry instanceof BufferGeometry) object.geometry.dispose();
      if (object.parent !== this.scene) object.removeFromParent();
    }
    for (const material of this.#materials.all) material.dispose();
    this.scene.clear();
    this.objects.clear();
    this.#made.clear();
  }
}

export type SRCLoadEvent =
  | { type: 'header'; model: SRCModel; header: SrcHeader }
  /** `object` is null for a mesh that is drawn in a batch. */
  | { type: 'mesh'; model: SRCModel; mesh: SrcMesh; object: Object3D | null };

export interface LoadOptions {
  signal?: AbortSignal | undefined;
}

interface StreamOptions extends LoadOptions {
  onProgress?: ((loaded: number, total: number) => void) | undefined;
}

interface Arrived {
  model: SRCModel;
  /** Adds the next mesh that is there to the model; null when there is none, or the load was aborted. */
  next(): { mesh: SrcMesh; object: Object3D | null } | null;
  slices: Slices;
}

/** An AbortSignal that follows several; AbortSignal.any is younger than many browsers in use. */
function firstOf(signals: (AbortSignal | undefined)[]): { signal: AbortSignal; release: () => void } {
  const controller = new AbortController();
  const given = signals.filter((signal) => signal !== undefined);
  const listeners = given.map((signal) => {
    const abort = () => controller.abort(signal.reason);
    if (signal.aborted) abort();
    else signal.addEventListener('abort', abort);
    return () => signal.removeEventListener('abort', abort);
  });
  return { signal: controller.signal, release: () => listeners.forEach((remove) => remove()) };
}

/**
 * Loads SRC files.
 *
 *     const model = await new SRCLoader().loadAsync('part.src');
 *     scene.add(model.scene);
 */
export class SRCLoader extends Loader<SRCModel> {
  /** Draw all triangle meshes of one material at once: for files of thousands of small meshes. */
  batch = false;
  side: Side = DEFAULT_MATERIAL_OPTIONS.side;
  colorSpace: string = DEFAULT_MATERIAL_OPTIONS.colorSpace;
  /** Whether models stand at their files' origins; if not, where they stand is up to the caller. */
  applyOrigin = true;
  /** Makes materials in place of the loader's own. */
  material: MakeMaterial | null = null;
  /** What a file may ask for. */
  limits: Partial<ReadLimits> = {};

  private controller = new AbortController();

  constructor(manager?: LoadingManager) {
    super(manager);
  }

  setBatch(batch: boolean): this {
    this.batch = batch;
    return this;
  }

  setApplyOrigin(applyOrigin: boolean): this {
    this.applyOrigin = applyOrigin;
    return this;
  }

  setMaterial(make: MakeMaterial | null): this {
    this.material = make;
    return this;
  }

  setLimits(limits: Partial<ReadLimits>): this {
    this.limits = limits;
    return this;
  }

  /** Ends all loads of this loader that are under way: they fail with an AbortError. */
  override abort(): this {
    this.controller.abort();
    this.controller = new AbortController();
    return this;
  }

  override load(
    source: SrcSource,
    onLoad: (model: SRCModel) => void,
    onProgress?: (event: ProgressEvent) => void,
    onError?: (error: unknown) => void,
    options: LoadOptions = {},
  ): void {
    const report = (loaded: number, total: number) =>
      onProgress?.({ type: 'progress', lengthComputable: total > 0, loaded, total, target: null } as ProgressEvent);
    this.whole(source, options, report)
      .then(onLoad)
      .catch((error: unknown) => {
        if (onError) onError(error);
        else console.error(error);
      });
  }

  override loadAsync(
    source: SrcSource,
    onProgress?: (event: ProgressEvent) => void,
    options: LoadOptions = {},
  ): Promise<SRCModel> {
    return new Promise((resolve, reject) => this.load(source, resolve, onProgress, reject, options));
  }

  /** Reads a whole file. Its arrays are views of `data`, which must not change. Throws SrcError. */
  parse(data: ArrayBuffer | Bytes): SRCModel {
    const file = parseSrc(data, this.limits);
    const model = this.modelOf(file.header);
    for (const work = model.expecting(); !work.next().done; );
    for (const mesh of file.meshes) model.add(file.arrays(mesh));
    model.finish();
    return model;
  }

  static stream(source: SrcSource, options: LoadOptions = {}): AsyncGenerator<SRCLoadEvent, void, undefined> {
    return new SRCLoader().stream(source, options);
  }

  /**
   * Loads a file while it arrives: first an event with the header, whose model has an empty scene, and then one
   * for each mesh, which is then in that scene. To stop, break out of the loop or abort.
   */
  async *stream(source: SrcSource, options: StreamOptions = {}): AsyncGenerator<SRCLoadEvent, void, undefined> {
    let model: SRCModel | null = null;
    for await (const arrived of this.arriving(source, options)) {
      if (!model) {
        ({ model } = arrived);
        yield { type: 'header', model, header: model.header };
      }
      for (let added = arrived.next(); added; added = arrived.next()) {
        yield { type: 'mesh', model, mesh: added.mesh, object: added.object };
        if (arrived.slices.isOver) await arrived.slices.pause();
      }
    }
  }

  /** A file as it arrives; each time, the meshes that have come can be taken. */
  private async *arriving(source: SrcSource, options: StreamOptions): AsyncGenerator<Arrived, void, undefined> {
    const from = typeof source === 'string' || source instanceof URL ? this.addressOf(String(source)) : source;
    const address = nameOf(from);
    const { signal, release } = firstOf(this.signals(options));
    const slices = new Slices();
    this.manager.itemStart(address);
    let model: SRCModel | null = null;
    const { onProgress } = options;
    try {
      for await (const assembler of arrivals(from, { ...this.requestOptions(), signal, onProgress }, slices)) {
        if (!model) {
          model = this.modelOf(assembler.header!);
          for (const work = model.expecting(); !work.next().done; ) {
            if (slices.isOver) await slices.pause();
          }
        }
        const into = model;
        const next = () => {
          const arrays = signal.aborted ? null : assembler.take(); // the loop then fails with the reason
          return arrays && { mesh: arrays.mesh, object: into.add(arrays) };
        };
        yield { model: into, next, slices };
      }
      for (const work = model!.finishing(); !work.next().done;) {
        if (slices.isOver) await slices.pause();
        signal.throwIfAborted();
      }
    } catch (error) {
      this.manager.itemError(address);
      throw named(error, address);
    } finally {
      release();
      this.manager.itemEnd(address);
    }
  }

  /**
   * Loads single meshes by their IDs, fetching only their bytes where the server knows ranges. IDs that the file does
   * not have are not in the model.
   */
  async loadMeshes(url: string, ids: Iterable<string>, options: LoadOptions = {}): Promise<SRCModel> {
    const address = this.addressOf(url);
    const { signal, release } = firstOf(this.signals(options));
    this.manager.itemStart(address);
    try {
      const { header, meshes } = await fetchMeshes(address, ids, { ...this.requestOptions(), signal });
      const model = this.modelOf(header);
      for (const work = model.expecting([...meshes.values()].map(({ mesh }) => mesh)); !work.next().done; );
      for (const arrays of meshes.values()) model.add(arrays);
      model.finish();
      return model;
    } catch (error) {
      this.manager.itemError(address);
      throw error;
    } finally {
      release();
      this.manager.itemEnd(address);
    }
  }

  private async whole(
    source: SrcSource,
    options: LoadOptions,
    onProgress: (loaded: number, total: number) => void,
  ): Promise<SRCModel> {
    let model: SRCModel | null = null;
    try {
      for await (const arrived of this.arriving(source, { ...options, onProgress })) {
        ({ model } = arrived);
        while (arrived.next()) {
          if (arrived.slices.isOver) await arrived.slices.pause();
        }
      }
    } catch (error) {
      model?.dispose();
      throw error;
    }
    return model!;
  }

  private modelOf(header: SrcHeader): SRCModel {
    const { side, colorSpace, batch, applyOrigin, material: make } = this;
    return new SRCModel(header, { side, colorSpace, batch, applyOrigin, make });
  }

  /** What can end a load: the caller, abort(), and the manager's abort() where three.js has it. */
  private signals(options: LoadOptions): (AbortSignal | undefined)[] {
    const manager = this.manager as LoadingManager & { abortController?: AbortController };
    return [options.signal, this.controller.signal, manager.abortController?.signal];
  }

  private addressOf(url: string): string {
    return this.manager.resolveURL((this.path ?? '') + url);
  }

  private requestOptions(): FetchOptions {
    return {
      headers: { ...this.requestHeader },
      credentials: this.withCredentials ? 'include' : 'same-origin',
      limits: this.limits,
    };
  }
}
