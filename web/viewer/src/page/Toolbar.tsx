import * as actions from './actions.js';
import { Button, Popover } from './controls.js';
import { useStore } from './context.js';
import { DisplayChoices, StandardViews } from './ViewControls.js';

/** What is done to the picture. */
export function Toolbar() {
  const store = useStore();
  const { wireframe, bounds, clip } = store.display.value;
  return (
    <div class="toolbar" role="toolbar" aria-label="View">
      <Button icon="fit" label="Fit" shortcut="F" onClick={() => actions.fit(store)} />
      <Popover icon="cube" label="Standard views">
        <StandardViews />
      </Popover>
      <Popover icon="layers" label="Display">
        <DisplayChoices />
      </Popover>
      <span class="divider" />
      <Button
        icon="wireframe"
        label="Wireframe"
        shortcut="W"
        pressed={wireframe}
        onClick={() => actions.toggleWireframe(store)}
      />
      <Button
        icon="bounds"
        label="Boxes of all parts"
        shortcut="B"
        pressed={bounds}
        onClick={() => actions.toggleBounds(store)}
      />
      <Button
        icon="clip"
        label="Clipping plane"
        shortcut="C"
        pressed={clip !== null}
        onClick={() => actions.toggleClip(store)}
      />
      <Button
        icon="measure"
        label="Measure"
        shortcut="M"
        pressed={store.measuring.value}
        onClick={() => actions.toggleMeasuring(store)}
      />
      <span class="divider" />
      <Button icon="picture" label="Save a picture" shortcut="P" onClick={() => void actions.savePicture(store)} />
      <Button icon="link" label="Copy a link to this view" shortcut="L" onClick={() => void actions.copyLink(store)} />
      <Button icon="fullScreen" label="Full screen" onClick={actions.toggleFullScreen} />
    </div>
  );
}

/** The same for fingers: with words, in a sheet. */
export function ViewSheet() {
  const store = useStore();
  const { clip } = store.display.value;
  return (
    <div class="view-sheet">
      <h2>View</h2>
      <div class="actions">
        <Button icon="fit" label="Fit" text onClick={() => actions.fit(store)} />
        <Button icon="clip" label="Clip" text pressed={clip !== null} onClick={() => actions.toggleClip(store)} />
        <Button
          icon="measure"
          label="Measure"
          text
          pressed={store.measuring.value}
          onClick={() => {
            actions.toggleMeasuring(store);
            // Points are chosen in the picture, which the sheet covers.
            store.sheet.value = null;
          }}
        />
      </div>
      <StandardViews />
      <DisplayChoices />
      <div class="actions">
        <Button icon="picture" label="Picture" text onClick={() => void actions.savePicture(store)} />
        <Button icon="link" label="Copy link" text onClick={() => void actions.copyLink(store)} />
        <Button icon="fullScreen" label="Full screen" text onClick={actions.toggleFullScreen} />
      </div>
    </div>
  );
}
