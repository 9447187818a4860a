// What runs in the browser: an engine on a canvas, and what tests ask of it.

import { ViewerEngine } from '../../src/engine/engine.js';

const canvas = document.querySelector('canvas')!;
Object.assign(canvas.style, { position: 'fixed', inset: '0', width: '100%', height: '100%' });

const kel = {
  ViewerEngine,
  canvas,
  engine: new ViewerEngine(canvas),
  events: [] as [string, unknown][],
};
for (const name of ['files', 'selection', 'visibility', 'display', 'camera', 'measurement', 'pick', 'trouble'] as const) {
  kel.engine.on(name, (value) => kel.events.push([name, value ?? null]));
}
kel.engine.on('progress', () => {
  const last = kel.engine.files.at(-1);
  kel.events.push(['progress', last && [last.loadedBytes, last.totalBytes, last.loadedMeshes]]);
});
export type Kel = typeof kel;
Object.assign(window, { kel });
