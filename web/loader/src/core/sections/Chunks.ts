import { Doubles } from '../columns.js';
import { declined } from '../names.js';
import { END, Keys, type Scanner } from '../scanner.js';
import { Ids } from './Ids.js';

const CHUNK = new Keys('byteLength', 'byteOffset');

/** "bufferChunks". */
export class Chunks {
  readonly ids: Ids;
  readonly byteOffset = new Doubles();
  readonly byteLength = new Doubles();

  constructor(private readonly scanner: Scanner) {
    this.ids = new Ids(scanner.text);
  }

  /** Reads one entry. */
  read(): void {
    const { scanner } = this;
    this.ids.read(scanner);
    let length = -1,
      offset = -1;
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(CHUNK, key + 1, nth)) !== END; ++nth) {
      if (key === 0) length = scanner.count();
      else if (key === 1) offset = scanner.count();
      else scanner.skip(3);
    }
    if (length < 0 || offset < 0) declined();
    this.byteLength.push(length);
    this.byteOffset.push(offset);
  }
}
