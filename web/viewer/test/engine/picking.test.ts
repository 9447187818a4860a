import { Box3, Ray, Vector3 } from 'three';
import { afterAll, beforeAll, beforeEach, describe, expect, test } from 'vitest';
import type { FileScene } from '../../src/engine/fileScene.js';
import { pick } from '../../src/engine/picking.js';
import { cube, field, fileOf, square, type TestMesh } from './models.js';
import { EnginePage } from './stage.js';

let stage: EnginePage;
beforeAll(async () => {
  stage = await EnginePage.start();
}, 120_000);
beforeEach(() => stage.reset());
afterAll(() => stage?.stop());

const selection = () => stage.do(({ engine }) => engine.selection?.mesh ?? null);
/** Clicks on a point of the plane at which the camera looks from this far, and tells which mesh it was. */
async function clickAt(x: number, y: number, distance: number): Promise<number | null> {
  await stage.click(...stage.place(x, y, distance));
  return selection();
}
const ids = (file: number, ...meshes: number[]) => meshes.map((mesh) => ({ file, mesh }));

/** Two small squares before a large one: at z = 1, left and right, and at z = 0. */
const LAYERS = [square(-2, -0.5, 1), square(1, -0.5, 1), square(-3, -3, 0, 6)];
/** Where a point at z = 1 seems to be in the plane z = 0, seen from z = 10. */
const raised = (x: number) => (x * 10) / 9;

/** Enough of them that all are drawn in batches. */
const ELSEWHERE = field(100, 10).map((mesh) => ({ ...mesh, positions: mesh.positions.map((x) => x + 50) }));
const codes = { offset: [-4000, -4000, 0], scale: [1000, 1000, 1000] };

describe.each([
  ['drawn one by one', LAYERS],
  ['drawn in batches', [...LAYERS, ...ELSEWHERE]],
  ['stored as codes', LAYERS.map((mesh) => ({ ...mesh, codes }))],
])('meshes %s', (_, meshes: TestMesh[]) => {
  let file: number;
  beforeEach(async () => {
    file = await stage.open(fileOf(meshes));
    await stage.lookAt(0, 0, 10);
  });

  test('a click picks the nearest', async () => {
    expect(await clickAt(raised(-1.5), 0, 10)).toBe(0);
    expect(await clickAt(raised(1.5), 0, 10)).toBe(1);
    expect(await clickAt(0, 0, 10)).toBe(2);
    // Just inside and just outside of the edge at x = 2.
    expect(await clickAt(raised(1.95), 0, 10)).toBe(1);
    expect(await clickAt(raised(2.05), 0, 10)).toBe(2);
  });

  test('a click on nothing picks nothing', async () => {
    expect(await clickAt(0, 0, 10)).toBe(2);
    expect(await clickAt(3.2, 0, 10)).toBe(null);
    expect(await stage.events('pick')).toEqual([{ file, mesh: 2 }, null]);
    expect(await stage.events('selection')).toEqual([{ file, mesh: 2 }, null]);
  });

  test('what is hidden is not picked', async () => {
    await stage.do(({ engine }, hidden) => engine.setVisible(hidden, false), ids(file, 0));
    expect(await clickAt(raised(-1.5), 0, 10)).toBe(2);
    expect(await clickAt(raised(1.5), 0, 10)).toBe(1);
  });

  test('only what is isolated is picked, until all are shown', async () => {
    await stage.do(({ engine }, kept) => engine.isolate(kept), ids(file, 1));
    expect(await clickAt(raised(-1.5), 0, 10)).toBe(null);
    expect(await clickAt(raised(1.5), 0, 10)).toBe(1);
    await stage.do(({ engine }) => engine.showAll());
    expect(await clickAt(raised(-1.5), 0, 10)).toBe(0);
  });

  test('what is clipped away is not picked', async () => {
    const high = Math.max(...meshes.flatMap(({ positions }) => positions.filter((_, i) => i % 3 === 2)));
    // Half a unit above the large square, below the small ones.
    await stage.do(
      ({ engine }, position) => engine.setDisplay({ clip: { axis: 'z', position, flipped: false } }),
      0.5 / high,
    );
    expect(await clickAt(raised(-1.5), 0, 10)).toBe(2);
    await stage.do(
      ({ engine }, position) => engine.setDisplay({ clip: { axis: 'z', position, flipped: true } }),
      0.5 / high,
    );
    expect(await clickAt(raised(-1.5), 0, 10)).toBe(0);
    expect(await clickAt(0, 0, 10)).toBe(null);
  });
});

test('no ray slips through between two triangles', () => {
  const positions = new Float32Array(square(0, 0, 0).positions);
  const surface = {
    ...{ kind: 'triangles', positions, stride: 3, offset: 0, components: 3, index: new Uint16Array([0, 1, 2, 0, 2, 3]) },
    ...{ start: 0, count: 6, step: 1, loop: false, scale: new Vector3(1, 1, 1), shift: new Vector3() },
  } as const;
  const box = new Box3(new Vector3(), new Vector3(1, 1, 0));
  const scene = { entries: [{ visible: true, surface, box }] } as unknown as FileScene;
  let missed = 0;
  for (let i = 1; i < 1000; ++i) {
    const from = new Vector3(0.3, 0.1, 3);
    const direction = new Vector3(i / 1000, i / 1000, 0).sub(from).normalize();
    if (!pick(scene, new Ray(from, direction), { clip: null, tolerance: 0 })) ++missed;
  }
  expect(missed).toBe(0);
});

test('a part of a mesh that is clipped away lets what is behind it be picked', async () => {
  await stage.open(fileOf([square(-2, -2, 1, 4), square(-2, -2, 0, 4)]));
  await stage.lookAt(0, 0, 10);
  await stage.do(({ engine }) => engine.setDisplay({ clip: { axis: 'x', position: 0.5, flipped: false } }));
  expect(await clickAt(-1, 0, 10)).toBe(0);
  expect(await clickAt(1, 0, 10)).toBe(null);
});

test('points and lines are picked from near by', async () => {
  await stage.open(
    fileOf([
      { positions: [-1, 0, 0], primitive: 0 },
      { positions: [1, -1, 0, 1, 1, 0], primitive: 1 },
      { positions: [2, -1, 0, 2, 1, 0, 3, 1, 0], primitive: 2 },
    ]),
  );
  await stage.lookAt(0, 0, 10);
  const [x, y] = stage.place(-1, 0, 10);
  const near = async (x: number, y: number) => {
    await stage.click(x, y);
    return selection();
  };
  expect(await near(x + 4, y)).toBe(0);
  expect(await near(x + 9, y)).toBe(null);
  const [lineX] = stage.place(1, 0, 10);
  expect(await near(lineX - 4, y + 20)).toBe(1);
  // The side that closes a loop.
  expect(await clickAt(2.5, 0, 10)).toBe(2);
});

test('a mesh is picked through one that has not arrived', async () => {
  const bytes = fileOf([square(-1, -1, 0, 2), square(-1, -1, 1, 2)]);
  const url = stage.put('slow.src', (_, response) => {
    response.write(bytes.subarray(0, bytes.length - 30)); // the second square lacks some of its bytes
  });
  await stage.do(({ engine }, url) => engine.open({ name: 'slow.src', url }), url);
  await stage.until(({ engine }) => engine.files[0]?.loadedMeshes === 1);
  await stage.lookAt(0, 0, 10);
  expect(await clickAt(0, 0, 10)).toBe(0);
});

test('a drag turns the camera and picks nothing', async () => {
  await stage.open(fileOf([cube()]));
  const before = await stage.do(({ engine }) => engine.camera.position);
  const { mouse } = stage.page;
  await mouse.move(400, 300);
  await mouse.down();
  await mouse.move(460, 310, { steps: 4 });
  await mouse.up();
  await stage.settle();
  expect(await stage.events('pick')).toEqual([]);
  expect(await stage.do(({ engine }) => engine.camera.position)).not.toEqual(before);
});

test('a mesh can be selected by its place, and its file takes the selection along', async () => {
  const file = await stage.open(fileOf([cube(), square(3, 0, 0)]));
  await stage.do(({ engine }, [mesh]) => engine.select(mesh!), ids(file, 1));
  expect(await selection()).toBe(1);
  await stage.do(({ engine }, id) => engine.close(id), file);
  expect(await stage.events('selection')).toEqual([{ file, mesh: 1 }, null]);
});

test.each([
  ['a surface', square(-1, -1, 0, 2)],
  ['a line', { positions: [-1, 0, 0, 1, 0, 0], primitive: 1 }],
  ['points', { positions: [-1, 0, 0, 0, 1, 0], primitive: 0 }],
])('%s is outlined when it is selected', async (_, mesh) => {
  for (const theme of ['light', 'dark'] as const) {
    await stage.reset();
    const file = await stage.open(fileOf([mesh]));
    await stage.do(({ engine }, theme) => engine.setDisplay({ theme }), theme);
    await stage.lookAt(0, 0, 5);
    const before = await stage.covered();
    await stage.do(({ engine }, file) => engine.select({ file, mesh: 0 }), file);
    expect(await stage.covered()).toBeGreaterThan(before + 20);
    await stage.do(({ engine }, file) => engine.setVisible([{ file, mesh: 0 }], false), file);
    expect(await stage.covered()).toBe(0);
  }
});

test('one event tells of many meshes', async () => {
  const file = await stage.open(fileOf(field(500, 25)));
  await stage.do(
    ({ engine }, file) => engine.setVisible(Array.from({ length: 499 }, (_, mesh) => ({ file, mesh })), false),
    file,
  );
  expect(await stage.events('visibility')).toEqual([null]);
  const { hidden, first, last } = await stage.do(({ engine }, file) => {
    const isVisible = (mesh: number) => engine.isVisible({ file, mesh });
    return { hidden: engine.hiddenCount, first: isVisible(0), last: isVisible(499) };
  }, file);
  expect([hidden, first, last]).toEqual([499, false, true]);
});

test('nothing was complained about', () => {
  expect(stage.complaints).toEqual([]);
});
