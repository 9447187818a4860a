import type { JsonValue, SrcMaterial, SrcMesh } from 'kelsrc-loader/core';

/** One line of a table of metadata: a key with its value, or with `children` in place of one. */
export interface MetadataRow {
  key: string;
  /** As the file has it; texts without their quotes. Null when there are children. */
  value: string | null;
  /** "object" with no rows is "{}"; the same for lists. */
  children: MetadataRow[];
  /** How many entries were left out: see `LIMIT`. */
  more: number;
}

/** Entries of one object or list that are shown. Nobody reads more, and a browser would have to draw them. */
export const LIMIT = 200;

/** The numbers and texts of lists up to this length stand on one line: vectors and colours. */
const INLINE = 4;

function rowOf(key: string, value: JsonValue): MetadataRow {
  if (Array.isArray(value)) {
    const short =
      value.length <= INLINE && value.every((entry) => typeof entry !== 'object' && typeof entry !== 'string');
    if (short) return { key, value: value.length > 0 ? value.map(String).join(', ') : '[]', children: [], more: 0 };
    const children = value.slice(0, LIMIT).map((entry, i) => rowOf(String(i), entry));
    return { key, value: null, children, more: value.length - children.length };
  }
  if (value !== null && typeof value === 'object') {
    const { children, more } = childrenOf(value);
    return children.length > 0 ? { key, value: null, children, more } : { key, value: '{}', children, more };
  }
  return { key, value: String(value), children: [], more: 0 };
}

function childrenOf(object: { [key: string]: JsonValue }) {
  const keys = Object.keys(object);
  const children = keys.slice(0, LIMIT).map((key) => rowOf(key, object[key]!));
  return { children, more: keys.length - children.length };
}

/** The rows of a mesh's or a document's metadata. A text that is no JSON object is one row without a key. */
export function metadataRows(metadata: JsonValue): { rows: MetadataRow[]; more: number } {
  if (metadata === null) return { rows: [], more: 0 };
  if (typeof metadata !== 'object' || Array.isArray(metadata)) return { rows: [rowOf('', metadata)], more: 0 };
  const { children, more } = childrenOf(metadata);
  return { rows: children, more };
}

/** What a mesh is called: the name in its metadata, or else its ID. */
export function nameOf(mesh: SrcMesh): string {
  const { metadata } = mesh;
  if (metadata !== null && typeof metadata === 'object' && !Array.isArray(metadata)) {
    if (Object.hasOwn(metadata, 'name') && typeof metadata.name === 'string' && metadata.name !== '')
      return metadata.name;
  }
  return mesh.id;
}

/** A parameter of a material: its own value, or else its technique's default. */
export interface Parameter {
  name: string;
  value: JsonValue;
  isDefault: boolean;
}

export function parametersOf({ technique, values }: SrcMaterial): Parameter[] {
  const found: Parameter[] = Object.keys(values).map((name) => ({ name, value: values[name]!, isDefault: false }));
  for (const [name, entry] of Object.entries(technique?.parameters ?? {})) {
    if (Object.hasOwn(values, name)) continue;
    const isObject = entry !== null && typeof entry === 'object' && !Array.isArray(entry);
    found.push({ name, value: (isObject ? entry.value : entry) ?? null, isDefault: true });
  }
  return found.sort((a, b) => (a.name < b.name ? -1 : 1));
}

/** A colour of three numbers from 0 to 1 for the style sheet; null for anything else. */
export function cssColour(value: JsonValue): string | null {
  if (!Array.isArray(value) || value.length !== 3) return null;
  const bytes = value.map((x) =>
    typeof x === 'number' && Number.isFinite(x) ? Math.round(Math.min(1, Math.max(0, x)) * 255) : NaN,
  );
  return bytes.some(Number.isNaN) ? null : `rgb(${bytes.join(' ')})`;
}

const colours = new WeakMap<SrcMaterial, string | null>();

/** What a material mostly looks like. */
export function colourOf(material: SrcMaterial | null): string | null {
  if (!material) return null;
  let colour = colours.get(material);
  if (colour === undefined) {
    const diffuse = parametersOf(material).find(({ name }) => name === 'diffuseColor');
    colours.set(material, (colour = diffuse ? cssColour(diffuse.value) : null));
  }
  return colour;
}
