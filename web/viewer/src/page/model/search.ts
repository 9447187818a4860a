import type { SrcHeader } from 'kelsrc-loader/core';
import { nameOf } from './metadata.js';

/** Lower case, and letters without their accents: "Ä" finds "a" and the other way round. */
const plain = (text: string) =>
  text
    .normalize('NFD')
    .replace(/\p{Mn}/gu, '')
    .toLowerCase();

const textsOf = new WeakMap<SrcHeader, string[]>();

/** What is searched in, one text per mesh: made once per file. */
function texts(header: SrcHeader): string[] {
  let list = textsOf.get(header);
  if (!list) {
    list = header.meshes.map((mesh) => {
      const name = nameOf(mesh);
      return plain(name === mesh.id ? name : `${name}\n${mesh.id}`);
    });
    textsOf.set(header, list);
  }
  return list;
}

/** The places of the meshes whose name or ID has every word of the query. An empty query has all of them. */
export function search(header: SrcHeader, query: string): number[] {
  const words = plain(query).split(/\s+/).filter(Boolean);
  const found: number[] = [];
  const list = texts(header);
  for (let i = 0; i < list.length; ++i) {
    if (words.every((word) => list[i]!.includes(word))) found.push(i);
  }
  return found;
}

/** The next of `count` rows, after `from` and around, whose name begins with what was typed; -1 if there is none. */
export function typeAhead(typed: string, count: number, from: number, nameAt: (i: number) => string): number {
  const start = plain(typed);
  // A letter typed again and again goes on to the next; a longer word may stay where it is.
  const first = typed.length > 1 ? 0 : 1;
  for (let i = 0; i < count; ++i) {
    const row = (from + first + i) % count;
    if (plain(nameAt(row)).startsWith(start)) return row;
  }
  return -1;
}
