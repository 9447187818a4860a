/** Numbers in a fixed order that looks like chance (mulberry32). */
export function chance(seed: number): (below: number) => number {
  return (below) => {
    seed = (seed + 0x6d2b79f5) | 0;
    let t = Math.imul(seed ^ (seed >>> 15), seed | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return Math.floor((((t ^ (t >>> 14)) >>> 0) / 4294967296) * below);
  };
}

const ODD: unknown[] = [
  0,
  1,
  -1,
  2,
  3,
  7,
  255,
  65535,
  65536,
  5120,
  5121,
  5122,
  5123,
  5124,
  5125,
  5126,
  2 ** 31,
  2 ** 32,
  2 ** 53 - 1,
  2 ** 53,
  0.5,
  -0,
  1e308,
  1e-308,
  null,
  true,
  '',
  '__proto__',
  'toString',
  'SCALAR',
  'VEC2',
  'VEC4',
  [],
  {},
  [0],
  [1, 2, 3],
  { value: 1 },
];

/** Changes one to three values somewhere in a header: replaced, removed, doubled under another key. */
export function mutate(header: unknown, random: (below: number) => number): void {
  for (let times = 1 + random(3); times > 0; --times) {
    let parent = header as Record<string, unknown>;
    for (;;) {
      const keys = Object.keys(parent);
      if (keys.length === 0) break;
      const key = keys[random(keys.length)]!;
      const value = parent[key];
      if (typeof value === 'object' && value !== null && random(8) > 0) {
        parent = value as Record<string, unknown>;
        continue;
      }
      const kind = random(6);
      if (kind === 0) delete parent[key];
      else if (kind === 1) parent[`${key}2`] = value;
      else parent[key] = structuredClone(ODD[random(ODD.length)]);
      break;
    }
  }
}
