import { useEffect, useRef } from 'preact/hooks';
import { describeView } from './actions.js';
import { useStore } from './context.js';

/** The engine's canvas. It was made before the page, since there is no page without an engine. */
export function Picture({ canvas }: { canvas: HTMLCanvasElement }) {
  const store = useStore();
  const box = useRef<HTMLDivElement>(null);
  const description = describeView(store);
  useEffect(() => box.current!.append(canvas), [canvas]);
  useEffect(() => {
    canvas.setAttribute('role', 'img');
    canvas.setAttribute('aria-label', `${description}. Arrow keys turn it, plus and minus zoom.`);
  }, [canvas, description]);
  return <div class="picture" ref={box} />;
}
