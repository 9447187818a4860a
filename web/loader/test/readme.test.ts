import { execFileSync, spawnSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync, symlinkSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { afterAll, beforeAll, expect, test } from 'vitest';
import { WEB } from '../../support/paths.js';
import { sendRanges, serve, type TestServer } from '../../support/server.js';
import { fixture } from './support.js';

// The package as npm would publish it, unpacked beside three.js in an empty folder.

const PACKAGE = join(WEB, 'loader');
let folder: string;
let server: TestServer;
let files: string[];
beforeAll(async () => {
  folder = mkdtempSync(join(tmpdir(), 'kelsrc-loader-'));
  const packed = execFileSync('npm', ['pack', '--json', '--ignore-scripts', '--pack-destination', folder], {
    cwd: PACKAGE,
    encoding: 'utf8',
    stdio: ['ignore', 'pipe', 'ignore'],
  });
  const report: unknown = JSON.parse(packed);
  const [entry] = (Array.isArray(report) ? report : Object.values(report as object)) as {
    filename: string;
    files: { path: string }[];
  }[];
  files = entry!.files.map((file) => file.path);
  const modules = join(folder, 'node_modules');
  mkdirSync(join(modules, 'kelsrc-loader'), { recursive: true });
  execFileSync('tar', [
    '-xzf',
    join(folder, entry!.filename),
    '-C',
    join(modules, 'kelsrc-loader'),
    '--strip-components=1',
  ]);
  symlinkSync(join(PACKAGE, '../node_modules/three'), join(modules, 'three'));
  symlinkSync(join(PACKAGE, '../node_modules/@types'), join(modules, '@types'));
  server = await serve((request, response) => sendRanges(fixture(request.url!.slice(1, -4)))(request, response));
}, 60_000);
afterAll(async () => {
  await server?.close();
  rmSync(folder, { recursive: true, force: true });
});

function snippet(heading: string): string {
  const readme = readFileSync(join(PACKAGE, 'README.md'), 'utf8');
  return readme.split(`## ${heading}`)[1]!.split('```js\n')[1]!.split('```')[0]!;
}

function run(code: string): unknown {
  writeFileSync(join(folder, 'use.mjs'), code);
  return JSON.parse(execFileSync('node', ['use.mjs'], { cwd: folder, encoding: 'utf8' }));
}

/** A module's code with its files on the test's server; relative addresses have no meaning in Node. */
const served = (code: string) =>
  code.replaceAll(/'(\w+)\.src'/g, `'${'URL'}/uncompressed.src'`).replaceAll('URL', server.url);

test('the package holds its modules, their types and the README, and nothing else', () => {
  expect(files).toContain('dist/index.js');
  expect(files).toContain('dist/core/index.d.ts');
  for (const file of files) expect(file).toMatch(/^(LICENSE|README\.md|package\.json|dist\/.*\.(js|js\.map|d\.ts))$/);
});

async function runServed(code: string): Promise<unknown> {
  // Not execFileSync: the server lives in this process.
  const { execFile } = await import('node:child_process');
  writeFileSync(join(folder, 'use.mjs'), served(code));
  return new Promise((resolve, reject) =>
    execFile('node', ['use.mjs'], { cwd: folder }, (error, stdout) =>
      error ? reject(error) : resolve(JSON.parse(stdout)),
    ),
  );
}

test("the README's first use works", async () => {
  const shown = await runServed(`
    import * as THREE from 'three';
    const scene = new THREE.Scene();
    ${snippet('First use')}
    console.log(JSON.stringify(scene.children[0].children.map((mesh) => mesh.name)));`);
  expect(shown).toEqual(['mesh0', 'mesh1', 'mesh2', 'mesh3', 'mesh4']);
});

test("the README's stream works", async () => {
  const shown = await runServed(`
    import * as THREE from 'three';
    import { boundsOf, SRCLoader } from 'kelsrc-loader';
    const scene = new THREE.Scene(), boxes = [], signal = undefined, hidden = [];
    const showBox = (box) => boxes.push(box), hideBox = (id) => hidden.push(id);
    ${snippet('While it arrives')}
    console.log(JSON.stringify([boxes.length, hidden]));`);
  expect(shown).toEqual([5, ['mesh0', 'mesh1', 'mesh2', 'mesh3', 'mesh4']]);
});

test("the README's world of its own works", async () => {
  const place = await runServed(`
    import { betweenOrigins, SRCLoader } from 'kelsrc-loader';
    ${snippet('Large coordinates')}
    console.log(JSON.stringify(model.scene.position.toArray()));`);
  expect(place).toEqual([-500000, -5400000, 0]); // of a file without an origin
});

test('the types are found by a strict compiler', () => {
  writeFileSync(join(folder, 'package.json'), '{ "type": "module" }');
  writeFileSync(
    join(folder, 'use.ts'),
    `import { SRCLoader, type SRCModel } from 'kelsrc-loader';
     import { parseSrc, type SrcMesh } from 'kelsrc-loader/core';
     export const model: Promise<SRCModel> = new SRCLoader().setPath('a/').loadAsync('b.src');
     export const signalled = new SRCLoader().loadAsync(new Blob(), undefined, { signal: undefined });
     export const mesh: SrcMesh | undefined = parseSrc(new ArrayBuffer(0)).find('0');
     // @ts-expect-error: without this error the types would be "any"
     export const wrong: number = parseSrc(new ArrayBuffer(0));`,
  );
  const compiler = join(PACKAGE, '../node_modules/typescript/bin/tsc');
  const options = [
    '--noEmit',
    '--strict',
    '--noUncheckedIndexedAccess',
    '--exactOptionalPropertyTypes',
    '--module',
    'nodenext',
    '--target',
    'es2022',
    '--lib',
    'es2022,dom',
    'use.ts',
  ];
  // Declarations of three.js are its own affair.
  const { stdout } = spawnSync('node', [compiler, ...options], { cwd: folder, encoding: 'utf8' });
  expect(stdout.split('\n').filter((line) => /error TS/.test(line) && !/types\/three/.test(line))).toEqual([]);
}, 120_000);

test('the types take no type argument of typed arrays, which compilers before 5.7 do not know', () => {
  const declarations = readdirSync(join(PACKAGE, 'dist'), { recursive: true, encoding: 'utf8' });
  const generic = declarations
    .filter((name) => name.endsWith('.d.ts'))
    .filter((name) => /\b\w+Array<ArrayBuffer/.test(readFileSync(join(PACKAGE, 'dist', name), 'utf8')));
  expect(generic).toEqual([]);
});

test("the README's use without three.js works where there is no three.js", () => {
  rmSync(join(folder, 'node_modules/three'));
  writeFileSync(join(folder, 'a.src'), fixture('default'));
  const shown = run(`
    import { readFileSync } from 'node:fs';
    ${snippet('Without three.js')
      .replace('const file', "const bytes = new Uint8Array(readFileSync('a.src'));\nconst file")
      .replace(/\}\s*$/, 'console.log(JSON.stringify(indices.length + values.length)); break; }')}`);
  expect(shown).toBeGreaterThan(1000);
});
