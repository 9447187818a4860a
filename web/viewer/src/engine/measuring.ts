import {
  BufferAttribute,
  BufferGeometry,
  Color,
  Points,
  Scene,
  ShaderMaterial,
  Vector3,
  type Camera,
  type WebGLRenderer,
} from 'three';
import { LineMaterial } from 'three/addons/lines/LineMaterial.js';
import { LineSegments2 } from 'three/addons/lines/LineSegments2.js';
import { LineSegmentsGeometry } from 'three/addons/lines/LineSegmentsGeometry.js';
import type { Measurement } from './api.js';
import type { Hit } from './picking.js';
import type { World } from './world.js';

/** An end of a measurement. */
interface End {
  /** In true coordinates. */
  point: Vector3;
  /** The file that it lies on; null when nobody knows. */
  file: number | null;
}

const LINE = 0x0b7285,
  RIM = 0xffffff;

/** The corner of what was hit that lies near the pointer on the screen, or else the place that was hit. */
export function snapped(hit: Hit, pixelsApart: (a: Vector3, b: Vector3) => number, within: number): Vector3 {
  let best = hit.point,
    least = within;
  for (const corner of hit.corners) {
    const pixels = pixelsApart(corner, hit.point);
    if (pixels <= least) {
      least = pixels;
      best = corner;
    }
  }
  return best.clone();
}

/** The line between the two points, and the points, over everything else. */
class Marks {
  private readonly scene = new Scene();
  private readonly rim = new LineMaterial({ color: RIM, linewidth: 5, depthTest: false, toneMapped: false });
  private readonly core = new LineMaterial({ color: LINE, linewidth: 2.5, depthTest: false, toneMapped: false });
  private readonly dots = new ShaderMaterial({
    uniforms: { size: { value: 13 }, core: { value: new Color(LINE) }, rim: { value: new Color(RIM) } },
    vertexShader: /* glsl */ `
      uniform float size;
      void main() {
        gl_Position = projectionMatrix * modelViewMatrix * vec4( position, 1.0 );
        gl_PointSize = size;
      }`,
    fragmentShader: /* glsl */ `
      uniform float size;
      uniform vec3 core, rim;
      void main() {
        float r = length( gl_PointCoord - 0.5 ) * size;
        float alpha = clamp( size * 0.5 - r, 0.0, 1.0 );
        if ( alpha <= 0.0 ) discard;
        gl_FragColor = vec4( mix( core, rim, clamp( r - size * 0.32 + 0.5, 0.0, 1.0 ) ), alpha );
        #include <colorspace_fragment>
      }`,
    transparent: true,
    depthTest: false,
    depthWrite: false,
  });
  private readonly lineGeometry = new LineSegmentsGeometry();
  private readonly dotGeometry = new BufferGeometry();
  private readonly lines = [this.rim, this.core].map((material) => new LineSegments2(this.lineGeometry, material));
  private readonly points = new Points(this.dotGeometry, this.dots);
  private shown = false;

  constructor() {
    this.lines.forEach((line, i) => (line.renderOrder = i));
    this.points.renderOrder = this.lines.length;
    for (const object of [...this.lines, this.points]) {
      object.frustumCulled = false;
      this.scene.add(object);
    }
    this.rim.transparent = this.core.transparent = true; // drawn in order
    this.show([]);
  }

  /** The points in the coordinates of the scene. */
  show(points: Vector3[]): void {
    const [from, to] = points;
    this.shown = from !== undefined;
    if (!from) return;
    const end = (to ?? from).clone().sub(from).toArray();
    for (const object of [...this.lines, this.points]) object.position.copy(from);
    for (const line of this.lines) line.visible = to !== undefined;
    if (to) this.lineGeometry.setPositions([0, 0, 0, ...end]);
    this.dotGeometry.setAttribute('position', new BufferAttribute(new Float32Array([0, 0, 0, ...end]), 3));
    this.dotGeometry.setDrawRange(0, points.length);
  }

  render(renderer: WebGLRenderer, camera: Camera): void {
    if (!this.shown) return;
    this.dots.uniforms.size!.value = 13 * renderer.getPixelRatio();
    renderer.clippingPlanes = [];
    renderer.render(this.scene, camera);
  }

  dispose(): void {
    for (const thing of [this.rim, this.core, this.dots, this.lineGeometry, this.dotGeometry]) thing.dispose();
  }
}

/** Keeps what is measured, and draws it. */
export class Ruler {
  private ends: End[] = [];
  private readonly marks = new Marks();

  get measurement(): Measurement | null {
    const [from, to] = this.ends;
    if (!from) return null;
    return {
      from: from.point.toArray(),
      to: to?.point.toArray() ?? null,
      distance: to ? from.point.distanceTo(to.point) : null,
    };
  }
  set measurement(measurement: Measurement | null) {
    const points = [measurement?.from, measurement?.to].filter((point) => point != null);
    this.ends = points.map((point) => ({ point: new Vector3(...point), file: null }));
  }

  /** The second end, or the first one of another measurement. */
  add(end: End): void {
    this.ends = this.ends.length === 1 ? [...this.ends, end] : [end];
  }

  /** Files may have moved since. */
  show(world: World): void {
    this.marks.show(this.ends.map(({ point, file }) => world.toScene(point, file)));
  }

  render(renderer: WebGLRenderer, camera: Camera): void {
    this.marks.render(renderer, camera);
  }

  dispose(): void {
    this.marks.dispose();
  }
}
