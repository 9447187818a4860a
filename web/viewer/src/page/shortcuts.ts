import { signal } from '@preact/signals';
import * as actions from './actions.js';
import { remember, remembered } from './browser.js';
import type { Store } from './store.js';

export interface Shortcut {
  /** As they are shown, and as `keyOf` tells them. */
  keys: string[];
  does: string;
  run(store: Store, key: string): void;
}

export const SHORTCUTS: { title: string; shortcuts: Shortcut[] }[] = [
  {
    title: 'Camera',
    shortcuts: [
      { keys: ['F'], does: 'Fit the selected part, or all', run: actions.fit },
      {
        keys: ['1', '2', '3', '4', '5', '6', '7'],
        does: 'Front, back, left, right, top, bottom, corner',
        run: (store, key) => actions.setView(store, actions.VIEWS[Number(key) - 1]!.view),
      },
    ],
  },
  {
    title: 'Parts',
    shortcuts: [
      { keys: ['H'], does: 'Hide the selected part, or show it', run: actions.hideSelected },
      { keys: ['I'], does: 'Isolate the selected part, or show all', run: actions.isolateSelected },
      { keys: ['Shift+H'], does: 'Show all', run: actions.showAll },
      { keys: ['/'], does: 'Search', run: (store) => focusSearch(store) },
      { keys: ['Esc'], does: 'End measuring, or select nothing', run: actions.escape },
    ],
  },
  {
    title: 'Display',
    shortcuts: [
      { keys: ['M'], does: 'Measure between two points', run: (store) => actions.toggleMeasuring(store) },
      { keys: ['C'], does: 'Clipping plane', run: actions.toggleClip },
      { keys: ['W'], does: 'Wireframe', run: actions.toggleWireframe },
      { keys: ['B'], does: 'Boxes of all parts', run: actions.toggleBounds },
      { keys: ['N'], does: 'Next surface: materials, plain, normals', run: actions.nextSurface },
    ],
  },
  {
    title: 'Page',
    shortcuts: [
      { keys: ['P'], does: 'Save a picture', run: (store) => void actions.savePicture(store) },
      { keys: ['L'], does: 'Copy a link to this view', run: (store) => void actions.copyLink(store) },
      { keys: ['?'], does: 'All keys and gestures', run: (store) => void (store.dialog.value = 'help') },
    ],
  },
];

/** Keys with a meaning of their own in the list; here for people to read. */
export const LIST_KEYS: { keys: string[]; does: string }[] = [
  { keys: ['↑', '↓', 'Home', 'End'], does: 'Select another part' },
  { keys: ['←', '→'], does: 'Fold a file up, or open it' },
  { keys: ['Enter'], does: 'Fit the part' },
  { keys: ['Space'], does: 'Hide the part, or show it' },
  { keys: ['A–Z'], does: 'Jump to a name, when the list was reached with Tab' },
];

const byKey = new Map<string, Shortcut>();
for (const { shortcuts } of SHORTCUTS)
  for (const entry of shortcuts) for (const key of entry.keys) byKey.set(key, entry);

/** Single letters get in the way of people who speak to their computer, so they can be switched off. */
export const shortcutsOn = signal(true);

export function switchShortcuts(on: boolean): void {
  shortcutsOn.value = on;
  remember('shortcuts', on ? 'on' : 'off');
}

export function keyOf({ key, shiftKey }: Pick<KeyboardEvent, 'key' | 'shiftKey'>): string {
  if (key === 'Escape') return 'Esc';
  if (/^[a-z]$/i.test(key)) return (shiftKey ? 'Shift+' : '') + key.toUpperCase();
  return key;
}

/** Moves the focus, at once where it can: the next letter may be typed before the next frame. */
function focusOn(id: string): void {
  const element = document.getElementById(id);
  if (element) element.focus();
  else requestAnimationFrame(() => document.getElementById(id)?.focus());
}

function focusInList(store: Store, id: string): void {
  store.leftOpen.value = true;
  store.sheet.value = 'parts';
  focusOn(id);
}

export const focusSearch = (store: Store): void => focusInList(store, 'search');
export const focusList = (store: Store): void => focusInList(store, 'mesh-list');

/** True where keys have a meaning of their own: text is typed there, or a value is set. */
export function takesKeys(element: Element | null): boolean {
  if (!element) return false;
  if (element instanceof HTMLInputElement) return element.type !== 'checkbox';
  return element.matches('textarea, select, [contenteditable], dialog, dialog *');
}

export function listenForShortcuts(store: Store): () => void {
  shortcutsOn.value = remembered('shortcuts') !== 'off';
  const listen = (event: KeyboardEvent) => {
    if (event.defaultPrevented || event.ctrlKey || event.metaKey || event.altKey || event.isComposing) return;
    if (takesKeys(document.activeElement) || document.querySelector('dialog[open]')) return;
    const key = keyOf(event);
    if (!shortcutsOn.peek() && key !== 'Esc') return;
    const shortcut = byKey.get(key);
    if (!shortcut) return;
    event.preventDefault();
    shortcut.run(store, key);
  };
  document.addEventListener('keydown', listen);
  return () => document.removeEventListener('keydown', listen);
}
