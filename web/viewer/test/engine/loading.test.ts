import { afterAll, beforeAll, beforeEach, expect, test } from 'vitest';
import type { ServerResponse } from 'node:http';
import { cube, field, fileOf, headerBytes, square } from './models.js';
import { EnginePage } from './stage.js';

let stage: EnginePage;
beforeAll(async () => {
  stage = await EnginePage.start();
}, 120_000);
beforeEach(() => stage.reset());
afterAll(() => stage?.stop());

const state = () =>
  stage.do(({ engine }) => {
    const { state, problem, loadedMeshes, loadedBytes, totalBytes } = engine.files[0]!;
    return { state, problem, loadedMeshes, loadedBytes, totalBytes, boxes: engine.shownBoxes };
  });

function expectNear(found: number[], expected: number[]) {
  found.forEach((x, i) => expect(x).toBeCloseTo(expected[i]!, 9));
}

/** Serves the beginning of a file, and the rest when it is told to. */
function slowly(name: string, bytes: Uint8Array, until: number) {
  let response: ServerResponse | null = null;
  const ended = { byPage: false };
  const url = stage.put(name, (_, answer) => {
    response = answer;
    answer.on('close', () => (ended.byPage = !answer.writableEnded));
    answer.write(bytes.subarray(0, until));
  });
  return { url, ended, finish: () => response!.end(bytes.subarray(until)) };
}

async function begin(url: string): Promise<void> {
  await stage.do((kel, url) => kel.engine.open({ name: 'slow.src', url }), url);
}

async function loadedMeshes(count: number): Promise<void> {
  await stage.until(({ engine }, count) => engine.files[0]!.loadedMeshes === count, count);
  await stage.settle();
}

test('boxes of all meshes are there before any geometry, and the camera sees them', async () => {
  const bytes = fileOf([square(10, 20, 0), square(14, 20, 0), square(10, 24, 0, 2)]);
  const { url, finish } = slowly('slow.src', bytes, headerBytes(bytes));
  await begin(url);
  await stage.until(({ engine }) => engine.files[0]!.header !== null);
  await stage.settle();
  expect(await state()).toMatchObject({ state: 'loading', loadedMeshes: 0, boxes: 3, totalBytes: bytes.length });
  expectNear((await stage.do(({ engine }) => engine.camera)).target, [12.5, 23, 0]);
  expect(await stage.covered()).toBeGreaterThan(500);
  finish();
  await loadedMeshes(3);
  expect(await state()).toMatchObject({ state: 'complete', boxes: 0, loadedBytes: bytes.length });
});

test('each box goes when its geometry comes', async () => {
  const bytes = fileOf([square(0, 0, 0), square(2, 0, 0), square(4, 0, 0)]);
  // A square takes 48 bytes of positions and 12 of indices.
  const { url, finish } = slowly('slow.src', bytes, headerBytes(bytes) + 2 * 60);
  await begin(url);
  await loadedMeshes(2);
  expect(await state()).toMatchObject({ state: 'loading', boxes: 1 });
  finish();
  await loadedMeshes(3);
  expect(await state()).toMatchObject({ state: 'complete', boxes: 0 });
});

test('20,000 boxes are one draw call, and 20,000 meshes are few', async () => {
  await stage.resize(200, 150);
  const bytes = fileOf(field(20_000, 150));
  const { url, finish } = slowly('slow.src', bytes, headerBytes(bytes));
  await begin(url);
  await stage.until(({ engine }) => engine.files[0]!.header !== null);
  await stage.settle();
  const render = () => stage.do(({ engine }) => ({ ...engine.stage.renderer.info.render }));
  expect(await render()).toMatchObject({ calls: 1, lines: 20_000 * 12 });
  finish();
  await loadedMeshes(20_000);
  const { calls, triangles } = await render();
  expect(triangles).toBe(40_000);
  expect(calls).toBeLessThan(5);
}, 120_000);

test('progress is told once per frame, never falls, and ends at the file', async () => {
  const bytes = fileOf(field(3000, 60));
  await stage.open(bytes);
  const seen = (await stage.events('progress')) as Record<string, number>[];
  for (const [i, now] of seen.entries()) {
    const before = seen[i - 1];
    if (!before) continue;
    expect(now.frame).toBeGreaterThan(before.frame!);
    expect(now.loadedBytes).toBeGreaterThanOrEqual(before.loadedBytes!);
    expect(now.loadedMeshes).toBeGreaterThanOrEqual(before.loadedMeshes!);
  }
  expect(seen.at(-1)).toMatchObject({ loadedBytes: bytes.length, totalBytes: bytes.length, loadedMeshes: 3000 });
});

test('bytes in memory are opened like files from a server', async () => {
  const bytes = fileOf([cube()]);
  await stage.do(({ engine }, list) => engine.open({ name: 'dropped.src', bytes: new Uint8Array(list) }), [...bytes]);
  await loadedMeshes(1);
  expect(await state()).toMatchObject({ state: 'complete', loadedBytes: bytes.length, totalBytes: bytes.length });
});

test('a load can be aborted, and what has arrived stays', async () => {
  const bytes = fileOf([square(0, 0, 0), square(2, 0, 0)]);
  const { url, ended } = slowly('slow.src', bytes, headerBytes(bytes) + 60);
  await begin(url);
  await loadedMeshes(1);
  expect(ended.byPage).toBe(false);
  await stage.do(({ engine }) => engine.abort(engine.files[0]!.id));
  expect(await state()).toMatchObject({ state: 'aborted', problem: null, loadedMeshes: 1 });
  expect(await stage.covered()).toBeGreaterThan(500);
  await expect.poll(() => ended.byPage).toBe(true);
});

const page = new TextEncoder().encode('<!doctype html><h1>It works!</h1>');
test.each([
  ['LOOKS_LIKE_HTML', page],
  ['LOOKS_LIKE_GLB', new TextEncoder().encode('glTF....')],
  ['EMPTY_FILE', new Uint8Array(0)],
  ['CHUNK_PAST_END', fileOf([cube()]).slice(0, -20)],
])('%s is told with the file and a remedy, from a server and from memory', async (code, bytes) => {
  await stage.open(bytes, 'broken.src');
  const served = await state();
  expect(served).toMatchObject({ state: 'failed', problem: { code } });
  expect(served.problem!.message).toMatch(/broken\.src.*: .+\. .+\./);
  await stage.do(({ engine }, list) => {
    engine.close(engine.files[0]!.id);
    engine.open({ name: 'dropped.src', bytes: new Uint8Array(list) });
  }, [...bytes]);
  await stage.until(({ engine }) => engine.files[0]!.state === 'failed');
  const dropped = await state();
  expect(dropped.problem!.code).toBe(code);
  expect(dropped.problem!.message).toMatch(/^dropped\.src.*: .+\. .+\./);
});

test('a server that does not have the file is no fault of the file', async () => {
  await stage.do(({ engine }) => engine.open({ name: 'gone.src', url: '/gone.src' }));
  await stage.until(({ engine }) => engine.files[0]!.state === 'failed');
  const { problem } = await state();
  expect(problem!.code).toBe(null);
  expect(problem!.message).toContain('404');
});

test.each([
  ['drawn one by one', [square(0, 0, 0), cube(), { positions: [0, 0, 0, 1, 1, 1], primitive: 1 }]],
  ['in batches', field(200, 20)],
])('opening and closing files leaves nothing behind, when meshes are %s', async (_, meshes) => {
  const url = stage.put('model.src', fileOf(meshes));
  await stage.resize(48, 36); // what is held does not hang on it
  const held = await stage.do(async ({ engine }, url) => {
    const held: string[] = [];
    for (let i = 0; i < 20; ++i) {
      const id = engine.open({ name: 'model.src', url });
      await new Promise<void>((resolve) => {
        const end = engine.on('files', () => {
          if (engine.files[0]!.state !== 'complete') return;
          end();
          resolve();
        });
      });
      engine.select({ file: id, mesh: 1 });
      engine.setDisplay({ surface: (['materials', 'plain', 'normals'] as const)[i % 3], wireframe: i % 2 === 0 });
      await engine.picture();
      engine.close(id);
      await engine.picture();
      const { memory, programs } = engine.stage.renderer.info;
      held.push(`${memory.geometries} ${memory.textures} ${programs!.length} ${engine.stage.content.children.length}`);
    }
    return held;
  }, url);
  // The first rounds bring every look once.
  expect(held.slice(12)).toEqual(held.slice(6, 14));
}, 120_000);

test('the camera goes back to a fit when all files were closed', async () => {
  await stage.open(fileOf([square(0, 0, 0)]));
  await stage.lookAt(50, 50, 3);
  await stage.do(({ engine }) => engine.close(engine.files[0]!.id));
  expect(await stage.do(({ engine }) => engine.files.length)).toBe(0);
  await stage.open(fileOf([square(100, 0, 0)]));
  expectNear((await stage.do(({ engine }) => engine.camera)).target, [100.5, 0.5, 0]);
});
