import { SRC_CODES, type SrcCode } from './codes.js';

export interface SrcErrorPlace {
  /** Position in the file, from its first byte. */
  byteOffset?: number;
  /** Place in the header as a JSON pointer, e.g. "/meshes/0/indices". */
  path?: string;
  /** What was found there, e.g. "12 of 8 bytes". */
  detail?: string;
  /** The address or name of the file. */
  file?: string;
  /** What to do about it, where that is known better than by the code. */
  remedy?: string;
  cause?: unknown;
}

/** A file that cannot be read, or not be trusted. `message` says all of it in one sentence or two. */
export class SrcError extends Error {
  readonly code: SrcCode;
  readonly byteOffset: number | null;
  readonly path: string;
  readonly detail: string;
  readonly file: string;
  readonly remedy: string;

  constructor(code: SrcCode, place: SrcErrorPlace = {}) {
    const { sentence } = SRC_CODES[code];
    const remedy = place.remedy ?? SRC_CODES[code].remedy;
    let where = place.file ?? '';
    if (place.byteOffset !== undefined) where += `${where ? ', ' : ''}byte ${place.byteOffset}`;
    if (place.path) where += `${where ? ', ' : ''}${place.path}`;
    const found = place.detail ? ` (${place.detail})` : '';
    super(`${where}${where ? ': ' : ''}${sentence.slice(0, -1)}${found}. ${remedy}`, { cause: place.cause });
    this.name = 'SrcError';
    this.code = code;
    this.byteOffset = place.byteOffset ?? null;
    this.path = place.path ?? '';
    this.detail = place.detail ?? '';
    this.file = place.file ?? '';
    this.remedy = remedy;
  }

  /** The same error with the file's name in its message. */
  in(file: string): SrcError {
    if (this.file) return this;
    const error = new SrcError(this.code, {
      ...(this.byteOffset !== null && { byteOffset: this.byteOffset }),
      path: this.path,
      detail: this.detail,
      file,
      remedy: this.remedy,
      cause: this.cause,
    });
    error.stack = this.stack;
    return error;
  }
}
