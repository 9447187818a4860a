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
  expect((await camera()).target).toEqual([0.5, 0.5, 0.5]);
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
  await stage.reset();
  await stage.open(fileOf([cube()]));
  expect(await at()).toBe(true);
  await stage.page.emulateMedia({ reducedMotion: null });
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

test('nothing was complained about', () => {
  expect(stage.complaints).toEqual([]);
});
