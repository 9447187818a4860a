/** Further than this, a pointer that was pressed has been dragged. In pixels of the page. */
const CLICK_PIXELS = { mouse: 4, touch: 12 };

/** Tells clicks and taps on an element from drags, and from touches by several fingers. Gives what ends it. */
export function onClick(element: HTMLElement, clicked: (x: number, y: number) => void): () => void {
  const down = new Map<number, { x: number; y: number }>();
  let isClick = false;
  const press = (event: PointerEvent) => {
    down.set(event.pointerId, { x: event.clientX, y: event.clientY });
    isClick = down.size === 1 && event.button === 0;
  };
  const move = (event: PointerEvent) => {
    const start = down.get(event.pointerId);
    if (!start) return;
    const allowed = event.pointerType === 'mouse' ? CLICK_PIXELS.mouse : CLICK_PIXELS.touch;
    if (Math.hypot(event.clientX - start.x, event.clientY - start.y) > allowed) isClick = false;
  };
  const release = (event: PointerEvent) => {
    move(event);
    if (!down.delete(event.pointerId)) return;
    if (down.size > 0 || !isClick) return;
    isClick = false;
    clicked(event.clientX, event.clientY);
  };
  const cancel = (event: PointerEvent) => {
    down.delete(event.pointerId);
    isClick = false;
  };
  // On the document, since the element's own handlers may have captured the pointer, and a drag may end outside.
  const { ownerDocument } = element;
  element.addEventListener('pointerdown', press);
  ownerDocument.addEventListener('pointermove', move);
  ownerDocument.addEventListener('pointerup', release);
  ownerDocument.addEventListener('pointercancel', cancel);
  return () => {
    element.removeEventListener('pointerdown', press);
    ownerDocument.removeEventListener('pointermove', move);
    ownerDocument.removeEventListener('pointerup', release);
    ownerDocument.removeEventListener('pointercancel', cancel);
  };
}
