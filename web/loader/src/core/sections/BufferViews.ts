import { Doubles, Integers } from '../columns.js';
import { declined } from '../names.js';
import { END, Keys, type Scanner } from '../scanner.js';
import type { Chunks } from './Chunks.js';
import { Ids } from './Ids.js';

const BUFFER_VIEW = new Keys('byteLength', 'chunks');

/** "bufferViews". */
export class BufferViews {
  readonly ids: Ids;
  readonly byteLength = new Doubles();
  /** The chunks of the view in row i are those from first[i] to first[i + 1]. */
  readonly first = new Integers();
  readonly chunkName = new Integers();

  constructor(
    private readonly scanner: Scanner,
    private readonly chunks: Chunks,
    private readonly maxEntries: number,
  ) {
    this.ids = new Ids(scanner.text);
    this.first.push(0);
  }

  /** Reads one entry. */
  read(): void {
    const { scanner, chunkName } = this;
    this.ids.read(scanner);
    let length = -1,
      named = false;
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(BUFFER_VIEW, key + 1, nth)) !== END; ++nth) {
      if (key === 0) {
        length = scanner.count();
      } else if (key === 1) {
        if (named) declined();
        named = true;
        scanner.names(this.chunks.ids.names, chunkName);
      } else {
        scanner.skip(3);
      }
    }
    if (length < 0 || !named || chunkName.length > this.maxEntries) declined();
    this.byteLength.push(length);
    this.first.push(chunkName.length);
  }
}
