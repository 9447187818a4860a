import { Plane, Ray, Vector3, type PerspectiveCamera } from 'three';
import type { OpenFile } from './files.js';
import { pick, type Hit } from './picking.js';

/** How near to points and lines a click has to be. In pixels of the page. */
const REACH = 6;

export interface Target extends Hit {
  file: OpenFile;
}

/** What is seen at a place of the canvas, given in the coordinates of pointer events. */
export function aim(
  canvas: HTMLCanvasElement,
  camera: PerspectiveCamera,
  files: readonly OpenFile[],
  clip: Plane | null,
  clientX: number,
  clientY: number,
): Target | null {
  const { left, top, width, height } = canvas.getBoundingClientRect();
  camera.updateMatrixWorld();
  const through = new Vector3(((clientX - left) / width) * 2 - 1, 1 - ((clientY - top) / height) * 2, 0.5);
  const direction = through.unproject(camera).sub(camera.position).normalize();
  const tolerance = (REACH * 2) / (height * camera.projectionMatrix.elements[5]!);
  let best: Target | null = null;
  for (const file of files) {
    if (!file.scene) continue;
    const toFile = file.scene.shift.clone().negate();
    const ray = new Ray(camera.position.clone().add(toFile), direction);
    const hit = pick(file.scene, ray, { clip: clip && clip.clone().translate(toFile), tolerance });
    if (hit && (!best || hit.distance < best.distance)) best = { ...hit, file };
  }
  return best;
}

/** Pixels of the page between two points of the scene. */
export function pixelsBetween(a: Vector3, b: Vector3, camera: PerspectiveCamera, canvas: HTMLCanvasElement): number {
  const p = a.clone().project(camera),
    q = b.clone().project(camera);
  return Math.hypot(((p.x - q.x) * canvas.clientWidth) / 2, ((p.y - q.y) * canvas.clientHeight) / 2);
}
