import { MathUtils, Vector3, type Box3, type PerspectiveCamera } from 'three';

/**
 * How far from the middle of a box a camera must be to see all of it, when it stands in this direction: the farthest
 * that any corner asks for.
 */
export function distanceToFit(box: Box3, towards: Vector3, camera: PerspectiveCamera): number {
  const half = box.getSize(new Vector3()).multiplyScalar(0.5);
  const back = towards.clone().normalize();
  const right = new Vector3().crossVectors(camera.up, back).normalize();
  const up = new Vector3().crossVectors(back, right);
  const tanV = Math.tan(MathUtils.degToRad(camera.getEffectiveFOV()) / 2);
  const tanH = tanV * camera.aspect;
  const corner = new Vector3();
  let distance = 0;
  for (let i = 0; i < 8; ++i) {
    corner.set(i & 1 ? half.x : -half.x, i & 2 ? half.y : -half.y, i & 4 ? half.z : -half.z);
    const across = Math.max(Math.abs(corner.dot(right)) / tanH, Math.abs(corner.dot(up)) / tanV);
    distance = Math.max(distance, across + corner.dot(back));
  }
  return distance;
}
