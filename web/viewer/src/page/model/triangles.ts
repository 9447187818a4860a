import { COMBINED, TRIANGLE_FAN, TRIANGLE_STRIP, TRIANGLES, type SrcHeader } from 'kelsrc-loader/core';

/** The triangles of all meshes, from the header alone: asking the engine would measure every surface. */
export function trianglesIn(header: SrcHeader): number {
  let sum = 0;
  for (const { drawnAs, indices, attributes } of header.meshes) {
    const positions = attributes.find(({ name }) => name === 'position' || name === COMBINED);
    const corners = indices?.count ?? positions?.view.count ?? 0;
    if (drawnAs === TRIANGLES) sum += Math.floor(corners / 3);
    else if (drawnAs === TRIANGLE_STRIP || drawnAs === TRIANGLE_FAN) sum += Math.max(0, corners - 2);
  }
  return sum;
}
