import type { FileState } from '../../engine/api.js';

/** One file in the list, open or folded up, and which of its meshes are listed. */
export interface Group {
  file: FileState;
  /** Places in header.meshes. */
  meshes: readonly number[];
  open: boolean;
  /** The row of the file itself; -1 when it has none, since it is the only one. */
  head: number;
  /** The row of its first mesh. */
  first: number;
}

export type Row =
  { kind: 'file'; group: Group; place: number } | { kind: 'mesh'; group: Group; mesh: number; place: number };

/**
 * The rows of the list. They are worked out one by one when they are drawn: a list of 20,000 meshes costs as much
 * as the 30 that are seen.
 */
export class Rows {
  readonly groups: Group[] = [];
  readonly length: number;
  /** Of meshes, those of folded files included. */
  readonly meshCount: number;

  constructor(entries: { file: FileState; meshes: readonly number[]; open: boolean }[], withHeads: boolean) {
    let row = 0,
      meshCount = 0;
    for (const { file, meshes, open } of entries) {
      const head = withHeads ? row++ : -1;
      const isOpen = open || !withHeads;
      this.groups.push({ file, meshes, open: isOpen, head, first: row });
      if (isOpen) row += meshes.length;
      meshCount += meshes.length;
    }
    this.length = row;
    this.meshCount = meshCount;
  }

  at(row: number): Row {
    let low = 0,
      high = this.groups.length - 1;
    const start = (group: Group) => (group.head >= 0 ? group.head : group.first);
    while (low < high) {
      const middle = (low + high + 1) >> 1;
      if (start(this.groups[middle]!) <= row) low = middle;
      else high = middle - 1;
    }
    const group = this.groups[low]!;
    if (row === group.head) return { kind: 'file', group, place: low };
    return { kind: 'mesh', group, mesh: group.meshes[row - group.first]!, place: row - group.first };
  }

  /** The row of a mesh; -1 when it is not listed, or its file is folded up. */
  indexOf(file: number, mesh: number): number {
    const group = this.groups.find((group) => group.file.id === file);
    if (!group?.open) return -1;
    // Places are in ascending order.
    let low = 0,
      high = group.meshes.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (group.meshes[middle]! < mesh) low = middle + 1;
      else high = middle;
    }
    return group.meshes[low] === mesh ? group.first + low : -1;
  }
}
