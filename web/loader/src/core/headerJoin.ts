import type { SrcCode } from './codes.js';
import { Fault } from './faults.js';
import { fitOf } from './fit.js';
import type { HeaderSections } from './headerSections.js';
import type { Walking } from './headerWalk.js';
import {
  componentSize,
  isObject,
  positionOf,
  type SrcAttribute,
  type SrcAttributeView,
  type SrcBufferView,
  type SrcHeader,
  type SrcIndexView,
  type SrcMesh,
} from './model.js';
import { commonOrigin } from './origin.js';

/** Names that are resolved between two pauses: less than a millisecond. */
const ENTRIES_PER_STEP = 4096;

/** Resolves what entries say about each other, and checks that views lie inside their bytes. Throws Fault. */
export function* joined(sections: HeaderSections, dataOffset: number): Walking<SrcHeader> {
  let done = 0;
  const tick = () => ++done % ENTRIES_PER_STEP === 0;

  const chunks = [...sections.chunks.values()];
  let dataBytes = 0;
  for (const [index, chunk] of chunks.entries()) {
    chunk.index = index;
    dataBytes = Math.max(dataBytes, chunk.byteOffset + chunk.byteLength);
  }
  const bufferViews: SrcBufferView[] = [];
  for (const view of sections.bufferViews.values()) {
    view.index = bufferViews.push(view) - 1;
    let stored = 0,
      end = -1;
    for (let i = 0; i < view.chunks.length; ++i) {
      const name = nameIn(view.chunks[i]!);
      const chunk = sections.chunks.get(name);
      if (!chunk) return dangling('DANGLING_CHUNK', name, 'bufferViews', view.id, 'chunks', String(i));
      view.chunks[i] = chunk;
      stored += chunk.byteLength;
      if (i === 0) view.dataOffset = chunk.byteOffset;
      else if (chunk.byteOffset !== end) view.dataOffset = -1;
      end = chunk.byteOffset + chunk.byteLength;
    }
    view.storedBytes = Math.min(stored, view.byteLength);
    if (tick()) yield 'busy';
  }
  for (const view of sections.indexViews.values()) {
    const size = componentSize(view.componentType);
    place('indexViews', view, size, size, sections);
    if (tick()) yield 'busy';
  }
  for (const view of sections.attributeViews.values()) {
    const { byteStride, components, componentBytes } = view;
    place('attributeViews', view, byteStride, components * componentBytes, sections);
    if (tick()) yield 'busy';
  }
  for (const material of sections.materials.values()) {
    material.technique = material.technique && (sections.techniques.get(nameIn(material.technique)) ?? null);
  }
  const meshes = inWritingOrder([...sections.meshes.values()]);
  for (let index = 0; index < meshes.length; ++index) {
    meshes[index]!.index = index;
    resolve(meshes[index]!, sections);
    if (tick()) yield 'busy';
  }
  return {
    metadata: sections.metadata,
    meshes,
    origin: commonOrigin(meshes),
    materials: sections.materials,
    techniques: sections.techniques,
    chunks,
    bufferViews,
    dataOffset,
    dataBytes,
    totalBytes: dataOffset + dataBytes,
  };
}

/** The name that stands where the entry will. */
function nameIn(place: unknown): string {
  return place as string;
}

function dangling(code: SrcCode, name: string, ...path: string[]): never {
  throw new Fault(code, path, `"${name.slice(0, 80)}"`);
}

/**
 * Finds the bytes of a view. Comparisons are arranged so that rounding of sums and products above 2^53 cannot let
 * anything through: no view holds that much.
 */
function place(
  kind: string,
  view: SrcIndexView | SrcAttributeView,
  stride: number,
  element: number,
  { bufferViews }: HeaderSections,
): void {
  const name = nameIn(view.bufferView);
  const buffer = bufferViews.get(name);
  if (!buffer) return dangling('DANGLING_BUFFER_VIEW', name, 'accessors', kind, view.id, 'bufferView');
  view.bufferView = buffer;
  const room = buffer.storedBytes - view.byteOffset;
  if (room >= 0 && (view.count === 0 || (element <= room && (view.count - 1) * stride <= room - element))) return;
  const wanted = `${view.count} elements, ${stride} bytes apart, from byte ${view.byteOffset}`;
  throw new Fault('VIEW_PAST_END', ['accessors', kind, view.id], `${wanted} of ${buffer.storedBytes}`);
}

function resolve(mesh: SrcMesh, { indexViews, attributeViews, materials }: HeaderSections): void {
  const indices = nameIn(mesh.indices),
    material = nameIn(mesh.material),
    attributes = mesh.attributes as unknown as Record<string, string>;
  const view = indexViews.get(indices);
  if (!view && indices !== '') dangling('DANGLING_INDEX_VIEW', indices, 'meshes', mesh.id, 'indices');
  mesh.indices = (indices !== '' && view) || null;
  mesh.material = (material !== '' && materials.get(material)) || null;
  const fit = isObject(mesh.metadata) ? mesh.metadata.fit : undefined;
  const all = Object.keys(attributes).map((name): SrcAttribute => {
    const id = attributes[name]!;
    const view = attributeViews.get(id);
    if (!view) return dangling('DANGLING_ATTRIBUTE_VIEW', id, 'meshes', mesh.id, 'attributes', name);
    view.owner ??= mesh;
    return { name, view, fit: fit === undefined ? null : fitOf(fit, { name, view }) };
  });
  mesh.attributes = ownAttributes(all, mesh);
}

/** Those that were written for the mesh that the positions were written for, and have as many elements. */
function ownAttributes(attributes: SrcAttribute[], mesh: SrcMesh): SrcAttribute[] {
  const position = positionOf({ attributes });
  const owner = position?.view.owner ?? mesh;
  const isOwn = ({ view }: SrcAttribute) => view.owner === owner && (!position || view.count === position.view.count);
  return attributes.every(isOwn) ? attributes : attributes.filter(isOwn);
}

/**
 * Meshes whose IDs are numbers behind one prefix ("0", "1", ... or "mesh0", "mesh1", ...) in the order of the numbers,
 * and all others as they stand in the header. As in C++, numbers far above the number of meshes are not an order.
 */
function inWritingOrder(meshes: SrcMesh[]): SrcMesh[] {
  const prefix = meshes[0]?.id.replace(/[0-9]+$/, '') ?? '';
  const byNumber = new Array<SrcMesh | undefined>(2 * meshes.length + 64);
  for (const mesh of meshes) {
    const digits = mesh.id.startsWith(prefix) ? mesh.id.slice(prefix.length) : '';
    const number = /^(0|[1-9][0-9]{0,8})$/.test(digits) ? Number(digits) : Infinity;
    if (number >= byNumber.length) return meshes;
    byNumber[number] = mesh;
  }
  return byNumber.filter((mesh) => mesh !== undefined);
}
