import { useEffect, useRef } from 'preact/hooks';
import { Button, Switch } from './controls.js';
import { useStore } from './context.js';
import { LIST_KEYS, SHORTCUTS, shortcutsOn, switchShortcuts } from './shortcuts.js';

function Keys({ title, entries }: { title: string; entries: { keys: string[]; does: string }[] }) {
  return (
    <section>
      <h3>{title}</h3>
      <dl>
        {entries.map(({ keys, does }) => (
          <div key={does}>
            <dt>
              {keys.map((key) => (
                <kbd key={key}>{key}</kbd>
              ))}
            </dt>
            <dd>{does}</dd>
          </div>
        ))}
      </dl>
    </section>
  );
}

const MOUSE = [
  { keys: ['Drag'], does: 'Turn' },
  { keys: ['Right drag', 'two fingers'], does: 'Move' },
  { keys: ['Wheel', 'pinch'], does: 'Zoom' },
  { keys: ['Click'], does: 'Select a part' },
];

/** Keys and gestures. The browser's own dialog keeps the focus inside and closes on Escape. */
export function HelpDialog() {
  const store = useStore();
  const open = store.dialog.value === 'help';
  const dialog = useRef<HTMLDialogElement>(null);
  useEffect(() => {
    if (open) dialog.current?.showModal();
    else dialog.current?.close();
  }, [open]);
  const close = () => void (store.dialog.value = null);
  return (
    <dialog
      ref={dialog}
      class="help"
      aria-labelledby="help-title"
      onClose={close}
      onClick={(event) => event.target === dialog.current && close()}
    >
      <div class="help-content">
        <header>
          <h2 id="help-title">Keys and gestures</h2>
          <Button icon="close" label="Close" onClick={close} />
        </header>
        <div class="help-columns">
          <Keys title="Mouse and fingers" entries={MOUSE} />
          {SHORTCUTS.map(({ title, shortcuts }) => (
            <Keys key={title} title={title} entries={shortcuts} />
          ))}
          <Keys title="In the list" entries={LIST_KEYS} />
        </div>
        <Switch label="Single keys do something" checked={shortcutsOn.value} onChange={switchShortcuts} />
      </div>
    </dialog>
  );
}
