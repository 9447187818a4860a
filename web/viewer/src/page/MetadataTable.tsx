import { plural } from './model/format.js';
import type { MetadataRow } from './model/metadata.js';

interface TableProps {
  rows: MetadataRow[];
  more: number;
}

/** Keys and values as the file has them; what is nested can be opened. */
export function MetadataTable({ rows, more }: TableProps) {
  return (
    <div class="metadata">
      {rows.map((row) => (
        <Entry key={row.key} row={row} />
      ))}
      {more > 0 && <p class="quiet">… and {plural(more, 'entry', 'entries')} more</p>}
    </div>
  );
}

function Entry({ row }: { row: MetadataRow }) {
  if (row.value !== null) {
    return (
      <div class="metadata-row">
        {row.key !== '' && <span class="key">{row.key}</span>}
        <span class="value">{row.value}</span>
      </div>
    );
  }
  const count = row.children.length + row.more;
  return (
    <details open={count <= 12}>
      <summary>
        <span class="key">{row.key}</span> <span class="quiet">{plural(count, 'entry', 'entries')}</span>
      </summary>
      <MetadataTable rows={row.children} more={row.more} />
    </details>
  );
}
