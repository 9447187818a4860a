import { useEffect, useLayoutEffect, useRef, useState } from 'preact/hooks';
import { useStore } from './context.js';
import { listKeys } from './listKeys.js';
import { FileRow, MeshRow } from './ListRow.js';

/** Rows beyond the visible ones, so that none is missing while scrolling. */
const SPARE = 8;

/** A list of meshes below their files, of which only the visible rows are in the document. */
export function MeshList() {
  const store = useStore();
  const list = useRef<HTMLDivElement>(null);
  const [top, setTop] = useState(0);
  const [size, setSize] = useState({ height: 600, row: 32 });
  const [keys] = useState(() => listKeys(store));
  const rows = store.rows.value;
  const active = store.activeRow.value;

  useLayoutEffect(() => {
    const element = list.current!;
    const measure = () => {
      // A finger needs higher rows than a mouse; the style sheet decides.
      const row = parseFloat(getComputedStyle(element).getPropertyValue('--row-height')) || 32;
      setSize({ height: element.clientHeight, row });
    };
    const observer = new ResizeObserver(measure);
    observer.observe(element);
    measure();
    return () => observer.disconnect();
  }, []);

  useEffect(() => {
    const element = list.current!;
    if (active < 0) return;
    const first = active * size.row;
    if (first < element.scrollTop) element.scrollTop = first;
    else if (first + size.row > element.scrollTop + element.clientHeight) {
      element.scrollTop = first + size.row - element.clientHeight;
    }
  }, [active, size.row]);

  const from = Math.max(0, Math.floor(top / size.row) - SPARE);
  const to = Math.min(rows.length, Math.ceil((top + size.height) / size.row) + SPARE);
  const seen: number[] = [];
  for (let row = from; row < to; ++row) seen.push(row);
  // What aria-activedescendant names has to be in the document, even when it was scrolled out of sight.
  if (active >= 0 && active < rows.length && (active < from || active >= to)) seen.push(active);

  return (
    <div
      class="mesh-list"
      id="mesh-list"
      ref={list}
      role="treegrid"
      tabIndex={0}
      aria-label="Parts"
      aria-rowcount={rows.length}
      aria-colcount={2}
      aria-activedescendant={active >= 0 && active < rows.length ? `row-${active}` : undefined}
      onScroll={(event) => setTop(event.currentTarget.scrollTop)}
      onPointerDown={keys.onPointerDown}
      onFocus={keys.onFocus}
      onKeyDown={keys.onKeyDown}
    >
      <div class="mesh-list-space" role="presentation" style={{ height: `${rows.length * size.row}px` }}>
        {seen.map((index) => {
          const row = rows.at(index);
          const shared = { index, active: index === active, offset: index * size.row };
          return row.kind === 'file' ? (
            <FileRow
              key={`file ${row.group.file.id}`}
              {...shared}
              group={row.group}
              place={row.place}
              of={rows.groups.length}
            />
          ) : (
            <MeshRow
              key={`${row.group.file.id} ${row.mesh}`}
              {...shared}
              group={row.group}
              mesh={row.mesh}
              place={row.place}
            />
          );
        })}
      </div>
      {rows.length === 0 && store.query.value && <p class="empty">Nothing is called “{store.query.value}”.</p>}
    </div>
  );
}
