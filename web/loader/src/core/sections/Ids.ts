import { Integers } from '../columns.js';
import { declined, Names } from '../names.js';
import type { Scanner } from '../scanner.js';

/** The IDs of a section, in a column; `names` numbers them, together with what refers to them elsewhere. */
export class Ids {
  readonly names: Names;
  readonly symbols = new Integers();

  constructor(text: Uint8Array) {
    this.names = new Names(text);
  }

  get length(): number {
    return this.symbols.length;
  }

  /** The ID of the next entry. */
  read(scanner: Scanner): void {
    this.symbols.push(plainId(scanner, this.names));
  }

  /** The same for entries whose order is not that of an object's keys. */
  readInAnyOrder(scanner: Scanner): void {
    this.symbols.push(scanner.id(this.names));
  }

  /** The row of each name, -1 for names without an entry. */
  rows(): Int32Array {
    const { symbols } = this;
    const rows = new Int32Array(this.names.length).fill(-1);
    for (let row = 0; row < symbols.length; ++row) {
      if (rows[symbols.at(row)]! >= 0) declined(); // the ID again
      rows[symbols.at(row)] = row;
    }
    return rows;
  }

  /** Where the texts begin. */
  places(): Int32Array {
    const { starts } = this.names;
    const places = this.symbols.taken();
    for (let row = 0; row < places.length; ++row) places[row] = starts.at(places[row]!);
    return places;
  }
}

/** The symbol of a key that has its place in the order in which it is written. */
export function plainId(scanner: Scanner, names: Names): number {
  const symbol = scanner.id(names);
  const first = scanner.text[names.starts.at(symbol)]!;
  if (first >= 0x30 && first <= 0x39 && names.looksLikePlace(symbol)) declined();
  return symbol;
}
