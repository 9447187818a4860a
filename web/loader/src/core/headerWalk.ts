import { declined } from './names.js';
import { END, Keys, type Scanner } from './scanner.js';
import type { HeaderSections, Piece, Section } from './sections/HeaderSections.js';

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

/** A walk pauses after so many: some tenths of a millisecond. */
const ENTRIES_PER_STEP = 512;

/** How far the text is there; a walk pauses before it goes on behind `safe`. */
export interface There {
  safe: number;
  isHungry: boolean;
}

/** The walk over a header from its first brace to its end, which reads the sections in the order they come in. */
export class HeaderWalk {
  constructor(
    private readonly scanner: Scanner,
    private readonly sections: HeaderSections,
    private readonly maxEntries: number,
    private readonly there: There,
  ) {}

  *root(): Generator<void, void> {
    const { scanner, sections } = this;
    const seen = new Uint8Array(ROOT.names.length);
    let hasViews = false;
    yield* this.arrival();
    scanner.open();
    for (let nth = 0, key = -1; (key = scanner.key(ROOT, key + 1, nth)) !== END; ++nth) {
      yield* this.arrival();
      if (key >= 0 && seen[key]++) declined();
      switch (key) {
        case 0:
          hasViews = yield* this.accessors();
          break;
        case 1:
          yield* this.entries(sections.chunks);
          break;
        case 2:
          yield* this.entries(sections.bufferViews);
          break;
        case 3:
          yield* this.entries(sections.materials);
          break;
        case 4:
          yield* this.entries(sections.meshes);
          break;
        case 5:
          if (!scanner.atObject && !scanner.atText) declined();
          sections.metadata = this.piece();
          break;
        case 6:
          if (!scanner.atObject) declined();
          sections.techniques = this.piece();
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
    this.there.isHungry = false;
    scanner.finish();
    if (!seen[0] || !seen[1] || !seen[2] || !seen[4] || !hasViews) declined();
  }

  /** True when both kinds of views are there. */
  private *accessors(): Generator<void, boolean> {
    const { scanner, sections } = this;
    const seen = new Uint8Array(ACCESSORS.names.length);
    scanner.open();
    for (let nth = 0, kind = -1; (kind = scanner.key(ACCESSORS, kind + 1, nth)) !== END; ++nth) {
      if (kind >= 0 && seen[kind]++) declined();
      if (kind === 0) yield* this.entries(sections.attributeViews);
      else if (kind === 1) yield* this.entries(sections.indexViews);
      else scanner.skip(2);
    }
    return seen[0] === 1 && seen[1] === 1;
  }

  private *entries(section: Section): Generator<void, void> {
    const { scanner, there, maxEntries } = this;
    scanner.open();
    for (let nth = 0; ; ++nth) {
      if (scanner.at > there.safe) yield* this.arrival();
      if (nth % ENTRIES_PER_STEP === ENTRIES_PER_STEP - 1) yield;
      if (!scanner.entry(nth)) return;
      if (nth >= maxEntries) declined();
      section.read();
    }
  }

  /** Pauses until what comes next is there. */
  private *arrival(): Generator<void, void> {
    const { scanner, there } = this;
    while (scanner.at > there.safe) {
      there.isHungry = true;
      yield;
    }
    there.isHungry = false;
  }

  /** A value of the root that is looked at later, if ever. */
  private piece(): Piece {
    const from = this.scanner.at;
    this.scanner.skip(1);
    return [from, this.scanner.at];
  }
}
