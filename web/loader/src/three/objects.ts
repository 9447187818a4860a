import {
  Line,
  LineLoop,
  LineSegments,
  Matrix3,
  Matrix4,
  Mesh,
  Object3D,
  Points,
  Ray,
  Sphere,
  Vector3,
  type BufferGeometry,
  type Intersection,
  type Material,
  type Raycaster,
} from 'three';
import type { SrcMesh } from '../core/model.js';
import { LINE_LOOP, LINE_STRIP, LINES, POINTS, titleOf } from '../core/model.js';
import type { GeometrySource } from './geometry.js';

/** A normal matrix that leaves out of a mesh's scale what only decodes. */
interface DecodingNormalMatrix extends Matrix3 {
  decodeScale: Vector3;
}

// One function for all meshes: each of thousands would else hold its own.
function getNormalMatrix(this: DecodingNormalMatrix, modelView: Matrix4): Matrix3 {
  const { decodeScale } = this;
  const matrix = decodeScale.equals(ONE)
    ? modelView
    : unscaled.copy(modelView).scale(inverse.set(1, 1, 1).divide(decodeScale));
  return Matrix3.prototype.getNormalMatrix.call(this, matrix) as Matrix3;
}

/**
 * A mesh whose position and scale turn position codes into the model's coordinates. Its normals are the model's
 * already, so the normal matrix leaves that scale out: under any material they are lit as they should be.
 */
export class DecodedMesh extends Mesh<BufferGeometry, Material> {
  constructor(geometry?: BufferGeometry, material?: Material) {
    super(geometry, material);
    const normalMatrix = this.normalMatrix as DecodingNormalMatrix;
    normalMatrix.decodeScale = ONE;
    normalMatrix.getNormalMatrix = getNormalMatrix as never;
  }

  /** The part of `scale` that only decodes. */
  get decodeScale(): Vector3 {
    return (this.normalMatrix as DecodingNormalMatrix).decodeScale;
  }
  set decodeScale(scale: Vector3) {
    (this.normalMatrix as DecodingNormalMatrix).decodeScale = scale;
  }

  override copy(source: this, recursive?: boolean): this {
    super.copy(source, recursive);
    this.decodeScale = source.decodeScale.clone();
    return this;
  }
}

const ONE = new Vector3(1, 1, 1);
const unscaled = new Matrix4();
const inverse = new Vector3();
const sphere = new Sphere();
const a = new Vector3(),
  b = new Vector3(),
  onRay = new Vector3(),
  onLine = new Vector3();

/** True when a ray comes within `threshold` of the object's bounds. */
function passes(ray: Ray, object: Points | Line, threshold: number): boolean {
  const { geometry } = object;
  if (!geometry.boundingSphere) geometry.computeBoundingSphere();
  sphere.copy(geometry.boundingSphere!).applyMatrix4(object.matrixWorld);
  sphere.radius += threshold;
  return ray.intersectsSphere(sphere);
}

// Points and lines are hit from near by, and nearness has no meaning in the space of codes, whose axes differ. So
// these look in the world's space, where the threshold is given.

function raycastPoints(this: Points, raycaster: Raycaster, intersects: Intersection[]): void {
  const { geometry, matrixWorld } = this;
  const threshold = raycaster.params.Points.threshold;
  if (!passes(raycaster.ray, this, threshold)) return;
  const { index, drawRange } = geometry;
  const position = geometry.getAttribute('position');
  const end = Math.min(index?.count ?? position.count, drawRange.start + drawRange.count);
  for (let i = Math.max(0, drawRange.start); i < end; ++i) {
    const vertex = index ? index.getX(i) : i;
    a.fromBufferAttribute(position, vertex).applyMatrix4(matrixWorld);
    const squared = raycaster.ray.distanceSqToPoint(a);
    if (!(squared < threshold * threshold)) continue;
    const point = raycaster.ray.closestPointToPoint(a, new Vector3());
    const distance = raycaster.ray.origin.distanceTo(point);
    if (distance < raycaster.near || distance > raycaster.far) continue;
    intersects.push({
      distance,
      distanceToRay: Math.sqrt(squared),
      point,
      index: vertex,
      face: null,
      faceIndex: null,
      object: this,
    });
  }
}

function raycastLines(this: Line, raycaster: Raycaster, intersects: Intersection[]): void {
  const { geometry, matrixWorld } = this;
  const threshold = raycaster.params.Line.threshold;
  if (!passes(raycaster.ray, this, threshold)) return;
  const { index, drawRange } = geometry;
  const position = geometry.getAttribute('position');
  const start = Math.max(0, drawRange.start);
  const end = Math.min(index?.count ?? position.count, drawRange.start + drawRange.count);
  const vertex = (i: number, target: Vector3) =>
    target.fromBufferAttribute(position, index ? index.getX(i) : i).applyMatrix4(matrixWorld);
  const test = (from: number, to: number) => {
    const squared = raycaster.ray.distanceSqToSegment(vertex(from, a), vertex(to, b), onRay, onLine);
    if (!(squared < threshold * threshold)) return;
    const distance = raycaster.ray.origin.distanceTo(onRay);
    if (distance < raycaster.near || distance > raycaster.far) return;
    intersects.push({ distance, point: onLine.clone(), index: from, face: null, faceIndex: null, object: this });
  };
  for (let i = start; i + 1 < end; i += this instanceof LineSegments ? 2 : 1) test(i, i + 1);
  if (this instanceof LineLoop && end - start > 1) test(end - 1, start);
}

/**
 * What a mesh is in three.js. Without a geometry it is an object that shows nothing. `shift` leads from the file's
 * origin to the mesh's own.
 */
export function objectOf(
  mesh: SrcMesh,
  source: GeometrySource | null,
  material: Material | null,
  shift: readonly [number, number, number],
): Object3D {
  let object: Object3D;
  if (!source || !material) {
    object = new Object3D();
  } else {
    const { geometry } = source;
    switch (mesh.drawnAs) {
      case POINTS:
        object = new Points(geometry, material);
        break;
      case LINES:
        object = new LineSegments(geometry, material);
        break;
      case LINE_STRIP:
        object = new Line(geometry, material);
        break;
      case LINE_LOOP:
        object = new LineLoop(geometry, material);
        break;
      default: {
        const made = new DecodedMesh(geometry, material);
        made.decodeScale = source.scale;
        object = made;
        break;
      }
    }
    if (object instanceof Points) object.raycast = raycastPoints;
    if (object instanceof Line) object.raycast = raycastLines;
    object.position.fromArray(shift).add(source.offset);
    object.scale.copy(source.scale);
  }
  const { id, metadata, origin } = mesh;
  object.name = titleOf(mesh) || id;
  // Verbatim.
  object.userData = { id, metadata, material: mesh.material?.id ?? '', ...(origin && { origin }) };
  return object;
}

