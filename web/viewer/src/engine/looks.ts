import {
  Color,
  DoubleSide,
  LineBasicMaterial,
  MeshBasicMaterial,
  MeshNormalMaterial,
  MeshPhongMaterial,
  PointsMaterial,
  type Material,
} from 'three';
import { decodeInShader } from 'kelsrc-loader';
import type { Display } from './api.js';
import type { Kind } from './surface.js';

export type SurfaceLook = Display['surface'];

/** What has to fit between a geometry and a material. */
export interface Draws {
  kind: Kind;
  flat: boolean;
  /** How the shader decodes attributes: userData.srcDecoding of a geometry. */
  decoding: string;
  batched: boolean;
}

/** As the loader draws points. */
const POINT_SIZE = 3;
const PLAIN = new Color().setRGB(0.62, 0.66, 0.71, 'srgb');

/**
 * Lets a material draw batches whose normals are the model's: the matrices of their meshes only place and decode
 * positions.
 */
export function forBatches<M extends Material>(material: M, kind: Kind, pointSize: { value: number }): M {
  material.onBeforeCompile = (shader) => {
    shader.vertexShader = shader.vertexShader.replace(
      '#include <defaultnormal_vertex>',
      'vec3 transformedNormal = normalMatrix * objectNormal;',
    );
    if (kind !== 'points') return;
    shader.uniforms.pointSize = pointSize;
    shader.vertexShader = `uniform float pointSize;\n${shader.vertexShader}`.replace(
      '#include <project_vertex>',
      '#include <project_vertex>\n\tgl_PointSize = pointSize;',
    );
  };
  material.customProgramCacheKey = () => `batch ${kind === 'points'}`;
  return material;
}

/** The materials that take the place of the files' own ones. */
export class Looks {
  /** In pixels of the canvas, for shaders. */
  readonly pointSize = { value: POINT_SIZE };
  private readonly made = new Map<string, Material>();

  /** Pixels of the canvas for one of the page. */
  set pixelRatio(ratio: number) {
    this.pointSize.value = POINT_SIZE * ratio;
  }

  /** The material for a look other than the file's own. */
  get(look: Exclude<SurfaceLook, 'materials'>, draws: Draws): Material {
    const { kind, flat, decoding, batched } = draws;
    const shown = kind === 'triangles' ? look : 'plain';
    const key = `${shown} ${kind} ${flat} ${decoding} ${batched}`;
    let material = this.made.get(key);
    if (!material) {
      material = this.make(shown, draws);
      if (batched) forBatches(material, kind, this.pointSize);
      else decodeInShader(material, decoding);
      this.made.set(key, material);
    }
    return material;
  }

  private make(look: Exclude<SurfaceLook, 'materials'>, { kind, flat, batched }: Draws): Material {
    const side = DoubleSide;
    if (look === 'normals') return new MeshNormalMaterial({ side, flatShading: flat });
    if (kind === 'triangles') {
      const specular = new Color(0x222222);
      return new MeshPhongMaterial({ color: PLAIN, specular, shininess: 30, side, flatShading: flat });
    }
    if (batched) return new MeshBasicMaterial({ color: PLAIN });
    return kind === 'lines'
      ? new LineBasicMaterial({ color: PLAIN })
      : new PointsMaterial({ color: PLAIN, size: POINT_SIZE, sizeAttenuation: false });
  }

  dispose(): void {
    for (const material of this.made.values()) material.dispose();
    this.made.clear();
  }
}
