import { COMBINED, componentSize, type SrcAttribute, type SrcBufferView, type SrcHeader } from 'kelsrc-loader/core';

export const PURPOSES = [
  'header',
  'indices',
  'positions',
  'normals',
  'texture coordinates',
  'colours',
  'other attributes',
  'unused',
] as const;

export type Purpose = (typeof PURPOSES)[number];

export type BytesByPurpose = Record<Purpose, number>;

export function purposeOf(attribute: string): Purpose {
  if (/^position/i.test(attribute) || attribute === COMBINED) return 'positions';
  if (/^normal/i.test(attribute)) return 'normals';
  if (/^(tex|uv)/i.test(attribute)) return 'texture coordinates';
  if (/^colou?r/i.test(attribute)) return 'colours';
  return 'other attributes';
}

/**
 * What the file's bytes are for, from the header alone and in time linear in its length. The sum is the file's
 * size: what no mesh uses, gaps between interleaved elements included, is "unused".
 */
export function bytesByPurpose(header: SrcHeader): BytesByPurpose {
  const result = Object.fromEntries(PURPOSES.map((purpose) => [purpose, 0])) as BytesByPurpose;
  result.header = header.dataOffset;

  // Views may share bytes; nothing is counted beyond what a block, and the file, has.
  let left = header.dataBytes;
  const leftOf = new Map<SrcBufferView, number>();
  const claim = (purpose: Purpose, block: SrcBufferView, bytes: number) => {
    const room = leftOf.get(block) ?? block.storedBytes;
    const taken = Math.min(bytes, room, left);
    leftOf.set(block, room - taken);
    left -= taken;
    result[purpose] += taken;
  };

  const seen = new Set<object>();
  const claimAttribute = ({ name, view }: SrcAttribute) => {
    if (seen.has(view)) return;
    seen.add(view);
    const element = view.components * view.componentBytes;
    if (name === COMBINED && element === 8) {
      claim('positions', view.bufferView, view.count * 6);
      claim('normals', view.bufferView, view.count * 2);
    } else {
      claim(purposeOf(name), view.bufferView, view.count * element);
    }
  };
  for (const mesh of header.meshes) {
    const { indices } = mesh;
    if (indices && !seen.has(indices)) {
      seen.add(indices);
      claim('indices', indices.bufferView, indices.count * componentSize(indices.componentType));
    }
    mesh.attributes.forEach(claimAttribute);
  }
  result.unused = left;
  return result;
}
