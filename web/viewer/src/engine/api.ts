import type { SrcHeader } from 'kelsrc-loader/core';

/**
 * The line between the page (controls, lists, panels) and the engine (three.js). The page sees these types only, so
 * it can be tested without WebGL, and the engine knows nothing of the document but its canvas.
 */

/** A mesh: its file, and its place in that file's header.meshes. */
export interface MeshRef {
  file: number;
  mesh: number;
}

export type Source = { name: string; url: string } | { name: string; bytes: Uint8Array<ArrayBuffer> };

export interface Problem {
  /** One of the stable codes, or null for what is no fault of the file, such as a server that does not answer. */
  code: string | null;
  /** A sentence or two: the file, what is wrong, and what to do. */
  message: string;
}

export interface FileState {
  /** Never used twice. */
  readonly id: number;
  readonly name: string;
  readonly source: Source;
  readonly state: 'loading' | 'complete' | 'failed' | 'aborted';
  readonly problem: Problem | null;
  /** Null until it has arrived. */
  readonly header: SrcHeader | null;
  readonly loadedBytes: number;
  /** What the header says; 0 before it is there. */
  readonly totalBytes: number;
  readonly loadedMeshes: number;
}

export type StandardView = 'front' | 'back' | 'left' | 'right' | 'top' | 'bottom' | 'iso';

/** In true coordinates, to which files' origins are added; of files in a row in those of the first. */
export interface CameraState {
  position: [number, number, number];
  target: [number, number, number];
  up: [number, number, number];
}

export interface Display {
  /** What surfaces look like: the file's materials, one plain look, or normals as colours. */
  surface: 'materials' | 'plain' | 'normals';
  wireframe: boolean;
  /** The boxes of all meshes, also of those that are there. */
  bounds: boolean;
  theme: 'light' | 'dark';
  /** Everything on one side of a plane is left out; `position` runs from 0 to 1 through the bounds of all files. */
  clip: { axis: 'x' | 'y' | 'z'; position: number; flipped: boolean } | null;
  /** Several files in one place, as their coordinates say, or in a row. */
  arrangement: 'together' | 'row';
  /** Which direction of the files points up. */
  up: 'y' | 'z';
}

export const DEFAULT_DISPLAY: Display = {
  surface: 'materials',
  wireframe: false,
  bounds: false,
  theme: 'light',
  clip: null,
  arrangement: 'together',
  up: 'y',
};

/** In true coordinates, whatever the arrangement of files. */
export interface Measurement {
  from: [number, number, number];
  /** Null while only the first point has been chosen. */
  to: [number, number, number] | null;
  distance: number | null;
}

export interface MeshFacts {
  triangles: number;
  vertices: number;
  /** Of the surface, in the file's units squared; null for points and lines, and while the geometry is not there. */
  area: number | null;
}

export interface EngineEvents {
  /** A file was added, has gone, or has changed its state. */
  files: void;
  /** More bytes or meshes are there; at most once per frame. */
  progress: void;
  selection: MeshRef | null;
  visibility: void;
  display: Display;
  /** The camera has come to rest. */
  camera: CameraState;
  measurement: Measurement | null;
  /** The canvas was clicked on nothing, or on a mesh; the selection has been changed already. */
  pick: MeshRef | null;
  /** The view was lost, as a sentence; an empty text once it is back. */
  trouble: string;
}

export interface Engine {
  on<K extends keyof EngineEvents>(event: K, listener: (value: EngineEvents[K]) => void): () => void;

  readonly files: readonly FileState[];
  /** Starts loading; gives the file's id at once. Errors show in its state. */
  open(source: Source): number;
  /** Ends a load; what has arrived stays. */
  abort(file: number): void;
  /** Takes a file away and frees what it used. */
  close(file: number): void;

  readonly selection: MeshRef | null;
  select(mesh: MeshRef | null): void;

  /** Changes as one: one event, however many meshes. */
  setVisible(meshes: Iterable<MeshRef>, visible: boolean): void;
  /** Shows these and hides all others. */
  isolate(meshes: Iterable<MeshRef>): void;
  showAll(): void;
  isVisible(mesh: MeshRef): boolean;
  readonly hiddenCount: number;

  readonly display: Display;
  setDisplay(change: Partial<Display>): void;

  readonly camera: CameraState;
  setCamera(camera: CameraState, animate?: boolean): void;
  /** Moves the camera so that these meshes, or everything visible, fill the picture. */
  fit(meshes?: Iterable<MeshRef>): void;
  setView(view: StandardView): void;

  /** While true a click sets a point of the measurement and does not select. */
  measuring: boolean;
  readonly measurement: Measurement | null;
  setMeasurement(measurement: Measurement | null): void;

  facts(mesh: MeshRef): MeshFacts | null;

  /** A PNG of what is seen, at the given width in pixels (the canvas' own by default). */
  picture(width?: number): Promise<Blob>;
  dispose(): void;
}

/** Throws when there is no WebGL 2, with a sentence for the person in front of the page. */
export type CreateEngine = (canvas: HTMLCanvasElement) => Engine;
