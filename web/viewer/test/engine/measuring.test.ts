import { afterAll, beforeAll, beforeEach, expect, test } from 'vitest';
import { cube, fileOf, square } from './models.js';
import { EnginePage } from './stage.js';

let stage: EnginePage;
beforeAll(async () => {
  stage = await EnginePage.start();
}, 120_000);
beforeEach(() => stage.reset());
afterAll(() => stage?.stop());

const measurement = () => stage.do(({ engine }) => engine.measurement);

test('two clicks near vertices measure between these', async () => {
  await stage.open(fileOf([{ positions: [0, 0, 0, 3, 0, 0, 0, 4, 0] }]));
  await stage.lookAt(1.5, 2, 12);
  await stage.do(({ engine }) => (engine.measuring = true));
  const at = (x: number, y: number) => stage.place(x - 1.5, y - 2, 12);
  const [x1, y1] = at(3, 0);
  await stage.click(x1 - 5, y1 - 2);
  expect(await measurement()).toEqual({ from: [3, 0, 0], to: null, distance: null });
  const [x2, y2] = at(0, 4);
  await stage.click(x2 + 2, y2 + 6);
  expect(await measurement()).toEqual({ from: [3, 0, 0], to: [0, 4, 0], distance: 5 });
  expect(await stage.events('selection')).toEqual([]);
  expect(await stage.events('pick')).toEqual([]);
  expect(await stage.events('measurement')).toHaveLength(2);
});

test('a click far from all vertices measures the place itself', async () => {
  await stage.open(fileOf([square(-2, -2, 0, 4)]));
  await stage.lookAt(0, 0, 10);
  await stage.do(({ engine }) => (engine.measuring = true));
  await stage.click(...stage.place(-1, 0.5, 10));
  await stage.click(...stage.place(1, 0.5, 10));
  const { distance, from } = (await measurement())!;
  expect(distance).toBeCloseTo(2, 1);
  expect(from[2]).toBeCloseTo(0, 9);
  // A third click begins anew, one on nothing changes nothing.
  await stage.click(...stage.place(0, 0, 10));
  expect((await measurement())!.to).toBe(null);
  await stage.click(5, 5);
  expect((await measurement())!.to).toBe(null);
});

test('far from the origin, half a unit is half a unit', async () => {
  const codes = { offset: [1e9, 2e9, 0], scale: [100, 100, 100] }; // 10,000,000 and 20,000,000
  const positions = [1e7, 2e7, 0, 1e7 + 0.5, 2e7, 0, 1e7, 2e7 + 1, 0];
  await stage.open(fileOf([{ positions, codes }]));
  await stage.lookAt(1e7, 2e7, 5);
  await stage.do(({ engine }) => (engine.measuring = true));
  const [x, y] = stage.place(0, 0, 5);
  await stage.click(x + 3, y - 3);
  const [x2, y2] = stage.place(0.5, 0, 5);
  await stage.click(x2 - 6, y2 - 3);
  expect(await measurement()).toEqual({ from: [1e7, 2e7, 0], to: [1e7 + 0.5, 2e7, 0], distance: 0.5 });
  // The triangle is drawn where it is clicked: inside its sharp corner, and not beside it.
  await stage.do(({ engine }) => engine.setMeasurement(null));
  const [inside, above] = await stage.colors([stage.place(0.03, 0.85, 5), stage.place(0.12, 0.85, 5)]);
  expect(inside).not.toEqual(above);
  expect(above).toEqual((await stage.colors([[5, 5]]))[0]);
});

test('in a row, points are told in the coordinates of their own file', async () => {
  await stage.open(fileOf([square(-1, -1, 0, 2)]), 'first.src');
  await stage.open(fileOf([square(-1, -1, 0, 2)]), 'second.src');
  await stage.do(({ engine }) => engine.setDisplay({ arrangement: 'row' }));
  // The second one stands at 1 + 0.15 * 2 + 1 to the right.
  await stage.lookAt(2.3, 0, 10);
  await stage.do(({ engine }) => (engine.measuring = true));
  const corner = stage.place(-1, 1, 10);
  await stage.click(corner[0] + 3, corner[1] + 3);
  const other = stage.place(1, 1, 10);
  await stage.click(other[0] - 3, other[1] + 3);
  expect(await measurement()).toEqual({ from: [-1, 1, 0], to: [1, 1, 0], distance: 2 });
});

test('a measurement is drawn, also before anything was clicked', async () => {
  await stage.open(fileOf([square(-1, -1, 0, 2)]));
  await stage.lookAt(0, 0, 10);
  const before = await stage.covered();
  await stage.do(({ engine }) => engine.setMeasurement({ from: [-3, -2, 0], to: [3, -2, 0], distance: null }));
  expect((await measurement())!.distance).toBe(6);
  expect(await stage.covered()).toBeGreaterThan(before + 500);
  await stage.do(({ engine }) => engine.setMeasurement(null));
  expect(await stage.covered()).toBe(before);
});

test('facts are those of the geometry, undone from codes', async () => {
  const strip = { positions: [0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0], primitive: 5 };
  const line = { positions: [0, 0, 0, 1, 0, 0], primitive: 1 };
  const codes = { offset: [0, 0, 0], scale: [1000, 2000, 3000] };
  const file = await stage.open(fileOf([cube(2), { ...cube(2), codes }, strip, line]));
  const facts = await stage.do(
    ({ engine }, file) => [0, 1, 2, 3].map((mesh) => engine.facts({ file, mesh })),
    file,
  );
  expect(facts[0]).toEqual({ triangles: 12, vertices: 8, area: 24 });
  expect(facts[1]!.area).toBeCloseTo(24, 9);
  expect(facts[2]).toEqual({ triangles: 2, vertices: 4, area: 1 });
  expect(facts[3]).toEqual({ triangles: 0, vertices: 2, area: null });
});
