import { useEffect, useState } from 'preact/hooks';
import { useStore } from './context.js';
import { openFiles } from './sources.js';

const FIELD = 'open-files';

/** Opens the browser's own dialog. */
export function chooseFiles(): void {
  document.getElementById(FIELD)?.click();
}

/** The field behind all "Open" buttons. */
export function OpenField() {
  const store = useStore();
  return (
    <input
      id={FIELD}
      class="visually-hidden"
      type="file"
      multiple
      tabIndex={-1}
      aria-label="Open SRC files"
      onChange={(event) => {
        void openFiles(store, [...(event.currentTarget.files ?? [])]);
        // So that the same file can be chosen again.
        event.currentTarget.value = '';
      }}
    />
  );
}

/** Takes files dropped anywhere on the page, and shows that it would. */
export function DropVeil() {
  const store = useStore();
  const [over, setOver] = useState(false);
  useEffect(() => {
    // Every element on the way says "enter" and "leave"; the count tells when the page itself is left.
    let depth = 0;
    const hasFiles = (event: DragEvent) => event.dataTransfer?.types.includes('Files') ?? false;
    const listeners: Record<string, (event: DragEvent) => void> = {
      dragenter(event) {
        if (!hasFiles(event)) return;
        event.preventDefault();
        ++depth;
        setOver(true);
      },
      dragover(event) {
        if (hasFiles(event)) event.preventDefault();
      },
      dragleave(event) {
        if (hasFiles(event) && --depth <= 0) setOver(false);
      },
      drop(event) {
        depth = 0;
        setOver(false);
        if (!hasFiles(event)) return;
        event.preventDefault();
        void openFiles(store, [...event.dataTransfer!.files]);
      },
    };
    for (const [name, listen] of Object.entries(listeners)) addEventListener(name, listen as EventListener);
    return () => {
      for (const [name, listen] of Object.entries(listeners)) removeEventListener(name, listen as EventListener);
    };
  }, [store]);
  return over ? (
    <div class="drop-veil">
      <p>Drop to open</p>
    </div>
  ) : null;
}
