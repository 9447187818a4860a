import { onClick } from './clicks.js';

export interface Watcher {
  /** In the coordinates of pointer events. */
  clicked(x: number, y: number): void;
  resized(): void;
  /** The WebGL context was lost, or is back. */
  lost(): void;
  restored(): void;
}

/** Tells what happens to a canvas. Gives what ends it. */
export function watch(canvas: HTMLCanvasElement, watcher: Watcher): () => void {
  const ends = [onClick(canvas, (x, y) => watcher.clicked(x, y))];
  const listen = (target: EventTarget, name: string, listener: () => void) => {
    target.addEventListener(name, listener);
    ends.push(() => target.removeEventListener(name, listener));
  };
  listen(window, 'resize', () => watcher.resized()); // the scale of the page may have changed
  listen(canvas, 'webglcontextlost', () => watcher.lost());
  listen(canvas, 'webglcontextrestored', () => watcher.restored());
  const observer = new ResizeObserver(() => watcher.resized());
  observer.observe(canvas);
  ends.push(() => observer.disconnect());
  return () => ends.forEach((end) => end());
}
