import {
  BufferAttribute,
  BufferGeometry,
  Color,
  DoubleSide,
  Line,
  LineBasicMaterial,
  LineLoop,
  LineSegments,
  Mesh,
  MeshBasicMaterial,
  OrthographicCamera,
  Points,
  PointsMaterial,
  Scene,
  ShaderMaterial,
  Vector2,
  WebGLRenderTarget,
  type Camera,
  type Plane,
  type WebGLRenderer,
} from 'three';
import type { Display } from './api.js';
import type { Entry } from './fileScene.js';

const COLORS: Record<Display['theme'], number> = { light: 0xe8590c, dark: 0xffa94d };
/** In pixels of the page. */
const WIDTH = 2;
/** Of the mask: one of a larger picture is drawn smaller. */
const MOST_PIXELS = 8 * 2 ** 20;

/**
 * Draws a line around one mesh, and a tint over it, through everything that stands before it. The mesh is drawn by
 * itself as a mask, whose border is found in the picture: this works for any geometry, points and lines included.
 */
export class Outline {
  private readonly target = new WebGLRenderTarget(1, 1, { depthBuffer: false, samples: 4 });
  private readonly masks = {
    triangles: new MeshBasicMaterial({ side: DoubleSide, depthTest: false, toneMapped: false }),
    lines: new LineBasicMaterial({ depthTest: false, toneMapped: false }),
    points: new PointsMaterial({ size: 4, sizeAttenuation: false, depthTest: false, toneMapped: false }),
  };
  private readonly scene = new Scene();
  private readonly screen = new Scene();
  private readonly screenCamera = new OrthographicCamera();
  private readonly compose = new ShaderMaterial({
    uniforms: {
      mask: { value: this.target.texture },
      texel: { value: new Vector2() },
      color: { value: new Color() },
    },
    vertexShader: /* glsl */ `
      varying vec2 at;
      void main() {
        at = position.xy * 0.5 + 0.5;
        gl_Position = vec4( position.xy, 0.0, 1.0 );
      }`,
    fragmentShader: /* glsl */ `
      uniform sampler2D mask;
      uniform vec2 texel;
      uniform vec3 color;
      varying vec2 at;
      void main() {
        float inside = texture2D( mask, at ).r;
        float around = 0.0;
        for ( int i = 0; i < 12; ++ i ) {
          float angle = float( i ) * 0.5235988;
          vec2 step = vec2( cos( angle ), sin( angle ) ) * texel;
          around = max( around, max( texture2D( mask, at + step ).r, texture2D( mask, at + step * 0.5 ).r ) );
        }
        float alpha = max( around * ( 1.0 - inside ), inside * 0.22 );
        if ( alpha <= 0.003 ) discard;
        gl_FragColor = vec4( color, alpha );
        #include <colorspace_fragment>
      }`,
    transparent: true,
    depthTest: false,
    depthWrite: false,
  });
  private readonly triangle = new BufferGeometry();

  constructor() {
    this.triangle.setAttribute('position', new BufferAttribute(new Float32Array([-1, -1, 0, 3, -1, 0, -1, 3, 0]), 3));
    const mesh = new Mesh(this.triangle, this.compose);
    mesh.frustumCulled = false;
    this.screen.add(mesh);
    this.scene.matrixWorldAutoUpdate = false;
  }

  set theme(theme: Display['theme']) {
    (this.compose.uniforms.color!.value as Color).set(COLORS[theme]);
  }

  /** Which mesh is outlined; it has to have arrived. */
  show(entry: Entry | null): void {
    this.scene.clear();
    const twin = entry && this.twinOf(entry);
    if (twin) this.scene.add(twin);
  }

  render(renderer: WebGLRenderer, camera: Camera, clip: Plane | null): void {
    if (this.scene.children.length === 0) return;
    const size = renderer.getDrawingBufferSize(new Vector2());
    const scale = Math.min(1, Math.sqrt(MOST_PIXELS / (size.x * size.y)));
    const [width, height] = [Math.ceil(size.x * scale), Math.ceil(size.y * scale)];
    if (this.target.width !== width || this.target.height !== height) this.target.setSize(width, height);
    const line = WIDTH * renderer.getPixelRatio();
    (this.compose.uniforms.texel!.value as Vector2).set(line / size.x, line / size.y);
    const color = renderer.getClearColor(new Color());
    renderer.setClearColor(0x000000, 1);
    renderer.setRenderTarget(this.target);
    renderer.clear();
    renderer.clippingPlanes = clip ? [clip] : [];
    renderer.render(this.scene, camera);
    renderer.setRenderTarget(null);
    renderer.setClearColor(color, 1);
    renderer.clippingPlanes = [];
    renderer.render(this.screen, this.screenCamera);
  }

  dispose(): void {
    this.show(null);
    this.target.dispose();
    this.triangle.dispose();
    this.compose.dispose();
    for (const material of Object.values(this.masks)) material.dispose();
  }

  /** An object that draws the same geometry white. It owns nothing. */
  private twinOf({ object, batch, instance, surface }: Entry): Mesh | Line | Points | null {
    const source = object ?? batch;
    if (!source || !surface) return null;
    const { geometry } = source;
    let twin: Mesh | Line | Points;
    if (surface.kind === 'triangles') twin = new Mesh(geometry, this.masks.triangles);
    else if (surface.kind === 'points') twin = new Points(geometry, this.masks.points);
    else if (surface.loop) twin = new LineLoop(geometry, this.masks.lines);
    else twin = new (surface.step === 2 ? LineSegments : Line)(geometry, this.masks.lines);
    twin.frustumCulled = false;
    twin.matrixAutoUpdate = twin.matrixWorldAutoUpdate = false;
    twin.onBeforeRender = () => {
      twin.matrixWorld.copy(source.matrixWorld);
      if (!batch) return;
      batch.getMatrixAt(instance, twin.matrix);
      twin.matrixWorld.multiply(twin.matrix);
      geometry.setDrawRange(surface.start, surface.count);
    };
    twin.onAfterRender = () => {
      if (batch) geometry.setDrawRange(0, Infinity);
    };
    return twin;
  }
}
