// Loads the same scenes as SRC and as GLB in one Chromium, round by round: see web/bench.sh.

import { createHash } from 'node:crypto';
import { existsSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { parseArgs } from 'node:util';
import { gzipSync } from 'node:zlib';
import { PROJECT, WEB } from '../support/paths.js';
import { Measurements, type Measured, type ServedFile } from './measure.js';
import type { Task } from './page.js';
import { median, plotOf, replaceSection, sectionOf, type Row, type SceneRows } from './report.js';
import { factsOf, makeVariants, type Facts } from './variants.js';

const SCENES = join(PROJECT, 'build/web/bench/scenes');
const PACED_BYTES_PER_SECOND = 10e6;
/** Spheres are one unit wide; what rounding to codes moves must be a small part of that. */
const BOX_TOLERANCE = 1e-3;

interface Variant {
  name: string;
  file: string;
  way: Task['way'];
}

const FILES = {
  uncompressed: 'uncompressed',
  position: 'position',
  'position-normal': 'position-normal',
  'container default': 'container',
  'container CMP1': 'container-cmp1',
};

const GLBS: Variant[] = [
  { name: 'GLB plain', file: 'plain.glb', way: 'gltf' },
  { name: 'GLB quantized', file: 'quantized.glb', way: 'gltf' },
  { name: 'GLB meshopt', file: 'meshopt.glb', way: 'meshopt' },
  { name: 'GLB Draco', file: 'draco.glb', way: 'draco' },
];

function srcVariants(way: 'stream' | 'load' | 'batch'): Variant[] {
  return Object.entries(FILES).map(([name, file]) => ({ name: `SRC ${name}, ${way}`, file: `${file}.src`, way }));
}

/** The GLB files of a scene. Making them takes longer than a round, so they are kept until their origin changes. */
async function provide(scene: string): Promise<Facts> {
  const plain = readFileSync(join(SCENES, `${scene}-plain.glb`));
  const recipe = readFileSync(join(WEB, 'bench/variants.ts'));
  const key = createHash('sha256').update(plain).update(recipe).digest('hex');
  const keyFile = join(SCENES, `${scene}-glb.sha256`);
  if (!existsSync(keyFile) || readFileSync(keyFile, 'utf8') !== key) {
    console.error(`making the GLB files of scene ${scene}`);
    for (const [name, bytes] of Object.entries(await makeVariants(plain))) {
      writeFileSync(join(SCENES, `${scene}-${name}.glb`), bytes);
    }
    writeFileSync(keyFile, key);
  }
  return factsOf(plain);
}

/** A faster load of something else is no result. */
function check(variant: Variant, facts: Facts, { shown }: Measured): void {
  const fail = (what: string) => {
    throw new Error(`${variant.name}: ${what}`);
  };
  // Draco leaves out triangles without an area, of which the spheres have a few at their poles.
  const least = variant.way === 'draco' ? facts.triangles * 0.998 : facts.triangles;
  if (shown.triangles > facts.triangles || shown.triangles < least) {
    fail(`${shown.triangles} triangles were drawn, not ${facts.triangles}`);
  }
  if (facts.meshes > 1 && shown.objects !== facts.meshes) fail(`${shown.objects} meshes, not ${facts.meshes}`);
  for (const side of ['min', 'max'] as const) {
    const off = shown.box[side].map((x, axis) => Math.abs(x - facts.box[side][axis]!));
    if (!(Math.max(...off) <= BOX_TOLERANCE)) fail(`the box is off by ${off.join(', ')}`);
  }
}

async function measureScene(
  measurements: Measurements,
  scene: string,
  facts: Facts,
  variants: Variant[],
  rounds: number,
): Promise<SceneRows> {
  const files = new Map<string, ServedFile>();
  for (const { file } of variants) {
    if (files.has(file)) continue;
    const bytes = readFileSync(join(SCENES, `${scene}-${file}`));
    files.set(file, { bytes, gzip: gzipSync(bytes) });
  }
  measurements.files = files;
  const results = new Map<Variant, Measured[]>(variants.map((variant) => [variant, []]));
  // The round before the first lets the browser make what it keeps: compiled shaders, mostly.
  for (let round = 0; round <= rounds; ++round) {
    console.error(`  scene ${scene}, ${round === 0 ? 'warming up' : `round ${round} of ${rounds}`}`);
    for (const variant of variants) {
      const measured = await measurements.measure({ url: `/${variant.file}`, way: variant.way, box: facts.box });
      check(variant, facts, measured);
      if (round > 0) results.get(variant)!.push(measured);
    }
  }
  const rows = variants.map((variant): Row => {
    const of = (key: Exclude<keyof Measured, 'shown'>) => median(results.get(variant)!.map((result) => result[key]));
    const file = files.get(variant.file)!;
    return {
      name: variant.name,
      ours: variant.name.startsWith('SRC'),
      streams: variant.way === 'stream',
      bytes: file.bytes.length,
      gzipBytes: file.gzip.length,
      firstPixel: of('firstPixel'),
      inScene: of('inScene'),
      complete: of('complete'),
      longestTask: of('longestTask'),
      longestTaskWithoutDrawing: of('longestTaskWithoutDrawing'),
      heap: of('heap'),
    };
  });
  const each = Math.round(facts.triangles / facts.meshes);
  const title = `${facts.meshes} ${facts.meshes === 1 ? 'mesh' : 'meshes'} of ${each} triangles`;
  return { name: scene, title, rows };
}

/** Pictures and CPU profiles, for people. */
async function lookAt(measurements: Measurements, scene: string, facts: Facts, variants: Variant[], folder: string) {
  mkdirSync(folder, { recursive: true });
  for (const { file, way } of variants) {
    const bytes = readFileSync(join(SCENES, `${scene}-${file}`));
    measurements.files = new Map([[file, { bytes, gzip: bytes }]]);
    const { png, profile } = await measurements.look({ url: `/${file}`, way, box: facts.box });
    writeFileSync(join(folder, `${scene}-${file}-${way}.png`), png);
    writeFileSync(join(folder, `${scene}-${file}-${way}.cpuprofile`), JSON.stringify(profile));
  }
}

const { values: options } = parseArgs({
  options: {
    rounds: { type: 'string', default: '5' },
    'paced-rounds': { type: 'string', default: '3' },
    scenes: { type: 'string', default: 'abc' },
    markdown: { type: 'string' },
    plot: { type: 'string' },
    look: { type: 'string' },
  },
});

const whole = (name: 'rounds' | 'paced-rounds', least: number) => {
  const value = Number(options[name]);
  if (!Number.isInteger(value) || value < least) throw new Error(`--${name} takes a whole number from ${least} on.`);
  return value;
};

async function main(): Promise<void> {
  const rounds = whole('rounds', 1),
    pacedRounds = whole('paced-rounds', 0);
  const facts = new Map<string, Facts>();
  for (const scene of options.scenes) facts.set(scene, await provide(scene));
  const measurements = await Measurements.start();
  try {
    const local: SceneRows[] = [],
      paced: SceneRows[] = [];
    for (const [scene, fact] of facts) {
      const batches = scene === 'c' ? srcVariants('batch') : [];
      const variants = [...srcVariants('stream'), ...srcVariants('load'), ...batches, ...GLBS];
      if (options.look) await lookAt(measurements, scene, fact, variants, options.look);
      measurements.link = { bytesPerSecond: null, gzip: false };
      local.push(await measureScene(measurements, scene, fact, variants, rounds));
      if (pacedRounds === 0) continue;
      measurements.link = { bytesPerSecond: PACED_BYTES_PER_SECOND, gzip: true };
      paced.push(await measureScene(measurements, scene, fact, [...srcVariants('stream'), ...GLBS], pacedRounds));
    }
    const browser = await measurements.browser();
    const bytesPerSecond = PACED_BYTES_PER_SECOND;
    const section = sectionOf({ browser, rounds, local, pacedRounds, paced, bytesPerSecond });
    console.log(section);
    if (options.markdown) {
      writeFileSync(options.markdown, replaceSection(readFileSync(options.markdown, 'utf8'), section));
    }
    // Whole loads differ from streaming ones by the frames in between: the plot leaves them out.
    const shown = local.map((scene) => ({ ...scene, rows: scene.rows.filter((row) => !row.name.endsWith(', load')) }));
    if (options.plot) writeFileSync(options.plot, plotOf(shown));
  } finally {
    await measurements.stop();
  }
}

await main();
