import type { CameraState, Display } from '../../engine/api.js';
import { digitsWithin } from './format.js';
import { decodeSet, encodeSet } from './sets.js';

/**
 * What a link keeps of a view, as the part of an address behind "#". Files are told by their order. Everything is
 * optional, and what cannot be read is left out: a link may be cut short by whatever carried it.
 */
export interface View {
  camera?: CameraState;
  display?: Partial<Omit<Display, 'theme'>>;
  selection?: { file: number; mesh: number } | null;
  /** Of each file, those that are hidden, or those that are not. */
  hidden?: Map<number, { meshes: number[]; except: boolean }>;
  measurement?: { from: Vector; to: Vector };
}

type Vector = [number, number, number];

const number = (n: number, digits = 7) => String(Number(n.toPrecision(digits)));
/** Numbers that are parts of something of this size. */
const numbers = (list: readonly number[], size: number) =>
  list.map((n) => number(n, digitsWithin(size, n, 7))).join(',');

function readNumbers(text: string | null, length: number): number[] | null {
  if (!text) return null;
  const parts = text.split(',');
  if (parts.length !== length || parts.some((part) => part.trim() === '')) return null;
  const list = parts.map(Number);
  return list.every((n) => Number.isFinite(n) && Math.abs(n) < 1e30) ? list : null;
}

const vector = (list: number[], at: number) => list.slice(at, at + 3) as Vector;
const distance = (a: Vector, b: Vector) => Math.hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);

export function encodeView(view: View): string {
  const parts: string[] = [];
  const put = (key: string, value: string) => parts.push(`${key}=${value}`);
  if (view.camera) {
    const { position, target, up } = view.camera;
    put('camera', `${numbers([...position, ...target], distance(position, target))},${numbers(up, 1)}`);
  }
  const { surface, wireframe, bounds, clip, arrangement, up } = view.display ?? {};
  if (surface && surface !== 'materials') put('surface', surface);
  if (wireframe) put('wireframe', '1');
  if (bounds) put('bounds', '1');
  if (clip) put('clip', `${clip.axis},${number(clip.position)}${clip.flipped ? ',flipped' : ''}`);
  if (arrangement === 'row') put('row', '1');
  if (up === 'z') put('up', 'z');
  if (view.selection) put('select', `${view.selection.file}.${view.selection.mesh}`);
  for (const [file, { meshes, except }] of view.hidden ?? []) {
    if (meshes.length > 0 || except) put(except ? 'show' : 'hide', `${file}.${encodeSet(meshes)}`);
  }
  if (view.measurement) {
    const { from, to } = view.measurement;
    put('measure', numbers([...from, ...to], distance(from, to)));
  }
  return parts.join('&');
}

function readClip(text: string | null): Display['clip'] {
  const [axis, place, side] = (text ?? '').split(',');
  const position = readNumbers(place ?? '', 1)?.[0];
  if (position === undefined || (axis !== 'x' && axis !== 'y' && axis !== 'z')) return null;
  return { axis, position: Math.min(1, Math.max(0, position)), flipped: side === 'flipped' };
}

/** "2.5": the mesh 5 of the file 2. */
function readPlace(text: string | null): { file: number; mesh: number } | null {
  const match = /^(\d{1,9})\.(\d{1,9})$/.exec(text ?? '');
  return match && { file: Number(match[1]), mesh: Number(match[2]) };
}

/** The view that a link tells of; null when it tells of none. */
export function decodeView(hash: string): View | null {
  const given = new URLSearchParams(hash.replace(/^#/, ''));
  if ([...given.keys()].length === 0) return null;
  const view: View = {};

  const camera = readNumbers(given.get('camera'), 9);
  if (camera) {
    const state = { position: vector(camera, 0), target: vector(camera, 3), up: vector(camera, 6) };
    // A camera in its target, or without an up, looks nowhere.
    if (distance(state.position, state.target) > 0 && Math.hypot(...state.up) > 0) view.camera = state;
  }
  const surface = given.get('surface');
  view.display = {
    surface: surface === 'plain' || surface === 'normals' ? surface : 'materials',
    wireframe: given.get('wireframe') === '1',
    bounds: given.get('bounds') === '1',
    clip: readClip(given.get('clip')),
    arrangement: given.get('row') === '1' ? 'row' : 'together',
    up: given.get('up') === 'z' ? 'z' : 'y',
  };
  view.selection = readPlace(given.get('select'));
  view.hidden = new Map();
  for (const key of ['hide', 'show'] as const) {
    for (const text of given.getAll(key)) {
      const match = /^(\d{1,9})\.(.*)$/.exec(text);
      const meshes = match && decodeSet(match[2]!);
      if (meshes) view.hidden.set(Number(match[1]), { meshes, except: key === 'show' });
    }
  }
  const ends = readNumbers(given.get('measure'), 6);
  if (ends) view.measurement = { from: vector(ends, 0), to: vector(ends, 3) };
  return view;
}
