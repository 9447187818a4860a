import { TRIANGLE_FAN, TRIANGLE_STRIP, TRIANGLES } from 'kelsrc-loader/core';
import type { MeshFacts } from './api.js';
import { positionIn } from './batchData.js';
import type { Entry } from './fileScene.js';
import { areaOf, type Surface } from './surface.js';

const areas = new WeakMap<Surface, number>();

export function factsOf({ mesh, surface }: Entry): MeshFacts {
  const vertices = positionIn(mesh.attributes)?.view.count ?? 0;
  const corners = mesh.indices?.count ?? vertices;
  let triangles = 0;
  if (mesh.drawnAs === TRIANGLES) triangles = Math.floor(corners / 3);
  if (mesh.drawnAs === TRIANGLE_STRIP || mesh.drawnAs === TRIANGLE_FAN) triangles = Math.max(0, corners - 2);
  let area: number | null = null;
  if (surface?.kind === 'triangles') {
    area = areas.get(surface) ?? areaOf(surface);
    areas.set(surface, area);
  }
  return { triangles, vertices, area };
}
