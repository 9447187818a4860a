import { isCombined } from './model.js';
import type { SrcMesh, SrcOrigin } from './model.js';
import { betweenOrigins } from './origin.js';

/**
 * Where a mesh lies, from the header alone: its bounds with "fit" undone and its origin added. Null when the file does
 * not say. With `about`, an origin, they are counted from there.
 */
export function boundsOf(
  mesh: SrcMesh,
  about: SrcOrigin | null = null,
): { min: [number, number, number]; max: [number, number, number] } | null {
  if (!mesh.bounds) return null;
  const { center, size } = mesh.bounds;
  const fit = (mesh.attributes.find((a) => a.name === 'position') ?? mesh.attributes.find(isCombined))?.fit;
  const shift = betweenOrigins(about, mesh.origin);
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
