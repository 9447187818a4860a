import { Integers } from '../columns.js';
import { declined, Names } from '../names.js';
import { END, Keys, type Scanner, Tails } from '../scanner.js';
import { Ids } from './Ids.js';

const MATERIAL = new Keys('instanceTechnique');
const INSTANCE = new Keys('technique', 'values');

/** "materials". */
export class Materials {
  readonly ids: Ids;
  /** -1 for none. */
  readonly technique = new Integers();
  readonly values = new Integers();

  readonly techniqueNames: Names;
  /** The different texts of "values". */
  readonly valueTexts: Names;
  private readonly tails = new Tails();

  constructor(private readonly scanner: Scanner) {
    this.ids = new Ids(scanner.text);
    this.techniqueNames = new Names(scanner.text);
    this.valueTexts = new Names(scanner.text);
  }

  /** Reads one entry. */
  read(): void {
    const { scanner, technique, values } = this;
    this.ids.read(scanner);
    const row = technique.length;
    technique.push(-1);
    values.push(-1);
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(MATERIAL, key + 1, nth)) !== END; ++nth) {
      if (key === 0) this.readInstance(row);
      else scanner.skip(3);
    }
  }

  private readInstance(row: number): void {
    const { scanner, technique, values } = this;
    technique.set(row, -1); // a key that comes again replaces what was there
    values.set(row, -1);
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(INSTANCE, key + 1, nth)) !== END; ++nth) {
      if (key === 0) technique.set(row, scanner.symbol(this.techniqueNames));
      else if (key === 1) values.set(row, this.readValues());
      else scanner.skip(4);
    }
  }

  private readValues(): number {
    const { scanner } = this;
    if (!scanner.atObject) declined();
    const known = this.tails.repeated(scanner);
    if (known >= 0) return known;
    const from = scanner.at;
    scanner.skip(4);
    const values = this.valueTexts.other(from, scanner.at);
    this.tails.add(from, scanner.at, values);
    return values;
  }
}
