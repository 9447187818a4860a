import {
  type Buffers,
  buffersOf,
  type MeshParts,
  type Ownership,
  ownershipOf,
  partsOf,
  type Placement,
  placementOf,
} from './headerJoin.js';
import { HeaderText } from './HeaderText.js';
import { HeaderWalk, type There } from './headerWalk.js';
import type { ReadLimits } from './limits.js';
import { declined, type Names, NOT_PLAIN } from './names.js';
import { Scanner } from './scanner.js';
import { HeaderSections } from './sections/HeaderSections.js';
import type { HeaderTable } from './table.js';

/**
 * The fast way to read a header: one walk over its bytes. Null for a header with a fault, and for one that is written
 * in a rare way, such as with escapes in its IDs; both are for readTree, which knows all of the rules. So a header is
 * taken only when everything about it is certain, and no rule is needed here to say what is wrong.
 */
export function readTable(bytes: Uint8Array, limits: ReadLimits): HeaderTable | null {
  const scan = new TableScan(bytes, limits);
  while (scan.advance(bytes.length) !== 'done');
  return scan.table;
}

/** An entry of a section is only begun when so many bytes behind its beginning are there. */
const MARGIN_BYTES = 64 * 1024;

/**
 * The same in slices, also of a text of which only the beginning is there. The end must hold zeros until it comes:
 * no JSON text has any, so what is walked into too early is declined and not mistaken.
 */
export class TableScan {
  /** The result when all is done; null also means that the plain reader has to look. */
  table: HeaderTable | null = null;
  private readonly there: There = { safe: -1, isHungry: false };
  private work: Generator<void, HeaderTable> | null;
  private wasPartial = false;

  constructor(
    private readonly bytes: Uint8Array,
    private readonly limits: ReadLimits,
  ) {
    this.work = this.begin();
  }

  private begin(): Generator<void, HeaderTable> | null {
    return this.limits.depth < 6 ? null : scan(this.bytes, this.limits, this.there); // it walks five deep unasked
  }

  /**
   * Works for a moment, with the first `count` bytes: 'hungry' means that it needs more of them, 'more' that it has not
   * come to their end.
   */
  advance(count: number): 'done' | 'hungry' | 'more' {
    const isWhole = count === this.bytes.length;
    this.there.safe = isWhole ? Infinity : count - MARGIN_BYTES;
    if (!this.work) return isWhole ? 'done' : 'hungry';
    if (!isWhole && this.there.safe < 0) return 'hungry';
    this.wasPartial ||= !isWhole;
    try {
      const { done, value } = this.work.next();
      if (!done) return this.there.isHungry ? 'hungry' : 'more';
      this.table = value;
      this.work = null;
      return 'done';
    } catch (error) {
      if (error !== NOT_PLAIN) throw error;
    }
    // A very long entry may have been cut off: it is tried once more when all of it is there.
    this.work = this.wasPartial ? this.begin() : null;
    this.wasPartial = false;
    return isWhole ? (this.work ? 'more' : 'done') : 'hungry';
  }
}

/** All that is done to a header, with pauses. */
function* scan(bytes: Uint8Array, limits: ReadLimits, there: There): Generator<void, HeaderTable> {
  const scanner = new Scanner(bytes, limits.depth, limits.stringLength);
  const sections = new HeaderSections(scanner, limits);
  yield* new HeaderWalk(scanner, sections, limits.entries, there).root();
  if (!scanner.isAscii) checkUtf8(bytes);
  const text = new HeaderText(bytes, scanner.isAscii);
  if (sections.techniques[1] > 0) checkTechniques(text.value(...sections.techniques), limits);

  const placement = placementOf(sections);
  yield;
  const buffers = buffersOf(sections, placement.viewStored);
  yield;
  const parts = partsOf(sections, bytes);
  yield;
  const ownership = ownershipOf(sections, parts, buffers);
  yield;
  return tableOf(text, sections, placement, buffers, parts, ownership);
}

function tableOf(
  text: HeaderText,
  sections: HeaderSections,
  placement: Placement,
  { indexBuffer, attributeBuffer }: Buffers,
  { meshIndices, meshMaterial, order }: MeshParts,
  { meshFirst, meshViews, attributeOwner, ownFirst, ownName, ownView }: Ownership,
): HeaderTable {
  const { chunks, bufferViews, indexViews, attributeViews, materials, meshes, metadata, techniques } = sections;
  return {
    text,
    layout: { ...placement, meshFirst, meshViews },
    chunkId: chunks.ids.places(),
    viewId: bufferViews.ids.places(),
    viewLength: bufferViews.byteLength.taken(),
    indexId: indexViews.ids.places(),
    indexBuffer,
    indexOffset: indexViews.byteOffset.taken(),
    indexType: indexViews.componentType.taken(),
    indexCount: indexViews.count.taken(),
    attributeId: attributeViews.ids.places(),
    attributeBuffer,
    attributeOffset: attributeViews.byteOffset.taken(),
    attributeStride: attributeViews.byteStride.taken(),
    attributeType: attributeViews.componentType.taken(),
    attributeComponents: attributeViews.components.taken(),
    attributeCount: attributeViews.count.taken(),
    decodeOffsetAt: attributeViews.decodeOffsetAt.taken(),
    decodeScaleAt: attributeViews.decodeScaleAt.taken(),
    attributeOwner,
    meshId: meshes.ids.places(),
    meshPrimitive: meshes.primitive.taken(),
    meshDrawnAs: meshes.drawnAs.taken(),
    meshIndices,
    meshMaterial,
    centerAt: meshes.centerAt.taken(),
    sizeAt: meshes.sizeAt.taken(),
    metadataAt: meshes.metadataAt.taken(),
    metadataEnd: meshes.metadataEnd.taken(),
    titleAt: meshes.titleAt.taken(),
    titleEnd: meshes.titleEnd.taken(),
    fitAt: meshes.fitAt.taken(),
    fitEnd: meshes.fitEnd.taken(),
    drawnBoundsAt: meshes.drawnBoundsAt.taken(),
    drawnBoundsEnd: meshes.drawnBoundsEnd.taken(),
    meshOrigin: meshes.origin.taken(),
    originsAt: meshes.originTexts.starts.taken(),
    originsEnd: meshes.originTexts.ends.taken(),
    ownFirst,
    ownName,
    ownView,
    order,
    materialId: materials.ids.places(),
    materialValues: materials.values.taken(),
    materialTechnique: materials.technique.taken(),
    metadata,
    techniques,
    semanticNames: textsOf(meshes.semantics, text),
    techniqueNames: textsOf(materials.techniqueNames, text),
    valuesAt: materials.valueTexts.starts.taken(),
    valuesEnd: materials.valueTexts.ends.taken(),
  };
}

function textsOf(names: Names, text: HeaderText): string[] {
  const textOf = (_: unknown, symbol: number) => text.slice(names.starts.at(symbol), names.ends.at(symbol));
  return Array.from({ length: names.length }, textOf);
}

/** Techniques are few: these are looked at as objects. */
function checkTechniques(techniques: Record<string, unknown>, limits: ReadLimits): void {
  const isObject = (value: unknown) => typeof value === 'object' && value !== null && !Array.isArray(value);
  const entries = Object.entries(techniques);
  if (entries.length > limits.entries) declined();
  for (const [id, technique] of entries) {
    if (id.length > limits.stringLength || !isObject(technique)) declined();
    if (!isObject((technique as { parameters?: unknown }).parameters)) declined();
  }
}

function checkUtf8(bytes: Uint8Array): void {
  const decoder = new TextDecoder('utf-8', { fatal: true, ignoreBOM: true });
  const step = 1 << 16; // short-lived strings
  try {
    for (let at = 0; at < bytes.length; at += step) {
      decoder.decode(bytes.subarray(at, at + step), { stream: at + step < bytes.length });
    }
  } catch {
    declined();
  }
}
