import { positionOf } from './model.js';
import type { SrcBox, SrcMesh, SrcOrigin } from './model.js';
import { betweenOrigins } from './origin.js';

/** The metadata's "bounds": six finite numbers, the lower corner first, and nothing else. */
export function drawnBoundsFrom(value: unknown): SrcBox | null {
  if (!Array.isArray(value) || value.length !== 6 || !value.every(Number.isFinite)) return null;
  const numbers = value as number[];
  const min = numbers.slice(0, 3),
    max = numbers.slice(3);
  return min.every((low, axis) => low <= max[axis]!) ? ({ min, max } as SrcBox) : null;
}

/**
 * Where a mesh lies, from the header alone: what its metadata say, else its bounds with "fit" undone, and its origin
 * added. Null when the file does not say. With `about`, an origin, they are counted from there.
 */
export function boundsOf(
  mesh: SrcMesh,
  about: SrcOrigin | null = null,
): SrcBox | null {
  const shift = betweenOrigins(about, mesh.origin);
  const moved = (corner: number[]) => corner.map((place, axis) => place + shift[axis]!) as SrcBox['min'];
  const { drawnBounds } = mesh;
  if (drawnBounds) return { min: moved(drawnBounds.min), max: moved(drawnBounds.max) };
  if (!mesh.bounds) return null;
  const { center, size } = mesh.bounds;
  const fit = positionOf(mesh)?.fit;
  const min: [number, number, number] = [0, 0, 0],
    max: [number, number, number] = [0, 0, 0];
  for (let axis = 0; axis < 3; ++axis) {
    const scale = fit?.scale[axis] ?? 1,
      offset = fit?.offset[axis] ?? 0;
    const a = (center[axis]! - size[axis]! / 2) * scale + offset + shift[axis]!;
    const b = (center[axis]! + size[axis]! / 2) * scale + offset + shift[axis]!;
    min[axis] = Math.min(a, b);
    max[axis] = Math.max(a, b);
  }
  return { min, max };
}
