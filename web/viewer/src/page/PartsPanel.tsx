import * as actions from './actions.js';
import { Button } from './controls.js';
import { useStore } from './context.js';
import { Icon } from './icons.js';
import { MeshList } from './MeshList.js';
import { count, plural } from './model/format.js';

function SearchField() {
  const store = useStore();
  const onKeyDown = (event: KeyboardEvent) => {
    if (event.key === 'Escape' && store.typed.peek()) {
      event.preventDefault();
      store.search('');
    } else if (event.key === 'Escape') {
      (event.currentTarget as HTMLElement).blur();
    } else if (event.key === 'Enter' || event.key === 'ArrowDown') {
      event.preventDefault();
      store.search(store.typed.peek());
      document.getElementById('mesh-list')?.focus();
    }
  };
  return (
    <div class="search">
      <Icon name="search" />
      <input
        id="search"
        type="search"
        placeholder="Search parts"
        aria-label="Search parts by name or ID"
        aria-keyshortcuts="/"
        autocomplete="off"
        spellcheck={false}
        value={store.typed.value}
        onInput={(event) => store.type(event.currentTarget.value)}
        onKeyDown={onKeyDown}
      />
      {store.typed.value ? (
        <Button icon="close" label="Clear the search" onClick={() => store.search('')} />
      ) : (
        <kbd>/</kbd>
      )}
    </div>
  );
}

/** What was found, or how many there are, and what can be done with all of them. */
function ListSummary() {
  const store = useStore();
  const { meshCount } = store.rows.value;
  const hidden = store.hiddenCount.value;
  const found = store.query.value !== '';
  return (
    <div class="list-summary">
      <p>
        {plural(meshCount, 'part')}
        {found && ' found'}
        {hidden > 0 && <span class="quiet">, {count(hidden)} hidden</span>}
      </p>
      {found && meshCount > 0 && (
        <>
          <Button icon="eyeOff" label="Hide all found" onClick={() => actions.hideHits(store)} />
          <Button icon="isolate" label="Isolate all found" onClick={() => actions.isolateHits(store)} />
        </>
      )}
      <Button
        icon="eye"
        label="Show all"
        shortcut="Shift+H"
        text
        disabled={hidden === 0}
        onClick={() => actions.showAll(store)}
      />
    </div>
  );
}

export function PartsPanel() {
  return (
    <>
      <h2 class="visually-hidden">Parts</h2>
      <SearchField />
      <ListSummary />
      <MeshList />
    </>
  );
}
