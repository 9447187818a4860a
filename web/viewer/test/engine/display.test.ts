import { afterAll, beforeAll, beforeEach, describe, expect, test } from 'vitest';
import { cube, field, fileOf, square, type TestMesh } from './models.js';
import { EnginePage, HEIGHT, WIDTH } from './stage.js';

let stage: EnginePage;
beforeAll(async () => {
  stage = await EnginePage.start();
}, 120_000);
beforeEach(() => stage.reset());
afterAll(() => stage?.stop());

const colorAt = async (x: number, y: number, distance: number) =>
  (await stage.colors([stage.place(x, y, distance)]))[0]!;
const BACKGROUND: [number, number] = [3, 3];

/** Enough other meshes, far away, that all are drawn in batches. */
const batched = (...meshes: TestMesh[]): TestMesh[] => [
  ...meshes,
  ...field(100, 10).map((mesh) => ({ ...mesh, positions: mesh.positions.map((x) => x + 500) })),
];
/** Steps that differ much from axis to axis, as a flat mesh has them. */
const uneven = { offset: [-10_000, -100, -40_000], scale: [5000, 50, 10_000] };

describe.each([
  ['drawn one by one', (...meshes: TestMesh[]) => meshes],
  ['drawn in batches', batched],
])('meshes %s', (_, among) => {
  test.each([
    ['floats', {}],
    ['floats without normals', { normals: undefined }],
    ['uneven codes', { codes: uneven }],
  ])('normals of %s are colours', async (_, more) => {
    // Tilted by 45 degrees about the x axis, to the light.
    const s = Math.SQRT1_2;
    const positions = [-2, -2, 0, 2, -2, 0, 2, 2, -4, -2, 2, -4];
    const normals = [0, s, s, 0, s, s, 0, s, s, 0, s, s];
    const mesh = { positions, indices: [0, 1, 2, 0, 2, 3], normals, ...more };
    await stage.open(fileOf(among(mesh)));
    await stage.lookAt(0, 0, 10, -2);
    await stage.do(({ engine }) => engine.setDisplay({ surface: 'normals' }));
    const [r, g, b] = await colorAt(0, 0, 10);
    // (n + 1) / 2, with n = (0, 0.707, 0.707).
    for (const [found, expected] of [
      [r, 127.5],
      [g, 217.7],
      [b, 217.7],
    ] as const) {
      expect(Math.abs(found! - expected)).toBeLessThan(4);
    }
  });

  test('materials have their colours, and a plain look has none', async () => {
    const materials = { red: { diffuseColor: [1, 0, 0] }, blue: { diffuseColor: [0, 0, 1] } };
    const meshes = [square(-2, -1, 0, 2, { material: 'red' }), square(1, -1, 0, 2, { material: 'blue' })];
    await stage.open(fileOf(among(...meshes), materials));
    await stage.lookAt(0, 0, 10);
    const left = () => colorAt(-1, 0, 10);
    const right = () => colorAt(2, 0, 10);
    const red = await left();
    const blue = await right();
    expect(red[0]).toBeGreaterThan(150);
    expect(red[2]).toBeLessThan(90);
    expect(blue[2]).toBeGreaterThan(150);
    expect(blue[0]).toBeLessThan(90);
    await stage.do(({ engine }) => engine.setDisplay({ surface: 'plain' }));
    const plain = await left();
    expect(Math.max(...plain) - Math.min(...plain)).toBeLessThan(40);
    await stage.do(({ engine }) => engine.setDisplay({ surface: 'materials' }));
    expect(await left()).toEqual(red);
  });

  test('what is behind shows through a see-through mesh, in either order', async () => {
    const materials = { glass: { diffuseColor: [1, 1, 1], transparency: 0.7 }, green: { diffuseColor: [0, 0.8, 0] } };
    const glass = square(-1, -1, 1, 2, { material: 'glass' }),
      green = square(-3, -3, 0, 6, { material: 'green' });
    for (const meshes of [
      [glass, green],
      [green, glass],
    ]) {
      await stage.reset();
      await stage.open(fileOf(among(...meshes), materials));
      await stage.lookAt(0, 0, 10);
      const [covered, open] = [await colorAt(0, 0, 10), await colorAt(2.5, 0, 10)];
      expect(covered[1]! - covered[0]!).toBeGreaterThan(30); // green still
      expect(covered[0]).toBeGreaterThan(open[0]! + 40); // and whiter
    }
  });

  test('edges are drawn over surfaces', async () => {
    await stage.open(fileOf(among(square(-1, -1, 0, 2))));
    await stage.lookAt(0, 0, 6);
    // On the diagonal of its two triangles, and beside it.
    const [onEdge, beside] = [stage.place(0.5, 0.5, 6), stage.place(0.5, 0.3, 6)];
    const [before] = await stage.colors([onEdge]);
    await stage.do(({ engine }) => engine.setDisplay({ wireframe: true }));
    const seen = await stage.colors([onEdge, [onEdge[0] + 1, onEdge[1]], [onEdge[0] - 1, onEdge[1]], beside]);
    expect(seen[3]).toEqual(before);
    expect(Math.min(...seen.slice(0, 3).map(([r]) => r!))).toBeLessThan(before![0]! - 20);
  });
});

test('boxes are shown on demand, and hidden with their meshes', async () => {
  const file = await stage.open(fileOf([cube(), square(2, 0, 0)]));
  const boxes = () => stage.do(({ engine }) => engine.shownBoxes);
  expect(await boxes()).toBe(0);
  await stage.do(({ engine }) => engine.setDisplay({ bounds: true }));
  expect(await boxes()).toBe(2);
  await stage.do(({ engine }, file) => engine.setVisible([{ file, mesh: 0 }], false), file);
  expect(await boxes()).toBe(1);
});

test('the background follows the theme', async () => {
  await stage.open(fileOf([cube()]));
  const [light] = await stage.colors([BACKGROUND]);
  await stage.do(({ engine }) => engine.setDisplay({ theme: 'dark' }));
  const [dark] = await stage.colors([BACKGROUND]);
  expect(Math.min(...light!)).toBeGreaterThan(200);
  expect(Math.max(...dark!)).toBeLessThan(60);
  expect((await stage.events('display')).length).toBe(1);
});

test('a clipping plane leaves out one side, or the other', async () => {
  await stage.open(fileOf([square(-2, -1, 0, 4)]));
  await stage.lookAt(0, 0, 10);
  const [left, right] = [stage.place(-1, 0, 10), stage.place(1.5, 0, 10)];
  const [background] = await stage.colors([BACKGROUND]);
  const clip = (position: number, flipped: boolean) =>
    stage.do(
      ({ engine }, [position, flipped]) =>
        engine.setDisplay({ clip: { axis: 'x', position: position as number, flipped: flipped as boolean } }),
      [position, flipped],
    );
  // The plane x = 1 of -2 to 2.
  await clip(0.75, false);
  let seen = await stage.colors([left, right]);
  expect(seen[0]).not.toEqual(background);
  expect(seen[1]).toEqual(background);
  await clip(0.75, true);
  seen = await stage.colors([left, right]);
  expect(seen[0]).toEqual(background);
  expect(seen[1]).not.toEqual(background);
  await clip(1, false);
  const whole = await stage.covered();
  await stage.do(({ engine }) => engine.setDisplay({ clip: null }));
  expect(await stage.covered()).toBe(whole);
});

test('files stand in one place, or side by side', async () => {
  await stage.open(fileOf([square(0, 0, 0, 2)]), 'first.src');
  await stage.open(fileOf([square(0, 0, 0, 2)]), 'second.src');
  await stage.lookAt(2.2, 1, 10);
  // The gap is 0.15 of 2; the second one begins at 2.3.
  const places = [stage.place(-1, 0, 10), stage.place(0, 0, 10), stage.place(1, 0, 10)];
  const [background] = await stage.colors([BACKGROUND]);
  const seen = async () => (await stage.colors(places)).map((color) => color.join() !== background!.join());
  expect(await seen()).toEqual([true, false, false]);
  await stage.do(({ engine }) => engine.setDisplay({ arrangement: 'row' }));
  expect(await seen()).toEqual([true, false, true]);
});

describe('pictures', () => {
  const size = (width?: number) =>
    stage.do(async (kel, width) => {
      const before = [kel.canvas.width, kel.canvas.height];
      const blob = await kel.engine.picture(width ?? undefined);
      const bitmap = await createImageBitmap(blob);
      const context = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d')!;
      context.drawImage(bitmap, 0, 0);
      const [r, g, b] = context.getImageData(bitmap.width / 2, bitmap.height / 2, 1, 1).data;
      const unchanged = before[0] === kel.canvas.width && before[1] === kel.canvas.height;
      return { type: blob.type, size: [bitmap.width, bitmap.height], center: [r, g, b], unchanged };
    }, width);

  test('are as wide as asked for, and show the view', async () => {
    await stage.open(fileOf([square(-1, -1, 0, 2)]));
    await stage.lookAt(0, 0, 6);
    const own = await size();
    expect(own).toMatchObject({ type: 'image/png', size: [WIDTH, HEIGHT], unchanged: true });
    expect(own.center).not.toEqual((await stage.colors([BACKGROUND]))[0]);
    for (const width of [333, 2000]) {
      const other = await size(width);
      expect(other).toMatchObject({ size: [width, Math.floor((width * 3) / 4)], unchanged: true });
      expect(other.center).toEqual(own.center);
    }
  });

  test('have a largest size', async () => {
    await stage.open(fileOf([square(-1, -1, 0, 2)]));
    const { size: found, unchanged } = await size(1_000_000);
    expect(found[0]).toBeGreaterThan(2000);
    expect(found[0]! * found[1]!).toBeLessThanOrEqual(16 * 2 ** 20);
    expect(unchanged).toBe(true);
  });
});

test('a canvas of another size is filled', async () => {
  await stage.open(fileOf([square(-1, -1, 0, 2)]));
  await stage.lookAt(0, 0, 10);
  await stage.resize(400, 200);
  await stage.settle();
  // Its height is as high as ever in its view: 2 of 6.3.
  const [top, above] = [100 - 0.9 * (100 / 3.153), 100 - 1.1 * (100 / 3.153)];
  const [inside, outside] = await stage.colors([
    [200, top],
    [200, above],
  ]);
  expect(inside).not.toEqual(outside);
  expect(outside).toEqual((await stage.colors([BACKGROUND]))[0]);
});

test('nothing is drawn while nothing changes', async () => {
  await stage.open(fileOf([cube()]));
  const drawn = await stage.do(async ({ engine }) => {
    const { render } = engine.stage.renderer.info;
    const before = render.frame;
    for (let i = 0; i < 10; ++i) await new Promise(requestAnimationFrame);
    return render.frame - before;
  });
  expect(drawn).toBe(0);
});

test('a lost context is told, and the view comes back', async () => {
  await stage.open(fileOf(batched(square(-1, -1, 0, 2))));
  await stage.lookAt(0, 0, 10);
  const before = await colorAt(0, 0, 10);
  const lose = (what: 'loseContext' | 'restoreContext') =>
    stage.do((kel, what) => {
      const store = kel as unknown as { lost: WEBGL_lose_context };
      store.lost ??= kel.engine.stage.renderer.getContext().getExtension('WEBGL_lose_context')!;
      store.lost[what]();
    }, what);
  await lose('loseContext');
  await stage.until(({ events }) => events.some(([name]) => name === 'trouble'));
  expect((await stage.events('trouble'))[0]).toMatch(/^The graphics card .+\. .+\.$/);
  await lose('restoreContext');
  await stage.until(({ events }) => events.at(-1)![0] === 'trouble' && events.at(-1)![1] === '');
  await stage.settle();
  expect(await colorAt(0, 0, 10)).toEqual(before);
});

test('without WebGL 2 there is a sentence for people', async () => {
  const message = await stage.do(({ ViewerEngine }) => {
    const canvas = document.createElement('canvas');
    canvas.getContext = () => null;
    try {
      return new ViewerEngine(canvas) && '';
    } catch (error) {
      return (error as Error).message;
    }
  });
  expect(message).toMatch(/WebGL 2\. .+\.$/);
});
