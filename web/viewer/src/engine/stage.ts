import {
  ColorManagement,
  DirectionalLight,
  Group,
  HemisphereLight,
  MeshBasicMaterial,
  NeutralToneMapping,
  Scene,
  WebGLRenderer,
  type PerspectiveCamera,
  type Plane,
} from 'three';
import type { Display } from './api.js';
import { TRIANGLE_LAYER } from './layers.js';

const MAX_PIXEL_RATIO = 2;

interface Theme {
  background: number;
  edges: number;
  boxes: number;
}
export const THEMES: Record<Display['theme'], Theme> = {
  light: { background: 0xe9edf2, edges: 0x1b2733, boxes: 0x5a7184 },
  dark: { background: 0x14181d, edges: 0xdfe8f0, boxes: 0x7f97ab },
};

/** The renderer, the scene and its lights, and what one picture is made of. */
export class Stage {
  readonly renderer: WebGLRenderer;
  readonly scene = new Scene();
  /** What files are put into. */
  readonly content = new Group();
  wireframe = false;
  clip: Plane | null = null;

  private readonly key = new DirectionalLight(0xffffff, 2.3);
  private readonly fill = new DirectionalLight(0xdfe8ff, 0.5);
  private readonly sky = new HemisphereLight(0xffffff, 0x6b7079, 1.1);
  private readonly edges = new MeshBasicMaterial({ wireframe: true, transparent: true, opacity: 0.45 });

  /** Throws when there is no WebGL 2. */
  constructor(readonly canvas: HTMLCanvasElement) {
    const context = canvas.getContext('webgl2', {
      antialias: true,
      alpha: false,
      powerPreference: 'high-performance',
    });
    if (!context) {
      throw new Error(
        'This browser cannot draw in 3D: it offers no WebGL 2. Update it, allow hardware acceleration in its ' +
          'settings, or open the page in another browser.',
      );
    }
    this.renderer = new WebGLRenderer({ canvas, context });
    this.renderer.autoClear = false;
    this.renderer.toneMapping = NeutralToneMapping;
    this.renderer.info.autoReset = false;
    this.scene.add(this.content, this.key, this.key.target, this.fill, this.fill.target, this.sky);
    this.scene.matrixAutoUpdate = false;
    this.edges.onBeforeCompile = (shader) => {
      // A little nearer than the surfaces that they lie on.
      shader.vertexShader = shader.vertexShader.replace(
        '#include <project_vertex>',
        '#include <project_vertex>\n\tgl_Position.z -= 4e-5 * gl_Position.w;',
      );
    };
  }

  setTheme(theme: Display['theme']): void {
    this.renderer.setClearColor(THEMES[theme].background, 1);
    this.edges.color.set(THEMES[theme].edges);
  }

  /** Follows the size of the canvas on the page. True when it has changed. */
  resize(): boolean {
    const { clientWidth: width, clientHeight: height } = this.canvas;
    if (width === 0 || height === 0) return false;
    const ratio = Math.min(devicePixelRatio || 1, MAX_PIXEL_RATIO);
    const { renderer, canvas } = this;
    if (
      renderer.getPixelRatio() === ratio &&
      canvas.width === Math.floor(width * ratio) &&
      canvas.height === Math.floor(height * ratio)
    ) {
      return false;
    }
    renderer.setPixelRatio(ratio);
    renderer.setSize(width, height, false);
    return true;
  }

  /** Draws the scene; what lies on top of it is drawn by `then`. */
  render(camera: PerspectiveCamera, then: () => void): void {
    const { renderer, scene } = this;
    this.light(camera);
    renderer.info.reset();
    renderer.clippingPlanes = this.clip ? [this.clip] : [];
    renderer.clear();
    renderer.render(scene, camera);
    if (this.wireframe) {
      scene.overrideMaterial = this.edges;
      camera.layers.set(TRIANGLE_LAYER);
      renderer.render(scene, camera);
      camera.layers.set(0);
      scene.overrideMaterial = null;
    }
    then();
  }

  dispose(): void {
    this.edges.dispose();
    this.renderer.dispose();
  }

  /** The lights go with the camera, so that whatever it looks at is lit. */
  private light(camera: PerspectiveCamera): void {
    const place = (light: DirectionalLight, x: number, y: number, z: number) => {
      light.position.set(x, y, z).applyQuaternion(camera.quaternion);
    };
    place(this.key, -0.5, 0.7, 1);
    place(this.fill, 1, -0.2, 0.6);
    this.sky.position.copy(camera.up);
  }
}

// The files' colours are sRGB, and so is the screen.
ColorManagement.enabled = true;
