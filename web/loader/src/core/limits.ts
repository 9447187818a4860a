import { SrcError } from './SrcError.js';

/**
 * What a caller is willing to accept. Everything above a limit is refused with LIMIT_EXCEEDED before memory is
 * taken for it.
 */
export interface ReadLimits {
  /** Length of the JSON header. */
  headerBytes: number;
  /** Bytes of the data section that are copied: all of them in a stream, the unaligned ones in a block. */
  memoryBytes: number;
  /** Entries of each section of the header. */
  entries: number;
  /** Characters of one ID or attribute name. */
  stringLength: number;
  /** Nesting of objects and lists in the header. Writers let metadata nest up to 100 deep. */
  depth: number;
}

export const DEFAULT_LIMITS: Readonly<ReadLimits> = {
  headerBytes: 512 * 2 ** 20,
  memoryBytes: 4 * 2 ** 30,
  entries: 16 * 2 ** 20,
  stringLength: 64 * 2 ** 10,
  depth: 128,
};

export function limitsFrom(limits: Partial<ReadLimits> | undefined): ReadLimits {
  return { ...DEFAULT_LIMITS, ...limits };
}

export function exceeds(name: keyof ReadLimits, found: number, limit: number, place: object = {}): SrcError {
  return new SrcError('LIMIT_EXCEEDED', { ...place, detail: `${found}, and ${name} allows ${limit}` });
}
