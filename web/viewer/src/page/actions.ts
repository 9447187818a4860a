import type { Measurement, MeshRef, StandardView } from '../engine/api.js';
import { copyText, saveBlob } from './browser.js';
import { count, measure, plural } from './model/format.js';
import { nameOf } from './model/metadata.js';
import type { Store } from './store.js';

/** What buttons and keys do. */

export const VIEWS: { view: StandardView; label: string }[] = [
  { view: 'front', label: 'Front' },
  { view: 'back', label: 'Back' },
  { view: 'left', label: 'Left' },
  { view: 'right', label: 'Right' },
  { view: 'top', label: 'Top' },
  { view: 'bottom', label: 'Bottom' },
  { view: 'iso', label: 'Corner' },
];

/** All, or the selected mesh when there is one. */
export function fit({ engine }: Store): void {
  if (engine.selection && engine.isVisible(engine.selection)) engine.fit([engine.selection]);
  else engine.fit();
}

export function fitMesh({ engine }: Store, mesh: MeshRef): void {
  if (!engine.isVisible(mesh)) engine.setVisible([mesh], true);
  engine.select(mesh);
  engine.fit([mesh]);
}

export function toggleVisible({ engine }: Store, mesh: MeshRef): void {
  engine.setVisible([mesh], !engine.isVisible(mesh));
}

function chosen(store: Store, what: string): MeshRef | null {
  const { selection } = store.engine;
  if (!selection) store.say(`Select a part first, to ${what} it.`);
  return selection;
}

export function hideSelected(store: Store): void {
  const mesh = chosen(store, 'hide');
  if (mesh) toggleVisible(store, mesh);
}

export function isolateSelected(store: Store): void {
  const mesh = chosen(store, 'isolate');
  if (mesh) isolate(store, mesh);
}

/** Shows this mesh alone; once more shows all again. */
export function isolate(store: Store, mesh: MeshRef): void {
  const { engine } = store;
  if (isIsolated(store, mesh)) engine.showAll();
  else engine.isolate([mesh]);
}

export function isIsolated({ engine, files }: Store, mesh: MeshRef): boolean {
  const all = files.peek().reduce((sum, file) => sum + (file.header?.meshes.length ?? 0), 0);
  return all > 1 && engine.hiddenCount === all - 1 && engine.isVisible(mesh);
}

export function hideHits(store: Store): void {
  const { meshCount } = store.rows.peek();
  store.engine.setVisible(store.listed(), false);
  store.say(`${plural(meshCount, 'mesh', 'meshes')} hidden.`);
}

export function isolateHits(store: Store): void {
  const { meshCount } = store.rows.peek();
  store.engine.isolate(store.listed());
  store.engine.fit();
  store.say(`Only ${plural(meshCount, 'mesh', 'meshes')} ${meshCount === 1 ? 'is' : 'are'} shown.`);
}

export function showAll(store: Store): void {
  const { hiddenCount } = store.engine;
  if (hiddenCount > 0) store.say(`${plural(hiddenCount, 'mesh', 'meshes')} shown again.`);
  store.engine.showAll();
}

export function setView({ engine }: Store, view: StandardView): void {
  engine.setView(view);
}

export function toggleWireframe({ engine }: Store): void {
  engine.setDisplay({ wireframe: !engine.display.wireframe });
}

export function toggleBounds({ engine }: Store): void {
  engine.setDisplay({ bounds: !engine.display.bounds });
}

export function toggleClip({ engine }: Store): void {
  engine.setDisplay({ clip: engine.display.clip ? null : { axis: 'x', position: 0.5, flipped: false } });
}

export function toggleMeasuring(store: Store, on = !store.measuring.peek()): void {
  store.engine.measuring = on;
  store.measuring.value = on;
}

export function clearMeasurement({ engine }: Store): void {
  engine.setMeasurement(null);
}

export function nextSurface({ engine }: Store): void {
  const order = ['materials', 'plain', 'normals'] as const;
  engine.setDisplay({ surface: order[(order.indexOf(engine.display.surface) + 1) % 3]! });
}

export function measurementText({ distance }: Measurement): string {
  return distance === null ? 'Choose the second point.' : measure(distance);
}

export async function savePicture(store: Store): Promise<void> {
  try {
    const blob = await store.engine.picture();
    const name = store.files.peek()[0]?.name.replace(/\.src$/i, '') ?? 'view';
    saveBlob(blob, `${name}.png`);
    store.say('The picture is saved.');
  } catch (error) {
    store.say(`The picture could not be made: ${error instanceof Error ? error.message : String(error)}`);
  }
}

export async function copyLink(store: Store): Promise<void> {
  // What was opened from this computer, or lies in the page itself, is at no address that others could ask.
  const local = store.files.peek().filter(({ source, name }) => 'bytes' in source && name !== '').length;
  const isPage = location.protocol === 'file:';
  const copied = await copyText(location.href);
  if (!copied) store.say('The browser does not let this page copy. The link is in the address bar.');
  else if (local > 0 && !isPage)
    store.say('Link copied. It keeps the view, but not the files opened from this computer.');
  else store.say('Link to this view copied.');
}

export async function copyId(store: Store, mesh: MeshRef): Promise<void> {
  const found = store.meshOf(mesh);
  if (!found) return;
  store.say(
    (await copyText(found.id)) ? `Copied "${found.id}".` : `The browser does not let this page copy: ${found.id}`,
  );
}

export function toggleFullScreen(): void {
  if (document.fullscreenElement) void document.exitFullscreen();
  else void document.documentElement.requestFullscreen?.();
}

/** What the picture shows, for those who do not see it. */
export function describeView(store: Store): string {
  const files = store.files.value.filter((file) => file.header);
  if (files.length === 0) return '3D view, empty';
  const meshes = files.reduce((sum, file) => sum + file.header!.meshes.length, 0);
  const hidden = store.hiddenCount.value;
  const selected = store.selection.value && store.meshOf(store.selection.value);
  let text = `3D view of ${files.map((file) => file.name).join(', ')}: ${plural(meshes, 'mesh', 'meshes')}`;
  if (hidden > 0) text += `, ${count(hidden)} hidden`;
  if (selected) text += `, ${nameOf(selected)} selected`;
  return text;
}

/** One step back: what Escape ends first is what was begun last. */
export function escape(store: Store): void {
  if (store.measuring.peek()) toggleMeasuring(store, false);
  else if (store.sheet.peek()) store.sheet.value = null;
  else if (store.engine.selection) store.engine.select(null);
}
