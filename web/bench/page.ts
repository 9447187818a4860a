// What runs in the browser: loads one file and says when what was there.

import {
  BatchedMesh,
  Box3,
  Color,
  DirectionalLight,
  DoubleSide,
  HemisphereLight,
  Mesh,
  MeshPhongMaterial,
  PerspectiveCamera,
  Scene,
  Vector3,
  WebGLRenderer,
  type Object3D,
} from 'three';
import { DRACOLoader } from 'three/addons/loaders/DRACOLoader.js';
import { GLTFLoader } from 'three/addons/loaders/GLTFLoader.js';
import { MeshoptDecoder } from 'three/addons/libs/meshopt_decoder.module.js';
import { SRCLoader } from 'kelsrc-loader';

export interface Task {
  url: string;
  /** How to load it. */
  way: 'stream' | 'load' | 'batch' | 'gltf' | 'meshopt' | 'draco';
  box: { min: number[]; max: number[] };
}

/** Milliseconds since the request. */
export interface Times {
  firstPixel: number;
  /** All meshes are objects in the scene. */
  inScene: number;
  /** And a frame with all of them has been drawn. */
  complete: number;
  frames: number;
  drawing: number;
}

export interface Shown {
  objects: number;
  triangles: number;
  box: { min: number[]; max: number[] };
}

const WIDTH = 320,
  HEIGHT = 240;
/** While a file arrives, drawing may take this share of the time, so that it does not hold up what it shows. */
const DRAWING_SHARE = 0.2;

const renderer = new WebGLRenderer({ alpha: true, antialias: false });
renderer.setSize(WIDTH, HEIGHT, false);
document.body.append(renderer.domElement);
const gl = renderer.getContext();
const pixels = new Uint8Array(WIDTH * HEIGHT * 4);
const scene = new Scene();
const sun = new DirectionalLight(0xffffff, 2.5);
sun.position.set(3, -4, 6);
scene.add(sun, new HemisphereLight(0xbfd4ff, 0x403020, 1.2));
const camera = new PerspectiveCamera(38, WIDTH / HEIGHT);
camera.up.set(0, 0, 1);

/** What the page holds on to when a file has been loaded. */
let held: unknown = null;

function lookAt(box: Task['box']): void {
  const center = new Vector3(...box.min).add(new Vector3(...box.max)).multiplyScalar(0.5);
  const radius = new Vector3(...box.max).distanceTo(new Vector3(...box.min)) / 2;
  camera.near = radius * 0.5;
  camera.far = radius * 6;
  camera.position.set(0.4, -0.8, 0.45).normalize().multiplyScalar(3.2 * radius).add(center);
  camera.lookAt(center);
  camera.updateProjectionMatrix();
}

/** Draws frames when asked to, and knows which of them was the first with something in it. */
class Drawing {
  readonly start = performance.now();
  firstPixel: number | null = null;
  frames = 0;
  spent = 0;
  private scheduled = false;
  private finished = false;
  private next = 0;

  /** Soon, unless drawing has taken its share. */
  ask(): void {
    if (this.scheduled) return;
    this.scheduled = true;
    const wait = this.next - performance.now();
    const frame = () =>
      requestAnimationFrame(() => {
        this.scheduled = false;
        if (!this.finished) this.draw();
      });
    if (wait > 0) setTimeout(frame, wait);
    else frame();
  }

  /** In the next frame, instead of any that was asked for. */
  last(): Promise<void> {
    this.finished = true;
    return new Promise((resolve) =>
      requestAnimationFrame(() => {
        this.draw();
        resolve();
      }),
    );
  }

  private draw(): void {
    const begin = performance.now();
    performance.mark('bench:draw');
    renderer.render(scene, camera);
    // Reading waits until it has really been drawn.
    if (this.firstPixel === null) {
      gl.readPixels(0, 0, WIDTH, HEIGHT, gl.RGBA, gl.UNSIGNED_BYTE, pixels);
      if (pixels.some((value) => value > 0)) this.firstPixel = performance.now() - this.start;
    } else {
      gl.readPixels(0, 0, 1, 1, gl.RGBA, gl.UNSIGNED_BYTE, pixels);
    }
    performance.mark('bench:drawn');
    const end = performance.now();
    ++this.frames;
    this.spent += end - begin;
    this.next = end + (end - begin) * (1 / DRAWING_SHARE - 1);
  }
}

let drawing: Drawing | null = null;

async function loadSrc({ url, way }: Task): Promise<void> {
  const loader = new SRCLoader().setBatch(way === 'batch');
  if (way === 'load') {
    const model = await loader.loadAsync(url);
    scene.add(model.scene);
    held = model;
    return;
  }
  for await (const event of loader.stream(url)) {
    if (event.type === 'header') {
      held = event.model;
      scene.add(event.model.scene);
    } else if (event.object) {
      drawing!.ask();
    }
  }
}

let draco: DRACOLoader | null = null;

async function loadGltf({ url, way }: Task): Promise<void> {
  const loader = new GLTFLoader();
  if (way === 'meshopt') loader.setMeshoptDecoder(MeshoptDecoder);
  if (way === 'draco') {
    // Its decoder comes beside the file, not after it.
    draco = new DRACOLoader().setDecoderPath('/draco/').preload();
    loader.setDRACOLoader(draco);
  }
  const gltf = await loader.loadAsync(url);
  scene.add(gltf.scene);
  held = gltf.scene;
}

const api = {
  /** Draws nothing once, so that making the WebGL context is not part of a load. */
  async prepare(task: Task): Promise<void> {
    lookAt(task.box);
    // All are drawn with the material that SRC files get, so that they differ in loading and decoding only.
    if (['gltf', 'meshopt', 'draco'].includes(task.way)) {
      scene.overrideMaterial = new MeshPhongMaterial({
        color: new Color(0.8, 0.8, 0.8),
        side: DoubleSide,
        forceSinglePass: true,
      });
    }
    renderer.render(scene, camera);
    gl.readPixels(0, 0, 1, 1, gl.RGBA, gl.UNSIGNED_BYTE, pixels);
    await new Promise(requestAnimationFrame);
  },

  async run(task: Task): Promise<Times> {
    performance.mark('bench:start');
    drawing = new Drawing();
    await (scene.overrideMaterial ? loadGltf(task) : loadSrc(task));
    const inScene = performance.now() - drawing.start;
    await drawing.last();
    const complete = performance.now() - drawing.start;
    performance.mark('bench:end');
    await new Promise((resolve) => setTimeout(resolve, 50)); // the task that this is in comes to its end
    draco?.dispose();
    const { firstPixel, frames, spent } = drawing;
    if (firstPixel === null) throw new Error(`${task.url}: nothing is to be seen`);
    performance.clearMarks();
    return { firstPixel, inScene, complete, frames, drawing: spent };
  },

  /** What the last frame showed, and where it is. */
  shown(): Shown {
    const box = new Box3();
    let objects = 0;
    scene.updateMatrixWorld();
    scene.traverse((object: Object3D) => {
      if (object instanceof BatchedMesh) {
        objects += object.instanceCount;
        object.computeBoundingBox();
        box.union(object.boundingBox!.clone().applyMatrix4(object.matrixWorld));
      } else if (object instanceof Mesh) {
        ++objects;
        box.union(new Box3().setFromObject(object, true));
      }
    });
    return {
      objects,
      triangles: renderer.info.render.triangles,
      box: { min: box.min.toArray(), max: box.max.toArray() },
    };
  },

  picture(): string {
    renderer.render(scene, camera);
    return renderer.domElement.toDataURL();
  },

  held: () => held !== null,
};

export type Bench = typeof api;
(window as never as { bench: Bench }).bench = api;
