import type { SrcCode } from './codes.js';
import { exceeds, type ReadLimits } from './limits.js';
import { SrcError } from './SrcError.js';

export type Path = readonly string[];

export const pointerOf = (path: Path) =>
  path.map((key) => '/' + key.replaceAll('~', '~0').replaceAll('/', '~1')).join('');

/** What is wrong with a header, before its place in the text is looked for. */
export class Fault {
  constructor(
    readonly code: SrcCode,
    readonly path: Path,
    readonly detail?: string,
  ) {}

  static limit(name: keyof ReadLimits, found: number, limits: ReadLimits, path: Path): Fault {
    return new Fault('LIMIT_EXCEEDED', path, exceeds(name, found, limits[name]).detail);
  }

  /** The same as an error; `textOffset` is the header's place in the file. */
  in(text: Uint8Array, textOffset: number): SrcError {
    const { code, path, detail } = this;
    const at = code === 'JSON_SYNTAX' ? Math.max(0, syntaxFault(text)) : placeOf(text, path);
    return new SrcError(code, { byteOffset: textOffset + at, path: pointerOf(path), detail });
  }
}

const QUOTE = 0x22,
  BACKSLASH = 0x5c;

/**
 * What no JSON text may have anywhere: bytes that are no UTF-8, control characters in a text, and a text without an end.
 * It is looked for first, like the reader in C++ does.
 */
export function textFault(text: Uint8Array): Fault | null {
  try {
    new TextDecoder('utf-8', { fatal: true, ignoreBOM: true }).decode(text);
  } catch {
    return new Fault('JSON_SYNTAX', [], 'it is not valid UTF-8');
  }
  let inText = false;
  for (let i = 0; i < text.length; ++i) {
    const c = text[i]!;
    if (c === QUOTE) inText = !inText;
    else if (inText && c === BACKSLASH) ++i;
    else if (inText && c < 0x20) return new Fault('JSON_SYNTAX', []);
  }
  return inText ? new Fault('JSON_SYNTAX', []) : null;
}

/**
 * Where a text stops being JSON: the first byte that cannot stand where it stands, or the text's length when it
 * ends too early. Browsers word this place in ways of their own, or not at all. A valid text gives -1.
 */
function syntaxFault(text: Uint8Array): number {
  const n = text.length;
  let i = 0;
  const closers: number[] = [];
  const space = () => {
    while (i < n && (text[i] === 0x20 || text[i] === 0x0a || text[i] === 0x0d || text[i] === 0x09)) ++i;
  };
  const digits = () => {
    const first = i;
    while (i < n && text[i]! >= 0x30 && text[i]! <= 0x39) ++i;
    return i > first;
  };
  const string = (): boolean => {
    if (text[i] !== QUOTE) return false;
    for (++i; i < n; ++i) {
      const c = text[i]!;
      if (c === QUOTE) {
        ++i;
        return true;
      }
      if (c < 0x20) return false;
      if (c === BACKSLASH) {
        if (++i >= n) return false;
        if (text[i] === 0x75) {
          for (let k = 0; k < 4; ++k) {
            const h = text[++i];
            if (h === undefined || !/[0-9a-fA-F]/.test(String.fromCharCode(h))) return false;
          }
        } else if (!'"\\/bfnrt'.includes(String.fromCharCode(text[i]!))) {
          return false;
        }
      }
    }
    return false;
  };
  const scalar = (): boolean => {
    if (text[i] === QUOTE) return string();
    for (const word of ['true', 'false', 'null']) {
      if (text[i] !== word.charCodeAt(0)) continue;
      for (let k = 0; k < word.length; ++k, ++i) if (text[i] !== word.charCodeAt(k)) return false;
      return true;
    }
    if (text[i] === 0x2d) ++i;
    if (text[i] === 0x30) ++i;
    else if (!digits()) return false;
    if (text[i] === 0x2e) {
      ++i;
      if (!digits()) return false;
    }
    if (text[i] === 0x65 || text[i] === 0x45) {
      ++i;
      if (text[i] === 0x2b || text[i] === 0x2d) ++i;
      if (!digits()) return false;
    }
    return true;
  };
  const key = (): boolean => {
    space();
    if (!string()) return false;
    space();
    return text[i] === 0x3a && ++i > 0;
  };

  for (;;) {
    space();
    const c = text[i];
    let open = false;
    if (c === 0x7b || c === 0x5b) {
      ++i;
      space();
      const closer = c + 2;
      if (text[i] === closer) {
        ++i;
      } else {
        closers.push(closer);
        if (closer === 0x7d && !key()) return i;
        open = true;
      }
    } else if (!scalar()) {
      return i;
    }
    while (!open) {
      space();
      if (closers.length === 0) return i === n ? -1 : i;
      const closer = closers[closers.length - 1];
      if (text[i] === closer) {
        ++i;
        closers.pop();
      } else if (text[i] === 0x2c) {
        ++i;
        if (closer === 0x7d && !key()) return i;
        open = true;
      } else {
        return i;
      }
    }
  }
}

/**
 * Where the value at a path begins in a JSON text, or the innermost object on the way to it that is there.
 * Only errors pay for this: JSON.parse tells values, not places.
 */
function placeOf(text: Uint8Array, path: readonly string[]): number {
  const decoder = new TextDecoder();
  const space = (i: number) => {
    while (text[i] === 0x20 || text[i] === 0x0a || text[i] === 0x0d || text[i] === 0x09) ++i;
    return i;
  };
  const stringEnd = (i: number) => {
    for (++i; i < text.length && text[i] !== QUOTE; ++i) if (text[i] === BACKSLASH) ++i;
    return i + 1;
  };
  const valueEnd = (i: number) => {
    if (text[i] === QUOTE) return stringEnd(i);
    for (let depth = 0; i < text.length;) {
      const c = text[i];
      if (c === QUOTE) {
        i = stringEnd(i);
        continue;
      }
      if (c === 0x7b || c === 0x5b) ++depth;
      if ((c === 0x7d || c === 0x5d) && --depth <= 0) return depth < 0 ? i : i + 1;
      if (c === 0x2c && depth === 0) return i;
      ++i;
    }
    return i;
  };

  let at = space(0);
  for (const key of path) {
    const isObject = text[at] === 0x7b;
    if (!isObject && text[at] !== 0x5b) return at;
    let found = -1;
    let i = space(at + 1);
    for (let index = 0; i < text.length && text[i] !== 0x7d && text[i] !== 0x5d; ++index) {
      let name = String(index);
      if (isObject) {
        const end = stringEnd(i);
        try {
          name = JSON.parse(decoder.decode(text.subarray(i, end)));
        } catch {
          break; // behind the fault, the text may be anything
        }
        i = space(space(end) + 1);
      }
      if (name === key) found = i;
      i = space(valueEnd(i));
      if (text[i] === 0x2c) i = space(i + 1);
    }
    if (found < 0) return at;
    at = found;
  }
  return at;
}
