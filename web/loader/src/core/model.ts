/**
 * What an SRC file says about itself. Sizes and offsets are in bytes. Take these as read-only: equal parts are shared.
 */

export type JsonValue = null | boolean | number | string | JsonValue[] | { [key: string]: JsonValue };
export type JsonObject = { [key: string]: JsonValue };

export function isObject(value: unknown): value is JsonObject {
  return typeof value === 'object' && value !== null && !Array.isArray(value);
}

/** WebGL's component types. */
export const BYTE = 5120;
export const UNSIGNED_BYTE = 5121;
export const SHORT = 5122;
export const UNSIGNED_SHORT = 5123;
export const INT = 5124;
export const UNSIGNED_INT = 5125;
export const FLOAT = 5126;

/** WebGL's primitive modes. */
export const POINTS = 0;
export const LINES = 1;
export const LINE_LOOP = 2;
export const LINE_STRIP = 3;
export const TRIANGLES = 4;
export const TRIANGLE_STRIP = 5;
export const TRIANGLE_FAN = 6;

export function componentSize(componentType: number): number {
  return componentType <= UNSIGNED_BYTE ? 1 : componentType <= UNSIGNED_SHORT ? 2 : 4;
}

/** A run of bytes of the data section, which begins right behind the header. */
export interface SrcChunk {
  id: string;
  byteOffset: number;
  byteLength: number;
  /** Place among all chunks. */
  index: number;
}

/** A block of bytes, made of chunks in order. Most have exactly one. */
export interface SrcBufferView {
  id: string;
  /** As the header says. */
  byteLength: number;
  /** What its chunks hold, at most byteLength; views lie inside this. */
  storedBytes: number;
  /** Where its bytes begin in the data section; -1 when its chunks do not lie back to back. */
  dataOffset: number;
  chunks: SrcChunk[];
  /** Place among all buffer views. */
  index: number;
}

export interface SrcIndexView {
  id: string;
  bufferView: SrcBufferView;
  byteOffset: number;
  /** UNSIGNED_BYTE, UNSIGNED_SHORT or UNSIGNED_INT. */
  componentType: number;
  count: number;
}

/** Elements of 1 to 4 components. The value of a component is (code + decodeOffset) / decodeScale. */
export interface SrcAttributeView {
  id: string;
  bufferView: SrcBufferView;
  byteOffset: number;
  /** At least one element; a stride of 0 in the file reads as packed. */
  byteStride: number;
  componentType: number;
  components: number;
  /** The type's size, except for codes of 17 to 32 bits, which are stored in slots of 3 bytes. */
  componentBytes: number;
  count: number;
  decodeOffset: number[];
  decodeScale: number[];
  /** False when decoding changes nothing. */
  decoded: boolean;
  /** The mesh that these elements were written for: the first one that names the view. */
  owner: SrcMesh | null;
}

export interface SrcTechnique {
  id: string;
  /** Each parameter's default, as {"value": ...}. */
  parameters: JsonObject;
}

export interface SrcMaterial {
  id: string;
  technique: SrcTechnique | null;
  /** One object for all materials that are written alike. */
  values: JsonObject;
  /** The same number for materials of one technique and the same values. */
  look: number;
}

/** original = value * scale + offset, per component. */
export interface SrcFit {
  offset: number[];
  scale: number[];
}

export interface SrcAttribute {
  name: string;
  view: SrcAttributeView;
  /** How to undo what was done to the values before they were written; null for most. */
  fit: SrcFit | null;
}

export interface SrcBounds {
  center: [number, number, number];
  size: [number, number, number];
}

/** What the metadata's "bounds" say: both corners of a box. */
export interface SrcBox {
  min: [number, number, number];
  max: [number, number, number];
}

/** Where the zero of positions lies in the model: true position = value + origin, in doubles. */
export type SrcOrigin = readonly [x: number, y: number, z: number];

export interface SrcMesh {
  id: string;
  /** Place in SrcHeader.meshes. */
  index: number;
  /** As the file states it. */
  primitive: number;
  /**
   * What its indices form. The container writer calls every mesh triangles; points and lines are
   * recognised by the statistics that it adds to the metadata.
   */
  drawnAs: number;
  indices: SrcIndexView | null;
  material: SrcMaterial | null;
  /**
   * Attributes whose elements belong to this mesh. The container writer also lets a mesh name an earlier
   * mesh's view for an attribute that it lacks: those are left out.
   */
  attributes: SrcAttribute[];
  /** Of the decoded positions, before "fit" is undone and the origin added; boundsOf does both. */
  bounds: SrcBounds | null;
  /** What is added to positions last, when they are decoded and "fit" is undone; null for nothing. */
  origin: SrcOrigin | null;
  /**
   * Where its primitives lie about its origin, with "fit" undone, when it has vertices that only stretch `bounds`; else
   * null. boundsOf takes these.
   */
  drawnBounds: SrcBox | null;
  /** Verbatim; an object in good files, null when there is none. */
  metadata: JsonValue;
}

/** A header, taken apart and checked: IDs resolve, views lie inside their bytes, counts and offsets fit together. */
export interface SrcHeader {
  metadata: JsonValue;
  /** In the order in which they were written when IDs are numbered behind one prefix, else as the header has them. */
  meshes: SrcMesh[];
  /** The origin that meshes share as a rule: of the first one that has any; null when none has. */
  origin: SrcOrigin | null;
  materials: Map<string, SrcMaterial>;
  techniques: Map<string, SrcTechnique>;
  chunks: SrcChunk[];
  bufferViews: SrcBufferView[];
  /** Where the data section begins: 12 + the header's length. */
  dataOffset: number;
  /** Where its last chunk ends, counted from dataOffset. */
  dataBytes: number;
  /** The whole file: known as soon as the header is, whatever the server says about lengths. */
  totalBytes: number;
}

/** The combined attribute: three 16-bit position codes and two bytes of an octahedral normal. */
export const COMBINED = 'pos3us_nor2ub_oct';

export function isCombined(attribute: Omit<SrcAttribute, 'fit'>): boolean {
  const { view } = attribute;
  return attribute.name === COMBINED && view.componentType === UNSIGNED_SHORT && view.components === 4;
}

/** What a mesh's positions are read from. */
export function positionOf<A extends Omit<SrcAttribute, 'fit'>>({ attributes }: { attributes: A[] }): A | undefined {
  return attributes.find((a) => a.name === 'position') ?? attributes.find(isCombined);
}

/** The "name" in a mesh's metadata; "" when there is none, or none that is a text. */
export function titleOf({ metadata }: SrcMesh): string {
  return isObject(metadata) && typeof metadata.name === 'string' ? metadata.name : '';
}

export function isTriangles({ drawnAs }: SrcMesh): boolean {
  return drawnAs >= TRIANGLES;
}
