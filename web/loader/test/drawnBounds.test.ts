import * as THREE from 'three';
import { describe, expect, test } from 'vitest';
import { boundsOf, parseSrc, SRCLoader } from '../src/index.js';
import { srcOf, triangle, TRIANGLE_DATA } from './support.js';

/** A triangle whose box reaches from 0 to 8, with this "bounds" in its metadata, and more. */
function stretched(bounds: unknown, more: object = {}): Uint8Array<ArrayBuffer> {
  const header: any = triangle();
  header.meshes.m = { ...header.meshes.m, bboxCenter: [4, 4, 4], bboxSize: [8, 8, 8], meta: { bounds, ...more } };
  return srcOf(header, TRIANGLE_DATA);
}

const STRETCHED = { min: [0, 0, 0], max: [8, 8, 8] };

test('the bounds are those that the metadata tell', () => {
  const [mesh] = parseSrc(stretched([0, 0, -0.5, 2, 2, 0.5])).meshes;
  expect(mesh!.drawnBounds).toEqual({ min: [0, 0, -0.5], max: [2, 2, 0.5] });
  expect(boundsOf(mesh!)).toEqual({ min: [0, 0, -0.5], max: [2, 2, 0.5] });
});

test('they are moved by the origin', () => {
  const [mesh] = parseSrc(stretched([0, 0, 0, 2, 2, 0], { origin: [500123.25, 5400321.5, 12.75] })).meshes;
  expect(boundsOf(mesh!)).toEqual({ min: [500123.25, 5400321.5, 12.75], max: [500125.25, 5400323.5, 12.75] });
  expect(boundsOf(mesh!, mesh!.origin)).toEqual({ min: [0, 0, 0], max: [2, 2, 0] });
});

test('"fit" is undone in them already', () => {
  const fit = { position: { offset: [100, 0, 0], scale: [10, 1, 1] } };
  const [mesh] = parseSrc(stretched([100, 0, 0, 120, 2, 0], { fit })).meshes;
  expect(boundsOf(mesh!)).toEqual({ min: [100, 0, 0], max: [120, 2, 0] });
});

test('they do without a box', () => {
  const header: any = triangle();
  header.meshes.m = { ...header.meshes.m, meta: { bounds: [0, 0, 0, 2, 2, 0] } };
  delete header.meshes.m.bboxCenter;
  delete header.meshes.m.bboxSize;
  const [mesh] = parseSrc(srcOf(header, TRIANGLE_DATA)).meshes;
  expect(boundsOf(mesh!)).toEqual({ min: [0, 0, 0], max: [2, 2, 0] });
});

describe.each([
  ['five numbers', [0, 0, 0, 2, 2]],
  ['two points', [[0, 0, 0], [2, 2, 0]]], // prettier-ignore
  ['an upper corner below the lower', [0, 0, 0, 2, 2, -1]],
  ['a text among the numbers', [0, 0, 0, 2, 2, '0']],
  ['null among the numbers', [0, 0, 0, 2, 2, null]],
  ['an object', { min: [0, 0, 0], max: [2, 2, 0] }],
  ['a text', '0 0 0 2 2 0'],
  ['nothing', null],
])('%s instead of bounds', (_, bounds) => {
  test('are none', () => {
    const [mesh] = parseSrc(stretched(bounds)).meshes;
    expect(mesh!.drawnBounds).toBeNull();
    expect(boundsOf(mesh!)).toEqual(STRETCHED);
  });
});

test.each([false, true])('three.js gets them as the bounding box (batched: %s)', (batch) => {
  const { scene } = new SRCLoader().setBatch(batch).parse(stretched([0, 0, 0, 2, 2, 0]));
  const { min, max } = new THREE.Box3().setFromObject(scene);
  for (const [axis, high] of [2, 2, 0].entries()) {
    // Codes are rounded: a vertex may lie a step outside, which is half a unit here.
    expect(Math.abs(min.getComponent(axis))).toBeLessThanOrEqual(0.5);
    expect(Math.abs(max.getComponent(axis) - high)).toBeLessThanOrEqual(0.5);
  }
});
