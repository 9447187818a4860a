import { Plane, Vector3, type Box3 } from 'three';
import type { Display } from './api.js';

const AXES = { x: 0, y: 1, z: 2 } as const;

/** The plane that keeps what lies below its position, or above when it is flipped; null when nothing is left out. */
export function clipPlane(clip: Display['clip'], bounds: Box3): Plane | null {
  if (!clip || bounds.isEmpty()) return null;
  const axis = AXES[clip.axis];
  const low = bounds.min.getComponent(axis),
    high = bounds.max.getComponent(axis);
  const at = low + (high - low) * Math.min(1, Math.max(0, clip.position));
  const end = clip.position >= 1 ? 1 : clip.position <= 0 ? -1 : 0;
  const side = clip.flipped ? 1 : -1;
  if (end === -side) return null; // all is kept: a plane would cut into the outermost pixels
  // At the other end all is left out, whatever rounding does to vertices on the bounds.
  const slack = (high - low) * 1e-4 * end;
  const normal = new Vector3().setComponent(axis, side);
  return new Plane(normal, -side * (at + slack));
}
