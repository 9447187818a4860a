import { afterAll, beforeAll, describe, expect, test } from 'vitest';
import { fixture, told } from '../support.js';
import { Browser, glbOf } from './browser.js';

let browser: Browser;
beforeAll(async () => {
  browser = await Browser.start();
}, 120_000);
afterAll(() => browser?.stop());

/** Points over the whole picture. */
const GRID: [number, number][] = [];
for (let y = -0.9; y <= 0.9; y += 0.12) for (let x = -0.9; x <= 0.9; x += 0.12) GRID.push([x, y]);

type Numbers = number[] | null | undefined;
function expectNear(found: Numbers, expected: Numbers, digits: number) {
  expect(found?.length).toBe(expected?.length);
  expected?.forEach((x, i) => expect(found![i]).toBeCloseTo(x, digits));
}

describe.each(['default', 'cmp1', 'position', 'position-normal', 'bits-20'])('%s', (name) => {
  test.each([false, true])('rays hit what they hit in floats (batched: %s)', async (batch) => {
    const values = glbOf(told(name));
    const glb = browser.put(`${name}.glb`, values.bytes);
    const { ours, theirs } = await browser.call('pick', `/${name}.src`, glb, values.ids, GRID, batch);
    expect(new Set(ours.map((hit) => hit?.id)).size).toBeGreaterThan(4); // nothing, and most of the meshes
    for (const [i, hit] of theirs!.entries()) {
      expect(ours[i]?.id).toBe(hit?.id);
      expectNear(ours[i]?.point, hit?.point, 4);
      // Where a mesh has no normals there is nothing to compare.
      expectNear(ours[i]?.normal, hit?.normal, 3);
    }
  });

  test('boxes are those of the floats', async () => {
    const values = glbOf(told(name));
    const glb = browser.put(`${name}.glb`, values.bytes);
    const { box, exact, headerBox } = await browser.call('pick', `/${name}.src`, glb, values.ids, [], false);
    expectNear(box, exact, 3);
    expectNear(headerBox, exact, 3);
  });

  test.each([false, true])('a texture lies as it does on floats (batched: %s)', async (batch) => {
    const values = glbOf(told(name));
    const glb = browser.put(`${name}.glb`, values.bytes);
    const { mean, strays, picture } = await browser.call('textured', `/${name}.src`, glb, values.ids, batch);
    browser.keep(`${name}-textured${batch ? '-batched' : ''}`, picture);
    expect(strays).toBe(0);
    expect(mean).toBeLessThan(0.05);
  });
});

test('points, lines, strips, fans and loops become what they are', async () => {
  const objects = await browser.call('objects', '/primitives.src');
  expect(objects.map((object) => object.type)).toEqual([
    'Points',
    'LineSegments',
    'LineLoop',
    'Line',
    'Mesh',
    'Mesh',
    'Mesh',
  ]);
  browser.keep('primitives', await browser.call('picture', '/primitives.src'));
});

test.each(['primitives', 'primitives-position'])('rays hit points, lines and triangles of %s', async (name) => {
  const { meshes } = told(name);
  const [first, second, far] = [0, 1, 2].map((vertex) =>
    meshes.map(({ attributes: { position } }) => position!.slice(vertex * 3, vertex * 3 + 3)),
  );
  const between = (a: number[], b: number[], by = 0.5) =>
    a.map((x, i) => x + (b[i]! - x) * by) as [number, number, number];
  const ids = meshes.map((mesh) => mesh.id);
  // A little off a vertex, the middle of an edge, and inside the square.
  const atVertex = await browser.call(
    'aim',
    `/${name}.src`,
    first!.map((a, i) => between(a, second![i]!, 0.02)),
    false,
  );
  expect(atVertex).toEqual(ids);
  const atEdge = await browser.call(
    'aim',
    `/${name}.src`,
    first!.map((a, i) => between(a, second![i]!)),
    false,
  );
  expect(atEdge).toEqual([null, ...ids.slice(1)]);
  const inside = await browser.call(
    'aim',
    `/${name}.src`,
    first!.map((a, i) => between(a, far![i]!, 0.4)),
    false,
  );
  expect(inside).toEqual([null, null, null, null, ...ids.slice(4)]);
});

test('names, IDs and metadata are kept verbatim', async () => {
  const [first] = await browser.call('objects', '/uncompressed.src');
  expect(first).toMatchObject({
    id: 'mesh0',
    name: 'mesh0',
    userData: { id: 'mesh0', material: expect.stringMatching(/^mat/) },
  });
  expect(first!.userData.metadata).toMatchObject({ name: 'mesh0', numOriginalTriangles: 2304 });
  const [odd] = await browser.call('objects', '/chunks.src');
  expect([odd!.id, odd!.userData.metadata, odd!.index]).toEqual(['a/b ~"é"', null, 'Uint16Array']);
});

test('a stream fills the scene mesh by mesh', async () => {
  const seen = await browser.call('stream', '/uncompressed.src');
  expect(seen).toEqual(['header 5', 'mesh mesh0 1', 'mesh mesh1 2', 'mesh mesh2 3', 'mesh mesh3 4', 'mesh mesh4 5']);
});

test.each([
  ['LOOKS_LIKE_HTML', '<!doctype html><h1>It works!</h1>'],
  ['LOOKS_LIKE_GLB', 'glTF....'],
  ['EMPTY_FILE', ''],
])('%s is said with the address and a remedy', async (code, content) => {
  const url = browser.put('broken.src', (_, response) => response.end(content));
  const failure = await browser.call('failure', url);
  expect(failure!.code).toBe(code);
  expect(failure!.message).toMatch(/^\/broken\.src, byte 0: .*\. .*\.$/);
});

test('a load that never ends can be aborted', async () => {
  const bytes = fixture('default');
  const url = browser.put('endless.src', (_, response) => {
    response.write(bytes.subarray(0, bytes.length - 1));
  });
  expect(await browser.call('abort', url)).toBe('AbortError');
});

test.each([
  ['cmp1', false],
  ['position-normal', true],
])(
  'a hundred loads of %s leave nothing behind (batched: %s)',
  async (name, batch) => {
    const held = await browser.call('cycles', `/${name}.src`, 100, batch);
    expect(held[99]).toBe(held[0]);
  },
  120_000,
);

test.each([
  ['many', false],
  ['many-cmp1', false],
  ['many', true],
  ['many-cmp1', true],
])('%s small meshes look the same in one batch per material (drawn while it fills: %s)', async (name, whileFilled) => {
  const { mean, strays, objects, picture } = await browser.call('batched', `/${name}.src`, whileFilled);
  browser.keep(whileFilled ? `${name}-while-filled` : name, picture);
  expect(objects).toBe(3);
  expect(strays).toBe(0);
  // See-through meshes of three materials cannot all be drawn back to front when each material is drawn at once.
  expect(mean).toBeLessThan(name === 'many' ? 0.05 : 0.6);
});

test('a mesh in a batch is picked by its ID', async () => {
  const { meshes } = told('many');
  // The row of spheres that nothing stands before: the camera looks along y from below.
  const front = meshes
    .filter(({ attributes: { position } }) => Math.abs(position![1]!) < 0.4 && position![2]! > 0.9)
    .slice(0, 5);
  const centers = front.map(({ attributes: { position } }) => {
    const sum = [0, 0, 0];
    position!.forEach((x, i) => (sum[i % 3]! += x / (position!.length / 3)));
    return sum as [number, number, number];
  });
  expect(await browser.call('aim', '/many.src', centers, true)).toEqual(front.map((mesh) => mesh.id));
});

test('nothing was complained about', () => {
  expect(browser.complaints).toEqual([]);
});
