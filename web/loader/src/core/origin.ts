import type { SrcMesh, SrcOrigin } from './model.js';

/** The metadata's "origin": three finite numbers, and nothing else. */
export function originFrom(value: unknown): SrcOrigin | null {
  if (!Array.isArray(value) || value.length !== 3 || !value.every(Number.isFinite)) return null;
  return value as unknown as SrcOrigin;
}

/** The origin that a file's meshes share as a rule: that of the first one that has any. */
export function commonOrigin(meshes: SrcMesh[]): SrcOrigin | null {
  for (const { origin } of meshes) if (origin) return origin;
  return null;
}

/** The way from one origin to another; none is zero. */
export function betweenOrigins(from: SrcOrigin | null, to: SrcOrigin | null): [number, number, number] {
  if (from === to) return [0, 0, 0];
  return [0, 1, 2].map((axis) => (to?.[axis] ?? 0) - (from?.[axis] ?? 0)) as [number, number, number];
}
