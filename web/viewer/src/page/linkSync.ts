import { effect } from '@preact/signals';
import { decodeView, encodeView, type View } from './model/link.js';
import type { Store } from './store.js';

/** Where the link is kept: the address bar, or what a test puts in its place. */
export interface Place {
  read(): string;
  write(hash: string): void;
  /** The link was changed by someone else. */
  onChange(listener: () => void): () => void;
}

export const addressBar: Place = {
  read: () => location.hash,
  write: (hash) => history.replaceState(null, '', `${location.pathname}${location.search}${hash && `#${hash}`}`),
  onChange(listener) {
    addEventListener('hashchange', listener);
    return () => removeEventListener('hashchange', listener);
  },
};

/** What is seen now. */
export function viewOf({ engine }: Store): View {
  const files = engine.files.filter((file) => file.header);
  const orderOf = (id: number) => engine.files.findIndex((file) => file.id === id);
  const hidden: View['hidden'] = new Map();
  if (engine.hiddenCount > 0) {
    for (const file of files) {
      const hiddenHere: number[] = [],
        shownHere: number[] = [];
      file.header!.meshes.forEach((_, mesh) => {
        (engine.isVisible({ file: file.id, mesh }) ? shownHere : hiddenHere).push(mesh);
      });
      const except = shownHere.length < hiddenHere.length;
      if (hiddenHere.length > 0) hidden.set(orderOf(file.id), { meshes: except ? shownHere : hiddenHere, except });
    }
  }
  const { selection, measurement } = engine;
  return {
    camera: engine.camera,
    display: engine.display,
    selection: selection && { file: orderOf(selection.file), mesh: selection.mesh },
    hidden,
    measurement: measurement?.to ? { from: measurement.from, to: measurement.to } : undefined,
  };
}

/** Keeps link and view alike. The view of a link is taken on file by file, as their headers arrive. */
export function syncLink(store: Store, place: Place, canvas?: EventTarget): () => void {
  const { engine } = store;
  let wanted: View | null = null;
  let cameraWanted = false;
  let done = new Set<number>();
  let timer: ReturnType<typeof setTimeout> | undefined;
  let written = '';

  const filesNamed = (view: View) => [
    ...(view.hidden?.keys() ?? []),
    ...(view.selection ? [view.selection.file] : []),
    ...(view.camera ? [0] : []),
  ];

  const apply = () => {
    if (!wanted) return;
    const view = wanted;
    let fresh = false;
    engine.files.forEach((file, order) => {
      if (!file.header || done.has(order)) return;
      done.add(order);
      fresh = true;
      const count = file.header.meshes.length;
      const hidden = view.hidden?.get(order);
      if (hidden) {
        const named = hidden.meshes.filter((mesh) => mesh < count).map((mesh) => ({ file: file.id, mesh }));
        if (hidden.except) engine.setVisible(store.meshesOf(file), false);
        engine.setVisible(named, hidden.except);
      }
      if (view.selection?.file === order && view.selection.mesh < count) {
        engine.select({ file: file.id, mesh: view.selection.mesh });
      }
    });
    if (fresh) {
      if (view.measurement) {
        const { from, to } = view.measurement;
        const distance = Math.hypot(from[0] - to[0], from[1] - to[1], from[2] - to[2]);
        engine.setMeasurement({ from, to, distance });
      }
      // Every file that arrives makes the engine fit its camera, unless someone has turned it meanwhile.
      if (view.camera && cameraWanted) engine.setCamera(view.camera, false);
    }
    const open = filesNamed(view).some((order) => {
      const file = engine.files[order];
      return !done.has(order) && (!file || file.state === 'loading');
    });
    const arriving = engine.files.some((file) => file.state === 'loading' && !file.header);
    if (fresh && !open && !arriving) wanted = null;
  };

  const take = (view: View | null) => {
    wanted = view;
    cameraWanted = true;
    done = new Set();
    if (!view) return;
    if (view.display) engine.setDisplay(view.display);
    if (engine.hiddenCount > 0) engine.showAll();
    apply();
  };

  const write = () => {
    if (wanted || engine.files.every((file) => !file.header)) return;
    const hash = encodeView(viewOf(store));
    if (hash === written) return;
    written = hash;
    place.write(hash);
  };
  const writeSoon = () => {
    clearTimeout(timer);
    timer = setTimeout(write, 250);
  };

  const moved = () => void (cameraWanted = false);
  canvas?.addEventListener('pointerdown', moved);
  canvas?.addEventListener('wheel', moved, { passive: true });

  take(decodeView(place.read()));
  const stops = [
    place.onChange(() => {
      // Our own writing makes no event, so this is someone's new link.
      take(decodeView(place.read()) ?? {});
    }),
    effect(() => {
      void store.files.value;
      // Outside of this effect, so that it does not depend on what applying reads.
      queueMicrotask(() => {
        apply();
        writeSoon();
      });
    }),
    engine.on('camera', writeSoon),
    engine.on('display', writeSoon),
    engine.on('selection', writeSoon),
    engine.on('visibility', writeSoon),
    engine.on('measurement', writeSoon),
    () => clearTimeout(timer),
    () => canvas?.removeEventListener('pointerdown', moved),
    () => canvas?.removeEventListener('wheel', moved),
  ];
  return () => stops.forEach((stop) => stop());
}
