import { render } from 'preact';
import { createEngine } from './engine/index.js';
import type { Engine } from './engine/api.js';
import { App } from './page/App.js';
import { StoreContext } from './page/context.js';
import { addressBar, syncLink } from './page/linkSync.js';
import { NoEngine } from './page/NoEngine.js';
import { listenForShortcuts } from './page/shortcuts.js';
import { openGiven } from './page/sources.js';
import { Store } from './page/store.js';
import { followTheme } from './page/theme.js';
import './page/style/index.css';

/** Joins page and engine. */
function start(root: HTMLElement): void {
  const canvas = document.createElement('canvas');
  let engine: Engine;
  try {
    engine = createEngine(canvas);
  } catch (error) {
    followTheme(null);
    render(<NoEngine message={error instanceof Error ? error.message : String(error)} />, root);
    return;
  }
  const store = new Store(engine);
  followTheme(store);
  render(
    <StoreContext.Provider value={store}>
      <App canvas={canvas} />
    </StoreContext.Provider>,
    root,
  );
  // A view from a link is taken on while the files arrive, so it is asked for before they do.
  syncLink(store, addressBar, canvas);
  listenForShortcuts(store);
  openGiven(store);
}

start(document.getElementById('app')!);
