import { Icon } from './icons.js';
import { chooseFiles } from './OpenFiles.js';

/** What stands in the picture's place while nothing is open. */
export function Invitation() {
  return (
    <div class="invitation">
      <div class="drop-zone">
        <svg class="drop-picture" viewBox="0 0 96 84" width="96" height="84" aria-hidden="true" focusable="false">
          <path class="drop-face-top" d="M48 6 82 24 48 42 14 24z" />
          <path class="drop-face-left" d="M14 24 48 42v36L14 60z" />
          <path class="drop-face-right" d="M82 24 48 42v36l34-18z" />
        </svg>
        <h2>Drop SRC files here</h2>
        <p>Parts, names and sizes appear while they load. Nothing leaves this computer.</p>
        <button type="button" class="button with-text primary" onClick={chooseFiles}>
          <Icon name="open" />
          <span>Open files</span>
        </button>
        <p class="quiet">
          Another format? <code>kelsrc convert model.glb -o model.src</code>
        </p>
      </div>
    </div>
  );
}
