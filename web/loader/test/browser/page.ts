// What runs in the browser: loads files in two ways, renders both alike, and compares the pictures.

import * as THREE from 'three';
import { GLTFLoader } from 'three/examples/jsm/loaders/GLTFLoader.js';
import { boundsOf, SRCLoader, SrcError, type SRCModel } from 'kelsrc-loader';

const WIDTH = 480,
  HEIGHT = 360;

const renderer = new THREE.WebGLRenderer({ alpha: true, preserveDrawingBuffer: true, antialias: false });
renderer.setSize(WIDTH, HEIGHT, false);
renderer.shadowMap.enabled = true;
document.body.append(renderer.domElement);

export type Look = 'lit' | 'shadows' | 'clipped' | 'wireframe' | 'normals' | 'depth';

/** The scene that both are put into. */
function stage(content: THREE.Object3D, look: Look) {
  const scene = new THREE.Scene();
  scene.add(content);
  const sun = new THREE.DirectionalLight(0xffffff, 2.5);
  sun.position.set(3, -4, 6);
  scene.add(sun, new THREE.HemisphereLight(0xbfd4ff, 0x403020, 1.2));
  const lamp = new THREE.PointLight(0xffe0c0, 20);
  lamp.position.set(-3, -3, 2);
  scene.add(lamp);
  if (look === 'shadows') {
    sun.castShadow = true;
    sun.shadow.mapSize.set(512, 512);
    sun.shadow.normalBias = 0.03;
    sun.shadow.bias = -0.004;
    Object.assign(sun.shadow.camera, { left: -5, right: 5, top: 5, bottom: -5, near: 0.5, far: 20 });
    scene.fog = new THREE.Fog(0x8899aa, 4, 14);
    content.traverse((object) => {
      object.castShadow = object.receiveShadow = true;
    });
  }
  if (look === 'normals') scene.overrideMaterial = new THREE.MeshNormalMaterial({ side: THREE.DoubleSide });
  if (look === 'depth') scene.overrideMaterial = new THREE.MeshDepthMaterial({ side: THREE.DoubleSide });
  renderer.clippingPlanes =
    look === 'clipped' ? [new THREE.Plane(new THREE.Vector3(-1, 0.3, 0.1).normalize(), 0.4)] : [];
  content.traverse((object) => {
    const { material } = object as THREE.Mesh<THREE.BufferGeometry, THREE.MeshPhongMaterial>;
    if (material && 'wireframe' in material) material.wireframe = look === 'wireframe';
  });
  const camera = new THREE.PerspectiveCamera(38, WIDTH / HEIGHT, 1, 30);
  camera.up.set(0, 0, 1);
  camera.position.set(1.8, -8.2, 5.2);
  camera.lookAt(0, 0, -0.2);
  return { scene, camera };
}

/** Draws content that stands at a place, with camera and lights moved there. */
function draw(content: THREE.Object3D, look: Look, at = new THREE.Vector3()): Uint8Array {
  const { scene, camera } = stage(content, look);
  for (const object of [camera, ...scene.children]) {
    // The position of a sky's light is a direction.
    if (object !== content && !(object instanceof THREE.HemisphereLight)) object.position.add(at);
    if (!(object instanceof THREE.DirectionalLight)) continue;
    object.target.position.add(at);
    object.target.updateMatrixWorld();
  }
  renderer.render(scene, camera);
  const pixels = new Uint8Array(WIDTH * HEIGHT * 4);
  const gl = renderer.getContext();
  gl.readPixels(0, 0, WIDTH, HEIGHT, gl.RGBA, gl.UNSIGNED_BYTE, pixels);
  const error = gl.getError();
  if (error !== 0) throw new Error(`WebGL error ${error}`);
  return pixels;
}

/** The mean difference per channel, and how many pixels belong to one silhouette and lie further than a pixel from the other. */
function difference(a: Uint8Array, b: Uint8Array) {
  let sum = 0,
    strays = 0,
    covered = 0;
  for (let i = 0; i < a.length; ++i) sum += Math.abs(a[i]! - b[i]!);
  const inside = (pixels: Uint8Array, x: number, y: number) =>
    x >= 0 && y >= 0 && x < WIDTH && y < HEIGHT && pixels[(y * WIDTH + x) * 4 + 3]! > 0;
  const near = (pixels: Uint8Array, x: number, y: number) => {
    for (let dy = -1; dy <= 1; ++dy) for (let dx = -1; dx <= 1; ++dx) if (inside(pixels, x + dx, y + dy)) return true;
    return false;
  };
  for (let y = 0; y < HEIGHT; ++y) {
    for (let x = 0; x < WIDTH; ++x) {
      if (inside(a, x, y)) {
        ++covered;
        if (!near(b, x, y)) ++strays;
      } else if (inside(b, x, y) && !near(a, x, y)) ++strays;
    }
  }
  return { mean: sum / a.length, strays, covered };
}

/** Gives the meshes of a glTF scene, which are named by ID, the plain twins of the model's materials. */
function dressLike(gltf: THREE.Object3D, model: SRCModel, ids: string[]) {
  const materials = new Map<string, THREE.MeshPhongMaterial>();
  for (const [id, object] of model.objects)
    materials.set(id, (object as THREE.Mesh).material as THREE.MeshPhongMaterial);
  let next = 0;
  gltf.traverse((object) => {
    if (!(object instanceof THREE.Mesh)) return;
    const source = materials.get(ids[next++]!)!;
    object.material = new THREE.MeshPhongMaterial({
      color: source.color,
      specular: source.specular,
      emissive: source.emissive,
      shininess: source.shininess,
      opacity: source.opacity,
      transparent: source.transparent,
      vertexColors: source.vertexColors,
      flatShading: source.flatShading,
      side: source.side,
      forceSinglePass: true,
    });
  });
}

async function compare(src: string, glb: string, ids: string[], look: Look, batch: boolean) {
  const single = await new SRCLoader().loadAsync(src);
  const model = batch ? await new SRCLoader().setBatch(true).loadAsync(src) : single;
  const gltf = await new GLTFLoader().loadAsync(glb);
  dressLike(gltf.scene, single, ids);
  const ours = draw(model.scene, look);
  const picture = renderer.domElement.toDataURL();
  const theirs = draw(gltf.scene, look);
  const reference = renderer.domElement.toDataURL();
  single.dispose();
  model.dispose();
  return { ...difference(ours, theirs), picture, reference };
}

async function picture(src: string) {
  const model = await new SRCLoader().loadAsync(src);
  draw(model.scene, 'lit');
  const url = renderer.domElement.toDataURL();
  model.dispose();
  return url;
}

/** What rays hit, from the camera through these points of the picture, -1 to 1. */
async function pick(src: string, glb: string | null, ids: string[], points: [number, number][], batch: boolean) {
  const model = await new SRCLoader().setBatch(batch).loadAsync(src);
  const gltf = glb ? await new GLTFLoader().loadAsync(glb) : null;
  const cast = (content: THREE.Object3D) => {
    const { scene, camera } = stage(content, 'lit');
    scene.updateMatrixWorld();
    camera.updateMatrixWorld();
    return points.map(([x, y]) => {
      const raycaster = new THREE.Raycaster();
      raycaster.setFromCamera(new THREE.Vector2(x, y), camera);
      raycaster.params.Points.threshold = raycaster.params.Line.threshold = 0.05;
      return raycaster.intersectObject(content)[0] ?? null;
    });
  };
  const worldNormal = (hit: THREE.Intersection) => {
    const matrix = new THREE.Matrix4();
    if (hit.object instanceof THREE.BatchedMesh) hit.object.getMatrixAt(hit.batchId!, matrix);
    matrix.premultiply(hit.object.matrixWorld);
    return hit.normal
      ? hit.normal.clone().applyMatrix3(new THREE.Matrix3().getNormalMatrix(matrix)).normalize().toArray()
      : null;
  };
  const ours = cast(model.scene).map(
    (hit) => hit && { id: model.meshOf(hit)?.id, point: hit.point.toArray(), normal: worldNormal(hit) },
  );
  const meshes: THREE.Object3D[] = [];
  gltf?.scene.traverse((object) => object instanceof THREE.Mesh && meshes.push(object));
  const theirs =
    gltf &&
    cast(gltf.scene).map(
      (hit) => hit && { id: ids[meshes.indexOf(hit.object)], point: hit.point.toArray(), normal: worldNormal(hit) },
    );
  const box = new THREE.Box3().setFromObject(model.scene);
  const exact = new THREE.Box3().setFromObject(gltf?.scene ?? model.scene, true);
  const headerBox = new THREE.Box3();
  for (const mesh of model.header.meshes) {
    const bounds = boundsOf(mesh);
    if (bounds) headerBox.union(new THREE.Box3(new THREE.Vector3(...bounds.min), new THREE.Vector3(...bounds.max)));
  }
  model.dispose();
  const numbers = ({ min, max }: THREE.Box3) => [...min.toArray(), ...max.toArray()];
  return { ours, theirs, box: numbers(box), exact: numbers(exact), headerBox: numbers(headerBox) };
}

/** The mesh that a ray from the camera to each place hits first. */
async function aim(src: string, targets: [number, number, number][], batch: boolean) {
  const model = await new SRCLoader().setBatch(batch).loadAsync(src);
  const { scene, camera } = stage(model.scene, 'lit');
  scene.updateMatrixWorld();
  camera.updateMatrixWorld();
  const hits = targets.map((target) => {
    const direction = new THREE.Vector3(...target).sub(camera.position).normalize();
    const raycaster = new THREE.Raycaster(camera.position, direction);
    raycaster.params.Points.threshold = raycaster.params.Line.threshold = 0.05;
    const hit = raycaster.intersectObject(model.scene)[0];
    return hit ? (model.meshOf(hit)?.id ?? '?') : null;
  });
  model.dispose();
  return hits;
}

/** A file in batches that are drawn now and then while they fill. */
async function drawnWhileFilled(src: string): Promise<SRCModel> {
  let meshes = 0,
    model: SRCModel | null = null;
  for await (const event of new SRCLoader().setBatch(true).stream(src)) {
    ({ model } = event);
    if (event.type === 'mesh' && ++meshes % 70 === 1) draw(model.scene, 'lit');
  }
  return model!;
}

/** A file drawn mesh by mesh and in batches. */
async function batched(src: string, whileFilled: boolean) {
  const single = await new SRCLoader().loadAsync(src);
  const batches = whileFilled ? await drawnWhileFilled(src) : await new SRCLoader().setBatch(true).loadAsync(src);
  const ours = draw(single.scene, 'lit');
  const calls = renderer.info.render.calls;
  const picture = renderer.domElement.toDataURL();
  const result = {
    ...difference(ours, draw(batches.scene, 'lit')),
    picture,
    objects: batches.scene.children.length,
    calls,
  };
  single.dispose();
  batches.dispose();
  return result;
}

/** A file about an origin, and the same without one. */
async function compareOrigin(src: string, plain: string, batch: boolean) {
  const [far, near] = [await new SRCLoader().setBatch(batch).loadAsync(src), await new SRCLoader().loadAsync(plain)];
  const ours = draw(far.scene, 'lit', far.scene.position);
  const picture = renderer.domElement.toDataURL();
  const result = { ...difference(ours, draw(near.scene, 'lit')), picture, position: far.scene.position.toArray() };
  far.dispose();
  near.dispose();
  return result;
}

/** Renders and disposes again and again, and tells what the renderer holds after each time. */
async function cycles(src: string, count: number, batch: boolean) {
  const held: string[] = [];
  renderer.setSize(48, 36, false); // what is held does not hang on it
  for (let i = 0; i < count; ++i) {
    const model = await new SRCLoader().setBatch(batch).loadAsync(src);
    draw(model.scene, 'lit');
    model.dispose();
    const { memory, programs } = renderer.info;
    held.push(`${memory.geometries} ${memory.textures} ${programs!.length}`);
  }
  renderer.setSize(WIDTH, HEIGHT, false);
  return held;
}

/** A texture shows whether decoded texture coordinates reach the shader. */
async function textured(src: string, glb: string, ids: string[], batch: boolean) {
  const single = await new SRCLoader().loadAsync(src);
  const model = batch ? await new SRCLoader().setBatch(true).loadAsync(src) : single;
  const gltf = await new GLTFLoader().loadAsync(glb);
  dressLike(gltf.scene, single, ids);
  const checks = new Uint8Array(16 * 4);
  for (let i = 0; i < 16; ++i) checks.set(((i >> 2) + i) % 2 ? [255, 255, 255, 255] : [20, 20, 90, 255], i * 4);
  const texture = new THREE.DataTexture(checks, 4, 4);
  texture.wrapS = texture.wrapT = THREE.RepeatWrapping;
  texture.repeat.set(2, 4);
  texture.needsUpdate = true;
  const dress = (content: THREE.Object3D) =>
    content.traverse((object) => {
      if (!(object instanceof THREE.Mesh) || !object.geometry.hasAttribute('uv')) return;
      object.material.map = texture;
      object.material.needsUpdate = true;
    });
  dress(model.scene);
  dress(gltf.scene);
  const ours = draw(model.scene, 'lit');
  const picture = renderer.domElement.toDataURL();
  const result = { ...difference(ours, draw(gltf.scene, 'lit')), picture };
  single.dispose();
  model.dispose();
  return result;
}

/** How a file comes in: each event and how much had arrived. */
async function stream(src: string) {
  const seen: string[] = [];
  for await (const event of SRCLoader.stream(src)) {
    seen.push(
      event.type === 'header'
        ? `header ${event.header.meshes.length}`
        : `mesh ${event.mesh.id} ${event.model.scene.children.length}`,
    );
  }
  return seen;
}

async function failure(src: string) {
  try {
    await new SRCLoader().loadAsync(src);
    return null;
  } catch (error) {
    return error instanceof SrcError
      ? { code: error.code, message: error.message }
      : { code: String(error), message: '' };
  }
}

async function abort(src: string) {
  const loader = new SRCLoader();
  const loading = loader.loadAsync(src).then(
    () => 'loaded',
    (error: Error) => error.name,
  );
  setTimeout(() => loader.abort(), 100);
  return loading;
}

function describe(model: SRCModel) {
  return [...model.objects].map(([id, object]) => ({
    id,
    type: object.type,
    name: object.name,
    userData: object.userData,
    position: object.position.toArray(),
    index: (object as THREE.Mesh).geometry?.index?.array.constructor.name ?? null,
  }));
}

async function objects(src: string) {
  const model = await new SRCLoader().loadAsync(src);
  const result = describe(model);
  model.dispose();
  return result;
}

const api = { compare, compareOrigin, picture, pick, aim, batched, cycles, textured, stream, failure, abort, objects };
export type PageApi = typeof api;
Object.assign(window, { kel: api });
