import { afterAll, beforeAll, beforeEach, describe, expect, test } from 'vitest';
import { cube, field, fileOf, square, type TestMesh } from './models.js';
import { EnginePage, HEIGHT, WIDTH } from './stage.js';

let stage: EnginePage;
beforeAll(async () => {
  stage = await EnginePage.start();
}, 120_000);
beforeEach(() => stage.reset());
afterAll(() => stage?.stop());

/** A place on a map, in metres. */
const UTM: [number, number, number] = [500123.25, 5400321.5, 12];
const beside = (x: number): [number, number, number] => [UTM[0] + x, UTM[1], UTM[2]];

const about = (origin: unknown, meshes: TestMesh[]) => fileOf(meshes.map((mesh) => ({ ...mesh, origin })));
const measurement = () => stage.do(({ engine }) => engine.measurement);
const camera = () => stage.do(({ engine }) => engine.camera);
const selection = () => stage.do(({ engine }) => engine.selection);
/** Looks down from so far at a place that is given from UTM. */
const lookAt = (x: number, y: number, distance: number) => stage.lookAt(UTM[0] + x, UTM[1] + y, distance, UTM[2]);

function expectNear(found: readonly number[], expected: readonly number[], within = 1e-6) {
  expect(found.length).toBe(expected.length);
  expected.forEach((x, i) => expect(Math.abs(found[i]! - x)).toBeLessThan(within));
}

test('clicks near vertices measure true coordinates', async () => {
  await stage.open(about(UTM, [{ positions: [0, 0, 0, 3, 0, 0, 0, 4, 0] }]));
  await lookAt(1.5, 2, 12);
  await stage.do(({ engine }) => (engine.measuring = true));
  const [x1, y1] = stage.place(1.5, -2, 12);
  await stage.click(x1 - 5, y1 - 2);
  const [x2, y2] = stage.place(-1.5, 2, 12);
  await stage.click(x2 + 2, y2 + 6);
  const [from, to] = [
    [500126.25, 5400321.5, 12],
    [500123.25, 5400325.5, 12],
  ];
  expect(await measurement()).toEqual({ from, to, distance: 5 });
});

test('clicks on a surface measure it to a millionth', async () => {
  await stage.open(about(UTM, [square(-2, -2, 0, 4)]));
  await lookAt(0, 0, 10);
  await stage.do(({ engine }) => (engine.measuring = true));
  await stage.click(WIDTH / 2 - 70, HEIGHT / 2 - 40);
  await stage.click(WIDTH / 2 + 50, HEIGHT / 2 + 50);
  const perUnit = stage.place(1, 0, 10)[0] - WIDTH / 2;
  const { from, to, distance } = (await measurement())!;
  expectNear(from, [UTM[0] - 70 / perUnit, UTM[1] + 40 / perUnit, 12]);
  expectNear(to!, [UTM[0] + 50 / perUnit, UTM[1] - 50 / perUnit, 12]);
  expectNear([distance!], [150 / perUnit]);
});

test('a measurement is set and drawn in true coordinates', async () => {
  await stage.open(about(UTM, [square(-1, -1, 0, 2)]));
  await lookAt(0, 0, 10);
  const before = await stage.covered();
  const ends = { from: [UTM[0] - 3, UTM[1] - 2, 12], to: [UTM[0] + 3, UTM[1] - 2, 12], distance: null };
  await stage.do(({ engine }, ends) => engine.setMeasurement(ends as never), ends);
  expect((await measurement())!.distance).toBe(6);
  expect(await stage.covered()).toBeGreaterThan(before + 500);
});

test('the camera is told in true coordinates', async () => {
  await stage.open(about(UTM, [cube(2)]));
  expectNear((await camera()).target, [UTM[0] + 1, UTM[1] + 1, 13]);
  await lookAt(0.125, 0.25, 4);
  expectNear((await camera()).position, [UTM[0] + 0.125, UTM[1] + 0.25, 16]);
});

test('a camera that was placed before a file came looks where it was told to', async () => {
  await lookAt(0, 0, 10);
  await stage.open(about(UTM, [square(-1, -1, 0, 2)]));
  expectNear((await camera()).position, [UTM[0], UTM[1], 22]);
  await stage.click(...stage.place(0.9, 0.9, 10));
  expect((await selection())?.mesh).toBe(0);
  await stage.click(...stage.place(1.1, 0.9, 10));
  expect(await selection()).toBeNull();
});

describe('files about different origins', () => {
  let left: number, right: number;
  beforeEach(async () => {
    left = await stage.open(about(UTM, [square(0, 0, 0)]), 'left.src');
    right = await stage.open(about(beside(1), [square(0, 0, 0)]), 'right.src');
    await lookAt(1, 0.5, 10);
  });

  test('lie right beside each other', async () => {
    await stage.click(...stage.place(-0.02, 0, 10));
    expect(await selection()).toEqual({ file: left, mesh: 0 });
    await stage.click(...stage.place(0.02, 0, 10));
    expect(await selection()).toEqual({ file: right, mesh: 0 });
  });

  test('are measured from one to the other', async () => {
    await stage.do(({ engine }) => (engine.measuring = true));
    const [x1, y1] = stage.place(-1, 0.5, 10);
    await stage.click(x1 + 3, y1 + 3);
    const [x2, y2] = stage.place(1, 0.5, 10);
    await stage.click(x2 - 3, y2 + 3);
    const [from, to] = [
      [500123.25, 5400322.5, 12],
      [500125.25, 5400322.5, 12],
    ];
    expect(await measurement()).toEqual({ from, to, distance: 2 });
  });

  test('stay where they are when the first is closed', async () => {
    const before = await camera();
    await stage.do(({ engine }, left) => engine.close(left), left);
    expect(await camera()).toEqual(before);
    await stage.click(...stage.place(0.02, 0, 10));
    expect(await selection()).toEqual({ file: right, mesh: 0 });
    await stage.click(...stage.place(-0.02, 0, 10));
    expect(await selection()).toBeNull();
  });

  test('tell their own coordinates in a row', async () => {
    await stage.do(({ engine }) => engine.setDisplay({ arrangement: 'row' }));
    await stage.do(({ engine }) => (engine.measuring = true));
    // The right one begins at 1 + 0.15, which is 0.15 from where the camera looks.
    const [x1, y1] = stage.place(0.15, 0.5, 10);
    await stage.click(x1 + 3, y1 + 3);
    const [x2, y2] = stage.place(1.15, 0.5, 10);
    await stage.click(x2 - 3, y2 + 3);
    const [from, to] = [
      [500124.25, 5400322.5, 12],
      [500125.25, 5400322.5, 12],
    ];
    expect(await measurement()).toEqual({ from, to, distance: 1 });
  });
});

test('a file without an origin and one on the map both lie where they say', async () => {
  await stage.open(fileOf([square(0, 0, 0)]), 'plain.src');
  const map = await stage.open(about(UTM, [square(0, 0, 0, 10)]), 'map.src');
  await lookAt(5, 5, 100); // in a scene of thousands of kilometres nobody comes much nearer
  await stage.click(...stage.place(4.5, 3, 100));
  expect(await selection()).toEqual({ file: map, mesh: 0 });
  await stage.click(...stage.place(5.5, 3, 100));
  expect(await selection()).toBeNull();
});

test('a file farther away than numbers reach takes nothing from the others', async () => {
  const first = await stage.open(about([1e308, 0, 0], [square(-1, -1, 0, 2)]), 'first.src');
  await stage.open(about([-1e308, 0, 0], [square(-1, -1, 1, 2)]), 'second.src');
  await stage.do(({ engine }) => engine.setView('back'));
  await stage.settle();
  await stage.click(WIDTH / 2 + 30, HEIGHT / 2 + 50);
  expect(await selection()).toEqual({ file: first, mesh: 0 });
});

test('after all files are closed, another one brings its own origin', async () => {
  const first = await stage.open(about(UTM, [cube(2)]));
  await stage.do(({ engine }, first) => engine.close(first), first);
  await stage.open(about([-1e6, 2e6, 0], [cube(2)]));
  expectNear((await camera()).target, [-1e6 + 1, 2e6 + 1, 1]);
});

test.each([
  ['in batches', 100],
  ['one by one', 2],
])('a mesh about another origin than its file lies where it says (meshes drawn %s)', async (_, count) => {
  const meshes: TestMesh[] = field(count, 10).map((mesh) => ({ ...mesh, origin: UTM }));
  meshes.push(square(0, 0, 0, 1, { origin: beside(-2) }));
  await stage.open(fileOf(meshes));
  await lookAt(-1.5, 0.5, 10);
  await stage.click(...stage.place(0.45, 0.3, 10));
  expect((await selection())?.mesh).toBe(count);
  await stage.click(...stage.place(2, 0, 10));
  expect((await selection())?.mesh).toBe(0);
  await stage.click(...stage.place(0.55, 0.3, 10));
  expect(await selection()).toBeNull();
});

test.each([['500123, 5400321, 12'], [[500123.25, 5400321.5]], [[UTM]], [{ x: 1 }], [null]])(
  '%j is no origin',
  async (origin) => {
    await stage.open(about(origin, [cube(2)]));
    expectNear((await camera()).target, [1, 1, 1]);
  },
);

/** Places all over the picture. */
const GRID: [number, number][] = [];
for (let y = 5; y < HEIGHT; y += 10) for (let x = 5; x < WIDTH; x += 10) GRID.push([x, y]);

const codes = { offset: [0, 0, 0], scale: [1000, 1000, 1000] };
test.each([
  ['floats', {}, 0],
  ['codes', { codes }, 0],
  ['floats in batches', {}, 100],
  ['codes in batches', { codes }, 100],
])('%s on a map look as they do near zero, with all that is drawn around them', async (_, more, others) => {
  const seenAbout = async (origin: [number, number, number] | undefined) => {
    await stage.reset();
    const corners = [0, 0, 0, 2, 0, 0.5, 1.25, 1.5, 0, 0.25, 1, 1.75];
    const mesh = { positions: corners, indices: [0, 1, 2, 1, 3, 2], ...more };
    const elsewhere = Array.from({ length: others }, () => square(3, 3, 3, 0.1));
    const file = await stage.open(about(origin, [mesh, ...elsewhere]));
    const [x, y, z] = origin ?? [0, 0, 0];
    const view = { position: [x + 0.6, y + 1.2, z + 2.5], target: [x + 1, y + 0.75, z + 0.5], up: [0, 1, 0] };
    const ends = { from: [x, y, z], to: [x + 1.25, y + 1.5, z], distance: null };
    await stage.do(
      ({ engine }, { view, ends, file }) => {
        engine.setCamera(view as never, false);
        engine.setDisplay({ bounds: true, wireframe: true, clip: { axis: 'x', position: 0.55, flipped: false } });
        engine.setMeasurement(ends as never);
        engine.select({ file, mesh: 0 });
      },
      { view, ends, file },
    );
    await stage.settle();
    return stage.colors(GRID);
  };
  const near = await seenAbout(undefined),
    far = await seenAbout([500123.25, 5_000_000.5, 12]);
  const changes = near.filter((color, i) => color.some((c, k) => Math.abs(c - far[i]![k]!) > 8));
  expect(new Set(near.map(String)).size).toBeGreaterThan(4);
  expect(changes.length).toBeLessThan(GRID.length / 1000);
});

test('nothing was complained about', () => {
  expect(stage.complaints).toEqual([]);
});
