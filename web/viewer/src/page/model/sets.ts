/**
 * Sets of small whole numbers as short texts of letters that need no escape in an address: ranges such as
 * "1-5_9", or, where those are longer, one bit per number in base64 behind a "~". So 20,000 meshes of which every
 * other one is hidden take 3,300 letters and not 60,000.
 */

/** More than any file has meshes; a link from elsewhere may ask for anything. */
const LARGEST = 4 * 2 ** 20;

const DIGITS = 'ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_';

/** `sorted` in ascending order, without repetition. */
export function encodeSet(sorted: readonly number[]): string {
  const ranges: string[] = [];
  for (let i = 0; i < sorted.length;) {
    let end = i;
    while (sorted[end + 1] === sorted[end]! + 1) ++end;
    ranges.push(end === i ? `${sorted[i]}` : `${sorted[i]}-${sorted[end]}`);
    i = end + 1;
  }
  const asRanges = ranges.join('_');
  // Up to here people can still read them.
  if (asRanges.length <= 40) return asRanges;
  const last = sorted[sorted.length - 1]!;

  const sextets = new Uint8Array(Math.floor(last / 6) + 1);
  for (const n of sorted) sextets[Math.floor(n / 6)]! |= 1 << (n % 6);
  let asBits = '~';
  for (const sextet of sextets) asBits += DIGITS[sextet];
  return asBits.length < asRanges.length ? asBits : asRanges;
}

/** In ascending order; null for what is no such text. */
export function decodeSet(text: string): number[] | null {
  const found: number[] = [];
  if (text.startsWith('~')) {
    if (text.length > LARGEST / 6) return null;
    for (let i = 1; i < text.length; ++i) {
      const sextet = DIGITS.indexOf(text[i]!);
      if (sextet < 0) return null;
      for (let bit = 0; bit < 6; ++bit) if (sextet & (1 << bit)) found.push((i - 1) * 6 + bit);
    }
    return found;
  }
  if (text === '') return found;
  for (const part of text.split('_')) {
    const match = /^(\d{1,9})(?:-(\d{1,9}))?$/.exec(part);
    if (!match) return null;
    const first = Number(match[1]),
      last = Number(match[2] ?? match[1]);
    const previous = found[found.length - 1] ?? -1;
    if (first <= previous || last < first || last >= LARGEST) return null;
    for (let n = first; n <= last; ++n) found.push(n);
  }
  return found;
}
