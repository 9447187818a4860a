import { SrcError } from './SrcError.js';
import { exceeds } from './limits.js';

const QUOTE = 0x22,
  BACKSLASH = 0x5c;

/** How deep the objects and lists of a JSON text nest. Linear, and without a stack that the text could exhaust. */
export function nestingOf(text: Uint8Array): number {
  let depth = 0,
    deepest = 0;
  const n = text.length;
  for (let i = 0; i < n; ++i) {
    const c = text[i];
    if (c === QUOTE) {
      for (++i; i < n && text[i] !== QUOTE; ++i) {
        if (text[i] === BACKSLASH) ++i;
      }
    } else if (c === 0x7b || c === 0x5b) {
      if (++depth > deepest) deepest = depth;
    } else if (c === 0x7d || c === 0x5d) {
      --depth;
    }
  }
  return deepest;
}

/**
 * Where a text stops being JSON: the first byte that cannot stand where it stands, or the text's length when it
 * ends too early. Browsers word this place in ways of their own, or not at all. A valid text gives -1.
 */
export function syntaxFault(text: Uint8Array): number {
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

/** The header as a JSON value; `offset` is its place in the file. */
export function parseHeaderText(text: Uint8Array, offset: number, depth: number): unknown {
  const deepest = nestingOf(text);
  let value: unknown, fault: unknown;
  try {
    value = JSON.parse(new TextDecoder('utf-8', { fatal: true, ignoreBOM: true }).decode(text));
  } catch (error) {
    fault = error;
  }
  if (deepest > depth) throw exceeds('depth', deepest, depth, { byteOffset: offset });
  if (fault !== undefined) {
    const place = syntaxFault(text);
    throw new SrcError('JSON_SYNTAX', {
      byteOffset: offset + (place < 0 ? 0 : place),
      detail: place < 0 ? 'it is not valid UTF-8' : undefined,
      cause: fault,
    });
  }
  return value;
}

/**
 * Where the value at a path begins in a valid JSON text, or the innermost object on the way to it that is there.
 * Only errors pay for this: JSON.parse tells values, not places.
 */
export function placeOf(text: Uint8Array, path: readonly string[]): number {
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
        name = JSON.parse(decoder.decode(text.subarray(i, end)));
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
