import * as actions from './actions.js';
import { nameOf } from './model/metadata.js';
import { typeAhead } from './model/search.js';
import { keyOf } from './shortcuts.js';
import type { Store } from './store.js';

/** Lets the keyboard's row be the given one, and selects its mesh. */
export function activate(store: Store, index: number): void {
  const rows = store.rows.peek();
  if (index < 0 || index >= rows.length) return;
  const row = rows.at(index);
  store.activeRow.value = index;
  if (row.kind === 'mesh') store.engine.select({ file: row.group.file.id, mesh: row.mesh });
}

/** How the list answers to the keyboard. */
export function listKeys(store: Store) {
  let byPointer = false;
  let typed = '';
  let typedAt = 0;

  const nameAt = (index: number) => {
    const row = store.rows.peek().at(index);
    return row.kind === 'file' ? row.group.file.name : nameOf(row.group.file.header!.meshes[row.mesh]!);
  };

  const jumpToName = (event: KeyboardEvent): boolean => {
    const rows = store.rows.peek();
    typed = event.timeStamp - typedAt > 800 ? event.key : typed + event.key;
    typedAt = event.timeStamp;
    // "bbb" is three times "b", unless something is called so.
    const repeated = [...typed].every((letter) => letter === typed[0]);
    const from = Math.max(0, store.activeRow.peek());
    let found = typeAhead(typed, rows.length, from, nameAt);
    if (found < 0 && repeated) found = typeAhead(typed[0]!, rows.length, from, nameAt);
    activate(store, found);
    return true;
  };

  const onKeyDown = (event: KeyboardEvent) => {
    if (event.ctrlKey || event.metaKey || event.altKey || event.isComposing) return;
    const rows = store.rows.peek();
    if (rows.length === 0) return;
    const active = Math.min(store.activeRow.peek(), rows.length - 1);
    const row = active >= 0 ? rows.at(active) : null;
    const mesh = row?.kind === 'mesh' ? { file: row.group.file.id, mesh: row.mesh } : null;
    const page = Math.max(1, Math.floor((event.currentTarget as HTMLElement).clientHeight / 32) - 1);
    const moves: Record<string, number> = {
      ArrowDown: active + 1,
      ArrowUp: Math.max(0, active - 1),
      PageDown: active + page,
      PageUp: Math.max(0, active - page),
      Home: 0,
      End: rows.length - 1,
    };
    const handled = () => {
      if (Object.hasOwn(moves, event.key)) activate(store, Math.min(rows.length - 1, moves[event.key]!));
      else if (event.key === 'Enter') mesh ? actions.fitMesh(store, mesh) : row && fold(row.group.open);
      else if (event.key === ' ') mesh ? actions.toggleVisible(store, mesh) : row && toggleFile();
      else if (event.key === 'ArrowLeft') goUp();
      else if (event.key === 'ArrowRight')
        row?.kind === 'file' && (row.group.open ? activate(store, active + 1) : fold(false));
      else if (!byPointer && /^[\p{L}\p{N}_.-]$/u.test(event.key)) return jumpToName(event);
      else return false;
      return true;
    };
    const fold = (folded: boolean) => store.fold(row!.group.file.id, folded);
    const toggleFile = () => toggleFileVisible(store, row!.group.file.id);
    const goUp = () => {
      if (row?.kind === 'file') fold(true);
      else if (row && row.group.head >= 0) activate(store, row.group.head);
    };
    if (handled()) event.preventDefault();
    else if (keyOf(event) === 'Esc' && store.typed.peek()) {
      store.search('');
      event.preventDefault();
    }
  };

  return {
    onKeyDown,
    // After a click single letters stay shortcuts; who comes with the keyboard jumps to names with them.
    onPointerDown: () => void (byPointer = true),
    onFocus: (event: FocusEvent) => {
      if (!(event.currentTarget as HTMLElement).matches(':active')) byPointer = false;
      if (store.activeRow.peek() < 0 && !byPointer && store.rows.peek().length > 0) store.activeRow.value = 0;
    },
  };
}

export function toggleFileVisible(store: Store, id: number): void {
  const file = store.fileOf(id);
  if (!file?.header) return;
  const meshes = [...store.meshesOf(file)];
  const anyVisible = meshes.some((mesh) => store.engine.isVisible(mesh));
  store.engine.setVisible(meshes, !anyVisible);
}
