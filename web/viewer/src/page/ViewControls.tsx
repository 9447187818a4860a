import type { Display } from '../engine/api.js';
import * as actions from './actions.js';
import { Button, Choice, Switch } from './controls.js';
import { useStore } from './context.js';
import { point } from './model/format.js';

export function StandardViews() {
  const store = useStore();
  return (
    <div class="views" role="group" aria-label="Standard views">
      {actions.VIEWS.map(({ view, label }, i) => (
        <button
          key={view}
          type="button"
          class="button text-button"
          aria-keyshortcuts={String(i + 1)}
          onClick={() => actions.setView(store, view)}
        >
          {label}
          <kbd aria-hidden="true">{i + 1}</kbd>
        </button>
      ))}
    </div>
  );
}

export function DisplayChoices() {
  const store = useStore();
  const { engine } = store;
  const display = store.display.value;
  const set = (change: Partial<Display>) => engine.setDisplay(change);
  return (
    <>
      <Choice
        legend="Surface"
        value={display.surface}
        options={[
          { value: 'materials', label: 'Materials' },
          { value: 'plain', label: 'Plain' },
          { value: 'normals', label: 'Normals' },
        ]}
        onChange={(surface) => set({ surface })}
      />
      <Switch label="Wireframe" shortcut="W" checked={display.wireframe} onChange={(wireframe) => set({ wireframe })} />
      <Switch label="Boxes of all parts" shortcut="B" checked={display.bounds} onChange={(bounds) => set({ bounds })} />
      <Choice
        legend="Up"
        value={display.up}
        options={[
          { value: 'y', label: 'Y axis' },
          { value: 'z', label: 'Z axis' },
        ]}
        onChange={(up) => set({ up })}
      />
      {store.files.value.length > 1 && (
        <Choice
          legend="Files"
          value={display.arrangement}
          options={[
            { value: 'together', label: 'Together' },
            { value: 'row', label: 'In a row' },
          ]}
          onChange={(arrangement) => set({ arrangement })}
        />
      )}
    </>
  );
}

/** Where the clipping plane lies; nothing while there is none. */
export function ClipControls() {
  const store = useStore();
  const { clip } = store.display.value;
  if (!clip) return null;
  const set = (change: Partial<typeof clip>) => store.engine.setDisplay({ clip: { ...clip, ...change } });
  return (
    <div class="tool-panel" role="group" aria-label="Clipping plane">
      <Choice
        legend="Clip along"
        value={clip.axis}
        options={[
          { value: 'x', label: 'X' },
          { value: 'y', label: 'Y' },
          { value: 'z', label: 'Z' },
        ]}
        onChange={(axis) => set({ axis })}
      />
      <input
        type="range"
        min="0"
        max="1"
        step="0.005"
        aria-label="Place of the plane"
        aria-valuetext={`${Math.round(clip.position * 100)} %`}
        value={clip.position}
        onInput={(event) => set({ position: Number(event.currentTarget.value) })}
      />
      <Button
        icon="flip"
        label="Show the other side"
        pressed={clip.flipped}
        onClick={() => set({ flipped: !clip.flipped })}
      />
      <Button icon="close" label="No clipping" shortcut="C" onClick={() => actions.toggleClip(store)} />
    </div>
  );
}

/** What was measured, and what to do next; nothing while nobody measures. */
export function MeasureControls() {
  const store = useStore();
  const found = store.measurement.value;
  const measuring = store.measuring.value;
  if (!measuring && !found) return null;
  return (
    <div class="tool-panel" role="group" aria-label="Measurement">
      <p role="status">
        {!found && 'Click two points on the model.'}
        {found && found.distance === null && 'Click the second point.'}
        {found && found.distance !== null && (
          <>
            <strong class="distance">{actions.measurementText(found)}</strong>
            <span class="quiet line">
              {point(found.from, found.distance)} → {point(found.to!, found.distance)}
            </span>
          </>
        )}
      </p>
      {found && <Button icon="reload" label="Clear the measurement" onClick={() => actions.clearMeasurement(store)} />}
      <Button
        icon="close"
        label="End measuring"
        shortcut="M"
        onClick={() => {
          actions.clearMeasurement(store);
          actions.toggleMeasuring(store, false);
        }}
      />
    </div>
  );
}
