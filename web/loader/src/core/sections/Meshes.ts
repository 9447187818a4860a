import { Integers } from '../columns.js';
import { LINES, POINTS, TRIANGLE_FAN, TRIANGLES } from '../model.js';
import { declined, Names } from '../names.js';
import { END, Keys, type Scanner } from '../scanner.js';
import type { AttributeViews } from './AttributeViews.js';
import { Ids, plainId } from './Ids.js';
import type { IndexViews } from './IndexViews.js';
import type { Materials } from './Materials.js';

const MESH = new Keys('attributes', 'bboxCenter', 'bboxSize', 'indices', 'material', 'meta', 'primitive');
const METADATA = new Keys(
  'bounds',
  'fit',
  'name',
  'numOriginalLines',
  'numOriginalPoints',
  'numOriginalTriangles',
  'origin',
);

/** Attributes of one mesh: each is compared with all before it. */
const MAX_ATTRIBUTES = 64;

/** What an entry has said so far: -1 for names, and 0 for places in the text, of what it has not. */
class Entry {
  hasAttributes = false;
  center = 0;
  size = 0;
  indices = -1;
  material = -1;
  primitive = -1;
  metadata = 0;
  metadataEnd = 0;
  title = 0;
  titleEnd = 0;
  fit = 0;
  fitEnd = 0;
  drawnBounds = 0;
  drawnBoundsEnd = 0;
  origin = -1;
  hasTriangles = false;
  hasPoints = false;
  hasLines = false;
}

/** "meshes". */
export class Meshes {
  readonly ids: Ids;
  readonly primitive = new Integers();
  readonly drawnAs = new Integers();
  /** -1 for none. */
  readonly indexName = new Integers();
  readonly materialName = new Integers();
  // Places in the text, 0 for none.
  readonly centerAt = new Integers();
  readonly sizeAt = new Integers();
  readonly metadataAt = new Integers();
  readonly metadataEnd = new Integers();
  readonly titleAt = new Integers();
  readonly titleEnd = new Integers();
  readonly fitAt = new Integers();
  readonly fitEnd = new Integers();
  readonly drawnBoundsAt = new Integers();
  readonly drawnBoundsEnd = new Integers();
  /** Of the different texts of "origin"; -1 for none. */
  readonly origin = new Integers();
  readonly originTexts: Names;

  /** The attributes of the mesh in row i are those from first[i] to first[i + 1]. */
  readonly first = new Integers();
  readonly semantic = new Integers();
  readonly viewName = new Integers();
  /** "position" and so on. */
  readonly semantics: Names;

  constructor(
    private readonly scanner: Scanner,
    private readonly attributeViews: AttributeViews,
    private readonly indexViews: IndexViews,
    private readonly materials: Materials,
    private readonly maxEntries: number,
  ) {
    this.ids = new Ids(scanner.text);
    this.semantics = new Names(scanner.text);
    this.originTexts = new Names(scanner.text);
    this.first.push(0);
  }

  /** Reads one entry. */
  read(): void {
    const { scanner } = this;
    this.ids.readInAnyOrder(scanner);
    const entry = new Entry();
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(MESH, key + 1, nth)) !== END; ++nth) this.readValue(key, entry);
    this.add(entry);
  }

  private readValue(key: number, entry: Entry): void {
    const { scanner } = this;
    switch (key) {
      case 0:
        if (entry.hasAttributes) declined();
        entry.hasAttributes = true;
        this.readAttributes();
        break;
      case 1:
        entry.center = this.readPoint();
        break;
      case 2:
        entry.size = this.readPoint();
        break;
      case 3:
        entry.indices = scanner.symbol(this.indexViews.ids.names);
        break;
      case 4:
        entry.material = scanner.symbol(this.materials.ids.names);
        break;
      case 5:
        if (entry.metadata !== 0) declined();
        if (!scanner.atObject && !scanner.atText) declined();
        entry.metadata = scanner.at;
        if (scanner.atObject) this.readMetadata(entry);
        else scanner.skipText();
        entry.metadataEnd = scanner.at;
        break;
      case 6:
        entry.primitive = scanner.count();
        break;
      default:
        scanner.skip(3);
    }
  }

  private readAttributes(): void {
    const { scanner, semantic, viewName } = this;
    const viewNames = this.attributeViews.ids.names;
    const first = semantic.length;
    scanner.open();
    for (let nth = 0; scanner.entry(nth); ++nth) {
      const name = plainId(scanner, this.semantics);
      for (let k = first; k < semantic.length; ++k) if (semantic.at(k) === name) declined();
      if (semantic.length - first > MAX_ATTRIBUTES) declined();
      semantic.push(name);
      viewName.push(scanner.symbol(viewNames));
    }
    if (semantic.length > this.maxEntries) declined();
  }

  /** The place of a list of three numbers. */
  private readPoint(): number {
    const { scanner } = this;
    scanner.numbers();
    if (scanner.list.length !== 3) declined();
    return scanner.list.at;
  }

  private readMetadata(entry: Entry): void {
    const { scanner } = this;
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(METADATA, key + 1, nth)) !== END; ++nth) {
      const isNumber = scanner.atNumber,
        isText = scanner.atText,
        isList = scanner.atList;
      const from = scanner.at;
      scanner.skip(4);
      if (key === 0) {
        entry.drawnBounds = isList ? from : 0;
        entry.drawnBoundsEnd = scanner.at;
      } else if (key === 1) {
        entry.fit = from;
        entry.fitEnd = scanner.at;
      } else if (key === 2) {
        entry.title = isText ? from : 0;
        entry.titleEnd = scanner.at;
      } else if (key === 3) {
        entry.hasLines = isNumber;
      } else if (key === 4) {
        entry.hasPoints = isNumber;
      } else if (key === 5) {
        entry.hasTriangles = true;
      } else if (key === 6) {
        entry.origin = isList ? this.originTexts.other(from, scanner.at) : -1;
      }
    }
  }

  private add(entry: Entry): void {
    const { center, size, indices, material, primitive } = entry;
    if (!entry.hasAttributes || primitive < 0 || primitive > TRIANGLE_FAN) declined();
    let drawnAs = primitive;
    if (primitive === TRIANGLES && !entry.hasTriangles) {
      drawnAs = entry.hasPoints ? POINTS : entry.hasLines ? LINES : primitive;
    }
    this.primitive.push(primitive);
    this.drawnAs.push(drawnAs);
    this.indexName.push(indices >= 0 && this.indexViews.ids.names.isEmpty(indices) ? -1 : indices);
    this.materialName.push(material >= 0 && this.materials.ids.names.isEmpty(material) ? -1 : material);
    this.centerAt.push(size ? center : 0);
    this.sizeAt.push(center ? size : 0);
    this.metadataAt.push(entry.metadata);
    this.metadataEnd.push(entry.metadataEnd);
    this.titleAt.push(entry.title);
    this.titleEnd.push(entry.titleEnd);
    this.fitAt.push(entry.fit);
    this.fitEnd.push(entry.fitEnd);
    this.drawnBoundsAt.push(entry.drawnBounds);
    this.drawnBoundsEnd.push(entry.drawnBoundsEnd);
    this.origin.push(entry.origin);
    this.first.push(this.semantic.length);
  }
}
