/** Numbers for people. All in one notation, whatever the browser's language: the page speaks English. */

const whole = new Intl.NumberFormat('en-US', { maximumFractionDigits: 0 });

const fine = new Intl.NumberFormat('en-US', { maximumFractionDigits: 12 });

export const count = (n: number): string => whole.format(n);

/** "1 mesh", "2,000 meshes". */
export function plural(n: number, one: string, many = `${one}s`): string {
  return `${count(n)} ${n === 1 ? one : many}`;
}

const UNITS = ['bytes', 'kB', 'MB', 'GB', 'TB'];

function unitFor(n: number): number {
  let unit = 0;
  // 999,950 bytes would read "1000.0 kB".
  for (let rest = n; rest >= (unit === 0 ? 1000 : 999.95) && unit < UNITS.length - 1; rest /= 1000) ++unit;
  return unit;
}

const inUnit = (n: number, unit: number) => (unit === 0 ? count(n) : (n / 1000 ** unit).toFixed(1));

/** "812 bytes", "40.1 MB": powers of 1000, as the sizes in a download's list. */
export function bytes(n: number): string {
  const unit = unitFor(n);
  return unit === 0 ? plural(n, 'byte') : `${inUnit(n, unit)} ${UNITS[unit]}`;
}

/** "12.3 of 40.1 MB", both in the unit of the whole. */
export function bytesOf(n: number, total: number): string {
  const unit = unitFor(total);
  return `${inUnit(Math.min(n, total), unit)} of ${inUnit(total, unit)} ${UNITS[unit]}`;
}

/** A share of a whole: "34 %", and never "0 %" or "100 %" for what is neither none nor all. */
export function share(n: number, total: number): string {
  if (total <= 0 || n <= 0) return '0 %';
  if (n >= total) return '100 %';
  const percent = (n / total) * 100;
  if (percent < 1) return 'under 1 %';
  return `${Math.min(99, Math.round(percent))} %`;
}

/** A length, an area or a coordinate, without trailing zeros. */
export function measure(n: number, digits = 6): string {
  if (n === 0) return '0';
  const size = Math.abs(n);
  if (size >= 1e9 || size < 1e-4) {
    return n
      .toExponential(digits - 1)
      .replace(/\.?0+e/, 'e')
      .replace('e+', 'e');
  }
  return fine.format(Number(n.toPrecision(digits)));
}

/** How many digits a coordinate needs to have so many that count in something of this size, far from zero too. */
export function digitsWithin(size: number, coordinate: number, digits: number): number {
  if (!(size > 0)) return MOST_DIGITS;
  const more = Math.ceil(Math.log10(Math.abs(coordinate) / size));
  return more > 0 ? Math.min(MOST_DIGITS, digits + more) : digits;
}

/** Those that every double keeps. */
const MOST_DIGITS = 15;

/** A place; `size` is that of what it belongs to. */
export const point = (xyz: readonly number[], size = Infinity): string =>
  xyz.map((x) => measure(x, digitsWithin(size, x, 6))).join(', ');
