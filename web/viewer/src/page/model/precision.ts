import { COMBINED, FLOAT, type SrcAttribute, type SrcHeader } from 'kelsrc-loader/core';

/** How exactly one attribute is stored in a file, over all meshes that have it. */
export interface Precision {
  name: string;
  meshes: number;
  /** "32-bit floats", "16-bit integers"; several where meshes differ. */
  encodings: string[];
  /** Distances between neighbouring values, in the file's units: the finest and the coarsest; null for floats. */
  step: { min: number; max: number } | null;
}

const INTEGERS = new Set([5120, 5121, 5122, 5123, 5124, 5125]);

/** "3 × 16-bit integers", as a mesh's panel says it. */
export function encodingOf({ name, view }: SrcAttribute): string {
  if (name === COMBINED) return '3 × 16-bit positions, 2 × 8-bit octahedral normals';
  return `${view.components} × ${scalarOf(view)}`;
}

function scalarOf(view: SrcAttribute['view']): string {
  const bits = view.componentBytes * 8;
  return view.componentType === FLOAT ? `${bits}-bit floats` : `${bits}-bit integers`;
}

export function precisionOf(header: SrcHeader): Precision[] {
  const found = new Map<string, Precision>();
  const entryOf = (name: string) => {
    let entry = found.get(name);
    if (!entry) found.set(name, (entry = { name, meshes: 0, encodings: [], step: null }));
    return entry;
  };
  const add = (name: string, encoding: string, steps: number[]) => {
    const entry = entryOf(name);
    ++entry.meshes;
    if (!entry.encodings.includes(encoding)) entry.encodings.push(encoding);
    for (const step of steps) {
      if (!Number.isFinite(step)) continue;
      entry.step ??= { min: step, max: step };
      entry.step.min = Math.min(entry.step.min, step);
      entry.step.max = Math.max(entry.step.max, step);
    }
  };
  for (const mesh of header.meshes) {
    for (const attribute of mesh.attributes) {
      const { name, view, fit } = attribute;
      const stepOf = (c: number) => Math.abs((fit?.scale[c] ?? 1) / view.decodeScale[c]!);
      if (name === COMBINED) {
        add('position', '16-bit integers', [0, 1, 2].map(stepOf));
        add('normal', '2 × 8 bits, octahedral', []);
      } else {
        const coded = INTEGERS.has(view.componentType) && view.decoded;
        add(name, scalarOf(view), coded ? view.decodeScale.map((_, c) => stepOf(c)) : []);
      }
    }
  }
  return [...found.values()].sort((a, b) => rank(a.name) - rank(b.name) || (a.name < b.name ? -1 : 1));
}

/** Positions first, as everyone looks for them. */
const rank = (name: string) => ['position', 'normal'].indexOf(name) >>> 0;

/**
 * How the file was probably written: what the header shows, since it does not say. Null where nothing known fits.
 */
export function modeOf(header: SrcHeader): string | null {
  const { meshes } = header;
  if (meshes.length === 0) return null;
  const attributes = meshes.flatMap((mesh) => mesh.attributes);
  const of = (name: string) => attributes.filter((attribute) => attribute.name === name);
  const positions = of('position');
  const floats = (list: SrcAttribute[]) => list.every(({ view }) => view.componentType === FLOAT);
  const bits = (list: SrcAttribute[], n: number) =>
    list.every(({ view }) => view.componentType !== FLOAT && view.componentBytes * 8 === n);

  if (meshes.every((mesh) => /^mesh\d+$/.test(mesh.id))) {
    if (of(COMBINED).length > 0 && bits(positions, 16)) return 'public writer, mode position-normal';
    if (positions.length === 0) return null;
    if (bits(positions, 16)) return 'public writer, mode position';
    if (floats(positions)) return 'public writer, mode uncompressed';
  } else if (meshes.every((mesh) => /^\d+$/.test(mesh.id)) && positions.length > 0) {
    if (floats(attributes)) return 'container writer, preset default';
    if (bits(positions, 16) && bits(of('normal'), 8)) return 'container writer, preset CMP1';
  }
  return null;
}
