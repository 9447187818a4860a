import type { HeaderTable } from './table.js';
import { drawnBoundsFrom } from './bounds.js';
import { fitOf } from './headerTree.js';
import { commonOrigin, originFrom } from './origin.js';
import {
  componentSize,
  isCombined,
  UNSIGNED_INT,
  type JsonObject,
  type JsonValue,
  type SrcAttribute,
  type SrcAttributeView,
  type SrcBounds,
  type SrcBox,
  type SrcBufferView,
  type SrcChunk,
  type SrcHeader,
  type SrcIndexView,
  type SrcMaterial,
  type SrcMesh,
  type SrcOrigin,
  type SrcTechnique,
} from './model.js';

// What a table of a header says, as objects: each knows its row and reads the columns when it is asked. Whoever reads a
// header gets the same object for the same thing.

export type MeshParts = Pick<SrcMesh, 'attributes' | 'indices'>;

/** A mesh's parts, of which nothing is kept. */
export function partsOf(mesh: SrcMesh): MeshParts {
  return mesh instanceof TableMesh ? mesh.parts() : mesh;
}

/** The "name" in a mesh's metadata; "" when there is none, or none that is a text. */
export function titleOf(mesh: SrcMesh): string {
  if (mesh instanceof TableMesh) return mesh.title;
  const { metadata } = mesh;
  const name =
    typeof metadata === 'object' && metadata !== null && !Array.isArray(metadata) ? metadata.name : undefined;
  return typeof name === 'string' ? name : '';
}

/** The attribute that holds a mesh's positions. */
export function positionIn(mesh: SrcMesh): SrcAttribute | undefined {
  const { attributes } = partsOf(mesh);
  return attributes.find((a) => a.name === 'position') ?? attributes.find(isCombined);
}

/** A mesh's bounds, of which nothing is kept. */
export function statedBounds(mesh: SrcMesh): SrcBounds | null {
  return mesh instanceof TableMesh ? mesh.readBounds() : mesh.bounds;
}

/** The same for materials that look the same, as far as the header's text tells at once. */
export function lookOf(mesh: SrcMesh): unknown {
  return mesh instanceof TableMesh ? mesh.look : mesh.material;
}

class TableChunk implements SrcChunk {
  constructor(
    private readonly table: HeaderTable,
    readonly index: number,
  ) {}
  get id(): string {
    return this.table.text.name(this.table.chunkId[this.index]!);
  }
  get byteOffset(): number {
    return this.table.layout.chunkOffset[this.index]!;
  }
  get byteLength(): number {
    return this.table.layout.chunkLength[this.index]!;
  }
}

class TableBufferView implements SrcBufferView {
  constructor(
    private readonly header: TableHeader,
    readonly index: number,
  ) {}
  get id(): string {
    const { table } = this.header;
    return table.text.name(table.viewId[this.index]!);
  }
  get byteLength(): number {
    return this.header.table.viewLength[this.index]!;
  }
  get storedBytes(): number {
    return this.header.table.layout.viewStored[this.index]!;
  }
  get dataOffset(): number {
    return this.header.table.layout.viewOffset[this.index]!;
  }
  get chunks(): SrcChunk[] {
    const { viewFirst, viewChunks } = this.header.table.layout;
    const { chunks } = this.header;
    const result: SrcChunk[] = [];
    for (let i = viewFirst[this.index]!; i < viewFirst[this.index + 1]!; ++i) result.push(chunks[viewChunks[i]!]!);
    return result;
  }
}

class TableIndexView implements SrcIndexView {
  constructor(
    private readonly header: TableHeader,
    private readonly row: number,
  ) {}
  get id(): string {
    const { table } = this.header;
    return table.text.name(table.indexId[this.row]!);
  }
  get bufferView(): SrcBufferView {
    return this.header.bufferViews[this.header.table.indexBuffer[this.row]!]!;
  }
  get byteOffset(): number {
    return this.header.table.indexOffset[this.row]!;
  }
  get componentType(): number {
    return this.header.table.indexType[this.row]!;
  }
  get count(): number {
    return this.header.table.indexCount[this.row]!;
  }
}

class TableAttributeView implements SrcAttributeView {
  private offset: number[] | null = null;
  private scale: number[] | null = null;

  constructor(
    private readonly header: TableHeader,
    private readonly row: number,
  ) {}
  get id(): string {
    const { table } = this.header;
    return table.text.name(table.attributeId[this.row]!);
  }
  get bufferView(): SrcBufferView {
    return this.header.bufferViews[this.header.table.attributeBuffer[this.row]!]!;
  }
  get byteOffset(): number {
    return this.header.table.attributeOffset[this.row]!;
  }
  get byteStride(): number {
    return this.header.table.attributeStride[this.row]!;
  }
  get componentType(): number {
    return this.header.table.attributeType[this.row]!;
  }
  get components(): number {
    return this.header.table.attributeComponents[this.row]!;
  }
  get componentBytes(): number {
    const { componentType } = this;
    return componentType === UNSIGNED_INT && this.byteStride < this.components * 4 ? 3 : componentSize(componentType);
  }
  get count(): number {
    return this.header.table.attributeCount[this.row]!;
  }
  get decodeOffset(): number[] {
    return (this.offset ??= this.numbers(this.header.table.decodeOffsetAt[this.row]!, 0));
  }
  get decodeScale(): number[] {
    return (this.scale ??= this.numbers(this.header.table.decodeScaleAt[this.row]!, 1));
  }
  get decoded(): boolean {
    const { decodeOffsetAt, decodeScaleAt } = this.header.table;
    if (decodeOffsetAt[this.row] === 0 && decodeScaleAt[this.row] === 0) return false;
    return this.decodeOffset.some((offset) => offset !== 0) || this.decodeScale.some((scale) => scale !== 1);
  }
  get owner(): SrcMesh | null {
    return this.header.meshes[this.header.table.attributeOwner[this.row]!] ?? null;
  }

  private numbers(at: number, neutral: number): number[] {
    return at === 0 ? new Array<number>(this.components).fill(neutral) : this.header.table.text.numbers(at);
  }
}

export class TableMesh implements SrcMesh {
  private ownId: string | null = null;
  private ownAttributes: SrcAttribute[] | null = null;
  private ownBounds: SrcBounds | null | undefined = undefined;
  private ownMetadata: JsonValue | undefined = undefined;

  constructor(
    readonly header: TableHeader,
    readonly row: number,
    readonly index: number,
  ) {}
  get id(): string {
    const { table } = this.header;
    return (this.ownId ??= table.text.name(table.meshId[this.row]!));
  }
  get primitive(): number {
    return this.header.table.meshPrimitive[this.row]!;
  }
  get drawnAs(): number {
    return this.header.table.meshDrawnAs[this.row]!;
  }
  get indices(): SrcIndexView | null {
    const row = this.header.table.meshIndices[this.row]!;
    return row < 0 ? null : this.header.indexView(row, true);
  }
  get material(): SrcMaterial | null {
    const row = this.header.table.meshMaterial[this.row]!;
    return row < 0 ? null : this.header.materialAt(row);
  }
  get attributes(): SrcAttribute[] {
    return (this.ownAttributes ??= this.parts(true).attributes);
  }
  /** What the mesh is made of, in new objects: who only passes by does not leave them behind. */
  parts(kept = false): MeshParts {
    const { table } = this.header;
    const attributes: SrcAttribute[] = [];
    const fit = table.fitAt[this.row]! > 0 ? this.fit : undefined;
    for (let i = table.ownFirst[this.index]!; i < table.ownFirst[this.index + 1]!; ++i) {
      const name = table.semanticNames[table.ownName[i]!]!;
      const view = this.header.attributeView(table.ownView[i]!, kept);
      attributes.push({ name, view, fit: fit === undefined ? null : fitOf(fit, { name, view }) });
    }
    const indices = table.meshIndices[this.row]!;
    return { attributes, indices: indices < 0 ? null : this.header.indexView(indices, kept) };
  }
  get bounds(): SrcBounds | null {
    if (this.ownBounds === undefined) this.ownBounds = this.readBounds();
    return this.ownBounds;
  }
  readBounds(): SrcBounds | null {
    const { text, centerAt, sizeAt } = this.header.table;
    const center = centerAt[this.row]!;
    if (center === 0) return null;
    return {
      center: text.numbers(center) as [number, number, number],
      size: text.numbers(sizeAt[this.row]!) as [number, number, number],
    };
  }
  get origin(): SrcOrigin | null {
    return this.header.originAt(this.header.table.meshOrigin[this.row]!);
  }
  get drawnBounds(): SrcBox | null {
    const { text, drawnBoundsAt, drawnBoundsEnd } = this.header.table;
    const at = drawnBoundsAt[this.row]!;
    return at === 0 ? null : drawnBoundsFrom(text.value(at, drawnBoundsEnd[this.row]!));
  }
  get metadata(): JsonValue {
    if (this.ownMetadata !== undefined) return this.ownMetadata;
    const { text, metadataAt, metadataEnd } = this.header.table;
    const at = metadataAt[this.row]!;
    return (this.ownMetadata = at === 0 ? null : text.value<JsonValue>(at, metadataEnd[this.row]!));
  }
  /** The metadata's "name"; "" when it has none, or none that is a text. */
  get title(): string {
    const { text, titleAt, titleEnd } = this.header.table;
    const at = titleAt[this.row]!;
    return at === 0 ? '' : text.value<string>(at, titleEnd[this.row]!);
  }
  get look(): unknown {
    const { meshMaterial, materialTechnique, materialValues } = this.header.table;
    const row = meshMaterial[this.row]!;
    if (row < 0) return null;
    // Of fewer than a million techniques, and the sum is exact.
    return materialValues[row]! * 2 ** 20 + materialTechnique[row]!;
  }
  private get fit(): JsonValue {
    const { text, fitAt, fitEnd } = this.header.table;
    return text.value<JsonValue>(fitAt[this.row]!, fitEnd[this.row]!);
  }
}

class TableMaterial implements SrcMaterial {
  constructor(
    readonly header: TableHeader,
    readonly row: number,
  ) {}
  get id(): string {
    const { table } = this.header;
    return table.text.name(table.materialId[this.row]!);
  }
  get technique(): SrcTechnique | null {
    const { materialTechnique, techniqueNames } = this.header.table;
    const technique = materialTechnique[this.row]!;
    return technique < 0 ? null : (this.header.techniques.get(techniqueNames[technique]!) ?? null);
  }
  get values(): JsonObject {
    return this.header.valuesOf(this.header.table.materialValues[this.row]!);
  }
}

/** A header whose entries are read from a table. */
export class TableHeader implements SrcHeader {
  readonly meshes: SrcMesh[];
  readonly dataBytes: number;
  readonly totalBytes: number;

  // By row, and only those that were asked for.
  private allChunks: SrcChunk[] | null = null;
  private allBufferViews: SrcBufferView[] | null = null;
  private readonly indexViews: SrcIndexView[] = [];
  private readonly attributeViews: SrcAttributeView[] = [];
  private readonly materialsByRow: SrcMaterial[] = [];
  private readonly values: JsonObject[] = [];
  private readonly origins: (SrcOrigin | null)[] = [];
  private ownOrigin: SrcOrigin | null | undefined = undefined;
  private allMaterials: Map<string, SrcMaterial> | null = null;
  private allTechniques: Map<string, SrcTechnique> | null = null;
  private ownMetadata: JsonValue | undefined = undefined;

  constructor(
    readonly table: HeaderTable,
    readonly dataOffset: number,
  ) {
    const { order, layout } = table;
    this.meshes = new Array<SrcMesh>(order.length);
    for (let index = 0; index < order.length; ++index) this.meshes[index] = new TableMesh(this, order[index]!, index);
    let end = 0;
    for (let chunk = 0; chunk < layout.chunkOffset.length; ++chunk) {
      end = Math.max(end, layout.chunkOffset[chunk]! + layout.chunkLength[chunk]!);
    }
    this.dataBytes = end;
    this.totalBytes = dataOffset + end;
  }

  get metadata(): JsonValue {
    const [from, to] = this.table.metadata;
    return (this.ownMetadata ??= from === 0 ? null : this.table.text.value<JsonValue>(from, to));
  }
  get origin(): SrcOrigin | null {
    if (this.ownOrigin === undefined) this.ownOrigin = commonOrigin(this.meshes);
    return this.ownOrigin;
  }
  get chunks(): SrcChunk[] {
    return (this.allChunks ??= Array.from(this.table.chunkId, (_, row) => new TableChunk(this.table, row)));
  }
  get bufferViews(): SrcBufferView[] {
    return (this.allBufferViews ??= Array.from(this.table.viewId, (_, row) => new TableBufferView(this, row)));
  }
  get materials(): Map<string, SrcMaterial> {
    if (!this.allMaterials) {
      this.allMaterials = new Map();
      for (let row = 0; row < this.table.materialId.length; ++row) {
        const material = this.materialAt(row);
        this.allMaterials.set(material.id, material);
      }
    }
    return this.allMaterials;
  }
  get techniques(): Map<string, SrcTechnique> {
    if (!this.allTechniques) {
      this.allTechniques = new Map();
      const [from, to] = this.table.techniques;
      const entries = from === 0 ? {} : this.table.text.value<Record<string, { parameters: JsonObject }>>(from, to);
      for (const [id, { parameters }] of Object.entries(entries)) this.allTechniques.set(id, { id, parameters });
    }
    return this.allTechniques;
  }

  indexView(row: number, kept: boolean): SrcIndexView {
    const view = this.indexViews[row] ?? new TableIndexView(this, row);
    if (kept) this.indexViews[row] = view;
    return view;
  }
  attributeView(row: number, kept: boolean): SrcAttributeView {
    const view = this.attributeViews[row] ?? new TableAttributeView(this, row);
    if (kept) this.attributeViews[row] = view;
    return view;
  }
  materialAt(row: number): SrcMaterial {
    return (this.materialsByRow[row] ??= new TableMaterial(this, row));
  }
  /** Origins that are written alike are one object. */
  originAt(place: number): SrcOrigin | null {
    if (place < 0) return null;
    const { text, originsAt, originsEnd } = this.table;
    let origin = this.origins[place];
    if (origin === undefined) origin = originFrom(text.value(originsAt[place]!, originsEnd[place]!));
    return (this.origins[place] = origin);
  }
  /** The values of materials that are written alike are one object. */
  valuesOf(place: number): JsonObject {
    if (place < 0) return {};
    const { text, valuesAt, valuesEnd } = this.table;
    return (this.values[place] ??= text.value<JsonObject>(valuesAt[place]!, valuesEnd[place]!));
  }
}
