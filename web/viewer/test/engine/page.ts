// What runs in the browser: an engine on a canvas, and what it has told.

import { DEFAULT_DISPLAY, type EngineEvents } from '../../src/engine/api.js';
import { ViewerEngine } from '../../src/engine/engine.js';

const canvas = document.querySelector('canvas')!;
Object.assign(canvas.style, { position: 'fixed', inset: '0', width: '100%', height: '100%' });

const kel = {
  ViewerEngine,
  canvas,
  engine: new ViewerEngine(canvas),
  /** Names and values, and with progress the number of the frame. */
  events: [] as [string, unknown][],
  /** Brings the engine to where it began. */
  reset() {
    const { engine } = this;
    for (const { id } of engine.files) engine.close(id);
    engine.setDisplay(DEFAULT_DISPLAY);
    engine.measuring = false;
    engine.setMeasurement(null);
    this.events.length = 0;
  },
};
const names: (keyof EngineEvents)[] = [
  'files',
  'selection',
  'visibility',
  'display',
  'camera',
  'measurement',
  'pick',
  'trouble',
];
for (const name of names) kel.engine.on(name, (value) => kel.events.push([name, value ?? null]));
kel.engine.on('progress', () => {
  const { loadedBytes, totalBytes, loadedMeshes } = kel.engine.files.at(-1)!;
  kel.events.push(['progress', { loadedBytes, totalBytes, loadedMeshes, frame: document.timeline.currentTime }]);
});

export type Kel = typeof kel;
Object.assign(window, { kel });
