import { Box3, Line, LineLoop, LineSegments, Mesh, Points, Vector3 } from 'three';
import type { BufferAttribute, InterleavedBufferAttribute, Object3D, TypedArray } from 'three';

export type Kind = 'triangles' | 'lines' | 'points';

/**
 * A mesh's geometry as the processor reads it for picking, measuring and areas, wherever it is kept for drawing:
 * file coordinates = code * scale + shift, per axis.
 */
export interface Surface {
  kind: Kind;
  positions: TypedArray;
  /** Entries of `positions` from one vertex to the next, and where the first begins. */
  stride: number;
  offset: number;
  /** Components per vertex; those that are missing are 0. */
  components: number;
  index: TypedArray | null;
  /** Entries of `index`, or vertices, that belong to the mesh. */
  start: number;
  count: number;
  /** From one line to the next: 2, or 1 where each begins at the end of the one before. */
  step: number;
  /** The last vertex is joined to the first. */
  loop: boolean;
  scale: Vector3;
  shift: Vector3;
}

/** Null for an object that shows nothing. */
export function surfaceOf(object: Object3D): Surface | null {
  if (!(object instanceof Mesh || object instanceof Line || object instanceof Points)) return null;
  const { geometry } = object;
  const position = geometry.getAttribute('position') as BufferAttribute | InterleavedBufferAttribute;
  const interleaved = 'isInterleavedBufferAttribute' in position;
  const index = geometry.index?.array ?? null;
  return {
    kind: object instanceof Mesh ? 'triangles' : object instanceof Line ? 'lines' : 'points',
    positions: interleaved ? position.data.array : position.array,
    stride: interleaved ? position.data.stride : position.itemSize,
    offset: interleaved ? position.offset : 0,
    components: position.itemSize,
    index,
    start: 0,
    count: index?.length ?? position.count,
    step: object instanceof LineSegments ? 2 : 1,
    loop: object instanceof LineLoop,
    scale: object.scale.clone(),
    shift: object.position.clone(),
  };
}

/** Vertex number `i` of the primitives, in file coordinates. */
export function vertexOf(surface: Surface, i: number, target: Vector3): Vector3 {
  const { positions, index, stride, offset, components, scale, shift } = surface;
  const at = (index ? index[surface.start + i]! : surface.start + i) * stride + offset;
  return target.set(
    positions[at]! * scale.x + shift.x,
    components > 1 ? positions[at + 1]! * scale.y + shift.y : shift.y,
    components > 2 ? positions[at + 2]! * scale.z + shift.z : shift.z,
  );
}

const a = new Vector3(),
  b = new Vector3(),
  c = new Vector3();

/** In the file's units squared. */
export function areaOf(surface: Surface): number {
  let doubled = 0;
  for (let i = 0; i + 2 < surface.count; i += 3) {
    vertexOf(surface, i, a);
    vertexOf(surface, i + 1, b).sub(a);
    vertexOf(surface, i + 2, c).sub(a);
    const area = b.cross(c).length();
    if (Number.isFinite(area)) doubled += area;
  }
  return doubled / 2;
}

/** For meshes whose box the header does not tell. */
export function boxOfSurface(surface: Surface): Box3 {
  const box = new Box3();
  for (let i = 0; i < surface.count; ++i) {
    vertexOf(surface, i, a);
    if (Number.isFinite(a.x + a.y + a.z)) box.expandByPoint(a);
  }
  return box;
}
