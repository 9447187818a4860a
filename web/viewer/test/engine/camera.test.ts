import { afterAll, beforeAll, beforeEach, expect, test } from 'vitest';
import { cube, fileOf, square } from './models.js';
import { EnginePage } from './stage.js';

let stage: EnginePage;
beforeAll(async () => {
  stage = await EnginePage.start();
}, 120_000);
beforeEach(() => stage.reset());
afterAll(() => stage?.stop());

const camera = () => stage.do(({ engine }) => engine.camera);
/** From the target to the camera, of length 1. */
async function direction(): Promise<number[]> {
  const { position, target } = await camera();
  const offset = position.map((x, i) => x - target[i]!);
  const length = Math.hypot(...offset);
  return offset.map((x) => x / length);
}
function expectNear(found: number[], expected: number[], digits = 3) {
  found.forEach((x, i) => expect(x).toBeCloseTo(expected[i]!, digits));
}

/** Places all over the page. */
const GRID = Array.from({ length: 3072 }, (_, i): [number, number] => [
  (i % 64) * 12.5 + 6,
  Math.floor(i / 64) * 12.5 + 6,
]);

test.each([
  ['y', 'front', [0, 0, 1]],
  ['y', 'back', [0, 0, -1]],
  ['y', 'left', [-1, 0, 0]],
  ['y', 'right', [1, 0, 0]],
  ['y', 'top', [0, 1, 0]],
  ['y', 'bottom', [0, -1, 0]],
  ['z', 'front', [0, -1, 0]],
  ['z', 'right', [1, 0, 0]],
  ['z', 'top', [0, 0, 1]],
] as const)('with %s up, the %s view is seen from there', async (up, view, expected) => {
  await stage.open(fileOf([cube()]));
  await stage.do(({ engine }, [up, view]) => {
    engine.setDisplay({ up: up as 'y' | 'z' });
    engine.setView(view as 'front');
  }, [up, view]);
  await stage.settle();
  expectNear(await direction(), [...expected]);
  expectNear((await camera()).target, [0.5, 0.5, 0.5], 9);
  expect((await camera()).up).toEqual(up === 'y' ? [0, 1, 0] : [0, 0, 1]);
});

test('a fit fills the picture with what is asked for', async () => {
  const file = await stage.open(fileOf([square(0, 0, 0, 1), square(100, 0, 0, 50)]));
  await stage.do(({ engine }) => engine.setView('front'));
  await stage.settle();
  await stage.do(({ engine }, file) => engine.fit([{ file, mesh: 0 }]), file);
  await stage.settle();
  const { target, position } = await camera();
  expectNear(target, [0.5, 0.5, 0]);
  // A square of 1 in a field of view of 35 degrees, with a border of 8 percent.
  expect(position[2]).toBeCloseTo((0.5 / Math.tan((35 * Math.PI) / 360)) * 1.08, 3);
  await stage.do(({ engine }, file) => {
    engine.setVisible([{ file, mesh: 0 }], false);
    engine.fit();
  }, file);
  await stage.settle();
  expectNear((await camera()).target, [125, 25, 0]);
});

test('a fit is to the bounds that the metadata tell, not to vertices that only stretch the box', async () => {
  const { positions, indices } = cube(2);
  await stage.open(
    fileOf([{ positions: [...positions, 0, 0, 0, 64, 64, 64], indices, bounds: [0, 0, 0, 2, 2, 2] }]),
  );
  await stage.do(({ engine }) => engine.setView('front'));
  await stage.settle();
  const { target, position } = await camera();
  expectNear(target, [1, 1, 1], 9);
  expect(position[2]).toBeLessThan(10);
});

test('a camera that was set before the file came stays', async () => {
  const wanted = { position: [1e6, 20, 30] as const, target: [1e6, 0, 5] as const, up: [0, 1, 0] as const };
  await stage.do(({ engine }, wanted) => engine.setCamera(wanted as never, false), wanted);
  await stage.open(fileOf([{ ...square(1e6, 0, 0, 10) }]));
  const { position, target } = await camera();
  expectNear(position, [...wanted.position], 6);
  expectNear(target, [...wanted.target], 6);
});

test('the camera tells once when it has come to rest', async () => {
  await stage.open(fileOf([cube()]));
  const before = (await stage.events('camera')).length;
  await stage.do(({ engine }) => engine.setView('top'));
  await stage.settle();
  const told = (await stage.events('camera')).slice(before);
  expect(told).toEqual([await camera()]);
});

test('animations are left out for people who prefer that', async () => {
  const at = () =>
    stage.do(({ engine }) => {
      engine.setView('back');
      const { position, target } = engine.camera;
      return position[2]! < target[2]!;
    });
  await stage.open(fileOf([cube()]));
  expect(await at()).toBe(false); // under way
  await stage.page.emulateMedia({ reducedMotion: 'reduce' });
  await stage.reload();
  await stage.open(fileOf([cube()]));
  expect(await at()).toBe(true);
  await stage.page.emulateMedia({ reducedMotion: null });
  await stage.reload();
});

test('keys turn, move and zoom when the canvas has the focus', async () => {
  await stage.open(fileOf([cube()]));
  await stage.lookAt(0.5, 0.5, 5);
  await stage.do(({ canvas }) => canvas.focus());
  const press = async (key: string) => {
    await stage.page.keyboard.press(key);
    await stage.settle();
    return camera();
  };
  const turned = await press('ArrowRight');
  expect(turned.position[0]).toBeGreaterThan(0.6);
  expectNear(turned.target, [0.5, 0.5, 0]);
  const moved = await press('Shift+ArrowUp');
  expect(moved.target[1]).not.toBeCloseTo(0.5, 3);
  const distance = ({ position, target }: typeof moved) => Math.hypot(...position.map((x, i) => x - target[i]!));
  expect(distance(await press('+'))).toBeCloseTo(distance(moved) / 1.2, 6);
});

test.each([1e-6, 1, 1e7])('a model of size %s is seen whole', async (size) => {
  await stage.open(fileOf([cube(size)]));
  await stage.do(({ engine }) => engine.setView('front'));
  await stage.settle();
  // The cube's side takes a height of 1 / 1.08 of the picture at its front, which is a bit nearer than its middle.
  const pixels = await stage.covered();
  expect(pixels).toBeGreaterThan(400 * 400);
  expect(pixels).toBeLessThan(600 * 600);
});

test.each([1e-6, 1e6])('a model of size %s is zoomed, turned and moved with the mouse', async (size) => {
  await stage.open(fileOf([cube(size)]));
  await stage.do(({ engine }) => engine.setView('front'));
  await stage.settle();
  const { mouse } = stage.page;
  await mouse.move(400, 300);
  for (const act of [
    () => mouse.wheel(0, -200),
    async () => {
      await mouse.down();
      await mouse.move(420, 300);
      await mouse.up();
    },
    async () => {
      await mouse.down({ button: 'right' });
      await mouse.move(400, 320);
      await mouse.up({ button: 'right' });
    },
  ]) {
    const before = await stage.colors(GRID);
    const told = (await stage.events('camera')).length;
    await act();
    await expect.poll(async () => (await stage.events('camera')).length, { timeout: 20_000 }).toBeGreaterThan(told);
    await stage.settle();
    expect(await stage.colors(GRID)).not.toEqual(before);
  }
});

test('a camera that a person has moved is not moved by another file', async () => {
  await stage.open(fileOf([cube()]), 'first.src');
  await stage.page.mouse.click(400, 300);
  await stage.open(fileOf([square(10, 0, 0)]), 'second.src');
  expect((await camera()).target[0]).toBeCloseTo(5.5, 9);
  await stage.page.mouse.move(400, 300);
  await stage.page.mouse.wheel(0, -100);
  await stage.settle();
  const { target } = await camera();
  await stage.open(fileOf([square(30, 0, 0)]), 'third.src');
  expectNear((await camera()).target, target, 9);
});

// Whole numbers of quarters, which floats still tell apart at the place that is added.
const corners = [0, 0, 0, 2, 0, 0.5, 1.25, 1.5, 0, 0.25, 1, 1.75];
const codes = { offset: [0, 0, 0], scale: [1000, 1000, 1000] };
const FAR = 2 ** 20;
test.each([
  ['floats', {}, 0],
  ['codes', { codes }, 0],
  ['floats in batches', {}, 100],
  ['codes in batches', { codes }, 100],
])('%s far from the origin look as they do near it', async (_, more, others) => {
  const seenAt = async (at: number) => {
    await stage.reset();
    const shifted = 'codes' in more ? { codes: { ...codes, offset: codes.scale.map((scale) => scale * at) } } : {};
    const mesh = { positions: corners.map((x) => x + at), indices: [0, 1, 2, 1, 3, 2], ...shifted };
    const elsewhere = Array.from({ length: others }, () => square(at + 50, at + 50, at + 50));
    await stage.open(fileOf([mesh, ...elsewhere]));
    const camera = { position: [at + 2, at + 2.5, at + 4], target: [at + 1, at + 0.75, at + 0.5], up: [0, 1, 0] };
    await stage.do(({ engine }, camera) => engine.setCamera(camera as never, false), camera);
    await stage.settle();
    return stage.colors(GRID);
  };
  const near = await seenAt(0),
    far = await seenAt(FAR);
  const changes = near.filter((color, i) => color.some((c, k) => Math.abs(c - far[i]![k]!) > 8));
  expect(new Set(near.map(String)).size).toBeGreaterThan(2);
  expect(changes.length).toBeLessThan(GRID.length / 200);
});

test('nothing was complained about', () => {
  expect(stage.complaints).toEqual([]);
});
