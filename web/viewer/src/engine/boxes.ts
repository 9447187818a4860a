import {
  BufferAttribute,
  Color,
  Group,
  InstancedBufferAttribute,
  InstancedBufferGeometry,
  LineSegments,
  ShaderMaterial,
  type Box3,
  type Vector3,
} from 'three';

// prettier-ignore
const EDGES = [
  0,0,0, 1,0,0,  0,1,0, 1,1,0,  0,0,1, 1,0,1,  0,1,1, 1,1,1,
  0,0,0, 0,1,0,  1,0,0, 1,1,0,  0,0,1, 0,1,1,  1,0,1, 1,1,1,
  0,0,0, 0,0,1,  1,0,0, 1,0,1,  0,1,0, 0,1,1,  1,1,0, 1,1,1,
];

export function boxMaterial(): ShaderMaterial {
  return new ShaderMaterial({
    uniforms: { color: { value: new Color() }, opacity: { value: 1 } },
    vertexShader: /* glsl */ `
      attribute vec3 low;
      attribute vec3 high;
      #include <clipping_planes_pars_vertex>
      void main() {
        vec4 mvPosition = modelViewMatrix * vec4( mix( low, high, position ), 1.0 );
        gl_Position = projectionMatrix * mvPosition;
        #include <clipping_planes_vertex>
      }`,
    fragmentShader: /* glsl */ `
      uniform vec3 color;
      uniform float opacity;
      #include <clipping_planes_pars_fragment>
      void main() {
        #include <clipping_planes_fragment>
        gl_FragColor = vec4( color, opacity );
        #include <colorspace_fragment>
      }`,
    clipping: true,
    transparent: true,
    depthWrite: false,
  });
}

/** The edges of any number of boxes, drawn at once. */
export class Boxes {
  readonly object: LineSegments<InstancedBufferGeometry, ShaderMaterial>;
  private readonly low: InstancedBufferAttribute;
  private readonly high: InstancedBufferAttribute;

  /** `origin` is near the boxes: the GPU's floats have few digits for what lies far from it. */
  constructor(
    capacity: number,
    private readonly origin: Vector3,
    material: ShaderMaterial,
    parent: Group,
  ) {
    const geometry = new InstancedBufferGeometry();
    geometry.setAttribute('position', new BufferAttribute(new Uint8Array(EDGES), 3));
    this.low = new InstancedBufferAttribute(new Float32Array(capacity * 3), 3);
    this.high = new InstancedBufferAttribute(new Float32Array(capacity * 3), 3);
    geometry.setAttribute('low', this.low);
    geometry.setAttribute('high', this.high);
    geometry.instanceCount = 0;
    this.object = new LineSegments(geometry, material);
    this.object.position.copy(origin);
    this.object.frustumCulled = false;
    this.object.raycast = () => undefined;
    parent.add(this.object);
  }

  get shown(): number {
    return this.object.geometry.instanceCount;
  }

  show(boxes: Iterable<Box3>): void {
    const low = this.low.array,
      high = this.high.array,
      { x, y, z } = this.origin;
    let at = 0;
    for (const { min, max } of boxes) {
      low[at] = min.x - x;
      high[at++] = max.x - x;
      low[at] = min.y - y;
      high[at++] = max.y - y;
      low[at] = min.z - z;
      high[at++] = max.z - z;
    }
    this.low.needsUpdate = this.high.needsUpdate = true;
    this.object.geometry.instanceCount = at / 3;
    this.object.visible = at > 0;
  }

  dispose(): void {
    this.object.removeFromParent();
    this.object.geometry.dispose();
  }
}
