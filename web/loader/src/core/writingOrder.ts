import type { Integers } from './columns.js';
import { declined, type Names } from './names.js';

const MESH_PREFIX = new TextEncoder().encode('mesh');

/** The order in which numbered meshes were written: "0", "1", ... or "mesh0", "mesh1", ... */
export function writingOrder(bytes: Uint8Array, ids: Integers, names: Names): Int32Array {
  const count = ids.length;
  const order = new Int32Array(count);
  const numbers = new Float64Array(count);
  let numbered = true;
  for (let row = 0; row < count && numbered; ++row) {
    order[row] = row;
    let from = names.starts.at(ids.at(row));
    const to = names.ends.at(ids.at(row));
    let prefix = 0;
    while (prefix < MESH_PREFIX.length && bytes[from + prefix] === MESH_PREFIX[prefix]) ++prefix;
    if (prefix === MESH_PREFIX.length) from += prefix;
    const digits = to - from;
    numbered = digits > 0 && digits <= 15 && (digits === 1 || bytes[from] !== 0x30);
    let number = 0;
    for (let i = from; i < to && numbered; ++i) {
      const digit = bytes[i]! - 0x30;
      numbered = digit >= 0 && digit <= 9;
      number = number * 10 + digit;
    }
    numbers[row] = number;
  }
  if (!numbered) {
    for (let row = 0; row < count; ++row) {
      order[row] = row;
      if (names.looksLikePlace(ids.at(row))) declined();
    }
    return order;
  }
  // Most have every number below their count: each row has its place then.
  const byNumber = new Int32Array(count).fill(-1);
  let dense = true;
  for (let row = 0; row < count && dense; ++row) {
    const number = numbers[row]!;
    dense = number < count && byNumber[number]! < 0;
    if (dense) byNumber[number] = row;
  }
  if (dense) return byNumber;
  order.sort((a, b) => numbers[a]! - numbers[b]!);
  for (let i = 1; i < count; ++i) if (numbers[order[i]!] === numbers[order[i - 1]!]) declined(); // "1" and "mesh1"
  return order;
}
