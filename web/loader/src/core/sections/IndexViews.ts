import { Doubles, Integers } from '../columns.js';
import { UNSIGNED_BYTE, UNSIGNED_INT, UNSIGNED_SHORT } from '../model.js';
import { declined } from '../names.js';
import { END, Keys, type Scanner } from '../scanner.js';
import type { BufferViews } from './BufferViews.js';
import { Ids } from './Ids.js';

const INDEX_VIEW = new Keys('bufferView', 'byteOffset', 'componentType', 'count');

/** "indexViews" of the "accessors". */
export class IndexViews {
  readonly ids: Ids;
  readonly bufferName = new Integers();
  readonly byteOffset = new Doubles();
  readonly componentType = new Integers();
  readonly count = new Doubles();

  constructor(
    private readonly scanner: Scanner,
    private readonly buffers: BufferViews,
  ) {
    this.ids = new Ids(scanner.text);
  }

  /** Reads one entry. */
  read(): void {
    const { scanner } = this;
    this.ids.read(scanner);
    let buffer = -1,
      offset = -1,
      type = -1,
      count = -1;
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(INDEX_VIEW, key + 1, nth)) !== END; ++nth) {
      if (key === 0) buffer = scanner.symbol(this.buffers.ids.names);
      else if (key === 1) offset = scanner.count();
      else if (key === 2) type = scanner.count();
      else if (key === 3) count = scanner.count();
      else scanner.skip(4);
    }
    if (buffer < 0 || offset < 0 || count < 0) declined();
    if (type !== UNSIGNED_SHORT && type !== UNSIGNED_INT && type !== UNSIGNED_BYTE) declined();
    this.bufferName.push(buffer);
    this.byteOffset.push(offset);
    this.componentType.push(type);
    this.count.push(count);
  }
}
