import * as actions from './actions.js';
import { useStore } from './context.js';
import { Icon } from './icons.js';
import { activate, toggleFileVisible } from './listKeys.js';
import { count } from './model/format.js';
import { colourOf, nameOf } from './model/metadata.js';
import type { Group } from './model/rows.js';

interface RowProps {
  index: number;
  active: boolean;
  /** Pixels from the list's top. */
  offset: number;
  group: Group;
}

interface EyeProps {
  visible: boolean;
  name: string;
  onClick(): void;
}

function Eye({ visible, name, onClick }: EyeProps) {
  const label = `${visible ? 'Hide' : 'Show'} ${name}`;
  const click = (event: Event) => {
    event.stopPropagation();
    onClick();
  };
  return (
    <button
      type="button"
      class="eye"
      tabIndex={-1}
      aria-label={label}
      title={visible ? 'Hide' : 'Show'}
      onClick={click}
    >
      <Icon name={visible ? 'eye' : 'eyeOff'} />
    </button>
  );
}

export function FileRow({ index, active, offset, group, place, of }: RowProps & { place: number; of: number }) {
  const store = useStore();
  void store.visibility.value;
  const { file, open, meshes } = group;
  const anyVisible = meshes.some((mesh) => store.engine.isVisible({ file: file.id, mesh }));
  const onClick = () => {
    store.activeRow.value = index;
    store.fold(file.id, open);
  };
  return (
    <div
      id={`row-${index}`}
      class={`row file-row${active ? ' active' : ''}`}
      role="row"
      aria-level={1}
      aria-rowindex={index + 1}
      aria-setsize={of}
      aria-posinset={place + 1}
      aria-expanded={open}
      style={{ transform: `translateY(${offset}px)` }}
      onClick={onClick}
    >
      <div class="row-name" role="gridcell" aria-colindex={1}>
        <span class={`fold${open ? ' open' : ''}`}>
          <Icon name="chevron" />
        </span>
        <span class="name">{file.name}</span>
        <span class="aside">{count(meshes.length)}</span>
      </div>
      <div class="row-end" role="gridcell" aria-colindex={2}>
        <Eye visible={anyVisible} name={file.name} onClick={() => toggleFileVisible(store, file.id)} />
      </div>
    </div>
  );
}

export function MeshRow({ index, active, offset, group, mesh, place }: RowProps & { mesh: number; place: number }) {
  const store = useStore();
  void store.visibility.value;
  const ref = { file: group.file.id, mesh };
  const { value: selection } = store.selection;
  const selected = selection?.file === ref.file && selection.mesh === mesh;
  const visible = store.engine.isVisible(ref);
  const entry = group.file.header!.meshes[mesh]!;
  const name = nameOf(entry);
  const colour = colourOf(entry.material);
  return (
    <div
      id={`row-${index}`}
      class={`row mesh-row${active ? ' active' : ''}${selected ? ' selected' : ''}${visible ? '' : ' hidden'}`}
      role="row"
      aria-level={group.head >= 0 ? 2 : 1}
      aria-rowindex={index + 1}
      aria-setsize={group.meshes.length}
      aria-posinset={place + 1}
      aria-selected={selected}
      style={{ transform: `translateY(${offset}px)` }}
      onClick={() => activate(store, index)}
      onDblClick={() => actions.fitMesh(store, ref)}
    >
      <div class="row-name" role="gridcell" aria-colindex={1}>
        <span class="swatch" style={colour ? { backgroundColor: colour } : undefined} />
        <span class="name" title={name}>
          {name}
        </span>
        {name !== entry.id && <span class="aside">{entry.id}</span>}
        {!visible && <span class="visually-hidden">, hidden</span>}
      </div>
      <div class="row-end" role="gridcell" aria-colindex={2}>
        <button
          type="button"
          class="eye isolate"
          tabIndex={-1}
          aria-label={`Isolate ${name}`}
          title="Isolate"
          onClick={(event) => {
            event.stopPropagation();
            activate(store, index);
            actions.isolate(store, ref);
          }}
        >
          <Icon name="isolate" />
        </button>
        <Eye visible={visible} name={name} onClick={() => actions.toggleVisible(store, ref)} />
      </div>
    </div>
  );
}
