import { parseSrc } from 'kelsrc-loader/core';
import { expect, test } from 'vitest';
import { hideHits, isolate, isolateHits, showAll } from '../../src/page/actions.js';
import { search, typeAhead } from '../../src/page/model/search.js';
import { Store } from '../../src/page/store.js';
import { FakeEngine } from './fakeEngine.js';
import { named, squares } from './models.js';

const headerOf = (...names: string[]) => parseSrc(named(...names)).header;

function opened(...files: string[][]) {
  const engine = new FakeEngine();
  const store = new Store(engine);
  const ids = files.map((names, i) => engine.load(`${'abc'[i]}.src`, named(...names)));
  return { engine, store, ids };
}

/** The list as text: files by their name, meshes by their place. */
function listed(store: Store): string[] {
  const rows = store.rows.value;
  return Array.from({ length: rows.length }, (_, i) => {
    const row = rows.at(i);
    return row.kind === 'file' ? row.group.file.name : String(row.mesh);
  });
}

test('finds names and IDs, whatever the case and the accents', () => {
  const header = headerOf('Bolt M8', 'Écrou', 'bolt m10', 'Plate');
  expect(search(header, 'bolt')).toEqual([0, 2]);
  expect(search(header, 'ecrou')).toEqual([1]);
  expect(search(header, 'MESH3')).toEqual([3]);
  expect(search(header, 'nut')).toEqual([]);
});

test('finds what has every word', () =>
  expect(search(headerOf('Bolt M8', 'bolt m10', 'm8 nut'), 'm8 bolt')).toEqual([0]));

test('does not find a word across the end of a name', () => {
  // The name "ab" and the ID "mesh0" have no "bm" together.
  expect(search(headerOf('ab'), 'bm')).toEqual([]);
});

test('jumps to the next name with a letter, and around', () => {
  const names = ['bolt', 'nut', 'beam', 'nail'];
  const at = (i: number) => names[i]!;
  expect(typeAhead('b', 4, 0, at)).toBe(2);
  expect(typeAhead('b', 4, 2, at)).toBe(0);
  expect(typeAhead('na', 4, 1, at)).toBe(3);
  expect(typeAhead('x', 4, 0, at)).toBe(-1);
});

test('lists one file without a row of its own', () => {
  const { store } = opened(['x', 'y']);
  expect(listed(store)).toEqual(['0', '1']);
});

test('lists several files with their meshes below', () => {
  const { store, ids } = opened(['x', 'y'], ['z']);
  expect(listed(store)).toEqual(['a.src', '0', '1', 'b.src', '0']);
  expect(store.rows.value.indexOf(ids[1]!, 0)).toBe(4);
});

test('folds a file up', () => {
  const { store, ids } = opened(['x', 'y'], ['z']);
  store.fold(ids[0]!, true);
  expect(listed(store)).toEqual(['a.src', 'b.src', '0']);
  expect(store.rows.value.indexOf(ids[0]!, 1)).toBe(-1);
  expect(store.rows.value.meshCount).toBe(3);
});

test('lists what was found, and leaves files out without any', () => {
  const { store, ids } = opened(['bolt', 'nut'], ['plate'], ['bolt']);
  store.search('bolt');
  expect(listed(store)).toEqual(['a.src', '0', 'c.src', '0']);
  expect(store.rows.value.indexOf(ids[0]!, 1)).toBe(-1);
});

test('hides and isolates what was found, in folded files too', () => {
  const { engine, store, ids } = opened(['bolt', 'nut'], ['bolt']);
  store.fold(ids[1]!, true);
  store.search('bolt');
  hideHits(store);
  expect(engine.isVisible({ file: ids[0]!, mesh: 1 })).toBe(true);
  expect(engine.hiddenCount).toBe(2);
  showAll(store);
  isolateHits(store);
  expect(engine.hiddenCount).toBe(1);
  expect(engine.isVisible({ file: ids[0]!, mesh: 1 })).toBe(false);
});

test('isolating what is isolated already shows all', () => {
  const { engine, store, ids } = opened(['x', 'y', 'z']);
  const mesh = { file: ids[0]!, mesh: 1 };
  isolate(store, mesh);
  expect(engine.hiddenCount).toBe(2);
  isolate(store, mesh);
  expect(engine.hiddenCount).toBe(0);
});

test('keeps the row of the selection while searching', () => {
  const { engine, store, ids } = opened(['nut', 'bolt', 'bolt']);
  engine.select({ file: ids[0]!, mesh: 2 });
  expect(store.activeRow.value).toBe(2);
  store.search('bolt');
  expect(store.activeRow.value).toBe(1);
  store.search('nut');
  expect(store.activeRow.value).toBe(-1);
});

test('makes no list anew for every byte', () => {
  const { engine, store } = opened(['x']);
  const { value } = store.files;
  engine.emit('progress', undefined);
  expect(store.files.value).toBe(value);
});

test('says aloud what has loaded', () => {
  const engine = new FakeEngine();
  const store = new Store(engine);
  engine.load('part.src', squares([{}, {}]));
  expect(store.spoken.value).toBe('part.src is loaded: 2 meshes.');
});
