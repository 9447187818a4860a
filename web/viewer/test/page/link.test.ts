import { afterEach, beforeEach, expect, test, vi } from 'vitest';
import { parseSrc } from 'kelsrc-loader/core';
import { syncLink, type Place } from '../../src/page/linkSync.js';
import { decodeView, encodeView, type View } from '../../src/page/model/link.js';
import { decodeSet, encodeSet } from '../../src/page/model/sets.js';
import { addressesFrom } from '../../src/page/sources.js';
import { Store } from '../../src/page/store.js';
import { FakeEngine } from './fakeEngine.js';
import { squares } from './models.js';

const upTo = (n: number) => Array.from({ length: n }, (_, i) => i);

test.each([
  [[], ''],
  [[4], '4'],
  [[0, 1, 2, 3, 4, 5, 6, 20], '0-6_20'],
  // Bits 1, 3 and 5 of each six make 42, and that is "q".
  [upTo(42).filter((n) => n % 2 === 1), '~qqqqqqq'],
])('writes the set %j as %s', (set, text) => {
  expect(encodeSet(set)).toBe(text);
  expect(decodeSet(text)).toEqual(set);
});

test('keeps every other one of 20,000 short', () => {
  const odd = upTo(20_000).filter((n) => n % 2 === 1);
  const text = encodeSet(odd);
  expect(text.length).toBeLessThan(3400);
  expect(decodeSet(text)).toEqual(odd);
});

test.each(['5-2', '3_3', '1-', 'x', '0-99999999', '~%', '7_6', '1e3', '-1'])('reads no set in %s', (text) =>
  expect(decodeSet(text)).toBeNull(),
);

const VIEW: View = {
  camera: { position: [1, 2.5, -3e-7], target: [0, 0, 0], up: [0, 1, 0] },
  display: {
    surface: 'normals',
    wireframe: true,
    bounds: true,
    clip: { axis: 'y', position: 0.25, flipped: true },
    arrangement: 'row',
    up: 'z',
  },
  selection: { file: 1, mesh: 7 },
  hidden: new Map([
    [0, { meshes: [1, 2, 3, 4], except: false }],
    [1, { meshes: [7], except: true }],
    [2, { meshes: [], except: true }],
  ]),
  measurement: { from: [0, 0, 0], to: [3, 4, 0] },
};

test('writes a view so that people can read it', () =>
  expect(encodeView(VIEW)).toBe(
    'camera=1,2.5,-3e-7,0,0,0,0,1,0&surface=normals&wireframe=1&bounds=1&clip=y,0.25,flipped&row=1&up=z&select=1.7' +
      '&hide=0.1-4&show=1.7&show=2.&measure=0,0,0,3,4,0',
  ));

test('reads back what it wrote', () => expect(decodeView(`#${encodeView(VIEW)}`)).toEqual(VIEW));

test('keeps a place on a map as exactly as one near zero', () => {
  const near: View = {
    camera: { position: [0.1234567, 2.5, 10], target: [0.5, 0, 0], up: [0, 0, 1] },
    measurement: { from: [0.25, 0.001, 0], to: [2.125, 0.75, 0] },
  };
  const onMap = (place: [number, number, number]) =>
    [place[0] + 500123.25, place[1] + 5400321.5, place[2]] as [number, number, number];
  const { camera, measurement } = near;
  const far: View = {
    camera: { ...camera!, position: onMap(camera!.position), target: onMap(camera!.target) },
    measurement: { from: onMap(measurement!.from), to: onMap(measurement!.to) },
  };
  const found = decodeView(`#${encodeView(far)}`)!;
  const distances = [
    [found.camera!.position, far.camera!.position],
    [found.camera!.target, far.camera!.target],
    [found.measurement!.from, far.measurement!.from],
    [found.measurement!.to, far.measurement!.to],
  ].map(([a, b]) => Math.hypot(...a!.map((x, i) => x - b![i]!)));
  expect(Math.max(...distances)).toBeLessThan(1e-6);
});

test('reads nothing in nothing', () => expect(decodeView('')).toBeNull());

test.each([
  'camera=1,2',
  'camera=1,2,3,1,2,3,0,1,0',
  'camera=NaN,0,0,0,0,0,0,1,0&select=-1.2&hide=x&measure=1',
  'clip=w,0.5&surface=gold&select=9&show=0.5-2',
  '%E0%A4%A&&==&#',
])('leaves out what it cannot read in %s', (hash) => {
  const view = decodeView(`#${hash}`)!;
  expect(view.camera).toBeUndefined();
  expect(view.selection).toBeNull();
  expect(view.hidden!.size).toBe(0);
  expect(view.measurement).toBeUndefined();
  expect(view.display).toMatchObject({ clip: null, surface: 'materials' });
});

test('keeps the clipping plane inside the bounds', () =>
  expect(decodeView('#clip=x,7')!.display!.clip).toEqual({ axis: 'x', position: 1, flipped: false }));

test('takes files from the address, relative to the page', () =>
  expect(addressesFrom('?src=a/b%20c.src&x=1&src=https://example.org/d.src?v=2&src=', 'http://here/viewer/')).toEqual([
    { name: 'b c.src', url: 'http://here/viewer/a/b%20c.src' },
    { name: 'd.src', url: 'https://example.org/d.src?v=2' },
  ]));

// ---- What keeps link and view alike

class FakePlace implements Place {
  written: string[] = [];
  private listener = () => {};
  constructor(public hash = '') {}
  read = () => this.hash;
  write = (hash: string) => {
    this.hash = hash;
    this.written.push(hash);
  };
  onChange(listener: () => void) {
    this.listener = listener;
    return () => {};
  }
  visit(hash: string) {
    this.hash = hash;
    this.listener();
  }
}

beforeEach(() => void vi.useFakeTimers());
afterEach(() => void vi.useRealTimers());

/** What is pending, and then the pause before writing. */
async function settle() {
  await Promise.resolve();
  await vi.advanceTimersByTimeAsync(1000);
}

const five = squares([{}, {}, {}, {}, {}]);

test('takes on the view of a link when the file has arrived', async () => {
  const engine = new FakeEngine();
  const place = new FakePlace('#camera=9,9,9,0,0,0,0,1,0&hide=0.1-2&select=0.4&wireframe=1');
  syncLink(new Store(engine), place);
  const id = engine.open({ name: 'a.src', url: 'a.src' });
  await settle();
  expect(place.written).toEqual([]);
  engine.arrive(id, parseSrc(five).header);
  await settle();
  expect(engine.camera.position).toEqual([9, 9, 9]);
  expect(upTo(5).filter((mesh) => !engine.isVisible({ file: id, mesh }))).toEqual([1, 2]);
  expect(engine.selection).toEqual({ file: id, mesh: 4 });
  expect(engine.display.wireframe).toBe(true);
});

test('shows only what a link shows', async () => {
  const engine = new FakeEngine();
  syncLink(new Store(engine), new FakePlace('#show=0.3'));
  const id = engine.load('a.src', five);
  await settle();
  expect(upTo(5).filter((mesh) => engine.isVisible({ file: id, mesh }))).toEqual([3]);
});

test('leaves out meshes and files of a link that are not there', async () => {
  const engine = new FakeEngine();
  const place = new FakePlace('#hide=0.2-900&hide=7.1&select=0.99');
  syncLink(new Store(engine), place);
  engine.load('a.src', five);
  await settle();
  expect(engine.hiddenCount).toBe(3);
  expect(engine.selection).toBeNull();
});

test('writes the smaller set, in the order of the files', async () => {
  const engine = new FakeEngine();
  const place = new FakePlace();
  syncLink(new Store(engine), place);
  engine.load('a.src', five);
  const second = engine.load('b.src', five);
  engine.setVisible(
    [1, 2, 3, 4].map((mesh) => ({ file: second, mesh })),
    false,
  );
  await settle();
  expect(place.hash).toBe('camera=0,0,10,0,0,0,0,1,0&show=1.0');
});

test('writes once for many changes', async () => {
  const engine = new FakeEngine();
  const place = new FakePlace();
  syncLink(new Store(engine), place);
  engine.load('a.src', five);
  for (let i = 0; i < 50; ++i) engine.setCamera({ position: [i, 0, 10], target: [0, 0, 0], up: [0, 1, 0] });
  await settle();
  expect(place.written).toEqual(['camera=49,0,10,0,0,0,0,1,0']);
});

test('takes on a link that is put into the address bar later', async () => {
  const engine = new FakeEngine();
  const place = new FakePlace();
  syncLink(new Store(engine), place);
  const id = engine.load('a.src', five);
  engine.setVisible([{ file: id, mesh: 0 }], false);
  await settle();
  place.visit('#hide=0.4&measure=0,0,0,3,4,0');
  await settle();
  expect(upTo(5).filter((mesh) => !engine.isVisible({ file: id, mesh }))).toEqual([4]);
  expect(engine.measurement).toMatchObject({ distance: 5 });
});

test('does not turn the camera back when someone has moved it meanwhile', async () => {
  const engine = new FakeEngine();
  const canvas = new EventTarget();
  syncLink(new Store(engine), new FakePlace('#camera=9,9,9,0,0,0,0,1,0'), canvas);
  canvas.dispatchEvent(new Event('pointerdown'));
  engine.load('a.src', five);
  await settle();
  expect(engine.camera.position).toEqual([0, 0, 10]);
});
