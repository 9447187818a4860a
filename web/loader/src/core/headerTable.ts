import { Doubles, Integers } from './columns.js';
import { HeaderText } from './HeaderText.js';
import type { ReadLimits } from './limits.js';
import {
  BYTE,
  componentSize,
  FLOAT,
  LINES,
  POINTS,
  TRIANGLE_FAN,
  TRIANGLES,
  UNSIGNED_BYTE,
  UNSIGNED_INT,
  UNSIGNED_SHORT,
} from './model.js';
import { declined, Names, NOT_PLAIN } from './names.js';
import { END, Keys, Scanner, Tails } from './scanner.js';
import type { HeaderTable } from './table.js';
import { writingOrder } from './writingOrder.js';

const ROOT = new Keys(
  'accessors',
  'bufferChunks',
  'bufferViews',
  'materials',
  'meshes',
  'meta',
  'techniques',
  'textureViews',
  'textures',
);
const ACCESSORS = new Keys('attributeViews', 'indexViews');
const ATTRIBUTE_VIEW = new Keys(
  'bufferView',
  'byteOffset',
  'byteStride',
  'componentType',
  'count',
  'decodeOffset',
  'decodeScale',
  'type',
);
const INDEX_VIEW = new Keys('bufferView', 'byteOffset', 'componentType', 'count');
const CHUNK = new Keys('byteLength', 'byteOffset');
const BUFFER_VIEW = new Keys('byteLength', 'chunks');
const MATERIAL = new Keys('instanceTechnique');
const INSTANCE = new Keys('technique', 'values');
const MESH = new Keys('attributes', 'bboxCenter', 'bboxSize', 'indices', 'material', 'meta', 'primitive');
const METADATA = new Keys('fit', 'name', 'numOriginalLines', 'numOriginalPoints', 'numOriginalTriangles');

/** A scan pauses after so many: some tenths of a millisecond. */
const ENTRIES_PER_STEP = 512;

const encoder = new TextEncoder();
const TYPES = ['SCALAR', 'VEC2', 'VEC3', 'VEC4'].map((type) => encoder.encode(type));
const POSITION = encoder.encode('position');
const COMBINED_NAME = encoder.encode('pos3us_nor2ub_oct');

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

/** How far the text is there; scan() pauses before it goes on behind `safe`. */
interface There {
  safe: number;
  isHungry: boolean;
}

function* scan(bytes: Uint8Array, limits: ReadLimits, there: There): Generator<void, HeaderTable> {
  const scanner = new Scanner(bytes, limits.depth, limits.stringLength);

  const chunkNames = new Names(bytes),
    bufferNames = new Names(bytes),
    indexNames = new Names(bytes),
    attributeNames = new Names(bytes),
    materialNames = new Names(bytes),
    meshNames = new Names(bytes),
    semantics = new Names(bytes), // "position" and so on
    typeNames = new Names(bytes),
    techniqueNames = new Names(bytes),
    valueTexts = new Names(bytes);

  const attributeName = new Integers(),
    attributeBufferName = new Integers(),
    attributeOffset = new Doubles(),
    attributeStride = new Doubles(),
    attributeType = new Integers(),
    attributeComponents = new Integers(),
    attributeCount = new Doubles(),
    decodeOffsetAt = new Integers(),
    decodeScaleAt = new Integers();
  const indexName = new Integers(),
    indexBufferName = new Integers(),
    indexOffset = new Doubles(),
    indexType = new Integers(),
    indexCount = new Doubles();
  const chunkName = new Integers(),
    chunkOffset = new Doubles(),
    chunkLength = new Doubles();
  const viewName = new Integers(),
    viewLength = new Doubles(),
    viewFirst = new Integers(),
    viewChunkName = new Integers();
  const materialName = new Integers(),
    materialValues = new Integers(),
    materialTechnique = new Integers();
  const meshName = new Integers(),
    meshPrimitive = new Integers(),
    meshDrawnAs = new Integers(),
    meshIndexName = new Integers(),
    meshMaterialName = new Integers(),
    centerAt = new Integers(),
    sizeAt = new Integers(),
    metadataAt = new Integers(),
    metadataEnd = new Integers(),
    titleAt = new Integers(),
    titleEnd = new Integers(),
    fitAt = new Integers(),
    fitEnd = new Integers(),
    meshFirst = new Integers(),
    useName = new Integers(),
    useViewName = new Integers();

  const plainId = (names: Names): number => {
    const symbol = scanner.id(names);
    const first = bytes[names.starts.at(symbol)]!;
    if (first >= 0x30 && first <= 0x39 && names.looksLikePlace(symbol)) declined();
    return symbol;
  };

  // One of four short texts, not worth a symbol each time.
  let lastType = -1,
    lastTypeComponents = 0;
  const typeOf = (): number => {
    const symbol = scanner.symbol(typeNames);
    if (symbol !== lastType) {
      lastType = symbol;
      lastTypeComponents = TYPES.findIndex((type) => typeNames.is(symbol, type)) + 1;
      if (lastTypeComponents === 0) declined();
    }
    return lastTypeComponents;
  };

  const attributeTails = new Tails();
  const attributeView = (): void => {
    let tailAt = 0;
    let buffer = -1,
      offset = -1,
      stride = -1,
      type = -1,
      count = -1,
      components = 0,
      offsets = 0,
      scales = 0,
      offsetNumbers = -1,
      scaleNumbers = -1;
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(ATTRIBUTE_VIEW, key + 1, nth)) !== END; ++nth) {
      switch (key) {
        case 0:
          buffer = scanner.symbol(bufferNames);
          if (nth === 0) {
            tailAt = scanner.at;
            const row = attributeTails.repeated(scanner);
            if (row < 0) break;
            attributeBufferName.push(buffer);
            attributeOffset.push(attributeOffset.at(row));
            attributeStride.push(attributeStride.at(row));
            attributeType.push(attributeType.at(row));
            attributeCount.push(attributeCount.at(row));
            attributeComponents.push(attributeComponents.at(row));
            decodeOffsetAt.push(decodeOffsetAt.at(row));
            decodeScaleAt.push(decodeScaleAt.at(row));
            return;
          }
          break;
        case 1:
          offset = scanner.count();
          break;
        case 2:
          stride = scanner.count();
          break;
        case 3:
          type = scanner.count();
          break;
        case 4:
          count = scanner.count();
          break;
        case 5: {
          scanner.numbers();
          const { list } = scanner;
          offsetNumbers = list.length;
          offsets = list.zeros === list.length ? 0 : list.at;
          break;
        }
        case 6: {
          scanner.numbers();
          const { list } = scanner;
          scaleNumbers = list.length;
          if (list.zeros + list.oddZeros > 0) declined();
          scales = list.ones === list.length ? 0 : list.at;
          break;
        }
        case 7:
          components = typeOf();
          break;
        default:
          scanner.skip(4);
      }
    }
    if (buffer < 0 || offset < 0 || stride < 0 || count < 0 || components === 0) declined();
    if (type < BYTE || type > FLOAT) declined();
    if (offsetNumbers >= 0 && offsetNumbers !== components) declined();
    if (scaleNumbers >= 0 && scaleNumbers !== components) declined();
    if (stride === 0) stride = components * componentSize(type);
    const size = type === UNSIGNED_INT && stride < components * 4 ? 3 : componentSize(type);
    if (stride < components * size) declined();
    if (tailAt > 0) attributeTails.add(tailAt, scanner.at, attributeBufferName.length);
    attributeBufferName.push(buffer);
    attributeOffset.push(offset);
    attributeStride.push(stride);
    attributeType.push(type);
    attributeCount.push(count);
    attributeComponents.push(components);
    decodeOffsetAt.push(offsets);
    decodeScaleAt.push(scales);
  };

  const indexView = (): void => {
    let buffer = -1,
      offset = -1,
      type = -1,
      count = -1;
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(INDEX_VIEW, key + 1, nth)) !== END; ++nth) {
      if (key === 0) buffer = scanner.symbol(bufferNames);
      else if (key === 1) offset = scanner.count();
      else if (key === 2) type = scanner.count();
      else if (key === 3) count = scanner.count();
      else scanner.skip(4);
    }
    if (buffer < 0 || offset < 0 || count < 0) declined();
    if (type !== UNSIGNED_SHORT && type !== UNSIGNED_INT && type !== UNSIGNED_BYTE) declined();
    indexBufferName.push(buffer);
    indexOffset.push(offset);
    indexType.push(type);
    indexCount.push(count);
  };

  const chunk = (): void => {
    let length = -1,
      offset = -1;
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(CHUNK, key + 1, nth)) !== END; ++nth) {
      if (key === 0) length = scanner.count();
      else if (key === 1) offset = scanner.count();
      else scanner.skip(3);
    }
    if (length < 0 || offset < 0) declined();
    chunkLength.push(length);
    chunkOffset.push(offset);
  };

  const bufferView = (): void => {
    let length = -1,
      named = false;
    viewFirst.push(viewChunkName.length);
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(BUFFER_VIEW, key + 1, nth)) !== END; ++nth) {
      if (key === 0) {
        length = scanner.count();
      } else if (key === 1) {
        if (named) declined();
        named = true;
        scanner.names(chunkNames, viewChunkName);
      } else {
        scanner.skip(3);
      }
    }
    if (length < 0 || !named || viewChunkName.length > limits.entries) declined();
    viewLength.push(length);
  };

  const valueTails = new Tails();
  const material = (): void => {
    let technique = -1,
      values = -1;
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(MATERIAL, key + 1, nth)) !== END; ++nth) {
      if (key !== 0) {
        scanner.skip(3);
        continue;
      }
      technique = values = -1;
      scanner.open();
      for (let i = 0, inner = -1; (inner = scanner.key(INSTANCE, inner + 1, i)) !== END; ++i) {
        if (inner === 0) {
          technique = scanner.symbol(techniqueNames);
        } else if (inner === 1) {
          if (!scanner.atObject) declined();
          values = valueTails.repeated(scanner);
          if (values >= 0) continue;
          const from = scanner.at;
          scanner.skip(4);
          values = valueTexts.other(from, scanner.at);
          valueTails.add(from, scanner.at, values);
        } else {
          scanner.skip(4);
        }
      }
    }
    materialTechnique.push(technique);
    materialValues.push(values);
  };

  const mesh = (): void => {
    let hasAttributes = false,
      center = 0,
      size = 0,
      indices = -1,
      material = -1,
      primitive = -1,
      meta = 0,
      metaEnd = 0,
      title = 0,
      titleTo = 0,
      fit = 0,
      fitTo = 0,
      hasTriangles = false,
      hasPoints = false,
      hasLines = false;
    meshFirst.push(useName.length);
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(MESH, key + 1, nth)) !== END; ++nth) {
      switch (key) {
        case 0: {
          if (hasAttributes) declined();
          hasAttributes = true;
          scanner.open();
          const first = useName.length;
          for (let i = 0; scanner.entry(i); ++i) {
            const name = plainId(semantics);
            for (let k = first; k < useName.length; ++k) if (useName.at(k) === name) declined();
            if (useName.length - first > 64) declined(); // the comparisons above
            useName.push(name);
            useViewName.push(scanner.symbol(attributeNames));
          }
          if (useName.length > limits.entries) declined();
          break;
        }
        case 1:
        case 2:
          scanner.numbers();
          if (scanner.list.length !== 3) declined();
          if (key === 1) center = scanner.list.at;
          else size = scanner.list.at;
          break;
        case 3:
          indices = scanner.symbol(indexNames);
          break;
        case 4:
          material = scanner.symbol(materialNames);
          break;
        case 5: {
          if (meta !== 0) declined();
          if (!scanner.atObject) {
            if (!scanner.atText) declined();
            meta = scanner.at;
            scanner.skipText();
            metaEnd = scanner.at;
            break;
          }
          meta = scanner.at;
          scanner.open();
          for (let i = 0, inner = -1; (inner = scanner.key(METADATA, inner + 1, i)) !== END; ++i) {
            const isNumber = scanner.atNumber,
              isText = scanner.atText;
            const from = scanner.at;
            scanner.skip(4);
            if (inner === 0) {
              fit = from;
              fitTo = scanner.at;
            } else if (inner === 1) {
              title = isText ? from : 0;
              titleTo = scanner.at;
            } else if (inner === 2) {
              hasLines = isNumber;
            } else if (inner === 3) {
              hasPoints = isNumber;
            } else if (inner === 4) {
              hasTriangles = true;
            }
          }
          metaEnd = scanner.at;
          break;
        }
        case 6:
          primitive = scanner.count();
          break;
        default:
          scanner.skip(3);
      }
    }
    if (!hasAttributes || primitive < 0 || primitive > TRIANGLE_FAN) declined();
    let drawnAs = primitive;
    if (primitive === TRIANGLES && !hasTriangles) drawnAs = hasPoints ? POINTS : hasLines ? LINES : primitive;
    meshPrimitive.push(primitive);
    meshDrawnAs.push(drawnAs);
    meshIndexName.push(indices >= 0 && indexNames.isEmpty(indices) ? -1 : indices);
    meshMaterialName.push(material >= 0 && materialNames.isEmpty(material) ? -1 : material);
    centerAt.push(size ? center : 0);
    sizeAt.push(center ? size : 0);
    metadataAt.push(meta);
    metadataEnd.push(metaEnd);
    titleAt.push(title);
    titleEnd.push(titleTo);
    fitAt.push(fit);
    fitEnd.push(fitTo);
  };

  function* arrival(): Generator<void, void> {
    while (scanner.at > there.safe) {
      there.isHungry = true;
      yield;
    }
    there.isHungry = false;
  }
  function* section(ids: Integers, names: Names, read: () => void): Generator<void, void> {
    scanner.open();
    for (let n = 0; ; ++n) {
      if (scanner.at > there.safe) yield* arrival();
      if (n % ENTRIES_PER_STEP === ENTRIES_PER_STEP - 1) yield;
      if (!scanner.entry(n)) return;
      if (n >= limits.entries) declined();
      ids.push(names === meshNames ? scanner.id(names) : plainId(names));
      read();
    }
  }

  const seen = new Uint8Array(ROOT.names.length);
  let hasAttributeViews = false,
    hasIndexViews = false;
  let metadata: [number, number] = [0, 0],
    techniques: [number, number] = [0, 0];
  yield* arrival();
  scanner.open();
  for (let nth = 0, key = -1; (key = scanner.key(ROOT, key + 1, nth)) !== END; ++nth) {
    yield* arrival();
    if (key >= 0 && seen[key]++) declined();
    switch (key) {
      case 0:
        scanner.open();
        for (let i = 0, kind = -1; (kind = scanner.key(ACCESSORS, kind + 1, i)) !== END; ++i) {
          if (kind === 0) {
            if (hasAttributeViews) declined();
            hasAttributeViews = true;
            yield* section(attributeName, attributeNames, attributeView);
          } else if (kind === 1) {
            if (hasIndexViews) declined();
            hasIndexViews = true;
            yield* section(indexName, indexNames, indexView);
          } else {
            scanner.skip(2);
          }
        }
        break;
      case 1:
        yield* section(chunkName, chunkNames, chunk);
        break;
      case 2:
        yield* section(viewName, bufferNames, bufferView);
        break;
      case 3:
        yield* section(materialName, materialNames, material);
        break;
      case 4:
        yield* section(meshName, meshNames, mesh);
        break;
      case 5:
        if (!scanner.atObject && !scanner.atText) declined();
        metadata = [scanner.at, 0];
        scanner.skip(1);
        metadata[1] = scanner.at;
        break;
      case 6:
        if (!scanner.atObject) declined();
        techniques = [scanner.at, 0];
        scanner.skip(1);
        techniques[1] = scanner.at;
        break;
      case 7:
      case 8:
        if (!scanner.atObject) declined();
        scanner.skip(1);
        break;
      default:
        scanner.skip(1);
    }
  }
  there.isHungry = false;
  scanner.finish();
  if (!seen[0] || !seen[1] || !seen[2] || !seen[4] || !hasAttributeViews || !hasIndexViews) declined();
  if (!scanner.isAscii) checkUtf8(bytes);
  const text = new HeaderText(bytes, scanner.isAscii);
  if (techniques[1] > 0) checkTechniques(text.value(...techniques), limits);

  // ---- What the entries say about each other.

  const rowsOf = (ids: Integers, names: Names): Int32Array => {
    const rows = new Int32Array(names.length).fill(-1);
    for (let row = 0; row < ids.length; ++row) {
      if (rows[ids.at(row)]! >= 0) declined(); // the ID again
      rows[ids.at(row)] = row;
    }
    return rows;
  };
  /** Names replaced by rows; -1 stays. */
  const resolved = (names: Integers, rows: Int32Array, mayDangle: boolean): Int32Array => {
    const result = names.taken();
    for (let i = 0; i < result.length; ++i) {
      if (result[i]! < 0) continue;
      result[i] = rows[result[i]!]!;
      if (result[i]! < 0 && !mayDangle) declined();
    }
    return result;
  };

  viewFirst.push(viewChunkName.length);
  const lengths = chunkLength.taken(),
    offsets = chunkOffset.taken(),
    firsts = viewFirst.taken();
  const viewChunks = resolved(viewChunkName, rowsOf(chunkName, chunkNames), false);
  const viewLengths = viewLength.taken();
  const viewStored = new Float64Array(viewName.length),
    viewOffset = new Float64Array(viewName.length);
  for (let view = 0; view < viewName.length; ++view) {
    let stored = 0,
      end = -1,
      start = 0;
    const first = firsts[view]!;
    for (let i = first; i < firsts[view + 1]!; ++i) {
      const chunk = viewChunks[i]!;
      const at = offsets[chunk]!;
      stored += lengths[chunk]!;
      if (i === first) start = at;
      else if (at !== end) start = -1;
      end = at + lengths[chunk]!;
    }
    viewStored[view] = Math.min(stored, viewLengths[view]!);
    viewOffset[view] = start;
  }

  yield;
  const viewRows = rowsOf(viewName, bufferNames);
  const indexBuffer = resolved(indexBufferName, viewRows, false);
  const attributeBuffer = resolved(attributeBufferName, viewRows, false);
  // As in the tree's reader: rounding of large sums and products lets nothing through.
  const isInside = (stored: number, offset: number, count: number, stride: number, element: number): boolean => {
    const room = stored - offset;
    return room >= 0 && (count === 0 || (element <= room && (count - 1) * stride <= room - element));
  };
  for (let row = 0; row < indexName.length; ++row) {
    const size = componentSize(indexType.at(row));
    const stored = viewStored[indexBuffer[row]!]!;
    if (!isInside(stored, indexOffset.at(row), indexCount.at(row), size, size)) declined();
  }
  for (let row = 0; row < attributeName.length; ++row) {
    const components = attributeComponents.at(row),
      type = attributeType.at(row),
      stride = attributeStride.at(row);
    const size = type === UNSIGNED_INT && stride < components * 4 ? 3 : componentSize(type);
    const stored = viewStored[attributeBuffer[row]!]!;
    if (!isInside(stored, attributeOffset.at(row), attributeCount.at(row), stride, components * size)) declined();
  }

  yield;
  meshFirst.push(useName.length);
  const attributeRows = rowsOf(attributeName, attributeNames);
  const uses = meshFirst.taken();
  const useView = resolved(useViewName, attributeRows, false);
  const meshIndices = resolved(meshIndexName, rowsOf(indexName, indexNames), false);
  const meshMaterial = resolved(meshMaterialName, rowsOf(materialName, materialNames), true);
  rowsOf(meshName, meshNames);
  const order = writingOrder(bytes, meshName, meshNames);

  yield;
  // Who comes first owns a view; then each mesh keeps what is its own.
  const owner = new Int32Array(attributeName.length).fill(-1);
  const ownFirst = new Int32Array(meshName.length + 1);
  const ownName = new Integers(),
    ownView = new Integers();
  const meshLayoutFirst = new Int32Array(meshName.length + 1);
  const meshViews = new Integers();
  let positionSymbol = -2,
    combinedSymbol = -2;
  for (let symbol = 0; symbol < semantics.length; ++symbol) {
    if (semantics.is(symbol, POSITION)) positionSymbol = symbol;
    if (semantics.is(symbol, COMBINED_NAME)) combinedSymbol = symbol;
  }
  for (let index = 0; index < order.length; ++index) {
    const row = order[index]!;
    let position = -1;
    for (let i = uses[row]!; i < uses[row + 1]!; ++i) {
      const view = useView[i]!;
      if (owner[view]! < 0) owner[view] = index;
      const name = useName.at(i);
      if (name === positionSymbol) {
        position = view;
      } else if (
        name === combinedSymbol &&
        position < 0 &&
        attributeType.at(view) === UNSIGNED_SHORT &&
        attributeComponents.at(view) === 4
      ) {
        position = view;
      }
    }
    const indices = meshIndices[row]!;
    if (indices >= 0) meshViews.push(indexBuffer[indices]!);
    const by = position < 0 ? index : owner[position]!;
    for (let i = uses[row]!; i < uses[row + 1]!; ++i) {
      const view = useView[i]!;
      if (owner[view] !== by || (position >= 0 && attributeCount.at(view) !== attributeCount.at(position))) continue;
      ownName.push(useName.at(i));
      ownView.push(view);
      meshViews.push(attributeBuffer[view]!);
    }
    ownFirst[index + 1] = ownName.length;
    meshLayoutFirst[index + 1] = meshViews.length;
  }

  yield;
  return {
    text,
    layout: {
      chunkOffset: offsets,
      chunkLength: lengths,
      viewFirst: firsts,
      viewChunks,
      viewStored,
      viewOffset,
      meshFirst: meshLayoutFirst,
      meshViews: meshViews.taken(),
    },
    chunkId: placesOf(chunkName, chunkNames),
    viewId: placesOf(viewName, bufferNames),
    viewLength: viewLengths,
    indexId: placesOf(indexName, indexNames),
    indexBuffer,
    indexOffset: indexOffset.taken(),
    indexType: indexType.taken(),
    indexCount: indexCount.taken(),
    attributeId: placesOf(attributeName, attributeNames),
    attributeBuffer,
    attributeOffset: attributeOffset.taken(),
    attributeStride: attributeStride.taken(),
    attributeType: attributeType.taken(),
    attributeComponents: attributeComponents.taken(),
    attributeCount: attributeCount.taken(),
    decodeOffsetAt: decodeOffsetAt.taken(),
    decodeScaleAt: decodeScaleAt.taken(),
    attributeOwner: owner,
    meshId: placesOf(meshName, meshNames),
    meshPrimitive: meshPrimitive.taken(),
    meshDrawnAs: meshDrawnAs.taken(),
    meshIndices,
    meshMaterial,
    centerAt: centerAt.taken(),
    sizeAt: sizeAt.taken(),
    metadataAt: metadataAt.taken(),
    metadataEnd: metadataEnd.taken(),
    titleAt: titleAt.taken(),
    titleEnd: titleEnd.taken(),
    fitAt: fitAt.taken(),
    fitEnd: fitEnd.taken(),
    ownFirst,
    ownName: ownName.taken(),
    ownView: ownView.taken(),
    order,
    materialId: placesOf(materialName, materialNames),
    materialValues: materialValues.taken(),
    materialTechnique: materialTechnique.taken(),
    metadata,
    techniques,
    semanticNames: textsOf(semantics, text),
    techniqueNames: textsOf(techniqueNames, text),
    valuesAt: valueTexts.starts.taken(),
    valuesEnd: valueTexts.ends.taken(),
  };
}

/** Where the texts of IDs begin. */
function placesOf(symbols: Integers, names: Names): Int32Array {
  const places = symbols.taken();
  for (let row = 0; row < places.length; ++row) places[row] = names.starts.at(places[row]!);
  return places;
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
