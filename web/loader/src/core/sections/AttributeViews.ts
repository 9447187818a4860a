import { Doubles, Integers } from '../columns.js';
import { BYTE, componentSize, FLOAT, UNSIGNED_INT } from '../model.js';
import { declined, Names } from '../names.js';
import { END, Keys, type Scanner, Tails } from '../scanner.js';
import type { BufferViews } from './BufferViews.js';
import { Ids } from './Ids.js';

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

const encoder = new TextEncoder();
const TYPES = ['SCALAR', 'VEC2', 'VEC3', 'VEC4'].map((type) => encoder.encode(type));

/** What an entry has said so far; -1, and 0 components, for what it has not. */
class Entry {
  offset = -1;
  stride = -1;
  type = -1;
  count = -1;
  components = 0;
  decodeOffsetAt = 0;
  decodeScaleAt = 0;
  /** The lengths of the two lists. */
  offsets = -1;
  scales = -1;

  constructor(public buffer: number) {}
}

/** "attributeViews" of the "accessors". */
export class AttributeViews {
  readonly ids: Ids;
  readonly bufferName = new Integers();
  readonly byteOffset = new Doubles();
  readonly byteStride = new Doubles();
  readonly componentType = new Integers();
  readonly components = new Integers();
  readonly count = new Doubles();
  /** Places of the lists of numbers; 0 for lists that are absent or change nothing. */
  readonly decodeOffsetAt = new Integers();
  readonly decodeScaleAt = new Integers();

  /** What followed the first key of earlier entries, and their rows. */
  private readonly tails = new Tails();

  private readonly typeNames: Names;
  private lastType = -1;
  private lastComponents = 0;

  constructor(
    private readonly scanner: Scanner,
    private readonly buffers: BufferViews,
  ) {
    this.ids = new Ids(scanner.text);
    this.typeNames = new Names(scanner.text);
  }

  /** Reads one entry. */
  read(): void {
    const { scanner } = this;
    this.ids.read(scanner);
    scanner.open();
    let nth = 0,
      buffer = -1,
      tailAt = 0;
    let key = scanner.key(ATTRIBUTE_VIEW, 0, nth);
    if (key === 0) {
      buffer = scanner.symbol(this.buffers.ids.names);
      tailAt = scanner.at;
      const row = this.tails.repeated(scanner);
      if (row >= 0) {
        this.addLike(row, buffer);
        return;
      }
      key = scanner.key(ATTRIBUTE_VIEW, 1, ++nth);
    }
    const entry = new Entry(buffer);
    for (; key !== END; key = scanner.key(ATTRIBUTE_VIEW, key + 1, ++nth)) this.readValue(key, entry);
    if (tailAt > 0) this.tails.add(tailAt, scanner.at, this.bufferName.length);
    this.add(entry);
  }

  private readValue(key: number, entry: Entry): void {
    const { scanner } = this;
    switch (key) {
      case 0:
        // The tail of such an entry says more than what tails are compared for.
        if (entry.buffer >= 0) declined();
        entry.buffer = scanner.symbol(this.buffers.ids.names);
        break;
      case 1:
        entry.offset = scanner.count();
        break;
      case 2:
        entry.stride = scanner.count();
        break;
      case 3:
        entry.type = scanner.count();
        break;
      case 4:
        entry.count = scanner.count();
        break;
      case 5: {
        scanner.numbers();
        const { at, length, zeros } = scanner.list;
        entry.offsets = length;
        entry.decodeOffsetAt = zeros === length ? 0 : at;
        break;
      }
      case 6: {
        scanner.numbers();
        const { at, length, zeros, ones, oddZeros } = scanner.list;
        if (zeros + oddZeros > 0) declined();
        entry.scales = length;
        entry.decodeScaleAt = ones === length ? 0 : at;
        break;
      }
      case 7:
        entry.components = this.readComponents();
        break;
      default:
        scanner.skip(4);
    }
  }

  /** How many components a "type" has. It is one of four short texts, not worth a look at each time. */
  private readComponents(): number {
    const symbol = this.scanner.symbol(this.typeNames);
    if (symbol !== this.lastType) {
      this.lastType = symbol;
      this.lastComponents = TYPES.findIndex((type) => this.typeNames.is(symbol, type)) + 1;
      if (this.lastComponents === 0) declined();
    }
    return this.lastComponents;
  }

  private add(entry: Entry): void {
    const { buffer, offset, type, count, components, offsets, scales } = entry;
    if (buffer < 0 || offset < 0 || entry.stride < 0 || count < 0 || components === 0) declined();
    if (type < BYTE || type > FLOAT) declined();
    if (offsets >= 0 && offsets !== components) declined();
    if (scales >= 0 && scales !== components) declined();
    const stride = entry.stride === 0 ? components * componentSize(type) : entry.stride;
    if (stride < elementSize(type, components, stride)) declined();
    this.bufferName.push(buffer);
    this.byteOffset.push(offset);
    this.byteStride.push(stride);
    this.componentType.push(type);
    this.components.push(components);
    this.count.push(count);
    this.decodeOffsetAt.push(entry.decodeOffsetAt);
    this.decodeScaleAt.push(entry.decodeScaleAt);
  }

  /** Adds what the entry in `row` says, of another buffer view. */
  private addLike(row: number, buffer: number): void {
    const { byteOffset, byteStride, componentType, components, count, decodeOffsetAt, decodeScaleAt } = this;
    this.bufferName.push(buffer);
    byteOffset.push(byteOffset.at(row));
    byteStride.push(byteStride.at(row));
    componentType.push(componentType.at(row));
    components.push(components.at(row));
    count.push(count.at(row));
    decodeOffsetAt.push(decodeOffsetAt.at(row));
    decodeScaleAt.push(decodeScaleAt.at(row));
  }
}

/** The bytes of one element: whole numbers of three bytes are known by a stride that has no room for four. */
export function elementSize(type: number, components: number, stride: number): number {
  return components * (type === UNSIGNED_INT && stride < components * 4 ? 3 : componentSize(type));
}
