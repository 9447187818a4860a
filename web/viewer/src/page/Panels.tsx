import { useStore } from './context.js';
import { FilePanel } from './FilePanel.js';
import { Icon, type IconName } from './icons.js';
import { PartPanel } from './PartPanel.js';
import { PartsPanel } from './PartsPanel.js';
import type { Panel } from './store.js';
import { ViewSheet } from './Toolbar.js';
import { Button } from './controls.js';

/** Beside the picture: what is there on the left, what it is on the right. */
export function SidePanels() {
  const store = useStore();
  const tabs = [
    { id: 'part', label: 'Part' },
    { id: 'file', label: store.files.value.length > 1 ? 'Files' : 'File' },
  ] as const;
  const chosen = store.details.value;
  const onKeyDown = (event: KeyboardEvent) => {
    if (event.key !== 'ArrowLeft' && event.key !== 'ArrowRight') return;
    event.preventDefault();
    const next = chosen === 'part' ? 'file' : 'part';
    store.details.value = next;
    document.getElementById(`tab-${next}`)?.focus();
  };
  return (
    <>
      {store.leftOpen.value && (
        <nav class="panel left" aria-label="Parts">
          <PartsPanel />
        </nav>
      )}
      {store.rightOpen.value && (
        <aside class="panel right" aria-label="Details">
          <div class="tabs" role="tablist" aria-label="Details" onKeyDown={onKeyDown}>
            {tabs.map(({ id, label }) => (
              <button
                key={id}
                id={`tab-${id}`}
                type="button"
                role="tab"
                aria-selected={chosen === id}
                aria-controls="details"
                tabIndex={chosen === id ? 0 : -1}
                onClick={() => (store.details.value = id)}
              >
                {label}
              </button>
            ))}
          </div>
          <div class="scroll" id="details" role="tabpanel" aria-labelledby={`tab-${chosen}`} tabIndex={0}>
            {chosen === 'part' ? <PartPanel /> : <FilePanel />}
          </div>
        </aside>
      )}
    </>
  );
}

const SHEETS: { panel: Panel; label: string; icon: IconName }[] = [
  { panel: 'parts', label: 'Parts', icon: 'list' },
  { panel: 'details', label: 'Part', icon: 'info' },
  { panel: 'view', label: 'View', icon: 'sliders' },
  { panel: 'file', label: 'File', icon: 'file' },
];

/** On a phone: one of them at a time, from below. */
export function Sheets() {
  const store = useStore();
  const open = store.sheet.value;
  return (
    <>
      {open && (
        <section class={`sheet ${open}`} aria-label={SHEETS.find(({ panel }) => panel === open)!.label}>
          <div class="sheet-close">
            <Button icon="close" label="Close" onClick={() => (store.sheet.value = null)} />
          </div>
          {open === 'parts' ? (
            <PartsPanel />
          ) : (
            <div class="scroll" tabIndex={0} role="group" aria-label="Details">
              {open === 'details' && <PartPanel />}
              {open === 'view' && <ViewSheet />}
              {open === 'file' && <FilePanel />}
            </div>
          )}
        </section>
      )}
      <nav class="sheet-tabs" aria-label="Panels">
        {SHEETS.map(({ panel, label, icon }) => (
          <button
            key={panel}
            type="button"
            aria-expanded={open === panel}
            onClick={() => (store.sheet.value = open === panel ? null : panel)}
          >
            <Icon name={icon} />
            {label}
          </button>
        ))}
      </nav>
    </>
  );
}
