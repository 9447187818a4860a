import { Vector3, type Box3, type Plane, type Ray } from 'three';
import type { Entry, FileScene } from './fileScene.js';
import { vertexOf, type Surface } from './surface.js';

export interface Hit {
  entry: Entry;
  /** In file coordinates. */
  point: Vector3;
  /** The corners of what was hit: of a triangle, a line, or the point. */
  corners: Vector3[];
  /** From the ray's origin. */
  distance: number;
}

export interface PickOptions {
  /** In file coordinates, like the ray. */
  clip: Plane | null;
  /** How near a ray must come to points and lines, per unit of distance from its origin. */
  tolerance: number;
}

/** The nearest visible thing that a ray hits, in the coordinates of the file. `direction` has length 1. */
export function pick(file: FileScene, ray: Ray, options: PickOptions): Hit | null {
  const candidates: { entry: Entry; from: number }[] = [];
  for (const entry of file.entries) {
    if (!entry.visible || !entry.surface || !entry.box) continue;
    const from = entry.surface.count > 0 ? enters(entry.box, ray, slackOf(entry, ray, options.tolerance)) : -1;
    if (from >= 0) candidates.push({ entry, from });
  }
  candidates.sort((a, b) => a.from - b.from);
  let best: Hit | null = null;
  for (const { entry, from } of candidates) {
    if (best && from > best.distance) break;
    const hit = hitOf(entry.surface!, ray, options, best?.distance ?? Infinity);
    if (hit) best = { entry, ...hit };
  }
  return best;
}

/** Boxes are told as floats, and of codes that were rounded: a bit more never loses a hit. */
function slackOf({ box, surface }: Entry, ray: Ray, tolerance: number): number {
  const size = box!.min.distanceTo(box!.max);
  const slack = size * 1e-4;
  if (surface!.kind === 'triangles') return slack;
  return slack + tolerance * (ray.origin.distanceTo(box!.max) + size);
}

/** Where a ray enters a box; 0 from inside, -1 when it passes by. */
function enters({ min, max }: Box3, { origin, direction }: Ray, slack: number): number {
  let near = 0,
    far = Infinity;
  for (const axis of ['x', 'y', 'z'] as const) {
    const inverse = 1 / direction[axis];
    let a = (min[axis] - slack - origin[axis]) * inverse,
      b = (max[axis] + slack - origin[axis]) * inverse;
    if (a > b) [a, b] = [b, a];
    // A ray along the side of a box gives NaN, which neither is taken.
    if (a > near) near = a;
    if (b < far) far = b;
  }
  return near <= far ? near : -1;
}

type SurfaceHit = Omit<Hit, 'entry'>;

function hitOf(surface: Surface, ray: Ray, options: PickOptions, limit: number): SurfaceHit | null {
  switch (surface.kind) {
    case 'triangles':
      return hitTriangles(surface, ray, options, limit);
    case 'lines':
      return hitLines(surface, ray, options, limit);
    default:
      return hitPoints(surface, ray, options, limit);
  }
}

const point = new Vector3();

function isClipped(clip: Plane | null, at: Vector3): boolean {
  return clip !== null && clip.distanceToPoint(at) < 0;
}

/** Of a triangle: rounding must not let a ray through between two of them. */
const SEAM = 1e-9;

/** Both sides of all triangles. Nothing but numbers in the loop: it runs a million times for a click. */
function hitTriangles(surface: Surface, ray: Ray, { clip }: PickOptions, limit: number): SurfaceHit | null {
  const { positions, index, stride, offset, components, start, count, scale, shift } = surface;
  if (components < 3) return hitFlat(surface, ray, clip, limit);
  const { x: dx, y: dy, z: dz } = ray.direction;
  const { x: sx, y: sy, z: sz } = scale;
  // Seen from the ray's origin, which keeps digits where coordinates are large.
  const ox = shift.x - ray.origin.x,
    oy = shift.y - ray.origin.y,
    oz = shift.z - ray.origin.z;
  let best = limit,
    found = -1;
  for (let i = 0; i + 2 < count; i += 3) {
    const k = start + i;
    const a = (index ? index[k]! : k) * stride + offset;
    const b = (index ? index[k + 1]! : k + 1) * stride + offset;
    const c = (index ? index[k + 2]! : k + 2) * stride + offset;
    const ax = positions[a]! * sx + ox,
      ay = positions[a + 1]! * sy + oy,
      az = positions[a + 2]! * sz + oz;
    const ux = positions[b]! * sx + ox - ax,
      uy = positions[b + 1]! * sy + oy - ay,
      uz = positions[b + 2]! * sz + oz - az;
    const vx = positions[c]! * sx + ox - ax,
      vy = positions[c + 1]! * sy + oy - ay,
      vz = positions[c + 2]! * sz + oz - az;
    const px = dy * vz - dz * vy,
      py = dz * vx - dx * vz,
      pz = dx * vy - dy * vx;
    const det = ux * px + uy * py + uz * pz;
    const inverse = 1 / det;
    const u = -(ax * px + ay * py + az * pz) * inverse;
    if (!(u >= -SEAM && u <= 1 + SEAM)) continue; // nor NaN, which a triangle without area gives
    const qx = uy * az - uz * ay,
      qy = uz * ax - ux * az,
      qz = ux * ay - uy * ax;
    const v = (dx * qx + dy * qy + dz * qz) * inverse;
    if (!(v >= -SEAM && u + v <= 1 + SEAM)) continue;
    const distance = (vx * qx + vy * qy + vz * qz) * inverse;
    if (!(distance > 0 && distance < best)) continue;
    if (clip && isClipped(clip, ray.at(distance, point))) continue;
    best = distance;
    found = i;
  }
  if (found < 0) return null;
  return { distance: best, point: ray.at(best, new Vector3()), corners: cornersOf(surface, found, 3) };
}

/** For positions of two components, which are rare. */
function hitFlat(surface: Surface, ray: Ray, clip: Plane | null, limit: number): SurfaceHit | null {
  let best: SurfaceHit | null = null;
  for (let i = 0; i + 2 < surface.count; i += 3) {
    const corners = cornersOf(surface, i, 3);
    const at = ray.intersectTriangle(corners[0]!, corners[1]!, corners[2]!, false, new Vector3());
    if (!at || isClipped(clip, at)) continue;
    const distance = at.distanceTo(ray.origin);
    if (distance < (best?.distance ?? limit)) best = { distance, point: at, corners };
  }
  return best;
}

function hitLines(surface: Surface, ray: Ray, options: PickOptions, limit: number): SurfaceHit | null {
  const { count, step, loop } = surface;
  const a = new Vector3(),
    b = new Vector3(),
    onRay = new Vector3(),
    onLine = new Vector3();
  let best: SurfaceHit | null = null;
  const test = (i: number, j: number) => {
    const squared = ray.distanceSqToSegment(vertexOf(surface, i, a), vertexOf(surface, j, b), onRay, onLine);
    consider(squared, () => [a.clone(), b.clone()]);
  };
  const consider = (squared: number, corners: () => Vector3[]) => {
    const reached = onRay.distanceTo(ray.origin);
    const tolerance = options.tolerance * reached;
    if (!(squared <= tolerance * tolerance) || isClipped(options.clip, onLine)) return;
    // A line on a surface is in front of it.
    const distance = Math.max(0, reached - tolerance);
    if (distance < (best?.distance ?? limit)) best = { distance, point: onLine.clone(), corners: corners() };
  };
  for (let i = 0; i + 1 < count; i += step) test(i, i + 1);
  if (loop && count > 1) test(count - 1, 0);
  return best;
}

/** The point nearest to the ray of those that it comes near to; of points in one place, any. */
function hitPoints(surface: Surface, ray: Ray, options: PickOptions, limit: number): SurfaceHit | null {
  const a = new Vector3(),
    onRay = new Vector3();
  let best: SurfaceHit | null = null;
  for (let i = 0; i < surface.count; ++i) {
    vertexOf(surface, i, a);
    ray.closestPointToPoint(a, onRay);
    const reached = onRay.distanceTo(ray.origin);
    const tolerance = options.tolerance * reached;
    if (!(a.distanceToSquared(onRay) <= tolerance * tolerance) || isClipped(options.clip, a)) continue;
    const distance = Math.max(0, reached - tolerance);
    if (distance < (best?.distance ?? limit)) best = { distance, point: a.clone(), corners: [a.clone()] };
  }
  return best;
}

function cornersOf(surface: Surface, first: number, count: number): Vector3[] {
  return Array.from({ length: count }, (_, i) => vertexOf(surface, first + i, new Vector3()));
}
