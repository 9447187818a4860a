import {
  Color,
  DoubleSide,
  LineBasicMaterial,
  Material,
  MeshPhongMaterial,
  PointsMaterial,
  SRGBColorSpace,
  type Side,
} from 'three';
import { isObject, type JsonValue, type SrcMaterial, type SrcMesh } from '../core/model.js';

// Unit vectors in a word: see decodeOctahedral.
const OCTAHEDRAL = /* glsl */ `
vec3 srcNormal() {
  float high = floor( normal.x / 256.0 );
  vec2 e = ( min( vec2( normal.x - high * 256.0, high ), 254.0 ) - 127.0 ) / 127.0;
  vec3 n = vec3( e, 1.0 - abs( e.x ) - abs( e.y ) );
  if ( n.z < 0.0 ) n.xy = ( 1.0 - abs( n.yx ) ) * vec2( n.x < 0.0 ? - 1.0 : 1.0, n.y < 0.0 ? - 1.0 : 1.0 );
  return normalize( n );
}`;

const AFFINE_NORMAL = /* glsl */ `
attribute vec3 srcNormalScale;
attribute vec3 srcNormalOffset;
vec3 srcNormal() { return normal * srcNormalScale + srcNormalOffset; }`;

const PLAIN_NORMAL = /* glsl */ `
vec3 srcNormal() { return normal; }`;

// The matrices of a batch's meshes hold the unequal steps of their position codes. three.js divides normals by their
// squares, as is right for normals of the codes' space; these are the model's.
const NORMAL_MACRO = /* glsl */ `
#ifdef USE_BATCHING
#define normal ( srcNormal() * vec3( length( batchingMatrix[ 0 ].xyz ), length( batchingMatrix[ 1 ].xyz ), length( batchingMatrix[ 2 ].xyz ) ) )
#else
#define normal srcNormal()
#endif`;

const COLOR = /* glsl */ `
#if defined( USE_COLOR ) || defined( USE_COLOR_ALPHA )
attribute vec4 srcColorScale;
attribute vec4 srcColorOffset;
#ifdef USE_COLOR_ALPHA
vec4 srcColor() { return color * srcColorScale + srcColorOffset; }
#else
vec3 srcColor() { return color * srcColorScale.rgb + srcColorOffset.rgb; }
#endif
#define color srcColor()
#endif`;

const UV = /* glsl */ `
attribute vec2 srcUvScale;
attribute vec2 srcUvOffset;
vec2 srcUv() { return uv * srcUvScale + srcUvOffset; }
#define uv srcUv()`;

/**
 * Lets a material of three.js draw geometries of this loader whose attributes the shader decodes: `kind` is their
 * userData.srcDecoding. Positions need nothing, so depth and shadow materials work as they are.
 *
 * Inside main() the attributes' names stand for their decoded values, so every part of every material that
 * uses them gets them right.
 */
export function decodeInShader<M extends Material>(material: M, kind: string, batched = false): M {
  const normal = kind.includes('o') ? OCTAHEDRAL : kind.includes('n') ? AFFINE_NORMAL : batched ? PLAIN_NORMAL : '';
  let text = '';
  if (kind.includes('c')) text += COLOR;
  if (kind.includes('t')) text += UV;
  if (normal) text += normal + NORMAL_MACRO;
  if (!text) return material;
  const compile = material.onBeforeCompile.bind(material);
  const cacheKey = material.customProgramCacheKey.bind(material);
  material.onBeforeCompile = (shader, renderer) => {
    compile(shader, renderer);
    shader.vertexShader = shader.vertexShader.replace(/\bvoid\s+main\s*\(\s*\)/, (main) => `${text}\n${main}`);
  };
  material.customProgramCacheKey = () => `${cacheKey()} kelsrc ${kind} ${batched}`;
  // three.js does not copy these; a clone, made to be highlighted perhaps, must decode as well.
  const { clone } = material;
  material.clone = () => decodeInShader(clone.call(material) as M, kind, batched);
  return material;
}

export type DrawKind = 'triangles' | 'lines' | 'points';

/** What meshes of one material need to be drawn right. */
export interface MaterialNeeds {
  draw: DrawKind;
  /** They have colours of their own. */
  vertexColors: boolean;
  /** They are triangles without normals. */
  flatShading: boolean;
}

/**
 * Makes the material of all meshes that look alike; null leaves it to the loader. `parameters` are those of the file,
 * the technique's defaults included.
 */
export type MakeMaterial = (
  source: SrcMaterial | null,
  parameters: Record<string, number[]>,
  needs: MaterialNeeds,
) => Material | null;

export interface MaterialOptions {
  /** Which sides of triangles are drawn. Files do not say; parts of an assembly are often open, so both. */
  side: Side;
  /** The colour space of the file's material colours. */
  colorSpace: string;
  make?: MakeMaterial | null | undefined;
}

export const DEFAULT_MATERIAL_OPTIONS: MaterialOptions = { side: DoubleSide, colorSpace: SRGBColorSpace };

/** The parameters of a material: its own values, and for those that it does not set the technique's defaults. */
export function parametersOf(material: SrcMaterial | null): Record<string, number[]> {
  const parameters = new Map<string, number[]>(); // a name may be "__proto__"
  const add = (name: string, value: JsonValue | undefined) => {
    const numbers = Array.isArray(value) ? value : [value];
    if (numbers.length > 0 && numbers.every((x) => typeof x === 'number' && Number.isFinite(x))) {
      parameters.set(name, numbers as number[]);
    }
  };
  for (const [name, entry] of Object.entries(material?.technique?.parameters ?? {})) {
    if (isObject(entry)) add(name, entry.value);
  }
  for (const [name, value] of Object.entries(material?.values ?? {})) add(name, value);
  return Object.fromEntries(parameters);
}

/** The materials of one file. Meshes with equal parameters share one, whatever the names: fewer states to change. */
export class MaterialTable {
  private readonly made = new Map<string, Material>();
  private readonly prepared = new Set<Material>();
  private readonly texts = new Map<number, string>();
  private readonly numbers = new Map<string, number>();
  private readonly numberOfLook = new Map<number, number>();
  // Most meshes are dressed like another of their look, whose material is found without making a key.
  private readonly byLook = new Map<number, Dressed[]>();

  constructor(private readonly options: MaterialOptions) {}

  get all(): Material[] {
    return [...this.made.values()];
  }

  /** Equal for materials that look the same. */
  textOf(material: SrcMaterial | null): string {
    const look = lookOf(material);
    let text = this.texts.get(look);
    if (text === undefined) {
      text = JSON.stringify([material?.technique?.id ?? null, parametersOf(material)]);
      this.texts.set(look, text);
    }
    return text;
  }

  /** A number that is equal for meshes whose materials look the same. */
  numberOf(mesh: SrcMesh): number {
    const look = lookOf(mesh.material);
    let number = this.numberOfLook.get(look);
    if (number === undefined) {
      const text = this.textOf(mesh.material);
      number = this.numbers.get(text) ?? this.numbers.size;
      this.numbers.set(text, number);
      this.numberOfLook.set(look, number);
    }
    return number;
  }

  get(
    source: SrcMaterial | null,
    draw: DrawKind,
    decoding: string,
    flags: { colors: boolean; flat: boolean; batched: boolean },
  ): Material {
    const key = `${draw} ${decoding} ${flags.colors} ${flags.flat} ${flags.batched} ${this.textOf(source)}`;
    let material = this.made.get(key);
    if (!material) {
      const needs = { draw, vertexColors: flags.colors, flatShading: flags.flat };
      material = this.options.make?.(source, parametersOf(source), needs) ?? this.make(source, draw, flags);
      // One that is used for several kinds of decoding is prepared for each.
      if (this.prepared.has(material)) material = material.clone();
      this.prepared.add(material);
      decodeInShader(material, decoding, flags.batched);
      this.made.set(key, material);
    }
    return material;
  }

  /** The same for a mesh, and fast for the next of its look. */
  for(mesh: SrcMesh, draw: DrawKind, decoding: string, colors: boolean, flat: boolean): Material {
    const look = lookOf(mesh.material);
    let list = this.byLook.get(look);
    if (!list) this.byLook.set(look, (list = []));
    for (const d of list) {
      if (d.draw === draw && d.decoding === decoding && d.colors === colors && d.flat === flat) return d.material;
    }
    const material = this.get(mesh.material, draw, decoding, { colors, flat, batched: false });
    list.push({ draw, decoding, colors, flat, material });
    return material;
  }

  private make(source: SrcMaterial | null, draw: DrawKind, flags: { colors: boolean; flat: boolean }): Material {
    const parameters = parametersOf(source);
    const color = (name: string, otherwise: number) => {
      const [r, g, b] = parameters[name] ?? [];
      if (r === undefined) return new Color(otherwise, otherwise, otherwise);
      return new Color().setRGB(r, g ?? r, b ?? r, this.options.colorSpace as never);
    };
    const transparency = parameters.transparency?.[0] ?? 0;
    const shared = {
      vertexColors: flags.colors,
      opacity: 1 - transparency,
      transparent: transparency > 0,
    };
    const diffuse = flags.colors ? new Color(1, 1, 1) : color('diffuseColor', 0.6);
    const emissive = color('emissiveColor', 0);
    let material: Material;
    if (draw === 'triangles') {
      material = new MeshPhongMaterial({
        ...shared,
        color: diffuse,
        emissive,
        specular: color('specularColor', 0),
        shininess: (parameters.shininess?.[0] ?? 0.2) * 128,
        flatShading: flags.flat,
        side: this.options.side,
      });
      // Both sides in one pass: with the usual two, three.js would look up shaders twice per mesh and frame.
      material.forceSinglePass = true;
    } else {
      // Lines and points are not lit: what they emit is their colour, if they emit anything.
      const plain = flags.colors || emissive.r + emissive.g + emissive.b === 0 ? diffuse : emissive;
      material =
        draw === 'lines'
          ? new LineBasicMaterial({ ...shared, color: plain })
          : new PointsMaterial({ ...shared, color: plain, size: 3, sizeAttenuation: false });
    }
    material.name = source?.id ?? '';
    material.userData = { technique: source?.technique?.id ?? null, parameters };
    return material;
  }
}

/** -1 for meshes without a material. */
function lookOf(material: SrcMaterial | null): number {
  return material?.look ?? -1;
}

interface Dressed {
  draw: DrawKind;
  decoding: string;
  colors: boolean;
  flat: boolean;
  material: Material;
}
