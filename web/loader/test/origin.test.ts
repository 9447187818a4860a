import * as THREE from 'three';
import { afterEach, describe, expect, test } from 'vitest';
import { boundsOf, parseSrc, SRCLoader, type SRCModel } from '../src/index.js';
import { sendWhole, serve, type TestServer } from '../../support/server.js';
import { srcOf, triangle, TRIANGLE_DATA, withOrigins } from './support.js';

/** A place on a map, in metres. */
const UTM = [500123.25, 5400321.5, 12.75] as const;

/** A triangle with its corners at 0, 0 and 2, 0 and 0, 2, about these origins: a mesh for each of them. */
function triangles(origins: Record<string, unknown>): Uint8Array<ArrayBuffer> {
  const header: any = triangle();
  const { m } = header.meshes;
  header.meshes = {};
  for (const id of Object.keys(origins)) header.meshes[id] = { ...m, bboxCenter: [1, 1, 0], bboxSize: [2, 2, 0] };
  return withOrigins(srcOf(header, TRIANGLE_DATA), (id) => origins[id]);
}

/** Where a ray straight down to a place of the map hits the model. */
function below(model: SRCModel, x: number, y: number): THREE.Vector3 {
  model.scene.updateMatrixWorld();
  const raycaster = new THREE.Raycaster(new THREE.Vector3(x, y, 80), new THREE.Vector3(0, 0, -1));
  const [hit] = raycaster.intersectObject(model.scene);
  return hit!.point;
}

function expectPlace(found: THREE.Vector3, x: number, y: number, z: number) {
  for (const [axis, expected] of [x, y, z].entries()) {
    expect(Math.abs(found.getComponent(axis) - expected)).toBeLessThan(1e-6);
  }
}

let server: TestServer | null = null;
afterEach(async () => {
  await server?.close();
  server = null;
});

describe('a header', () => {
  test('tells the origin of each mesh, and the first of them as its own', () => {
    const { header } = parseSrc(triangles({ a: 'none', b: UTM, c: [0, 1, 2] }));
    expect(header.meshes.map(({ origin }) => origin)).toEqual([null, UTM, [0, 1, 2]]);
    expect(header.origin).toEqual(UTM);
  });

  test('keeps one list for origins that are written alike', () => {
    const [a, b] = parseSrc(triangles({ a: UTM, b: UTM })).meshes;
    expect(a!.origin).toBe(b!.origin);
  });

  test('without origins has none', () => {
    const { header } = parseSrc(srcOf(triangle(), TRIANGLE_DATA));
    expect([header.origin, header.meshes[0]!.origin]).toEqual([null, null]);
  });
});

describe('bounds', () => {
  test('are those of the model, in doubles', () => {
    const [mesh] = parseSrc(triangles({ a: UTM })).meshes;
    expect(boundsOf(mesh!)).toEqual({ min: [500123.25, 5400321.5, 12.75], max: [500125.25, 5400323.5, 12.75] });
  });

  test('are moved by the origin after "fit" is undone', () => {
    const header: any = triangle();
    const fit = { position: { offset: [100, 0, 0], scale: [10, 1, 1] } };
    header.meshes.m = { ...header.meshes.m, bboxCenter: [1, 1, 0], bboxSize: [2, 2, 0], meta: { fit, origin: UTM } };
    const [mesh] = parseSrc(srcOf(header, TRIANGLE_DATA)).meshes;
    expect(boundsOf(mesh!)!.min).toEqual([500223.25, 5400321.5, 12.75]);
    expect(boundsOf(mesh!)!.max).toEqual([500243.25, 5400323.5, 12.75]);
  });

  test('can be counted from an origin', () => {
    const [a, b] = parseSrc(triangles({ a: UTM, b: [500124.25, 5400321.5, 12.75] })).meshes;
    expect(boundsOf(a!, UTM)).toEqual({ min: [0, 0, 0], max: [2, 2, 0] });
    expect(boundsOf(b!, UTM)).toEqual({ min: [1, 0, 0], max: [3, 2, 0] });
  });
});

describe.each([
  ['a text', '500123.25 5400321.5 12.75'],
  ['texts', ['500123.25', '5400321.5', '12.75']],
  ['two numbers', [500123.25, 5400321.5]],
  ['four numbers', [500123.25, 5400321.5, 12.75, 1]],
  ['a list in a list', [UTM]],
  ['a list among the numbers', [500123.25, [5400321.5], 12.75]],
  ['null among the numbers', [500123.25, null, 12.75]],
  ['an object', { 0: 1, 1: 2, 2: 3, length: 3 }],
  ['nothing', null],
  ['a number', 7],
  ['true', true],
])('%s instead of an origin', (_, origin) => {
  test('is none', () => {
    const file = triangles({ a: origin });
    const [mesh] = parseSrc(file).meshes;
    expect(mesh!.origin).toBeNull();
    expect(boundsOf(mesh!)).toEqual({ min: [0, 0, 0], max: [2, 2, 0] });
    expect(new SRCLoader().parse(file).scene.position.toArray()).toEqual([0, 0, 0]);
  });
});

test('a number too large for a double makes no origin', () => {
  const text = JSON.stringify(triangle()).replace('"primitive"', '"meta":{"origin":[1,2,1e999]},"primitive"');
  expect(parseSrc(srcOf(text, TRIANGLE_DATA)).meshes[0]!.origin).toBeNull();
});

describe.each([false, true])('in three.js (batched: %s)', (batch) => {
  const load = (file: Uint8Array<ArrayBuffer>) => new SRCLoader().setBatch(batch).parse(file);

  test('what is picked and measured on a map is exact', () => {
    const model = load(triangles({ a: UTM }));
    const from = below(model, 500123.375, 5400321.625),
      to = below(model, 500124.375, 5400322.375);
    expectPlace(from, 500123.375, 5400321.625, 12.75);
    expectPlace(to, 500124.375, 5400322.375, 12.75);
    expect(Math.abs(from.distanceTo(to) - 1.25)).toBeLessThan(1e-6);
  });

  test('the scene stands at the origin, and what is drawn about it', () => {
    const { scene } = load(triangles({ a: UTM, b: UTM }));
    expect(scene.position.toArray()).toEqual(UTM);
    expect(scene.children.length).toBe(batch ? 1 : 2);
    for (const { position } of scene.children) expect(position.toArray()).toEqual([0, 0, 0]);
    const { array } = (scene.children[0] as THREE.Mesh).geometry.getAttribute('position');
    expect(array).toBeInstanceOf(Uint16Array);
  });

  test('meshes about another origin stand where they belong', () => {
    const model = load(triangles({ a: UTM, b: [500223.25, 5400321.5, 12.75], c: null }));
    expectPlace(below(model, 500123.5, 5400322), 500123.5, 5400322, 12.75);
    expectPlace(below(model, 500223.5, 5400322), 500223.5, 5400322, 12.75);
    expectPlace(below(model, 0.5, 0.25), 0.5, 0.25, 0);
    expect(model.scene.children.length).toBe(3); // a batch has one origin, for its matrices are floats
  });

  test('boxes are those of the model', () => {
    const { scene } = load(triangles({ a: UTM }));
    const { min, max } = new THREE.Box3().setFromObject(scene);
    // Codes are rounded: a vertex may lie a step outside, which is half a unit here.
    expectPlace(min, 500122.75, 5400321, 12.25);
    expectPlace(max, 500125.75, 5400324, 13.25);
  });

  test('an app that places models itself gets them about the origin', () => {
    const file = triangles({ a: UTM, b: [500223.25, 5400321.5, 12.75] });
    const { scene, header } = new SRCLoader().setBatch(batch).setApplyOrigin(false).parse(file);
    expect(scene.position.toArray()).toEqual([0, 0, 0]);
    expect(scene.children.map(({ position }) => position.toArray())).toEqual([
      [0, 0, 0],
      [100, 0, 0],
    ]);
    expect([header.origin, scene.userData.origin]).toEqual([UTM, UTM]);
  });

  test('files about different origins stand right beside each other', () => {
    const left = load(triangles({ a: UTM })),
      right = load(triangles({ a: [500125.25, 5400321.5, 12.75] }));
    expectPlace(below(left, 500123.5, 5400322), 500123.5, 5400322, 12.75);
    expectPlace(below(right, 500125.5, 5400322), 500125.5, 5400322, 12.75);
  });
});

test('points and lines are picked exactly', () => {
  for (const primitive of [0, 3]) {
    const header: any = triangle();
    header.meshes.m = { ...header.meshes.m, primitive, meta: { origin: UTM } };
    const model = new SRCLoader().parse(srcOf(header, TRIANGLE_DATA));
    expectPlace(below(model, 500125.25, 5400321.5), 500125.25, 5400321.5, 12.75);
  }
});

test('userData says the origin of the file and of each mesh', () => {
  const { scene, objects } = new SRCLoader().parse(triangles({ a: UTM, b: [1, 2, 3], c: 'none' }));
  expect(scene.userData.origin).toEqual(UTM);
  const [b, c] = ['b', 'c'].map((id) => objects.get(id)!.userData);
  expect(b).toEqual({ id: 'b', metadata: { origin: [1, 2, 3] }, material: '', origin: [1, 2, 3] });
  expect(c).toEqual({ id: 'c', metadata: { origin: 'none' }, material: '' });
});

test('a stream knows the origin before it gives a mesh, and moves nothing later', async () => {
  server = await serve(sendWhole(triangles({ a: null, b: UTM })));
  const places: number[][] = [];
  for await (const { model } of SRCLoader.stream(`${server.url}/a.src`)) places.push(model.scene.position.toArray());
  expect(places).toEqual([UTM, UTM, UTM]);
});
